// A writer process killed with SIGKILL at random moments: cell writes lose
// at most the record the writer was changing, appends never leave a header
// count above the records in the file, and saving a memory table never
// leaves an empty or cut table (that the next save removes the siblings a
// killed save left is pinned in coherence_test).
#include <gtest/gtest.h>

#include <random>

#include "child_process.h"

using namespace coherence;
using qz_test::read_bytes;

namespace {

constexpr int kKills = 50;

// Kills of the child `mode` on `table` (restored to `pristine` first unless
// it is empty), each after a random pause of up to `max_us` once it got
// going; `check` sees the file's bytes and the child's progress.
template <class Check>
void kill_rounds(const std::string& mode, const std::string& table,
                 const std::vector<uint8_t>& pristine, unsigned max_us, Check check) {
    const std::string word = table + ".word";
    Shared* shared = map_shared(word);
    ASSERT_NE(shared, nullptr);
    std::mt19937 rng(20);
    for (int k = 0; k < kKills; ++k) {
        if (!pristine.empty()) qz_test::write_bytes(table, pristine);
        shared->progress = 0;
        const pid_t pid = start_child(mode, table, word);
        ASSERT_GT(pid, 0);
        const bool going = wait_for(pid, 20, [&] { return shared->progress.load() > 0; });
        std::this_thread::sleep_for(std::chrono::microseconds(rng() % (max_us + 1)));
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
        ASSERT_TRUE(going) << mode << " never got going";
        SCOPED_TRACE("kill " + std::to_string(k));
        check(read_bytes(table), shared->progress.load());
    }
}

// What record r holds after `done` steps of writing step g into record
// g % records (empty before its first step), `back` passes earlier.
std::string expected(uint64_t done, unsigned records, unsigned r, unsigned back = 0) {
    if (done <= r) return "";
    const uint64_t last = r + (done - 1 - r) / records * records;
    return last < uint64_t(back) * records ? "" : std::to_string(last - uint64_t(back) * records);
}

}  // namespace

// Every record holds its last completed step, except perhaps one: the
// record of the step under way or the one just finished (still pending
// when the next step began).
TEST(Kill, CellWritesAppendsAndMemorySavesLeaveNoTornTable) {
    qz_test::Temp_dir dir;
    const std::string table = dir.file("cells.dbf");
    const unsigned records = 64;
    ASSERT_TRUE(qz_test::make_char_table(table, {10, 10}, records));
    const std::vector<uint8_t> pristine = read_bytes(table);
    kill_rounds("cells", table, pristine, 3000, [&](const std::vector<uint8_t>& b, uint64_t done) {
        ASSERT_EQ(b.size(), pristine.size());
        unsigned behind = 0;
        for (unsigned r = 0; r < records; ++r) {
            const std::string now = expected(done, records, r);
            behind += raw_cell(b, r, 1, 10) != now || raw_cell(b, r, 11, 10) != now;
            for (unsigned at : {1, 11}) {
                const std::string cell = raw_cell(b, r, at, 10);
                EXPECT_TRUE(
                    cell == now || (r == done % records && cell == std::to_string(done)) ||
                    (r == (done + records - 1) % records && cell == expected(done, records, r, 1)))
                    << "after " << done << " steps: record " << r << " holds '" << cell << "'";
            }
        }
        EXPECT_LE(behind, 1u) << "after " << done << " steps";
    });
    // Every append that returned is in the count, and the count never
    // exceeds the records the file holds.
    const std::string appended = dir.file("append.dbf");
    ASSERT_TRUE(qz_test::make_char_table(appended, {10}, 4));
    kill_rounds("append", appended, read_bytes(appended), 3000,
                [&](const std::vector<uint8_t>& b, uint64_t added) {
                    const uint64_t count = u32_at(b, 4), hl = u16_at(b, 8), rl = u16_at(b, 10);
                    ASSERT_EQ(rl, 11u);
                    EXPECT_LE(count, b.size() >= hl ? (b.size() - hl) / rl : 0);
                    EXPECT_TRUE(count >= 4 + added && count <= 4 + added + 3) << added;
                });
    // A memory table's saves: one save's values throughout, whole: the last
    // that returned, or the one under way when it had already been renamed
    // in place.
    const std::string saved = dir.file("saved.dbf");
    ASSERT_TRUE(qz_test::make_char_table(saved, {12}, records));
    kill_rounds("save", saved, {}, 20000, [&](const std::vector<uint8_t>& b, uint64_t saves) {
        ASSERT_TRUE(u32_at(b, 4) == records && u16_at(b, 10) == 13u);
        ASSERT_EQ(b.size(), u16_at(b, 8) + 13u * records + 1);
        const std::string first = raw_cell(b, 0, 1, 12);
        for (unsigned r = 1; r < records; ++r) ASSERT_EQ(raw_cell(b, r, 1, 12), first);
        EXPECT_TRUE(first == std::to_string(saves - 1) || first == std::to_string(saves))
            << "after " << saves << " saves: " << first;
    });
}
