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

namespace {

constexpr unsigned kRecords = 30000;

// Record i: NAME "n<i>", N the number i; every odd record flagged deleted.
// `kept` gets the even records' cells.
std::vector<uint8_t> table_bytes(const std::string& path, restruct_test::Rows& kept) {
    Tqz_dbf_field fields[2];
    qz_dbf_field_init(&fields[0], "NAME", dbf_ft_char, 10, 0);
    qz_dbf_field_init(&fields[1], "N", dbf_ft_numeric, 8, 0);
    Tqz_dbf_rw* h = qz_dbf_create(path.c_str(), 2, kRecords, fields, false);
    for (unsigned i = 0; h && i < kRecords; ++i) {
        qz_dbf_set_str(h, 0, i, ("n" + std::to_string(i)).c_str());
        qz_dbf_set_int(h, 1, i, static_cast<int>(i));
        qz_dbf_set_deleted(h, i, i % 2);
        if (i % 2 == 0) kept.push_back({"n" + std::to_string(i), std::to_string(i)});
    }
    qz_dbf_close(h);
    return qz_test::read_bytes(path);
}

// "old" when the table is the original byte for byte, "new" when it holds
// exactly the kept records, else "torn".
std::string state(const std::string& path, const std::vector<uint8_t>& original,
                  const restruct_test::Rows& kept) {
    if (qz_test::read_bytes(path) == original) return "old";
    return restruct_test::cells(qz_test::widen(path), true) == kept ? "new" : "torn";
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
    restruct_test::Rows kept;
    const std::vector<uint8_t> original = table_bytes(dir.file("pristine.dbf"), kept);

    // Four tables (their first names differ) packed at once, then one
    // timed: how long a pack takes.
    std::string script;
    for (char t = 'a'; t < 'e'; ++t) {
        std::vector<uint8_t> b = original;
        b[qz_test::u16_at(b, 8) + 1] = t;
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
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    ASSERT_EQ(state(path, original, kept), "new");

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
    std::printf("pack of %u records takes %.3f s; %d kills: %d left the old table, %d the new\n",
                kRecords, whole, rounds, seen[0], seen[1]);
}

}  // namespace
