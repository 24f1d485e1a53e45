// The ".lk" writer lock: one writer at a time, in this process or another;
// the lock file goes away with its writer.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

using qz_test::exists;

TEST(WriterLock, SecondWriterInTheSameProcessIsKeptOut) {
    qz_test::Temp_dir dir;
    const std::string path = dir.file("a.dbf");
    ASSERT_TRUE(qz_test::make_char_table(path, {6}, 2));
    Tqz_dbf_rw* writer = qz_dbf_open(path.c_str(), false, false);
    ASSERT_NE(writer, nullptr);
    EXPECT_TRUE(exists(path + ".lk"));

    // The file itself is refused after about 20 attempts 1 ms apart; OGR
    // then serves the table read-only.
    auto start = std::chrono::steady_clock::now();
    Tqz_dbf_rw* second = qz_dbf_open(path.c_str(), false, false);
    auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_NE(qz_dbf_get_storage(second), qz_dbf_storage_file);
    qz_dbf_close(second);
    EXPECT_GE(waited, std::chrono::milliseconds(15));
    EXPECT_LT(waited, std::chrono::seconds(2));

    Tqz_dbf_field f;
    qz_dbf_field_init(&f, "X", dbf_ft_char, 1, 0);
    EXPECT_EQ(qz_dbf_create(path.c_str(), 1, 0, &f, false), nullptr)
        << "create is a writer too, and must not truncate the locked table";
    EXPECT_EQ(qz_test::read_bytes(path).size(), 32u + 32 + 1 + 2 * 7 + 1);

    // (A reader beside the writer: the OGR fallback tests.)
    qz_dbf_close(writer);
    EXPECT_FALSE(exists(path + ".lk"));
    Tqz_dbf_rw* next = qz_dbf_open(path.c_str(), false, false);
    EXPECT_EQ(qz_dbf_get_storage(next), qz_dbf_storage_file) << "the lock is free again";
    qz_dbf_close(next);
}

// Several processes take turns as the writer, each doing a slow
// read-modify-write of a counter while it holds the lock; were two writers
// ever admitted at once (for instance one locking a lock file its previous
// holder had just removed), increments would be lost.
TEST(WriterLock, ContendingProcessesNeverWriteAtTheSameTime) {
    qz_test::Temp_dir dir;
    const std::string path = dir.file("c.dbf"), counter = dir.file("counter");
    ASSERT_TRUE(qz_test::make_char_table(path, {6}, 2));
    std::ofstream(counter) << 0;
    const int kProcesses = 4, kRounds = 25;
    std::vector<pid_t> children;
    for (int p = 0; p < kProcesses; ++p) {
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            int done = 0;
            for (int attempt = 0; done < kRounds && attempt < kRounds * 200; ++attempt) {
                Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), false, false);
                if (qz_dbf_get_storage(t) == qz_dbf_storage_file) {  // not read-only through OGR
                    int v = 0;
                    std::ifstream(counter) >> v;
                    std::this_thread::sleep_for(std::chrono::microseconds(300));
                    std::ofstream(counter, std::ios::trunc) << v + 1;
                    ++done;
                }
                qz_dbf_close(t);
            }
            _exit(done == kRounds ? 0 : 1);
        }
        children.push_back(pid);
    }
    for (pid_t pid : children) {
        int status = 0;
        waitpid(pid, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a writer starved";
    }
    int total = 0;
    std::ifstream(counter) >> total;
    EXPECT_EQ(total, kProcesses * kRounds);
    EXPECT_FALSE(exists(path + ".lk"));
}

}  // namespace
