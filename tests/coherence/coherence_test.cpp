// What readers in other processes see of a handle's writes, saves over
// links, and searches over a header that claims far more records than its
// file holds.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include "child_process.h"
#include "qzk_basic.h"
#include "qzk_file_dbf_ext.h"

using namespace coherence;
using qz_test::read_bytes;
using qz_test::Temp_dir;

namespace {

std::string cell(Tqz_dbf_rw* t, unsigned field, unsigned record) {
    bool ok = false;
    const char* s = qz_dbf_get_str(t, field, record, ok);
    std::string text = ok && s ? s : "<none>";
    return text.erase(text.find_last_not_of(' ') + 1);
}

std::atomic<int> g_updates{0};
void count_updates(Tqz_table* event, void*) {
    g_updates += qz_event_kind(event) == QZ_EVENT_UPDATE;
}

}  // namespace

// A reader opened before a writer in another process sees the writer's
// record once the writer has moved to another record and the update event
// has reached the reader; the record still being changed reaches it at the
// writer's close.
TEST(Coherence, ReaderInAnotherProcessSeesWritesAndSavesFollowLinks) {
    Temp_dir dir;
    const std::string table = dir.file("shared.dbf");
    ASSERT_TRUE(qz_test::make_char_table(table, {10}, 3));
    // The file's time set an hour back: a later write changes it even on a
    // coarse clock.
    const timespec past[2] = {{::time(nullptr) - 3600, 0}, {::time(nullptr) - 3600, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, table.c_str(), past, 0), 0);
    Tqz_dbf_rw* reader = qz_dbf_open(table.c_str(), true, false);
    Tqz_dbf_notifier* n = qz_create_dbf_notifier_w(qz_test::widen(table).c_str());
    Iqz_event_channel* ch = qz_dbf_notifier_get_update_event_channel(n);
    qz_event_channel_add_client(ch, &count_updates, nullptr);
    g_updates = 0;
    EXPECT_EQ(cell(reader, 0, 1), "");  // the reader's window now holds every record
    Shared* shared = map_shared(dir.file("word"));
    const pid_t pid = shared ? start_child("writer", table, dir.file("word")) : -1;
    ASSERT_GT(pid, 0);
    EXPECT_TRUE(wait_for(pid, 20, [&] { return shared->progress.load() == 1; }));
    EXPECT_TRUE(wait_for(-1, 10, [&] { return g_updates.load() > 0; })) << "no update event";
    EXPECT_EQ(cell(reader, 0, 0), "CHANGED");
    const int before = g_updates.load();
    shared->word.store(1);
    int status = 0;
    ASSERT_TRUE(::waitpid(pid, &status, 0) == pid && WIFEXITED(status) && !WEXITSTATUS(status));
    EXPECT_TRUE(wait_for(-1, 10, [&] { return g_updates.load() > before; }));
    EXPECT_EQ(cell(reader, 0, 1) + cell(reader, 0, 0), "NEXTCHANGED");
    qz_event_channel_del_client(ch, &count_updates, nullptr);
    qz_destroy_dbf_notifier(n);
    qz_dbf_close(reader);
    // Saving a memory table over a link replaces the file the link names and
    // keeps its permission bits; siblings that killed saves left beside that
    // file are removed (which siblings stay is pinned by the restructure test).
    const std::string real = dir.file("real.dbf"), link = dir.file("link.dbf");
    ASSERT_TRUE(qz_test::make_char_table(real, {6}, 2));
    ASSERT_EQ(::chmod(real.c_str(), 0640) + ::symlink("real.dbf", link.c_str()), 0);
    const std::string orphan = real + ".999999999.0.tmp";  // no such pid
    qz_test::write_bytes(orphan, {1, 2, 3});
    Tqz_dbf_memory* m = qz_dbf_mem_load(link.c_str());
    ASSERT_TRUE(qz_dbf_mem_set_str(m, 0, 1, "saved") && qz_dbf_mem_save(m));
    qz_dbf_mem_free(m);
    struct stat st;
    EXPECT_TRUE(::lstat(link.c_str(), &st) == 0 && S_ISLNK(st.st_mode));
    EXPECT_TRUE(::stat(real.c_str(), &st) == 0 && (st.st_mode & 07777) == 0640u);
    EXPECT_EQ(raw_cell(read_bytes(real), 1, 1, 6), "saved");
    EXPECT_FALSE(qz_test::exists(orphan));
}

// A header that claims 2^32 - 1 records: with a record length of 0 every
// record reads the same bytes, with any other length the file holds only a
// few. Either way both searches answer at once, with what reading every
// claimed record would give.
TEST(Coherence, SearchesDoNotWalkAClaimedCount) {
    Temp_dir dir;
    for (uint8_t record_length : {0, 10}) {
        std::vector<uint8_t> b = qz_test::dbf_bytes(0x03, {{"NAME", 'C', 10}}, {{"Hello"}});
        std::fill(b.begin() + 4, b.begin() + 8, 0xFF);
        b[10] = record_length;
        qz_test::write_bytes(dir.file("claim.dbf"), b);
        Tqz_dbf_rw* t = qz_dbf_open(dir.file("claim.dbf").c_str(), true, false);
        ASSERT_EQ(qz_dbf_get_nr(t), 0xFFFFFFFFu);
        const auto start = std::chrono::steady_clock::now();
        unsigned rec = 7, none = 7;
        EXPECT_TRUE(qz_dbf_find_value(t, 0, "HELLO", rec) && rec == 0u);
        EXPECT_TRUE(!qz_dbf_find_value(t, 0, "absent", none) && none == 7u);
        qz_dbf_begin_fast_find(t, 0);
        // The index keeps the last record holding a text.
        EXPECT_TRUE(qz_dbf_find_value_fast(t, "Hello", rec) &&
                    rec == (record_length == 0 ? 0xFFFFFFFEu : 0u));
        EXPECT_FALSE(qz_dbf_find_value_fast(t, "absent", rec));
        qz_dbf_end_fast_find(t);
        EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(),
                  1.0);
        // Records past the file's end read as nothing at all.
        EXPECT_EQ(cell(t, 0, 5), record_length ? "<none>" : "Hello");
        qz_dbf_close(t);
    }
}
