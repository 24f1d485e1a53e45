// The table notifier: the shared registry, change detection through the
// folder watcher, the brackets of tables and handles, and its lifetime
// across threads. Events log as "2" begin, "1 count=<n>" update, "3" end.
// Where a test must know that the notifier saw a change and said nothing, a
// folder watcher made after the notifier's hears a later change: watchers of
// one folder hear each change in the order they were made.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "dbf/disk_table.h"
#include "event_log.h"
#include "notify/dbf_notifier.h"
#include "qzk_file_dbf.h"

namespace {

using namespace std::chrono_literals;
using qz_test::Event_log;
using qz_test::Lines;
using qz_test::Logged_watcher;
using qz_test::thread_count;
using qz_test::widen;
using N = Tqz_dbf_notifier;

// A table of one numeric field, made by this process or (`fields` given)
// rewritten by another.
void make_table(const std::string& path, const std::string& fields = "") {
    Tqz_dbf_field f;
    qz_dbf_field_init(&f, "ID", dbf_ft_numeric, 5, 0);
    if (fields.empty())
        qz_dbf_close(qz_dbf_create_w(widen(path).c_str(), 1, 2, &f, false));
    else
        ASSERT_EQ(
            qz_test::run(std::string(QZDBF_EXE) + " create --overwrite '" + path + "' " + fields),
            0);
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

// Paths differing only in letter case share one notifier (kept as first
// given) and one watcher thread; the last release destroys it and its
// thread.
TEST(Notifier, PathsDifferingInCaseShareOne) {
    qz_test::Temp_dir dir;
    const size_t threads_before = thread_count();
    N* a = N::get_instance(dir.wfile("cars.dbf").c_str());
    N* b = N::get_instance(dir.wfile("CARS.Dbf").c_str());
    ASSERT_EQ(a, b);
    EXPECT_TRUE(a->is_watching());
    EXPECT_EQ(a->get_path(), dir.wfile("cars.dbf"));
    N::release(a);
    EXPECT_EQ(b->get_ref_count(), 1u);
    EXPECT_EQ(thread_count(), threads_before + 1);
    N::release(b);
    EXPECT_EQ(thread_count(), threads_before);
}

// A writable handle opens a bracket at once on the opening thread and holds
// it (and a reference) until close: a change meanwhile goes out at the
// close. Read-only handles and failed opens leave it alone; so
// does the disk table's own nested bracket, but for its begin and end.
TEST(Notifier, WritableHandleHoldsABracketUntilClose) {
    qz_test::Temp_dir dir;
    const std::string table = dir.file("h.dbf");
    make_table(table);
    const std::wstring wtable = widen(table);
    N* n = qz_create_dbf_notifier_w(wtable.c_str());
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
    qz_event_channel_del_client(ch, &Event_log::proc, &log);
    qz_destroy_dbf_notifier(n);
}

// A client gives back the last reference from inside a delivery: the
// notifier's folder watcher, the last of the process, is destroyed from its
// own callback; the delivery runs to its end, then the thread ends by itself.
TEST(Notifier, LastReleaseFromInsideItsOwnDelivery) {
    qz_test::Temp_dir dir;
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
    EXPECT_TRUE(qz_test::wait_thread_count(threads_before));
    EXPECT_EQ(client.n, nullptr);
    EXPECT_EQ(client.seen, 3);
}

// A subscriber in this process hears another process write the table: one
// update in its bracket. Other files of the folder changing and the table's
// removal say nothing; the table written again makes one more.
TEST(Notifier, SeesTheTableChangedByAnotherProcess) {
    qz_test::Temp_dir dir;
    const std::string table = dir.file("t.dbf");
    make_table(table);
    N* n = qz_create_dbf_notifier_w(widen(table).c_str());
    Event_log log;
    Iqz_event_channel* ch = qz_dbf_notifier_get_update_event_channel(n);
    qz_event_channel_add_client(ch, &Event_log::proc, &log);
    Logged_watcher folder(dir.path());
    make_table(table, "ID:N:6 NAME:C:10 --records 3");
    ASSERT_TRUE(log.wait_for(3));
    EXPECT_EQ(log.lines(), (Lines{"2", "1 count=1", "3"}));
    qz_test::write_bytes(dir.file("other.dbf"), {1, 2, 3});
    qz_test::write_bytes(dir.file("t.txt"), {4});
    ASSERT_EQ(std::remove(table.c_str()), 0);
    flush(folder, dir.path());
    EXPECT_EQ(log.lines().size(), 3u);
    make_table(table, "ID:N:6");
    ASSERT_TRUE(log.wait_for(6));
    flush(folder, dir.path());
    EXPECT_EQ(log.lines(), (Lines{"2", "1 count=1", "3", "2", "1 count=1", "3"}));
    qz_event_channel_del_client(ch, &Event_log::proc, &log);
    qz_destroy_dbf_notifier(n);
}

}  // namespace
