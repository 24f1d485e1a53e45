// Typed writes through qz_dbf_set_value: every writable field type of the
// Visual FoxPro, dBASE III and dBASE IV dialects written, read back after a
// reopen, and checked on disk; values a field cannot hold refused with the
// cell unchanged; null flags; whole-record and whole-column reads.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "qzk_file_dbf_ext.h"
#include "table_builder.h"
#include "test_support.h"

using namespace typed_test;

namespace {

Tqz_dbf_value null_v() {
    return Tqz_dbf_value{QZ_DBF_VALUE_NULL, 0, 0.0, nullptr, 0};
}
Tqz_dbf_value int_v(long long i) {
    return Tqz_dbf_value{QZ_DBF_VALUE_INT, i, 0.0, nullptr, 0};
}
Tqz_dbf_value bool_v(bool b) {
    return Tqz_dbf_value{QZ_DBF_VALUE_BOOL, b, 0.0, nullptr, 0};
}
Tqz_dbf_value dbl_v(double d) {
    return Tqz_dbf_value{QZ_DBF_VALUE_DOUBLE, 0, d, nullptr, 0};
}
Tqz_dbf_value dec_v(const char* t) {
    return Tqz_dbf_value{QZ_DBF_VALUE_DECIMAL, 0, 0.0, t, std::strlen(t)};
}
Tqz_dbf_value date_v(long long ymd) {
    return Tqz_dbf_value{QZ_DBF_VALUE_DATE, ymd, 0.0, nullptr, 0};
}
Tqz_dbf_value dt_v(long long ms) {
    return Tqz_dbf_value{QZ_DBF_VALUE_DATETIME, ms, 0.0, nullptr, 0};
}
Tqz_dbf_value text_v(const char* t) {
    return Tqz_dbf_value{QZ_DBF_VALUE_TEXT, 0, 0.0, t, std::strlen(t)};
}
Tqz_dbf_value bytes_v(const std::string& b) {
    return Tqz_dbf_value{QZ_DBF_VALUE_BYTES, 0, 0.0, b.data(), b.size()};
}

// What a read gives, as one comparable text.
std::string shown(const Tqz_dbf_value& v) {
    char buf[64];
    switch (v.kind) {
        case QZ_DBF_VALUE_NULL:
            return "null";
        case QZ_DBF_VALUE_BOOL:
            return v.i ? "true" : "false";
        case QZ_DBF_VALUE_INT:
        case QZ_DBF_VALUE_DATE:
        case QZ_DBF_VALUE_DATETIME:
            std::snprintf(buf, sizeof buf, "%d:%lld", v.kind, v.i);
            return buf;
        case QZ_DBF_VALUE_DOUBLE:
            std::snprintf(buf, sizeof buf, "d:%.17g", v.d);
            return buf;
        default:
            return std::to_string(v.kind) + ":" + std::string(v.text, v.length);
    }
}

std::string read_shown(Tqz_dbf_rw* t, unsigned f, unsigned r) {
    Tqz_dbf_value v;
    if (!qz_dbf_get_value(t, f, r, &v)) return "<fail>";
    return shown(v);
}

const std::vector<tfield> vfp_fields = {
    {"NAME", 'C', 10, 0, 0x02}, {"PRICE", 'N', 8, 2, 0x02},      {"RATE", 'F', 10, 3, 0},
    {"OK", 'L', 1, 0, 0},       {"DAY", 'D', 8, 0, 0},           {"ID", 'I', 4, 0, 0x02},
    {"REAL", 'B', 8, 2, 0},     {"CASH", 'Y', 8, 4, 0},          {"WHEN", 'T', 8, 0, 0x02},
    {"NOTE", 'M', 4, 0, 0},     {"PIC", 'P', 4, 0, 0},           {"SEQ", 'I', 4, 0, 0x0C},
    {"AUTO", '+', 4, 0, 0},     {"_NullFlags", '0', 1, 0, 0x05},
};

size_t record_length() {
    size_t n = 1;
    for (const tfield& f : vfp_fields) n += f.length;
    return n;
}

struct write_case {
    unsigned field;
    Tqz_dbf_value value;
};

}  // namespace

TEST(TypedWrite, VisualFoxProEveryTypeRoundTripsThroughTheFile) {
    qz_test::Temp_dir dir;
    const std::string path = make_table(dir, "vfp", 0x30, vfp_fields, 3, memo_kind::fpt, 0x03);
    const std::string picture("\x89PNG\0\x01\x1A", 7);
    const std::vector<write_case> cases = {
        {0, text_v("Caf\xC3\xA9")},
        {1, dec_v("1234.565")},  // rounded half up to 1234.57
        {2, dbl_v(-2.5)},
        {3, bool_v(true)},
        {4, date_v(20240229)},
        {5, int_v(-2147483648LL)},
        {6, dbl_v(0.1)},
        {7, dec_v("-922337203685477.5808")},
        {8, dt_v(-86400000LL * 365 + 1234)},
        {9, text_v("line one\r\nline two \xE2\x82\xAC")},
        {10, bytes_v(picture)},
    };
    Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), 0);
    ASSERT_NE(t, nullptr) << qz_dbf_last_error_message();
    for (const write_case& c : cases)
        EXPECT_TRUE(qz_dbf_set_value(t, c.field, 1, &c.value))
            << c.field << ": " << qz_dbf_last_error_message();
    qz_dbf_close(t);

    // Read back after a reopen: each as written, the decimal rounded (N
    // reads as the double nearest 1234.57).
    t = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
    ASSERT_NE(t, nullptr);
    const std::string shown_back[] = {
        "7:Caf\xC3\xA9",
        "d:1234.5699999999999",
        "d:-2.5",
        "true",
        "5:20240229",
        "2:-2147483648",
        "d:0.10000000000000001",
        "4:-922337203685477.5808",
        "6:" + std::to_string(-86400000LL * 365 + 1234),
        "7:line one\r\nline two \xE2\x82\xAC",
        "8:" + picture,
    };
    for (unsigned f = 0; f < cases.size(); ++f) EXPECT_EQ(read_shown(t, f, 1), shown_back[f]) << f;
    // Record 0 was never written: blanks read as null or empty.
    EXPECT_EQ(read_shown(t, 1, 0), "null");
    EXPECT_EQ(read_shown(t, 8, 0), "null");
    qz_dbf_close(t);

    // The bytes on disk: text in CP1252, the number right-aligned, the
    // datetime as Julian day and milliseconds, the memo an .fpt block.
    const std::vector<uint8_t> file = qz_test::read_bytes(path);
    const size_t rec = 32 + 32 * vfp_fields.size() + 1 + 263 + record_length();
    const std::string r(file.begin() + static_cast<long>(rec),
                        file.begin() + static_cast<long>(rec + record_length()));
    EXPECT_EQ(r.substr(1, 10), "Caf\xE9      ");
    EXPECT_EQ(r.substr(11, 8), " 1234.57");
    EXPECT_EQ(r.substr(19, 10), "    -2.500");
    EXPECT_EQ(r.substr(30, 8), "20240229");
    const std::vector<uint8_t> fpt = qz_test::read_bytes(dir.file("vfp.fpt"));
    ASSERT_GE(fpt.size(), 512u + 64u);
    EXPECT_EQ(fpt[512 + 3], 1);  // text block
    EXPECT_EQ(fpt.size() % 64, 0u);
}

TEST(TypedWrite, RefusalsLeaveTheCellAndSayWhy) {
    qz_test::Temp_dir dir;
    const std::string path = make_table(dir, "vfp", 0x30, vfp_fields, 2, memo_kind::none, 0x03);
    Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), 0);
    ASSERT_NE(t, nullptr);
    const Tqz_dbf_value seven = int_v(7);
    ASSERT_TRUE(qz_dbf_set_value(t, 1, 0, &seven));
    struct refusal {
        unsigned field;
        Tqz_dbf_value value;
        int code;
    } refusals[] = {
        {0, text_v("eleven char"), QZ_DBF_ERR_VALUE},           // longer than C(10)
        {0, text_v("\xE4\xB8\xAD"), QZ_DBF_ERR_VALUE},          // no place in CP1252
        {0, int_v(5), QZ_DBF_ERR_VALUE},                        // C takes text
        {1, dec_v("123456.7"), QZ_DBF_ERR_VALUE},               // wider than N(8,2)
        {1, dbl_v(NAN), QZ_DBF_ERR_VALUE},                      // not finite
        {1, text_v("12a"), QZ_DBF_ERR_VALUE},                   // no number
        {3, int_v(1), QZ_DBF_ERR_VALUE},                        // L takes a bool
        {4, date_v(20230229), QZ_DBF_ERR_VALUE},                // no such day
        {5, int_v(2147483648LL), QZ_DBF_ERR_VALUE},             // past 32 bits
        {5, dbl_v(1.5), QZ_DBF_ERR_VALUE},                      // not whole
        {6, null_v(), QZ_DBF_ERR_VALUE},                        // B without a null flag
        {7, dec_v("922337203685478"), QZ_DBF_ERR_VALUE},        // past the currency range
        {9, text_v("memo"), QZ_DBF_ERR_MEMO},                   // no memo file
        {12, int_v(3), QZ_DBF_ERR_VALUE},                       // autoincrement
        {13, bytes_v(std::string(1, '\0')), QZ_DBF_ERR_VALUE},  // the flags themselves
        {1, Tqz_dbf_value{42, 0, 0.0, nullptr, 0}, QZ_DBF_ERR_ARGUMENT},
    };
    for (const refusal& c : refusals) {
        const std::string before = read_shown(t, c.field, 0);
        qz_dbf_clear_last_error();
        EXPECT_FALSE(qz_dbf_set_value(t, c.field, 0, &c.value)) << c.field;
        EXPECT_EQ(qz_dbf_last_error(), c.code) << c.field << ": " << qz_dbf_last_error_message();
        EXPECT_NE(std::string(qz_dbf_last_error_message()).find("field "), std::string::npos);
        EXPECT_EQ(read_shown(t, c.field, 0), before) << c.field;
    }
    const Tqz_dbf_value one = int_v(1);
    EXPECT_FALSE(qz_dbf_set_value(t, 99, 0, &one));
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_ARGUMENT);
    EXPECT_FALSE(qz_dbf_set_value(t, 1, 2, &one));
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_ARGUMENT);
    EXPECT_FALSE(qz_dbf_set_value(t, 1, 0, nullptr));
    EXPECT_FALSE(qz_dbf_set_value(nullptr, 1, 0, &one));
    qz_dbf_close(t);

    t = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
    ASSERT_NE(t, nullptr);
    EXPECT_FALSE(qz_dbf_set_value(t, 1, 0, &one));
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_PERMISSION);
    EXPECT_EQ(read_shown(t, 1, 0), "d:7");
    qz_dbf_close(t);
}

TEST(TypedWrite, NullFlagsSetAndClearTheirOwnBits) {
    qz_test::Temp_dir dir;
    const std::string path = make_table(dir, "vfp", 0x30, vfp_fields, 1, memo_kind::none, 0x03);
    Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), 0);
    ASSERT_NE(t, nullptr);
    const Tqz_dbf_value nul = null_v(), five = int_v(5), name = text_v("x");
    // Nullable fields in order: NAME bit 0, PRICE bit 1, ID bit 2, WHEN bit 3.
    for (unsigned f : {0u, 1u, 5u, 8u}) EXPECT_TRUE(qz_dbf_set_value(t, f, 0, &nul)) << f;
    EXPECT_TRUE(qz_dbf_set_value(t, 5, 0, &five));
    EXPECT_TRUE(qz_dbf_set_value(t, 0, 0, &name));
    EXPECT_EQ(read_shown(t, 0, 0), "7:x");
    EXPECT_EQ(read_shown(t, 1, 0), "null");
    EXPECT_EQ(read_shown(t, 5, 0), "2:5");
    EXPECT_EQ(read_shown(t, 8, 0), "null");
    // A field without a null flag: a blank N, F, D, L reads as null.
    EXPECT_TRUE(qz_dbf_set_value(t, 2, 0, &nul));
    EXPECT_EQ(read_shown(t, 2, 0), "null");
    qz_dbf_close(t);
    const std::vector<uint8_t> file = qz_test::read_bytes(path);
    const size_t flags_at = 32 + 32 * vfp_fields.size() + 1 + 263 + record_length() - 1;
    EXPECT_EQ(file[flags_at], 0x0A);  // bits 1 and 3
}

TEST(TypedWrite, DbaseMemoLayoutsAppendAndReadBack) {
    for (memo_kind kind : {memo_kind::dbt3, memo_kind::dbt4}) {
        qz_test::Temp_dir dir;
        const uint8_t version = kind == memo_kind::dbt3 ? 0x83 : 0x8B;
        const std::string path = make_table(
            dir, "memo", version, {{"ID", 'N', 5, 0, 0}, {"NOTE", 'M', 10, 0, 0}}, 3, kind);
        Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), 0);
        ASSERT_NE(t, nullptr);
        const std::string long_text(1500, 'x');
        const Tqz_dbf_value a = text_v("first"), b = text_v(long_text.c_str()), c = text_v("");
        ASSERT_TRUE(qz_dbf_set_value(t, 1, 0, &a)) << qz_dbf_last_error_message();
        ASSERT_TRUE(qz_dbf_set_value(t, 1, 1, &b));
        ASSERT_TRUE(qz_dbf_set_value(t, 1, 2, &c));
        const std::string eof(
            "a\x1A"
            "b",
            3);
        const Tqz_dbf_value d = bytes_v(eof);
        EXPECT_EQ(qz_dbf_set_value(t, 1, 2, &d), kind == memo_kind::dbt4);
        qz_dbf_close(t);
        t = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
        ASSERT_NE(t, nullptr);
        EXPECT_EQ(read_shown(t, 1, 0), "7:first");
        EXPECT_EQ(read_shown(t, 1, 1), "7:" + long_text);
        EXPECT_EQ(read_shown(t, 1, 2), kind == memo_kind::dbt4 ? "7:" + eof : "7:");
        qz_dbf_close(t);
        const std::vector<uint8_t> dbt = qz_test::read_bytes(dir.file("memo.dbt"));
        ASSERT_GE(dbt.size(), 1024u);
        EXPECT_EQ(dbt.size() % 512, 0u);
        if (kind == memo_kind::dbt4) {
            EXPECT_EQ(std::vector<uint8_t>(dbt.begin() + 512, dbt.begin() + 520),
                      (std::vector<uint8_t>{0xFF, 0xFF, 0x08, 0x00, 13, 0, 0, 0}));
        } else {
            EXPECT_EQ(std::string(dbt.begin() + 512, dbt.begin() + 519), "first\x1A\x1A");
        }
        // The header's next free block is past the last memo written.
        EXPECT_EQ(dbt[0] | dbt[1] << 8, static_cast<int>(dbt.size() / 512));
    }
}

TEST(TypedRead, RecordAndColumnReadsMatchCellReads) {
    qz_test::Temp_dir dir;
    const std::string path = make_table(dir, "vfp", 0x30, vfp_fields, 5, memo_kind::fpt, 0x03);
    Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), 0);
    ASSERT_NE(t, nullptr);
    const std::string words[] = {"zero", "one", "two", "three", "\xC3\xA9t\xC3\xA9"};
    for (unsigned r = 0; r < 5; ++r) {
        const Tqz_dbf_value name = text_v(words[r].c_str()), id = int_v(r * 10),
                            note = text_v(words[4 - r].c_str());
        ASSERT_TRUE(qz_dbf_set_value(t, 0, r, &name));
        ASSERT_TRUE(qz_dbf_set_value(t, 5, r, &id));
        ASSERT_TRUE(qz_dbf_set_value(t, 9, r, &note));
    }
    std::vector<Tqz_dbf_value> col(8);
    EXPECT_EQ(qz_dbf_get_column_values(t, 0, 1, 8, col.data()), 4);
    for (unsigned k = 0; k < 4; ++k) EXPECT_EQ(shown(col[k]), read_shown(t, 0, k + 1));
    EXPECT_EQ(qz_dbf_get_column_values(t, 9, 0, 5, col.data()), 5);
    for (unsigned k = 0; k < 5; ++k)
        EXPECT_EQ(std::string(col[k].text), words[4 - k]);  // each text its own, NUL-closed
    std::vector<Tqz_dbf_value> rec(20);
    const long n = qz_dbf_get_record_values(t, 3, rec.data(), 20);
    EXPECT_EQ(n, static_cast<long>(vfp_fields.size()));
    for (long f = 0; f < n; ++f)
        EXPECT_EQ(shown(rec[f]), read_shown(t, static_cast<unsigned>(f), 3)) << f;
    EXPECT_EQ(qz_dbf_get_column_values(t, 0, 5, 1, col.data()), -1);
    EXPECT_EQ(qz_dbf_get_column_values(t, 99, 0, 1, col.data()), -1);
    EXPECT_EQ(qz_dbf_get_column_values(t, 0, 0, 1, nullptr), -1);
    EXPECT_EQ(qz_dbf_get_record_values(nullptr, 0, rec.data(), 1), -1);
    EXPECT_EQ(qz_dbf_get_record_values(t, 9, rec.data(), 1), -1);
    EXPECT_EQ(rec[0].kind, QZ_DBF_VALUE_NULL);
    qz_dbf_close(t);
}

TEST(TypedWrite, MemoryServedHandleWritesThroughTheHistory) {
    qz_test::Temp_dir dir;
    const std::string path = make_table(dir, "mem", 0x83,
                                        {{"ID", 'I', 4, 0, 0},
                                         {"WHEN", 'T', 8, 0, 0},
                                         {"PRICE", 'N', 8, 2, 0},
                                         {"NOTE", 'M', 10, 0, 0}},
                                        2, memo_kind::dbt3);
    Tqz_dbf_memory* m = qz_dbf_mem_load(path.c_str());
    ASSERT_NE(m, nullptr);
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), false, false);
    ASSERT_NE(t, nullptr);
    ASSERT_EQ(qz_dbf_get_storage(t), qz_dbf_storage_memory);
    const Tqz_dbf_value id = int_v(77), when = dt_v(1000), price = dbl_v(2.25), nul = null_v(),
                        memo = text_v("m");
    EXPECT_TRUE(qz_dbf_set_value(t, 0, 1, &id));
    EXPECT_TRUE(qz_dbf_set_value(t, 1, 1, &when));
    EXPECT_TRUE(qz_dbf_set_value(t, 2, 1, &price));
    EXPECT_TRUE(qz_dbf_set_value(t, 2, 0, &nul));
    EXPECT_EQ(read_shown(t, 0, 1), "2:77");
    EXPECT_EQ(read_shown(t, 1, 1), "6:1000");
    EXPECT_EQ(read_shown(t, 2, 1), "d:2.25");
    EXPECT_EQ(read_shown(t, 2, 0), "null");
    bool ok = false;
    EXPECT_EQ(qz_dbf_mem_get_int(m, 0, 1, ok), 77);
    // Memos are appended to the memo file (the loaded table holds the lock).
    EXPECT_TRUE(qz_dbf_set_value(t, 3, 1, &memo)) << qz_dbf_last_error_message();
    EXPECT_EQ(read_shown(t, 3, 1), "7:m");
    qz_dbf_close(t);
    // Saved, the values are in the file.
    ASSERT_TRUE(qz_dbf_mem_save(m));
    qz_dbf_mem_free(m);
    t = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
    ASSERT_NE(t, nullptr) << qz_dbf_last_error_message();
    EXPECT_EQ(read_shown(t, 0, 1), "2:77");
    EXPECT_EQ(read_shown(t, 1, 1), "6:1000");
    EXPECT_EQ(read_shown(t, 2, 1), "d:2.25");
    EXPECT_EQ(read_shown(t, 3, 1), "7:m");
    qz_dbf_close(t);
}

TEST(TypedRead, CharacterFieldsLongerThan255TakeTheDecimalsByte) {
    qz_test::Temp_dir dir;
    // C of 300 bytes: 44 in the length byte, 1 (x 256) in the decimals byte.
    const std::string path = make_table(
        dir, "wide", 0xF5, {{"LONG", 'C', 44, 1, 0}, {"N", 'N', 5, 0, 0}}, 0, memo_kind::none);
    std::vector<uint8_t> b = qz_test::read_bytes(path);
    b.pop_back();  // the end-of-file byte
    b[4] = 1;
    b[10] = 306 & 0xFF;
    b[11] = 306 >> 8;
    const std::string text = std::string(260, 'a') + "tail";
    b.push_back(' ');
    b.insert(b.end(), text.begin(), text.end());
    b.insert(b.end(), 300 - text.size(), ' ');
    for (char c : std::string("   42")) b.push_back(static_cast<uint8_t>(c));
    b.push_back(0x1A);
    qz_test::write_bytes(path, b);
    Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
    ASSERT_NE(t, nullptr) << qz_dbf_last_error_message();
    EXPECT_EQ(read_shown(t, 0, 0), "7:" + text);
    EXPECT_EQ(read_shown(t, 1, 0), "2:42");
    qz_dbf_close(t);
}

TEST(TypedRead, BlankNullFlagsSetNoFlag) {
    // Some writers blank the flags field with the rest of a new record: a
    // byte 0x20 would otherwise make the sixth nullable field null.
    qz_test::Temp_dir dir;
    std::vector<tfield> fields;
    for (const char* n : {"A", "B", "C", "D", "E", "F"}) fields.push_back({n, 'C', 2, 0, 0x02});
    fields.push_back({"_NullFlags", '0', 1, 0, 0x05});
    const std::string path = make_table(dir, "blank", 0x30, fields, 2, memo_kind::none);
    std::vector<uint8_t> b = qz_test::read_bytes(path);
    const size_t first = 32 + 32 * fields.size() + 1 + 263;
    b[first + 11] = 'x';               // F of record 0
    b[first + 13] = ' ';               // its flags: blanks
    b[first + 14 + 11] = 'y';          // F of record 1
    b[first + 14 + 13] = 0x20 | 0x01;  // F and A flagged null
    qz_test::write_bytes(path, b);
    Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(read_shown(t, 5, 0), "7:x");
    EXPECT_EQ(read_shown(t, 5, 1), "null");
    EXPECT_EQ(read_shown(t, 0, 1), "null");
    EXPECT_EQ(read_shown(t, 1, 1), "7:");
    qz_dbf_close(t);
}

TEST(TypedRead, KeptLayoutFollowsEncodingAndTable) {
    qz_test::Temp_dir dir;
    const std::string a =
        make_table(dir, "a", 0x03, {{"NAME", 'C', 4, 0, 0}}, 1, memo_kind::none, 0x03);
    const std::string b = make_table(dir, "b", 0x03, {{"N", 'N', 4, 0, 0}, {"C", 'C', 2, 0, 0}}, 1,
                                     memo_kind::none, 0x03);
    std::vector<uint8_t> bytes = qz_test::read_bytes(a);
    bytes[32 + 32 + 1 + 1] = 0xE9;  // é in CP1252, й in CP1251
    qz_test::write_bytes(a, bytes);
    Tqz_dbf_rw* t = qz_dbf_open_ex(a.c_str(), QZ_DBF_OPEN_READ_ONLY);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(read_shown(t, 0, 0), "7:\xC3\xA9");
    ASSERT_TRUE(qz_dbf_set_encoding(t, "CP1251"));
    EXPECT_EQ(read_shown(t, 0, 0), "7:\xD0\xB9");
    Tqz_dbf_value v[2];
    EXPECT_EQ(qz_dbf_get_record_values(t, 0, v, 2), 1);
    EXPECT_EQ(std::string(v[0].text), "\xD0\xB9");
    qz_dbf_close(t);
    // A new handle (perhaps at the same address) on another table: its own
    // fields.
    t = qz_dbf_open_ex(b.c_str(), 0);
    ASSERT_NE(t, nullptr);
    const Tqz_dbf_value seven = int_v(7);
    ASSERT_TRUE(qz_dbf_set_value(t, 0, 0, &seven));
    EXPECT_EQ(qz_dbf_get_record_values(t, 0, v, 2), 2);
    EXPECT_EQ(shown(v[0]), "2:7");
    qz_dbf_close(t);
}
