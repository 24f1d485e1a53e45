// Numeric endings, unique names against lists and tables, and the older
// whole-list repair.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "names_support.h"
#include "test_support.h"

using namespace names_test;

namespace {

using Names = std::vector<std::string>;

std::string unique(const Names& names, const char* name, bool old = false) {
    auto fields = fields_of(names);
    Collect c;
    (old ? qz_dbf_fields_unique_name_old : qz_dbf_fields_unique_name)(
        fields.data(), static_cast<unsigned>(fields.size()), name, c.adp);
    EXPECT_EQ(c.fed, 1);
    return c.text;
}

// Endings cut the name by bytes, never half a character ("Ж" is two bytes
// in UTF-8); unique names count letter case; the old form keeps 11 bytes.
TEST(NamesUnique, EndingsAndUniqueNames) {
    Code_page utf8(65001);
    const struct {
        const char* name;
        unsigned n;
        const char *sep, *result;
    } endings[] = {
        {"ABCDEFGHIJ", 1, "_", "ABCDEFGH_1"},
        {"ABC", 1, "_", "ABC_1"},
        {"ABCDEFGHIJ", 12, "", "ABCDEFGH12"},
        {"", 5, "", "5"},
        {"ABCDEFGHIJ", 4294967295u, "", "4294967295"},
        {"ABCDEFGHI", 12, "_", "ABCDEFG_12"},
        {"NAME", 0, "", "NAME0"},
        {"ABCDEFGHIJKLMNOP", 7, "", "ABCDEFGHI7"},
        {"ЖЖЖЖЖ", 1, "", "ЖЖЖЖ1"},
        {"ЖЖЖЖЖ", 1, "_", "ЖЖЖЖ_1"},
        {"aЖЖЖЖ", 12, "", "aЖЖЖ12"},
    };
    Collect c;
    for (const auto& e : endings) {
        qz_dbf_field_name_add_num_ending(e.name, e.n, c.adp, e.sep);
        EXPECT_EQ(c.text, e.result) << e.name;
    }
    qz_dbf_field_name_add_num_ending_w(L"ABCDEFGHIJ", 3, c.adp, L"_");
    EXPECT_EQ(c.text, "ABCDEFGH_3");
    qz_dbf_field_name_add_num_ending_w(nullptr, 3, c.adp, nullptr);
    EXPECT_EQ(c.text, "3");

    EXPECT_EQ(unique({"NAME", "NAME0"}, "NAME"), "NAME1");
    EXPECT_EQ(unique({"name"}, "NAME"), "NAME");
    EXPECT_EQ(unique({}, "ABCDEFGHIJKL"), "ABCDEFGHIJ");
    EXPECT_EQ(unique({"ABCDEFGHIJ"}, "ABCDEFGHIJ"), "ABCDEFGHI0");
    EXPECT_EQ(unique({"ABCDEFGHIJ"}, "ABCDEFGHIJ", true), "ABCDEFGHIJ0");
    EXPECT_EQ(unique({"N", "N0", "N1"}, "N", true), "N2");
    Names taken = {"X"};  // eleven candidates taken: the twelfth number
    for (int i = 0; i <= 10; ++i) taken.push_back("X" + std::to_string(i));
    EXPECT_EQ(unique(taken, "X"), "X11");
    qz_dbf_fields_unique_name(nullptr, 7, "ABC", c.adp);
    EXPECT_EQ(c.text, "ABC");
    qz_dbf_fields_unique_name(nullptr, 0, nullptr, c.adp);
    EXPECT_EQ(c.text, "");
}

// The table forms answer in one static string each: the next call
// overwrites it; the old form keeps the whole name.
TEST(NamesUnique, AgainstATableWithStaticResults) {
    Code_page utf8(65001);
    qz_test::Temp_dir dir;
    auto fields = fields_of({"NAME", "NAME1", "ABCDEFGHIJ", "id"});
    Tqz_dbf_rw* t = qz_dbf_create(dir.file("u.dbf").c_str(), 4, 0, fields.data(), false);
    ASSERT_NE(t, nullptr);
    const char* first = qz_dbf_generate_unin_name(t, "NAME");
    EXPECT_STREQ(first, "NAME2");
    EXPECT_EQ(qz_dbf_generate_unin_name(t, "FREE"), first);
    EXPECT_STREQ(first, "FREE");
    EXPECT_STREQ(qz_dbf_generate_unin_name(t, "ID"), "ID");
    EXPECT_STREQ(qz_dbf_generate_unin_name(t, "ABCDEFGHIJK"), "ABCDEFGHI1");
    const char* old = qz_dbf_generate_unin_name_old(t, "ABCDEFGHIJ");
    EXPECT_STREQ(old, "ABCDEFGHIJ1");
    EXPECT_STREQ(qz_dbf_generate_unin_name(t, "X"), "X");
    EXPECT_STREQ(old, "ABCDEFGHIJ1");
    EXPECT_STREQ(qz_dbf_generate_unin_name_old(t, "NAME"), "NAME2");
    EXPECT_EQ(fed(qz_dbf_generate_unin_name_w, t, L"NAME"), "NAME2");
    qz_dbf_close(t);
    EXPECT_EQ(qz_dbf_generate_unin_name(nullptr, "A"), nullptr);
}

// The older repair: upper case, "_" for other bytes, "_<n>" endings on what
// the name has become; only the last field's correction counts.
TEST(NamesUnique, OlderWholeListRepair) {
    Code_page utf8(65001);
    const struct {
        Names in;
        bool result;
        Names out;
    } cases[] = {
        {{"a", "A"}, true, {"A", "A_1"}},
        {{"NAME", "name", "NAME_1"}, true, {"NAME", "NAME_1", "NAME_1_1"}},
        {{"_x-1"}, true, {"AX_1"}},
        {{"9lives"}, true, {"9LIVES"}},
        {{"bad", "OK"}, false, {"BAD", "OK"}},
        {{""}, true, {"PROP"}},
        // Cyrillic capitals are kept, small letters raised, ё made Ё;
        // characters outside Windows-1251 count as any other byte.
        {{"цена", "ёж"}, true, {"ЦЕНА", "ЁЖ"}},
        {{"éa"}, true, {"AA"}},
        {{"aé"}, true, {"A_"}},
        {{"ab ", "AB_"}, true, {"AB_", "AB__1"}},
        {{"A", "A", "A", "A"}, true, {"A", "A_1", "A_1_2", "A_1_2_3"}},
        {{"NAME", "NAME_1", "NAME_1_2", "NAME_1_2_3", "NAME"},
         true,
         {"NAME", "NAME_1", "NAME_1_2", "NAME_1_2_3", "NAME_1_2_4"}},
    };
    for (const auto& c : cases) {
        auto fields = fields_of(c.in);
        EXPECT_EQ(qz_dbf_make_correct_names(fields.data(), int(fields.size())), c.result)
            << c.in[0];
        EXPECT_EQ(names_of(fields), c.out);
    }
    auto fields = fields_of({"A"});
    EXPECT_FALSE(qz_dbf_make_correct_names(fields.data(), 0));
    EXPECT_FALSE(qz_dbf_make_correct_names(fields.data(), -4));
    EXPECT_FALSE(qz_dbf_make_correct_names(nullptr, 3));
    Code_page cp(1251);  // the bytes as they are
    fields = fields_of({cp1251("цена"), cp1251("ЦЕНА"), "x\xb8"});
    EXPECT_TRUE(qz_dbf_make_correct_names(fields.data(), 3));
    EXPECT_EQ(names_of(fields), (Names{cp1251("ЦЕНА"), cp1251("ЦЕНА_1"), "X\xa8"}));
}

}  // namespace
