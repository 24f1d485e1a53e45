// Cells read as typed values, field type by field type, from a Visual
// FoxPro table laid out byte by byte: good cells, blanks and odd text.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

std::string le(uint64_t v, int n) {
    std::string r;
    for (int k = 0; k < n; ++k) r.push_back(static_cast<char>(v >> (8 * k)));
    return r;
}

std::string dbl(double d) {
    return std::string(reinterpret_cast<const char*>(&d), 8);
}

TEST(EncodingValues, EveryFieldTypeReadsTyped) {
    qz_test::Temp_dir dir;
    const std::string path = dir.file("v.dbf");
    // 2001-02-03 04:05:06.789 is Julian day 2451944.
    const uint64_t when_ms = 4 * 3600000ull + 5 * 60000 + 6789;
    const std::string blank(8, ' '), zeros(4, '\0');
    // A Visual FoxPro table (CP1252, with the backlink area).
    qz_test::write_bytes(
        path,
        qz_test::dbf_bytes(
            0x30,
            {{"NAME", 'C', 8},
             {"COUNT", 'N', 6},
             {"PRICE", 'N', 8, 2},
             {"RATE", 'F', 8, 3},
             {"OK", 'L', 1},
             {"DAY", 'D', 8},
             {"ID", 'I', 4},
             {"CASH", 'Y', 8, 4},
             {"WHEN", 'T', 8},
             {"REAL", 'B', 8, 4}},
            {{"Caf\xE9", "   -42", "   12.50", "   1.5e3", "T", "20010203",
              le(static_cast<uint32_t>(-7), 4), le(static_cast<uint64_t>(-123456789), 8),
              le(2451944, 4) + le(when_ms, 4), dbl(2.25)},
             {blank, "", "     ***", "     2,5", "?", blank, zeros, zeros + zeros, zeros + zeros,
              dbl(-0.5)},
             {blank, "", "", "", "", "20241301", zeros, zeros + zeros, zeros + zeros, dbl(0)}},
            0x03, 263));
    Tqz_dbf_rw* h = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
    ASSERT_NE(h, nullptr);
    struct {
        unsigned field, record;
        int kind;
        double number;     // i or d, as the kind keeps it
        const char* text;  // null: not checked
    } rows[] = {
        {0, 0, QZ_DBF_VALUE_TEXT, 0, "Café"},
        {1, 0, QZ_DBF_VALUE_INT, -42, "-42"},
        {2, 0, QZ_DBF_VALUE_DOUBLE, 12.5, "12.50"},
        {3, 0, QZ_DBF_VALUE_DOUBLE, 1500.0, "1.5e3"},
        {4, 0, QZ_DBF_VALUE_BOOL, 1, nullptr},
        {5, 0, QZ_DBF_VALUE_DATE, 20010203, nullptr},
        {6, 0, QZ_DBF_VALUE_INT, -7, nullptr},
        {7, 0, QZ_DBF_VALUE_DECIMAL, -12345.6789, "-12345.6789"},
        {8, 0, QZ_DBF_VALUE_DATETIME, 981173106789.0, nullptr},
        {9, 0, QZ_DBF_VALUE_DOUBLE, 2.25, nullptr},
        {0, 1, QZ_DBF_VALUE_TEXT, 0, ""},
        {1, 1, QZ_DBF_VALUE_NULL, 0, nullptr},
        {2, 1, QZ_DBF_VALUE_NULL, 0, nullptr},
        {3, 1, QZ_DBF_VALUE_DOUBLE, 2.5, "2.5"},
        {4, 1, QZ_DBF_VALUE_NULL, 0, nullptr},
        {5, 1, QZ_DBF_VALUE_NULL, 0, nullptr},
        {6, 1, QZ_DBF_VALUE_INT, 0, nullptr},
        {7, 1, QZ_DBF_VALUE_DECIMAL, 0, "0.0000"},
        {8, 1, QZ_DBF_VALUE_NULL, 0, nullptr},
        {9, 1, QZ_DBF_VALUE_DOUBLE, -0.5, nullptr},
        {5, 2, QZ_DBF_VALUE_TEXT, 0, "20241301"},  // month 13 is no date: the text
    };
    Tqz_dbf_value v;
    for (const auto& e : rows) {
        SCOPED_TRACE("field " + std::to_string(e.field) + " record " + std::to_string(e.record));
        ASSERT_TRUE(qz_dbf_get_value(h, e.field, e.record, &v));
        EXPECT_EQ(v.kind, e.kind);
        if (e.kind == QZ_DBF_VALUE_DOUBLE || e.kind == QZ_DBF_VALUE_DECIMAL) {
            EXPECT_DOUBLE_EQ(v.d, e.number);
        } else if (e.kind != QZ_DBF_VALUE_TEXT && e.kind != QZ_DBF_VALUE_NULL) {
            EXPECT_EQ(v.i, static_cast<long long>(e.number));
        }
        if (e.text) {
            EXPECT_EQ(std::string(v.text, v.length), e.text);
        }
    }
    // No such cell: false, the value null.
    EXPECT_FALSE(qz_dbf_get_value(h, 10, 0, &v));
    EXPECT_EQ(v.kind, QZ_DBF_VALUE_NULL);
    EXPECT_FALSE(qz_dbf_get_value(h, 0, 3, &v));
    EXPECT_FALSE(qz_dbf_get_value(h, 0, 0, nullptr));
    qz_dbf_close(h);
    EXPECT_FALSE(qz_dbf_get_value(nullptr, 0, 0, &v));
}

}  // namespace
