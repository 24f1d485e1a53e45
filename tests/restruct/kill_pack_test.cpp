// qzdbf pack killed at random moments: after each SIGKILL the table opens
// and holds either all its old records or exactly the kept ones, never a
// torn mixture. QZ_KILL_ROUNDS sets the number of kills: 30 by default, so
// that the everyday suite stays quick; QZ_KILL_ROUNDS=200 for the full
// figure.
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "qzk_file_dbf.h"
#include "test_support.h"

extern char** environ;

namespace {

constexpr unsigned int kRecords = 30000;

// Record i: NAME "n<i>", N the number i; every odd record flagged deleted.
void make_table(const std::string& path) {
    Tqz_dbf_field fields[2];
    qz_dbf_field_init(&fields[0], "NAME", dbf_ft_char, 10, 0);
    qz_dbf_field_init(&fields[1], "N", dbf_ft_numeric, 8, 0);
    Tqz_dbf_rw* h = qz_dbf_create(path.c_str(), 2, kRecords, fields, false);
    ASSERT_NE(h, nullptr);
    for (unsigned int i = 0; i < kRecords; ++i) {
        qz_dbf_set_str(h, 0, i, ("n" + std::to_string(i)).c_str());
        qz_dbf_set_int(h, 1, i, static_cast<int>(i));
    }
    qz_dbf_close(h);
    std::vector<uint8_t> b = qz_test::read_bytes(path);
    const size_t header = b[8] | b[9] << 8, length = b[10] | b[11] << 8;
    for (size_t r = 1; r < kRecords; r += 2) b[header + r * length] = '*';
    qz_test::write_bytes(path, b);
}

// "old" when the table is the original byte for byte, "new" when it holds
// exactly the even records, else what is wrong.
std::string state(const std::string& path, const std::vector<uint8_t>& original) {
    if (qz_test::read_bytes(path) == original) return "old";
    Tqz_dbf_rw* h = qz_dbf_open(path.c_str(), true, false);
    if (!h) return "does not open";
    std::string verdict = "new";
    if (qz_dbf_get_nr(h) != kRecords / 2) {
        verdict = "holds " + std::to_string(qz_dbf_get_nr(h)) + " records";
    } else {
        for (unsigned int r = 0; r < kRecords / 2 && verdict == "new"; ++r) {
            bool ok = false;
            const int n = qz_dbf_get_int(h, 1, r, ok);
            std::string name = qz_dbf_get_str(h, 0, r, ok);
            while (!name.empty() && name.back() == ' ') name.pop_back();
            if (n != static_cast<int>(2 * r) || "n" + std::to_string(2 * r) != name)
                verdict = "record " + std::to_string(r) + " is wrong";
        }
    }
    qz_dbf_close(h);
    return verdict;
}

pid_t start_pack(const std::string& path) {
    const std::string exe = QZDBF_EXE;
    std::vector<char*> argv = {const_cast<char*>(exe.c_str()), const_cast<char*>("pack"),
                               const_cast<char*>(path.c_str()), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    if (posix_spawn(&pid, exe.c_str(), &actions, nullptr, argv.data(), environ) != 0) pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

TEST(KillPack, TableIsAlwaysOldOrNewWhole) {
    qz_test::Temp_dir dir;
    // The child's temporary copy goes to the test's folder.
    setenv("TMPDIR", dir.path().c_str(), 1);
    const std::string path = dir.file("big.dbf");
    const std::string pristine = dir.file("pristine.dbf");
    make_table(pristine);
    const std::vector<uint8_t> original = qz_test::read_bytes(pristine);

    // One whole run tells how long a pack takes.
    qz_test::write_bytes(path, original);
    const auto t0 = std::chrono::steady_clock::now();
    pid_t pid = start_pack(path);
    ASSERT_GT(pid, 0);
    int status = 0;
    waitpid(pid, &status, 0);
    const double whole =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    ASSERT_EQ(state(path, original), "new");

    const char* env = std::getenv("QZ_KILL_ROUNDS");
    const int rounds = env ? std::atoi(env) : 30;
    std::mt19937 rng(2024);
    std::uniform_real_distribution<double> when(0.0, whole * 0.95);
    int old_seen = 0, new_seen = 0, finished = 0;
    for (int k = 0; k < rounds; ++k) {
        qz_test::write_bytes(path, original);
        pid = start_pack(path);
        ASSERT_GT(pid, 0);
        std::this_thread::sleep_for(std::chrono::duration<double>(when(rng)));
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        if (WIFEXITED(status)) ++finished;
        const std::string s = state(path, original);
        ASSERT_TRUE(s == "old" || s == "new") << "kill " << k << ": " << s;
        (s == "old" ? old_seen : new_seen)++;
    }
    std::printf(
        "pack of %u records takes %.3f s; %d kills: %d left the old table, %d the new "
        "one (%d runs had ended before the kill)\n",
        kRecords, whole, rounds, old_seen, new_seen, finished);
}

}  // namespace
