// A writer process killed with SIGKILL at random moments: cell writes lose
// at most the record the writer was changing, appends never leave a header
// count above the records in the file, and saving a memory table never
// leaves an empty or cut table.
#include <gtest/gtest.h>

#include <dirent.h>

#include <random>

#include "child_process.h"

using namespace coherence;
using qz_test::read_bytes;
using qz_test::Temp_dir;
using qz_test::write_bytes;

namespace {

constexpr int kKills = 50;

// Starts the child on `table`, lets it make progress, kills it after a
// random pause of up to `max_us`; the child's progress, or -1 when it never
// got going.
int64_t run_and_kill(const std::string& mode, const std::string& table, Shared_file& shared,
                     std::mt19937& rng, unsigned max_us) {
    shared.reset();
    pid_t pid = start_child(mode, table, shared);
    if (pid < 0) return -1;
    if (!wait_for(
            pid, [&] { return shared->progress.load() > 0; }, 20)) {
        kill_and_reap(pid);
        return -1;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(rng() % (max_us + 1)));
    kill_and_reap(pid);
    return static_cast<int64_t>(shared->progress.load());
}

// The value step g writes into record g % records: after `done` steps, what
// record r holds (empty before its first step), `back` passes earlier.
std::string expected(uint64_t done, unsigned records, unsigned r, unsigned back = 0) {
    if (done <= r) return "";
    uint64_t last = r + (done - 1 - r) / records * records;
    if (last < uint64_t(back) * records) return "";
    return std::to_string(last - uint64_t(back) * records);
}

}  // namespace

TEST(Kill, CellWritesLoseAtMostTheRecordBeingChanged) {
    Temp_dir dir;
    const std::string table = dir.file("cells.dbf");
    const unsigned records = 64;
    ASSERT_TRUE(make_table(table, {10, 10}, records));
    const std::vector<uint8_t> pristine = read_bytes(table);
    Shared_file shared(dir.file("shared"));
    ASSERT_TRUE(shared.ok());
    std::mt19937 rng(20);
    int checked = 0;
    for (int k = 0; k < kKills; ++k) {
        write_bytes(table, pristine);
        int64_t done = run_and_kill("cells", table, shared, rng, 3000);
        ASSERT_GE(done, 0) << "the writer never started";
        const std::vector<uint8_t> bytes = read_bytes(table);
        ASSERT_EQ(bytes.size(), pristine.size());
        // Every record holds its last completed step, except perhaps one:
        // the record of the step under way (its writes not yet sent) or the
        // record just finished (still pending when the next step began).
        std::vector<unsigned> behind;
        for (unsigned r = 0; r < records; ++r) {
            std::string a = raw_cell(bytes, r, 1, 10), b = raw_cell(bytes, r, 11, 10);
            if (a == expected(done, records, r) && b == a) continue;
            behind.push_back(r);
            const bool under_way = r == done % records;
            const bool just_done = r == (done + records - 1) % records;
            const std::string now = expected(done, records, r),
                              before = expected(done, records, r, 1);
            const std::string next = std::to_string(done);
            for (const std::string& cell : {a, b}) {
                bool fine = (under_way && (cell == now || cell == next)) ||
                            (just_done && (cell == now || cell == before));
                EXPECT_TRUE(fine) << "kill " << k << " after " << done << " steps: record " << r
                                  << " holds '" << cell << "', expected '" << now << "'";
            }
        }
        EXPECT_LE(behind.size(), 1u) << "kill " << k << " after " << done << " steps";
        ++checked;
    }
    EXPECT_EQ(checked, kKills);
}

TEST(Kill, AppendsNeverLeaveACountAboveTheRecords) {
    Temp_dir dir;
    const std::string table = dir.file("append.dbf");
    ASSERT_TRUE(make_table(table, {10}, 4));
    const std::vector<uint8_t> pristine = read_bytes(table);
    Shared_file shared(dir.file("shared"));
    ASSERT_TRUE(shared.ok());
    std::mt19937 rng(21);
    for (int k = 0; k < kKills; ++k) {
        write_bytes(table, pristine);
        int64_t added = run_and_kill("append", table, shared, rng, 3000);
        ASSERT_GE(added, 0) << "the appender never started";
        const std::vector<uint8_t> b = read_bytes(table);
        const uint64_t count = u32_at(b, 4), hl = u16_at(b, 8), rl = u16_at(b, 10);
        ASSERT_GT(rl, 0u);
        const uint64_t held = b.size() >= hl ? (b.size() - hl) / rl : 0;
        EXPECT_LE(count, held) << "kill " << k;
        // Every append that returned is in the count.
        EXPECT_GE(count, 4 + uint64_t(added)) << "kill " << k;
        EXPECT_LE(count, 4 + uint64_t(added) + 3) << "kill " << k;
    }
}

TEST(Kill, MemorySaveLeavesTheOldTableOrTheNewOneWhole) {
    Temp_dir dir;
    const std::string table = dir.file("saved.dbf");
    const unsigned records = 64;
    ASSERT_TRUE(make_table(table, {12}, records));
    Shared_file shared(dir.file("shared"));
    ASSERT_TRUE(shared.ok());
    std::mt19937 rng(22);
    std::string last_seen;  // the table persists from one kill to the next
    for (int k = 0; k < kKills; ++k) {
        int64_t saves = run_and_kill("save", table, shared, rng, 20000);
        ASSERT_GE(saves, 0) << "the saver never started";
        const std::vector<uint8_t> b = read_bytes(table);
        const uint64_t count = u32_at(b, 4), hl = u16_at(b, 8), rl = u16_at(b, 10);
        ASSERT_EQ(count, records) << "kill " << k;
        ASSERT_EQ(rl, 13u) << "kill " << k;
        ASSERT_EQ(b.size(), hl + rl * count + 1) << "kill " << k;
        // One save's values throughout: the last that returned, or the one
        // under way when it had already been renamed in place.
        const std::string first = raw_cell(b, 0, 1, 12);
        for (unsigned r = 1; r < records; ++r) ASSERT_EQ(raw_cell(b, r, 1, 12), first) << k;
        EXPECT_TRUE(first == std::to_string(saves - 1) || first == std::to_string(saves))
            << "kill " << k << " after " << saves << " saves: " << first;
        last_seen = first;
    }
    // A save from here removes the siblings killed saves left behind.
    Tqz_dbf_memory* m = qz_dbf_mem_load(table.c_str());
    ASSERT_NE(m, nullptr);
    ASSERT_TRUE(qz_dbf_mem_save(m));
    qz_dbf_mem_free(m);
    int left = 0;
    if (DIR* d = ::opendir(dir.path().c_str())) {
        while (dirent* e = ::readdir(d))
            if (std::string(e->d_name).find(".tmp") != std::string::npos) ++left;
        ::closedir(d);
    }
    EXPECT_EQ(left, 0);
}
