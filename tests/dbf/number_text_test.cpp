// The number conversions of cell text give what sscanf and sprintf give in
// the classic locale: checked against the C library on crafted and random
// inputs, and the field formats they are driven by.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "dbf/number_text.h"
#include "test_support.h"

namespace {

using namespace qz::dbf;

void expect_scan_like_sscanf(const std::string& text) {
    double want = 0, got = 0;
    const bool want_ok = std::sscanf(text.c_str(), "%lg", &want) == 1;
    ASSERT_EQ(scan_double(text.c_str(), got), want_ok) << "'" << text << "'";
    EXPECT_TRUE(!want_ok || (std::isnan(want) ? std::isnan(got) : std::memcmp(&want, &got, 8) == 0))
        << "'" << text << "': " << want << " vs " << got;
    int wi = 0, gi = 0;
    const bool wi_ok = std::sscanf(text.c_str(), "%d", &wi) == 1;
    ASSERT_EQ(scan_int(text.c_str(), gi), wi_ok) << "'" << text << "'";
    EXPECT_EQ(wi_ok ? gi : wi, wi) << "'" << text << "'";
}

TEST(NumberText, ScanningReadsWhatSscanfReads) {
    qz_test::C_locale c;
    // What the random texts cannot reach: other blanks, letters,
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
    for (int i = 0; i < 120000; ++i) {
        const char* alphabet = i % 6 ? "0123456789.+-eE x," : "0123456789";
        std::string s(1 + rng() % (i % 6 ? 14 : 25), ' ');
        for (char& ch : s) ch = alphabet[rng() % std::strlen(alphabet)];
        expect_scan_like_sscanf(s);
    }
}

TEST(NumberText, FormattingWritesWhatSprintfWrites) {
    qz_test::C_locale c;
    std::mt19937_64 rng(2);
    char want[2048];
    std::string got;
    for (int i = 0; i < 60000; ++i) {
        uint64_t bits = rng();
        double v;
        std::memcpy(&v, &bits, 8);  // any bit pattern, or a plain number
        if (i % 4 == 1)
            v = static_cast<double>(static_cast<int64_t>(bits % 2000001) - 1000000) / 100;
        if (i % 4 == 2)
            v = std::ldexp(static_cast<double>(bits % 1000000), static_cast<int>(rng() % 80) - 40);
        if (i % 4 == 3) v = static_cast<double>(bits % 100000) * 0.37 - 1000;
        number_format f;
        f.conversion = "feg"[rng() % 3];
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
    EXPECT_EQ(f.width * 100 + f.precision * 10 + (f.conversion == 'f'), 1021);
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
    for (const char* bad : {"%d", "10.2f", "%10.-lf"}) EXPECT_FALSE(parse_format(bad, f)) << bad;
}

}  // namespace
