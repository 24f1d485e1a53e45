// The update bracket of Tqz_extensible_obj and its extra values.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "event_log.h"
#include "notify/extensible_obj.h"

namespace {

using qz_test::Event_log;
using qz_test::Lines;

// Brackets nest; begin (2) goes out at the first begin, the updates (1)
// merged into one at the outermost end (3), with it; an update outside any
// bracket goes out at once; an extra end is ignored. Each step logs the
// depth after it and the events sent. Details of merged updates: later
// values win, "count" and the kind cannot be overridden; other kinds go out
// at once, bracket or not.
TEST(UpdateBracket, NestedBracketsMergeTheirUpdatesAndDetails) {
    Tqz_extensible_obj obj;
    Event_log log;
    qz_event_channel_add_client(obj.get_update_event_channel(), &Event_log::proc, &log);
    std::string steps;
    for (char op : std::string(")((uu)))()u")) {
        unsigned depth = op == '(' ? obj.begin_update() : op == ')' ? obj.end_update() : 0;
        if (op == 'u') obj.broadcast_update_event(), depth = obj.get_update_depth();
        steps += std::to_string(depth) + "/" + std::to_string(log.lines().size()) + " ";
    }
    EXPECT_EQ(steps, "0/0 1/1 2/1 2/1 2/1 1/1 0/3 0/3 1/4 0/5 0/6 ");
    EXPECT_EQ(log.lines(), (Lines{"2", "1 count=2", "3", "2", "3", "1 count=1"}));

    Event_log details_log;
    qz_event_channel_add_client(obj.get_update_event_channel(), &Event_log::proc, &details_log);
    Tqz_table details;
    Tqz_tuple args;
    Tqz_any v;
    table_init(&details);
    tuple_init(&args);
    any_init(&v);
    const auto set = [&](const char* key, int value) {
        any_assign_integer(&v, value);
        table_set(&details, key, &v);
    };
    set("row", 5);
    set("count", 99);
    set("event", 99);
    obj.broadcast_update_event(7);
    obj.begin_update();
    obj.broadcast_update_event("name", details);
    set("row", 6);
    obj.broadcast_update_event(3, details);
    obj.end_update();
    any_assign_string(&v, "x");
    tuple_add(&args, &v);
    any_assign_integer(&v, 2);
    tuple_add(&args, &v);
    obj.begin_update();
    obj.broadcast_event(42, args);
    obj.end_update();
    EXPECT_EQ(details_log.lines(),
              (Lines{"1 count=1 code=7", "2", "1 count=2 code=3 what=name row=6", "3", "2",
                     "42 arg0=x arg1=2", "3"}));
    any_clear(&v);
    tuple_clear(&args);
    table_clear(&details);
}

// Brackets of two threads on one object do not interleave: each outermost
// bracket goes out as begin, one merged update, end; no update is lost.
TEST(UpdateBracket, BracketsFromTwoThreadsDoNotInterleave) {
    Tqz_extensible_obj obj;
    Event_log log;
    qz_event_channel_add_client(obj.get_update_event_channel(), &Event_log::proc, &log);
    auto work = [&] {
        for (int i = 0; i < 300; ++i) {
            obj.begin_update();
            obj.broadcast_update_event();
            obj.end_update();
        }
    };
    std::thread a(work), b(work);
    a.join();
    b.join();
    const Lines got = log.lines();
    ASSERT_EQ(got.size() % 3, 0u);
    int updates = 0;
    for (size_t i = 0; i < got.size(); i += 3) {
        ASSERT_EQ(got[i] + got[i + 2], "23") << i;
        ASSERT_EQ(got[i + 1].rfind("1 count=", 0), 0u) << got[i + 1];
        updates += std::stoi(got[i + 1].substr(8));
    }
    EXPECT_EQ(updates, 600);
    EXPECT_EQ(obj.get_update_depth(), 0u);
}

}  // namespace
