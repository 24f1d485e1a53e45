// What the library asks of the system, seen by standing in for the C
// library's calls: how large the reads of a table file are, which files a
// replacement syncs, and whether text in a single-byte code page goes
// through iconv for every cell. None of these changes a value a caller
// reads; they decide how fast a table reads and whether a save survives a
// power cut.
#include <dlfcn.h>
#include <iconv.h>
#include <limits.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

bool watching = false;
std::vector<size_t> read_sizes;   // the byte counts asked of pread
std::vector<std::string> synced;  // the files and folders given to fsync
long conversions = 0;             // calls of iconv

template <class F>
F next_of(const char* name) {
    return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

// Runs `f` with the calls recorded afresh.
template <class F>
void watched(F&& f) {
    read_sizes.clear();
    synced.clear();
    conversions = 0;
    watching = true;
    f();
    watching = false;
}

}  // namespace

// Seen by the library's calls too: exported whatever the default visibility.
#define STAND_IN extern "C" __attribute__((visibility("default")))

STAND_IN ssize_t pread(int fd, void* buf, size_t n, off_t at) {
    static auto real = next_of<ssize_t (*)(int, void*, size_t, off_t)>("pread");
    if (watching) read_sizes.push_back(n);
    return real(fd, buf, n, at);
}

STAND_IN int fsync(int fd) {
    static auto real = next_of<int (*)(int)>("fsync");
    char target[PATH_MAX] = {};
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    if (watching && ::readlink(link.c_str(), target, sizeof target - 1) > 0)
        synced.push_back(target);
    return real(fd);
}

STAND_IN size_t iconv(iconv_t cd, char** in, size_t* in_left, char** out, size_t* out_left) {
    static auto real = next_of<size_t (*)(iconv_t, char**, size_t*, char**, size_t*)>("iconv");
    if (watching) ++conversions;
    return real(cd, in, in_left, out, out_left);
}

namespace {

// 1,000 records of 1,000 bytes: a C field of Cyrillic text in CP1251.
std::string make_big_table(const qz_test::Temp_dir& dir) {
    const std::string path = dir.file("big.dbf");
    std::vector<std::vector<std::string>> records(1000, {std::string(231, '\xC0')});
    qz_test::write_bytes(
        path,
        qz_test::dbf_bytes(
            0x03, {{"TEXT", 'C', 231}, {"PAD", 'C', 255}, {"PAD2", 'C', 255}, {"PAD3", 'C', 255}},
            records, 0xC9));
    return path;
}

// A read-only table reads a forward scan in windows that double up to 256
// KiB, and a jump back or far ahead in one page: random access does not
// drag in large windows it will not use.
TEST(EdgesCalls, ReadsGrowForwardAndStaySmallOnJumpsBack) {
    qz_test::Temp_dir dir;
    Tqz_dbf_rw* t = qz_dbf_open_ex(make_big_table(dir).c_str(), QZ_DBF_OPEN_READ_ONLY);
    ASSERT_NE(t, nullptr) << qz_dbf_last_error_message();
    bool ok = true;
    watched([&] {
        for (unsigned r : {999, 699, 399, 99, 400, 700}) qz_dbf_get_str(t, 0, r, ok);
    });
    ASSERT_FALSE(read_sizes.empty());
    EXPECT_EQ(*std::max_element(read_sizes.begin(), read_sizes.end()), 4096u);
    watched([&] {
        for (unsigned r = 0; r < 1000; ++r) qz_dbf_get_str(t, 0, r, ok);
    });
    ASSERT_GT(read_sizes.size(), 4u);
    EXPECT_EQ(read_sizes[1], 2 * read_sizes[0]);
    EXPECT_EQ(*std::max_element(read_sizes.begin(), read_sizes.end()), 256u * 1024);
    EXPECT_LT(read_sizes.size(), 15u);
    qz_dbf_close(t);
}

// Typed reads of CP1251 text, and wide reads of a UTF-8 table's characters
// beyond 16 bits, convert through the library's own tables, not one iconv
// call per cell; a saved memory table syncs the new file and then the folder
// that holds it, so the rename survives a power cut.
TEST(EdgesCalls, TextSkipsIconvAndASaveSyncsItsFolder) {
    qz_test::Temp_dir dir;
    const std::string path = make_big_table(dir), utf8 = dir.file("u.dbf");
    qz_test::write_bytes(utf8, qz_test::dbf_bytes(0x03, {{"T", 'C', 8}},
                                                  {1000, {"\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF"}}));
    qz_test::write_bytes(dir.file("u.cpg"), {'U', 'T', 'F', '-', '8'});
    Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
    Tqz_dbf_rw* u = qz_dbf_open_ex(utf8.c_str(), QZ_DBF_OPEN_READ_ONLY);
    ASSERT_TRUE(t && u) << qz_dbf_last_error_message();
    Tqz_dbf_value v;
    std::wstring wide;
    unsigned len = 0;
    bool ok = true;
    auto read = [&](unsigned r) {  // the first read makes the conversion tables
        wide = qz_dbf_get_value(t, 0, r, &v) ? qz_dbf_get_wstr(u, 0, r, len, ok, 0) : L"";
    };
    read(0);
    watched([&] {
        for (unsigned r = 0; r < 1000; ++r) read(r);
    });
    std::string letters;  // U+0410, CP1251 0xC0
    for (int i = 0; i < 231; ++i) letters += "\xD0\x90";
    EXPECT_EQ(std::string(v.text, v.length), letters);
    EXPECT_EQ(wide, L"\U0001F600\U0010FFFF");
    EXPECT_LT(conversions, 100);
    qz_dbf_close(t);
    qz_dbf_close(u);

    Tqz_dbf_memory* m = qz_dbf_mem_load(path.c_str());
    ASSERT_NE(m, nullptr);
    ASSERT_TRUE(qz_dbf_mem_set_str(m, 0, 0, "x"));
    watched([&] { EXPECT_TRUE(qz_dbf_mem_save(m)); });
    qz_dbf_mem_free(m);
    char folder[PATH_MAX];
    ASSERT_NE(::realpath(dir.path().c_str(), folder), nullptr);
    EXPECT_EQ(synced.empty() ? "" : synced.back(), folder);
}

}  // namespace
