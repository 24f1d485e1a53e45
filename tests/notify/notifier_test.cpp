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

#include "dbf/disk_table.h"
#include "event_log.h"
#include "notify/dbf_notifier.h"
#include "qzk_file_dbf.h"
#include "test_support.h"

namespace {

using namespace std::chrono_literals;
using qz_test::Event_log;
using qz_test::Logged_watcher;
using qz_test::thread_count;
using qz_test::widen;
using N = Tqz_dbf_notifier;
using Kinds = std::vector<int>;
constexpr int kBegin = QZ_EVENT_BEGIN_UPDATE, kUpdate = QZ_EVENT_UPDATE, kEnd = QZ_EVENT_END_UPDATE;

// A table of one numeric field, made by this process or (`fields` given)
// rewritten by another.
void make_table(const std::string& path, const std::string& fields = "") {
    if (!fields.empty()) {
        ASSERT_EQ(
            qz_test::run(std::string(QZDBF_EXE) + " create --overwrite '" + path + "' " + fields),
            0);
        return;
    }
    Tqz_dbf_field f;
    qz_dbf_field_init(&f, "ID", dbf_ft_numeric, 5, 0);
    Tqz_dbf_rw* t = qz_dbf_create_w(widen(path).c_str(), 1, 2, &f, false);
    ASSERT_NE(t, nullptr);
    qz_dbf_close(t);
}

// Changes a marker file in `w`'s folder and waits until `w` hears it: the
// notifier, whose watcher was made first, has then seen every change before.
void flush(Logged_watcher& w, const std::string& folder) {
    static int markers = 0;
    const std::string name = "marker" + std::to_string(++markers);
    qz_test::write_bytes(folder + "/" + name, {1});
    for (auto names = w.log.names(); std::find(names.begin(), names.end(), name) == names.end();
         names = w.log.names())
        ASSERT_TRUE(w.log.wait_for(names.size() + 1)) << "no word of " << name;
}

// Paths differing only in letter case share one notifier (kept as first
// given) and one watcher thread; another spelling is another notifier; the
// last release destroys it and its thread. A bare name lives in the current
// folder; a missing folder gives a notifier without watcher, brackets work.
TEST(Notifier, PathsDifferingInCaseShareOne) {
    qz_test::Temp_dir dir;
    const size_t threads_before = thread_count();
    const std::wstring lower = dir.wfile("cars.dbf");
    N* a = N::get_instance(lower.c_str());
    N* b = N::get_instance(dir.wfile("CARS.Dbf").c_str());
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a, b);
    EXPECT_EQ(a->get_ref_count(), 2u);
    EXPECT_TRUE(a->is_watching());
    EXPECT_EQ(a->get_path(), lower);
    N* c = N::get_instance((dir.path() + "/./cars.dbf").c_str());
    EXPECT_NE(c, a);
    N::release(c);
    N::release(a);
    EXPECT_EQ(b->get_ref_count(), 1u);
    EXPECT_EQ(thread_count(), threads_before + 1);
    N::release(b);
    EXPECT_EQ(thread_count(), threads_before);

    char cwd[4096];
    ASSERT_NE(::getcwd(cwd, sizeof cwd), nullptr);
    ASSERT_EQ(::chdir(dir.path().c_str()), 0);
    N* bare = N::get_instance(L"bare.dbf");
    EXPECT_TRUE(bare->is_watching());
    EXPECT_EQ(bare->get_ref_count(), 1u);
    N::release(bare);
    ASSERT_EQ(::chdir(cwd), 0);
    N* e = N::get_instance(dir.wfile("none/x.dbf").c_str());
    EXPECT_FALSE(e->is_watching());
    EXPECT_EQ(e->begin_update(), 1u);
    EXPECT_EQ(e->end_update(), 0u);
    N::release(e);
    EXPECT_EQ(thread_count(), threads_before);
}

// Another process rewriting the table gives one update in its bracket
// within a second; other files of the folder and the table's deletion give
// nothing; written again, one more.
TEST(Notifier, SeesTheTableChangedByAnotherProcess) {
    qz_test::Temp_dir dir;
    const std::string table = dir.file("t.dbf");
    make_table(table);
    N* n = qz_create_dbf_notifier_w(widen(table).c_str());
    ASSERT_NE(n, nullptr);
    Event_log log;
    Iqz_event_channel* ch = qz_dbf_notifier_get_update_event_channel(n);
    qz_event_channel_add_client(ch, &Event_log::proc, &log);
    Logged_watcher folder(dir.path());
    make_table(table, "ID:N:6 NAME:C:10 --records 3");
    ASSERT_TRUE(log.wait_for(3, 1s));
    EXPECT_EQ(log.entries()[1].count, 1);
    qz_test::write_bytes(dir.file("other.dbf"), {1, 2, 3});
    qz_test::write_bytes(dir.file("t.txt"), {4});
    ASSERT_EQ(std::remove(table.c_str()), 0);
    flush(folder, dir.path());
    EXPECT_EQ(log.size(), 3u);
    make_table(table, "ID:N:6");
    ASSERT_TRUE(log.wait_for(6, 1s));
    flush(folder, dir.path());
    EXPECT_EQ(log.kinds(), (Kinds{kBegin, kUpdate, kEnd, kBegin, kUpdate, kEnd}));
    qz_event_channel_del_client(ch, &Event_log::proc, &log);
    qz_destroy_dbf_notifier(n);
}

// A writable handle opens a bracket at once on the opening thread and holds
// it (and a reference) until close: a change meanwhile goes out at the
// close. Read-only handles, failed opens and creates leave it alone.
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
    EXPECT_EQ(log.size(), 0u);
    Tqz_dbf_rw* writer = qz_dbf_open_w(wtable.c_str(), false, false);
    ASSERT_NE(writer, nullptr);
    EXPECT_EQ(log.kinds(), Kinds{kBegin});
    EXPECT_EQ(n->get_ref_count(), 2u);
    EXPECT_EQ(qz_dbf_notifier_begin_update(n), 2u);
    EXPECT_EQ(qz_dbf_notifier_end_update(n), 1u);
    Logged_watcher folder(dir.path());
    ASSERT_EQ(qz_test::run("touch '" + table + "'"), 0);
    flush(folder, dir.path());
    EXPECT_EQ(log.kinds(), Kinds{kBegin});
    qz_dbf_close(writer);
    EXPECT_EQ(log.kinds(), (Kinds{kBegin, kUpdate, kEnd}));
    EXPECT_EQ(n->get_ref_count(), 1u);
    flush(folder, dir.path());  // the close itself changed only other files
    EXPECT_EQ(qz_dbf_open_w(dir.wfile("missing.dbf").c_str(), false, false), nullptr);
    Tqz_dbf_field f;
    qz_dbf_field_init(&f, "ID", dbf_ft_numeric, 5, 0);
    EXPECT_EQ(qz_dbf_create_w(dir.wfile("no/such.dbf").c_str(), 1, 0, &f, false), nullptr);
    EXPECT_EQ(qz_dbf_notifier_end_update(n), 0u);  // no bracket open
    EXPECT_EQ(log.size(), 3u);
    qz_event_channel_del_client(ch, &Event_log::proc, &log);
    qz_destroy_dbf_notifier(n);
    EXPECT_EQ(qz_dbf_notifier_begin_update(nullptr), 0u);
    EXPECT_EQ(qz_dbf_notifier_get_update_event_channel(nullptr), nullptr);
    qz_destroy_dbf_notifier(nullptr);
}

// The disk table takes its file's notifier on open (nested brackets give one
// begin and one end) and gives it back on close; create takes one even when
// the file cannot be made, and the table's end gives it back.
TEST(Notifier, DiskTableTakesItsFilesNotifier) {
    qz_test::Temp_dir dir;
    make_table(dir.file("d.dbf"));
    const size_t threads_before = thread_count();
    {
        Tqz_dbf_disk disk;
        ASSERT_EQ(disk.open(dir.wfile("d.dbf").c_str(), true, false, false), 0);
        N* mine = N::get_instance(dir.wfile("D.DBF").c_str());
        EXPECT_EQ(disk.get_notifier(), mine);
        Event_log log;
        qz_event_channel_add_client(mine->get_update_event_channel(), &Event_log::proc, &log);
        {
            auto bracket = disk.update_bracket();
            auto inner = disk.update_bracket();
            EXPECT_EQ(log.kinds(), Kinds{kBegin});
        }
        EXPECT_EQ(log.kinds(), (Kinds{kBegin, kEnd}));
        qz_event_channel_del_client(mine->get_update_event_channel(), &Event_log::proc, &log);
        N::release(mine);
        disk.close();
        EXPECT_EQ(disk.get_notifier(), nullptr);
        EXPECT_EQ(thread_count(), threads_before);
        auto none = disk.update_bracket();
        Tqz_dbf_field f;
        qz_dbf_field_init(&f, "ID", dbf_ft_numeric, 5, 0);
        EXPECT_EQ(disk.create(dir.wfile("no/such.dbf").c_str(), 1, 0, &f, false, true), 1);
        EXPECT_NE(disk.get_notifier(), nullptr);
    }
    EXPECT_EQ(thread_count(), threads_before);
}

// A client gives back the last reference from inside a delivery: the
// notifier's folder watcher, the last of the process, is destroyed from its
// own callback; the delivery runs to its end, then the thread ends by itself.
struct Releasing_client {
    std::atomic<N*> n;
    std::atomic<int> seen{0};
};

TEST(Notifier, LastReleaseFromInsideItsOwnDelivery) {
    qz_test::Temp_dir dir;
    const std::string table = dir.file("r.dbf");
    make_table(table);
    const size_t threads_before = thread_count();
    Releasing_client client{qz_create_dbf_notifier_w(widen(table).c_str())};
    auto release_on_update = [](Tqz_table* ev, void* user) {
        auto* c = static_cast<Releasing_client*>(user);
        ++c->seen;
        if (qz_event_kind(ev) == QZ_EVENT_UPDATE) qz_destroy_dbf_notifier(c->n.exchange(nullptr));
    };
    qz_event_channel_add_client(qz_dbf_notifier_get_update_event_channel(client.n),
                                release_on_update, &client);
    make_table(table, "ID:N:7");
    EXPECT_TRUE(qz_test::wait_thread_count(threads_before));
    EXPECT_EQ(client.n, nullptr);
    EXPECT_EQ(client.seen, 3);
    N* fresh = qz_create_dbf_notifier_w(widen(table).c_str());
    EXPECT_EQ(fresh->get_ref_count(), 1u);
    qz_destroy_dbf_notifier(fresh);
}

}  // namespace
