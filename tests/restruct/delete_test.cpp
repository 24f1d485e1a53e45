// Deleting records by a bit mask through the exports: the bit sets, the
// rewriting path with its odd masks and headers, inputs that must leave the
// table as it was (each with its reason), and memory tables losing records
// as one undoable step.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <random>

#include "restruct_tables.h"

using namespace restruct_test;
using qz_test::read_bytes;

namespace {

// A table of n records, record i: NAME "r<i>", N the number i, FLAG true
// for odd i; the records' cells.
Rows make_numbered(const std::wstring& path, unsigned n) {
    Rows rows;
    for (unsigned i = 0; i < n; ++i)
        rows.push_back({"r" + std::to_string(i), std::to_string(i), i % 2 ? "T" : "F"});
    make_table(path, {{"NAME", 'C', 6, 0}, {"N", 'N', 5, 0}, {"FLAG", 'L', 1, 0}}, rows);
    return cells(path, true);
}

TEST(DeleteByMask, RewritingPathKeepsTheRightRecords) {
    struct Case {
        std::vector<unsigned> bits, kept;
        uint32_t claimed;  // a record count written into the header, or 0
    };
    // Bits past the last record lower the count too, so the last kept
    // records fall off the copy. A header claiming a billion records over
    // five: the copy is made of the five, quickly.
    const std::vector<Case> cases = {{{}, {0, 1, 2, 3, 4}, 0},
                                     {{1, 3}, {0, 2, 4}, 0},
                                     {{0, 4}, {1, 2, 3}, 0},
                                     {{0, 1, 2, 3, 4}, {}, 0},
                                     {{1, 7, 9}, {0, 2}, 0},
                                     {{0, 5, 6, 7, 8, 9, 10}, {}, 0},
                                     {{0, 4, 600000000}, {1, 2}, 1000000000}};
    qz_test::Temp_dir dir;
    Temp_folder temp(dir.path());
    const std::string file = dir.file("t.dbf");
    const std::wstring path = dir.wfile("t.dbf");
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.bits));
        const Rows all = make_numbered(path, 5);
        // Record 2 flagged deleted in the file: kept records lose the flag.
        std::vector<uint8_t> b = read_bytes(file);
        const size_t header = qz_test::u16_at(b, 8), length = qz_test::u16_at(b, 10);
        b[header + 2 * length] = '*';
        for (int i = 0; c.claimed && i < 4; ++i) b[4 + i] = uint8_t(c.claimed >> 8 * i);
        qz_test::write_bytes(file, b);

        void* m = mask_of(c.bits);
        EXPECT_EQ(qz_dbf_del_records_by_msk_and_fn(path.c_str(), m), 0u);
        qz_bits_destroy(m);
        Rows want;  // the kept records, their flags cleared
        for (unsigned i : c.kept) want.push_back(all[i]);
        EXPECT_EQ(cells(path, true), want);
        const std::vector<uint8_t> a = read_bytes(file);
        EXPECT_EQ(qz_test::u32_at(a, 4), c.kept.size());
        EXPECT_EQ(a.size(), header + c.kept.size() * length + 1);
        for (size_t r = 0; r < c.kept.size(); ++r) EXPECT_EQ(a[header + r * length], ' ');
        // The temporary copy stays where it was made, no lock file is left.
        EXPECT_TRUE(qz_test::exists(dir.file("temp_minus_dbf.dbf")));
        EXPECT_FALSE(qz_test::exists(file + ".lk"));
    }
}

TEST(DeleteByMask, BadInputLeavesTheTableAsItWas) {
    qz_test::Temp_dir dir;
    Temp_folder temp(dir.path());
    const std::wstring path = dir.wfile("t.dbf"), none = dir.wfile("none.dbf");
    make_numbered(path, 4);
    const std::vector<uint8_t> before = read_bytes(dir.file("t.dbf"));
    void* m = mask_of({1});
    auto why = [&](const std::wstring& p, void* mask) {
        const int reason = qz_dbf_del_records_by_msk_why_w(p.c_str(), mask);
        // The classic result is 1 when nothing could be tried, else 0.
        EXPECT_EQ(qz_dbf_del_records_by_msk_and_fn(p.c_str(), mask),
                  reason == QZ_DBF_DELMASK_COPY_FAILED || reason == 0 ? 0u : 1u);
        EXPECT_EQ(read_bytes(dir.file("t.dbf")), before);
        return reason;
    };
    EXPECT_EQ(why(path, nullptr), QZ_DBF_DELMASK_NO_MASK);
    EXPECT_EQ(why(none, m), QZ_DBF_DELMASK_CANNOT_OPEN);
    EXPECT_EQ(qz_dbf_del_records_by_msk_and_fn(nullptr, m), 1u);
    // A folder without tables opens neither as a table nor through OGR.
    ASSERT_EQ(::mkdir(dir.file("empty").c_str(), 0700), 0);
    EXPECT_EQ(why(dir.wfile("empty"), m), QZ_DBF_DELMASK_CANNOT_OPEN);
    // A file that is no table at all.
    qz_test::write_bytes(dir.file("junk.dbf"), {1, 2, 3});
    EXPECT_EQ(why(dir.wfile("junk.dbf"), m), QZ_DBF_DELMASK_CANNOT_OPEN);
    EXPECT_EQ(read_bytes(dir.file("junk.dbf")), (std::vector<uint8_t>{1, 2, 3}));

    // Another writer holds the table: nothing changes, and its lock stays.
    Tqz_dbf_rw* writer = qz_dbf_open_w(path.c_str(), false, false);
    ASSERT_NE(writer, nullptr);
    EXPECT_EQ(why(path, m), QZ_DBF_DELMASK_LOCKED);
    EXPECT_TRUE(qz_test::exists(dir.file("t.dbf.lk")));
    qz_dbf_close(writer);

    // A temporary folder that cannot be written: the table is untouched.
    Temp_folder bad(dir.path() + "/no/such/folder");
    EXPECT_EQ(why(path, m), QZ_DBF_DELMASK_COPY_FAILED);
    EXPECT_FALSE(qz_test::exists(dir.file("t.dbf.lk")));
    qz_bits_destroy(m);
}

// Random masks on loaded tables against the records kept by hand: one undo
// step each, undone and redone twice; a null mask changes nothing and says
// so, an empty one is a step; the file is never touched. Any value but 0
// sets a bit; zeros are counted over the set's size, which only grows.
TEST(DeleteByMask, MemoryTableLosesRecordsAsOneUndoableStep) {
    Iqz_history_manager* hm = qz_history_manager_get_instance();
    qz_test::Temp_dir dir;
    std::mt19937 rng(12345);
    for (int round = 0; round < 30; ++round) {
        SCOPED_TRACE(round);
        const unsigned n = rng() % 40;
        const std::wstring path = dir.wfile(std::to_string(round) + ".dbf");
        make_numbered(path, n);
        const std::vector<uint8_t> on_disk = read_bytes(dir.file(std::to_string(round) + ".dbf"));
        const Rows all = cells(path);
        Tqz_dbf_memory* t = qz_dbf_mem_load_w(path.c_str());
        qz_history_manager_clear(hm);
        Rows want;
        void* mask = qz_bits_create();
        unsigned dropped = 0;
        for (unsigned r = 0; r < n + 5; ++r) {  // some bits past the last record
            const int drop = rng() % 3 == 0 ? (int(r % 5) - 2) | 1 : 0;
            if (drop) qz_bits_set_bit(mask, r, drop), ++dropped;
            if (r < n && !drop) want.push_back(all[r]);
        }
        qz_bits_set_bit(mask, n + 9, 1);
        qz_bits_set_bit(mask, n + 9, 0);
        EXPECT_EQ(qz_bits_get_val_count(mask, 7) + qz_bits_get_bit(mask, 0xFFFFFFFFu), dropped);
        EXPECT_EQ(qz_bits_get_val_count(mask, 0), n + 10 - dropped);
        ASSERT_EQ(qz_dbf_del_records_by_msk_and_fn(path.c_str(), mask), 0u);
        for (int twice = 0; twice < 2; ++twice) {
            EXPECT_EQ(cells(path), want);
            ASSERT_TRUE(qz_history_manager_undo(hm));
            EXPECT_EQ(cells(path), all);
            ASSERT_TRUE(qz_history_manager_redo(hm));
        }
        EXPECT_EQ(qz_dbf_del_records_by_msk_and_fn(path.c_str(), nullptr), 1u);
        EXPECT_EQ(qz_history_manager_get_undo_count(hm), 1u);
        void* empty = mask_of({});
        EXPECT_EQ(qz_dbf_del_records_by_msk_and_fn(path.c_str(), empty), 0u);
        EXPECT_EQ(qz_history_manager_get_undo_count(hm), 2u);
        EXPECT_EQ(cells(path), want);
        for (void* b : {mask, empty}) qz_bits_destroy(b);
        qz_dbf_mem_free(t);
        EXPECT_EQ(read_bytes(dir.file(std::to_string(round) + ".dbf")), on_disk);
    }
    qz_history_manager_clear(hm);
}

}  // namespace
