// qzdbf and field names: create refuses names that break the rules and shows
// their repair, --fix-names repairs them, and names lists a table's faults.
#include <gtest/gtest.h>

#include <string>

#include "names_support.h"
#include "test_support.h"

using namespace names_test;

namespace {

std::string qzdbf(const std::string& args, int* status) {
    std::string out;
    *status = qz_test::run("LC_ALL=C.UTF-8 '" QZDBF_EXE "' " + args + " 2>&1", &out);
    return out;
}

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST(NamesTool, CreateRefusesOrRepairs) {
    qz_test::Temp_dir dir;
    const std::string table = "'" + dir.file("t.dbf") + "'";
    const std::string fields = " id:N:5 ID:C:10 1x:N:8:2 Цена:N:10:2 a#b:C:5 LONGERNAME11:C:3";
    int rc = -1;
    std::string out = qzdbf("create " + table + fields, &rc);
    EXPECT_EQ(rc, 2) << out;
    EXPECT_FALSE(qz_test::exists(dir.file("t.dbf")));
    for (const char* shown : {"'id' -> 'ID'", "'ID' -> 'ID1'", "'1x' -> 'X'", "'Цена' -> 'CENA'",
                              "'a#b' -> 'A_B'", "'LONGERNAME11' -> 'LONGERNAME'", "--fix-names"})
        EXPECT_TRUE(has(out, shown)) << shown << "\n" << out;

    out = qzdbf("create " + table + fields + " --fix-names --records 1", &rc);
    EXPECT_EQ(rc, 0) << out;
    Tqz_dbf_rw* t = qz_dbf_open(dir.file("t.dbf").c_str(), true, false);
    ASSERT_NE(t, nullptr);
    const char* expected[] = {"ID", "ID1", "X", "CENA", "A_B", "LONGERNAME"};
    ASSERT_EQ(qz_dbf_get_nf(t), 6u);
    for (unsigned i = 0; i < 6; ++i) EXPECT_STREQ(qz_dbf_get_field_name(t, i), expected[i]);
    qz_dbf_close(t);
    out = qzdbf("names " + table, &rc);
    EXPECT_EQ(rc, 0) << out;

    // Valid names need no option; a name the repair cannot make valid is
    // refused even with it.
    out = qzdbf("create '" + dir.file("ok.dbf") + "' CODE:N:4 NAME_2:C:5", &rc);
    EXPECT_EQ(rc, 0) << out;
    out = qzdbf("create '" + dir.file("dash.dbf") + "' a-b:C:5 --fix-names", &rc);
    EXPECT_EQ(rc, 2);
    EXPECT_TRUE(has(out, "'A-B'")) << out;
    EXPECT_FALSE(qz_test::exists(dir.file("dash.dbf")));
}

TEST(NamesTool, NamesListsWhatBreaksTheRules) {
    Code_page utf8(65001);
    qz_test::Temp_dir dir;
    // A table made without any repair.
    auto fields = fields_of({"CODE", "id", "ID", "a b", "X"});
    Tqz_dbf_rw* t = qz_dbf_create(dir.file("raw.dbf").c_str(), 5, 0, fields.data(), false);
    ASSERT_NE(t, nullptr);
    qz_dbf_close(t);
    int rc = -1;
    std::string out = qzdbf("names '" + dir.file("raw.dbf") + "'", &rc);
    EXPECT_EQ(rc, 1) << out;
    EXPECT_FALSE(has(out, "CODE")) << out;
    EXPECT_TRUE(has(out, "    1  id          ID          lower-case letters")) << out;
    EXPECT_TRUE(has(out, "    2  ID          ID1         same as field 1")) << out;
    EXPECT_TRUE(has(out, "    3  a b         A B")) << out;
    EXPECT_TRUE(has(out, "the repair still breaks the rules")) << out;

    qzdbf("names '" + dir.file("missing.dbf") + "'", &rc);
    EXPECT_EQ(rc, 3);
    qzdbf("names", &rc);
    EXPECT_EQ(rc, 2);
    qzdbf("names a b", &rc);
    EXPECT_EQ(rc, 2);
}

}  // namespace
