// The file's only writer works on a shared mapping of the file: the
// window's modes, what reaches the file when, bytes past the end, growth,
// the change counter and the change signal; through tables: files shorter
// than their header claims, appends, a file renamed over the table, many
// writers at once.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "qzk_file_dbf_ext.h"
#include "support/file_window.h"
#include "test_support.h"

using qz_test::raw_cell;
using qz_test::read_bytes;
using qz_test::Temp_dir;
using qz_test::write_bytes;

namespace {

struct Fd {
    int fd;
    explicit Fd(const std::string& path, int flags = O_RDWR) : fd(::open(path.c_str(), flags)) {}
    ~Fd() { ::close(fd); }
};

std::string cell(Tqz_dbf_rw* t, unsigned record) {
    bool ok = false;
    const char* s = qz_dbf_get_str(t, 0, record, ok);
    std::string text = ok && s ? s : "<none>";
    return text.erase(text.find_last_not_of(' ') + 1);
}

int64_t mtime(const std::string& path) {
    struct stat st;
    ::stat(path.c_str(), &st);
    return static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
}

}  // namespace

// The mapping follows its file: grown to the file's new length it reports
// success and shows the appended bytes; asked for nothing it lets go.
TEST(MappedWindow, TheMapGrowsOnlyTheOnlyWriterMapsAndItsWritesAreInTheFileAtOnce) {
    Temp_dir dir;
    write_bytes(dir.file("m.bin"), std::vector<uint8_t>(100, 'a'));
    Fd f(dir.file("m.bin"));
    qz::file_map m;
    ASSERT_TRUE(m.map(f.fd, 100) && ::pwrite(f.fd, "xyz", 3, 5000) == 3);
    EXPECT_TRUE(m.resize(100));
    ASSERT_TRUE(m.resize(5003) && m.size() == 5003u);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(m.at(5000)), 3), "xyz");
    EXPECT_FALSE(m.resize(0) || m.mapped());
    // Only the writer that holds the lock (it does not follow a change
    // counter) maps the file; whatever the mode, reads give the file's bytes
    // and zeros past them, and an empty file has nothing to map.
    const std::string path = dir.file("f.bin");
    std::vector<uint8_t> bytes(10000);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7 + 3);
    write_bytes(path, bytes);
    Fd rw(path), ro(path, O_RDONLY);
    std::atomic<uint64_t> changes{0};
    std::vector<uint8_t> want(bytes.end() - 8, bytes.end());
    want.resize(16);
    for (int mode = 0; mode < 8; ++mode) {  // writable, follow, with a counter
        const bool writable = mode & 4, follow = mode & 2;
        qz::file_window w;
        w.attach(writable ? rw.fd : ro.fd, writable, mode & 1 ? &changes : nullptr, follow);
        EXPECT_EQ(w.mapped(), writable && !follow) << mode;
        std::vector<uint8_t> got(16, 9);
        EXPECT_TRUE(w.read(9992, got.data(), 16) == 8u && got == want && w.size() == 10000u);
    }
    EXPECT_EQ(read_bytes(path), bytes);  // nothing was written
    write_bytes(path, {});
    qz::file_window empty;
    empty.attach(rw.fd, true, &changes, false);
    uint8_t z = 9;
    EXPECT_FALSE(empty.mapped() || empty.read(0, &z, 1) + z != 0u);
    empty.detach();

    // The writer's own window: its writes are in the file at once, and
    // leaving a record moves the change counter.
    write_bytes(path, std::vector<uint8_t>(4096 * 3, '.'));
    changes = 0;
    qz::file_window w;
    w.attach(rw.fd, true, &changes, false);
    ASSERT_TRUE(w.mapped());
    // A record of 100 bytes at 4090 (across a page boundary): its writes are
    // in the file at once, announced only when the record is left.
    w.enter(4090, 4190);
    ASSERT_TRUE(w.write(4090, "first", 5) && w.write(4185, "last", 4));
    std::vector<uint8_t> b = read_bytes(path);
    EXPECT_EQ(std::string(b.begin() + 4090, b.begin() + 4095), "first");
    EXPECT_EQ(std::string(b.begin() + 4185, b.begin() + 4189), "last");
    // Each step: the span entered (or a flush), the count afterwards.
    const struct {
        int64_t lo, hi;  // -1: flush(), -2: flush_before_event(), below: "x" written at -lo
        unsigned count;
    } steps[] = {{4090, 4190, 0}, {4190, 4290, 1}, {4090, 4190, 1}, {-4100, 0, 1},
                 {-1, 0, 2},      {-1, 0, 2},      {-2, 0, 2},      {0, 10, 2},
                 {-5, 0, 2},      {-2, 0, 3},      {-2, 0, 3},      {4090, 4190, 3}};
    for (const auto& s : steps) {
        if (s.lo < -2)
            ASSERT_TRUE(w.write(static_cast<uint64_t>(-s.lo), "x", 1));
        else if (s.lo == -1)
            EXPECT_TRUE(w.flush());
        else if (s.lo == -2)
            w.flush_before_event();
        else
            w.enter(s.lo, s.hi);
        EXPECT_EQ(changes.load(), s.count) << s.lo;
    }
    // Reads see the window's own writes and the file's.
    char got[10];
    Fd other(path);
    ASSERT_EQ(::pwrite(other.fd, "OTHER", 5, 8000), 5);
    EXPECT_TRUE(w.read(4090, got, 5) + w.read(8000, got + 5, 5) == 10u &&
                std::string(got, 10) == "firstOTHER");
    // The file's time tells watchers in other processes of changes made
    // through the mapping: of two records changed within the gap, the first
    // is told at once, the second a little later with nothing else
    // happening; a flush tells at once.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_TRUE(w.write(100, "b", 1));
    w.enter(200, 300);
    const int64_t after_first = mtime(path);
    ASSERT_TRUE(w.write(200, "c", 1));
    w.enter(300, 400);
    bool told = false;
    for (int i = 0; i < 200 && !told; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        told = mtime(path) != after_first;
    }
    EXPECT_TRUE(told) << "the second change was never told";
    ASSERT_TRUE(w.write(300, "d", 1));
    const timespec past[2] = {{::time(nullptr) - 3600, 0}, {::time(nullptr) - 3600, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), past, 0), 0);
    const int64_t before_flush = mtime(path);
    EXPECT_TRUE(w.flush() && mtime(path) != before_flush);
    w.detach();
    b = read_bytes(path);
    ASSERT_EQ(b.size(), 4096u * 3);
    EXPECT_EQ(std::string(b.begin(), b.begin() + 6), ".....x");
    EXPECT_EQ((std::string{char(b[4100]), char(b[100]), char(b[200]), char(b[300])}), "xbcd");
}

// The header claims ten records, the file ends inside the fourth: the cells
// of the records it holds are written, the others refused, and nothing past
// the end is touched (a store there would kill the process). Appends then
// write their records where the count says, the mapping growing with them,
// and a reader opened before sees them once it opens again. Then another
// program renames a file over the table while a writer has it open: the
// writer goes on writing into the file it opened, which nobody can reach by
// the name any more; the new file stays as it was.
TEST(MappedTable, AFileShorterThanItsHeaderClaimsGrowsIsRenamedOverManyWritersAtOnce) {
    Temp_dir dir;
    const std::string path = dir.file("short.dbf"), other = dir.file("other.dbf");
    ASSERT_TRUE(qz_test::make_char_table(path, {10}, 10));
    std::vector<uint8_t> want = read_bytes(path);
    const size_t hl = qz_test::u16_at(want, 8), rl = 11;
    want.resize(hl + rl * 3 + 5);
    write_bytes(path, want);
    Tqz_dbf_rw* reader = qz_dbf_open(path.c_str(), true, false);
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), false, false);
    EXPECT_EQ(qz_dbf_get_nr(t), 10u);
    for (unsigned r = 0; r < 10; ++r) {
        const std::string v = "v" + std::to_string(r);
        EXPECT_EQ(int(qz_dbf_set_str(t, 0, r, v.c_str())) + qz_dbf_set_deleted(t, r, true),
                  r < 3 ? 2 : 0);
        EXPECT_EQ(cell(t, r), r < 3 ? v : "<none>") << r;
        if (r < 3) want[hl + rl * r] = '*';
        if (r < 3) std::copy(v.begin(), v.end(), want.begin() + hl + rl * r + 1);
    }
    // Another handle sees a record once the writer has left it; a flush with
    // nothing pending still succeeds.
    EXPECT_EQ(cell(reader, 2), "v2");
    EXPECT_TRUE(qz_dbf_flush(t) && qz_dbf_flush(t) && qz_dbf_flush(reader) &&
                !qz_dbf_flush(nullptr));
    EXPECT_EQ(read_bytes(path), want);
    const unsigned total = 1000;  // 11 KB: many pages, many growths
    for (unsigned r = 10; r < total; ++r) {
        qz_dbf_add_records(t, 1);
        ASSERT_TRUE(qz_dbf_set_str(t, 0, r, ("w" + std::to_string(r)).c_str()));
    }
    ASSERT_TRUE(qz_dbf_set_str(t, 0, 5, "w5"));
    qz_dbf_close(t);
    const std::vector<uint8_t> now = read_bytes(path);
    EXPECT_EQ(qz_test::u32_at(now, 4), total);
    ASSERT_TRUE(now.size() == hl + rl * total + 1 && now.back() == 0x1A);
    EXPECT_TRUE(std::equal(now.begin() + 32, now.begin() + hl + rl * 3, want.begin() + 32));
    for (unsigned r = 5; r < total; r += r == 5 ? 5 : 1)
        ASSERT_EQ(raw_cell(now, r, 1, 10), "w" + std::to_string(r));
    // The reader's count is its own, taken at open; a new one sees all.
    EXPECT_EQ(qz_dbf_get_nr(reader), 10u);
    qz_dbf_close(reader);
    reader = qz_dbf_open(path.c_str(), true, false);
    EXPECT_EQ(cell(reader, total - 1) + std::to_string(qz_dbf_get_nr(reader)), "w9991000");
    qz_dbf_close(reader);

    ASSERT_TRUE(qz_test::make_char_table(other, {10}, 2));
    const std::vector<uint8_t> other_bytes = read_bytes(other);
    t = qz_dbf_open(path.c_str(), false, false);
    ASSERT_TRUE(qz_dbf_set_str(t, 0, 0, "before"));
    ASSERT_EQ(std::rename(other.c_str(), path.c_str()), 0);
    for (unsigned r = 0; r < 5; ++r) ASSERT_TRUE(qz_dbf_set_str(t, 0, r, "after"));
    qz_dbf_add_records(t, 3);
    ASSERT_TRUE(qz_dbf_set_str(t, 0, total + 2, "appended") && cell(t, total + 2) == "appended");
    qz_dbf_close(t);
    EXPECT_EQ(read_bytes(path), other_bytes);
    // Writers on many tables at once, opened and closed from several threads:
    // the signal thread they share starts and stops under them, and every
    // value reaches its file.
    std::vector<std::thread> pool;
    std::atomic<int> failures{0};
    for (int k = 0; k < 4; ++k)
        pool.emplace_back([&, k] {
            const std::string path = dir.file("t" + std::to_string(k) + ".dbf");
            failures += !qz_test::make_char_table(path, {6}, 20);
            for (int round = 0; round < 25; ++round) {
                Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), false, false);
                for (unsigned r = 0; r < 20; ++r)
                    failures += !qz_dbf_set_str(t, 0, r, std::to_string(round * 100 + r).c_str());
                if (round % 5 == 0) qz_dbf_add_records(t, 1);
                qz_dbf_close(t);
                const std::vector<uint8_t> b = read_bytes(path);
                for (unsigned r = 0; r < 20; ++r)
                    failures += raw_cell(b, r, 1, 6) != std::to_string(round * 100 + r);
            }
        });
    for (std::thread& th : pool) th.join();
    EXPECT_EQ(failures.load(), 0);
}
