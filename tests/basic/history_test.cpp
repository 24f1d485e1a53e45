// The history manager: one timeline over all histories, grouping, and every
// item erased exactly once, also when callbacks call back into the manager.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "qzk_basic.h"

namespace {

// What the callbacks did, in order: "+3" redo of item 3, "-3" its undo,
// "[A" / "]A" the begin and end of history A. Erasures are counted apart:
// per item, erasures less additions, so every item made and erased once
// leaves zero.
struct Journal {
    std::string log;
    std::map<int, int> erased;
    std::vector<int> fresh;  // erased since the script last asked
    void say(const std::string& w) { log += (log.empty() ? "" : " ") + w; }
};

// An item (id > 0) or a history's listener (its name in `id`).
struct Actor {
    Journal* j;
    int id;
    std::string tag(const char* mark) const {
        return mark + (id > 0 ? std::to_string(id) : std::string(1, char(-id)));
    }
};
void add_item(Journal& j, void* history, int id) {
    j.erased[id]--;
    qz_history_add_item(
        history, [](void* p) { static_cast<Actor*>(p)->j->say(static_cast<Actor*>(p)->tag("+")); },
        [](void* p) { static_cast<Actor*>(p)->j->say(static_cast<Actor*>(p)->tag("-")); },
        [](void* p) {
            auto* it = static_cast<Actor*>(p);
            it->j->erased[it->id]++;
            it->j->fresh.push_back(it->id);
            delete it;
        },
        new Actor{&j, id});
}

// Runs scripts against the manager. Each word is one call; what the
// callbacks did, and what some calls answer, is the script's log:
//   A1   add item 1 to history A (made on first use)  DA  destroy history A
//   u r  undo, redo (a refused one logs u0 / r0)
//   ( )  begin, end of a bracket
//   #    logs #<steps>/<undoable steps>                ?   logs ?<can undo><can redo>
//   x    logs x<items erased since the last x, sorted>, or x- for none
class History : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NE(m, nullptr);
        qz_history_manager_clear(m);
        qz_history_manager_set_limit(m, 1000);
    }
    void TearDown() override {
        for (auto& [name, h] : histories) qz_history_destroy(h.second);
        // Every item made was erased, and exactly once.
        for (const auto& [id, n] : j.erased) EXPECT_EQ(n, 0) << "item " << id;
        EXPECT_EQ(qz_history_manager_get_step_count(m), 0u);
    }
    void*& history(char name) {
        auto& h = histories[name];
        if (!h.first) {
            h.first = std::make_unique<Actor>(Actor{&j, -name});
            static constexpr auto say = [](void* a, const char* mark) {
                static_cast<Actor*>(a)->j->say(static_cast<Actor*>(a)->tag(mark));
            };
            h.second = qz_history_manager_create_history(
                m, [](void* a) { say(a, "["); }, [](void* a) { say(a, "]"); }, h.first.get());
        }
        return h.second;
    }
    std::string run(const std::string& script) {
        std::istringstream words(script);
        for (std::string w; words >> w;) {
            const char op = w[0];
            if (op == 'u' && !qz_history_manager_undo(m)) j.say("u0");
            if (op == 'r' && !qz_history_manager_redo(m)) j.say("r0");
            if (op == '(') qz_history_manager_begin_update(m);
            if (op == ')') qz_history_manager_end_update(m);
            if (op == 'D') qz_history_destroy(std::exchange(history(w[1]), nullptr));
            if (op == '#')
                j.say("#" + std::to_string(qz_history_manager_get_step_count(m)) + "/" +
                      std::to_string(qz_history_manager_get_undo_count(m)));
            if (op == '?')
                j.say("?" + std::to_string(qz_history_manager_can_undo(m)) +
                      std::to_string(qz_history_manager_can_redo(m)));
            if (op == 'x') {
                std::sort(j.fresh.begin(), j.fresh.end());
                std::string ids;
                for (int id : j.fresh) ids += (ids.empty() ? "" : ",") + std::to_string(id);
                j.say("x" + (ids.empty() ? "-" : ids));
                j.fresh.clear();
            }
            if (op == 'A' || op == 'B') add_item(j, history(op), std::stoi(w.substr(1)));
        }
        return std::exchange(j.log, "");
    }
    void check(const std::vector<std::pair<std::string, std::string>>& steps) {
        for (const auto& [script, log] : steps) EXPECT_EQ(run(script), log) << script;
    }

    Iqz_history_manager* m = qz_history_manager_get_instance();
    Journal j;
    std::map<char, std::pair<std::unique_ptr<Actor>, void*>> histories;
};

// Items are performed when added; undo goes back over the newest step
// whoever made it, each run bracketed by its history's callbacks; a new step
// after an undo erases what was undone.
TEST_F(History, OneTimelineOverTwoHistoriesWithRedoTailErased) {
    check({{"? u A1 B2 A3 #", "?00 u0 +1 +2 +3 #3/3"},
           {"u u ? #", "[A -3 ]A [B -2 ]B ?11 #3/1"},
           {"r u B4 x ? r #", "[B +2 ]B [B -2 ]B +4 x2,3 ?10 r0 #2/2"}});
}

// Nested brackets make one step; its run begins each history once, in the
// run's order, and ends them in reverse. The host cannot undo into an open
// bracket; an extra end is ignored; an empty bracket makes no step.
TEST_F(History, NestedBracketsMakeOneStepBracketedOncePerHistory) {
    check({{"( A1 ( B2 ) A3 ? u ) ) B4 #", "+1 +2 +3 ?00 u0 +4 #2/2"},
           {"u", "[B -4 ]B"},
           {"u", "[A [B -3 -2 -1 ]B ]A"},
           {"r", "[A [B +1 +2 +3 ]B ]A"},
           {"( ) #", "#2/1"},
           // A history going while a bracket is open leaves the bracket open.
           {"( A5 B6 DA B7 ) # x", "+5 +6 +7 #2/2 x1,3,4,5"}});
}

// A listener that destroys a history while a run is bracketing it, and
// makes a change while the run is going on.
struct Reentrant {
    Journal* j;
    void** victim;
    void* history;
};

TEST_F(History, CallbacksMayCallBackIntoTheManager) {
    Reentrant r{&j, &history('A'), nullptr};
    auto begin_and_destroy = [](void* w) {
        qz_history_destroy(std::exchange(*static_cast<Reentrant*>(w)->victim, nullptr));
    };
    auto end_and_add = [](void* w) {
        add_item(*static_cast<Reentrant*>(w)->j, static_cast<Reentrant*>(w)->history, 99);
    };
    r.history = qz_history_manager_create_history(m, begin_and_destroy, end_and_add, &r);
    run("( A1");
    add_item(j, r.history, 2);
    run("A3 )");
    // Backwards the items come 3 (A), 2 (r), 1 (A): A is begun first, then
    // r, whose begin destroys A, erasing its items, which are then not
    // undone; r's end adds an item, performed and let go.
    check({{"u x #", "[A -2 +99 x1,3,99 #1/0"}, {"r x", "+2 +99 x99"}});
    qz_history_destroy(r.history);
}

}  // namespace
