// The number conversions of cell text give what sscanf and sprintf give in
// the classic locale: checked against the C library on crafted and random
// inputs, and the field formats they are driven by. (format_double is
// checked against sprintf by the number layout test's million values.)
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
    const char* const odd[] = {// clang-format off
        "\t\n 42", "2e-310", "1e400", "-1e400", "0x1p3", "0X", "0xg", "inf", "-Infinity", "nan",
        "NAN(123)", "in", "infin", "12abc", "00000000000000000000012", "-2147483649",
        "123456789012345678901234567890", "0.000000000000000000001", "123456789.123456789123456789",
        "1.7976931348623157e308", "4.9406564584124654e-324"};
    // clang-format on
    for (const char* t : odd) expect_scan_like_sscanf(t);
    std::mt19937 rng(1);
    for (int i = 0; i < 120000; ++i) {
        const char* alphabet = i % 6 ? "0123456789.+-eE x," : "0123456789";
        std::string s(1 + rng() % (i % 6 ? 14 : 25), ' ');
        for (char& ch : s) ch = alphabet[rng() % std::strlen(alphabet)];
        expect_scan_like_sscanf(s);
    }
}

TEST(NumberText, FieldFormats) {
    number_format f;
    ASSERT_TRUE(parse_format("%10.2lf", f));
    EXPECT_EQ(f.width * 100 + f.precision * 10 + (f.conversion == 'f'), 1021);
    ASSERT_TRUE(parse_format("%-8e", f));
    EXPECT_TRUE(f.left);
    EXPECT_EQ(f.precision, -1);
    // (A negative decimal count: the field-name test writes through one.)
    for (const char* bad : {"%d", "10.2f", "%10.-lf"}) EXPECT_FALSE(parse_format(bad, f)) << bad;
}

}  // namespace
