// The number conversions of cell text give what sscanf and sprintf give in
// the classic locale: checked against the C library on crafted and random
// inputs.
#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>

#include "dbf/number_text.h"
#include "test_support.h"

namespace {

using namespace qz::dbf;

std::string random_text(std::mt19937& rng, const char* alphabet, size_t max_len) {
    size_t n = 1 + rng() % max_len, k = std::strlen(alphabet);
    std::string s;
    for (size_t i = 0; i < n; ++i) s += alphabet[rng() % k];
    return s;
}

void expect_scan_like_sscanf(const std::string& text) {
    qz_test::C_locale c;
    double want = 0, got = 0;
    bool want_ok = std::sscanf(text.c_str(), "%lg", &want) == 1;
    bool got_ok = scan_double(text.c_str(), got);
    ASSERT_EQ(got_ok, want_ok) << "'" << text << "'";
    if (want_ok) {
        if (std::isnan(want))
            EXPECT_TRUE(std::isnan(got)) << "'" << text << "'";
        else
            EXPECT_EQ(std::memcmp(&want, &got, sizeof want), 0)
                << "'" << text << "': " << want << " vs " << got;
    }
    int wi = 0, gi = 0;
    bool wi_ok = std::sscanf(text.c_str(), "%d", &wi) == 1;
    ASSERT_EQ(scan_int(text.c_str(), gi), wi_ok) << "'" << text << "'";
    if (wi_ok) {
        EXPECT_EQ(gi, wi) << "'" << text << "'";
    }
}

TEST(NumberText, ScanningReadsWhatSscanfReads) {
    // What the random texts below cannot reach: other blanks, letters,
    // hexadecimal, infinities and NaNs, extreme exponents, long mantissas.
    for (const char* t : {"\t\n 42",
                          "2e-310",
                          "1e400",
                          "-1e400",
                          "0x1p3",
                          "0X",
                          "0xg",
                          "inf",
                          "-Infinity",
                          "nan",
                          "NAN(123)",
                          "in",
                          "infin",
                          "12abc",
                          "00000000000000000000012",
                          "-2147483649",
                          "123456789012345678901234567890",
                          "0.000000000000000000001",
                          "123456789.123456789123456789",
                          "1.7976931348623157e308",
                          "4.9406564584124654e-324"})
        expect_scan_like_sscanf(t);
    std::mt19937 rng(1);
    for (int i = 0; i < 100000; ++i)
        expect_scan_like_sscanf(random_text(rng, "0123456789.+-eE x,", 14));
    for (int i = 0; i < 20000; ++i) expect_scan_like_sscanf(random_text(rng, "0123456789", 25));
}

TEST(NumberText, FormattingWritesWhatSprintfWrites) {
    qz_test::C_locale c;
    std::mt19937_64 rng(2);
    char want[2048];
    std::string got;
    const char conversions[] = {'f', 'e', 'g'};
    for (int i = 0; i < 60000; ++i) {
        double v;
        switch (i % 4) {
            case 0: {
                uint64_t bits = rng();
                std::memcpy(&v, &bits, 8);
                break;
            }
            case 1:
                v = static_cast<double>(static_cast<int64_t>(rng() % 2000001) - 1000000) / 100;
                break;
            case 2:
                v = std::ldexp(static_cast<double>(rng() % 1000000),
                               static_cast<int>(rng() % 80) - 40);
                break;
            default:
                v = static_cast<double>(rng() % 100000) * 0.37 - 1000;
                break;
        }
        number_format f;
        f.conversion = conversions[rng() % 3];
        f.width = static_cast<int>(rng() % 22);
        f.precision = static_cast<int>(rng() % 20) - 1;
        f.left = rng() % 2;
        char pattern[32];
        std::snprintf(pattern, sizeof pattern, "%%%s*.*%c", f.left ? "-" : "", f.conversion);
        std::snprintf(want, sizeof want, pattern, f.width, f.precision < 0 ? 6 : f.precision, v);
        format_double(got, v, f);
        ASSERT_EQ(got, want) << pattern << " " << f.width << " " << f.precision << " of " << v;
    }
}

TEST(NumberText, FieldFormats) {
    number_format f;
    ASSERT_TRUE(parse_format("%10.2lf", f));
    EXPECT_EQ(f.width, 10);
    EXPECT_EQ(f.precision, 2);
    EXPECT_EQ(f.conversion, 'f');
    ASSERT_TRUE(parse_format("%-8e", f));
    EXPECT_TRUE(f.left);
    EXPECT_EQ(f.precision, -1);
    // A negative decimal count reads as no precision: the C library would
    // print the format itself ("%10.0-1lf") into the field.
    ASSERT_TRUE(parse_format("%10.-1lf", f));
    EXPECT_EQ(f.width, 10);
    EXPECT_EQ(f.precision, -1);
    std::string text;
    format_double(text, 2.5, f);
    EXPECT_EQ(text, "  2.500000");
    EXPECT_FALSE(parse_format("%d", f));
    EXPECT_FALSE(parse_format("10.2f", f));
    EXPECT_FALSE(parse_format("%10.-lf", f));
}

}  // namespace
