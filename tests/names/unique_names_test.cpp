// Unique names against a table, through the exports with static results.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "names_support.h"
#include "test_support.h"

using namespace names_test;

namespace {

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

}  // namespace
