// The table notifier: the shared registry, change detection through the
// folder watcher, the brackets of tables and handles, and its lifetime
// across threads. Where a test must know that the notifier saw a change and
// said nothing, a folder watcher made after the notifier's hears the change:
// watchers of one folder hear each change in the order they were made.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "dbf/disk_table.h"
#include "event_log.h"
#include "notify/dbf_notifier.h"
#include "qzk_file_dbf.h"
#include "test_support.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using qz_test::Event_log;
using qz_test::Logged_watcher;
using qz_test::Signal;
using qz_test::Temp_dir;

constexpr int kBegin = QZ_EVENT_BEGIN_UPDATE;
constexpr int kUpdate = QZ_EVENT_UPDATE;
constexpr int kEnd = QZ_EVENT_END_UPDATE;

void make_table(const std::string& path) {
    Tqz_dbf_field f;
    qz_dbf_field_init(&f, "ID", dbf_ft_numeric, 5, 0);
    Tqz_dbf_rw* t = qz_dbf_create_w(qz_test::widen(path).c_str(), 1, 2, &f, false);
    ASSERT_NE(t, nullptr);
    qz_dbf_close(t);
}

// Rewrites the table from another process.
void rewrite_elsewhere(const std::string& path, const std::string& fields) {
    std::string out;
    ASSERT_EQ(
        qz_test::run(std::string(QZDBF_EXE) + " create --overwrite '" + path + "' " + fields, &out),
        0);
}

// Changes a marker file in `w`'s folder and waits until `w` hears it: the
// notifier, whose watcher was made first, has then seen every change before.
void flush(Logged_watcher& w, const std::string& folder) {
    static int markers = 0;
    const std::string name = "marker" + std::to_string(++markers);
    qz_test::write_bytes(folder + "/" + name, {1});
    for (;;) {
        const auto names = w.log.names();
        if (std::find(names.begin(), names.end(), name) != names.end()) return;
        ASSERT_TRUE(w.log.wait_for(names.size() + 1)) << "no word of " << name;
    }
}

long ms_since(Clock::time_point t) {
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - t).count());
}

TEST(Notifier, PathsDifferingInCaseShareOne) {
    Temp_dir dir;
    const size_t threads_before = qz_test::thread_count();
    std::wstring lower = dir.wfile("cars.dbf"), upper = dir.wfile("CARS.Dbf");
    Tqz_dbf_notifier* a = Tqz_dbf_notifier::get_instance(lower.c_str());
    Tqz_dbf_notifier* b = Tqz_dbf_notifier::get_instance(upper.c_str());
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a, b);
    EXPECT_EQ(a->get_ref_count(), 2u);
    EXPECT_TRUE(a->is_watching());
    EXPECT_EQ(a->get_path(), lower);                         // kept as first given
    EXPECT_EQ(qz_test::thread_count(), threads_before + 1);  // one watcher thread

    // Another spelling of the same file is another notifier: no normalising.
    Tqz_dbf_notifier* c = Tqz_dbf_notifier::get_instance((dir.path() + "/./cars.dbf").c_str());
    EXPECT_NE(c, a);
    EXPECT_EQ(c->get_ref_count(), 1u);
    Tqz_dbf_notifier::release(c);
    EXPECT_EQ(qz_test::thread_count(), threads_before + 1);

    Tqz_dbf_notifier::release(a);
    EXPECT_EQ(b->get_ref_count(), 1u);
    EXPECT_EQ(qz_test::thread_count(), threads_before + 1);
    Tqz_dbf_notifier::release(b);
    EXPECT_EQ(qz_test::thread_count(), threads_before);  // destroyed, its thread gone

    // The next one is new, with a count of its own; a folder that does not
    // exist gives a notifier without a watcher.
    Tqz_dbf_notifier* d = Tqz_dbf_notifier::get_instance(upper.c_str());
    EXPECT_EQ(d->get_ref_count(), 1u);
    Tqz_dbf_notifier::release(d);
    // A bare file name lives in the current folder.
    char cwd[4096];
    ASSERT_NE(::getcwd(cwd, sizeof cwd), nullptr);
    ASSERT_EQ(::chdir(dir.path().c_str()), 0);
    Tqz_dbf_notifier* bare = Tqz_dbf_notifier::get_instance(L"bare.dbf");
    EXPECT_TRUE(bare->is_watching());
    Tqz_dbf_notifier::release(bare);
    ASSERT_EQ(::chdir(cwd), 0);
    Tqz_dbf_notifier* e = Tqz_dbf_notifier::get_instance(dir.wfile("none/x.dbf").c_str());
    EXPECT_FALSE(e->is_watching());
    EXPECT_EQ(e->begin_update(), 1u);  // its brackets still work
    EXPECT_EQ(e->end_update(), 0u);
    Tqz_dbf_notifier::release(e);
    EXPECT_EQ(qz_test::thread_count(), threads_before);
}

TEST(Notifier, SeesTheTableChangedByAnotherProcess) {
    Temp_dir dir;
    const std::string table = dir.file("t.dbf");
    make_table(table);
    Tqz_dbf_notifier* n = qz_create_dbf_notifier_w(qz_test::widen(table).c_str());
    ASSERT_NE(n, nullptr);
    Event_log log;
    Iqz_event_channel* ch = qz_dbf_notifier_get_update_event_channel(n);
    ASSERT_NE(ch, nullptr);
    qz_event_channel_add_client(ch, &Event_log::proc, &log);

    Logged_watcher folder(dir.path());

    // Another process rewrites the table: one update, in its bracket.
    Clock::time_point started = Clock::now();
    rewrite_elsewhere(table, "ID:N:6 NAME:C:10 --records 3");
    ASSERT_TRUE(log.wait_for(3, 1s));
    std::printf("[ info     ] update arrived %ld ms after the writer started\n", ms_since(started));
    EXPECT_EQ(log.entries()[1].count, 1);

    // Other files of the folder change, the table is deleted: nothing.
    // Written again with a new time: one.
    qz_test::write_bytes(dir.file("other.dbf"), {1, 2, 3});
    qz_test::write_bytes(dir.file("t.txt"), {4});
    ASSERT_EQ(std::remove(table.c_str()), 0);
    flush(folder, dir.path());
    EXPECT_EQ(log.size(), 3u);
    rewrite_elsewhere(table, "ID:N:6");
    ASSERT_TRUE(log.wait_for(6, 1s));
    flush(folder, dir.path());
    EXPECT_EQ(log.kinds(), (std::vector<int>{kBegin, kUpdate, kEnd, kBegin, kUpdate, kEnd}));

    qz_event_channel_del_client(ch, &Event_log::proc, &log);
    qz_destroy_dbf_notifier(n);
}

TEST(Notifier, WritableHandleHoldsABracketUntilClose) {
    Temp_dir dir;
    const std::string table = dir.file("h.dbf");
    make_table(table);
    const std::wstring wtable = qz_test::widen(table);
    Tqz_dbf_notifier* n = qz_create_dbf_notifier_w(wtable.c_str());
    Event_log log;
    Iqz_event_channel* ch = qz_dbf_notifier_get_update_event_channel(n);
    qz_event_channel_add_client(ch, &Event_log::proc, &log);

    // Read-only handles leave the notifier alone.
    Tqz_dbf_rw* reader = qz_dbf_open_w(wtable.c_str(), true, false);
    ASSERT_NE(reader, nullptr);
    qz_dbf_close(reader);
    EXPECT_EQ(log.size(), 0u);

    Tqz_dbf_rw* writer = qz_dbf_open_w(wtable.c_str(), false, false);
    ASSERT_NE(writer, nullptr);
    EXPECT_EQ(log.kinds(), (std::vector<int>{kBegin}));  // at once, on this thread
    EXPECT_EQ(n->get_ref_count(), 2u);                   // ours and the table's
    EXPECT_EQ(qz_dbf_notifier_begin_update(n), 2u);
    EXPECT_EQ(qz_dbf_notifier_end_update(n), 1u);

    // A change while the writer is open waits for its close.
    Logged_watcher folder(dir.path());
    ASSERT_EQ(qz_test::run("touch '" + table + "'"), 0);
    flush(folder, dir.path());
    EXPECT_EQ(log.kinds(), (std::vector<int>{kBegin}));
    qz_dbf_close(writer);
    EXPECT_EQ(log.kinds(), (std::vector<int>{kBegin, kUpdate, kEnd}));
    EXPECT_EQ(n->get_ref_count(), 1u);
    flush(folder, dir.path());  // the close itself changed only other files
    EXPECT_EQ(log.size(), 3u);

    // A failed open takes no bracket; a failed create in a missing folder
    // took the notifier and gives it back.
    EXPECT_EQ(qz_dbf_open_w(dir.wfile("missing.dbf").c_str(), false, false), nullptr);
    Tqz_dbf_field f;
    qz_dbf_field_init(&f, "ID", dbf_ft_numeric, 5, 0);
    EXPECT_EQ(qz_dbf_create_w(dir.wfile("no/such.dbf").c_str(), 1, 0, &f, false), nullptr);
    EXPECT_EQ(log.size(), 3u);

    EXPECT_EQ(qz_dbf_notifier_end_update(n), 0u);  // no bracket open
    EXPECT_EQ(log.size(), 3u);
    qz_event_channel_del_client(ch, &Event_log::proc, &log);
    qz_destroy_dbf_notifier(n);
    // Null handles are neutral.
    EXPECT_EQ(qz_dbf_notifier_begin_update(nullptr), 0u);
    EXPECT_EQ(qz_dbf_notifier_get_update_event_channel(nullptr), nullptr);
    qz_destroy_dbf_notifier(nullptr);
}

TEST(Notifier, DiskTableTakesItsFilesNotifier) {
    Temp_dir dir;
    const std::string table = dir.file("d.dbf");
    make_table(table);
    const size_t threads_before = qz_test::thread_count();
    {
        Tqz_dbf_disk disk;
        ASSERT_EQ(disk.open(qz_test::widen(table).c_str(), true, false, false), 0);
        Tqz_dbf_notifier* mine = Tqz_dbf_notifier::get_instance(dir.wfile("D.DBF").c_str());
        EXPECT_EQ(disk.get_notifier(), mine);
        EXPECT_EQ(mine->get_ref_count(), 2u);
        Event_log log;
        qz_event_channel_add_client(mine->get_update_event_channel(), &Event_log::proc, &log);
        {
            auto bracket = disk.update_bracket();
            auto inner = disk.update_bracket();
            EXPECT_EQ(log.kinds(), (std::vector<int>{kBegin}));
        }
        EXPECT_EQ(log.kinds(), (std::vector<int>{kBegin, kEnd}));
        qz_event_channel_del_client(mine->get_update_event_channel(), &Event_log::proc, &log);
        Tqz_dbf_notifier::release(mine);
        disk.close();
        EXPECT_EQ(disk.get_notifier(), nullptr);
        EXPECT_EQ(qz_test::thread_count(), threads_before);
        auto none = disk.update_bracket();  // closed: no notifier, no bracket

        // Create takes one even when the file cannot be made; close gives it back.
        Tqz_dbf_field f;
        qz_dbf_field_init(&f, "ID", dbf_ft_numeric, 5, 0);
        EXPECT_EQ(disk.create(dir.wfile("no/such.dbf").c_str(), 1, 0, &f, false, true), 1);
        EXPECT_NE(disk.get_notifier(), nullptr);
    }
    EXPECT_EQ(qz_test::thread_count(), threads_before);
}

// A client that gives back the last reference from inside a delivery: the
// notifier's folder watcher is destroyed from its own callback, the last
// watcher of the process, so the watcher thread must end by itself.
struct Releasing_client {
    Tqz_dbf_notifier* n = nullptr;
    std::atomic<int> seen{0};
    std::atomic<bool> released{false};
};

void release_on_update(Tqz_table* ev, void* user) {
    auto* c = static_cast<Releasing_client*>(user);
    ++c->seen;
    if (qz_event_kind(ev) == QZ_EVENT_UPDATE && !c->released) {
        c->released = true;
        qz_destroy_dbf_notifier(c->n);
    }
}

TEST(Notifier, LastReleaseFromInsideItsOwnDelivery) {
    Temp_dir dir;
    const std::string table = dir.file("r.dbf");
    make_table(table);
    const size_t threads_before = qz_test::thread_count();
    Releasing_client client;
    client.n = qz_create_dbf_notifier_w(qz_test::widen(table).c_str());
    qz_event_channel_add_client(qz_dbf_notifier_get_update_event_channel(client.n),
                                &release_on_update, &client);
    rewrite_elsewhere(table, "ID:N:7");
    // The delivery runs to its end (begin, update, end), then the notifier
    // and its watcher thread go.
    EXPECT_TRUE(qz_test::wait_thread_count(threads_before));
    EXPECT_TRUE(client.released);
    EXPECT_EQ(client.seen, 3);
    Tqz_dbf_notifier* fresh = qz_create_dbf_notifier_w(qz_test::widen(table).c_str());
    EXPECT_EQ(fresh->get_ref_count(), 1u);
    qz_destroy_dbf_notifier(fresh);
}

}  // namespace
