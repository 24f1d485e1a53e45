// Change notification: the update bracket of Tqz_extensible_obj, the
// folder watcher of qzk_path and the table notifier. Events log as "2"
// begin, "1 count=<n>" update, "3" end, "4 name=<file>" a folder's change.
// Where a test must know that nothing more arrives, it changes a last file
// and waits for that: watchers of one folder hear each change in the order
// they were made, and the names of one folder come in the order they first
// changed.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "dbf/disk_table.h"
#include "notify/dbf_notifier.h"
#include "notify/extensible_obj.h"
#include "qzk_basic.h"
#include "qzk_file_dbf.h"
#include "qzk_path.h"
#include "test_support.h"

namespace {

using namespace std::chrono_literals;
using qz_test::Temp_dir;
using qz_test::widen;
using Lines = std::vector<std::string>;
using N = Tqz_dbf_notifier;

// One line per event: its kind, then the values it carries ("1 count=2",
// "4 name=a.txt"). `proc` is the client procedure, `user` the log.
struct Event_log {
    static void proc(Tqz_table* event, void* user) {
        std::string line = std::to_string(qz_event_kind(event));
        for (const char* key : {"count", "code", "what", "row", "arg0", "arg1", "name"}) {
            const Tqz_any* v = table_get(event, key);
            const char* text = v ? any_get_string(v) : nullptr;
            if (v)
                line += std::string(" ") + key + "=" +
                        (text ? text : std::to_string(any_get_integer(v)));
        }
        auto* log = static_cast<Event_log*>(user);
        std::lock_guard<std::mutex> g(log->lock_);
        log->lines_.push_back(line);
        log->changed_.notify_all();
    }
    // Waits until at least `n` events are in; false on timeout.
    bool wait_for(size_t n, std::chrono::milliseconds timeout = 3s) {
        std::unique_lock<std::mutex> g(lock_);
        return changed_.wait_for(g, timeout, [&] { return lines_.size() >= n; });
    }
    Lines lines() {
        std::lock_guard<std::mutex> g(lock_);
        return lines_;
    }
    std::mutex lock_;
    std::condition_variable changed_;
    Lines lines_;
};

// A one-shot signal between threads; raising it again does nothing.
struct Signal {
    std::promise<void> p;
    std::shared_future<void> f = p.get_future().share();
    std::atomic<bool> raised{false};
    void raise() {
        if (!raised.exchange(true)) p.set_value();
    }
    bool wait(std::chrono::seconds timeout = 3s) {
        return f.wait_for(timeout) == std::future_status::ready;
    }
};

// A folder watcher with a log of its events.
struct Logged_watcher {
    Event_log log;
    Iqz_folder_watcher* w;
    explicit Logged_watcher(const std::string& folder)
        : w(qz_folder_watcher_create(widen(folder).c_str(), 0)) {
        if (w) qz_event_channel_add_client(qz_folder_watcher_get_events(w), &Event_log::proc, &log);
    }
    ~Logged_watcher() { qz_folder_watcher_destroy(w); }
};

// The number of threads of this process. Some sanitizers start a thread of
// their own with the first thread the process makes; one throwaway thread
// gets that done before anything is counted.
inline size_t thread_count() {
    [[maybe_unused]] static const bool warmed_up = (std::thread([] {}).join(), true);
    auto tasks = std::filesystem::directory_iterator("/proc/self/task");
    return static_cast<size_t>(std::distance(begin(tasks), end(tasks)));
}

// Waits until the process has `n` threads (a thread's end is no event a test
// can wait on, so this looks); false on timeout.
inline bool wait_thread_count(size_t n) {
    for (auto end = std::chrono::steady_clock::now() + 3s; thread_count() != n;
         std::this_thread::sleep_for(2ms))
        if (std::chrono::steady_clock::now() > end) return false;
    return true;
}

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
    for (const char* key : {"row", "count", "event"}) set(key, *key == 'r' ? 5 : 99);
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

// The changed names of a watcher's folder events.
Lines names(Logged_watcher& w) {
    Lines out;
    for (const std::string& line : w.log.lines())
        out.push_back(line.substr(std::min(line.size(), 7ul)));
    return out;
}

// A watched folder that goes is heard of without a name by its own
// watcher; a new folder of its name is watched anew,
// and the old watcher going leaves the new one alone.
TEST(FolderWatcher, AWatchedFolderThatGoesAway) {
    Temp_dir dir;
    const std::string sub = dir.file("sub");
    ASSERT_EQ(::mkdir(sub.c_str(), 0700), 0);
    auto gone = std::make_unique<Logged_watcher>(sub);
    ASSERT_EQ(::rmdir(sub.c_str()), 0);
    ASSERT_TRUE(gone->log.wait_for(1));
    EXPECT_EQ(names(*gone), Lines{""});
    ASSERT_EQ(::mkdir(sub.c_str(), 0700), 0);
    Logged_watcher again(sub);
    qz_test::write_bytes(sub + "/x", {1});
    ASSERT_TRUE(again.log.wait_for(1));
    gone.reset();
    qz_test::write_bytes(sub + "/y", {1});
    ASSERT_TRUE(again.log.wait_for(2));
    EXPECT_EQ(names(again), (Lines{"x", "y"}));
}

// A client holding the watcher thread: destroying another watcher does not
// wait for it; the kernel's queue overflows meanwhile, which may have cost
// any folder its events, so every watcher hears of it (a nameless event).
TEST(FolderWatcher, ABusyClientHoldsUpEventsButNotOtherWatchers) {
    Temp_dir busy_dir, flood_dir, quiet_dir, other_dir;
    struct Gate {
        Signal inside, open;
    } gate;
    Iqz_folder_watcher* busy = qz_folder_watcher_create(widen(busy_dir.path()).c_str(), 0);
    ASSERT_NE(busy, nullptr);
    auto hold = [](Tqz_table*, void* user) {
        static_cast<Gate*>(user)->inside.raise();
        static_cast<Gate*>(user)->open.wait(30s);
    };
    qz_event_channel_add_client(qz_folder_watcher_get_events(busy), hold, &gate);
    Logged_watcher flood(flood_dir.path()), quiet(quiet_dir.path());
    auto other = std::make_unique<Logged_watcher>(other_dir.path());
    qz_test::write_bytes(busy_dir.file("a"), {1});
    ASSERT_TRUE(gate.inside.wait());
    auto started = std::chrono::steady_clock::now();
    other.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - started, 1s) << "another watcher goes at once";

    // Writes to two files in turn: one event each, none merged, past what
    // the kernel's queue holds (unless it is too large to fill here).
    size_t limit = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> limit;
    const bool flood_it = limit > 0 && limit <= 1000000;
    int fds[2] = {::open(flood_dir.file("f").c_str(), O_WRONLY | O_CREAT, 0600),
                  ::open(flood_dir.file("g").c_str(), O_WRONLY | O_CREAT, 0600)};
    for (size_t i = 0; flood_it && i < limit + 100; ++i)
        ASSERT_EQ(::pwrite(fds[i % 2], "x", 1, 0), 1);
    ::close(fds[0]);
    ::close(fds[1]);
    gate.open.raise();
    if (flood_it) {
        ASSERT_TRUE(quiet.log.wait_for(1) && flood.log.wait_for(3));
        EXPECT_EQ(names(quiet), Lines{""});
        EXPECT_EQ(names(flood), (Lines{"f", "g", ""}));
    }
    qz_folder_watcher_destroy(busy);
}

// Destroying a watcher while its callback runs waits for the callback and
// starts no other (a second change is queued); the thread has ended on
// return. Nothing signals that destroy has begun waiting, so the callback
// stays a while to be still running then.
TEST(FolderWatcher, DestroyWaitsForARunningCallbackAndEndsTheThread) {
    Temp_dir dir;
    const size_t threads_before = thread_count();
    Iqz_folder_watcher* w = qz_folder_watcher_create(widen(dir.path()).c_str(), 0);
    ASSERT_NE(w, nullptr);
    EXPECT_EQ(thread_count(), threads_before + 1);
    struct Client {
        Signal entered;
        std::atomic<int> calls{0};
        std::atomic<bool> inside{false};
    } client;
    auto slow = [](Tqz_table*, void* user) {
        auto* c = static_cast<Client*>(user);
        c->inside = true;
        ++c->calls;
        c->entered.raise();
        std::this_thread::sleep_for(50ms);
        c->inside = false;
    };
    qz_event_channel_add_client(qz_folder_watcher_get_events(w), slow, &client);
    qz_test::write_bytes(dir.file("a.txt"), {1});
    qz_test::write_bytes(dir.file("b.txt"), {1});
    ASSERT_TRUE(client.entered.wait());
    qz_folder_watcher_destroy(w);
    EXPECT_FALSE(client.inside) << "the running callback was over";
    EXPECT_EQ(client.calls, 1) << "and no other started";
    EXPECT_EQ(thread_count(), threads_before);
}

// A table (one numeric field, two records unless `fields` says otherwise),
// made or rewritten by another process: the tool.
void make_table(const std::string& path, const std::string& fields = "ID:N:5 --records 2") {
    ASSERT_EQ(qz_test::run("'" QZDBF_EXE "' create --overwrite '" + path + "' " + fields), 0);
}

// Changes a marker file in the watcher's folder and waits until it hears it.
void flush(Logged_watcher& w, const std::string& folder) {
    static int markers = 0;
    const std::string line = "4 name=marker" + std::to_string(++markers);
    qz_test::write_bytes(folder + "/" + line.substr(7), {1});
    for (Lines got = w.log.lines(); std::find(got.begin(), got.end(), line) == got.end();
         got = w.log.lines())
        ASSERT_TRUE(w.log.wait_for(got.size() + 1)) << "no word of " << line;
}

// A writable handle opens a bracket at once on the opening thread and holds
// it (and a reference) until close: a change meanwhile goes out at the
// close. Read-only handles and failed opens leave it alone; so
// does the disk table's own nested bracket, but for its begin and end.
// Paths differing only in letter case share one notifier, kept as first
// given. Then another process writes the table.
TEST(Notifier, WritableHandleHoldsABracketUntilCloseAnotherProcessWritesAtOnce) {
    Temp_dir dir;
    const std::string table = dir.file("h.dbf");
    make_table(table);
    const std::wstring wtable = widen(table);
    N* n = qz_create_dbf_notifier_w(wtable.c_str());
    ASSERT_EQ(N::get_instance(dir.wfile("H.Dbf").c_str()), n);
    EXPECT_TRUE(n->is_watching());
    EXPECT_EQ(n->get_path(), wtable);
    N::release(n);
    Event_log log;
    Iqz_event_channel* ch = qz_dbf_notifier_get_update_event_channel(n);
    qz_event_channel_add_client(ch, &Event_log::proc, &log);
    qz_dbf_close(qz_dbf_open_w(wtable.c_str(), true, false));
    EXPECT_EQ(log.lines().size(), 0u);
    Tqz_dbf_rw* writer = qz_dbf_open_w(wtable.c_str(), false, false);
    EXPECT_EQ(log.lines(), Lines{"2"});
    EXPECT_EQ(n->get_ref_count(), 2u);
    EXPECT_EQ(qz_dbf_notifier_begin_update(n), 2u);
    EXPECT_EQ(qz_dbf_notifier_end_update(n), 1u);
    Logged_watcher folder(dir.path());
    ASSERT_EQ(qz_test::run("touch '" + table + "'"), 0);
    flush(folder, dir.path());
    EXPECT_EQ(log.lines().size(), 1u);
    qz_dbf_close(writer);
    EXPECT_EQ(log.lines(), (Lines{"2", "1 count=1", "3"}));
    EXPECT_EQ(n->get_ref_count(), 1u);
    flush(folder, dir.path());  // the close itself changed only other files
    EXPECT_EQ(qz_dbf_open_w(dir.wfile("missing.dbf").c_str(), false, false), nullptr);
    EXPECT_EQ(log.lines().size(), 3u);
    {
        Tqz_dbf_disk disk;
        ASSERT_EQ(disk.open(wtable.c_str(), true, false, false), 0);
        EXPECT_EQ(disk.get_notifier(), n);
        auto bracket = disk.update_bracket();
        auto inner = disk.update_bracket();
    }
    EXPECT_EQ(log.lines(), (Lines{"2", "1 count=1", "3", "2", "3"}));
    // Another process writing the table: one update in its bracket. Other
    // files of the folder changing and the table's removal say nothing; the
    // table written again makes one more.
    make_table(table, "ID:N:6 NAME:C:10 --records 3");
    ASSERT_TRUE(log.wait_for(8));
    qz_test::write_bytes(dir.file("other.dbf"), {1, 2, 3});
    qz_test::write_bytes(dir.file("h.txt"), {4});
    ASSERT_EQ(std::remove(table.c_str()), 0);
    flush(folder, dir.path());
    EXPECT_EQ(log.lines().size(), 8u);
    make_table(table, "ID:N:6");
    ASSERT_TRUE(log.wait_for(11));
    flush(folder, dir.path());
    EXPECT_EQ(log.lines(), (Lines{"2", "1 count=1", "3", "2", "3", "2", "1 count=1", "3", "2",
                                  "1 count=1", "3"}));
    qz_event_channel_del_client(ch, &Event_log::proc, &log);
    qz_destroy_dbf_notifier(n);
}

// A client gives back the last reference from inside a delivery: the
// notifier's folder watcher, the last of the process, is destroyed from its
// own callback; the delivery runs to its end, then the thread ends by itself.
TEST(Notifier, LastReleaseFromInsideItsOwnDelivery) {
    Temp_dir dir;
    const std::string table = dir.file("r.dbf");
    make_table(table);
    const size_t threads_before = thread_count();
    struct Releasing {
        std::atomic<N*> n;
        std::atomic<int> seen{0};
    } client{qz_create_dbf_notifier_w(widen(table).c_str())};
    auto release_on_update = [](Tqz_table* ev, void* user) {
        auto* c = static_cast<Releasing*>(user);
        ++c->seen;
        if (qz_event_kind(ev) == QZ_EVENT_UPDATE) qz_destroy_dbf_notifier(c->n.exchange(nullptr));
    };
    qz_event_channel_add_client(qz_dbf_notifier_get_update_event_channel(client.n),
                                release_on_update, &client);
    make_table(table, "ID:N:7");
    EXPECT_TRUE(wait_thread_count(threads_before));
    EXPECT_EQ(client.n, nullptr);
    EXPECT_EQ(client.seen, 3);
}

}  // namespace
