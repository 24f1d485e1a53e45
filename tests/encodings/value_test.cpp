// Cells read as typed values, field type by field type, from a Visual
// FoxPro table laid out byte by byte.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

struct field_def {
    const char* name;
    char type;
    uint8_t length, decimals;
};

const field_def fields[] = {{"NAME", 'C', 8, 0}, {"COUNT", 'N', 6, 0}, {"PRICE", 'N', 8, 2},
                            {"RATE", 'F', 8, 3}, {"OK", 'L', 1, 0},    {"DAY", 'D', 8, 0},
                            {"ID", 'I', 4, 0},   {"CASH", 'Y', 8, 4},  {"WHEN", 'T', 8, 0},
                            {"REAL", 'B', 8, 4}};
constexpr unsigned nf = sizeof fields / sizeof fields[0];

std::string le(uint64_t v, int n) {
    std::string r;
    for (int k = 0; k < n; ++k) r.push_back(static_cast<char>(v >> (8 * k)));
    return r;
}

std::string dbl(double d) {
    return std::string(reinterpret_cast<const char*>(&d), 8);
}

// Records given as their cells' bytes in field order.
std::vector<uint8_t> table(const std::vector<std::string>& records) {
    unsigned record_length = 1;
    for (const field_def& f : fields) record_length += f.length;
    const unsigned header_length = 32 + 32 * nf + 1 + 263;  // with the backlink area
    std::vector<uint8_t> b(32, 0);
    b[0] = 0x30;
    b[1] = 124;
    b[2] = b[3] = 1;
    b[4] = static_cast<uint8_t>(records.size());
    b[8] = header_length & 0xFF;
    b[9] = header_length >> 8;
    b[10] = static_cast<uint8_t>(record_length);
    b[29] = 0x03;  // CP1252
    unsigned offset = 1;
    for (const field_def& f : fields) {
        std::vector<uint8_t> d(32, 0);
        std::memcpy(d.data(), f.name, std::strlen(f.name));
        d[11] = static_cast<uint8_t>(f.type);
        d[12] = static_cast<uint8_t>(offset);
        d[16] = f.length;
        d[17] = f.decimals;
        offset += f.length;
        b.insert(b.end(), d.begin(), d.end());
    }
    b.push_back(0x0D);
    b.insert(b.end(), 263, 0);
    for (const std::string& rec : records) {
        EXPECT_EQ(rec.size() + 1, record_length);
        b.push_back(' ');
        b.insert(b.end(), rec.begin(), rec.end());
    }
    b.push_back(0x1A);
    return b;
}

TEST(EncodingValues, EveryFieldTypeReadsTyped) {
    qz_test::Temp_dir dir;
    const std::string path = dir.file("v.dbf");
    // 2001-02-03 04:05:06.789 is Julian day 2451944.
    const uint64_t when_ms = 4 * 3600000ull + 5 * 60000 + 6789;
    const std::string blank(14, ' ');
    qz_test::write_bytes(
        path,
        table({"Caf\xE9    " + std::string("   -42   12.50   1.5e3T20010203") +
                   le(static_cast<uint32_t>(-7), 4) + le(static_cast<uint64_t>(-123456789), 8) +
                   le(2451944, 4) + le(when_ms, 4) + dbl(2.25),
               blank + "     ***     2,5?        " + std::string(20, '\0') + dbl(-0.5),
               blank + std::string(17, ' ') + "20241301" + std::string(20, '\0') + dbl(0)}));
    Tqz_dbf_rw* h = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
    ASSERT_NE(h, nullptr);
    Tqz_dbf_value v;
    struct expect {
        unsigned field, record;
        int kind;
        long long i;
        double d;
        const char* text;  // null: not checked
    } rows[] = {
        {0, 0, QZ_DBF_VALUE_TEXT, 0, 0, "Café"},
        {1, 0, QZ_DBF_VALUE_INT, -42, 0, "-42"},
        {2, 0, QZ_DBF_VALUE_DOUBLE, 0, 12.5, "12.50"},
        {3, 0, QZ_DBF_VALUE_DOUBLE, 0, 1500.0, "1.5e3"},
        {4, 0, QZ_DBF_VALUE_BOOL, 1, 0, nullptr},
        {5, 0, QZ_DBF_VALUE_DATE, 20010203, 0, nullptr},
        {6, 0, QZ_DBF_VALUE_INT, -7, 0, nullptr},
        {7, 0, QZ_DBF_VALUE_DECIMAL, 0, -12345.6789, "-12345.6789"},
        {8, 0, QZ_DBF_VALUE_DATETIME, 981173106789LL, 0, nullptr},
        {9, 0, QZ_DBF_VALUE_DOUBLE, 0, 2.25, nullptr},
        {0, 1, QZ_DBF_VALUE_TEXT, 0, 0, ""},
        {1, 1, QZ_DBF_VALUE_NULL, 0, 0, nullptr},
        {2, 1, QZ_DBF_VALUE_NULL, 0, 0, nullptr},
        {3, 1, QZ_DBF_VALUE_DOUBLE, 0, 2.5, "2.5"},
        {4, 1, QZ_DBF_VALUE_NULL, 0, 0, nullptr},
        {5, 1, QZ_DBF_VALUE_NULL, 0, 0, nullptr},
        {6, 1, QZ_DBF_VALUE_INT, 0, 0, nullptr},
        {7, 1, QZ_DBF_VALUE_DECIMAL, 0, 0, "0.0000"},
        {8, 1, QZ_DBF_VALUE_NULL, 0, 0, nullptr},
        {9, 1, QZ_DBF_VALUE_DOUBLE, 0, -0.5, nullptr},
        {5, 2, QZ_DBF_VALUE_TEXT, 0, 0, "20241301"},  // month 13 is no date: the text
    };
    for (const expect& e : rows) {
        SCOPED_TRACE("field " + std::to_string(e.field) + " record " + std::to_string(e.record));
        ASSERT_TRUE(qz_dbf_get_value(h, e.field, e.record, &v));
        EXPECT_EQ(v.kind, e.kind);
        if (e.kind == QZ_DBF_VALUE_INT || e.kind == QZ_DBF_VALUE_BOOL ||
            e.kind == QZ_DBF_VALUE_DATE || e.kind == QZ_DBF_VALUE_DATETIME) {
            EXPECT_EQ(v.i, e.i);
        }
        if (e.kind == QZ_DBF_VALUE_DOUBLE || e.kind == QZ_DBF_VALUE_DECIMAL) {
            EXPECT_DOUBLE_EQ(v.d, e.d);
        }
        if (e.text) {
            EXPECT_EQ(std::string(v.text, v.length), e.text);
        }
    }
    // No such cell: false, the value null.
    EXPECT_FALSE(qz_dbf_get_value(h, nf, 0, &v));
    EXPECT_EQ(v.kind, QZ_DBF_VALUE_NULL);
    EXPECT_FALSE(qz_dbf_get_value(h, 0, 3, &v));
    EXPECT_FALSE(qz_dbf_get_value(h, 0, 0, nullptr));
    qz_dbf_close(h);
    EXPECT_FALSE(qz_dbf_get_value(nullptr, 0, 0, &v));
}

}  // namespace
