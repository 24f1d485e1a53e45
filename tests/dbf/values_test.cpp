// Typed values through the classic exports: what each setter stores on disk
// for each field type, what each getter reads back, text in the three
// encodings, wide text kept as hexadecimal, field names, search and
// typed-character checks.
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

// Collects what an adapter is handed.
struct Sink {
    std::wstring text;
    Iqz_string_adp* adp = qz_string_adp_create(
        nullptr, [](void* u, const wchar_t* s) { static_cast<Sink*>(u)->text = s; }, this);
    ~Sink() { qz_string_adp_destroy(adp); }
};

class Values : public ::testing::Test {
  protected:
    void SetUp() override { qz_options_set_ansi_code_page(65001); }
    void TearDown() override {
        if (t) qz_dbf_close(t);
        qz_options_set_ansi_code_page(0);
    }
    // Creates the table in the encoding given (1251, 866 or 65001), then
    // opens it again for writing.
    void make(const std::vector<Field_def>& defs, unsigned records, int encoding = 1251) {
        if (t) qz_dbf_close(t);
        fields.clear();
        for (const Field_def& s : defs) {
            fields.emplace_back();
            qz_dbf_field_init(&fields.back(), s.name, s.type, s.flen, s.dlen);
        }
        path = dir.file("values.dbf");
        t = qz_dbf_create(path.c_str(), static_cast<unsigned>(fields.size()), records,
                          fields.data(), encoding == 866);
        ASSERT_NE(t, nullptr);
        if (encoding == 65001) qz_dbf_set_utf8_flag(t, true);
        reopen();
        if (encoding == 866) qz_dbf_set_dos_flag(t, true);  // no .cpg yet on the first open
    }
    void reopen() {
        qz_dbf_close(t);
        t = qz_dbf_open(path.c_str(), false, false);
        ASSERT_NE(t, nullptr);
    }
    // The field's bytes in the file, after a close and a new open.
    std::string cell_bytes(unsigned field, unsigned record) {
        const bool dos = qz_dbf_get_dos_flag(t);
        reopen();
        qz_dbf_set_dos_flag(t, dos);
        std::vector<uint8_t> b = qz_test::read_bytes(path);
        size_t pos = qz_test::u16_at(b, 8) + qz_test::u16_at(b, 10) * record + 1;
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
    const struct {
        unsigned field;
        char how;  // d: set_dbl, i: set_int, s: set_str, b: set_bool
        double number;
        const char* text;
        bool ok;
        std::string bytes;  // empty: not looked at
    } cases[] = {
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
        {7, 'd', 2.5, "", true, std::string("\0\0\0\0\0\0\x04\x40", 8)},
        {7, 's', 0, "x", false, std::string("\0\0\0\0\0\0\x04\x40", 8)},
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
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(fields[c.field].name) + " " + c.how + " " + c.text);
        const bool ok = c.how == 'd'   ? qz_dbf_set_dbl(t, c.field, 0, c.number)
                        : c.how == 'i' ? qz_dbf_set_int(t, c.field, 0, static_cast<int>(c.number))
                        : c.how == 'b' ? qz_dbf_set_bool(t, c.field, 0, c.number != 0)
                                       : qz_dbf_set_str(t, c.field, 0, c.text);
        EXPECT_EQ(ok, c.ok);
        EXPECT_EQ(c.bytes.empty() ? c.bytes : cell_bytes(c.field, 0), c.bytes);
    }
}

// Numbers read from text as other programs leave it; logical words; variants
// both ways.
TEST_F(Values, GettersNumbersLogicalsAndVariants) {
    make({{"F", dbf_ft_float, 10, 2},
          {"N", dbf_ft_numeric, 10, 2},
          {"C", dbf_ft_char, 10, 0},
          {"L", dbf_ft_logical, 1, 0},
          {"I", dbf_ft_integer, 4, 0},
          {"B", dbf_ft_double, 8, 0},
          {"D", dbf_ft_date, 8, 0}},
         1);
    qz_dbf_close(t);
    t = nullptr;
    std::vector<uint8_t> b = qz_test::read_bytes(path);
    std::memcpy(&b[qz_test::u16_at(b, 8) + 1], " 3,5      12.7      12.7      ", 30);
    qz_test::write_bytes(path, b);
    t = qz_dbf_open(path.c_str(), false, false);
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

    // Logical words ('-': no value) are whole: "yes" is not one, " TRUE " is.
    const struct {
        unsigned field;
        const char* text;
        char want;
    } words[] = {{3, "Y", '1'}, {3, "y", '1'},   {3, "T", '1'},     {3, "1", '1'},
                 {3, "F", '0'}, {3, "n", '0'},   {3, "0", '0'},     {3, "?", '-'},
                 {3, " ", '-'}, {2, "yes", '-'}, {2, " TRUE ", '1'}};
    for (const auto& w : words) {
        ASSERT_TRUE(qz_dbf_set_str(t, w.field, 0, w.text));
        const bool v = qz_dbf_get_bool(t, w.field, 0, ok);
        EXPECT_EQ(ok ? v ? '1' : '0' : v ? '?' : '-', w.want) << w.text;
    }

    // Variants: each field type gives its kind; a cell without a value
    // leaves the variant as it was.
    Tqz_any any;
    any_init(&any);
    qz_dbf_set_str(t, 1, 0, "2.5");
    EXPECT_TRUE(qz_dbf_get_any(t, 1, 0, &any));
    EXPECT_EQ(any_get_type(&any), QZ_ANY_FLOATING);
    EXPECT_EQ(any_get_floating(&any), 2.5);
    qz_dbf_set_bool(t, 3, 0, false);
    EXPECT_TRUE(qz_dbf_get_any(t, 3, 0, &any));
    EXPECT_EQ(any_get_type(&any), QZ_ANY_BOOLEAN);
    EXPECT_FALSE(any_get_boolean(&any));
    qz_dbf_set_int(t, 4, 0, -5);
    EXPECT_TRUE(qz_dbf_get_any(t, 4, 0, &any));
    EXPECT_EQ(any_get_integer(&any), -5);
    qz_dbf_set_str(t, 2, 0, "Текст");
    EXPECT_TRUE(qz_dbf_get_any(t, 2, 0, &any));
    EXPECT_STREQ(any_get_string(&any), "Текст     ");
    qz_dbf_set_str(t, 1, 0, "");
    EXPECT_FALSE(qz_dbf_get_any(t, 1, 0, &any));
    EXPECT_STREQ(any_get_string(&any), "Текст     ");
    // And back: each kind of variant through its setter.
    any_assign_integer(&any, 12);
    EXPECT_TRUE(qz_dbf_set_any(t, 1, 0, &any));
    EXPECT_EQ(cell_bytes(1, 0), "     12.00");
    any_assign_floating(&any, 0.25);
    EXPECT_TRUE(qz_dbf_set_any(t, 5, 0, &any));
    EXPECT_EQ(qz_dbf_get_dbl(t, 5, 0, ok), 0.25);
    any_assign_boolean(&any, true);
    EXPECT_TRUE(qz_dbf_set_any(t, 3, 0, &any));
    EXPECT_EQ(cell_bytes(3, 0), "T");
    any_assign_string(&any, "20240131");
    EXPECT_TRUE(qz_dbf_set_any(t, 6, 0, &any));
    EXPECT_EQ(cell_bytes(6, 0), "20240131");
    any_clear(&any);
    EXPECT_FALSE(qz_dbf_set_any(t, 6, 0, &any));  // an empty variant
    EXPECT_FALSE(qz_dbf_set_any(t, 6, 0, nullptr));
}

TEST_F(Values, CyrillicTextInEachEncoding) {
    const std::string word = "Ёжик в тумане";  // UTF-8
    const struct {
        int encoding;
        std::string bytes;  // of "Ёжик" on disk
    } cases[] = {{1251, "\xA8\xE6\xE8\xEA"},
                 {866, "\xF0\xA6\xA8\xAA"},
                 {65001, "\xD0\x81\xD0\xB6\xD0\xB8\xD0\xBA"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.encoding);
        make({{"TEXT", dbf_ft_char, 30, 0}}, 2, c.encoding);
        ASSERT_TRUE(qz_dbf_set_str(t, 0, 0, word.c_str()));
        EXPECT_EQ(cell_bytes(0, 0).substr(0, c.bytes.size()), c.bytes);
        EXPECT_EQ(str(0, 0).substr(0, word.size()), word);
        // Wide text both ways.
        ASSERT_TRUE(qz_dbf_set_str_w(t, 0, 1, L"Щука"));
        unsigned len = 0;
        bool ok = false;
        EXPECT_EQ(std::wstring(qz_dbf_get_wstr(t, 0, 1, len, ok, 0)).substr(0, 4), L"Щука");
        EXPECT_TRUE(ok);
        Sink fed;
        EXPECT_TRUE(qz_dbf_get_str_w(t, 0, 0, fed.adp));
        EXPECT_EQ(fed.text.substr(0, 4), L"Ёжик");
    }
    // System text in CP1251 reads a CP866 table in CP1251.
    make({{"TEXT", dbf_ft_char, 10, 0}}, 1, 866);
    qz_options_set_ansi_code_page(1251);
    ASSERT_TRUE(qz_dbf_set_str(t, 0, 0, "\xDF\xE4\xF0\xEE"));  // "Ядро" in CP1251
    EXPECT_EQ(cell_bytes(0, 0).substr(0, 4), "\x9F\xA4\xE0\xAE");
    EXPECT_EQ(str(0, 0).substr(0, 4), "\xDF\xE4\xF0\xEE");
    qz_options_set_ansi_code_page(65001);
    // A character the table's code page lacks: dropped from narrow text,
    // a question mark from wide text.
    ASSERT_TRUE(qz_dbf_set_str(t, 0, 0, "a€b"));
    EXPECT_EQ(cell_bytes(0, 0), "ab        ");
    ASSERT_TRUE(qz_dbf_set_str_w(t, 0, 0, L"a€b"));
    EXPECT_EQ(cell_bytes(0, 0), "a?b       ");
}

TEST_F(Values, WideTextKeptAsHexadecimal) {
    make({{"HEX", dbf_ft_char, 254, 0},
          {"SHORT", dbf_ft_char, 6, 0},
          {"N", dbf_ft_numeric, 10, 0},
          {"I", dbf_ft_integer, 4, 0}},
         1);
    unsigned count = 0;
    bool ok = false;
    // Above U+FFFF a surrogate pair on disk, one character again on reading;
    // at most 64 characters, 63 in 254 bytes; a short field keeps what fits.
    const struct {
        unsigned field;
        std::wstring text;
        std::string bytes;
        unsigned count;
        std::wstring back;
    } cases[] = {
        {0, L"\x41\x416", "00410416 ", 2, L"\x41\x416"},
        {0, L"x\x1F600", "0078D83DDE00 ", 2, L"x\x1F600"},
        {0, std::wstring(80, L'Ж'), "04160416", 63, std::wstring(63, L'Ж')},
        {1, L"\x41\x416", "004104", 1, L"A"},
    };
    for (const auto& c : cases) {
        EXPECT_TRUE(qz_dbf_set_wstr_encoded(t, c.field, 0, c.text.c_str(), c.text.size()));
        EXPECT_EQ(cell_bytes(c.field, 0).substr(0, c.bytes.size()), c.bytes);
        const wchar_t* back = qz_dbf_get_wstr_encoded(t, c.field, 0, count, ok);
        EXPECT_TRUE(ok);
        EXPECT_EQ(count, c.count);
        EXPECT_EQ(std::wstring(back), c.back);
    }
    // Not for number fields; text that is not hexadecimal decodes to nothing.
    EXPECT_FALSE(qz_dbf_set_wstr_encoded(t, 2, 0, L"A", 1));
    EXPECT_EQ(qz_dbf_get_wstr_encoded(t, 3, 0, count, ok), nullptr);
    EXPECT_FALSE(ok);
    qz_dbf_set_str(t, 1, 0, "zz41");
    EXPECT_STREQ(qz_dbf_get_wstr_encoded(t, 1, 0, count, ok), L"");
    EXPECT_FALSE(ok);
    // The adapter form hands on what it has, decoded or not.
    Sink fed;
    fed.text = L"old";
    qz_dbf_get_wstr_encoded_adpt(t, 1, 0, count, ok, fed.adp);
    EXPECT_EQ(fed.text, L"");
    qz_dbf_get_wstr_encoded_adpt(t, 0, 0, count, ok, fed.adp);
    EXPECT_EQ(fed.text.size(), 63u);
}

TEST_F(Values, FieldNamesAndAttributes) {
    make({{"NAME", dbf_ft_char, 200, 0}, {"SUM", dbf_ft_numeric, 8, 3}, {"F", dbf_ft_float, 8, 3}},
         1, 866);
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
    b[96 + 17] = 0xFF;           // a decimal count byte of 0xFF reads as -1
    qz_test::write_bytes(path, b);
    t = qz_dbf_open(path.c_str(), false, true);
    EXPECT_EQ(qz_dbf_get_field_dlen(t, 2), -1);
    Sink fed;
    qz_dbf_get_field_name_w(t, 1, fed.adp);
    EXPECT_EQ(fed.text, L"СуммаИтого");
    qz_dbf_set_field_name_w(t, 2, L"Ставка");
    qz_dbf_get_field_name_w(t, 2, fed.adp);
    EXPECT_EQ(fed.text, L"Ставка");
    qz_dbf_get_layer_name(t, 0, fed.adp);
    EXPECT_EQ(fed.text, L"");
}

TEST_F(Values, LinearAndFastSearch) {
    make({{"NAME", dbf_ft_char, 12, 0}, {"N", dbf_ft_numeric, 6, 1}}, 5);
    const char* names[] = {"Abc", "abc", "  Abc ", "Ёлка", "ЁЛКА"};
    for (unsigned r = 0; r < 5; ++r) ASSERT_TRUE(qz_dbf_set_str(t, 0, r, names[r]));
    qz_dbf_set_dbl(t, 1, 1, 2.5);
    // The scan ignores case and blanks and stops at the first match; the
    // index compares exactly, keeps the last record of a text and answers
    // from the table as it was when built. Blank N cells are not indexed.
    // (-1: not found, the record number left as it was.)
    const struct {
        char how;  // 's': scan, 'f': fast, 'n': change the cell, 'e': end, 'b': begin on field
        unsigned field;
        const char* text;
        int want;
    } steps[] = {{'s', 0, " ABC", 0}, {'s', 0, "ёлка", 3}, {'s', 0, "Ab", -1},  {'s', 1, "2.5", 1},
                 {'s', 7, "Abc", -1}, {'b', 0, "", 0},     {'f', 0, "ABC", -1}, {'f', 0, "Abc ", 2},
                 {'f', 0, "ЁЛКА", 4}, {'n', 0, "new", 1},  {'f', 0, "new", -1}, {'f', 0, "abc", 1},
                 {'e', 0, "", 0},     {'f', 0, "Abc", -1}, {'b', 1, "", 0},     {'f', 0, "", -1},
                 {'f', 0, "2.5", 1}};
    for (const auto& s : steps) {
        unsigned rec = 99;
        bool found = false;
        if (s.how == 's') found = qz_dbf_find_value(t, s.field, s.text, rec);
        if (s.how == 'f') found = qz_dbf_find_value_fast(t, s.text, rec);
        if (s.how == 'b') qz_dbf_begin_fast_find(t, s.field);
        if (s.how == 'e') qz_dbf_end_fast_find(t);
        if (s.how == 'n') qz_dbf_set_str(t, s.field, s.want, s.text);
        if (s.how != 's' && s.how != 'f') continue;
        EXPECT_EQ(found, s.want >= 0) << s.how << s.text;
        EXPECT_EQ(rec, s.want >= 0 ? unsigned(s.want) : 99u) << s.how << s.text;
    }
    // Cyrillic letters match without regard to case in every encoding and
    // whatever the system code page.
    for (int enc : {1251, 866, 65001}) {
        make({{"NAME", dbf_ft_char, 30, 0}}, 2, enc);
        ASSERT_TRUE(qz_dbf_set_str(t, 0, 1, "Щётка ЖЁЛТАЯ"));
        unsigned rec = 0;
        EXPECT_TRUE(qz_dbf_find_value(t, 0, "щЁТКА жёлтая", rec) && rec == 1) << enc;
        qz_options_set_ansi_code_page(1251);  // "щётка жёлтая" in CP1251
        EXPECT_TRUE(qz_dbf_find_value(t, 0, "\xF9\xB8\xF2\xEA\xE0 \xE6\xB8\xEB\xF2\xE0\xFF", rec))
            << enc;
        qz_options_set_ansi_code_page(65001);
    }
    // A table without records finds nothing.
    make({{"NAME", dbf_ft_char, 5, 0}}, 0);
    unsigned rec = 0;
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
    // (field, character, text, length counts, accepted, error after; -1: not looked at)
    const struct {
        unsigned field;
        char c;
        const char* text;
        bool full, ok;
        int error;
    } cases[] = {
        {0, 'x', "1", false, false, 5},  // a refused number character leaves the error alone
        {2, '.', "1", false, false, -1},
        {2, '-', "", false, true, -1},
        // A full C field refuses with error 1, but only when its length counts.
        {1, 'z', "abc", true, false, 1},
        {1, 'z', "abc", false, true, -1},
        {1, 'z', "ab", true, true, -1},
        {2, 8, "", true, true, 0},  // backspace always, and it clears the error
        {3, 'T', "", true, true, -1},
        {3, '%', "", true, true, -1},
    };
    for (const auto& k : cases) {
        c = k.c;
        EXPECT_EQ(qz_dbf_validate_val(t, k.field, &c, k.text, k.full), k.ok) << k.field << k.c;
        EXPECT_EQ(k.error < 0 ? k.error : qz_dbf_get_last_valid_error(t), k.error)
            << k.field << k.c;
    }
    EXPECT_FALSE(qz_dbf_validate_val(t, 3, nullptr, "", true));
}

}  // namespace
