// The rules of one field name and its repair, through the exports.
#include <gtest/gtest.h>

#include <cctype>
#include <string>

#include "names_support.h"

using namespace names_test;

namespace {

// Names in UTF-8 system text: size_ok, symbols_ok, first_ok, name_ok, then
// the size, first-character and whole-name repairs.
const struct {
    const char* name;
    bool size_ok, symbols_ok, first_ok, name_ok;
    const char *size_fix, *first_fix, *name_fix;
} rule_cases[] = {
    {"ABCDEFGHIJK", false, true, true, false, "ABCDEFGHIJ", "ABCDEFGHIJK", "ABCDEFGHIJ"},
    {"12", true, true, false, false, "12", "PROP", "PROP"},
    {"Цена", true, false, false, false, "Цена", "PROP", "CENA"},
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
    }
}

// The older repair of whole field lists: Cyrillic kept and upper-cased
// through Windows-1251 (а..я, ё), other characters as '_' ('A' first, digits kept), then
// duplicates numbered.
TEST(NamesRules, CorrectNamesKeepCyrillicInUpperCase) {
    Code_page utf8(65001);
    std::vector<Tqz_dbf_field> f = fields_of({"абвя", "ёж", "-x-y", "1x", "ABC", "abc"});
    EXPECT_TRUE(qz_dbf_make_correct_names(f.data(), static_cast<int>(f.size())));
    EXPECT_EQ(names_of(f.data(), f.size()),
              (std::vector<std::string>{"АБВЯ", "ЁЖ", "AX_Y", "1X", "ABC", "ABC_1"}));
}

}  // namespace
