// The memory table's operations through the history manager: each change
// undone and redone to the same bytes, record counts kept in step, and one
// update of the table per undo or redo run.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "memory/memory_table.h"
#include "memory/records.h"
#include "memory_files.h"
#include "notify/dbf_notifier.h"
#include "test_support.h"

namespace {

using memory_test::field;

// Header image and every record's bytes.
std::string snapshot(Tqz_dbf_memory& t) {
    std::string s(reinterpret_cast<const char*>(t.get_header()), 32);
    s += "|nf=" + std::to_string(t.get_nf());
    Tqz_dbf_records* r = t.get_records();
    for (unsigned int i = 0; i < r->get_size(); ++i)
        s += "|" + std::string(reinterpret_cast<const char*>(r->get_ptr(i)), r->get_length());
    return s;
}

std::string cell(Tqz_dbf_memory& t, int f, int r) {
    return t.get_string(f, r);
}

class MemoryHistory : public ::testing::Test {
  protected:
    void SetUp() override {
        m = qz_history_manager_get_instance();
        ASSERT_NE(m, nullptr);
        qz_history_manager_clear(m);
        qz_history_manager_set_limit(m, 1000);
        t = new Tqz_dbf_memory();
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
    Iqz_history_manager* m = nullptr;
    Tqz_dbf_memory* t = nullptr;
};

TEST_F(MemoryHistory, RecordOperationsAtTheEdges) {
    // Undo of del puts the record back at its index, deletion flag and all.
    t->get_records()->get_ptr(2)[0] = '*';
    const std::string before = snapshot(*t);
    t->del(2);
    EXPECT_EQ(cell(*t, 0, 2), "row3 ");
    qz_history_manager_undo(m);
    EXPECT_EQ(snapshot(*t), before);

    // A delete past the end changes nothing, nor does its undo.
    t->del(10);
    EXPECT_EQ(snapshot(*t), before);
    qz_history_manager_undo(m);
    EXPECT_EQ(snapshot(*t), before);

    // An insert past the end appends, and its undo removes that record.
    t->ins(100);
    EXPECT_EQ(t->get_nr(), 5u);
    EXPECT_EQ(cell(*t, 0, 4), "     ");
    qz_history_manager_undo(m);
    EXPECT_EQ(snapshot(*t), before);

    // When the index of an undone delete has gone (records went without
    // the history), the record comes back at the end.
    t->del(3);
    t->Tqz_dbf_memory_core::del(0);
    EXPECT_EQ(t->get_nr(), 2u);
    EXPECT_TRUE(qz_history_manager_undo(m));
    EXPECT_EQ(t->get_nr(), 3u);
    EXPECT_EQ(cell(*t, 0, 2), "row3 ");
}

TEST_F(MemoryHistory, TextThroughTheHistoryIsSpacePadded) {
    // The core's own write leaves zero bytes after a short text...
    t->Tqz_dbf_memory_core::set_string(0, 0, "AB");
    EXPECT_EQ(std::string(t->get_string(0, 0)), "AB");
    // ...the history's writes pad with spaces, in both directions.
    t->set_string(0, 0, "XY");
    EXPECT_EQ(cell(*t, 0, 0), "XY   ");
    qz_history_manager_undo(m);
    EXPECT_EQ(cell(*t, 0, 0), "AB   ");
    qz_history_manager_redo(m);
    t->set_string(0, 0, "TOOLONGTEXT");
    EXPECT_EQ(cell(*t, 0, 0), "TOOLO");
    t->set_string(0, 0, nullptr);
    EXPECT_EQ(cell(*t, 0, 0), "     ");
    qz_history_manager_undo(m);
    EXPECT_EQ(cell(*t, 0, 0), "TOOLO");

    // A change of a cell that has gone since (the table was made anew)
    // neither writes nor reads out of bounds when it is undone.
    Tqz_dbf_field one[] = {field("A", 'C', 1)};
    t->create_new(1, 0, one, false);
    qz_history_manager_undo(m);
    qz_history_manager_undo(m);
    qz_history_manager_redo(m);
    EXPECT_EQ(t->get_nr(), 0u);
}

TEST_F(MemoryHistory, AnUndoRunIsOneUpdateOfTheTable) {
    Tqz_dbf_notifier* n = t->get_notifier();
    ASSERT_NE(n, nullptr);
    std::vector<int> kinds;
    std::vector<int> counts;
    auto client = [](Tqz_table* ev, void* user) {
        auto* log = static_cast<std::pair<std::vector<int>*, std::vector<int>*>*>(user);
        log->first->push_back(qz_event_kind(ev));
        const Tqz_any* c = table_get(ev, "count");
        log->second->push_back(c ? any_get_integer(c) : 0);
    };
    std::pair<std::vector<int>*, std::vector<int>*> log{&kinds, &counts};
    Iqz_event_channel* ch = n->get_update_event_channel();
    qz_event_channel_add_client(ch, client, &log);

    qz_history_manager_begin_update(m);
    t->set_string(0, 0, "a");
    t->add();
    t->set_integer(1, 4, 5);
    qz_history_manager_end_update(m);
    kinds.clear();
    counts.clear();
    ASSERT_TRUE(qz_history_manager_undo(m));
    EXPECT_EQ(kinds,
              (std::vector<int>{QZ_EVENT_BEGIN_UPDATE, QZ_EVENT_UPDATE, QZ_EVENT_END_UPDATE}));
    EXPECT_EQ(counts[1], 3) << "the three changes, merged";
    qz_event_channel_del_client(ch, client, &log);
}

TEST(MemoryTable, WithoutAManagerChangesHappenAtOnce) {
    Tqz_dbf_memory t(nullptr);
    EXPECT_EQ(t.get_history_handle(), nullptr);
    ASSERT_TRUE(t.init());
    t.add();
    t.ins(0);
    t.set_string(0, 1, "7");
    t.del(0);
    EXPECT_EQ(t.get_nr(), 1u);
    EXPECT_EQ(std::string(t.get_string(0, 0)), "7         ");
    EXPECT_EQ(Tqz_history_item_adapter_base::get_live_count(), 0);

    // A disabled manager gives tables made meanwhile no history either.
    qz_history_manager_set_enabled(false);
    Tqz_dbf_memory u;
    qz_history_manager_set_enabled(true);
    EXPECT_EQ(u.get_history_manager(), nullptr);
    EXPECT_EQ(u.get_history_handle(), nullptr);
}

TEST(MemoryTable, ReloadReadsTheFileAndForgetsTheHistory) {
    qz_test::Temp_dir dir;
    Iqz_history_manager* m = qz_history_manager_get_instance();
    qz_history_manager_clear(m);
    {
        Tqz_dbf_memory t;
        ASSERT_TRUE(t.init());
        t.add();
        ASSERT_TRUE(t.save(dir.wfile("r.dbf").c_str()));
        t.set_filename(dir.wfile("r.dbf").c_str());
        ASSERT_TRUE(t.load());
        t.add();
        t.set_string(0, 0, "1");
        EXPECT_EQ(t.get_nr(), 2u);
        EXPECT_TRUE(qz_history_manager_can_undo(m));
        EXPECT_TRUE(t.reload());
        EXPECT_EQ(t.get_nr(), 1u);
        EXPECT_FALSE(qz_history_manager_can_undo(m));
        EXPECT_NE(t.get_history_handle(), nullptr) << "a new history for what comes next";

        // A file that has gone: the one-field table, and false.
        t.close();
        std::remove(dir.file("r.dbf").c_str());
        EXPECT_FALSE(t.reload());
        EXPECT_EQ(t.get_nf(), 1u);
        EXPECT_STREQ(t.get_field_name(0), "ID");
        EXPECT_EQ(t.get_nr(), 0u);
    }
    EXPECT_EQ(qz_history_manager_get_step_count(m), 0u);
}

}  // namespace
