// The rules of one field name and its repair, through the exports.
#include <gtest/gtest.h>

#include <cctype>
#include <string>

#include "names_support.h"
#include "test_support.h"

using namespace names_test;

namespace {

struct Rule_case {
    const char* name;
    bool size_ok, symbols_ok, first_ok, name_ok;
    const char* size_fix;
    const char* first_fix;
    const char* name_fix;
};

// Names in UTF-8 system text.
const Rule_case rule_cases[] = {
    {"", false, true, false, false, "PROP", "PROP", "PROP"},
    {"ABCDEFGHIJ", true, true, true, true, "ABCDEFGHIJ", "ABCDEFGHIJ", "ABCDEFGHIJ"},
    {"ABCDEFGHIJK", false, true, true, false, "ABCDEFGHIJ", "ABCDEFGHIJK", "ABCDEFGHIJ"},
    {"Name", true, true, true, false, "Name", "Name", "NAME"},
    {"1", true, true, false, false, "1", "PROP1", "PROP1"},
    {"_", true, true, false, false, "_", "PROP_", "PROP_"},
    {"12", true, true, false, false, "12", "PROP", "PROP"},
    {"_1", true, true, false, false, "_1", "PROP", "PROP"},
    {"12AB", true, true, false, false, "12AB", "AB", "AB"},
    {"1A2", true, true, false, false, "1A2", "A2", "A2"},
    {"A#B", true, false, true, false, "A#B", "A#B", "A_B"},
    {"A_1", true, true, true, true, "A_1", "A_1", "A_1"},
    {"Цена", true, false, false, false, "Цена", "PROP", "CENA"},
    {"ЁЖ", true, false, false, false, "ЁЖ", "PROP", "EZ"},
    // A name beginning with a non-letter after transliteration loses it.
    {"_цена", true, false, false, false, "_цена", "PROP", "CENA"},
    // The cut is made after transliteration and before upper-casing.
    {"ЖЖЖЖЖЖЖЖЖЖЖЖ", false, false, false, false, "ЖЖЖЖЖ", "PROP", "ZZZZZZZZZZ"},
    // Letters of other scripts are no permitted characters.
    {"Aé", true, false, true, false, "Aé", "Aé", "AE"},
};

TEST(NamesRules, OneNameThroughEveryExport) {
    Code_page utf8(65001);
    for (const Rule_case& c : rule_cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(qz_dbf_field_name_size_ok(c.name), c.size_ok);
        EXPECT_EQ(qz_dbf_field_symbols_ok(c.name), c.symbols_ok);
        EXPECT_EQ(qz_dbf_field_first_symb_ok(c.name), c.first_ok);
        EXPECT_EQ(qz_dbf_field_name_is_ok(c.name), c.name_ok);
        EXPECT_EQ(fed(qz_dbf_field_name_size_fix, c.name), c.size_fix);
        EXPECT_EQ(fed(qz_dbf_field_first_symb_fix, c.name), c.first_fix);
        EXPECT_EQ(fed(qz_dbf_field_name_fix, c.name), c.name_fix);
        // A repaired name of letters, digits and "_" is valid, and a valid
        // name repairs to itself.
        std::string fixed = fed(qz_dbf_field_name_fix, c.name);
        EXPECT_TRUE(qz_dbf_field_name_is_ok(fixed.c_str())) << fixed;
        if (c.name_ok) {
            EXPECT_EQ(fixed, c.name);
        }
        // The wide forms give the same answers.
        std::wstring w = qz_test::widen(c.name);
        EXPECT_EQ(qz_dbf_field_name_is_ok_w(w.c_str()), c.name_ok);
        EXPECT_EQ(qz_dbf_field_symbols_ok_w(w.c_str()), c.symbols_ok);
        EXPECT_EQ(fed(qz_dbf_field_name_fix_w, w.c_str()), c.name_fix);
        EXPECT_EQ(fed(qz_dbf_field_symbols_fix_w, w.c_str()),
                  fed(qz_dbf_field_symbols_fix, c.name));
    }
}

TEST(NamesRules, LimitsCountBytesAndNeverSplitACharacter) {
    Code_page utf8(65001);
    // UTF-8: two bytes for each Cyrillic letter; a cut never leaves half.
    EXPECT_EQ(fed(qz_dbf_field_name_size_fix, "aЖЖЖЖЖ"), "aЖЖЖЖ");          // 11 bytes -> 9
    EXPECT_EQ(fed(qz_dbf_field_name_size_fix, "ЖЖЖЖЖЖ"), "ЖЖЖЖЖ");          // 12 -> 10
    EXPECT_EQ(fed(qz_dbf_field_name_size_fix, "abcdefghi€"), "abcdefghi");  // 3-byte euro
    EXPECT_FALSE(qz_dbf_field_name_size_ok("ЖЖЖЖЖЖ"));
    EXPECT_TRUE(qz_dbf_field_name_size_ok("ЖЖЖЖЖ"));
    // A single non-letter character gets "PROP" before it, however many
    // bytes it has.
    EXPECT_EQ(fed(qz_dbf_field_first_symb_fix, "€"), "PROP€");
    EXPECT_EQ(fed(qz_dbf_field_first_symb_fix, "€1"), "PROP");
    {
        // CP1251: one byte for each letter.
        Code_page cp(1251);
        std::string six = cp1251("ЖЖЖЖЖЖ");
        EXPECT_TRUE(qz_dbf_field_name_size_ok(six.c_str()));
        std::string eleven = cp1251("ЖЖЖЖЖЖЖЖЖЖЖ");
        EXPECT_EQ(fed(qz_dbf_field_name_size_fix, eleven.c_str()), eleven.substr(0, 10));
        // Transliteration reads CP1251 under that code page.
        EXPECT_EQ(fed(qz_dbf_field_name_fix, cp1251("цена").c_str()), "CENA");
    }
}

TEST(NamesRules, BadInputIsSurvivedAndAnswered) {
    Code_page utf8(65001);
    // Invalid UTF-8: bytes that decode to no character.
    const std::string bad[] = {"\xff",
                               "\xc3",
                               "A\xe2\x82",
                               "\x80\x80\x80",
                               "Z\xf4\x90\x80\x80",
                               std::string(300, '\xd0'),
                               std::string(5000, 'a')};
    for (const std::string& b : bad) {
        EXPECT_FALSE(qz_dbf_field_name_is_ok(b.c_str()));
        std::string fixed = fed(qz_dbf_field_name_fix, b.c_str());
        EXPECT_FALSE(fixed.empty());
        EXPECT_LE(fixed.size(), 10u);
        // A name that begins with a letter keeps it.
        if (b[0] == 'A' || b[0] == 'Z' || b[0] == 'a') {
            EXPECT_EQ(fixed[0], std::toupper(b[0]));
        }
    }
    // Null names read as empty names; a null adapter is ignored.
    EXPECT_FALSE(qz_dbf_field_name_is_ok(nullptr));
    EXPECT_TRUE(qz_dbf_field_symbols_ok(nullptr));
    EXPECT_FALSE(qz_dbf_field_name_is_ok_w(nullptr));
    EXPECT_EQ(fed(qz_dbf_field_name_fix, static_cast<const char*>(nullptr)), "PROP");
    EXPECT_EQ(fed(qz_dbf_field_name_fix_w, static_cast<const wchar_t*>(nullptr)), "PROP");
    qz_dbf_field_name_fix("abc", nullptr);
    // A wide character the system code page cannot hold arrives as "?".
    {
        Code_page cp(1251);
        EXPECT_FALSE(qz_dbf_field_symbols_ok_w(L"A\u20AC"));
        // The wide name reaches system text before it is transliterated.
        EXPECT_EQ(fed(qz_dbf_field_symbols_fix_w, L"\u4E2D"), "?");
        EXPECT_EQ(fed(qz_dbf_field_name_fix_w, L"\u4E2D"), "PROP?");
    }
}

}  // namespace
