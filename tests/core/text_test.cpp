#include <gtest/gtest.h>

#include <cmath>
#include <iomanip>
#include <limits>
#include <sstream>

#include "api/formats/text.h"
#include "tests/test_util.h"

namespace text = tundrel::text;

// The printer must agree byte for byte with an output stream.
TEST(TextPrint, MatchesOstreamFixedAndScientific) {
    const double values[] = {0.0, -0.0, 1.0, -2.5, 0.1, 1.0 / 3.0, 123456789.123456789, 1e-300, 1e300,
                             -1e10, 5e-7, 0.5, 2.5, 1.5e-5, std::numeric_limits<double>::infinity(),
                             -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::denorm_min()};
    for (bool scientific : {false, true})
        for (int precision : {0, 1, 3, 6, 12, 17, -1})
            for (double v : values) {
                std::ostringstream o;
                o.precision(precision);
                o.setf(scientific ? std::ios::scientific : std::ios::fixed);
                o << v;
                std::string mine;
                text::appendDouble(mine, v, precision, scientific);
                EXPECT_EQ(mine, o.str()) << v << " p=" << precision << " sci=" << scientific;
            }
}

// The scanner must read what an input stream reads, and fail where it fails.
TEST(TextScan, ReadsNumbersLikeAnInputStream) {
    struct Row {
        const char* input;
        bool ok;
        double value;
    } doubles[] = {{"  1.5", true, 1.5},   {"+2", true, 2},        {"-.5e1", true, -5}, {"3.", true, 3},
                   {"1e-3x", true, 1e-3},  {"abc", false, 0},      {"", false, 0},      {"+-1", false, 0},
                   {"nan", false, 0},      {"inf", false, 0},      {"1e999", false, 0}, {"\n\t7", true, 7}};
    for (const Row& r : doubles) {
        text::Scanner s(r.input);
        double v = 0;
        EXPECT_EQ(s.readDouble(v), r.ok) << r.input;
        if (r.ok) {
            EXPECT_EQ(v, r.value) << r.input;
        }
    }
    text::Scanner s("12 -7 2.5 99999999999 x");
    std::int32_t a = 0, b = 0, c = 0;
    EXPECT_TRUE(s.readInt(a));
    EXPECT_TRUE(s.readInt(b));
    EXPECT_TRUE(s.readInt(c));  // reads the 2 of 2.5, as a stream does
    EXPECT_EQ(a, 12);
    EXPECT_EQ(b, -7);
    EXPECT_EQ(c, 2);
    double d = 0;
    EXPECT_TRUE(s.readDouble(d));
    EXPECT_EQ(d, 0.5);
    EXPECT_FALSE(s.readInt(a));  // overflow
    EXPECT_TRUE(s.fail());
    std::string_view w;
    EXPECT_FALSE(s.readWord(w));  // the fail state is sticky
}

TEST(TextFiles, LoadRefusesDirectoriesAndMissingFiles) {
    testutil::ScratchDir dir;
    std::string out = "stale";
    EXPECT_FALSE(text::loadFile(dir.path().string(), out));
    EXPECT_FALSE(text::loadFile(dir.file("none"), out));
    testutil::writeFile(dir.file("a"), std::string("x\0y", 3));
    ASSERT_TRUE(text::loadFile(dir.file("a"), out));
    EXPECT_EQ(out, std::string("x\0y", 3));
}

TEST(TextFiles, WriterReportsAFailedOpenOnlyAtClose) {
    testutil::ScratchDir dir;
    text::Writer bad(dir.file("no/such/dir/f.txt"));
    bad << 1.0;
    EXPECT_FALSE(bad.close());
    text::Writer good(dir.file("f.txt"));
    good.setFormat(2, false);
    good << "a " << 1.0 << ' ' << 42;
    good.endl();
    EXPECT_TRUE(good.close());
    EXPECT_EQ(testutil::readFile(dir.file("f.txt")), "a 1.00 42\n");
}

// Tecplot-style separators: commas between values, '#' comments, quoted
// strings with \" inside, names that stop at = ( ) [ ] ".
TEST(TextScan, CommasCommentsQuotesAndNames) {
    text::Scanner s("# a comment, 1 2\n a=\"say \\\"hi\\\"\",3 ,\t4 # tail\nI(x)", text::Separators{true, true});
    std::string_view name;
    std::string quoted;
    double a = 0, b = 0;
    ASSERT_TRUE(s.readName(name));
    EXPECT_EQ(name, "a");
    EXPECT_TRUE(s.accept('='));
    EXPECT_FALSE(s.accept('='));
    ASSERT_TRUE(s.readQuoted(quoted));
    EXPECT_EQ(quoted, "say \"hi\"");
    EXPECT_TRUE(s.readDouble(a));
    EXPECT_TRUE(s.readDouble(b));
    EXPECT_EQ(a, 3);
    EXPECT_EQ(b, 4);
    ASSERT_TRUE(s.readName(name));
    EXPECT_EQ(name, "I");
    EXPECT_TRUE(s.accept('('));
    EXPECT_FALSE(s.readQuoted(quoted));  // not a quote: fails and stays failed
    EXPECT_FALSE(s.readName(name));

    // The default keeps an input stream's view: a comma ends nothing.
    text::Scanner plain("1,2 # 3");
    EXPECT_TRUE(plain.readDouble(a));
    EXPECT_FALSE(plain.readDouble(b));

    text::Scanner open("\"never closed");
    EXPECT_FALSE(open.readQuoted(quoted));
    EXPECT_TRUE(text::equalsIgnoreCase("ZoneType", "ZONETYPE"));
    EXPECT_FALSE(text::equalsIgnoreCase("ZONE", "ZONES"));
    EXPECT_FALSE(text::equalsIgnoreCase("[", "{"));  // only letters fold
}
