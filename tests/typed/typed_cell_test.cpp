// Field images of typed values and the memo layouts, below the exports:
// decimal rounding, the calendar, every type's image and refusal, memo
// blocks appended in each layout, and numbers scanned from cell text.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "dbf/dbase7_descriptors.h"
#include "dbf/number_text.h"
#include "dbf/typed_cell.h"
#include "memo/dbt_rw.h"
#include "memo/fpt_rw.h"
#include "memo/memo_blocks.h"
#include "table_builder.h"
#include "test_support.h"

using qz::dbf::cell_layout;

TEST(TypedCell, DecimalTextRoundingAndTheCalendar) {
    // Decimal texts round half away from zero.
    const char* cases[][3] = {// clang-format off
        {"1.005", "2", "1.01"}, {"-1.005", "2", "-1.01"}, {"9.995", "2", "10.00"}, {"-0.004", "2", "0.00"},
        {".5", "0", "1"}, {"7", "3", "7.000"}, {"+12.3", "1", "12.3"}, {"1e3", "1", "1000.0"},
        {"000123.40", "1", "123.4"}, {"99999999999999999999.5", "0", "100000000000000000000"}};
    // clang-format on
    std::string out;
    for (const auto& c : cases) {
        ASSERT_TRUE(qz::dbf::round_decimal_text(c[0], std::atoi(c[1]), out)) << c[0];
        EXPECT_EQ(out, c[2]) << c[0];
    }
    for (const char* bad : {"", "-", ".", "1.2.3", "12a", "0x10", "1e999"})
        EXPECT_FALSE(qz::dbf::round_decimal_text(bad, 2, out)) << bad;
    // Non-dates are refused: leap days of the Gregorian calendar only. (Days
    // and dates round-trip through the random typed values, and the T and
    // @ images below and the dBASE 7 corpus cells pin the day numbers.)
    for (long long ymd : {20000229LL, 10101LL, 99991231LL, -19000229LL, -20230431LL, -20231301LL,
                          -20230100LL, 0LL, -100000101LL})
        EXPECT_EQ(qz::dbf::valid_ymd(ymd < 0 ? -ymd : ymd), ymd > 0) << ymd;
}

TEST(TypedCell, ImagesByType) {
    auto v_of = [](int kind, long long i, double d, const char* t) {
        return Tqz_dbf_value{kind, i, d, t, t ? std::strlen(t) : 0};
    };
    // clang-format off
    struct { cell_layout f; Tqz_dbf_value v; std::string image; } cases[] = {  // image "": refused
        {{'N', 6, 0, false}, v_of(QZ_DBF_VALUE_INT, -42, 0, nullptr), "   -42"},
        {{'N', 6, 2, false}, v_of(QZ_DBF_VALUE_INT, 42, 0, nullptr), " 42.00"},
        {{'N', 5, 0, false}, v_of(QZ_DBF_VALUE_INT, 123456, 0, nullptr), ""},
        {{'F', 8, 3, false}, v_of(QZ_DBF_VALUE_DOUBLE, 0, 2.0 / 3, nullptr), "   0.667"},
        {{'N', 4, 1, false}, v_of(QZ_DBF_VALUE_DECIMAL, 0, 0, "-9.96"), ""},  // -10.0 is 5 wide
        {{'L', 1, 0, false}, v_of(QZ_DBF_VALUE_BOOL, 0, 0, nullptr), "F"},
        {{'D', 8, 0, false}, v_of(QZ_DBF_VALUE_DATE, 19991231, 0, nullptr), "19991231"},
        {{'D', 8, 0, false}, v_of(QZ_DBF_VALUE_DATETIME, 0, 0, nullptr), ""},
        {{'I', 4, 0, true}, v_of(QZ_DBF_VALUE_INT, -2, 0, nullptr), std::string("\xFE\xFF\xFF\xFF")},
        {{'Y', 8, 4, true}, v_of(QZ_DBF_VALUE_DECIMAL, 0, 0, "0.00005"), std::string("\x01\0\0\0\0\0\0\0", 8)},
        {{'Y', 8, 4, true}, v_of(QZ_DBF_VALUE_INT, 1, 0, nullptr), std::string("\x10\x27\0\0\0\0\0\0", 8)},
        // 2000-01-01 12:00 is Julian day 2451545, 43200000 ms.
        {{'T', 8, 0, true}, v_of(QZ_DBF_VALUE_DATETIME, 946728000000LL, 0, nullptr), std::string("\x59\x68\x25\0\x00\x2E\x93\x02", 8)},
        {{'T', 8, 0, true}, v_of(QZ_DBF_VALUE_DATE, 20000101, 0, nullptr), std::string("\x59\x68\x25\0\0\0\0\0", 8)},
        {{'B', 8, 0, true}, v_of(QZ_DBF_VALUE_INT, 1, 0, nullptr), std::string("\0\0\0\0\0\0\xF0\x3F", 8)},
        {{'B', 8, 0, true}, v_of(QZ_DBF_VALUE_TEXT, 0, 0, "12abc"), ""},
        {{'C', 3, 0, false}, v_of(QZ_DBF_VALUE_BYTES, 0, 0, "ab"), "ab "},
        {{'+', 4, 0, true}, v_of(QZ_DBF_VALUE_INT, 1, 0, nullptr), ""},
        {{'@', 8, 0, false}, v_of(QZ_DBF_VALUE_DATETIME, 1, 0, nullptr), std::string("\x42\xCC\x41\x8B\xA9\x9A\0\x80", 8)},
        {{'Q', 4, 0, true}, v_of(QZ_DBF_VALUE_BYTES, 0, 0, "xy"), std::string("xy\0\0", 4)},
    };
    // clang-format on
    for (const auto& c : cases) {
        std::string image, why;
        const bool ok = qz::dbf::encode_cell(c.f, c.v, "", image, why);
        EXPECT_EQ(ok, !c.image.empty()) << c.f.type << " " << why;
        EXPECT_EQ(ok ? image : why.empty() ? "no reason" : "", c.image) << c.f.type;
    }
    EXPECT_EQ(qz::dbf::memo_block_image({'M', 10, 0, false}, 12), "        12");
    EXPECT_EQ(qz::dbf::memo_block_image({'M', 10, 0, false}, 0), "          ");
    EXPECT_EQ(qz::dbf::memo_block_image({'M', 2, 0, false}, 12), "12");  // the whole width
    EXPECT_EQ(qz::dbf::memo_block_image({'M', 4, 0, true}, 258), std::string("\x02\x01\0\0", 4));
    EXPECT_EQ(qz::dbf::blank_image({'T', 8, 0, true}), std::string(8, '\0'));
    EXPECT_EQ(qz::dbf::blank_image({'B', 10, 0, false}), std::string(10, ' '));
}

// An @ cell holds a double: from 9e18 milliseconds on, the value is out of
// range rather than a number that wraps in 64 bits.
TEST(TypedCell, TimestampsAtTheEdgeOfTheRange) {
    for (double ms : {9.0e18, 9.0e18 - 2048}) {
        const double stored = ms + 719163.0 * 86400000.0;
        uint64_t bits = 0;
        std::memcpy(&bits, &stored, 8);
        uint8_t p[8];
        for (int k = 0; k < 8; ++k) p[k] = static_cast<uint8_t>(bits >> (56 - 8 * k));
        int64_t out = 0;
        EXPECT_EQ(qz::dbf::timestamp_ms(p, out), ms < 9.0e18) << ms;
        EXPECT_EQ(out, ms < 9.0e18 ? static_cast<int64_t>(ms) : 0);
    }
}

// Memo blocks of each layout go one after another; block 0 and blocks past
// the end read as nothing; a damaged free-block number in the header never
// lets a new memo overwrite an old one. (What the memos read back as: the
// typed values tests.)
TEST(MemoBlocks, AppendedAfterEachOtherWhateverTheHeaderSays) {
    using qz::memo::layout;
    for (auto kind : {layout::fpt, layout::dbt3, layout::dbt4}) {
        qz_test::Temp_dir dir;
        typed_test::make_table(dir, "m", 0x30, {{"N", 'M', 4, 0, 0}}, 0,
                               kind == layout::fpt    ? typed_test::memo_kind::fpt
                               : kind == layout::dbt3 ? typed_test::memo_kind::dbt3
                                                      : typed_test::memo_kind::dbt4);
        Tqz_fpt_rw fpt;
        Tqz_dbt_rw dbt;
        Tqz_memo_file& file = kind == layout::fpt ? static_cast<Tqz_memo_file&>(fpt) : dbt;
        ASSERT_EQ(kind == layout::fpt ? fpt.open(dir.file("m.fpt").c_str(), false)
                                      : dbt.open(dir.file("m.dbt").c_str(), false),
                  0);
        std::string why, got;
        uint32_t first = 0, second = 0, type = 9;
        const uint8_t zero[4] = {0, 0, 0, 0};
        ASSERT_TRUE(qz::memo::append_memo(file, kind, "hello", 1, first, why)) << why;
        ASSERT_TRUE(file.write_raw(0, zero, 4));
        ASSERT_TRUE(qz::memo::append_memo(file, kind, std::string(700, 'y'), 0, second, why));
        ASSERT_TRUE(qz::memo::read_memo(file, kind, first, got, type));
        EXPECT_EQ(got, "hello");
        ASSERT_TRUE(qz::memo::read_memo(file, kind, second, got, type));
        EXPECT_EQ(got, std::string(700, 'y'));
        EXPECT_EQ(type, kind == layout::fpt ? 0u : 1u);
        EXPECT_FALSE(qz::memo::read_memo(file, kind, 0, got, type));
        EXPECT_FALSE(qz::memo::read_memo(file, kind, 100000, got, type));
    }
}

// The number conversions of cell text give what sscanf and sprintf give in
// the classic locale: checked against the C library on crafted and random
// inputs, and the field formats they are driven by. (format_double is
// checked against sprintf by the number layout test's million values.)
static void expect_scan_like_sscanf(const std::string& text) {
    double want = 0, got = 0;
    const bool want_ok = std::sscanf(text.c_str(), "%lg", &want) == 1;
    ASSERT_EQ(qz::dbf::scan_double(text.c_str(), got), want_ok) << "'" << text << "'";
    EXPECT_TRUE(!want_ok || (std::isnan(want) ? std::isnan(got) : std::memcmp(&want, &got, 8) == 0))
        << "'" << text << "': " << want << " vs " << got;
    int wi = 0, gi = 0;
    const bool wi_ok = std::sscanf(text.c_str(), "%d", &wi) == 1;
    ASSERT_EQ(qz::dbf::scan_int(text.c_str(), gi), wi_ok) << "'" << text << "'";
    EXPECT_EQ(wi_ok ? gi : wi, wi) << "'" << text << "'";
}

TEST(NumberText, ScanningReadsWhatSscanfReadsAndFieldFormatsParse) {
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
    // The field formats the conversions are driven by.
    qz::dbf::number_format f;
    ASSERT_TRUE(qz::dbf::parse_format("%10.2lf", f));
    EXPECT_EQ(f.width * 100 + f.precision * 10 + (f.conversion == 'f'), 1021);
    ASSERT_TRUE(qz::dbf::parse_format("%-8e", f));
    EXPECT_TRUE(f.left);
    EXPECT_EQ(f.precision, -1);
    // (A negative decimal count: the field-name test writes through one.)
    for (const char* bad : {"%d", "10.2f", "%10.-lf"})
        EXPECT_FALSE(qz::dbf::parse_format(bad, f)) << bad;
}
