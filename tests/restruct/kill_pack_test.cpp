// qzdbf pack killed at random moments: after each SIGKILL the table opens
// and holds either all its old records or exactly the kept ones, never a
// torn mixture; packs of several tables at once (they share the temporary
// file name) each keep their own records. QZ_KILL_ROUNDS sets the number of
// kills: 30 by default, QZ_KILL_ROUNDS=200 for the full figure.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <random>
#include <thread>

#include "restruct_tables.h"

using namespace restruct_test;

namespace {

// "old" when the table is the original byte for byte, "new" when it holds
// exactly the kept records, else "torn".
std::string state(const std::string& path, const std::vector<uint8_t>& original, const Rows& kept) {
    if (qz_test::read_bytes(path) == original) return "old";
    return cells(qz_test::widen(path), true) == kept ? "new" : "torn";
}

pid_t start_pack(const std::string& path) {
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(open("/dev/null", O_WRONLY), 1);
        execl(QZDBF_EXE, QZDBF_EXE, "pack", path.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    return pid;
}

TEST(KillPack, TableIsAlwaysOldOrNewWhole) {
    qz_test::Temp_dir dir;
    setenv("TMPDIR", dir.path().c_str(), 1);  // the child's temporary copy
    const std::string path = dir.file("big.dbf");
    // 30,000 records "n<i>", i; every odd one flagged deleted in the file.
    Rows rows, kept;
    for (unsigned i = 0; i < 30000; ++i)
        rows.push_back({"n" + std::to_string(i), std::to_string(i)});
    ASSERT_TRUE(make_table(qz_test::widen(path), {{"NAME", 'C', 10, 0}, {"N", 'N', 8, 0}}, rows));
    std::vector<uint8_t> original = qz_test::read_bytes(path);
    const size_t header = qz_test::u16_at(original, 8), length = qz_test::u16_at(original, 10);
    for (unsigned i = 0; i < rows.size(); ++i)
        i % 2 ? void(original[header + i * length] = '*') : kept.push_back(rows[i]);

    // Four tables (their first names differ) packed at once, then one
    // timed: how long a pack takes.
    std::string script;
    for (char t = 'a'; t < 'e'; ++t) {
        std::vector<uint8_t> b = original;
        b[header + 1] = t;
        qz_test::write_bytes(dir.file({t}), b);
        script += "'" QZDBF_EXE "' pack '" + dir.file({t}) + "' >/dev/null & ";
    }
    ASSERT_EQ(qz_test::run(script + "wait"), 0);
    for (char t = 'a'; t < 'e'; ++t) {
        kept[0][0][0] = t;
        EXPECT_EQ(state(dir.file({t}), original, kept), "new") << t;
    }
    kept[0][0][0] = 'n';
    qz_test::write_bytes(path, original);
    const auto t0 = std::chrono::steady_clock::now();
    int status = 0;
    waitpid(start_pack(path), &status, 0);
    const double whole =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    ASSERT_TRUE(WIFEXITED(status) && !WEXITSTATUS(status) && state(path, original, kept) == "new");

    const char* env = std::getenv("QZ_KILL_ROUNDS");
    const int rounds = env ? std::atoi(env) : 30;
    std::mt19937 rng(2024);
    std::uniform_real_distribution<double> when(0.0, whole * 0.95);
    int seen[2] = {0, 0};
    for (int k = 0; k < rounds; ++k) {
        qz_test::write_bytes(path, original);
        const pid_t pid = start_pack(path);
        ASSERT_GT(pid, 0);
        std::this_thread::sleep_for(std::chrono::duration<double>(when(rng)));
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        const std::string s = state(path, original, kept);
        ASSERT_TRUE(s == "old" || s == "new") << "kill " << k << ": " << s;
        ++seen[s == "new"];
    }
    std::printf("pack of 30000 records takes %.3f s; %d kills: %d left the old table, %d the new\n",
                whole, rounds, seen[0], seen[1]);
}

}  // namespace
