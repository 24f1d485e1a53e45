// Applying a descriptor to a table file: the conversions the rewrite makes,
// the files it leaves, tables it must leave alone (missing, locked by another
// writer, an impossible layout), memo fields, names in the table's encoding.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "qzk_file_dbf.h"
#include "restruct_tables.h"
#include "test_support.h"

using namespace restruct_test;
namespace fs = std::filesystem;

namespace {

class Apply : public ::testing::Test {
  protected:
    qz_test::Temp_dir dir;
    std::string file = dir.file("T.dbf");
    std::wstring path = dir.wfile("T.dbf");
};

// Sets entry `idx` of `d` to the given attributes.
void retype(Tqz_dbf_rstrct* d, int idx, char type, unsigned char flen, signed char dlen) {
    Tqz_dbf_field* f = qz_dbf_restruct_get_field(d, idx);
    f->type = type;
    f->flen = flen;
    f->dlen = dlen;
}

TEST_F(Apply, RewrittenBytesAndNoBackupLeft) {
    ASSERT_TRUE(make_table(
        path, {{"S", 'C', 8, 0}, {"T", 'C', 8, 0}, {"N", 'N', 6, 0}, {"K", 'C', 6, 0}},
        {{" 12.5 ", " 7.9 ", "42", "  ab"}, {"abc", "-7.1", "-3", "x"}, {"", "", "", ""}}));
    Tqz_dbf_rstrct* d = qz_dbf_restruct_create_w(path.c_str());
    retype(d, 0, 'N', 8, 2);  // C -> N(8,2)
    retype(d, 1, 'I', 4, 0);  // C -> I
    retype(d, 2, 'C', 6, 0);  // N -> C, trimmed
    retype(d, 3, 'C', 9, 0);  // C, longer: leading blanks stay
    Tqz_dbf_field f;
    qz_dbf_field_init(&f, "NB", dbf_ft_double, 8, 0);
    qz_dbf_restruct_add_field(d, &f);
    qz_dbf_field_init(&f, "NI", dbf_ft_integer, 4, 0);
    qz_dbf_restruct_add_field(d, &f);
    qz_dbf_field_init(&f, "NC", dbf_ft_char, 5, 0);
    qz_dbf_restruct_add_field(d, &f);
    qz_dbf_field_init(&f, "NN", dbf_ft_numeric, 5, 1);
    qz_dbf_restruct_add_field(d, &f);
    ASSERT_TRUE(qz_dbf_restruct_apply(d));
    qz_dbf_restruct_destroy(d);

    EXPECT_EQ(layout(path), "S:N:8:2,T:I:4:0,N:C:6:0,K:C:9:0,NB:B:8:0,NI:I:4:0,NC:C:5:0,NN:N:5:1");
    // The values each conversion gives are checked cell by cell, in every
    // encoding, by the conversion test; here the bytes and the files left.
    // The C field's bytes: text, then spaces to its length.
    auto bytes = qz_test::read_bytes(file);
    const size_t header = 32 + 32 * 8 + 1, record = 1 + 8 + 4 + 6 + 9 + 8 + 4 + 5 + 5;
    ASSERT_EQ(bytes.size(), header + 3 * record + 1);
    EXPECT_EQ(std::string(bytes.begin() + header + 1 + 8 + 4 + 6,
                          bytes.begin() + header + 1 + 8 + 4 + 6 + 9),
              "  ab     ");
    EXPECT_EQ(bytes.back(), 0x1A);
    EXPECT_FALSE(fs::exists(file + ".bak.dbf"));
    EXPECT_FALSE(fs::exists(dir.file("T.dbf.bak.cpg")));
    EXPECT_FALSE(fs::exists(file + ".lk"));
    EXPECT_TRUE(fs::exists(dir.file("T.cpg")));
    // Nothing else is left in the folder (no sibling of the rewrite).
    size_t n = 0;
    for (auto& e : fs::directory_iterator(dir.path()))
        n += e.path().filename() != "T.dbf" && e.path().filename() != "T.cpg";
    EXPECT_EQ(n, 0u);
}

TEST_F(Apply, TablesLeftAlone) {
    // Missing table.
    Tqz_dbf_rstrct* d = qz_dbf_restruct_create_empty_w(path.c_str());
    Tqz_dbf_field f;
    qz_dbf_field_init(&f, "A", dbf_ft_char, 3, 0);
    qz_dbf_restruct_add_field(d, &f);
    EXPECT_FALSE(qz_dbf_restruct_apply(d));
    EXPECT_FALSE(fs::exists(file));
    qz_dbf_restruct_destroy(d);

    ASSERT_TRUE(make_table(path, {{"A", 'C', 4, 0}, {"B", 'N', 5, 1}}, {{"a", "1.5"}, {"b", "2"}}));
    const auto before = qz_test::read_bytes(file);
    d = qz_dbf_restruct_create_w(path.c_str());
    qz_dbf_restruct_remove_field_idx(d, 0);

    // Another writer holds the table: not rewritten.
    Tqz_dbf_rw* writer = qz_dbf_open_w(path.c_str(), false, false);
    ASSERT_NE(writer, nullptr);
    EXPECT_FALSE(qz_dbf_restruct_apply(d));
    EXPECT_EQ(qz_test::read_bytes(file), before);
    EXPECT_FALSE(fs::exists(file + ".bak.dbf"));
    EXPECT_EQ(qz_dbf_get_nf(writer), 2u);
    qz_dbf_close(writer);

    // No fields, or a record too long for a table: refused, table as it was.
    Tqz_dbf_rstrct* none = qz_dbf_restruct_create_empty_w(path.c_str());
    EXPECT_FALSE(qz_dbf_restruct_apply(none));
    qz_dbf_restruct_destroy(none);
    Tqz_dbf_rstrct* wide = qz_dbf_restruct_create_empty_w(path.c_str());
    qz_dbf_field_init(&f, "W", dbf_ft_char, 255, 0);
    for (int i = 0; i < 300; ++i) qz_dbf_restruct_add_field(wide, &f);
    EXPECT_FALSE(qz_dbf_restruct_apply(wide));
    qz_dbf_restruct_destroy(wide);
    EXPECT_EQ(qz_test::read_bytes(file), before);
    EXPECT_FALSE(fs::exists(file + ".bak.dbf"));

    // A backup left by a killed run is no obstacle; the lock is free again.
    // Siblings of killed rewrites go; those of a live process stay.
    qz_test::write_bytes(file + ".bak.dbf", {1, 2, 3});
    const std::string dead = file + ".2147483000.7.tmp",
                      dead_bak = file + ".bak.dbf.2147483001.0.tmp",
                      live = file + "." + std::to_string(getppid()) + ".3.tmp",
                      other = file + ".x.1.tmp";
    for (const auto& f : {dead, dead_bak, live, other}) qz_test::write_bytes(f, {9});
    EXPECT_TRUE(qz_dbf_restruct_apply(d));
    EXPECT_EQ(layout(path), "B:N:5:1");
    EXPECT_EQ(cells(path), (std::vector<std::vector<std::string>>{{"1.5"}, {"2.0"}}));
    EXPECT_FALSE(fs::exists(file + ".bak.dbf"));
    EXPECT_FALSE(fs::exists(dead));
    EXPECT_FALSE(fs::exists(dead_bak));
    EXPECT_TRUE(fs::exists(live));
    EXPECT_TRUE(fs::exists(other));
    writer = qz_dbf_open_w(path.c_str(), false, false);
    EXPECT_NE(writer, nullptr);
    qz_dbf_close(writer);
    qz_dbf_restruct_destroy(d);
}

TEST_F(Apply, MemoFieldsKeepTheirBlocksAndTheMemoFileStays) {
    fs::copy_file(QZ_EXAMPLES_DIR "/sample.dbf", file);
    fs::copy_file(QZ_EXAMPLES_DIR "/sample.dbt", dir.file("T.dbt"));
    fs::copy_file(QZ_EXAMPLES_DIR "/sample.cpg", dir.file("T.cpg"));
    const auto memo_before = qz_test::read_bytes(dir.file("T.dbt"));
    const auto before = cells(path);
    Tqz_dbf_rstrct* d = qz_dbf_restruct_create_w(path.c_str());
    const int notes = qz_dbf_restruct_count(d) - 1;
    ASSERT_STREQ(qz_dbf_restruct_get_field(d, notes)->name, "NOTES");
    std::strcpy(qz_dbf_restruct_get_field(d, notes)->name, "REMARKS");  // changed: via text
    qz_dbf_restruct_move_field(d, notes, 0);
    qz_dbf_restruct_remove_field_idx(d, 1);  // NAME
    ASSERT_TRUE(qz_dbf_restruct_apply(d));
    qz_dbf_restruct_destroy(d);
    EXPECT_EQ(qz_test::read_bytes(dir.file("T.dbt")), memo_before);

    Tqz_dbf_rw* t = qz_dbf_open_w(path.c_str(), true, false);
    ASSERT_NE(t, nullptr);
    ASSERT_EQ(qz_dbf_get_nr(t), before.size());
    for (unsigned r = 0; r < before.size(); ++r) {
        EXPECT_EQ(cell(t, 0, r), before[r][notes]) << r;  // the block number's text
        for (int k = 1; k < notes; ++k) EXPECT_EQ(cell(t, k, r), before[r][k]) << r << k;
    }
    // The memo text is still reachable from the moved field.
    Tqz_dbf_rw* orig = qz_dbf_open(QZ_EXAMPLES_DIR "/sample.dbf", true, false);
    for (unsigned r = 0; r < before.size(); ++r) {
        bool ok1 = false, ok2 = false;
        unsigned l1 = 0, l2 = 0, t1 = 0, t2 = 0;
        const unsigned char* a = qz_dbf_get_memo_bytes(orig, notes, r, ok1, l1, t1);
        std::string want = a ? std::string(reinterpret_cast<const char*>(a), l1) : "";
        const unsigned char* b = qz_dbf_get_memo_bytes(t, 0, r, ok2, l2, t2);
        std::string got = b ? std::string(reinterpret_cast<const char*>(b), l2) : "";
        EXPECT_EQ(ok1, ok2) << r;
        EXPECT_EQ(got, want) << r;
    }
    qz_dbf_close(orig);
    qz_dbf_close(t);
}

}  // namespace
