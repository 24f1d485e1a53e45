// The update bracket of Tqz_extensible_obj and its extra values.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "event_log.h"
#include "notify/extensible_obj.h"

namespace {

using qz_test::Event_log;

constexpr int kBegin = QZ_EVENT_BEGIN_UPDATE;
constexpr int kUpdate = QZ_EVENT_UPDATE;
constexpr int kEnd = QZ_EVENT_END_UPDATE;

struct Observed {
    Tqz_extensible_obj obj;
    Event_log log;
    Observed() {
        qz_event_channel_add_client(obj.get_update_event_channel(), &Event_log::proc, &log);
    }
};

// Records the "what" and "code" entries and one detail of each event.
struct Detail_log {
    std::vector<std::string> lines;
    static void proc(Tqz_table* ev, void* user) {
        auto* log = static_cast<Detail_log*>(user);
        std::string line = std::to_string(qz_event_kind(ev));
        for (const char* key : {"count", "code", "what", "row", "arg0", "arg1"}) {
            const Tqz_any* v = table_get(ev, key);
            if (!v) continue;
            line += std::string(" ") + key + "=";
            line += any_get_type(v) == QZ_ANY_STRING ? any_get_string(v)
                                                     : std::to_string(any_get_integer(v));
        }
        log->lines.push_back(line);
    }
};

// Brackets nest; begin goes out at the first begin, the updates merged into
// one at the outermost end, with it; an update outside any bracket goes out
// at once. Each step below logs the depth after it and the events sent.
TEST(UpdateBracket, NestedBracketsMergeTheirUpdates) {
    Tqz_extensible_obj obj;
    Detail_log log;
    qz_event_channel_add_client(obj.get_update_event_channel(), &Detail_log::proc, &log);
    std::string steps;
    for (char op : std::string(")((uu)))()u")) {
        unsigned depth = op == '(' ? obj.begin_update() : op == ')' ? obj.end_update() : 0;
        if (op == 'u') obj.broadcast_update_event(), depth = obj.get_update_depth();
        steps += std::to_string(depth) + "/" + std::to_string(log.lines.size()) + " ";
    }
    EXPECT_EQ(steps, "0/0 1/1 2/1 2/1 2/1 1/1 0/3 0/3 1/4 0/5 0/6 ");
    EXPECT_EQ(log.lines, (std::vector<std::string>{"2", "1 count=2", "3", "2", "3", "1 count=1"}));
}

TEST(UpdateBracket, UpdatesWithDetailsAndOtherEvents) {
    Tqz_extensible_obj obj;
    Detail_log log;
    qz_event_channel_add_client(obj.get_update_event_channel(), &Detail_log::proc, &log);
    Tqz_table details;
    table_init(&details);
    Tqz_any v;
    any_init(&v);
    any_assign_integer(&v, 5);
    table_set(&details, "row", &v);
    any_assign_integer(&v, 99);
    table_set(&details, "count", &v);  // cannot override the merged count
    table_set(&details, "event", &v);  // nor the kind

    obj.broadcast_update_event(7);
    obj.begin_update();
    obj.broadcast_update_event("name", details);
    any_assign_integer(&v, 6);
    table_set(&details, "row", &v);
    obj.broadcast_update_event(3, details);  // later values win in the merged event
    obj.end_update();

    Tqz_tuple args;
    tuple_init(&args);
    any_assign_string(&v, "x");
    tuple_add(&args, &v);
    any_assign_integer(&v, 2);
    tuple_add(&args, &v);
    obj.begin_update();
    obj.broadcast_event(42, args);  // any kind goes out at once, bracket or not
    obj.end_update();
    EXPECT_EQ(log.lines,
              (std::vector<std::string>{"1 count=1 code=7", "2", "1 count=2 code=3 what=name row=6",
                                        "3", "2", "42 arg0=x arg1=2", "3"}));
    any_clear(&v);
    tuple_clear(&args);
    table_clear(&details);
}

TEST(UpdateBracket, BracketsFromTwoThreadsDoNotInterleave) {
    Observed o;
    constexpr int rounds = 300;
    auto work = [&] {
        for (int i = 0; i < rounds; ++i) {
            o.obj.begin_update();
            o.obj.broadcast_update_event();
            o.obj.end_update();
        }
    };
    std::thread a(work), b(work);
    a.join();
    b.join();
    // Each outermost bracket is begin, one merged update, end; the updates
    // of both threads are all accounted for.
    auto got = o.log.entries();
    ASSERT_EQ(got.size() % 3, 0u);
    int updates = 0;
    for (size_t i = 0; i < got.size(); i += 3) {
        ASSERT_EQ(got[i].kind, kBegin) << i;
        ASSERT_EQ(got[i + 1].kind, kUpdate) << i;
        ASSERT_EQ(got[i + 2].kind, kEnd) << i;
        updates += got[i + 1].count;
    }
    EXPECT_EQ(updates, 2 * rounds);
    EXPECT_EQ(o.obj.get_update_depth(), 0u);
}

}  // namespace
