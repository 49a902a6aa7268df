#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <cstring>
#include <iomanip>
#include <limits>
#include <sstream>

#include "api/detail/text.h"
#include "tests/support/test_util.h"

namespace text = tundrel::text;

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
        EXPECT_TRUE(!r.ok || v == r.value) << r.input << " read " << v;
    }
    // Integers stop at a point as a stream does; overflow fails for good.
    text::Scanner s("12 -7 2.5 99999999999 x");
    std::int32_t a = 0, b = 0, c = 0;
    double d = 0;
    EXPECT_TRUE(s.readInt(a) && s.readInt(b) && s.readInt(c) && s.readDouble(d));
    EXPECT_EQ((std::vector<double>{double(a), double(b), double(c), d}), (std::vector<double>{12, -7, 2, 0.5}));
    EXPECT_FALSE(s.readInt(a));
    EXPECT_TRUE(s.fail());
    std::string_view w;
    EXPECT_FALSE(s.readWord(w));
}

namespace {

std::string streamed(double v, int precision, bool scientific) {
    std::ostringstream o;
    o.precision(precision);
    o.setf(scientific ? std::ios::scientific : std::ios::fixed);
    o << v;
    return o.str();
}

std::string printed(double v, int precision, bool scientific) {
    std::string s;
    text::appendDouble(s, v, precision, scientific);
    return s;
}

void parsedLikeFromChars(const std::string& s) {
    double want = 0, got = 0;
    std::from_chars(s.data(), s.data() + s.size(), want);
    ASSERT_TRUE(text::parseDouble(s, got)) << s;
    EXPECT_EQ(std::memcmp(&got, &want, sizeof got), 0) << s;
}

}  // namespace

// The printer and the scanner against an output stream and from_chars: their
// fast paths over many values of every magnitude they take and around their
// limits (ties, 19 digits, 10^15, 2^53, exponents 22 and 23).
TEST(TextNumbers, FastPathsAgreeWithStreamsAndFromChars) {
    std::uint64_t state = 88172645463325252ull;
    auto next = [&] {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    };
    std::vector<double> values = {0.5, 1.5, 2.5, 0.125, 0.375, -0.0, 5e-324, 999999999999999.9, 1e15, -1e15,
                                  9007199254740993.0, 0.045, 1.005, 2.675, 1e-7, -4.35, 123.4565};
    for (int k = 0; k < 5000; ++k) {
        double v;
        const std::uint64_t bits = next();
        std::memcpy(&v, &bits, sizeof v);
        if (!std::isfinite(v)) continue;
        const int scale = static_cast<int>(next() % 40) - 20;
        int exponent = 0;
        values.push_back(std::ldexp(std::frexp(v, &exponent), scale * 3));  // 1e-18 .. 1e17
        values.push_back(static_cast<double>(next() % 100000000) / 1000.0);  // ties and short decimals
    }
    // Beyond the fast paths: scientific notation, infinities, the smallest
    // subnormal, long and default precisions.
    for (bool scientific : {false, true})
        for (int precision : {0, 3, 12, 17, -1})
            for (double v : {-0.0, 1.0 / 3.0, 123456789.123456789, 1e-300, 1e300, -1e10, 5e-7, 1.5e-5,
                             std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                             std::numeric_limits<double>::denorm_min()})
                EXPECT_EQ(printed(v, precision, scientific), streamed(v, precision, scientific)) << v << precision;
    for (double v : values)
        for (int precision : {0, 1, 2, 3, 6, 9, 10}) {
            const std::string mine = printed(v, precision, false);
            ASSERT_EQ(mine, streamed(v, precision, false)) << v << " p=" << precision;

            // Reading the printed text back gives what from_chars gives.
            for (const std::string& s : {mine, streamed(v, precision + 8, true)}) parsedLikeFromChars(s);
        }
    for (std::int64_t v : {std::int64_t{0}, std::int64_t{-7}, std::int64_t{9999}, std::int64_t{10000},
                           std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()}) {
        std::string mine;
        text::appendInt(mine, v);
        EXPECT_EQ(mine, std::to_string(v));
    }
    const char* edges[] = {"9007199254740992", "9007199254740993", "1234567890123456789", "12345678901234567890",
                           "1e22",  "1e23", "4.9e-324", "0.0000000000000000000000123", "00000000000000000000001.5",
                           "1.e5", "-0", "0e99999"};
    for (const char* s : edges) parsedLikeFromChars(s);
}
