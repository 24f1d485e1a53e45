// The memory table's operations through the history manager: each change
// undone to the same bytes, text padded; tables without a manager, and
// reload.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "memory/memory_table.h"
#include "memory/records.h"
#include "memory_files.h"
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

}  // namespace
