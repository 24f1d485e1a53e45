// Memory tables restructured in place: one step of the undo history, undone
// and redone ten times with byte-identical saves; tables without history;
// memory tables created with fields; a table made with another's layout.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "qzk_basic.h"
#include "qzk_file_dbf.h"
#include "restruct_tables.h"
#include "test_support.h"

using namespace restruct_test;
namespace fs = std::filesystem;

namespace {

class MemoryRestruct : public ::testing::Test {
  protected:
    void SetUp() override {
        fs::copy_file(QZ_EXAMPLES_DIR "/sample.dbf", file);
        fs::copy_file(QZ_EXAMPLES_DIR "/sample.dbt", dir.file("t.dbt"));
        fs::copy_file(QZ_EXAMPLES_DIR "/sample.cpg", dir.file("t.cpg"));
        qz_history_manager_clear(history);
    }
    void TearDown() override { qz_history_manager_clear(history); }

    // The bytes of the table saved to `name`, its date bytes cleared.
    std::vector<uint8_t> saved(Tqz_dbf_memory* m, const std::string& name) {
        std::string out = dir.file(name);
        EXPECT_TRUE(qz_dbf_mem_save_as_w(m, qz_test::widen(out).c_str()));
        auto bytes = qz_test::read_bytes(out);
        for (size_t i = 1; i < 4 && i < bytes.size(); ++i) bytes[i] = 0;
        return bytes;
    }

    // A descriptor of the table that adds, drops, resizes, renames and moves.
    Tqz_dbf_rstrct* reshaping() {
        Tqz_dbf_rstrct* d = qz_dbf_restruct_create_w(path.c_str());
        EXPECT_EQ(qz_dbf_restruct_count(d), 8);
        qz_dbf_restruct_get_field(d, 0)->flen = 12;                  // NAME C 30 -> 12
        std::strcpy(qz_dbf_restruct_get_field(d, 1)->name, "TOWN");  // CITY renamed
        qz_dbf_restruct_get_field(d, 3)->type = 'C';                 // SALARY N -> C
        qz_dbf_restruct_remove_field_idx(d, 4);                      // RATE dropped
        qz_dbf_restruct_move_field(d, 6, 0);                         // NOTES first
        Tqz_dbf_field f;
        qz_dbf_field_init(&f, "EXTRA", dbf_ft_integer, 4, 0);
        qz_dbf_restruct_add_field(d, &f);
        return d;
    }

    qz_test::Temp_dir dir;
    std::string file = dir.file("t.dbf");
    std::wstring path = dir.wfile("t.dbf");
    Iqz_history_manager* history = qz_history_manager_get_instance();
};

TEST_F(MemoryRestruct, OneStepUndoneAndRedoneTenTimes) {
    const auto on_disk = qz_test::read_bytes(file);
    Tqz_dbf_memory* m = qz_dbf_mem_load_w(path.c_str());
    ASSERT_NE(m, nullptr);
    qz_dbf_mem_set_str(m, 0, 1, "Changed before");
    const auto before = saved(m, "before.dbf");
    const unsigned steps = qz_history_manager_get_undo_count(history);

    Tqz_dbf_rstrct* d = reshaping();
    ASSERT_TRUE(qz_dbf_restruct_apply(d));  // reaches the memory table in place
    qz_dbf_restruct_destroy(d);
    EXPECT_EQ(qz_history_manager_get_undo_count(history), steps + 1);
    EXPECT_EQ(qz_test::read_bytes(file), on_disk) << "in place: the file is not written";
    EXPECT_FALSE(fs::exists(file + ".bak.dbf"));
    EXPECT_EQ(layout(path),
              "NOTES:M:10:0,NAME:C:12:0,TOWN:C:20:0,BORN:D:8:0,SALARY:C:12:2,ACTIVE:L:1:0,"
              "KIDS:I:4:0,EXTRA:I:4:0");
    const auto after = saved(m, "after.dbf");
    ASSERT_NE(after, before);

    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(qz_history_manager_undo(history)) << i;
        ASSERT_EQ(saved(m, "undone.dbf"), before) << "undo " << i;
        ASSERT_TRUE(qz_history_manager_redo(history)) << i;
        ASSERT_EQ(saved(m, "redone.dbf"), after) << "redo " << i;
    }
    // A change after the restructure is undone first, then the restructure,
    // then the change before it.
    qz_dbf_mem_set_int(m, 7, 0, 5);
    ASSERT_TRUE(qz_history_manager_undo(history));
    EXPECT_EQ(saved(m, "x.dbf"), after);
    ASSERT_TRUE(qz_history_manager_undo(history));
    EXPECT_EQ(saved(m, "x.dbf"), before);
    ASSERT_TRUE(qz_history_manager_undo(history));
    fs::copy_file(QZ_EXAMPLES_DIR "/sample.dbf", dir.file("orig.dbf"));
    EXPECT_EQ(cells(path), cells(dir.wfile("orig.dbf"))) << "as loaded, read through a handle";
    bool ok = false;
    EXPECT_STRNE(qz_dbf_mem_get_str(m, 0, 1, ok), "Changed before");
    qz_dbf_mem_free(m);
    EXPECT_EQ(qz_test::read_bytes(file), on_disk);
}

TEST_F(MemoryRestruct, HandlesAndTablesWithoutHistory) {
    // A disk handle cannot restructure in place; a handle on a memory table can.
    Tqz_dbf_rstrct* d = reshaping();
    Tqz_dbf_rw* disk = qz_dbf_open_w(path.c_str(), true, false);
    EXPECT_FALSE(qz_dbf_try_restruct(disk, d));
    EXPECT_EQ(qz_dbf_get_nf(disk), 8u);
    qz_dbf_close(disk);
    EXPECT_FALSE(qz_dbf_mem_restruct(nullptr, d));

    // Made by mem_create: no history, the change is made at once.
    const std::wstring name = dir.wfile("scratch.dbf");
    Tqz_dbf_field f[3];
    qz_dbf_field_init(&f[0], "A", dbf_ft_char, 5, 0);
    qz_dbf_field_init(&f[1], "B", dbf_ft_integer, 4, 0);
    qz_dbf_field_init(&f[2], "C", dbf_ft_numeric, 6, 2);
    Tqz_dbf_memory* m = qz_dbf_mem_create_w(name.c_str(), 3, f);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(qz_dbf_mem_get_nf(m), 3u);
    EXPECT_EQ(qz_dbf_mem_get_nr(m), 0u);
    EXPECT_EQ(qz_dbf_mem_get_field_type(m, 2), dbf_ft_numeric);
    EXPECT_EQ(qz_dbf_mem_get_field_dlen(m, 2), 2);
    EXPECT_FALSE(qz_history_manager_can_undo(history));
    qz_dbf_mem_add(m);
    qz_dbf_mem_add(m);
    qz_dbf_mem_set_str(m, 0, 1, "keep");
    qz_dbf_mem_set_int(m, 1, 1, 9);

    // Created again with other fields: the same table, its records kept,
    // every field new.
    Tqz_dbf_field g[2];
    qz_dbf_field_init(&g[0], "A", dbf_ft_char, 5, 0);
    qz_dbf_field_init(&g[1], "Z", dbf_ft_double, 8, 0);
    EXPECT_EQ(qz_dbf_mem_create_w(name.c_str(), 2, g), m);
    EXPECT_EQ(qz_dbf_mem_get_nf(m), 2u);
    EXPECT_EQ(qz_dbf_mem_get_nr(m), 2u);
    bool ok = false;
    EXPECT_STREQ(qz_dbf_mem_get_str(m, 0, 1, ok), "     ");
    EXPECT_EQ(qz_dbf_mem_get_dbl(m, 1, 1, ok), 0.0);
    EXPECT_TRUE(ok);
    EXPECT_FALSE(qz_history_manager_can_undo(history));
    // Without fields: the table as it is; nothing applied.
    EXPECT_EQ(qz_dbf_mem_create_w(name.c_str(), 0, nullptr), m);
    EXPECT_EQ(qz_dbf_mem_get_nf(m), 2u);

    // A layout without fields is refused and changes nothing.
    Tqz_dbf_rstrct* none = qz_dbf_restruct_create_empty_w(name.c_str());
    EXPECT_FALSE(qz_dbf_mem_restruct(m, none));
    EXPECT_FALSE(qz_dbf_restruct_apply(none));
    EXPECT_EQ(qz_dbf_mem_get_nf(m), 2u);
    qz_dbf_restruct_destroy(none);
    for (int i = 0; i < 3; ++i) qz_dbf_mem_free(m);
    EXPECT_FALSE(qz_dbf_mem_exist_w(name.c_str()));
    EXPECT_FALSE(fs::exists(dir.file("scratch.dbf")));
    qz_dbf_restruct_destroy(d);
}

TEST_F(MemoryRestruct, TableWithTheLayoutOfAnother) {
    // Nothing at the new path: an empty table in the template's encoding.
    const std::wstring made = dir.wfile("made.dbf");
    qz_dbf_create_dbf_with_struct(made.c_str(), path.c_str());
    EXPECT_EQ(layout(made), layout(path));
    Tqz_dbf_rw* t = qz_dbf_open_w(made.c_str(), true, false);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(qz_dbf_get_nr(t), 0u);
    qz_dbf_close(t);

    // A table there: it keeps its record count, its values go.
    const std::wstring other = dir.wfile("other.dbf");
    ASSERT_TRUE(make_table(other, {{"Q", 'C', 3, 0}}, {{"a"}, {"b"}, {"c"}}, Encoding::utf8));
    qz_dbf_create_dbf_with_struct(other.c_str(), path.c_str());
    EXPECT_EQ(layout(other), layout(path));
    auto got = cells(other);
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[2][0], std::string(30, ' '));
    t = qz_dbf_open_w(other.c_str(), true, false);
    EXPECT_TRUE(qz_dbf_get_utf8_flag(t)) << "the table's own encoding stays";
    qz_dbf_close(t);

    // A template that does not open changes nothing and makes nothing.
    const std::wstring nothing = dir.wfile("nothing.dbf");
    qz_dbf_create_dbf_with_struct(nothing.c_str(), dir.wfile("missing.dbf").c_str());
    EXPECT_FALSE(fs::exists(dir.file("nothing.dbf")));
}

}  // namespace
