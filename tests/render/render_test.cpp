// Pictures: a plate whose field is x, seen from above, against the colour map.
#include <gtest/gtest.h>

#include "api/render/render.h"
#include "tests/support/shapes.h"
#include "tests/support/test_util.h"

namespace {

using shapes::V;

// A 1 x 0.5 plate in z = 0, 41 x 11 nodes, field P = x, node (20, 5) at the
// centre without value.
FieldMasterD plate() {
    shapes::Block b = shapes::grid(41, 11, [](int i, int j) { return V(i / 40.0, j / 40.0 * 2.0, 0.0); }, V(0, 0, 1));
    for (std::size_t n = 0; n < b.pos.size(); ++n) b.value[n] = b.pos[n].x;
    b.value[20 + 41 * 5] = tundrel::kNoValue;
    return shapes::build({b});
}

int distance(const std::uint8_t* p, const float rgb[3]) {
    int d = 0;
    for (int c = 0; c < 3; ++c) d = std::max(d, std::abs(p[c] - static_cast<int>(std::lround(rgb[c] * 255))));
    return d;
}

struct Case {
    const char* map;
    tundrel::RayTracing tracing;
    int samples;
    friend void PrintTo(const Case& c, std::ostream* os) { *os << c.map << "_" << int(c.tracing) << "_" << c.samples; }
};

class PlatePicture : public ::testing::TestWithParam<Case> {};

TEST_P(PlatePicture, GradientFollowsTheMapWithTheNoValueNodeGrey) {
    const auto [mapName, tracing, samples] = GetParam();
    const FieldMasterD f = plate();
    const tundrel::ColorMap map = *tundrel::ColorMap::named(mapName);
    const tundrel::FieldRenderer r(f);
    const auto& P = *f.scalar(f.findFunction("P"));
    const auto img = r.render({P.data(), P.size()}, *tundrel::View::named("top"), 0.0, 1.0, map, 240, 130, samples,
                              true, tracing);
    // The plate's columns on its middle row: opaque from left to right.
    const int row = 65;
    int left = -1, right = -1;
    for (int x = 0; x < img.width; ++x)
        if (img.at(x, row)[3] == 255) {
            if (left < 0) left = x;
            right = x;
        }
    ASSERT_GT(right - left, 200);
    EXPECT_EQ(img.at(left - 2, row)[3], 0);  // transparent background
    const double perPixel = 1.0 / (right - left + 1);
    for (int x = left; x <= right; x += 7) {
        const double value = (x - left + 0.5) * perPixel;
        if (std::abs(value - 0.5) < 0.06) continue;  // the no-value node
        float rgb[3];
        map.color(value, rgb);
        EXPECT_LE(distance(img.at(x, row - 20), rgb), 4) << "x = " << x << ", value " << value;
    }
    const float grey[3] = {0.62f, 0.62f, 0.62f};
    EXPECT_LE(distance(img.at((left + right) / 2, row), grey), 2);
    EXPECT_EQ(r.raysTraced(), 240u * 130u * samples * samples);
}

INSTANTIATE_TEST_SUITE_P(Maps, PlatePicture,
                         ::testing::Values(Case{"viridis", tundrel::RayTracing::Packet8, 2},
                                           Case{"coolwarm", tundrel::RayTracing::Packet16, 3},
                                           Case{"magma", tundrel::RayTracing::Single, 1}));

// The sheet: the bar's end values and the field's name are printed (ink in
// their boxes), the title is there, and bad requests are refused.
TEST(Picture, ColourBarShowsTheEndValuesAndTheFieldName) {
    const FieldMasterD f = plate();
    tundrel::PictureOptions o;
    o.field = "P";
    o.views = {*tundrel::View::named("top"), *tundrel::View::named("iso")};
    o.width = 500;
    o.height = 300;
    o.title = tundrel::pictureTitle("plate", 0.8, 2, 0);
    const tundrel::Picture p = tundrel::renderPicture(f, o);
    ASSERT_TRUE(p) << p.message;
    EXPECT_EQ(p.low, 0.0);
    EXPECT_EQ(p.high, 1.0);
    for (const char* text : {"0", "1", "P", "0.4", "plate   Mach 0.8   alpha 2\u00b0   beta 0\u00b0", "top", "iso"}) {
        const auto t = std::find_if(p.texts.begin(), p.texts.end(), [&](const auto& b) { return b.text == text; });
        ASSERT_NE(t, p.texts.end()) << text;
        int ink = 0;
        for (int y = static_cast<int>(t->y0); y <= static_cast<int>(t->y1); ++y)
            for (int x = static_cast<int>(t->x0); x <= static_cast<int>(t->x1); ++x) ink += p.image.at(x, y)[0] < 128;
        EXPECT_GT(ink, 2) << text;
    }
    struct Bad {
        const char* field;
        const char* minus;
        const char* map;
        double low, high;
    };
    for (const Bad& b : {Bad{"Q", "", "", 0, 1}, Bad{"P", "Q", "", 0, 1}, Bad{"P", "", "jet", 0, 1},
                         Bad{"P", "", "", 1, 1}}) {
        tundrel::PictureOptions bad = o;
        bad.field = b.field;
        bad.minus = b.minus;
        bad.colormap = b.map;
        bad.low = b.low;
        bad.high = b.high;
        EXPECT_FALSE(tundrel::renderPicture(f, bad)) << b.field << b.minus << b.map << b.low;
    }
    o.minus = "P";  // P - P is 0 everywhere but at the no-value node: a symmetric range about 0
    EXPECT_EQ(tundrel::renderPicture(f, o).low, -tundrel::renderPicture(f, o).high);
}

TEST(Picture, CommandWritesThePngAndNamesABadOption) {
    testutil::ScratchDir dir;
    const std::string model = std::string(TUNDREL_SOURCE_DIR) + "/examples/wingbody.fld", out = dir.file("cp.png");
    const auto ok = testutil::runCli("render " + model + " " + out + " --field cp --size 160x120 --views top,iso");
    ASSERT_EQ(ok.status, 0) << ok.out;
    EXPECT_EQ(testutil::readFile(out).substr(1, 3), "PNG");
    for (const char* bad : {"--size 10x10", "--range 1,0", "--views top,side", "--colormap jet", "--zoom 0",
                            "--difference cp", "--azimuth 10 --views top"}) {
        const auto r = testutil::runCli("render " + model + " " + out + " --field cp " + bad);
        EXPECT_EQ(r.status, 2) << bad;
        EXPECT_NE(r.out.find(std::string(bad).substr(0, std::string(bad).find(' '))), std::string::npos) << r.out;
    }
    EXPECT_EQ(testutil::runCli("render " + model + " " + out + " --field nope").status, 1);
}

}  // namespace
