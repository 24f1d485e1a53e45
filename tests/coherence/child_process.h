// The parent's side of coherence_child: the shared progress words, starting
// the child, waiting for it and killing it.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "qzk_file_dbf.h"
#include "test_support.h"

namespace coherence {

// The child's progress (after each step has returned) and the parent's word
// (non-zero: stop), in a file both map; zeroed. Lives as long as the process.
struct Shared {
    std::atomic<uint64_t> progress, word;
};
inline Shared* map_shared(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    void* p = fd >= 0 && ::ftruncate(fd, 4096) == 0
                  ? ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0)
                  : MAP_FAILED;
    if (fd >= 0) ::close(fd);
    return p == MAP_FAILED ? nullptr : static_cast<Shared*>(p);
}

// coherence_child MODE TABLE SHARED, started; its pid or -1.
inline pid_t start_child(const std::string& mode, const std::string& table,
                         const std::string& shared) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::execl(COHERENCE_CHILD, COHERENCE_CHILD, mode.c_str(), table.c_str(), shared.c_str(),
                static_cast<char*>(nullptr));
        ::_exit(127);
    }
    return pid;
}

// Waits until `done`, or the child `pid` (if > 0) has ended, or `seconds`
// have passed; whether `done` came true.
template <class Pred>
bool wait_for(pid_t pid, double seconds, Pred done) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    int status;
    while (!done()) {
        if ((pid > 0 && ::waitpid(pid, &status, WNOHANG) == pid) ||
            std::chrono::steady_clock::now() > until)
            return done();
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

using qz_test::raw_cell;
using qz_test::u16_at;
using qz_test::u32_at;

}  // namespace coherence
