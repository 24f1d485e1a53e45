// The parent's side of coherence_child: a shared progress file, starting
// the child, waiting for it and killing it; and a few table helpers.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "qzk_file_dbf.h"
#include "test_support.h"

extern char** environ;

namespace coherence {

struct Shared {
    std::atomic<uint64_t> progress;
    std::atomic<uint64_t> word;
};

// The shared file at `path`, mapped; zeroed.
class Shared_file {
  public:
    explicit Shared_file(const std::string& path) : path_(path) {
        int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (fd >= 0 && ::ftruncate(fd, 4096) == 0) {
            void* p = ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
            if (p != MAP_FAILED) s_ = static_cast<Shared*>(p);
        }
        if (fd >= 0) ::close(fd);
    }
    ~Shared_file() {
        if (s_) ::munmap(s_, sizeof(Shared));
    }
    Shared* operator->() const { return s_; }
    bool ok() const { return s_ != nullptr; }
    const std::string& path() const { return path_; }
    void reset() {
        s_->progress.store(0);
        s_->word.store(0);
    }

  private:
    std::string path_;
    Shared* s_ = nullptr;
};

// coherence_child MODE TABLE SHARED, started; its pid or -1.
inline pid_t start_child(const std::string& mode, const std::string& table,
                         const Shared_file& shared) {
    std::vector<std::string> args = {COHERENCE_CHILD, mode, table, shared.path()};
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(&a[0]);
    argv.push_back(nullptr);
    pid_t pid = -1;
    if (::posix_spawn(&pid, COHERENCE_CHILD, nullptr, nullptr, argv.data(), environ) != 0)
        return -1;
    return pid;
}

// Waits until `done` or the child has ended or `seconds` passed; whether
// `done` came true.
template <class Pred>
bool wait_for(pid_t pid, Pred done, double seconds) {
    auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (pid > 0) {
            int status;
            if (::waitpid(pid, &status, WNOHANG) == pid) return done();
        }
        if (std::chrono::steady_clock::now() > until) return false;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

inline void kill_and_reap(pid_t pid) {
    ::kill(pid, SIGKILL);
    int status;
    ::waitpid(pid, &status, 0);
}

// Kills the child when a failed check leaves the scope early.
class Child_guard {
  public:
    explicit Child_guard(pid_t pid) : pid_(pid) {}
    ~Child_guard() {
        if (pid_ > 0) kill_and_reap(pid_);
    }
    void reaped() { pid_ = -1; }

  private:
    pid_t pid_;
};

using qz_test::raw_cell;
using qz_test::u16_at;
using qz_test::u32_at;
const auto make_table = qz_test::make_char_table;

}  // namespace coherence
