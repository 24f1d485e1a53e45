// The history manager: one timeline over all histories, grouping, the step
// limit, and every item erased exactly once, also when callbacks call back
// into the manager.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "qzk_basic.h"

namespace {

// What the callbacks did, in order: "+3" redo of item 3, "-3" its undo,
// "x3" its erase, "[A" / "]A" the begin and end of history A.
struct Journal {
    std::vector<std::string> log;
    std::map<int, int> erased;
    int live = 0;
    std::string text() const {
        std::string s;
        for (const auto& e : log) s += (s.empty() ? "" : " ") + e;
        return s;
    }
};

struct Item {
    Journal* journal;
    int id;
};

void redo_item(void* p) {
    auto* it = static_cast<Item*>(p);
    it->journal->log.push_back("+" + std::to_string(it->id));
}
void undo_item(void* p) {
    auto* it = static_cast<Item*>(p);
    it->journal->log.push_back("-" + std::to_string(it->id));
}
void erase_item(void* p) {
    auto* it = static_cast<Item*>(p);
    it->journal->erased[it->id]++;
    it->journal->live--;
    delete it;
}

struct Client {
    Journal* journal;
    std::string name;
    void* history = nullptr;
};
void begin_client(void* w) {
    auto* c = static_cast<Client*>(w);
    c->journal->log.push_back("[" + c->name);
}
void end_client(void* w) {
    auto* c = static_cast<Client*>(w);
    c->journal->log.push_back("]" + c->name);
}

class History : public ::testing::Test {
  protected:
    void SetUp() override {
        m = qz_history_manager_get_instance();
        ASSERT_NE(m, nullptr);
        qz_history_manager_clear(m);
        qz_history_manager_set_limit(m, 1000);
    }
    void TearDown() override {
        for (Client* c : clients) {
            qz_history_destroy(c->history);
            delete c;
        }
        // Every item made was erased, and exactly once.
        EXPECT_EQ(j.live, 0);
        for (const auto& [id, n] : j.erased) EXPECT_EQ(n, 1) << "item " << id;
        EXPECT_EQ(qz_history_manager_get_step_count(m), 0u);
        qz_history_manager_set_limit(m, 1000);
    }
    Client* client(const std::string& name) {
        auto* c = new Client{&j, name};
        c->history = qz_history_manager_create_history(m, begin_client, end_client, c);
        clients.push_back(c);
        return c;
    }
    void add(Client* c, int id) {
        j.live++;
        qz_history_add_item(c->history, redo_item, undo_item, erase_item, new Item{&j, id});
    }
    std::string take_log() {
        std::string s = j.text();
        j.log.clear();
        return s;
    }

    Iqz_history_manager* m = nullptr;
    Journal j;
    std::vector<Client*> clients;
};

TEST_F(History, OneTimelineOverTwoHistoriesWithRedoTailErased) {
    Client* a = client("A");
    Client* b = client("B");
    EXPECT_EQ(qz_history_manager_get_limit(m), 1000u);
    EXPECT_FALSE(qz_history_manager_can_undo(m));
    EXPECT_FALSE(qz_history_manager_undo(m));
    add(a, 1);
    add(b, 2);
    add(a, 3);
    EXPECT_EQ(take_log(), "+1 +2 +3");  // performed when added
    EXPECT_EQ(qz_history_manager_get_step_count(m), 3u);

    // Undo goes back over the newest step whoever made it; each run is
    // bracketed by its history's callbacks.
    EXPECT_TRUE(qz_history_manager_undo(m));
    EXPECT_TRUE(qz_history_manager_undo(m));
    EXPECT_EQ(take_log(), "[A -3 ]A [B -2 ]B");
    EXPECT_TRUE(qz_history_manager_can_redo(m));
    EXPECT_EQ(qz_history_manager_get_undo_count(m), 1u);
    EXPECT_TRUE(qz_history_manager_redo(m));
    EXPECT_EQ(take_log(), "[B +2 ]B");

    // A new step after an undo erases what was undone (item 3), once.
    EXPECT_TRUE(qz_history_manager_undo(m));
    take_log();
    add(b, 4);
    EXPECT_EQ(j.erased[3], 1);
    EXPECT_EQ(j.erased[2], 1);  // item 2 was undone again, so it went too
    EXPECT_FALSE(qz_history_manager_can_redo(m));
    EXPECT_FALSE(qz_history_manager_redo(m));
    EXPECT_EQ(qz_history_manager_get_step_count(m), 2u);  // 1 and 4
    EXPECT_EQ(take_log(), "+4");
}

TEST_F(History, NestedBracketsMakeOneStepBracketedOncePerHistory) {
    Client* a = client("A");
    Client* b = client("B");
    qz_history_manager_begin_update(m);
    add(a, 1);
    qz_history_manager_begin_update(m);
    add(b, 2);
    qz_history_manager_end_update(m);
    add(a, 3);
    // While the bracket is open, the host cannot undo into it.
    EXPECT_FALSE(qz_history_manager_can_undo(m));
    EXPECT_FALSE(qz_history_manager_undo(m));
    qz_history_manager_end_update(m);
    qz_history_manager_end_update(m);  // an extra end is ignored
    add(b, 4);
    EXPECT_EQ(qz_history_manager_get_step_count(m), 2u);
    take_log();

    EXPECT_TRUE(qz_history_manager_undo(m));
    EXPECT_EQ(take_log(), "[B -4 ]B");
    EXPECT_TRUE(qz_history_manager_undo(m));
    // Items newest first; each history begun once, in the run's order, and
    // ended in reverse.
    EXPECT_EQ(take_log(), "[A [B -3 -2 -1 ]B ]A");
    EXPECT_TRUE(qz_history_manager_redo(m));
    EXPECT_EQ(take_log(), "[A [B +1 +2 +3 ]B ]A");

    // A bracket in which nothing is added makes no step.
    qz_history_manager_begin_update(m);
    qz_history_manager_end_update(m);
    EXPECT_EQ(qz_history_manager_get_step_count(m), 2u);
}

TEST_F(History, LimitDropsTheOldestStepsWithAllTheirItems) {
    Client* a = client("A");
    qz_history_manager_set_limit(m, 3);
    qz_history_manager_begin_update(m);
    add(a, 1);
    add(a, 2);
    qz_history_manager_end_update(m);
    for (int id = 3; id <= 5; ++id) add(a, id);
    // The bracketed step {1, 2} was the oldest of four.
    EXPECT_EQ(qz_history_manager_get_step_count(m), 3u);
    EXPECT_EQ(j.erased[1], 1);
    EXPECT_EQ(j.erased[2], 1);
    EXPECT_EQ(j.erased.count(3), 0u);

    // Lowering the limit takes effect at once, also on undone steps.
    EXPECT_TRUE(qz_history_manager_undo(m));
    qz_history_manager_set_limit(m, 1);
    EXPECT_EQ(j.erased[3], 1);
    EXPECT_EQ(j.erased[4], 1);
    EXPECT_EQ(qz_history_manager_get_undo_count(m), 0u);
    EXPECT_TRUE(qz_history_manager_can_redo(m));  // step 5 stays, undone
    take_log();
    EXPECT_TRUE(qz_history_manager_redo(m));
    EXPECT_EQ(take_log(), "[A +5 ]A");

    // A limit of 0 keeps nothing: an item is performed and erased.
    qz_history_manager_set_limit(m, 0);
    add(a, 6);
    EXPECT_EQ(take_log(), "+6");
    EXPECT_EQ(j.erased[6], 1);
    EXPECT_FALSE(qz_history_manager_can_undo(m));
    // ...except the step of an open bracket, until the bracket closes.
    qz_history_manager_begin_update(m);
    add(a, 7);
    add(a, 8);
    EXPECT_EQ(qz_history_manager_get_step_count(m), 1u);
    qz_history_manager_end_update(m);
    EXPECT_EQ(qz_history_manager_get_step_count(m), 0u);
    EXPECT_EQ(j.erased[8], 1);
}

TEST_F(History, DestroyingAHistoryErasesItsItemsAndEmptiesSteps) {
    Client* a = client("A");
    Client* b = client("B");
    add(a, 1);
    qz_history_manager_begin_update(m);
    add(a, 2);
    add(b, 3);
    qz_history_manager_end_update(m);
    add(b, 4);
    add(a, 5);
    EXPECT_TRUE(qz_history_manager_undo(m));  // 5 undone
    take_log();

    qz_history_destroy(a->history);
    a->history = nullptr;
    EXPECT_EQ(j.erased[1], 1);
    EXPECT_EQ(j.erased[2], 1);
    EXPECT_EQ(j.erased[5], 1);
    EXPECT_EQ(j.erased.count(3), 0u);
    // Left: {3} and {4}, both done.
    EXPECT_EQ(qz_history_manager_get_step_count(m), 2u);
    EXPECT_EQ(qz_history_manager_get_undo_count(m), 2u);
    EXPECT_FALSE(qz_history_manager_can_redo(m));
    EXPECT_TRUE(qz_history_manager_undo(m));
    EXPECT_TRUE(qz_history_manager_undo(m));
    EXPECT_EQ(take_log(), "[B -4 ]B [B -3 ]B");

    qz_history_manager_clear(m);
    EXPECT_EQ(j.erased[3], 1);
    EXPECT_EQ(j.erased[4], 1);
    EXPECT_EQ(qz_history_manager_get_step_count(m), 0u);
    // The history itself stays usable after a clear.
    add(b, 9);
    EXPECT_TRUE(qz_history_manager_can_undo(m));
    qz_history_destroy(nullptr);  // ignored
}

// A listener that destroys a history while a run is bracketing it, and one
// that makes a change while a run is going on.
struct Reentrant {
    Journal* journal;
    void** victim;
    void* history;
};
void begin_and_destroy(void* w) {
    auto* r = static_cast<Reentrant*>(w);
    if (*r->victim) {
        qz_history_destroy(*r->victim);
        *r->victim = nullptr;
    }
}
void end_and_add(void* w) {
    auto* r = static_cast<Reentrant*>(w);
    r->journal->live++;
    qz_history_add_item(r->history, redo_item, undo_item, erase_item, new Item{r->journal, 99});
}

TEST_F(History, CallbacksMayCallBackIntoTheManager) {
    Client* a = client("A");
    Reentrant r{&j, &a->history, nullptr};
    r.history = qz_history_manager_create_history(m, begin_and_destroy, end_and_add, &r);
    qz_history_manager_begin_update(m);
    add(a, 1);
    j.live++;
    qz_history_add_item(r.history, redo_item, undo_item, erase_item, new Item{&j, 2});
    add(a, 3);
    qz_history_manager_end_update(m);
    take_log();

    // Backwards the items come 3 (A), 2 (r), 1 (A): A is begun first, then
    // r, whose begin destroys A; r's end adds an item.
    EXPECT_TRUE(qz_history_manager_undo(m));
    // A's items were erased when A went and were not undone afterwards;
    // the item added from inside the run was performed and let go.
    EXPECT_EQ(j.erased[1], 1);
    EXPECT_EQ(j.erased[3], 1);
    EXPECT_EQ(j.erased[99], 1);
    EXPECT_EQ(take_log(), "[A -2 +99");
    EXPECT_EQ(qz_history_manager_get_step_count(m), 1u);  // {2}
    EXPECT_TRUE(qz_history_manager_redo(m));
    EXPECT_EQ(take_log(), "+2 +99");
    qz_history_destroy(r.history);
    EXPECT_EQ(j.erased[2], 1);
    EXPECT_EQ(j.erased[99], 2) << "one item 99 per run, each erased once";
    j.erased.erase(99);
}

TEST(HistoryGlobal, DisablingGivesNoManagerAndNullHistoriesPerformAtOnce) {
    Iqz_history_manager* m = qz_history_manager_get_instance();
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(qz_history_manager_get_instance(), m);
    qz_history_manager_set_enabled(false);
    EXPECT_EQ(qz_history_manager_get_instance(), nullptr);
    EXPECT_EQ(qz_history_manager_create_history(nullptr, nullptr, nullptr, nullptr), nullptr);
    qz_history_manager_set_enabled(true);
    EXPECT_EQ(qz_history_manager_get_instance(), m);

    Journal j;
    j.live = 1;
    qz_history_add_item(nullptr, redo_item, undo_item, erase_item, new Item{&j, 1});
    EXPECT_EQ(j.text(), "+1");
    EXPECT_EQ(j.live, 0);
    // Null managers give neutral answers.
    EXPECT_FALSE(qz_history_manager_undo(nullptr));
    EXPECT_FALSE(qz_history_manager_can_redo(nullptr));
    qz_history_manager_clear(nullptr);
    qz_history_manager_begin_update(nullptr);
    qz_history_manager_end_update(nullptr);
}

}  // namespace
