// Memory tables: the core (structure loaded, raw cells, saving, the lock
// held while loaded), the undoable operations through the history manager,
// and the registry with its exports and the handles opened on a loaded path.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "api/table_rw.h"
#include "dbf/disk_table.h"
#include "memory/history_item.h"
#include "memory/memory_core.h"
#include "memory/memory_list.h"
#include "memory/memory_table.h"
#include "memory/records.h"
#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

using qz_test::exists;
using qz_test::read_bytes;
using qz_test::Temp_dir;

// Cells load as the file holds them (deleted records too), offsets come
// from the lengths whatever the descriptors say, and a save gives the same
// bytes but for the date and the offsets. A file shorter than its header
// says loads the records there, the last one completed with spaces.
TEST(MemoryCore, LoadReadsFieldsAndRecordsAsTheFileHoldsThem) {
    Temp_dir dir;
    std::vector<uint8_t> file =
        qz_test::dbf_bytes(3, {{"NAME", 'C', 6, 0}, {"QTY", 'N', 4, 0}},
                           {{"apple", "12"}, {"pear", "7"}, {"fig", "100"}});
    file[97 + 11] = '*';
    for (size_t at : {44, 45, 46, 47, 76, 77, 78, 79}) file[at] = 0xEE;
    qz_test::write_bytes(dir.file("t.dbf"), file);
    Tqz_dbf_memory_core t;
    t.set_filename(dir.wfile("t.dbf").c_str());
    ASSERT_TRUE(t.load());
    EXPECT_EQ(t.get_nf(), 2u);
    EXPECT_EQ(t.get_nr(), 3u);
    EXPECT_STREQ(t.get_string(0, 2), "fig   ");
    EXPECT_STREQ(t.get_string(1, 0), "12  ");
    EXPECT_EQ(t.get_records()->get_ptr(1)[0], '*');
    ASSERT_TRUE(t.save(dir.file("copy.dbf").c_str()));
    std::vector<uint8_t> saved = read_bytes(dir.file("copy.dbf"));
    ASSERT_EQ(saved.size(), file.size());
    EXPECT_EQ(saved[44], 1);
    EXPECT_EQ(saved[76], 7) << "the second field starts at 7";
    for (size_t at : {1, 2, 3, 44, 45, 46, 47, 76, 77, 78, 79}) saved[at] = file[at];
    EXPECT_EQ(saved, file);

    file.resize(file.size() - 1 - 8);  // no 0x1A, and 8 bytes of "fig" gone
    file[4] = file[5] = file[6] = 0x7F;
    qz_test::write_bytes(dir.file("short.dbf"), file);
    Tqz_dbf_memory_core s;
    s.set_filename(dir.wfile("short.dbf").c_str());
    ASSERT_TRUE(s.load());
    EXPECT_EQ(s.get_nr(), 3u);
    EXPECT_STREQ(s.get_string(0, 2), "fi    ");
    EXPECT_STREQ(s.get_string(1, 2), "    ");
}

// A loaded table holds "<file>.lk": a second load fails and leaves it; a
// reload releases and takes it again; it goes with its holder.
TEST(MemoryCore, TheLockKeepsASecondLoadOutAndGoesWithItsHolder) {
    Temp_dir dir;
    qz_test::write_bytes(dir.file("t.dbf"), qz_test::dbf_bytes(3, {{"A", 'C', 1, 0}}, {{"x"}}));
    const std::string lock = dir.file("t.dbf.lk");
    auto* first = new Tqz_dbf_memory_core();
    Tqz_dbf_memory_core second;
    first->set_filename(dir.wfile("t.dbf").c_str());
    second.set_filename(dir.wfile("t.dbf").c_str());
    ASSERT_TRUE(first->load());
    EXPECT_TRUE(exists(lock));
    EXPECT_FALSE(second.load());
    second.close();
    EXPECT_TRUE(exists(lock)) << "a load that failed leaves the holder's lock alone";
    EXPECT_TRUE(first->load());
    EXPECT_TRUE(first->holds_lock());
    delete first;
    EXPECT_FALSE(exists(lock));
    EXPECT_TRUE(second.load());
    second.close();
    EXPECT_FALSE(exists(lock));
    EXPECT_EQ(second.get_nr(), 1u) << "the records stay after close";
}

// Header image and every record's bytes.
std::string snapshot(Tqz_dbf_memory& t) {
    std::string s(reinterpret_cast<const char*>(t.get_header()), 32);
    for (unsigned int i = 0; i < t.get_records()->get_size(); ++i)
        s += "|" + std::string(reinterpret_cast<const char*>(t.get_records()->get_ptr(i)),
                               t.get_records()->get_length());
    return s;
}

class MemoryHistory : public ::testing::Test {
  protected:
    void SetUp() override {
        qz_history_manager_clear(m);
        Tqz_dbf_field fields[] = {{"NAME", 'C', 5, 0}, {"I", 'I', 4, 0}, {"B", 'B', 8, 0}};
        ASSERT_TRUE(t->create_new(3, 4, fields, false));
        for (int r = 0; r < 4; ++r) t->set_string(0, r, ("row" + std::to_string(r)).c_str());
        qz_history_manager_clear(m);  // the setup is not part of the test
    }
    void TearDown() override {
        delete t;
        EXPECT_EQ(qz_history_manager_get_step_count(m), 0u) << "the table's items went with it";
        EXPECT_EQ(Tqz_history_item_adapter_base::get_live_count(), 0);
    }
    std::string cell(int f, int r) { return t->get_string(f, r); }
    Iqz_history_manager* m = qz_history_manager_get_instance();
    Tqz_dbf_memory* t = new Tqz_dbf_memory();
};

// Undo of del puts the record back at its index, deletion flag and all; an
// insert past the end is an append, undone alike (the random test below
// does the rest past the end); when
// the index of an undone delete has gone, the record comes back at the end.
TEST_F(MemoryHistory, RecordOperationsAtTheEdges) {
    t->get_records()->get_ptr(2)[0] = '*';
    const std::string before = snapshot(*t);
    t->del(2);
    EXPECT_EQ(cell(0, 2), "row3 ");
    qz_history_manager_undo(m);
    EXPECT_EQ(snapshot(*t), before);
    t->del(4);  // just past the last record: nothing changes
    EXPECT_EQ(snapshot(*t), before);
    t->ins(100);
    EXPECT_EQ(cell(0, 4), "     ");
    qz_history_manager_undo(m);
    EXPECT_EQ(snapshot(*t), before);
    t->del(3);
    t->Tqz_dbf_memory_core::del(0);
    EXPECT_TRUE(qz_history_manager_undo(m));
    EXPECT_EQ(t->get_nr(), 3u);
    EXPECT_EQ(cell(0, 2), "row3 ");
}

// A raw double written at a 4-byte field reaches into the next field; its
// undo gives back every byte it wrote.
TEST_F(MemoryHistory, UndoOfARawDoubleGivesBackEveryByteItWrote) {
    t->set_double(2, 1, 2.5);
    const std::string before = snapshot(*t);
    t->set_double(1, 1, -1.0);
    EXPECT_NE(snapshot(*t), before);
    qz_history_manager_undo(m);
    EXPECT_EQ(snapshot(*t), before);
}

// The core's own write leaves zero bytes after a short text; the history's
// writes pad with spaces, both ways. Undoing changes of cells that have
// gone (the table was made anew) stays inside the table.
TEST_F(MemoryHistory, TextThroughTheHistoryIsSpacePadded) {
    t->Tqz_dbf_memory_core::set_string(0, 0, "AB");
    EXPECT_EQ(cell(0, 0), "AB");
    t->set_string(0, 0, "XY");
    EXPECT_EQ(cell(0, 0), "XY   ");
    qz_history_manager_undo(m);
    EXPECT_EQ(cell(0, 0), "AB   ");
    qz_history_manager_redo(m);
    t->set_string(0, 0, "TOOLONGTEXT");
    EXPECT_EQ(cell(0, 0), "TOOLO");
    t->set_string(0, 0, nullptr);
    EXPECT_EQ(cell(0, 0), "     ");
    qz_history_manager_undo(m);
    EXPECT_EQ(cell(0, 0), "TOOLO");
    Tqz_dbf_field one[] = {{"A", 'C', 1, 0}};
    t->create_new(1, 0, one, false);
    qz_history_manager_undo(m);
    qz_history_manager_undo(m);
    qz_history_manager_redo(m);
    EXPECT_EQ(t->get_nr(), 0u);
}

// Without a manager changes happen at once (a table made while the history
// is disabled: the random test below).
TEST(MemoryTable, WithoutAManagerChangesHappenAtOnce) {
    Tqz_dbf_memory t(nullptr);
    EXPECT_TRUE(t.get_history_manager() == nullptr && t.get_history_handle() == nullptr);
    ASSERT_TRUE(t.init());
    t.add();
    t.set_string(0, 0, "7");
    EXPECT_EQ(std::string(t.get_string(0, 0)), "7         ");
}

// Thousands of random changes through the exports on a loaded table and,
// alike, on one loaded without history: undoing them all gives the table as
// loaded byte for byte, redoing them all the table changed without history.
// Every history item is erased once; freeing the table takes its steps.
TEST(MemoryRandom, UndoAllGivesTheLoadedTableRedoAllTheChangedOne) {
    qz_test::Temp_dir dir;
    const std::string orig = dir.file("orig.dbf"), copy = dir.file("plain.dbf");
    Tqz_dbf_field f[] = {{"NAME", 'C', 12, 0}, {"QTY", 'N', 8, 0},  {"PRICE", 'N', 10, 2},
                         {"CODE", 'I', 4, 0},  {"RATE", 'B', 8, 0}, {"DAY", 'D', 8, 0}};
    Tqz_dbf_rw* d = qz_dbf_create(orig.c_str(), 6, 100, f, false);
    ASSERT_NE(d, nullptr);
    for (unsigned r = 0; r < 100; ++r) {
        qz_dbf_set_str(d, 0, r, ("item " + std::to_string(r)).c_str());
        for (unsigned k = 1; k < 5; ++k) qz_dbf_set_dbl(d, k, r, r * 1.25 - 50);
        qz_dbf_set_str(d, 5, r, "20240601");
    }
    qz_dbf_close(d);
    qz_test::write_bytes(copy, qz_test::read_bytes(orig));
    Iqz_history_manager* m = qz_history_manager_get_instance();
    const unsigned limit = qz_history_manager_get_limit(m);
    qz_history_manager_clear(m);
    qz_history_manager_set_limit(m, 10000);
    Tqz_dbf_memory* t = qz_dbf_mem_load(orig.c_str());
    qz_history_manager_set_enabled(false);
    Tqz_dbf_memory* plain = qz_dbf_mem_load(copy.c_str());
    qz_history_manager_set_enabled(true);
    ASSERT_TRUE(t && plain);
    int saves = 0;
    auto saved = [&](Tqz_dbf_memory* h) {
        const std::string to = dir.file(std::to_string(++saves) + ".dbf");
        EXPECT_TRUE(qz_dbf_mem_save_as(h, to.c_str()));
        return qz_test::read_bytes(to);
    };
    const std::vector<uint8_t> as_loaded = saved(t);

    std::mt19937 rng(20240601);
    unsigned steps = 0;
    for (int k = 0; k < 3000; ++k) {
        // Records mostly inside the table, now and then past its end, where
        // a write is refused and makes no step.
        const unsigned nr = qz_dbf_mem_get_nr(t), roll = rng() % 100, field = rng() % 6;
        const unsigned r = nr == 0 || rng() % 50 == 0 ? nr + rng() % 3 : rng() % nr;
        const double real = (static_cast<double>(rng() % 2000001) - 1000000) / 64;
        const std::string text = (field == 0 ? "n " : "") + std::to_string(int(real) % 100000);
        steps += roll < 18 || r < nr;
        for (Tqz_dbf_memory* h : {t, plain}) {
            if (roll < 6)
                qz_dbf_mem_add(h);
            else if (roll < 12)
                qz_dbf_mem_ins(h, r);
            else if (roll < 18)
                qz_dbf_mem_del(h, r);
            else if (roll < 50)
                qz_dbf_mem_set_str(h, field, r, text.c_str());
            else if (roll < 75)
                qz_dbf_mem_set_int(h, field % 5, r, static_cast<int>(real));
            else
                qz_dbf_mem_set_dbl(h, field % 5, r, real);
        }
    }
    EXPECT_GT(steps, 2500u);
    EXPECT_EQ(qz_history_manager_get_step_count(m), steps);
    EXPECT_EQ(Tqz_history_item_adapter_base::get_live_count(), static_cast<long>(steps));
    const std::vector<uint8_t> changed = saved(plain);
    EXPECT_EQ(saved(t), changed) << "with and without history alike";
    unsigned undone = 0, redone = 0;
    while (qz_history_manager_undo(m)) ++undone;
    EXPECT_EQ(saved(t), as_loaded) << "every change undone";
    while (qz_history_manager_redo(m)) ++redone;
    EXPECT_EQ(saved(t), changed) << "every change redone";
    EXPECT_EQ(undone, steps);
    EXPECT_EQ(redone, steps);
    EXPECT_TRUE(qz_dbf_mem_free(t) && qz_dbf_mem_free(plain));
    EXPECT_EQ(qz_history_manager_get_step_count(m), 0u) << "the table's steps went with it";
    EXPECT_EQ(Tqz_history_item_adapter_base::get_live_count(), 0);
    qz_history_manager_set_limit(m, limit);
}

class Registry : public ::testing::Test {
  protected:
    void SetUp() override {
        qz_test::write_bytes(path, qz_test::dbf_bytes(3, {{"NAME", 'C', 8, 0}, {"QTY", 'N', 5, 0}},
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
// change and a save: the saved file is the original byte for byte but for
// the changed cell and the date of the save.
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
    const Tqz_dbf_value v{QZ_DBF_VALUE_TEXT, 0, 0.0, "Mia", 3};
    ASSERT_TRUE(qz_dbf_set_value(t, first, 1, &v)) << qz_dbf_last_error_message();
    size_t cell = qz_test::u16_at(before, 8) + qz_test::u16_at(before, 10) + 1;
    for (unsigned k = 0; k < first; ++k) cell += before[32 + 32 * k + 16];
    qz_dbf_close(t);
    ASSERT_TRUE(qz_dbf_mem_save(mem)) << qz_dbf_last_error_message();
    EXPECT_TRUE(qz_dbf_mem_free(mem));

    std::vector<uint8_t> after = qz_test::read_bytes(path), expected = before;
    ASSERT_EQ(after.size(), before.size());
    std::memcpy(expected.data() + cell, "Mia", 3);
    std::memset(expected.data() + cell + 3, ' ', 47);
    for (size_t k : {1, 2, 3}) after[k] = before[k];  // the date of the save
    size_t differs = 0;
    while (differs < after.size() && after[differs] == expected[differs]) ++differs;
    EXPECT_EQ(differs, after.size()) << "the first byte that differs";
}

}  // namespace
