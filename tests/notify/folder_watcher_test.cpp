// The folder watcher of qzk_path.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "event_log.h"
#include "qzk_path.h"
#include "test_support.h"

namespace {

using namespace std::chrono_literals;
using qz_test::Event_log;
using qz_test::Temp_dir;
using Names = std::vector<std::string>;

// Long enough for a watcher to have reported anything it was going to.
constexpr auto kSettle = 300ms;

// A watcher with a log of its events.
struct Logged_watcher {
    Iqz_folder_watcher* w = nullptr;
    Event_log log;

    explicit Logged_watcher(const std::string& folder) {
        w = qz_folder_watcher_create(qz_test::widen(folder).c_str(), 0);
        if (w) qz_event_channel_add_client(qz_folder_watcher_get_events(w), &Event_log::proc, &log);
    }
    ~Logged_watcher() { destroy(); }

    void destroy() {
        qz_folder_watcher_destroy(w);
        w = nullptr;
    }

    Names names() {
        Names n;
        for (const Event_log::Entry& e : log.entries()) n.push_back(e.name);
        return n;
    }
};

TEST(FolderWatcher, ReportsEachChangedNameOnce) {
    Temp_dir dir;
    qz_test::write_bytes(dir.file("old.txt"), {1});
    Iqz_folder_watcher* w = qz_folder_watcher_create(qz_test::widen(dir.path()).c_str(), 0);
    ASSERT_NE(w, nullptr);
    Event_log log;
    qz_event_channel_add_client(qz_folder_watcher_get_events(w), &Event_log::proc, &log);

    // A burst of writes to one file is one event with its name.
    for (int i = 0; i < 20; ++i) qz_test::write_bytes(dir.file("burst.txt"), {uint8_t(i)});
    ASSERT_TRUE(log.wait_for(1, 2s));
    std::this_thread::sleep_for(300ms);
    auto got = log.entries();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].kind, QZ_EVENT_FOLDER_CHANGE);
    EXPECT_EQ(got[0].name, "burst.txt");

    // Removal and renaming are changes too; names keep their first order.
    std::remove(dir.file("old.txt").c_str());
    std::rename(dir.file("burst.txt").c_str(), dir.file("new name ü.txt").c_str());
    ASSERT_TRUE(log.wait_for(4, 2s));
    std::this_thread::sleep_for(300ms);
    got = log.entries();
    ASSERT_EQ(got.size(), 4u);
    EXPECT_EQ(got[1].name, "old.txt");
    EXPECT_EQ(got[2].name, "burst.txt");
    EXPECT_EQ(got[3].name, "new name ü.txt");

    qz_folder_watcher_destroy(w);
}

TEST(FolderWatcher, OnlyFoldersCanBeWatched) {
    Temp_dir dir;
    qz_test::write_bytes(dir.file("plain.txt"), {1});
    EXPECT_EQ(qz_folder_watcher_create(qz_test::widen(dir.file("missing")).c_str(), 0), nullptr);
    EXPECT_EQ(qz_folder_watcher_create(qz_test::widen(dir.file("plain.txt")).c_str(), 0), nullptr);
    EXPECT_EQ(qz_folder_watcher_create(L"", 0), nullptr);
    EXPECT_EQ(qz_folder_watcher_create(nullptr, 0), nullptr);
    EXPECT_EQ(qz_folder_watcher_get_events(nullptr), nullptr);
    qz_folder_watcher_destroy(nullptr);
}

struct Slow_client {
    std::atomic<int> calls{0};
    std::atomic<bool> inside{false};
};

void slow_proc(Tqz_table*, void* user) {
    auto* c = static_cast<Slow_client*>(user);
    c->inside = true;
    ++c->calls;
    std::this_thread::sleep_for(300ms);
    c->inside = false;
}

TEST(FolderWatcher, DestroyWaitsForARunningCallbackAndEndsTheThread) {
    Temp_dir dir;
    const size_t threads_before = qz_test::thread_count();
    Iqz_folder_watcher* w = qz_folder_watcher_create(qz_test::widen(dir.path()).c_str(), 0);
    ASSERT_NE(w, nullptr);
    EXPECT_EQ(qz_test::thread_count(), threads_before + 1);
    Slow_client client;
    qz_event_channel_add_client(qz_folder_watcher_get_events(w), &slow_proc, &client);
    qz_test::write_bytes(dir.file("a.txt"), {1});
    qz_test::write_bytes(dir.file("b.txt"), {2});  // a second callback would follow
    while (!client.inside) std::this_thread::sleep_for(1ms);

    qz_folder_watcher_destroy(w);
    EXPECT_FALSE(client.inside);  // the running callback was over
    EXPECT_EQ(client.calls, 1);   // and no other started
    EXPECT_EQ(qz_test::thread_count(), threads_before);
}

struct Self_destroying {
    Iqz_folder_watcher* w = nullptr;
    std::atomic<int> calls{0};
};

void destroy_proc(Tqz_table*, void* user) {
    auto* c = static_cast<Self_destroying*>(user);
    qz_folder_watcher_destroy(c->w);
    // Counted last: the thread, which ends by itself, touches the client no
    // more once the test has seen the count.
    ++c->calls;
}

TEST(FolderWatcher, DestroyFromItsOwnCallback) {
    Temp_dir dir;
    const size_t threads_before = qz_test::thread_count();
    Self_destroying client;
    client.w = qz_folder_watcher_create(qz_test::widen(dir.path()).c_str(), 0);
    ASSERT_NE(client.w, nullptr);
    qz_event_channel_add_client(qz_folder_watcher_get_events(client.w), &destroy_proc, &client);
    qz_test::write_bytes(dir.file("a.txt"), {1});
    qz_test::write_bytes(dir.file("b.txt"), {1});
    // The thread ends by itself once the callback is over.
    EXPECT_TRUE(qz_test::wait_thread_count(threads_before, 3s));
    qz_test::write_bytes(dir.file("c.txt"), {1});
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(client.calls, 1);
}

TEST(FolderWatcher, HundredsOfWatchersShareOneThreadAndKeepTheirFoldersApart) {
    // More watchers than the kernel gives a user inotify instances by default.
    constexpr int count = 300;
    const size_t threads_before = qz_test::thread_count();
    std::vector<std::unique_ptr<Temp_dir>> dirs;
    std::vector<std::unique_ptr<Logged_watcher>> watchers;
    for (int i = 0; i < count; ++i) {
        dirs.push_back(std::make_unique<Temp_dir>());
        watchers.push_back(std::make_unique<Logged_watcher>(dirs[i]->path()));
        ASSERT_NE(watchers[i]->w, nullptr) << "watcher " << i;
    }
    EXPECT_EQ(qz_test::thread_count(), threads_before + 1);

    for (int i = 0; i < count; ++i)
        qz_test::write_bytes(dirs[i]->file("f" + std::to_string(i)), {1});
    for (int i = 0; i < count; ++i) ASSERT_TRUE(watchers[i]->log.wait_for(1, 3s)) << i;
    std::this_thread::sleep_for(kSettle);
    for (int i = 0; i < count; ++i)
        EXPECT_EQ(watchers[i]->names(), Names{"f" + std::to_string(i)}) << "watcher " << i;

    watchers.clear();
    EXPECT_EQ(qz_test::thread_count(), threads_before);
}

TEST(FolderWatcher, WatchersOfOneFolderAreIndependent) {
    Temp_dir dir;
    // Two spellings of one folder: the kernel gives both the same watch.
    Logged_watcher a(dir.path()), b(dir.path() + "/.");
    ASSERT_NE(a.w, nullptr);
    ASSERT_NE(b.w, nullptr);
    qz_test::write_bytes(dir.file("one.txt"), {1});
    ASSERT_TRUE(a.log.wait_for(1, 2s));
    ASSERT_TRUE(b.log.wait_for(1, 2s));

    // The first to go leaves the watch to the other.
    a.destroy();
    qz_test::write_bytes(dir.file("two.txt"), {2});
    ASSERT_TRUE(b.log.wait_for(2, 2s));
    std::this_thread::sleep_for(kSettle);
    EXPECT_EQ(a.names(), Names{"one.txt"});
    EXPECT_EQ(b.names(), (Names{"one.txt", "two.txt"}));

    // One more joins; when the last two go, the next one starts over.
    auto c = std::make_unique<Logged_watcher>(dir.path());
    qz_test::write_bytes(dir.file("three.txt"), {3});
    ASSERT_TRUE(c->log.wait_for(1, 2s));
    ASSERT_TRUE(b.log.wait_for(3, 2s));
    b.destroy();
    c.reset();
    Logged_watcher d(dir.path());
    ASSERT_NE(d.w, nullptr);
    qz_test::write_bytes(dir.file("four.txt"), {4});
    ASSERT_TRUE(d.log.wait_for(1, 2s));
    std::this_thread::sleep_for(kSettle);
    EXPECT_EQ(d.names(), Names{"four.txt"});
    EXPECT_EQ(b.names(), (Names{"one.txt", "two.txt", "three.txt"}));
}

TEST(FolderWatcher, AWatchedFolderThatGoesAway) {
    Temp_dir dir;
    const std::string sub = dir.file("sub");
    ASSERT_EQ(::mkdir(sub.c_str(), 0700), 0);
    Logged_watcher parent(dir.path());
    auto gone = std::make_unique<Logged_watcher>(sub);
    ASSERT_NE(gone->w, nullptr);

    // The folder's own watcher hears that it went, without a name.
    ASSERT_EQ(::rmdir(sub.c_str()), 0);
    ASSERT_TRUE(gone->log.wait_for(1, 2s));
    ASSERT_TRUE(parent.log.wait_for(1, 2s));
    EXPECT_EQ(gone->names(), Names{""});
    EXPECT_EQ(parent.names(), Names{"sub"});

    // A new folder of that name is watched anew; the old watcher hears
    // nothing more, and destroying it leaves the new one alone.
    ASSERT_EQ(::mkdir(sub.c_str(), 0700), 0);
    Logged_watcher again(sub);
    ASSERT_NE(again.w, nullptr);
    qz_test::write_bytes(sub + "/x", {1});
    ASSERT_TRUE(again.log.wait_for(1, 2s));
    gone.reset();
    qz_test::write_bytes(sub + "/y", {1});
    ASSERT_TRUE(again.log.wait_for(2, 2s));
    std::this_thread::sleep_for(kSettle);
    EXPECT_EQ(again.names(), (Names{"x", "y"}));
}

// A client that, on its first call, destroys another watcher, creates a new
// one and destroys its own.
struct Juggler {
    Iqz_folder_watcher* own = nullptr;
    Logged_watcher* other = nullptr;
    std::string new_folder;
    Iqz_folder_watcher* made = nullptr;
    Event_log made_log;
    size_t other_heard = 0;  // the other's events when it went
    std::atomic<int> calls{0};
    std::atomic<bool> done{false};
};

void juggle(Tqz_table*, void* user) {
    auto* j = static_cast<Juggler*>(user);
    if (j->calls++ > 0) return;
    j->other_heard = j->other->log.size();
    j->other->destroy();
    j->made = qz_folder_watcher_create(qz_test::widen(j->new_folder).c_str(), 0);
    if (j->made)
        qz_event_channel_add_client(qz_folder_watcher_get_events(j->made), &Event_log::proc,
                                    &j->made_log);
    qz_folder_watcher_destroy(j->own);
    j->done = true;
}

TEST(FolderWatcher, CallbacksMayCreateAndDestroyWatchers) {
    Temp_dir keep_dir, own_dir, other_dir, new_dir;
    const size_t threads_before = qz_test::thread_count();
    Logged_watcher keeper(keep_dir.path()), other(other_dir.path());
    Juggler j;
    j.own = qz_folder_watcher_create(qz_test::widen(own_dir.path()).c_str(), 0);
    ASSERT_NE(j.own, nullptr);
    j.other = &other;
    j.new_folder = new_dir.path();
    qz_event_channel_add_client(qz_folder_watcher_get_events(j.own), &juggle, &j);

    // Two names for the own watcher (the second must not reach it), and a
    // change the other one is likely still gathering when it goes.
    qz_test::write_bytes(own_dir.file("a"), {1});
    qz_test::write_bytes(own_dir.file("b"), {1});
    qz_test::write_bytes(other_dir.file("c"), {1});
    auto give_up = std::chrono::steady_clock::now() + 3s;
    while (!j.done && std::chrono::steady_clock::now() < give_up) std::this_thread::sleep_for(1ms);
    ASSERT_TRUE(j.done);
    qz_test::write_bytes(own_dir.file("d"), {1});
    qz_test::write_bytes(other_dir.file("e"), {1});
    std::this_thread::sleep_for(kSettle);
    EXPECT_EQ(j.calls, 1);
    EXPECT_EQ(other.log.size(), j.other_heard);

    // The watcher made on the watcher thread works, and so does the keeper.
    ASSERT_NE(j.made, nullptr);
    qz_test::write_bytes(new_dir.file("new"), {1});
    qz_test::write_bytes(keep_dir.file("kept"), {1});
    ASSERT_TRUE(j.made_log.wait_for(1, 2s));
    ASSERT_TRUE(keeper.log.wait_for(1, 2s));
    EXPECT_EQ(j.made_log.entries()[0].name, "new");
    EXPECT_EQ(keeper.names(), Names{"kept"});
    EXPECT_EQ(qz_test::thread_count(), threads_before + 1);

    qz_folder_watcher_destroy(j.made);
    keeper.destroy();
    EXPECT_EQ(qz_test::thread_count(), threads_before);
}

// A client that holds the watcher thread until the test lets it go.
struct Gate {
    std::mutex lock;
    std::condition_variable changed;
    bool inside = false;
    bool open = false;
};

void gate_proc(Tqz_table*, void* user) {
    auto* g = static_cast<Gate*>(user);
    std::unique_lock<std::mutex> hold(g->lock);
    g->inside = true;
    g->changed.notify_all();
    g->changed.wait_for(hold, 30s, [&] { return g->open; });
}

size_t max_queued_events() {
    size_t n = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> n;
    return n;
}

TEST(FolderWatcher, ABusyClientHoldsUpEventsButNotOtherWatchers) {
    Temp_dir busy_dir, flood_dir, quiet_dir, other_dir;
    Gate gate;
    Iqz_folder_watcher* busy = qz_folder_watcher_create(qz_test::widen(busy_dir.path()).c_str(), 0);
    ASSERT_NE(busy, nullptr);
    qz_event_channel_add_client(qz_folder_watcher_get_events(busy), &gate_proc, &gate);
    Logged_watcher flood(flood_dir.path()), quiet(quiet_dir.path());
    auto other = std::make_unique<Logged_watcher>(other_dir.path());
    qz_test::write_bytes(busy_dir.file("a"), {1});
    {
        std::unique_lock<std::mutex> hold(gate.lock);
        ASSERT_TRUE(gate.changed.wait_for(hold, 3s, [&] { return gate.inside; }));
    }

    // Destroying another watcher does not wait for the busy client.
    auto started = std::chrono::steady_clock::now();
    other.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - started, 1s);

    // While the thread is held the kernel's queue overflows, which may have
    // cost any folder its events: every watcher hears of it.
    const size_t limit = max_queued_events();
    ASSERT_GT(limit, 0u);
    if (limit > 1000000) {
        std::printf("[ info     ] max_queued_events is %zu: no overflow tried\n", limit);
    } else {
        // Writes to two files in turn: one event each, none merged with the
        // one before.
        int fds[2] = {::open(flood_dir.file("f").c_str(), O_WRONLY | O_CREAT, 0600),
                      ::open(flood_dir.file("g").c_str(), O_WRONLY | O_CREAT, 0600)};
        ASSERT_GE(fds[0], 0);
        ASSERT_GE(fds[1], 0);
        for (size_t i = 0; i < limit + 100; ++i) ASSERT_EQ(::pwrite(fds[i % 2], "x", 1, 0), 1);
        ::close(fds[0]);
        ::close(fds[1]);
    }
    {
        std::lock_guard<std::mutex> hold(gate.lock);
        gate.open = true;
        gate.changed.notify_all();
    }
    if (limit <= 1000000) {
        ASSERT_TRUE(quiet.log.wait_for(1, 3s));
        ASSERT_TRUE(flood.log.wait_for(3, 3s));
        std::this_thread::sleep_for(kSettle);
        EXPECT_EQ(quiet.names(), Names{""});
        EXPECT_EQ(flood.names(), (Names{"f", "g", ""}));
    }
    qz_folder_watcher_destroy(busy);
}

}  // namespace
