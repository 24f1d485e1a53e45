// The folder watcher of qzk_path. Where a test must know that nothing more
// arrives, it changes a last file and waits for that: the names of one
// folder come in the order they first changed.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>

#include "event_log.h"
#include "test_support.h"

namespace {

using namespace std::chrono_literals;
using qz_test::Lines;
using qz_test::Logged_watcher;
using qz_test::Signal;
using qz_test::Temp_dir;

void touch(const std::string& path) {
    qz_test::write_bytes(path, {1});
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
    touch(sub + "/x");
    ASSERT_TRUE(again.log.wait_for(1));
    gone.reset();
    touch(sub + "/y");
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
    EXPECT_LT(std::chrono::steady_clock::now() - started, 1s) << "another watcher goes at once";

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
    const size_t threads_before = qz_test::thread_count();
    Iqz_folder_watcher* w = qz_folder_watcher_create(qz_test::widen(dir.path()).c_str(), 0);
    ASSERT_NE(w, nullptr);
    EXPECT_EQ(qz_test::thread_count(), threads_before + 1);
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
    touch(dir.file("a.txt"));
    touch(dir.file("b.txt"));
    ASSERT_TRUE(client.entered.wait());
    qz_folder_watcher_destroy(w);
    EXPECT_FALSE(client.inside) << "the running callback was over";
    EXPECT_EQ(client.calls, 1) << "and no other started";
    EXPECT_EQ(qz_test::thread_count(), threads_before);
}

}  // namespace
