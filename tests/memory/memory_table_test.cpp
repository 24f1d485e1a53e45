// The memory table's operations through the history manager: each change
// undone to the same bytes, text padded; tables without a manager, and
// reload.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "memory/history_item.h"
#include "memory/memory_table.h"
#include "memory/records.h"
#include "memory_files.h"
#include "qzk_file_dbf.h"
#include "test_support.h"

namespace {

using memory_test::field;

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
        Tqz_dbf_field fields[] = {field("NAME", 'C', 5), field("I", 'I', 4), field("B", 'B', 8)};
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

// Undo of del puts the record back at its index, deletion flag and all; a
// delete or insert past the end is a no-op or an append, undone alike; when
// the index of an undone delete has gone, the record comes back at the end.
TEST_F(MemoryHistory, RecordOperationsAtTheEdges) {
    t->get_records()->get_ptr(2)[0] = '*';
    const std::string before = snapshot(*t);
    t->del(2);
    EXPECT_EQ(cell(0, 2), "row3 ");
    qz_history_manager_undo(m);
    EXPECT_EQ(snapshot(*t), before);
    t->del(10);
    EXPECT_EQ(snapshot(*t), before);
    qz_history_manager_undo(m);
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
    Tqz_dbf_field one[] = {field("A", 'C', 1)};
    t->create_new(1, 0, one, false);
    qz_history_manager_undo(m);
    qz_history_manager_undo(m);
    qz_history_manager_redo(m);
    EXPECT_EQ(t->get_nr(), 0u);
}

// Without a manager (none given, or disabled when the table was made)
// changes happen at once.
TEST(MemoryTable, WithoutAManagerChangesHappenAtOnce) {
    Tqz_dbf_memory t(nullptr);
    EXPECT_EQ(t.get_history_handle(), nullptr);
    ASSERT_TRUE(t.init());
    t.add();
    t.set_string(0, 0, "7");
    EXPECT_EQ(std::string(t.get_string(0, 0)), "7         ");
    qz_history_manager_set_enabled(false);
    Tqz_dbf_memory u;
    qz_history_manager_set_enabled(true);
    EXPECT_EQ(u.get_history_manager(), nullptr);
    EXPECT_EQ(u.get_history_handle(), nullptr);
}

// Thousands of random changes through the exports on a loaded table and,
// alike, on one loaded without history: undoing them all gives the table as
// loaded byte for byte, redoing them all the table changed without history.
// Every history item is erased once; freeing the table takes its steps.
TEST(MemoryRandom, UndoAllGivesTheLoadedTableRedoAllTheChangedOne) {
    qz_test::Temp_dir dir;
    const std::string orig = dir.file("orig.dbf"), copy = dir.file("plain.dbf");
    Tqz_dbf_field f[6];
    qz_dbf_field_init(&f[0], "NAME", dbf_ft_char, 12, 0);
    qz_dbf_field_init(&f[1], "QTY", dbf_ft_numeric, 8, 0);
    qz_dbf_field_init(&f[2], "PRICE", dbf_ft_numeric, 10, 2);
    qz_dbf_field_init(&f[3], "CODE", dbf_ft_integer, 4, 0);
    qz_dbf_field_init(&f[4], "RATE", dbf_ft_double, 8, 0);
    qz_dbf_field_init(&f[5], "DAY", dbf_ft_date, 8, 0);
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

}  // namespace
