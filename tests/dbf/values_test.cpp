// Typed values through the exports: what each setter stores on disk for each
// field type, what each getter reads back, text in the three encodings, wide
// text kept as hexadecimal, field names, search and typed-character checks.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "qzk_basic.h"
#include "qzk_file_dbf.h"
#include "test_support.h"

namespace {

struct Field_def {
    const char* name;
    Tqz_dbf_field_type type;
    unsigned char flen;
    char dlen;
};

class Values : public ::testing::Test {
  protected:
    void SetUp() override { qz_options_set_ansi_code_page(65001); }
    void TearDown() override {
        if (t) qz_dbf_close(t);
        qz_options_set_ansi_code_page(0);
    }

    // Creates the table, then opens it again for writing (a table is read
    // back only after it has been opened again).
    void make(const std::vector<Field_def>& defs, unsigned records, int encoding = 1251) {
        fields.clear();
        for (const Field_def& s : defs) {
            Tqz_dbf_field f;
            qz_dbf_field_init(&f, s.name, s.type, s.flen, s.dlen);
            fields.push_back(f);
        }
        path = dir.file("values.dbf");
        t = qz_dbf_create(path.c_str(), static_cast<unsigned>(fields.size()), records,
                          fields.data(), encoding == 866);
        ASSERT_NE(t, nullptr);
        if (encoding == 65001) qz_dbf_set_utf8_flag(t, true);
        reopen();
    }
    void reopen(bool read_only = false) {
        if (t) qz_dbf_close(t);
        t = qz_dbf_open(path.c_str(), read_only, false);
        ASSERT_NE(t, nullptr);
    }
    // The field's bytes as they stand in the file (the table is closed and
    // opened again to be sure they were written).
    std::string cell_bytes(unsigned field, unsigned record) {
        reopen();
        std::vector<uint8_t> b = qz_test::read_bytes(path);
        size_t pos = 32 + 32 * fields.size() + 1;
        size_t rl = 1;
        for (const auto& f : fields) rl += f.flen;
        pos += rl * record + 1;
        for (unsigned i = 0; i < field; ++i) pos += fields[i].flen;
        if (pos + fields[field].flen > b.size()) return "<past the end>";
        return std::string(b.begin() + pos, b.begin() + pos + fields[field].flen);
    }
    std::string str(unsigned field, unsigned record, bool* ok_out = nullptr) {
        bool ok = false;
        const char* s = qz_dbf_get_str(t, field, record, ok);
        if (ok_out) *ok_out = ok;
        return s ? s : "<null>";
    }

    qz_test::Temp_dir dir;
    std::string path;
    std::vector<Tqz_dbf_field> fields;
    Tqz_dbf_rw* t = nullptr;
};

// Each setter into each kind of field: what it reports and the bytes it
// leaves, one write after another on the same record (a refused write
// shows what it left of the one before).
TEST_F(Values, WhatEachSetterStoresAndReports) {
    make({{"N62", dbf_ft_numeric, 6, 2},
          {"C6", dbf_ft_char, 6, 0},
          {"N122", dbf_ft_numeric, 12, 2},
          {"N3", dbf_ft_numeric, 3, 0},
          {"C3", dbf_ft_char, 3, 0},
          {"N102", dbf_ft_numeric, 10, 2},
          {"I", dbf_ft_integer, 4, 0},
          {"B", dbf_ft_double, 8, 0},
          {"F", dbf_ft_float, 10, 2},
          {"L", dbf_ft_logical, 1, 0},
          {"N61", dbf_ft_numeric, 6, 1},
          {"D", dbf_ft_date, 8, 0}},
         1);
    struct Case {
        unsigned field;
        char how;  // d: set_dbl, i: set_int, s: set_str, b: set_bool
        double number;
        const char* text;
        bool ok;
        std::string bytes;  // empty: not looked at
    };
    const std::string two_and_a_half("\0\0\0\0\0\0\x04\x40", 8);
    const Case cases[] = {
        // An N field rounds to its decimals; too long, it tries the exponent
        // form, then stores nothing, and still reports success.
        {0, 'd', 123.456, "", true, "123.46"},
        {0, 'd', 123456.0, "", true, "      "},
        {0, 'd', -123.456, "", true, "      "},  // "-123.46" is one too long
        {2, 'd', 1e15, "", true, "1.000000e+15"},
        // An integer in an N field is never checked against the length.
        {3, 'i', 12345, "", true, "123"},
        // A C field takes numbers left-aligned and empties what is too long.
        {1, 'i', 42, "", true, "42    "},
        {1, 'i', 1234567, "", false, "      "},
        {1, 'd', 3.5, "", true, "3.5   "},
        {1, 'd', 1e10, "", true, "1e+10 "},
        {4, 'd', 1234.5, "", false, "   "},
        // Text into number fields: an N field is emptied by what is no
        // number, I and B keep their value; text that starts with a number
        // is that number; I and B cells are little-endian binary.
        {5, 's', 0, "1e3", true, "   1000.00"},
        {5, 's', 0, "abc", false, "          "},
        {6, 'i', 77, "", true, std::string("\x4D\0\0\0", 4)},
        {6, 's', 0, "abc", false, std::string("\x4D\0\0\0", 4)},
        {6, 's', 0, " -12abc", true, "\xF4\xFF\xFF\xFF"},
        {6, 'd', -2.9, "", true, "\xFE\xFF\xFF\xFF"},  // cut toward zero
        {7, 'd', 2.5, "", true, two_and_a_half},
        {7, 's', 0, "x", false, two_and_a_half},
        // An F field is written with the g conversion at its full length.
        {8, 'd', 3.14159, "", true, "   3.14159"},
        // A boolean is a letter in every field but I and B; integers do not
        // go into L fields, nor doubles into D fields.
        {10, 'b', 1, "", true, "T     "},
        {6, 'b', 1, "", true, std::string("\x01\0\0\0", 4)},
        {7, 'b', 1, "", true, std::string("\0\0\0\0\0\0\xF0\x3F", 8)},
        {9, 'i', 1, "", false, ""},
        {11, 'd', 1.0, "", false, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(fields[c.field].name) + " " + c.how + " " + c.text +
                     std::to_string(c.number));
        const bool ok = c.how == 'd'   ? qz_dbf_set_dbl(t, c.field, 0, c.number)
                        : c.how == 'i' ? qz_dbf_set_int(t, c.field, 0, static_cast<int>(c.number))
                        : c.how == 'b' ? qz_dbf_set_bool(t, c.field, 0, c.number != 0)
                                       : qz_dbf_set_str(t, c.field, 0, c.text);
        EXPECT_EQ(ok, c.ok);
        if (!c.bytes.empty()) {
            EXPECT_EQ(cell_bytes(c.field, 0), c.bytes);
        }
    }
}

TEST_F(Values, ReadingNumbersFromStoredText) {
    make({{"F", dbf_ft_float, 10, 2}, {"N", dbf_ft_numeric, 10, 2}, {"C", dbf_ft_char, 10, 0}}, 1);
    qz_dbf_close(t);
    t = nullptr;
    // Bytes as another program may leave them.
    std::vector<uint8_t> b = qz_test::read_bytes(path);
    size_t rec = 32 + 32 * 3 + 1 + 1;
    std::memcpy(&b[rec], " 3,5      12.7      12.7      ", 30);
    qz_test::write_bytes(path, b);
    reopen();
    bool ok = false;
    // F: a decimal comma is taken, the number is shown in 19 columns.
    EXPECT_EQ(str(0, 0, &ok), std::string(16, ' ') + "3.5");
    EXPECT_TRUE(ok);
    // N: leading blanks go, the text stays as stored; read as a whole number
    // it stops at the point, read as a double it does not take a comma.
    EXPECT_EQ(str(1, 0, &ok), "12.7      ");
    EXPECT_EQ(qz_dbf_get_int(t, 1, 0, ok), 12);
    EXPECT_TRUE(ok);
    EXPECT_EQ(qz_dbf_get_dbl(t, 0, 0, ok), 3.0);
    EXPECT_EQ(qz_dbf_get_dbl(t, 2, 0, ok), 12.7);
    // A blank N cell has no value.
    qz_dbf_set_str(t, 1, 0, "");
    EXPECT_EQ(str(1, 0, &ok), "");
    EXPECT_FALSE(ok);
    EXPECT_EQ(qz_dbf_get_dbl(t, 1, 0, ok), 0.0);
    EXPECT_FALSE(ok);
}

TEST_F(Values, LogicalsAndVariants) {
    make({{"L", dbf_ft_logical, 1, 0},
          {"N", dbf_ft_numeric, 6, 1},
          {"I", dbf_ft_integer, 4, 0},
          {"B", dbf_ft_double, 8, 0},
          {"C", dbf_ft_char, 8, 0},
          {"D", dbf_ft_date, 8, 0}},
         1);
    bool ok = false;
    const char* words[][2] = {{"Y", "1"}, {"y", "1"}, {"T", "1"}, {"1", "1"}, {"F", "0"},
                              {"n", "0"}, {"0", "0"}, {"?", "-"}, {" ", "-"}};
    for (auto& w : words) {
        ASSERT_TRUE(qz_dbf_set_str(t, 0, 0, w[0]));
        bool v = qz_dbf_get_bool(t, 0, 0, ok);
        if (w[1][0] == '-') {
            EXPECT_FALSE(ok) << w[0];
            EXPECT_FALSE(v);
        } else {
            EXPECT_TRUE(ok) << w[0];
            EXPECT_EQ(v, w[1][0] == '1') << w[0];
        }
    }
    // The words are whole: "yes" is not one, " true " is.
    ASSERT_TRUE(qz_dbf_set_str(t, 4, 0, "yes"));
    qz_dbf_get_bool(t, 4, 0, ok);
    EXPECT_FALSE(ok);
    ASSERT_TRUE(qz_dbf_set_str(t, 4, 0, " TRUE "));
    EXPECT_TRUE(qz_dbf_get_bool(t, 4, 0, ok));
    EXPECT_TRUE(ok);

    // Variants: each field type gives its kind; a cell without a value
    // leaves the variant as it was.
    Tqz_any any;
    any_init(&any);
    qz_dbf_set_str(t, 1, 0, "2.5");
    EXPECT_TRUE(qz_dbf_get_any(t, 1, 0, &any));
    EXPECT_EQ(any_get_type(&any), QZ_ANY_FLOATING);
    EXPECT_EQ(any_get_floating(&any), 2.5);
    qz_dbf_set_bool(t, 0, 0, false);
    EXPECT_TRUE(qz_dbf_get_any(t, 0, 0, &any));
    EXPECT_EQ(any_get_type(&any), QZ_ANY_BOOLEAN);
    EXPECT_FALSE(any_get_boolean(&any));
    qz_dbf_set_int(t, 2, 0, -5);
    EXPECT_TRUE(qz_dbf_get_any(t, 2, 0, &any));
    EXPECT_EQ(any_get_integer(&any), -5);
    qz_dbf_set_str(t, 4, 0, "Текст");
    EXPECT_TRUE(qz_dbf_get_any(t, 4, 0, &any));
    EXPECT_STREQ(any_get_string(&any), "Текст   ");
    qz_dbf_set_str(t, 1, 0, "");
    EXPECT_FALSE(qz_dbf_get_any(t, 1, 0, &any));
    EXPECT_STREQ(any_get_string(&any), "Текст   ");

    // And back: each kind of variant through its setter.
    any_assign_integer(&any, 12);
    EXPECT_TRUE(qz_dbf_set_any(t, 1, 0, &any));
    EXPECT_EQ(cell_bytes(1, 0), "  12.0");
    any_assign_floating(&any, 0.25);
    EXPECT_TRUE(qz_dbf_set_any(t, 3, 0, &any));
    EXPECT_EQ(qz_dbf_get_dbl(t, 3, 0, ok), 0.25);
    any_assign_boolean(&any, true);
    EXPECT_TRUE(qz_dbf_set_any(t, 0, 0, &any));
    EXPECT_EQ(cell_bytes(0, 0), "T");
    any_assign_string(&any, "20240131");
    EXPECT_TRUE(qz_dbf_set_any(t, 5, 0, &any));
    EXPECT_EQ(cell_bytes(5, 0), "20240131");
    any_clear(&any);
    EXPECT_FALSE(qz_dbf_set_any(t, 5, 0, &any));  // an empty variant
    EXPECT_FALSE(qz_dbf_set_any(t, 5, 0, nullptr));
}

TEST_F(Values, CyrillicTextInEachEncoding) {
    const std::string word = "Ёжик в тумане";  // UTF-8
    struct Case {
        int encoding;
        std::string bytes;  // of "Ёжик" on disk
    } cases[] = {
        {1251, "\xA8\xE6\xE8\xEA"},
        {866, "\xF0\xA6\xA8\xAA"},
        {65001, "\xD0\x81\xD0\xB6\xD0\xB8\xD0\xBA"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.encoding);
        make({{"TEXT", dbf_ft_char, 30, 0}}, 2, c.encoding);
        if (c.encoding == 866) qz_dbf_set_dos_flag(t, true);  // no .cpg yet on the first open
        ASSERT_TRUE(qz_dbf_set_str(t, 0, 0, word.c_str()));
        std::string stored = cell_bytes(0, 0);
        EXPECT_EQ(stored.substr(0, c.bytes.size()), c.bytes);
        EXPECT_EQ(str(0, 0).substr(0, word.size()), word);
        // Wide text both ways.
        ASSERT_TRUE(qz_dbf_set_str_w(t, 0, 1, L"Щука"));
        unsigned len = 0;
        bool ok = false;
        std::wstring w = qz_dbf_get_wstr(t, 0, 1, len, ok, 0);
        EXPECT_TRUE(ok);
        EXPECT_EQ(w.substr(0, 4), L"Щука");
        std::wstring fed;
        Iqz_string_adp* adp = qz_string_adp_create(
            nullptr, [](void* u, const wchar_t* s) { *static_cast<std::wstring*>(u) = s; }, &fed);
        EXPECT_TRUE(qz_dbf_get_str_w(t, 0, 0, adp));
        EXPECT_EQ(fed.substr(0, 4), L"Ёжик");
        qz_string_adp_destroy(adp);
        qz_dbf_close(t);
        t = nullptr;
    }

    // System text in CP1251 reads a CP866 table in CP1251.
    make({{"TEXT", dbf_ft_char, 10, 0}}, 1, 866);
    qz_dbf_set_dos_flag(t, true);
    qz_options_set_ansi_code_page(1251);
    ASSERT_TRUE(qz_dbf_set_str(t, 0, 0, "\xDF\xE4\xF0\xEE"));  // "Ядро" in CP1251
    EXPECT_EQ(cell_bytes(0, 0).substr(0, 4), "\x9F\xA4\xE0\xAE");
    qz_dbf_set_dos_flag(t, true);
    EXPECT_EQ(str(0, 0).substr(0, 4), "\xDF\xE4\xF0\xEE");
    qz_options_set_ansi_code_page(65001);
    // A character the table's code page lacks: dropped from narrow text,
    // a question mark from wide text.
    ASSERT_TRUE(qz_dbf_set_str(t, 0, 0, "a€b"));
    EXPECT_EQ(cell_bytes(0, 0), "ab        ");
    qz_dbf_set_dos_flag(t, true);
    ASSERT_TRUE(qz_dbf_set_str_w(t, 0, 0, L"a€b"));
    EXPECT_EQ(cell_bytes(0, 0), "a?b       ");
}

TEST_F(Values, WideTextKeptAsHexadecimal) {
    make({{"HEX", dbf_ft_char, 254, 0},
          {"SHORT", dbf_ft_char, 6, 0},
          {"N", dbf_ft_numeric, 10, 0},
          {"I", dbf_ft_integer, 4, 0}},
         1);
    const wchar_t two[] = {0x41, 0x416, 0};
    EXPECT_TRUE(qz_dbf_set_wstr_encoded(t, 0, 0, two, 2));
    EXPECT_EQ(cell_bytes(0, 0).substr(0, 9), "00410416 ");
    unsigned count = 0;
    bool ok = false;
    const wchar_t* back = qz_dbf_get_wstr_encoded(t, 0, 0, count, ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(std::wstring(back), L"\x41\x416");

    // Above U+FFFF: a surrogate pair on disk, one character again on reading.
    const wchar_t smile[] = {L'x', 0x1F600, 0};
    EXPECT_TRUE(qz_dbf_set_wstr_encoded(t, 0, 0, smile, 2));
    EXPECT_EQ(cell_bytes(0, 0).substr(0, 12), "0078D83DDE00");
    back = qz_dbf_get_wstr_encoded(t, 0, 0, count, ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(std::wstring(back), std::wstring(smile));

    // At most 64 characters; a short field keeps what fits.
    std::wstring many(80, L'Ж');
    EXPECT_TRUE(qz_dbf_set_wstr_encoded(t, 0, 0, many.c_str(), 80));
    back = qz_dbf_get_wstr_encoded(t, 0, 0, count, ok);
    EXPECT_EQ(count, 63u);  // 254 bytes hold 63 units of four digits
    EXPECT_TRUE(qz_dbf_set_wstr_encoded(t, 1, 0, two, 2));
    EXPECT_EQ(cell_bytes(1, 0), "004104");
    back = qz_dbf_get_wstr_encoded(t, 1, 0, count, ok);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(std::wstring(back), L"A");

    // Not for number fields; text that is not hexadecimal decodes to nothing.
    EXPECT_FALSE(qz_dbf_set_wstr_encoded(t, 2, 0, two, 2));
    back = qz_dbf_get_wstr_encoded(t, 3, 0, count, ok);
    EXPECT_EQ(back, nullptr);
    EXPECT_FALSE(ok);
    qz_dbf_set_str(t, 1, 0, "zz41");
    back = qz_dbf_get_wstr_encoded(t, 1, 0, count, ok);
    EXPECT_FALSE(ok);
    EXPECT_STREQ(back, L"");
    // The adapter form hands on what it has, decoded or not.
    std::wstring fed = L"old";
    Iqz_string_adp* adp = qz_string_adp_create(
        nullptr, [](void* u, const wchar_t* s) { *static_cast<std::wstring*>(u) = s; }, &fed);
    qz_dbf_get_wstr_encoded_adpt(t, 1, 0, count, ok, adp);
    EXPECT_EQ(fed, L"");
    qz_dbf_get_wstr_encoded_adpt(t, 0, 0, count, ok, adp);
    EXPECT_EQ(fed.size(), 63u);
    qz_string_adp_destroy(adp);
}

TEST_F(Values, FieldNamesAndAttributes) {
    make({{"NAME", dbf_ft_char, 200, 0}, {"SUM", dbf_ft_numeric, 8, 3}, {"F", dbf_ft_float, 8, 3}},
         1, 866);
    qz_dbf_set_dos_flag(t, true);
    EXPECT_EQ(qz_dbf_get_field_flen(t, 0), 200u);
    EXPECT_EQ(qz_dbf_find_field_index_w(t, L"NAME"), 0u);
    EXPECT_EQ(qz_dbf_find_field_index_w(t, L"name"), 0xFFFFFFFFu);
    EXPECT_EQ(qz_dbf_get_nl(t), 1u);
    EXPECT_EQ(qz_dbf_get_layer(t), 0u);
    EXPECT_TRUE(qz_dbf_set_layer(t, 7));

    // A new name goes into the file's descriptor in the table's encoding,
    // cut to 10 bytes; the descriptor keeps the field's offset.
    qz_dbf_set_field_name(t, 1, "СуммаИтогоВсего");
    EXPECT_STREQ(qz_dbf_get_field_name(t, 1), "СуммаИтого");
    qz_dbf_close(t);
    t = nullptr;
    std::vector<uint8_t> b = qz_test::read_bytes(path);
    EXPECT_EQ(std::string(b.begin() + 64, b.begin() + 75),
              std::string("\x91\xE3\xAC\xAC\xA0\x88\xE2\xAE\xA3\xAE\0", 11));
    EXPECT_EQ(b[64 + 12], 201);  // offset 1 + 200
    // A decimal count byte of 0xFF reads as -1.
    b[96 + 17] = 0xFF;
    qz_test::write_bytes(path, b);
    reopen();
    qz_dbf_set_dos_flag(t, true);
    EXPECT_EQ(qz_dbf_get_field_dlen(t, 2), -1);
    std::wstring fed;
    Iqz_string_adp* adp = qz_string_adp_create(
        nullptr, [](void* u, const wchar_t* s) { *static_cast<std::wstring*>(u) = s; }, &fed);
    qz_dbf_get_field_name_w(t, 1, adp);
    EXPECT_EQ(fed, L"СуммаИтого");
    qz_dbf_set_field_name_w(t, 2, L"Ставка");
    qz_dbf_get_field_name_w(t, 2, adp);
    EXPECT_EQ(fed, L"Ставка");
    qz_dbf_get_layer_name(t, 0, adp);
    EXPECT_EQ(fed, L"");
    qz_string_adp_destroy(adp);
}

TEST_F(Values, LinearAndFastSearch) {
    make({{"NAME", dbf_ft_char, 12, 0}, {"N", dbf_ft_numeric, 6, 1}}, 5);
    const char* names[] = {"Abc", "abc", "  Abc ", "Ёлка", "ЁЛКА"};
    for (unsigned r = 0; r < 5; ++r) ASSERT_TRUE(qz_dbf_set_str(t, 0, r, names[r]));
    qz_dbf_set_dbl(t, 1, 1, 2.5);
    unsigned rec = 99;
    // The scan ignores case and blanks and stops at the first match.
    EXPECT_TRUE(qz_dbf_find_value(t, 0, " ABC", rec));
    EXPECT_EQ(rec, 0u);
    EXPECT_TRUE(qz_dbf_find_value(t, 0, "ёлка", rec));
    EXPECT_EQ(rec, 3u);
    rec = 99;
    EXPECT_FALSE(qz_dbf_find_value(t, 0, "Ab", rec));
    EXPECT_EQ(rec, 99u);
    EXPECT_TRUE(qz_dbf_find_value(t, 1, "2.5", rec));
    EXPECT_EQ(rec, 1u);
    EXPECT_FALSE(qz_dbf_find_value(t, 7, "Abc", rec));  // no such field

    // The index compares exactly and keeps the last record of a text.
    qz_dbf_begin_fast_find(t, 0);
    EXPECT_FALSE(qz_dbf_find_value_fast(t, "ABC", rec));
    EXPECT_TRUE(qz_dbf_find_value_fast(t, "Abc ", rec));
    EXPECT_EQ(rec, 2u);
    EXPECT_TRUE(qz_dbf_find_value_fast(t, "ЁЛКА", rec));
    EXPECT_EQ(rec, 4u);
    // It answers from the table as it was when built.
    qz_dbf_set_str(t, 0, 1, "new");
    EXPECT_FALSE(qz_dbf_find_value_fast(t, "new", rec));
    EXPECT_TRUE(qz_dbf_find_value_fast(t, "abc", rec));
    EXPECT_EQ(rec, 1u);
    qz_dbf_end_fast_find(t);
    EXPECT_FALSE(qz_dbf_find_value_fast(t, "Abc", rec));
    // Blank N cells have no value and are not indexed.
    qz_dbf_begin_fast_find(t, 1);
    EXPECT_FALSE(qz_dbf_find_value_fast(t, "", rec));
    EXPECT_TRUE(qz_dbf_find_value_fast(t, "2.5", rec));
    EXPECT_EQ(rec, 1u);

    // Cyrillic letters match without regard to case in every encoding and
    // whatever the system code page.
    for (int enc : {1251, 866, 65001}) {
        qz_dbf_close(t);
        t = nullptr;
        make({{"NAME", dbf_ft_char, 30, 0}}, 2, enc);
        if (enc == 866) qz_dbf_set_dos_flag(t, true);
        ASSERT_TRUE(qz_dbf_set_str(t, 0, 1, "Щётка ЖЁЛТАЯ"));
        EXPECT_TRUE(qz_dbf_find_value(t, 0, "щЁТКА жёлтая", rec)) << enc;
        EXPECT_EQ(rec, 1u);
        qz_options_set_ansi_code_page(1251);
        EXPECT_TRUE(qz_dbf_find_value(t, 0, "\xF9\xB8\xF2\xEA\xE0 \xE6\xB8\xEB\xF2\xE0\xFF", rec))
            << enc;  // "щётка жёлтая" in CP1251
        qz_options_set_ansi_code_page(65001);
    }

    // A table without records finds nothing.
    qz_dbf_close(t);
    t = nullptr;
    make({{"NAME", dbf_ft_char, 5, 0}}, 0);
    EXPECT_FALSE(qz_dbf_find_value(t, 0, "", rec));
    qz_dbf_begin_fast_find(t, 0);
    EXPECT_FALSE(qz_dbf_find_value_fast(t, "", rec));
}

TEST_F(Values, TypedCharactersAreCheckedAgainstTheField) {
    make({{"N", dbf_ft_numeric, 8, 2},
          {"C3", dbf_ft_char, 3, 0},
          {"I", dbf_ft_integer, 4, 0},
          {"L", dbf_ft_logical, 1, 0},
          {"B", dbf_ft_double, 8, 0}},
         1);
    char c = ',';
    EXPECT_TRUE(qz_dbf_validate_val(t, 0, &c, "12", false));
    EXPECT_EQ(c, '.');
    for (char ok : {'7', 'e', 'E', '+', '-', '.'}) {
        c = ok;
        EXPECT_TRUE(qz_dbf_validate_val(t, 0, &c, "", false)) << ok;
        EXPECT_TRUE(qz_dbf_validate_val(t, 4, &c, "", false)) << ok;
    }
    qz_dbf_set_last_valid_error(t, 5);
    c = 'x';
    EXPECT_FALSE(qz_dbf_validate_val(t, 0, &c, "1", false));
    EXPECT_EQ(qz_dbf_get_last_valid_error(t), 5);  // left alone
    c = '.';
    EXPECT_FALSE(qz_dbf_validate_val(t, 2, &c, "1", false));
    c = '-';
    EXPECT_TRUE(qz_dbf_validate_val(t, 2, &c, "", false));
    // A full C field refuses with error 1, but only when its length counts.
    c = 'z';
    EXPECT_FALSE(qz_dbf_validate_val(t, 1, &c, "abc", true));
    EXPECT_EQ(qz_dbf_get_last_valid_error(t), 1);
    EXPECT_TRUE(qz_dbf_validate_val(t, 1, &c, "abc", false));
    EXPECT_TRUE(qz_dbf_validate_val(t, 1, &c, "ab", true));
    // Backspace always, and it clears the error.
    c = 8;
    EXPECT_TRUE(qz_dbf_validate_val(t, 2, &c, "", true));
    EXPECT_EQ(qz_dbf_get_last_valid_error(t), 0);
    c = 'T';
    EXPECT_TRUE(qz_dbf_validate_val(t, 3, &c, "", true));
    c = '%';
    EXPECT_TRUE(qz_dbf_validate_val(t, 3, &c, "", true));
    EXPECT_FALSE(qz_dbf_validate_val(t, 3, nullptr, "", true));
}

}  // namespace
