// The folder watcher of qzk_path.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "event_log.h"
#include "qzk_path.h"
#include "test_support.h"

namespace {

using namespace std::chrono_literals;
using qz_test::Event_log;
using qz_test::Temp_dir;

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
    ++c->calls;
    qz_folder_watcher_destroy(c->w);
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

}  // namespace
