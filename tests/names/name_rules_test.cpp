// The rules of one field name and its repair, through the exports.
#include <gtest/gtest.h>

#include <cctype>
#include <string>

#include "names_support.h"
#include "test_support.h"

using namespace names_test;

namespace {

// Names in UTF-8 system text: size_ok, symbols_ok, first_ok, name_ok, then
// the size, first-character and whole-name repairs.
const struct {
    const char* name;
    bool size_ok, symbols_ok, first_ok, name_ok;
    const char *size_fix, *first_fix, *name_fix;
} rule_cases[] = {
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
    // The cut counts bytes and never splits a character; the whole repair
    // cuts after transliteration and before upper-casing.
    {"ЖЖЖЖЖЖЖЖЖЖЖЖ", false, false, false, false, "ЖЖЖЖЖ", "PROP", "ZZZZZZZZZZ"},
    {"aЖЖЖЖЖ", false, false, true, false, "aЖЖЖЖ", "aЖЖЖЖЖ", "AZZZZZ"},
    {"abcdefghi€", false, false, true, false, "abcdefghi", "abcdefghi€", "ABCDEFGHI"},
    // A single non-letter character gets "PROP" before it, however many
    // bytes it has; letters of other scripts are not permitted.
    {"€", true, false, false, false, "€", "PROP€", "PROP€"},
    {"€1", true, false, false, false, "€1", "PROP", "PROP"},
    {"Aé", true, false, true, false, "Aé", "Aé", "AE"},
};

TEST(NamesRules, OneNameThroughEveryExport) {
    Code_page utf8(65001);
    for (const auto& c : rule_cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(qz_dbf_field_name_size_ok(c.name), c.size_ok);
        EXPECT_EQ(qz_dbf_field_symbols_ok(c.name), c.symbols_ok);
        EXPECT_EQ(qz_dbf_field_first_symb_ok(c.name), c.first_ok);
        EXPECT_EQ(qz_dbf_field_name_is_ok(c.name), c.name_ok);
        EXPECT_EQ(fed(qz_dbf_field_name_size_fix, c.name), c.size_fix);
        EXPECT_EQ(fed(qz_dbf_field_first_symb_fix, c.name), c.first_fix);
        EXPECT_EQ(fed(qz_dbf_field_name_fix, c.name), c.name_fix);
        // A valid name repairs to itself.
        EXPECT_TRUE(!c.name_ok || std::string(c.name_fix) == c.name);
        // The wide forms give the same answers.
        const std::wstring w = qz_test::widen(c.name);
        EXPECT_EQ(qz_dbf_field_name_is_ok_w(w.c_str()), c.name_ok);
        EXPECT_EQ(qz_dbf_field_symbols_ok_w(w.c_str()), c.symbols_ok);
        EXPECT_EQ(fed(qz_dbf_field_name_fix_w, w.c_str()), c.name_fix);
        EXPECT_EQ(fed(qz_dbf_field_symbols_fix_w, w.c_str()),
                  fed(qz_dbf_field_symbols_fix, c.name));
    }
}

// CP1251 counts one byte a letter and transliterates its bytes; a wide
// character the code page cannot hold arrives as "?". Invalid UTF-8, null
// names and null adapters are survived.
TEST(NamesRules, OtherCodePagesAndBadInput) {
    {
        Code_page cp(1251);
        EXPECT_TRUE(qz_dbf_field_name_size_ok(cp1251("ЖЖЖЖЖЖ").c_str()));
        const std::string eleven = cp1251("ЖЖЖЖЖЖЖЖЖЖЖ");
        EXPECT_EQ(fed(qz_dbf_field_name_size_fix, eleven.c_str()), eleven.substr(0, 10));
        EXPECT_EQ(fed(qz_dbf_field_name_fix, cp1251("цена").c_str()), "CENA");
        EXPECT_FALSE(qz_dbf_field_symbols_ok_w(L"A\u20AC"));
        EXPECT_EQ(fed(qz_dbf_field_symbols_fix_w, L"\u4E2D"), "?");
        EXPECT_EQ(fed(qz_dbf_field_name_fix_w, L"\u4E2D"), "PROP?");
    }
    Code_page utf8(65001);
    for (const std::string& b : {std::string("\xff"), std::string("\xc3"), std::string("A\xe2\x82"),
                                 std::string("\x80\x80\x80"), std::string("Z\xf4\x90\x80\x80"),
                                 std::string(300, '\xd0'), std::string(5000, 'a')}) {
        EXPECT_FALSE(qz_dbf_field_name_is_ok(b.c_str()));
        const std::string fixed = fed(qz_dbf_field_name_fix, b.c_str());
        EXPECT_TRUE(!fixed.empty() && fixed.size() <= 10) << fixed;
        if (std::isalpha(static_cast<unsigned char>(b[0]))) {
            EXPECT_EQ(fixed[0], std::toupper(b[0])) << "a leading letter is kept";
        }
    }
    EXPECT_FALSE(qz_dbf_field_name_is_ok(nullptr));
    EXPECT_TRUE(qz_dbf_field_symbols_ok(nullptr));
    EXPECT_FALSE(qz_dbf_field_name_is_ok_w(nullptr));
    EXPECT_EQ(fed(qz_dbf_field_name_fix, static_cast<const char*>(nullptr)), "PROP");
    EXPECT_EQ(fed(qz_dbf_field_name_fix_w, static_cast<const wchar_t*>(nullptr)), "PROP");
    qz_dbf_field_name_fix("abc", nullptr);
}

}  // namespace
