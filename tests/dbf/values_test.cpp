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

class Values : public ::testing::Test {
  protected:
    void SetUp() override { qz_options_set_ansi_code_page(65001); }
    void TearDown() override {
        qz_dbf_close(t);
        qz_options_set_ansi_code_page(0);
    }
    // A table of fields given as "N6.2 C6 ..." (type letter, length,
    // decimals), named by `names` or else F<position>, in the encoding given
    // (1251, 866 or 65001), created and opened again for writing.
    void make(const char* layout, unsigned records, int encoding = 1251,
              std::vector<std::string> names = {}) {
        std::vector<Tqz_dbf_field> fields;
        lengths.clear();
        for (const char* p = layout; *p; p += *p == ' ') {
            fields.emplace_back();
            char* end = nullptr;
            lengths.push_back(std::strtoul(p + 1, &end, 10));
            const int dlen = *end == '.' ? static_cast<int>(std::strtol(end + 1, &end, 10)) : 0;
            if (names.size() < fields.size()) names.push_back("F" + std::to_string(names.size()));
            qz_dbf_field_init(&fields.back(), names[fields.size() - 1].c_str(), qz_char2dbftype(*p),
                              lengths.back(), static_cast<char>(dlen));
            p = end;
        }
        qz_dbf_close(t);
        t = qz_dbf_create(path.c_str(), static_cast<unsigned>(fields.size()), records,
                          fields.data(), encoding == 866);
        ASSERT_NE(t, nullptr);
        qz_dbf_set_utf8_flag(t, encoding == 65001);
        reopen();
    }
    void reopen() {
        const bool dos = qz_dbf_get_dos_flag(t);
        qz_dbf_close(t);
        t = qz_dbf_open(path.c_str(), false, dos);
        ASSERT_NE(t, nullptr);
    }
    // The field's bytes in the file, after a close and a new open.
    std::string cell_bytes(unsigned field, unsigned record) {
        reopen();
        const std::vector<uint8_t> b = qz_test::read_bytes(path);
        size_t pos = qz_test::u16_at(b, 8) + qz_test::u16_at(b, 10) * record + 1;
        for (unsigned i = 0; i < field; ++i) pos += lengths[i];
        return std::string(b.begin() + pos, b.begin() + pos + lengths[field]);
    }
    std::string str(unsigned field, unsigned record, bool& ok) {
        const char* s = qz_dbf_get_str(t, field, record, ok);
        return s ? s : "<null>";
    }

    qz_test::Temp_dir dir;
    const std::string path = dir.file("values.dbf");
    std::vector<unsigned> lengths;
    Tqz_dbf_rw* t = nullptr;
    bool ok = false;
};

// Each setter into each kind of field: what it reports and the bytes it
// leaves, one write after another on the same record (a refused write
// shows what it left of the one before).
TEST_F(Values, WhatEachSetterStoresAndReports) {
    make("N6.2 C6 N12.2 N3 C3 N10.2 I4 B8 F10.2 L1 N6.1 D8", 1);
    const std::string two_and_a_half("\0\0\0\0\0\0\x04\x40", 8);
    // how d: set_dbl, i: set_int, s: set_str, b: set_bool; bytes empty: not looked at
    // clang-format off
    const struct { unsigned field; char how; double number;
        const char* text; bool ok; std::string bytes; } cases[] = {
        // An N field rounds to its decimals; too long, it tries the exponent
        // form, then stores nothing, and still reports success ("-123.46" is
        // one too long). An integer in an N field is never checked against
        // the length.
        {0, 'd', 123.456, "", true, "123.46"}, {0, 'd', -123.456, "", true, "      "},
        {2, 'd', 1e15, "", true, "1.000000e+15"}, {3, 'i', 12345, "", true, "123"},
        // A C field takes numbers left-aligned and empties what is too long.
        {1, 'i', 42, "", true, "42    "}, {1, 'i', 1234567, "", false, "      "},
        {1, 'd', 3.5, "", true, "3.5   "}, {1, 'd', 1e10, "", true, "1e+10 "},
        {4, 'd', 1234.5, "", false, "   "},
        // Text into number fields: an N field is emptied by what is no
        // number, I and B keep their value; text that starts with a number
        // is that number; I and B cells are little-endian binary, doubles
        // cut toward zero in I.
        {5, 's', 0, "1e3", true, "   1000.00"}, {5, 's', 0, "abc", false, "          "},
        {6, 'i', 77, "", true, std::string("\x4D\0\0\0", 4)},
        {6, 's', 0, "abc", false, std::string("\x4D\0\0\0", 4)},
        {6, 's', 0, " -12abc", true, "\xF4\xFF\xFF\xFF"},
        {6, 'd', -2.9, "", true, "\xFE\xFF\xFF\xFF"},
        {7, 'd', 2.5, "", true, two_and_a_half}, {7, 's', 0, "x", false, two_and_a_half},
        // An F field is written with the g conversion at its full length.
        {8, 'd', 3.14159, "", true, "   3.14159"},
        // A boolean is a letter in every field but I and B; integers do not
        // go into L fields, nor doubles into D fields.
        {10, 'b', 1, "", true, "T     "}, {6, 'b', 1, "", true, std::string("\x01\0\0\0", 4)},
        {7, 'b', 1, "", true, std::string("\0\0\0\0\0\0\xF0\x3F", 8)},
        {9, 'i', 1, "", false, ""}, {11, 'd', 1.0, "", false, ""}};
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.field) + " " + c.how + " " + c.text);
        EXPECT_EQ(c.how == 'd'   ? qz_dbf_set_dbl(t, c.field, 0, c.number)
                  : c.how == 'i' ? qz_dbf_set_int(t, c.field, 0, static_cast<int>(c.number))
                  : c.how == 'b' ? qz_dbf_set_bool(t, c.field, 0, c.number != 0)
                                 : qz_dbf_set_str(t, c.field, 0, c.text),
                  c.ok);
        EXPECT_EQ(c.bytes.empty() ? c.bytes : cell_bytes(c.field, 0), c.bytes);
    }
}

// Numbers read from text as other programs leave it; logical words; variants
// both ways.
TEST_F(Values, GettersVariantsAndTypedCharacters) {
    make("F10.2 N10.2 C10 L1 I4 B8 D8", 1);
    qz_dbf_close(t);
    t = nullptr;
    std::vector<uint8_t> b = qz_test::read_bytes(path);
    std::memcpy(&b[qz_test::u16_at(b, 8) + 1], " 3,5      12.7      12.7      ", 30);
    qz_test::write_bytes(path, b);
    reopen();
    // F: a decimal comma is taken, the number is shown in 19 columns. N:
    // leading blanks go, the text stays as stored; read as a whole number it
    // stops at the point, read as a double it does not take a comma.
    EXPECT_TRUE(str(0, 0, ok) == std::string(16, ' ') + "3.5" && ok);
    EXPECT_EQ(str(1, 0, ok), "12.7      ");
    EXPECT_TRUE(qz_dbf_get_int(t, 1, 0, ok) == 12 && ok);
    EXPECT_EQ(qz_dbf_get_dbl(t, 0, 0, ok), 3.0);
    EXPECT_EQ(qz_dbf_get_dbl(t, 2, 0, ok), 12.7);
    // Logical words ('-': no value, read as false) are whole: "yes" is not one, " TRUE " is.
    // clang-format off
    const struct { unsigned field; const char* text; char want; } words[] = {
        {3, "Y", '1'}, {3, "y", '1'}, {3, "T", '1'}, {3, "1", '1'}, {3, "F", '0'}, {3, "n", '0'},
        {3, "0", '0'}, {3, "?", '-'}, {3, " ", '-'}, {2, "yes", '-'}, {2, " TRUE ", '1'}};
    // clang-format on
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
    EXPECT_TRUE(qz_dbf_get_any(t, 1, 0, &any) && any_get_type(&any) == QZ_ANY_FLOATING &&
                any_get_floating(&any) == 2.5);
    qz_dbf_set_bool(t, 3, 0, false);
    EXPECT_TRUE(qz_dbf_get_any(t, 3, 0, &any) && any_get_type(&any) == QZ_ANY_BOOLEAN &&
                !any_get_boolean(&any));
    qz_dbf_set_int(t, 4, 0, -5);
    EXPECT_TRUE(qz_dbf_get_any(t, 4, 0, &any) && any_get_integer(&any) == -5);
    qz_dbf_set_str(t, 2, 0, "Текст");
    EXPECT_TRUE(qz_dbf_get_any(t, 2, 0, &any));
    qz_dbf_set_str(t, 1, 0, "");
    EXPECT_FALSE(qz_dbf_get_any(t, 1, 0, &any));
    EXPECT_STREQ(any_get_string(&any), "Текст     ");
    // And back: each kind of variant through its setter.
    any_assign_integer(&any, 12);
    EXPECT_TRUE(qz_dbf_set_any(t, 1, 0, &any));
    EXPECT_EQ(cell_bytes(1, 0), "     12.00");
    any_assign_floating(&any, 0.25);
    EXPECT_TRUE(qz_dbf_set_any(t, 5, 0, &any) && qz_dbf_get_dbl(t, 5, 0, ok) == 0.25);
    any_assign_boolean(&any, true);
    EXPECT_TRUE(qz_dbf_set_any(t, 3, 0, &any));
    any_assign_string(&any, "20240131");
    EXPECT_TRUE(qz_dbf_set_any(t, 6, 0, &any));
    EXPECT_EQ(cell_bytes(3, 0) + cell_bytes(6, 0), "T20240131");
    any_clear(&any);
    EXPECT_FALSE(qz_dbf_set_any(t, 6, 0, &any));  // an empty variant
}

TEST_F(Values, CyrillicTextInEachEncodingAndWideTextAsHexadecimal) {
    const std::string word = "Ёжик в тумане";  // UTF-8; "Ёжик" on disk:
    for (const std::string bytes :
         {"\xA8\xE6\xE8\xEA", "\xD0\x81\xD0\xB6\xD0\xB8\xD0\xBA", "\xF0\xA6\xA8\xAA"}) {
        const int encoding = bytes[0] == '\xA8' ? 1251 : bytes[0] == '\xF0' ? 866 : 65001;
        SCOPED_TRACE(encoding);
        make("C30", 2, encoding);
        ASSERT_TRUE(qz_dbf_set_str(t, 0, 0, word.c_str()));
        EXPECT_EQ(cell_bytes(0, 0).substr(0, bytes.size()), bytes);
        EXPECT_EQ(str(0, 0, ok).substr(0, word.size()), word);
        // Wide text both ways.
        ASSERT_TRUE(qz_dbf_set_str_w(t, 0, 1, L"Щука"));
        unsigned len = 0;
        EXPECT_EQ(std::wstring(qz_dbf_get_wstr(t, 0, 1, len, ok, 0)).substr(0, 4), L"Щука");
        qz_test::Fed fed;
        EXPECT_TRUE(qz_dbf_get_str_w(t, 0, 0, fed.adp) && ok);
        EXPECT_EQ(fed.wide.substr(0, 4), L"Ёжик");
    }
    // A character the table's code page (CP866, the last) lacks: dropped
    // from narrow text, a question mark from wide text.
    ASSERT_TRUE(qz_dbf_set_str(t, 0, 0, "a€b"));
    EXPECT_EQ(cell_bytes(0, 0), "ab" + std::string(28, ' '));
    ASSERT_TRUE(qz_dbf_set_str_w(t, 0, 0, L"a€b"));
    EXPECT_EQ(cell_bytes(0, 0), "a?b" + std::string(27, ' '));
    // Wide text kept as hexadecimal.
    make("C254 C6 N10 I4", 1);
    unsigned count = 0;
    // Above U+FFFF a surrogate pair on disk, one character again on reading;
    // at most 64 characters, 63 in 254 bytes; a short field keeps what fits.
    // clang-format off
    const struct { unsigned field; std::wstring text; std::string bytes; std::wstring back; }
        cases[] = {
            {0, L"\x41\x416", "00410416 ", L"\x41\x416"},
            {0, L"x\x1F600", "0078D83DDE00 ", L"x\x1F600"},
            {0, std::wstring(80, L'Ж'), "04160416", std::wstring(63, L'Ж')},
            {1, L"\x41\x416", "004104", L"A"}};
    // clang-format on
    for (const auto& c : cases) {
        EXPECT_TRUE(qz_dbf_set_wstr_encoded(t, c.field, 0, c.text.c_str(), c.text.size()));
        EXPECT_EQ(cell_bytes(c.field, 0).substr(0, c.bytes.size()), c.bytes);
        EXPECT_EQ(std::wstring(qz_dbf_get_wstr_encoded(t, c.field, 0, count, ok)), c.back);
        EXPECT_TRUE(ok && count == c.back.size());
    }
    // Not for number fields; text that is not hexadecimal decodes to nothing.
    EXPECT_FALSE(qz_dbf_set_wstr_encoded(t, 2, 0, L"A", 1));
    EXPECT_TRUE(qz_dbf_get_wstr_encoded(t, 3, 0, count, ok) == nullptr && !ok);
    qz_dbf_set_str(t, 1, 0, "zz41");
    EXPECT_TRUE(std::wstring(qz_dbf_get_wstr_encoded(t, 1, 0, count, ok)).empty() && !ok);
    // The adapter form hands on what it has, decoded or not.
    qz_test::Fed fed;
    qz_dbf_get_wstr_encoded_adpt(t, 1, 0, count, ok, fed.adp);
    EXPECT_EQ(fed.wide, L"");
}

// Names go into the descriptors in the table's encoding, at creation and
// when renamed (cut to 10 bytes, the field's offset kept); stored names are
// matched exactly, as system text: a CP1251 table's names are found when
// callers speak CP1251.
TEST_F(Values, FieldNamesAttributesAndSearch) {
    for (int enc : {1251, 866}) {
        make("C200 N8.3 F8.3", 1, enc, {"ИМЯ", "ГОД"});
        const std::vector<uint8_t> b = qz_test::read_bytes(path);
        EXPECT_EQ(std::string(b.begin() + 32, b.begin() + 36),
                  std::string(enc == 866 ? "\x88\x8C\x9F" : "\xC8\xCC\xDF", 4));  // "ИМЯ"
        EXPECT_STREQ(qz_dbf_get_field_name(t, 1), "ГОД");
        qz_options_set_ansi_code_page(1251);
        EXPECT_EQ(qz_dbf_find_field_index_w(t, L"ГОД"), enc == 866 ? 0xFFFFFFFFu : 1u);
        EXPECT_EQ(qz_dbf_find_field_index_w(t, L"год"), 0xFFFFFFFFu);
        qz_options_set_ansi_code_page(65001);
    }
    EXPECT_EQ(qz_dbf_find_field_index_w(t, L"F2"), 2u);
    // One layer, the first; a file table takes any layer number.
    EXPECT_TRUE(qz_dbf_get_nl(t) + qz_dbf_get_layer(t) == 1 && qz_dbf_set_layer(t, 7));
    qz_dbf_set_field_name(t, 1, "СуммаИтогоВсего");
    EXPECT_STREQ(qz_dbf_get_field_name(t, 1), "СуммаИтого");
    qz_dbf_close(t);
    std::vector<uint8_t> b = qz_test::read_bytes(path);
    EXPECT_EQ(
        std::string(b.begin() + 64, b.begin() + 77),
        std::string("\x91\xE3\xAC\xAC\xA0\x88\xE2\xAE\xA3\xAE\0N\xC9", 13));  // offset 1 + 200
    // A decimal count byte of 0xFF reads as -1, and a number is then written
    // with the default precision (never a broken format).
    b[64 + 17] = 0xFF;
    qz_test::write_bytes(path, b);
    t = qz_dbf_open(path.c_str(), false, true);
    EXPECT_TRUE(qz_dbf_get_field_dlen(t, 1) == -1 && qz_dbf_set_dbl(t, 1, 0, 3.25) &&
                str(1, 0, ok) == "3.250000");
    qz_test::Fed fed;
    qz_dbf_set_field_name_w(t, 2, L"Ставка");
    qz_dbf_get_field_name_w(t, 2, fed.adp);
    EXPECT_EQ(fed.wide, L"Ставка");
    qz_dbf_get_layer_name(t, 0, fed.adp);
    EXPECT_EQ(fed.wide, L"");
    // Search, linear and by the fast index.
    make("C12 N6.1", 5);
    const char* names[] = {"Abc", "abc", "  Abc ", "Ёлка", "ЁЛКА"};
    for (unsigned r = 0; r < 5; ++r) ASSERT_TRUE(qz_dbf_set_str(t, 0, r, names[r]));
    qz_dbf_set_dbl(t, 1, 1, 2.5);
    // The scan (s) ignores case and blanks and stops at the first match; the
    // index (f, built by b, dropped by e) compares exactly, keeps the last
    // record of a text and answers from the table as it was when built (n
    // changes a cell). Blank N cells are not indexed. -1: not found.
    // clang-format off
    const struct { char how; unsigned field; const char* text; int want; } steps[] = {
        {'s', 0, " ABC", 0}, {'s', 0, "ёлка", 3}, {'s', 0, "Ab", -1}, {'s', 1, "2.5", 1}, {'s', 7, "Abc", -1},
        {'b', 0, "", 0}, {'f', 0, "ABC", -1}, {'f', 0, "Abc ", 2}, {'f', 0, "ЁЛКА", 4}, {'n', 0, "new", 1},
        {'f', 0, "new", -1}, {'f', 0, "abc", 1}, {'e', 0, "", 0}, {'f', 0, "Abc", -1}, {'b', 1, "", 0},
        {'f', 0, "", -1}, {'f', 0, "2.5", 1}};
    // clang-format on
    for (const auto& s : steps) {
        unsigned rec = 99;
        bool found = s.how == 's' && qz_dbf_find_value(t, s.field, s.text, rec);
        found = found || (s.how == 'f' && qz_dbf_find_value_fast(t, s.text, rec));
        if (s.how == 'b') qz_dbf_begin_fast_find(t, s.field);
        if (s.how == 'e') qz_dbf_end_fast_find(t);
        if (s.how == 'n') qz_dbf_set_str(t, s.field, s.want, s.text);
        EXPECT_EQ(found       ? int(rec)
                  : rec == 99 ? -1
                              : -2,
                  std::strchr("sf", s.how) ? s.want : -1)
            << s.how << s.text;
    }
    // Cyrillic letters match without regard to case in every encoding and
    // whatever the system code page.
    for (int enc : {1251, 866, 65001}) {
        make("C30", 2, enc);
        ASSERT_TRUE(qz_dbf_set_str(t, 0, 1, "Щётка ЖЁЛТАЯ"));
        unsigned rec = 0;
        EXPECT_TRUE(qz_dbf_find_value(t, 0, "щЁТКА жёлтая", rec) && rec == 1) << enc;
        qz_options_set_ansi_code_page(1251);  // "щётка жёлтая" in CP1251
        EXPECT_TRUE(qz_dbf_find_value(t, 0, "\xF9\xB8\xF2\xEA\xE0 \xE6\xB8\xEB\xF2\xE0\xFF", rec))
            << enc;
        qz_options_set_ansi_code_page(65001);
    }
    // A table without records finds nothing.
    make("C5", 0);
    unsigned rec = 0;
    EXPECT_FALSE(qz_dbf_find_value(t, 0, "", rec));
    qz_dbf_begin_fast_find(t, 0);
    EXPECT_FALSE(qz_dbf_find_value_fast(t, "", rec));
    // Typed characters are checked against the field.
    make("N8.2 C3 I4 L1 B8", 1);
    char c = ',';
    EXPECT_TRUE(qz_dbf_validate_val(t, 0, &c, "12", false) && c == '.');
    for (char number : {'7', 'e', 'E', '+', '-', '.'})  // into N and B
        for (unsigned f : {0u, 4u})
            EXPECT_TRUE(qz_dbf_validate_val(t, f, &(c = number), "", false)) << number;
    qz_dbf_set_last_valid_error(t, 5);
    // A refused number character leaves the error alone; a full C field
    // refuses with error 1, but only when its length counts; backspace
    // always, and it clears the error. -1: the error not looked at.
    // clang-format off
    const struct { unsigned field; char c; const char* text; bool full, ok; int error; } cases[] = {
        {0, 'x', "1", false, false, 5}, {2, '.', "1", false, false, -1}, {2, '-', "", false, true, -1},
        {1, 'z', "abc", true, false, 1}, {1, 'z', "abc", false, true, -1}, {1, 'z', "ab", true, true, -1},
        {2, 8, "", true, true, 0}, {3, 'T', "", true, true, -1}, {3, '%', "", true, true, -1}};
    // clang-format on
    for (const auto& k : cases) {
        c = k.c;
        EXPECT_EQ(qz_dbf_validate_val(t, k.field, &c, k.text, k.full), k.ok) << k.field << k.c;
        EXPECT_EQ(k.error < 0 ? k.error : qz_dbf_get_last_valid_error(t), k.error)
            << k.field << k.c;
    }
    EXPECT_FALSE(qz_dbf_validate_val(t, 3, nullptr, "", true));
}

}  // namespace
