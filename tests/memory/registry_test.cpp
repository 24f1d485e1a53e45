// The registry of memory tables and the memory exports: one table per name,
// counted holders, handles opened on a loaded path, and the lock that keeps
// other writers out meanwhile, in this process and in another.
#include <gtest/gtest.h>

#include <string>

#include "api/table_rw.h"
#include "dbf/disk_table.h"
#include "memory/memory_list.h"
#include "memory/memory_table.h"
#include "memory_files.h"
#include "qzk_file_dbf.h"
#include "test_support.h"

namespace {

using memory_test::dbf_file;
using qz_test::Temp_dir;

class Registry : public ::testing::Test {
  protected:
    void SetUp() override {
        path = dir.file("t.dbf");
        wpath = dir.wfile("t.dbf");
        qz_test::write_bytes(
            path, dbf_file({{"NAME", 'C', 8}, {"QTY", 'N', 5}}, {{"apple", "3"}, {"pear", "12"}}));
        qz_history_manager_clear(qz_history_manager_get_instance());
    }
    void TearDown() override {
        EXPECT_EQ(Tqz_dbf_rw::get_mem_list(), nullptr) << "every table was freed";
    }
    Temp_dir dir;
    std::string path;
    std::wstring wpath;
};

TEST_F(Registry, OneTablePerNameCountedByItsHolders) {
    EXPECT_EQ(Tqz_dbf_rw::get_mem_list(), nullptr);
    EXPECT_FALSE(qz_dbf_mem_exist_w(wpath.c_str()));
    EXPECT_EQ(qz_dbf_mem_find_w(wpath.c_str()), nullptr) << "find never loads";

    Tqz_dbf_memory* a = qz_dbf_mem_load_w(wpath.c_str());
    ASSERT_NE(a, nullptr);
    Tqz_dbf_memory* b = qz_dbf_mem_load(path.c_str());
    EXPECT_EQ(a, b);
    EXPECT_EQ(a->get_reference(), 2);
    EXPECT_TRUE(qz_dbf_mem_exist_w(wpath.c_str()));
    EXPECT_EQ(a->get_reference(), 2) << "asking does not hold";

    // Names are trimmed, not folded or normalised.
    std::wstring padded = L" \t" + wpath + L"\n";
    Tqz_dbf_memory* c = qz_dbf_mem_find_w(padded.c_str());
    EXPECT_EQ(c, a);
    EXPECT_EQ(a->get_reference(), 3);
    std::wstring upper = dir.wfile("T.DBF");
    EXPECT_FALSE(qz_dbf_mem_exist_w(upper.c_str()));
    std::wstring dotted = dir.wfile("./t.dbf");
    EXPECT_FALSE(qz_dbf_mem_exist_w(dotted.c_str()));

    EXPECT_TRUE(qz_dbf_mem_free(c));
    EXPECT_TRUE(qz_dbf_mem_free(b));
    EXPECT_EQ(qz_dbf_mem_get_nr(a), 2u) << "one holder left";
    EXPECT_TRUE(qz_test::exists(path + ".lk"));
    EXPECT_TRUE(qz_dbf_mem_free(a));
    EXPECT_EQ(Tqz_dbf_rw::get_mem_list(), nullptr) << "the registry goes with its last table";
    EXPECT_FALSE(qz_test::exists(path + ".lk"));

    // A freed handle, a foreign pointer, null: neutral answers, nothing
    // followed.
    EXPECT_FALSE(qz_dbf_mem_free(a));
    int not_a_table = 0;
    EXPECT_FALSE(qz_dbf_mem_free(reinterpret_cast<Tqz_dbf_memory*>(&not_a_table)));
    EXPECT_EQ(qz_dbf_mem_get_nf(a), 0u);
    EXPECT_EQ(qz_dbf_mem_get_field_name(nullptr, 0), nullptr);
    EXPECT_FALSE(qz_dbf_mem_save(a));
    EXPECT_TRUE(qz_dbf_mem_add(a)) << "add answers true whatever happens";
    EXPECT_EQ(qz_dbf_mem_find_fld_index(a, L"NAME"), 0xFFFFFFFFu);
}

TEST_F(Registry, CreatedTablesKeepNoHistoryLoadedOnesDo) {
    Tqz_dbf_memory* made = qz_dbf_mem_create_w(dir.wfile("new.dbf").c_str(), 0, nullptr);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(qz_dbf_mem_get_nr(made), 0u);  // the one-field table of MemoryCore.Init...
    EXPECT_EQ(made->get_history_handle(), nullptr);
    EXPECT_FALSE(qz_test::exists(dir.file("new.dbf"))) << "nothing is written before a save";
    EXPECT_FALSE(qz_test::exists(dir.file("new.dbf.lk"))) << "a made table holds no lock";
    qz_dbf_mem_add(made);
    EXPECT_FALSE(qz_history_manager_can_undo(qz_history_manager_get_instance()));
    EXPECT_TRUE(qz_dbf_mem_save(made));
    EXPECT_EQ(qz_test::read_bytes(dir.file("new.dbf")).size(), 32u + 32 + 1 + 11 + 1);
    // Asked again under its name, the same table.
    EXPECT_EQ(qz_dbf_mem_create(dir.file("new.dbf").c_str(), 0, nullptr), made);
    EXPECT_EQ(made->get_reference(), 2);

    Tqz_dbf_memory* loaded = qz_dbf_mem_load_w(wpath.c_str());
    ASSERT_NE(loaded, nullptr);
    EXPECT_NE(loaded->get_history_handle(), nullptr);
    qz_dbf_mem_del(loaded, 0);
    EXPECT_EQ(qz_dbf_mem_get_nr(loaded), 1u);
    EXPECT_TRUE(qz_history_manager_undo(qz_history_manager_get_instance()));
    EXPECT_EQ(qz_dbf_mem_get_nr(loaded), 2u);

    // Freeing one table cleans up only what has no holder.
    EXPECT_EQ(Tqz_dbf_rw::get_mem_list()->get_size(), 2u);
    EXPECT_TRUE(qz_dbf_mem_free(made));
    EXPECT_TRUE(qz_dbf_mem_free(made));
    EXPECT_EQ(Tqz_dbf_rw::get_mem_list()->get_size(), 1u);
    EXPECT_TRUE(qz_dbf_mem_free(loaded));
}

TEST_F(Registry, AFailedLoadLeavesNothingBehind) {
    EXPECT_EQ(qz_dbf_mem_load_w(dir.wfile("missing.dbf").c_str()), nullptr);
    EXPECT_EQ(Tqz_dbf_rw::get_mem_list(), nullptr);
    EXPECT_EQ(qz_dbf_mem_load(nullptr), nullptr);

    // A table whose lock another writer holds cannot be loaded.
    Tqz_dbf_rw* writer = qz_dbf_open(path.c_str(), false, false);
    ASSERT_NE(writer, nullptr);
    EXPECT_FALSE(qz_dbf_is_buffered(writer));
    EXPECT_EQ(qz_dbf_mem_load(path.c_str()), nullptr);
    EXPECT_EQ(Tqz_dbf_rw::get_mem_list(), nullptr);
    qz_dbf_close(writer);
    EXPECT_FALSE(qz_test::exists(path + ".lk"));
}

TEST_F(Registry, HandlesOnALoadedPathServeTheMemoryTable) {
    Tqz_dbf_memory* mem = qz_dbf_mem_load_w(wpath.c_str());
    ASSERT_NE(mem, nullptr);

    // Whatever the flags, the handle serves the memory table, one holder more.
    Tqz_dbf_rw* h1 = qz_dbf_open(path.c_str(), false, true);
    Tqz_dbf_rw* h2 = qz_dbf_open_w(wpath.c_str(), true, false);
    ASSERT_NE(h1, nullptr);
    ASSERT_NE(h2, nullptr);
    EXPECT_TRUE(qz_dbf_is_buffered(h1));
    EXPECT_TRUE(qz_dbf_is_buffered(h2));
    EXPECT_EQ(mem->get_reference(), 3);
    EXPECT_FALSE(qz_dbf_get_dos_flag(h1)) << "the flags are not handed to the memory table";

    // A writable handle holds an update bracket on the table's notifier.
    Tqz_dbf_notifier* n = mem->get_notifier();
    EXPECT_EQ(qz_dbf_notifier_begin_update(n), 2u);
    qz_dbf_notifier_end_update(n);

    // Changes made through one are seen through the others.
    qz_dbf_mem_add(mem);
    EXPECT_EQ(qz_dbf_get_nr(h1), 3u);
    EXPECT_EQ(qz_dbf_get_nr(h2), 3u);

    // The disk table cannot take the file for writing meanwhile.
    Tqz_dbf_disk disk;
    EXPECT_NE(disk.open(wpath.c_str(), false, false, false), 0);
    EXPECT_EQ(disk.open(wpath.c_str(), true, false, false), 0) << "reading needs no lock";
    disk.close();

    // create on a loaded path makes the memory table anew.
    Tqz_dbf_field f;
    qz_dbf_field_init(&f, "CODE", dbf_ft_char, 4, 0);
    Tqz_dbf_rw* h3 = qz_dbf_create(path.c_str(), 1, 5, &f, true);
    ASSERT_NE(h3, nullptr);
    EXPECT_TRUE(qz_dbf_is_buffered(h3));
    EXPECT_EQ(qz_dbf_mem_get_nr(mem), 5u);
    EXPECT_STREQ(qz_dbf_mem_get_field_name(mem, 0), "CODE");
    EXPECT_EQ(qz_test::read_bytes(path).size(), 32u + 64 + 1 + 2 * 14 + 1)
        << "the file is left as it was";

    qz_dbf_close(h1);
    qz_dbf_close(h2);
    qz_dbf_close(h3);
    EXPECT_EQ(mem->get_reference(), 1);
    EXPECT_EQ(qz_dbf_notifier_begin_update(n), 1u) << "every handle's bracket has closed";
    qz_dbf_notifier_end_update(n);
    EXPECT_TRUE(qz_dbf_mem_free(mem));

    // Once it is gone, the path opens on disk again.
    Tqz_dbf_rw* h4 = qz_dbf_open(path.c_str(), false, false);
    ASSERT_NE(h4, nullptr);
    EXPECT_FALSE(qz_dbf_is_buffered(h4));
    qz_dbf_close(h4);
}

}  // namespace
