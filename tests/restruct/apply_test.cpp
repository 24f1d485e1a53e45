// Applying a descriptor: to a table file (the bytes written, the files left,
// tables it must leave alone) and to a loaded memory table in
// place (one undoable step); memory tables made with fields, and tables
// made with another's layout.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "restruct_tables.h"

using namespace restruct_test;
namespace fs = std::filesystem;

namespace {

class Apply : public ::testing::Test {
  protected:
    void copy_sample() {
        for (const char* ext : {".dbf", ".dbt", ".cpg"})
            fs::copy_file(std::string(QZ_EXAMPLES_DIR "/sample") + ext, dir.file("T") + ext);
    }
    qz_test::Temp_dir dir;
    std::string file = dir.file("T.dbf");
    std::wstring path = dir.wfile("T.dbf");
};

TEST_F(Apply, TablesLeftAloneThenRewritten) {
    // Missing table.
    Tqz_dbf_rstrct* d = qz_dbf_restruct_create_empty_w(path.c_str());
    Tqz_dbf_field f = field({"A", 'C', 3, 0});
    qz_dbf_restruct_add_field(d, &f);
    EXPECT_FALSE(qz_dbf_restruct_apply(d));
    EXPECT_FALSE(fs::exists(file));
    qz_dbf_restruct_destroy(d);

    ASSERT_TRUE(make_table(path, {{"A", 'C', 4, 0}, {"B", 'N', 5, 1}, {"K", 'C', 4, 0}},
                           {{"a", "1.5", "  ab"}, {"b", "2"}}));
    const auto before = qz_test::read_bytes(file);
    d = qz_dbf_restruct_create_w(path.c_str());
    qz_dbf_restruct_remove_field_idx(d, 0);
    qz_dbf_restruct_get_field(d, 1)->flen = 9;  // C, longer: leading blanks stay
    // Another writer holds the table: not rewritten.
    Tqz_dbf_rw* writer = qz_dbf_open_w(path.c_str(), false, false);
    ASSERT_NE(writer, nullptr);
    EXPECT_FALSE(qz_dbf_restruct_apply(d));
    EXPECT_EQ(qz_dbf_get_nf(writer), 3u);
    qz_dbf_close(writer);
    // No fields, or a record too long for a table: refused.
    Tqz_dbf_rstrct* none = qz_dbf_restruct_create_empty_w(path.c_str());
    EXPECT_FALSE(qz_dbf_restruct_apply(none));
    qz_dbf_field_init(&f, "W", dbf_ft_char, 255, 0);
    for (int i = 0; i < 300; ++i) qz_dbf_restruct_add_field(none, &f);
    EXPECT_FALSE(qz_dbf_restruct_apply(none));
    qz_dbf_restruct_destroy(none);
    EXPECT_EQ(qz_test::read_bytes(file), before);
    EXPECT_FALSE(fs::exists(file + ".bak.dbf"));

    // A backup left by a killed run is no obstacle; the lock is free again.
    // Siblings of killed rewrites go; those of a live process stay.
    qz_test::write_bytes(file + ".bak.dbf", {1, 2, 3});
    const std::string dead = file + ".2147483000.7.tmp",
                      dead_bak = file + ".bak.dbf.2147483001.0.tmp",
                      live = file + "." + std::to_string(getppid()) + ".3.tmp",
                      other = file + ".x.1.tmp";
    for (const auto& p : {dead, dead_bak, live, other}) qz_test::write_bytes(p, {9});
    EXPECT_TRUE(qz_dbf_restruct_apply(d));
    qz_dbf_restruct_destroy(d);
    EXPECT_EQ(layout(path), "B:N:5:1,K:C:9:0");
    EXPECT_EQ(cells(path), (Rows{{"1.5", "  ab     "}, {"2.0", "         "}}));
    const auto bytes = qz_test::read_bytes(file);
    ASSERT_EQ(bytes.size(), 32 + 32 * 2 + 1 + 2 * 15 + 1);
    EXPECT_EQ(std::string(bytes.begin() + 97 + 6, bytes.begin() + 97 + 15), "  ab     ");
    EXPECT_EQ(bytes.back(), 0x1A);
    for (const auto& p : {file + ".bak.dbf", dead, dead_bak, file + ".lk"})
        EXPECT_FALSE(fs::exists(p)) << p;
    EXPECT_TRUE(fs::exists(live));
    EXPECT_TRUE(fs::exists(other));
    EXPECT_TRUE(fs::exists(dir.file("T.cpg")));
    writer = qz_dbf_open_w(path.c_str(), false, false);
    EXPECT_NE(writer, nullptr);
    qz_dbf_close(writer);
}

// The bytes of a memory table saved to `name`, its date bytes cleared.
std::vector<uint8_t> saved(Tqz_dbf_memory* m, const std::string& name) {
    EXPECT_TRUE(qz_dbf_mem_save_as(m, name.c_str()));
    auto bytes = qz_test::read_bytes(name);
    for (size_t i = 1; i < 4 && i < bytes.size(); ++i) bytes[i] = 0;
    return bytes;
}

TEST_F(Apply, LoadedTableIsRestructuredInPlaceAsOneStep) {
    copy_sample();
    Iqz_history_manager* history = qz_history_manager_get_instance();
    qz_history_manager_clear(history);
    const auto on_disk = qz_test::read_bytes(file);
    const Rows loaded = cells(path);
    Tqz_dbf_memory* m = qz_dbf_mem_load_w(path.c_str());
    qz_dbf_mem_set_str(m, 0, 1, "Changed before");
    const auto before = saved(m, dir.file("before.dbf"));

    Tqz_dbf_rstrct* d = qz_dbf_restruct_create_w(path.c_str());
    ASSERT_EQ(qz_dbf_restruct_count(d), 8);
    qz_dbf_restruct_get_field(d, 0)->flen = 12;                  // NAME C 30 -> 12
    std::strcpy(qz_dbf_restruct_get_field(d, 1)->name, "TOWN");  // CITY renamed
    qz_dbf_restruct_get_field(d, 3)->type = 'C';                 // SALARY N -> C
    qz_dbf_restruct_remove_field_idx(d, 4);                      // RATE dropped
    qz_dbf_restruct_move_field(d, 6, 0);                         // NOTES first
    Tqz_dbf_field f = field({"EXTRA", 'I', 4, 0});
    qz_dbf_restruct_add_field(d, &f);
    // A disk handle cannot restructure in place; the loaded table can.
    Tqz_dbf_rw* disk = qz_dbf_open_w(dir.wfile("before.dbf").c_str(), true, false);
    EXPECT_FALSE(qz_dbf_try_restruct(disk, d));
    qz_dbf_close(disk);
    EXPECT_FALSE(qz_dbf_mem_restruct(nullptr, d));
    ASSERT_TRUE(qz_dbf_restruct_apply(d));
    qz_dbf_restruct_destroy(d);
    EXPECT_EQ(qz_history_manager_get_undo_count(history), 2u);
    EXPECT_EQ(qz_test::read_bytes(file), on_disk) << "in place: the file is not written";
    EXPECT_EQ(layout(path),
              "NOTES:M:10:0,NAME:C:12:0,TOWN:C:20:0,BORN:D:8:0,SALARY:C:12:2,ACTIVE:L:1:0,"
              "KIDS:I:4:0,EXTRA:I:4:0");
    const auto after = saved(m, dir.file("after.dbf"));
    ASSERT_NE(after, before);
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(qz_history_manager_undo(history)) << i;
        ASSERT_EQ(saved(m, dir.file("x.dbf")), before) << "undo " << i;
        ASSERT_TRUE(qz_history_manager_redo(history)) << i;
        ASSERT_EQ(saved(m, dir.file("x.dbf")), after) << "redo " << i;
    }
    // A change after the restructure is undone first, then the restructure,
    // then the change before it.
    qz_dbf_mem_set_int(m, 7, 0, 5);
    ASSERT_TRUE(qz_history_manager_undo(history));
    EXPECT_EQ(saved(m, dir.file("x.dbf")), after);
    ASSERT_TRUE(qz_history_manager_undo(history));
    ASSERT_TRUE(qz_history_manager_undo(history));
    EXPECT_EQ(cells(path), loaded) << "as loaded, read through a handle";
    qz_dbf_mem_free(m);
    EXPECT_EQ(qz_test::read_bytes(file), on_disk);
    qz_history_manager_clear(history);
}

TEST_F(Apply, TablesMadeWithFieldsOrWithAnothersLayout) {
    // Made by mem_create with fields; created again with other fields: the
    // same table, its records kept, every field new (no undo step); without
    // fields: the table as it is. A layout without fields changes nothing.
    const std::wstring name = dir.wfile("scratch.dbf");
    Tqz_dbf_field f[3] = {field({"A", 'C', 5, 0}), field({"B", 'I', 4, 0}),
                          field({"C", 'N', 6, 2})};
    Tqz_dbf_memory* m = qz_dbf_mem_create_w(name.c_str(), 3, f);
    EXPECT_EQ(qz_dbf_mem_get_field_dlen(m, 2), 2);
    qz_dbf_mem_add(m);
    qz_dbf_mem_add(m);
    qz_dbf_mem_set_str(m, 0, 1, "keep");
    qz_dbf_mem_set_int(m, 1, 1, 9);
    Tqz_dbf_field g[2] = {field({"A", 'C', 5, 0}), field({"Z", 'B', 8, 0})};
    EXPECT_EQ(qz_dbf_mem_create_w(name.c_str(), 2, g), m);
    EXPECT_EQ(qz_dbf_mem_create_w(name.c_str(), 0, nullptr), m);
    Tqz_dbf_rstrct* none = qz_dbf_restruct_create_empty_w(name.c_str());
    EXPECT_FALSE(qz_dbf_mem_restruct(m, none));
    EXPECT_FALSE(qz_dbf_restruct_apply(none));
    qz_dbf_restruct_destroy(none);
    EXPECT_EQ(layout(name), "A:C:5:0,Z:B:8:0");
    bool ok = false;
    EXPECT_STREQ(qz_dbf_mem_get_str(m, 0, 1, ok), "     ");
    EXPECT_EQ(qz_dbf_mem_get_dbl(m, 1, 1, ok), 0.0);
    EXPECT_TRUE(ok);
    EXPECT_FALSE(qz_history_manager_can_undo(qz_history_manager_get_instance()));
    for (int i = 0; i < 3; ++i) qz_dbf_mem_free(m);  // asked for three times
    EXPECT_FALSE(qz_dbf_mem_exist_w(name.c_str()));

    // Nothing at the new path: an empty table in the template's encoding; a
    // table there keeps its record count and its own encoding, its values go;
    // a template that does not open makes nothing.
    copy_sample();
    const std::wstring made = dir.wfile("made.dbf"), other = dir.wfile("other.dbf");
    qz_dbf_create_dbf_with_struct(made.c_str(), path.c_str());
    EXPECT_EQ(layout(made) + std::to_string(cells(made).size()), layout(path) + "0");
    ASSERT_TRUE(make_table(other, {{"Q", 'C', 3, 0}}, {{"a"}, {"b"}, {"c"}}, Encoding::utf8));
    qz_dbf_create_dbf_with_struct(other.c_str(), path.c_str());
    EXPECT_EQ(layout(other), layout(path));
    ASSERT_EQ(cells(other).size(), 3u);
    EXPECT_EQ(cells(other)[2][0], std::string(30, ' '));
    Tqz_dbf_rw* t = qz_dbf_open_w(other.c_str(), true, false);
    EXPECT_TRUE(qz_dbf_get_utf8_flag(t));
    qz_dbf_close(t);
    qz_dbf_create_dbf_with_struct(dir.wfile("nothing.dbf").c_str(), dir.wfile("no.dbf").c_str());
    EXPECT_FALSE(fs::exists(dir.file("nothing.dbf")));
}

}  // namespace
