#include "support/wait_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "support/filesystem.h"

namespace qz::filesystem {

bool wait_lock::take(const std::wstring& path, int timeout_ms) {
    release();
    fd = ::open(native(path).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    for (;;) {
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0) return true;
        if ((errno != EWOULDBLOCK && errno != EINTR) ||
            std::chrono::steady_clock::now() >= deadline)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    release();
    return false;
}

void wait_lock::release() {
    if (fd < 0) return;
    ::close(fd);  // closing the descriptor lets go of its flock
    fd = -1;
}

}  // namespace qz::filesystem
