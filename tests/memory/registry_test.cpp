// The registry of memory tables and the memory exports: one table per name,
// counted holders, handles opened on a loaded path, and the lock that keeps
// other writers out meanwhile.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "api/table_rw.h"
#include "dbf/disk_table.h"
#include "memory/memory_list.h"
#include "memory/memory_table.h"
#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

using qz_test::exists;

class Registry : public ::testing::Test {
  protected:
    void SetUp() override {
        qz_test::write_bytes(path, qz_test::dbf_bytes(3, {{"NAME", 'C', 8}, {"QTY", 'N', 5}},
                                                      {{"apple", "3"}, {"pear", "12"}}));
        qz_history_manager_clear(qz_history_manager_get_instance());
    }
    void TearDown() override {
        EXPECT_EQ(Tqz_dbf_rw::get_mem_list(), nullptr) << "every table was freed";
        EXPECT_FALSE(exists(path + ".lk"));
    }
    qz_test::Temp_dir dir;
    std::string path = dir.file("t.dbf");
    std::wstring wpath = dir.wfile("t.dbf");
};

// Loads of one name share a table and count holders; names are trimmed, not
// folded or normalised; find never loads; the registry and the lock go with
// the last holder; freed, foreign and null handles get neutral answers.
TEST_F(Registry, OneTablePerNameCountedByItsHolders) {
    EXPECT_EQ(qz_dbf_mem_find_w(wpath.c_str()), nullptr);
    Tqz_dbf_memory* a = qz_dbf_mem_load_w(wpath.c_str());
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(qz_dbf_mem_load(path.c_str()), a);
    EXPECT_TRUE(qz_dbf_mem_exist_w(wpath.c_str()));
    EXPECT_EQ(qz_dbf_mem_find_w((L" \t" + wpath + L"\n").c_str()), a);
    EXPECT_EQ(a->get_reference(), 3) << "asking does not hold";
    EXPECT_FALSE(qz_dbf_mem_exist_w(dir.wfile("T.DBF").c_str()));
    EXPECT_FALSE(qz_dbf_mem_exist_w(dir.wfile("./t.dbf").c_str()));
    EXPECT_TRUE(qz_dbf_mem_free(a) && qz_dbf_mem_free(a));
    EXPECT_EQ(qz_dbf_mem_get_nr(a), 2u) << "one holder left";
    EXPECT_TRUE(exists(path + ".lk"));
    EXPECT_TRUE(qz_dbf_mem_free(a));

    EXPECT_FALSE(qz_dbf_mem_free(a));
    int not_a_table = 0;
    EXPECT_FALSE(qz_dbf_mem_free(reinterpret_cast<Tqz_dbf_memory*>(&not_a_table)));
    EXPECT_EQ(qz_dbf_mem_get_nf(a), 0u);
    EXPECT_EQ(qz_dbf_mem_get_field_name(nullptr, 0), nullptr);
    EXPECT_FALSE(qz_dbf_mem_save(a));
    EXPECT_TRUE(qz_dbf_mem_add(a)) << "add answers true whatever happens";
    EXPECT_EQ(qz_dbf_mem_find_fld_index(a, L"NAME"), 0xFFFFFFFFu);
    EXPECT_EQ(qz_dbf_mem_load_w(dir.wfile("missing.dbf").c_str()), nullptr);
    EXPECT_EQ(qz_dbf_mem_load(nullptr), nullptr);
}

// A made table writes nothing and holds no lock before its save and keeps
// no history; a loaded one does. Freeing one table leaves the other.
TEST_F(Registry, CreatedTablesKeepNoHistoryLoadedOnesDo) {
    Tqz_dbf_memory* made = qz_dbf_mem_create_w(dir.wfile("new.dbf").c_str(), 0, nullptr);
    ASSERT_NE(made, nullptr);
    EXPECT_FALSE(exists(dir.file("new.dbf")) || exists(dir.file("new.dbf.lk")));
    qz_dbf_mem_add(made);
    EXPECT_FALSE(qz_history_manager_can_undo(qz_history_manager_get_instance()));
    EXPECT_FALSE(qz_dbf_mem_save_as_w(made, dir.wfile("no/such.dbf").c_str()));
    EXPECT_TRUE(qz_dbf_mem_save(made));
    EXPECT_EQ(qz_test::read_bytes(dir.file("new.dbf")).size(), 32u + 32 + 1 + 11 + 1);
    EXPECT_EQ(qz_dbf_mem_create(dir.file("new.dbf").c_str(), 0, nullptr), made);

    Tqz_dbf_memory* loaded = qz_dbf_mem_load_w(wpath.c_str());
    ASSERT_NE(loaded, nullptr);
    qz_dbf_mem_del(loaded, 0);
    EXPECT_TRUE(qz_history_manager_undo(qz_history_manager_get_instance()));
    EXPECT_EQ(qz_dbf_mem_get_nr(loaded), 2u);
    EXPECT_TRUE(qz_dbf_mem_free(made) && qz_dbf_mem_free(made));
    EXPECT_EQ(Tqz_dbf_rw::get_mem_list()->get_size(), 1u);
    EXPECT_TRUE(qz_dbf_mem_free(loaded));
}

// While a writer holds the lock the table cannot be loaded. Once loaded,
// handles on its path serve the memory table whatever their flags (a
// writable one holding an update bracket), the disk table cannot open it
// for writing, create makes the memory table anew and leaves the file; when
// the table is gone the path opens on disk again.
TEST_F(Registry, HandlesOnALoadedPathServeTheMemoryTable) {
    Tqz_dbf_rw* writer = qz_dbf_open(path.c_str(), false, false);
    ASSERT_NE(writer, nullptr);
    EXPECT_FALSE(qz_dbf_is_buffered(writer));
    EXPECT_EQ(qz_dbf_mem_load(path.c_str()), nullptr);
    EXPECT_EQ(Tqz_dbf_rw::get_mem_list(), nullptr);
    qz_dbf_close(writer);

    Tqz_dbf_memory* mem = qz_dbf_mem_load_w(wpath.c_str());
    ASSERT_NE(mem, nullptr);
    Tqz_dbf_rw* h1 = qz_dbf_open(path.c_str(), false, true);
    Tqz_dbf_rw* h2 = qz_dbf_open_w(wpath.c_str(), true, false);
    ASSERT_TRUE(h1 && h2);
    EXPECT_TRUE(qz_dbf_is_buffered(h1) && qz_dbf_is_buffered(h2));
    EXPECT_EQ(mem->get_reference(), 3);
    EXPECT_FALSE(qz_dbf_get_dos_flag(h1)) << "the flags are not handed to the memory table";
    Tqz_dbf_notifier* n = mem->get_notifier();
    EXPECT_EQ(qz_dbf_notifier_begin_update(n), 2u);
    qz_dbf_notifier_end_update(n);
    qz_dbf_mem_add(mem);
    EXPECT_EQ(qz_dbf_get_nr(h2), 3u);
    Tqz_dbf_disk disk;
    EXPECT_NE(disk.open(wpath.c_str(), false, false, false), 0);
    EXPECT_EQ(disk.open(wpath.c_str(), true, false, false), 0) << "reading needs no lock";
    disk.close();

    Tqz_dbf_field f;
    qz_dbf_field_init(&f, "CODE", dbf_ft_char, 4, 0);
    Tqz_dbf_rw* h3 = qz_dbf_create(path.c_str(), 1, 5, &f, true);
    ASSERT_NE(h3, nullptr);
    EXPECT_TRUE(qz_dbf_is_buffered(h3));
    EXPECT_EQ(qz_dbf_mem_get_nr(mem), 5u);
    EXPECT_STREQ(qz_dbf_mem_get_field_name(mem, 0), "CODE");
    EXPECT_EQ(qz_test::read_bytes(path).size(), 32u + 64 + 1 + 2 * 14 + 1);
    for (Tqz_dbf_rw* h : {h1, h2, h3}) qz_dbf_close(h);
    EXPECT_EQ(qz_dbf_notifier_begin_update(n), 1u) << "every handle's bracket has closed";
    qz_dbf_notifier_end_update(n);
    EXPECT_TRUE(qz_dbf_mem_free(mem));
    Tqz_dbf_rw* h4 = qz_dbf_open(path.c_str(), false, false);
    ASSERT_NE(h4, nullptr);
    EXPECT_FALSE(qz_dbf_is_buffered(h4));
    qz_dbf_close(h4);
}

// A Visual FoxPro table keeps its 263-byte back link through a load, a
// change and a save: the header length still says where the records start,
// every other byte of the records is the file's, and dbfread reads the
// saved table as the original but for the changed cell.
TEST(MemorySave, VisualFoxProKeepsItsBackLinkAndHeaderLength) {
    qz_test::Temp_dir dir;
    const std::string path = qz_test::copy_with_companions(
        std::string(QZ_CORPUS_DIR) + "/ruby-dbf/foxprodb/contacts.dbf", dir.path());
    const std::vector<uint8_t> before = qz_test::read_bytes(path);
    ASSERT_EQ(before[0], 0x30);
    Tqz_dbf_memory* mem = qz_dbf_mem_load(path.c_str());
    ASSERT_NE(mem, nullptr) << qz_dbf_last_error_message();
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), false, false);
    ASSERT_NE(t, nullptr);
    const unsigned first = qz_dbf_find_field_index_w(t, L"FIRST_NAME");
    const std::string text = "Mia";
    const Tqz_dbf_value v{QZ_DBF_VALUE_TEXT, 0, 0.0, text.c_str(), text.size()};
    ASSERT_TRUE(qz_dbf_set_value(t, first, 1, &v)) << qz_dbf_last_error_message();
    const unsigned nf = qz_dbf_get_nf(t);
    unsigned at = 1;  // after the deletion flag, the lengths before the field
    for (unsigned k = 0; k < first; ++k) at += before[32 + 32 * k + 16];
    qz_dbf_close(t);
    ASSERT_TRUE(qz_dbf_mem_save(mem)) << qz_dbf_last_error_message();
    EXPECT_TRUE(qz_dbf_mem_free(mem));

    std::vector<uint8_t> after = qz_test::read_bytes(path);
    const unsigned hl = qz_test::u16_at(after, 8), rl = qz_test::u16_at(after, 10);
    EXPECT_EQ(hl, 32u + 32 * nf + 1 + 263);
    EXPECT_EQ(hl, qz_test::u16_at(before, 8));
    ASSERT_EQ(after.size(), before.size());
    EXPECT_EQ(after[32 + 32 * nf], 0x0D);
    std::vector<uint8_t> expected = before;
    const size_t cell = hl + rl + at;
    std::memcpy(expected.data() + cell, "Mia", 3);
    std::memset(expected.data() + cell + 3, ' ', 47);
    for (size_t k : {1, 2, 3}) after[k] = before[k];  // the date of the save
    size_t differs = 0;
    while (differs < after.size() && after[differs] == expected[differs]) ++differs;
    EXPECT_EQ(differs, after.size()) << "the first byte that differs";

    t = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
    ASSERT_NE(t, nullptr);
    char got[64];
    EXPECT_EQ(qz_dbf_get_cell_utf8(t, first, 1, got, sizeof got), 3);
    EXPECT_STREQ(got, "Mia");
    qz_dbf_close(t);
    if (!qz_test::have_dbfread()) GTEST_SKIP() << "python3-dbfread is not installed";
    qz_test::Temp_dir untouched;
    const std::string original = qz_test::copy_with_companions(
        std::string(QZ_CORPUS_DIR) + "/ruby-dbf/foxprodb/contacts.dbf", untouched.path());
    std::string report;
    EXPECT_EQ(qz_test::run("/usr/bin/python3 -c \"import dbfread, sys\n"
                           "a = list(dbfread.DBF(sys.argv[1], load=True))\n"
                           "b = list(dbfread.DBF(sys.argv[2], load=True))\n"
                           "a[1]['FIRST_NAME'] = 'Mia'\n"
                           "sys.exit(0 if a == b else 1)\" '" +
                               original + "' '" + path + "' 2>&1",
                           &report),
              0)
        << report;
}

}  // namespace
