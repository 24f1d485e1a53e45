// The folder watcher of qzk_path. Where a test must know that nothing more
// arrives, it changes a last file and waits for that: the names of one
// folder come in the order they first changed.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "event_log.h"
#include "qzk_path.h"
#include "test_support.h"

namespace {

using namespace std::chrono_literals;
using qz_test::Logged_watcher;
using qz_test::Signal;
using qz_test::Temp_dir;
using Names = std::vector<std::string>;

void touch(const std::string& path) {
    qz_test::write_bytes(path, {1});
}

// A burst of writes to one file is gathered into one event (two when the
// watcher thread wakes in the middle of it, as on a loaded machine);
// removal and renaming are changes too. Only folders can be watched.
TEST(FolderWatcher, ReportsEachChangedNameOnceInOrder) {
    Temp_dir dir;
    touch(dir.file("old.txt"));
    Logged_watcher w(dir.path());
    ASSERT_NE(w.w, nullptr);
    for (int i = 0; i < 20; ++i) qz_test::write_bytes(dir.file("burst.txt"), {uint8_t(i)});
    touch(dir.file("end1"));
    auto wait_for_name = [&](const std::string& name) {
        for (size_t n = 1; n < 40 && w.log.wait_for(n);)
            if (w.log.names()[n++ - 1] == name) return true;
        return false;
    };
    ASSERT_TRUE(wait_for_name("end1"));
    const size_t bursts = w.log.size() - 1;
    EXPECT_TRUE(bursts == 1 || bursts == 2) << bursts;
    std::remove(dir.file("old.txt").c_str());
    std::rename(dir.file("burst.txt").c_str(), dir.file("new name ü.txt").c_str());
    touch(dir.file("end2"));
    ASSERT_TRUE(wait_for_name("end2"));
    Names want(bursts, "burst.txt");
    want.insert(want.end(), {"end1", "old.txt", "burst.txt", "new name ü.txt", "end2"});
    EXPECT_EQ(w.log.names(), want);
    for (const auto& e : w.log.entries()) EXPECT_EQ(e.kind, QZ_EVENT_FOLDER_CHANGE);
    for (const std::string& bad : {dir.file("missing"), dir.file("end1"), std::string()})
        EXPECT_EQ(qz_folder_watcher_create(qz_test::widen(bad).c_str(), 0), nullptr) << bad;
    EXPECT_EQ(qz_folder_watcher_create(nullptr, 0), nullptr);
    EXPECT_EQ(qz_folder_watcher_get_events(nullptr), nullptr);
    qz_folder_watcher_destroy(nullptr);
}

// A client that is busy a while, so that destroy has something to wait for.
struct Slow_client {
    Signal entered;
    std::atomic<int> calls{0};
    std::atomic<bool> inside{false};
};

// Destroy waits for a running callback, starts no other, and ends the
// watcher thread.
TEST(FolderWatcher, DestroyWaitsForARunningCallbackAndEndsTheThread) {
    Temp_dir dir;
    const size_t threads_before = qz_test::thread_count();
    Iqz_folder_watcher* w = qz_folder_watcher_create(qz_test::widen(dir.path()).c_str(), 0);
    ASSERT_NE(w, nullptr);
    EXPECT_EQ(qz_test::thread_count(), threads_before + 1);
    Slow_client client;
    auto slow = [](Tqz_table*, void* user) {
        auto* c = static_cast<Slow_client*>(user);
        c->inside = true;
        if (c->calls++ == 0) c->entered.raise();
        std::this_thread::sleep_for(50ms);
        c->inside = false;
    };
    qz_event_channel_add_client(qz_folder_watcher_get_events(w), slow, &client);
    touch(dir.file("a.txt"));
    touch(dir.file("b.txt"));  // a second callback would follow
    ASSERT_TRUE(client.entered.wait());
    qz_folder_watcher_destroy(w);
    EXPECT_FALSE(client.inside) << "the running callback was over";
    EXPECT_EQ(client.calls, 1) << "and no other started";
    EXPECT_EQ(qz_test::thread_count(), threads_before);
}

// Two spellings of one folder share the kernel's watch: the first to go
// leaves it to the other. A
// watched folder that goes is heard of without a name; a new folder of its
// name is watched anew, and the old watcher going leaves the new one alone.
TEST(FolderWatcher, WatchersSharingAFolderAndFoldersThatGo) {
    Temp_dir dir;
    auto a = std::make_unique<Logged_watcher>(dir.path());
    Logged_watcher b(dir.path() + "/.");
    ASSERT_TRUE(a->w && b.w);
    touch(dir.file("one.txt"));
    ASSERT_TRUE(a->log.wait_for(1) && b.log.wait_for(1));
    a.reset();
    touch(dir.file("two.txt"));
    ASSERT_TRUE(b.log.wait_for(2));
    b.destroy();
    EXPECT_EQ(b.log.names(), (Names{"one.txt", "two.txt"}));

    const std::string sub = dir.file("sub");
    ASSERT_EQ(::mkdir(sub.c_str(), 0700), 0);
    Logged_watcher parent(dir.path());
    auto gone = std::make_unique<Logged_watcher>(sub);
    ASSERT_EQ(::rmdir(sub.c_str()), 0);
    ASSERT_TRUE(gone->log.wait_for(1) && parent.log.wait_for(1));
    EXPECT_EQ(gone->log.names(), Names{""});
    EXPECT_EQ(parent.log.names(), Names{"sub"});
    ASSERT_EQ(::mkdir(sub.c_str(), 0700), 0);
    Logged_watcher again(sub);
    touch(sub + "/x");
    ASSERT_TRUE(again.log.wait_for(1));
    gone.reset();
    touch(sub + "/y");
    ASSERT_TRUE(again.log.wait_for(2));
    EXPECT_EQ(again.log.names(), (Names{"x", "y"}));
}

// A client that, on its first call, destroys another watcher, creates a new
// one and destroys its own.
struct Juggler {
    Iqz_folder_watcher *own, *made = nullptr;
    Logged_watcher* other;
    std::string new_folder;
    qz_test::Event_log made_log;
    size_t other_heard = 0;  // the other's events when it went
    std::atomic<int> calls{0};
    Signal done;
};

TEST(FolderWatcher, CallbacksMayCreateAndDestroyWatchers) {
    Temp_dir keep_dir, own_dir, other_dir, new_dir;
    const size_t threads_before = qz_test::thread_count();
    Logged_watcher keeper(keep_dir.path()), other(other_dir.path());
    Juggler j;
    j.own = qz_folder_watcher_create(qz_test::widen(own_dir.path()).c_str(), 0);
    j.other = &other;
    j.new_folder = new_dir.path();
    ASSERT_NE(j.own, nullptr);
    auto juggle = [](Tqz_table*, void* user) {
        auto* j = static_cast<Juggler*>(user);
        if (j->calls++ > 0) return;
        j->other_heard = j->other->log.size();
        j->other->destroy();
        j->made = qz_folder_watcher_create(qz_test::widen(j->new_folder).c_str(), 0);
        if (j->made)
            qz_event_channel_add_client(qz_folder_watcher_get_events(j->made),
                                        &qz_test::Event_log::proc, &j->made_log);
        qz_folder_watcher_destroy(j->own);
        j->done.raise();
    };
    qz_event_channel_add_client(qz_folder_watcher_get_events(j.own), juggle, &j);
    // Two names for the own watcher (the second must not reach it), and a
    // change the other one is likely still gathering when it goes.
    touch(own_dir.file("a"));
    touch(own_dir.file("b"));
    touch(other_dir.file("c"));
    ASSERT_TRUE(j.done.wait());
    touch(own_dir.file("d"));
    touch(other_dir.file("e"));
    // The watcher made on the watcher thread works, and so does the keeper;
    // once they have heard, the thread is past the destroyed watchers.
    ASSERT_NE(j.made, nullptr);
    touch(new_dir.file("new"));
    touch(keep_dir.file("kept"));
    ASSERT_TRUE(j.made_log.wait_for(1) && keeper.log.wait_for(1));
    EXPECT_EQ(j.calls, 1);
    EXPECT_EQ(other.log.size(), j.other_heard);
    EXPECT_EQ(j.made_log.names(), Names{"new"});
    EXPECT_EQ(keeper.log.names(), Names{"kept"});
    EXPECT_EQ(qz_test::thread_count(), threads_before + 1);
    qz_folder_watcher_destroy(j.made);
    keeper.destroy();
    EXPECT_EQ(qz_test::thread_count(), threads_before);
}

// A client holding the watcher thread: destroying another watcher does not
// wait for it; the kernel's queue overflows meanwhile, which may have cost
// any folder its events, so every watcher hears of it (a nameless event).
TEST(FolderWatcher, ABusyClientHoldsUpEventsButNotOtherWatchers) {
    Temp_dir busy_dir, flood_dir, quiet_dir, other_dir;
    struct Gate {
        Signal inside, open;
    } gate;
    Iqz_folder_watcher* busy = qz_folder_watcher_create(qz_test::widen(busy_dir.path()).c_str(), 0);
    ASSERT_NE(busy, nullptr);
    auto hold = [](Tqz_table*, void* user) {
        static_cast<Gate*>(user)->inside.raise();
        static_cast<Gate*>(user)->open.wait(30s);
    };
    qz_event_channel_add_client(qz_folder_watcher_get_events(busy), hold, &gate);
    Logged_watcher flood(flood_dir.path()), quiet(quiet_dir.path());
    auto other = std::make_unique<Logged_watcher>(other_dir.path());
    touch(busy_dir.file("a"));
    ASSERT_TRUE(gate.inside.wait());
    auto started = std::chrono::steady_clock::now();
    other.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - started, 1s);

    size_t limit = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> limit;
    ASSERT_GT(limit, 0u);
    const bool flood_it = limit <= 1000000;
    if (flood_it) {
        // Writes to two files in turn: one event each, none merged.
        int fds[2] = {::open(flood_dir.file("f").c_str(), O_WRONLY | O_CREAT, 0600),
                      ::open(flood_dir.file("g").c_str(), O_WRONLY | O_CREAT, 0600)};
        ASSERT_TRUE(fds[0] >= 0 && fds[1] >= 0);
        for (size_t i = 0; i < limit + 100; ++i) ASSERT_EQ(::pwrite(fds[i % 2], "x", 1, 0), 1);
        ::close(fds[0]);
        ::close(fds[1]);
    } else {
        std::printf("[ info     ] max_queued_events is %zu: no overflow tried\n", limit);
    }
    gate.open.raise();
    if (flood_it) {
        ASSERT_TRUE(quiet.log.wait_for(1) && flood.log.wait_for(3));
        EXPECT_EQ(quiet.log.names(), Names{""});
        EXPECT_EQ(flood.log.names(), (Names{"f", "g", ""}));
    }
    qz_folder_watcher_destroy(busy);
}

}  // namespace
