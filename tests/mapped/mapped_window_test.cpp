// qz::file_window over a shared mapping: who maps, what reaches the file
// when, bytes past the end, growth, and the change counter.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "support/file_window.h"
#include "test_support.h"

using qz_test::read_bytes;
using qz_test::Temp_dir;
using qz_test::write_bytes;

namespace {

struct Fd {
    int fd;
    explicit Fd(const std::string& path, int flags = O_RDWR) : fd(::open(path.c_str(), flags)) {}
    ~Fd() {
        if (fd >= 0) ::close(fd);
    }
};

std::vector<uint8_t> pattern(size_t n) {
    std::vector<uint8_t> b(n);
    for (size_t i = 0; i < n; ++i) b[i] = static_cast<uint8_t>(i * 7 + 3);
    return b;
}

}  // namespace

TEST(MappedWindow, OnlyTheFilesOnlyWriterMaps) {
    Temp_dir dir;
    const std::string path = dir.file("f.bin");
    write_bytes(path, pattern(10000));
    Fd rw(path), ro(path, O_RDONLY);
    ASSERT_GE(rw.fd, 0);
    ASSERT_GE(ro.fd, 0);
    std::atomic<uint64_t> changes{0};
    struct Case {
        int fd;
        bool writable, follow, with_counter, maps;
    } cases[] = {
        {rw.fd, true, false, true, true},    // the writer holding the lock
        {rw.fd, true, false, false, true},   // ... without a notifier
        {rw.fd, true, true, true, false},    // a writer without the lock
        {rw.fd, true, true, false, false},   // ... and without a notifier
        {ro.fd, false, false, true, false},  // readers
        {ro.fd, false, true, true, false},
    };
    for (const Case& c : cases) {
        qz::file_window w;
        w.attach(c.fd, c.writable, c.with_counter ? &changes : nullptr, c.follow);
        EXPECT_EQ(w.mapped(), c.maps) << c.writable << c.follow << c.with_counter;
        // Whatever the mode, reads give the file's bytes and zeros past them.
        uint8_t got[16];
        EXPECT_EQ(w.read(9992, got, 16), 8u);
        const std::vector<uint8_t> want = pattern(10000);
        EXPECT_EQ(std::memcmp(got, want.data() + 9992, 8), 0);
        for (int i = 8; i < 16; ++i) EXPECT_EQ(got[i], 0);
        EXPECT_EQ(w.size(), 10000u);
    }
    EXPECT_EQ(read_bytes(path), pattern(10000));  // nothing was written
}

TEST(MappedWindow, WritesAreInTheFileAtOnceAndLeavingMovesTheCounter) {
    Temp_dir dir;
    const std::string path = dir.file("f.bin");
    write_bytes(path, std::vector<uint8_t>(4096 * 3, '.'));
    Fd rw(path);
    std::atomic<uint64_t> changes{0};
    qz::file_window w;
    w.attach(rw.fd, true, &changes, false);
    ASSERT_TRUE(w.mapped());

    // A record of 100 bytes at 4090 (across a page boundary).
    w.enter(4090, 4190);
    ASSERT_TRUE(w.write(4090, "first", 5));
    ASSERT_TRUE(w.write(4185, "last", 4));
    std::vector<uint8_t> b = read_bytes(path);
    EXPECT_EQ(std::string(b.begin() + 4090, b.begin() + 4095), "first");
    EXPECT_EQ(std::string(b.begin() + 4185, b.begin() + 4189), "last");
    EXPECT_EQ(changes.load(), 0u) << "nothing is announced while the record is being changed";
    w.enter(4090, 4190);  // staying
    EXPECT_EQ(changes.load(), 0u);
    w.enter(4190, 4290);  // leaving
    EXPECT_EQ(changes.load(), 1u);
    w.enter(4090, 4190);  // nothing written since
    EXPECT_EQ(changes.load(), 1u);

    // flush announces what is written and not yet left, once: neither a
    // second flush nor leaving the record announces it again, nor does the
    // hook that runs before update events.
    ASSERT_TRUE(w.write(4100, "x", 1));
    EXPECT_TRUE(w.flush());
    EXPECT_EQ(changes.load(), 2u);
    EXPECT_TRUE(w.flush());
    w.flush_before_event();
    w.enter(0, 10);
    EXPECT_EQ(changes.load(), 2u);
    ASSERT_TRUE(w.write(5, "y", 1));
    w.flush_before_event();
    EXPECT_EQ(changes.load(), 3u);
    w.flush_before_event();
    w.enter(4090, 4190);
    EXPECT_EQ(changes.load(), 3u);

    // Reads see the window's own writes and the file's.
    char got[5];
    EXPECT_EQ(w.read(4090, got, 5), 5u);
    EXPECT_EQ(std::string(got, 5), "first");
    Fd other(path);
    ASSERT_EQ(::pwrite(other.fd, "OTHER", 5, 8000), 5);
    EXPECT_EQ(w.read(8000, got, 5), 5u);
    EXPECT_EQ(std::string(got, 5), "OTHER");
    w.detach();
    b = read_bytes(path);
    EXPECT_EQ(b.size(), 4096u * 3);
    EXPECT_EQ(b[4100], 'x');
}

TEST(MappedWindow, GrowsWithTheFileAndNeverTouchesPastTheEnd) {
    Temp_dir dir;
    const std::string path = dir.file("f.bin");
    write_bytes(path, {});
    Fd rw(path);
    std::atomic<uint64_t> changes{0};
    qz::file_window w;
    w.attach(rw.fd, true, &changes, false);
    EXPECT_FALSE(w.mapped()) << "an empty file has nothing to map";
    uint8_t z[4] = {9, 9, 9, 9};
    EXPECT_EQ(w.read(0, z, 4), 0u);
    EXPECT_EQ(z[0], 0);

    // The file grows by writes past its end, in steps, some across pages;
    // the mapping follows, and what it covers reads back.
    std::vector<uint8_t> want;
    for (int step = 0; step < 40; ++step) {
        std::vector<uint8_t> piece(static_cast<size_t>(step * 397 + 1), uint8_t(step + 1));
        ASSERT_TRUE(w.write_through(want.size(), piece.data(), piece.size()));
        want.insert(want.end(), piece.begin(), piece.end());
        EXPECT_TRUE(w.mapped());
        EXPECT_EQ(w.size(), want.size());
        // A write reaching past the end goes to the file too.
        const uint8_t tail[3] = {0xAA, 0xBB, 0xCC};
        ASSERT_TRUE(w.write(want.size() - 1, tail, 3));
        want.back() = 0xAA;
        want.push_back(0xBB);
        want.push_back(0xCC);
        EXPECT_EQ(w.size(), want.size());
        // Reading across the end: the bytes, then zeros.
        uint8_t got[8];
        EXPECT_EQ(w.read(want.size() - 2, got, 8), 2u);
        EXPECT_EQ(got[0], 0xBB);
        EXPECT_EQ(got[1], 0xCC);
        EXPECT_EQ(got[2], 0);
    }
    // Overwrite through the mapping at the start and the end.
    ASSERT_TRUE(w.write(0, "AB", 2));
    ASSERT_TRUE(w.write(want.size() - 2, "YZ", 2));
    want[0] = 'A';
    want[1] = 'B';
    want[want.size() - 2] = 'Y';
    want[want.size() - 1] = 'Z';
    EXPECT_EQ(read_bytes(path), want);
    w.detach();
    EXPECT_EQ(read_bytes(path), want);
}

TEST(MappedWindow, ASharedFileIsToldOfChangesMadeThroughTheMapping) {
    Temp_dir dir;
    const std::string path = dir.file("f.bin");
    write_bytes(path, std::vector<uint8_t>(8192, ' '));
    Fd rw(path);
    std::atomic<uint64_t> changes{0};
    qz::file_window w;
    w.attach(rw.fd, true, &changes, false);
    ASSERT_TRUE(w.mapped());
    auto mtime = [&] {
        struct stat st;
        ::stat(path.c_str(), &st);
        return static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    };
    // Dirty the page first, so that a store into it changes no time.
    ASSERT_TRUE(w.write(0, "a", 1));
    w.enter(100, 200);
    // Two records changed within the gap: the first is told at once, the
    // second a little later, with nothing else happening.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_TRUE(w.write(100, "b", 1));
    w.enter(200, 300);
    const int64_t after_first = mtime();
    ASSERT_TRUE(w.write(200, "c", 1));
    w.enter(300, 400);
    bool told = false;
    for (int i = 0; i < 200 && !told; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        told = mtime() != after_first;
    }
    EXPECT_TRUE(told) << "the second change was never told";
    // An explicit flush tells at once (the file's time set back first, so
    // that any tell changes it).
    ASSERT_TRUE(w.write(300, "d", 1));
    const timespec past[2] = {{::time(nullptr) - 3600, 0}, {::time(nullptr) - 3600, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), past, 0), 0);
    const int64_t before_flush = mtime();
    ASSERT_TRUE(w.flush());
    EXPECT_NE(mtime(), before_flush);
}
