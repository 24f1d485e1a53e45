// The update bracket of Tqz_extensible_obj and its extra values.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "event_log.h"
#include "notify/extensible_obj.h"

namespace {

// Records each event's kind and its details.
void detail_proc(Tqz_table* ev, void* user) {
    std::string line = std::to_string(qz_event_kind(ev));
    for (const char* key : {"count", "code", "what", "row", "arg0", "arg1"}) {
        if (const Tqz_any* v = table_get(ev, key))
            line += std::string(" ") + key + "=" +
                    (any_get_type(v) == QZ_ANY_STRING ? any_get_string(v)
                                                      : std::to_string(any_get_integer(v)));
    }
    static_cast<std::vector<std::string>*>(user)->push_back(line);
}

// Brackets nest; begin goes out at the first begin, the updates merged into
// one at the outermost end, with it; an update outside any bracket goes out
// at once; an extra end is ignored. Each step logs the depth after it and
// the events sent. Details of merged updates: later values win, "count"
// and the kind cannot be overridden; other kinds go out at once.
TEST(UpdateBracket, NestedBracketsMergeTheirUpdatesAndDetails) {
    Tqz_extensible_obj obj;
    std::vector<std::string> log;
    qz_event_channel_add_client(obj.get_update_event_channel(), &detail_proc, &log);
    std::string steps;
    for (char op : std::string(")((uu)))()u")) {
        unsigned depth = op == '(' ? obj.begin_update() : op == ')' ? obj.end_update() : 0;
        if (op == 'u') obj.broadcast_update_event(), depth = obj.get_update_depth();
        steps += std::to_string(depth) + "/" + std::to_string(log.size()) + " ";
    }
    EXPECT_EQ(steps, "0/0 1/1 2/1 2/1 2/1 1/1 0/3 0/3 1/4 0/5 0/6 ");
    EXPECT_EQ(log, (std::vector<std::string>{"2", "1 count=2", "3", "2", "3", "1 count=1"}));

    log.clear();
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
    EXPECT_EQ(log,
              (std::vector<std::string>{"1 count=1 code=7", "2", "1 count=2 code=3 what=name row=6",
                                        "3", "2", "42 arg0=x arg1=2", "3"}));
    any_clear(&v);
    tuple_clear(&args);
    table_clear(&details);
}

// Each outermost bracket of either thread is begin, one merged update, end;
// the updates of both threads are all accounted for.
TEST(UpdateBracket, BracketsFromTwoThreadsDoNotInterleave) {
    Tqz_extensible_obj obj;
    qz_test::Event_log log;
    qz_event_channel_add_client(obj.get_update_event_channel(), &qz_test::Event_log::proc, &log);
    constexpr int rounds = 300;
    auto work = [&] {
        for (int i = 0; i < rounds; ++i) {
            obj.begin_update();
            obj.broadcast_update_event();
            obj.end_update();
        }
    };
    std::thread a(work), b(work);
    a.join();
    b.join();
    auto got = log.entries();
    ASSERT_EQ(got.size() % 3, 0u);
    int updates = 0;
    for (size_t i = 0; i < got.size(); i += 3) {
        ASSERT_EQ(got[i].kind, QZ_EVENT_BEGIN_UPDATE) << i;
        ASSERT_EQ(got[i + 1].kind, QZ_EVENT_UPDATE) << i;
        ASSERT_EQ(got[i + 2].kind, QZ_EVENT_END_UPDATE) << i;
        updates += got[i + 1].count;
    }
    EXPECT_EQ(updates, 2 * rounds);
}

}  // namespace
