// A table opened for writing with its lock works on a mapping of its file:
// files shorter than their header claims, appends that grow the mapping,
// a file renamed over the table while it is open, many handles at once.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "qzk_file_dbf_ext.h"
#include "test_support.h"

using qz_test::read_bytes;
using qz_test::Temp_dir;
using qz_test::write_bytes;

namespace {

using qz_test::raw_cell;
using qz_test::u16_at;
using qz_test::u32_at;
const auto make_table = qz_test::make_char_table;

std::string cell(Tqz_dbf_rw* t, unsigned field, unsigned record) {
    bool ok = false;
    const char* s = qz_dbf_get_str(t, field, record, ok);
    if (!ok || !s) return "<none>";
    std::string text = s;
    while (!text.empty() && text.back() == ' ') text.pop_back();
    return text;
}

}  // namespace

// The header claims ten records, the file ends inside the fourth: the cells
// of the records it holds are written, the others refused, and nothing past
// the end is touched (a store there would kill the process). An append
// then writes its records where the count says, and the mapping covers them.
TEST(MappedTable, AFileShorterThanItsHeaderClaims) {
    Temp_dir dir;
    const std::string path = dir.file("short.dbf");
    ASSERT_TRUE(make_table(path, {10}, 10));
    std::vector<uint8_t> b = read_bytes(path);
    const size_t hl = u16_at(b, 8), rl = u16_at(b, 10);
    ASSERT_EQ(rl, 11u);
    b.resize(hl + rl * 3 + 5);
    write_bytes(path, b);

    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), false, false);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(qz_dbf_get_nr(t), 10u);
    for (unsigned r = 0; r < 10; ++r) {
        const std::string v = "v" + std::to_string(r);
        EXPECT_EQ(qz_dbf_set_str(t, 0, r, v.c_str()), r < 3) << r;
        EXPECT_EQ(cell(t, 0, r), r < 3 ? v : "<none>") << r;
        EXPECT_EQ(qz_dbf_set_deleted(t, r, true), r < 3) << r;
    }
    EXPECT_TRUE(qz_dbf_flush(t));
    std::vector<uint8_t> now = read_bytes(path);
    ASSERT_EQ(now.size(), b.size());
    for (unsigned r = 0; r < 3; ++r) {
        EXPECT_EQ(raw_cell(now, r, 1, 10), "v" + std::to_string(r));
        EXPECT_EQ(now[hl + rl * r], '*');
    }
    EXPECT_TRUE(std::equal(b.begin() + hl + rl * 3, b.end(), now.begin() + hl + rl * 3));

    qz_dbf_add_records(t, 2);
    EXPECT_EQ(qz_dbf_get_nr(t), 12u);
    for (unsigned r : {5u, 10u, 11u}) {
        const std::string v = "w" + std::to_string(r);
        EXPECT_TRUE(qz_dbf_set_str(t, 0, r, v.c_str())) << r;
        EXPECT_EQ(cell(t, 0, r), v);
    }
    qz_dbf_close(t);
    now = read_bytes(path);
    EXPECT_EQ(u32_at(now, 4), 12u);
    ASSERT_EQ(now.size(), hl + rl * 12 + 1);
    EXPECT_EQ(now.back(), 0x1A);
    EXPECT_EQ(raw_cell(now, 2, 1, 10), "v2");
    for (unsigned r : {5u, 10u, 11u}) EXPECT_EQ(raw_cell(now, r, 1, 10), "w" + std::to_string(r));
}

// Appends one at a time, each written at once: the mapping grows with the
// file, and a reader opened before any of it sees every value.
TEST(MappedTable, AppendsGrowTheMappingAndReadersSeeThem) {
    Temp_dir dir;
    const std::string path = dir.file("grow.dbf");
    ASSERT_TRUE(make_table(path, {7, 250}, 1));
    Tqz_dbf_rw* reader = qz_dbf_open(path.c_str(), true, false);
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), false, false);
    ASSERT_TRUE(reader && t);
    const unsigned total = 200;  // about 50 KB: many pages, many growths
    for (unsigned r = 1; r < total; ++r) {
        qz_dbf_add_records(t, 1);
        ASSERT_TRUE(qz_dbf_set_str(t, 0, r, std::to_string(r).c_str()));
        ASSERT_TRUE(qz_dbf_set_str(t, 1, r, std::string(r % 250, 'x').c_str()));
        if (r % 50 == 0) {
            EXPECT_EQ(cell(t, 0, r - 1), std::to_string(r - 1));
        }
    }
    EXPECT_TRUE(qz_dbf_flush(t));
    std::vector<uint8_t> b = read_bytes(path);
    EXPECT_EQ(u32_at(b, 4), total);
    ASSERT_EQ(b.size(), u16_at(b, 8) + 258u * total + 1);
    for (unsigned r = 1; r < total; ++r) {
        ASSERT_EQ(raw_cell(b, r, 1, 7), std::to_string(r));
        ASSERT_EQ(raw_cell(b, r, 8, 250), std::string(r % 250, 'x'));
    }
    qz_dbf_close(t);
    // The reader's count is its own, taken at open; a new one sees all.
    qz_dbf_close(reader);
    reader = qz_dbf_open(path.c_str(), true, false);
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(qz_dbf_get_nr(reader), total);
    EXPECT_EQ(cell(reader, 0, total - 1), std::to_string(total - 1));
    qz_dbf_close(reader);
}

// Another program renames a file over the table while a writer has it
// open: the writer goes on writing into the file it opened (as a write(2)
// would), which nobody can reach by the name any more; the new file stays
// as it was.
TEST(MappedTable, AFileRenamedOverTheTableIsLeftAlone) {
    Temp_dir dir;
    const std::string path = dir.file("t.dbf"), other = dir.file("other.dbf");
    ASSERT_TRUE(make_table(path, {10}, 5));
    ASSERT_TRUE(make_table(other, {10}, 2));
    const std::vector<uint8_t> other_bytes = read_bytes(other);
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), false, false);
    ASSERT_NE(t, nullptr);
    ASSERT_TRUE(qz_dbf_set_str(t, 0, 0, "before"));
    ASSERT_EQ(std::rename(other.c_str(), path.c_str()), 0);
    for (unsigned r = 0; r < 5; ++r) ASSERT_TRUE(qz_dbf_set_str(t, 0, r, "after"));
    qz_dbf_add_records(t, 3);
    ASSERT_TRUE(qz_dbf_set_str(t, 0, 7, "appended"));
    EXPECT_EQ(cell(t, 0, 7), "appended");
    qz_dbf_close(t);
    EXPECT_EQ(read_bytes(path), other_bytes);
}

// Writers on many tables at once, opened and closed from several threads:
// the signal thread they share starts and stops under them, and every
// value reaches its file.
TEST(MappedTable, ManyWritersOpenAndCloseAtOnce) {
    Temp_dir dir;
    const int threads = 4, rounds = 25;
    std::vector<std::thread> pool;
    std::vector<int> failures(threads, 0);
    for (int k = 0; k < threads; ++k)
        pool.emplace_back([&, k] {
            const std::string path = dir.file("t" + std::to_string(k) + ".dbf");
            if (!make_table(path, {6}, 20)) {
                ++failures[k];
                return;
            }
            for (int round = 0; round < rounds; ++round) {
                Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), false, false);
                if (!t) {
                    ++failures[k];
                    continue;
                }
                for (unsigned r = 0; r < 20; ++r)
                    if (!qz_dbf_set_str(t, 0, r, std::to_string(round * 100 + r).c_str()))
                        ++failures[k];
                if (round % 5 == 0) qz_dbf_add_records(t, 1);
                qz_dbf_close(t);
                const std::vector<uint8_t> b = read_bytes(path);
                for (unsigned r = 0; r < 20; ++r)
                    if (raw_cell(b, r, 1, 6) != std::to_string(round * 100 + r)) ++failures[k];
            }
        });
    for (std::thread& th : pool) th.join();
    for (int k = 0; k < threads; ++k) EXPECT_EQ(failures[k], 0) << "thread " << k;
}
