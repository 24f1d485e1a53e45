// Numeric endings, unique names against lists and tables, and the older
// whole-list repair.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "names_support.h"
#include "test_support.h"

using namespace names_test;

namespace {

using Names = std::vector<std::string>;

std::string ending(const char* name, unsigned n, const char* sep) {
    Collect c;
    qz_dbf_field_name_add_num_ending(name, n, c.adp(), sep);
    return c.text;
}

std::string unique(const Names& names, const char* name, bool old = false) {
    auto fields = fields_of(names);
    Collect c;
    (old ? qz_dbf_fields_unique_name_old : qz_dbf_fields_unique_name)(
        fields.data(), static_cast<unsigned>(fields.size()), name, c.adp());
    EXPECT_EQ(c.fed, 1);
    return c.text;
}

TEST(NamesUnique, NumericEndings) {
    Code_page utf8(65001);
    struct Case {
        const char* name;
        unsigned n;
        const char* sep;
        const char* result;
    } cases[] = {
        {"ABCDEFGHIJ", 1, "_", "ABCDEFGH_1"},
        {"ABC", 1, "_", "ABC_1"},
        {"ABCDEFGHIJ", 12, "", "ABCDEFGH12"},
        {"", 5, "", "5"},
        {"ABCDEFGHIJ", 1, "", "ABCDEFGHI1"},
        {"ABCDEFGHIJ", 4294967295u, "", "4294967295"},
        {"ABCDEFGHI", 12, "_", "ABCDEFG_12"},
        {"NAME", 0, "", "NAME0"},
        {"ABCDEFGHIJKLMNOP", 7, "", "ABCDEFGHI7"},
        // Bytes, and never half a character: "Ж" is two bytes in UTF-8.
        {"ЖЖЖЖЖ", 1, "", "ЖЖЖЖ1"},
        {"ЖЖЖЖЖ", 1, "_", "ЖЖЖЖ_1"},
        {"aЖЖЖЖ", 12, "", "aЖЖЖ12"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.name) + " " + std::to_string(c.n) + " " + c.sep);
        EXPECT_EQ(ending(c.name, c.n, c.sep), c.result);
    }
    Collect c;
    qz_dbf_field_name_add_num_ending_w(L"ABCDEFGHIJ", 3, c.adp(), L"_");
    EXPECT_EQ(c.text, "ABCDEFGH_3");
    qz_dbf_field_name_add_num_ending_w(nullptr, 3, c.adp(), nullptr);
    EXPECT_EQ(c.text, "3");
}

TEST(NamesUnique, AgainstAFieldList) {
    Code_page utf8(65001);
    EXPECT_EQ(unique({"NAME", "NAME0"}, "NAME"), "NAME1");
    EXPECT_EQ(unique({"name"}, "NAME"), "NAME");  // letter case counts
    EXPECT_EQ(unique({}, "ABCDEFGHIJKL"), "ABCDEFGHIJ");
    EXPECT_EQ(unique({"ABCDEFGHIJ"}, "ABCDEFGHIJ"), "ABCDEFGHI0");
    EXPECT_EQ(unique({"ABCDEFGHIJ"}, "ABCDEFGHIJ", true), "ABCDEFGHIJ0");  // 11 bytes
    EXPECT_EQ(unique({"N", "N0", "N1"}, "N", true), "N2");
    EXPECT_EQ(unique({"A"}, "B", true), "B");
    // Eleven candidates taken: the twelfth number is the answer.
    Names taken = {"X"};
    for (int i = 0; i <= 10; ++i) taken.push_back("X" + std::to_string(i));
    EXPECT_EQ(unique(taken, "X"), "X11");
    // Null arrays count as empty; a null name as the empty name.
    Collect c;
    qz_dbf_fields_unique_name(nullptr, 7, "ABC", c.adp());
    EXPECT_EQ(c.text, "ABC");
    qz_dbf_fields_unique_name(nullptr, 0, nullptr, c.adp());
    EXPECT_EQ(c.text, "");
}

TEST(NamesUnique, AgainstATableWithStaticResults) {
    Code_page utf8(65001);
    qz_test::Temp_dir dir;
    auto fields = fields_of({"NAME", "NAME1", "ABCDEFGHIJ", "id"});
    Tqz_dbf_rw* t = qz_dbf_create(dir.file("u.dbf").c_str(), 4, 0, fields.data(), false);
    ASSERT_NE(t, nullptr);
    const char* first = qz_dbf_generate_unin_name(t, "NAME");
    EXPECT_STREQ(first, "NAME2");
    // The result is one static string: the next call overwrites it.
    const char* second = qz_dbf_generate_unin_name(t, "FREE");
    EXPECT_EQ(first, second);
    EXPECT_STREQ(first, "FREE");
    EXPECT_STREQ(qz_dbf_generate_unin_name(t, "ID"), "ID");  // case counts
    EXPECT_STREQ(qz_dbf_generate_unin_name(t, "ABCDEFGHIJK"), "ABCDEFGHI1");
    // The old form keeps the whole name and has a string of its own.
    const char* old = qz_dbf_generate_unin_name_old(t, "ABCDEFGHIJ");
    EXPECT_STREQ(old, "ABCDEFGHIJ1");
    EXPECT_STREQ(qz_dbf_generate_unin_name(t, "X"), "X");
    EXPECT_STREQ(old, "ABCDEFGHIJ1");
    EXPECT_STREQ(qz_dbf_generate_unin_name_old(t, "NAME"), "NAME2");
    Collect c;
    qz_dbf_generate_unin_name_w(t, L"NAME", c.adp());
    EXPECT_EQ(c.text, "NAME2");
    qz_dbf_close(t);

    // A null handle has no answer.
    EXPECT_EQ(qz_dbf_generate_unin_name(nullptr, "A"), nullptr);
}

TEST(NamesUnique, OlderWholeListRepair) {
    Code_page utf8(65001);
    struct Case {
        Names in;
        bool result;
        Names out;
    } cases[] = {
        {{"a", "A"}, true, {"A", "A_1"}},
        {{"NAME", "name", "NAME_1"}, true, {"NAME", "NAME_1", "NAME_1_1"}},
        {{"_x-1"}, true, {"AX_1"}},
        {{"9lives"}, true, {"9LIVES"}},
        {{"OK"}, false, {"OK"}},
        // Only the last field's correction counts.
        {{"bad", "OK"}, false, {"BAD", "OK"}},
        {{""}, true, {"PROP"}},
        // Cyrillic capitals are kept, small letters raised, ё made Ё.
        {{"цена", "ёж"}, true, {"ЦЕНА", "ЁЖ"}},
        // Characters outside Windows-1251 count as any other byte.
        {{"éa"}, true, {"AA"}},
        {{"aé"}, true, {"A_"}},
        // A blank is a byte like any other; the number goes on what the
        // name has become, so a field that collides again grows.
        {{"ab ", "AB_"}, true, {"AB_", "AB__1"}},
        {{"A", "A", "A", "A"}, true, {"A", "A_1", "A_1_2", "A_1_2_3"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.in[0]);
        auto fields = fields_of(c.in);
        EXPECT_EQ(qz_dbf_make_correct_names(fields.data(), static_cast<int>(fields.size())),
                  c.result);
        EXPECT_EQ(names_of(fields), c.out);
    }
    // Repeated collisions of one field grow its name, cut before the ending:
    // the fifth goes NAME, NAME_1, NAME_1_2, NAME_1_2_3, NAME_1_2_4.
    auto fields = fields_of({"NAME", "NAME_1", "NAME_1_2", "NAME_1_2_3", "NAME"});
    EXPECT_TRUE(qz_dbf_make_correct_names(fields.data(), 5));
    EXPECT_EQ(names_of(fields)[4], "NAME_1_2_4");
    EXPECT_FALSE(qz_dbf_make_correct_names(fields.data(), 0));
    EXPECT_FALSE(qz_dbf_make_correct_names(fields.data(), -4));
    EXPECT_FALSE(qz_dbf_make_correct_names(nullptr, 3));

    // Under CP1251 the table runs on the bytes as they are.
    Code_page cp(1251);
    fields = fields_of({cp1251("цена"), cp1251("ЦЕНА"), "x\xb8"});
    EXPECT_TRUE(qz_dbf_make_correct_names(fields.data(), 3));
    EXPECT_EQ(names_of(fields), (Names{cp1251("ЦЕНА"), cp1251("ЦЕНА_1"), "X\xa8"}));
}

}  // namespace
