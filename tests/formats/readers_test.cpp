// Geometry files read through import_data: what each reader keeps, the
// choice of reader by extension, transposing and split writing.
#include <gtest/gtest.h>

#include "api/TundrelApi.h"
#include "tests/formats/model_text.h"
#include "tests/support/test_util.h"

namespace {

class Readers : public testutil::HostTest {
protected:
    region reg;
    region_fe fe;
};

}  // namespace

// Files under tests/data read after one patch and one face patch (readers
// append; names count within the file or follow positions in the mesh): the
// whole model must equal tests/data/expected/<row>.model. APT counts are J
// then I; FLD takes title and flow; classic DAT: lower-case keywords, block
// packing, quads split, a text record of someone else's; current DAT
// keywords without DATAPACKING are block, flow goes to the zone before it;
// VRML 1 and 2 with shared, DEF'd and USE'd coordinates, separators and
// prototypes; transposing turns every patch, those there before included.
TEST_F(Readers, WholeModelAsExpected) {
    const struct {
        const char* golden;
        std::vector<const char*> files;
        bool transpose;
    } rows[] = {
        {"grid", {"read/grid.apt"}, false},
        {"wing", {"read/wing.fld"}, false},
        {"classic", {"classic.dat"}, false},
        {"packing", {"read/packing.dat"}, false},
        {"vrml", {"mesher_v1.wrl", "toolkit_v2.wrl"}, false},
        {"transposed", {"read/MODEL.APT"}, true},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.golden);
        region m;
        region_fe f;
        m.append(testutil::gridPatch(2, 4));
        f.append(testutil::facePatch(3, {0, 1, 2, -1}));
        for (const char* file : r.files) ASSERT_TRUE(import_data(testutil::dataFile(file), r.transpose, m, f));
        EXPECT_EQ(testutil::modelText(m, f), testutil::expected(std::string(r.golden) + ".model"));
        EXPECT_EQ(tundrel::validate(m, f), "");
    }
    EXPECT_TRUE(messages().empty());
}

TEST_F(Readers, FldWritesBackByteForByte) {
    ASSERT_TRUE(import_data(testutil::dataFile("read/wing.fld"), false, reg, fe));
    ASSERT_TRUE(tundrel::findGeometryFormat("fld")->write(dir.file("out.fld"), reg, fe, 0, 0, 3, false));
    EXPECT_EQ(testutil::readFile(dir.file("out.fld")), testutil::expected("fldWing.fld"));
}

TEST(FileExtension, LastDotLoweredOrNothing) {
    const std::pair<const char*, const char*> rows[] = {{"MODEL.APT", "apt"}, {"Wing.DAT", "dat"}, {"m.apt.bak", "bak"},
                                                        {"wing.", ""},        {"wing", ""},        {".wrl", "wrl"},
                                                        {"a.b/c", "b/c"},     {"", ""}};
    for (const auto& [name, ext] : rows) EXPECT_EQ(file_extension(name), ext) << name;
}

TEST_F(Readers, UnknownExtensionsDoNothingSilently) {
    testutil::writeFile(dir.file("m.apt.bak"), "1 1\n1 2 3\n");
    EXPECT_FALSE(import_data(dir.file("m.apt.bak"), false, reg, fe));
    EXPECT_EQ(reg.patchCount(), 0);
    reg.append(testutil::gridPatch(2, 2));
    EXPECT_FALSE(export_data(dir.file("out.txt"), 6, false, false, reg, fe));
    EXPECT_FALSE(export_data(dir.file("out"), 6, true, false, reg, fe));
    EXPECT_TRUE(messages().empty());
    EXPECT_FALSE(std::filesystem::exists(dir.file("out.txt")));
}
// One numbered file per item, the result that of the last pass; empty
// objects make no pass with split and a refused one without.
TEST_F(Readers, SplitWritesOneNumberedFilePerItem) {
    reg.append(testutil::gridPatch(2, 2));
    reg.append(testutil::gridPatch(3, 2));
    fe.append(testutil::facePatch(3, {0, 1, 2, -1}, {"x", "y", "z"}));
    ASSERT_TRUE(export_data(dir.file("m.apt"), 6, true, false, reg, fe));
    EXPECT_EQ(testutil::readFile(dir.file("m_1.apt")).substr(0, 4), "2 2\n");
    EXPECT_EQ(testutil::readFile(dir.file("m_2.apt")).substr(0, 4), "2 3\n");
    EXPECT_EQ(testutil::readFile(dir.file("m_3.apt")).substr(0, 4), "2 2\n");
    EXPECT_FALSE(std::filesystem::exists(dir.file("m_4.apt")));

    region none, bad;
    region_fe nofe;
    EXPECT_TRUE(export_data(dir.file("e.apt"), 6, true, false, none, nofe));
    EXPECT_FALSE(std::filesystem::exists(dir.file("e_1.apt")));
    EXPECT_FALSE(export_data(dir.file("e.apt"), 6, false, false, none, nofe));
    EXPECT_EQ(messages(), std::vector<std::string>{"Dummy error"});
    // A failed middle pass does not decide.
    bad.append(testutil::gridPatch(2, 2));
    region_fe faces;
    faces.append(testutil::facePatch(3, {-1, 0, 1, 2, -1}, {"x", "y", "z"}));
    faces.append(testutil::facePatch(3, {0, 1, 2, -1}, {"x", "y", "z"}));
    EXPECT_TRUE(export_data(dir.file("b.dat"), 6, true, false, bad, faces));
    EXPECT_EQ(messages().back(), "Logical Error. Index has negative value");
}
