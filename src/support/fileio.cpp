#include "support/fileio.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cwchar>
#include <thread>

#include "support/filesystem.h"

namespace qz::detail {

std::string stdio_mode(unsigned access) {
    std::string mode;
    if (access & access_write)
        mode = (access & access_read) ? "r+" : "w";
    else if (access & access_append)
        mode = "a";
    else if (access & access_read)
        mode = "r";
    if (access & access_binary)
        mode += "b";
    else if (access & access_text)
        mode += "t";
    return mode;
}

bool fileio_std::open(const std::wstring& path, unsigned access, unsigned /*lock*/) {
    close();
    std::string mode = stdio_mode(access);
    if (mode.empty() || mode[0] == 't' || mode[0] == 'b') return false;
    // glibc ignores "t"; drop it all the same so the mode is a portable one.
    if (mode.back() == 't') mode.pop_back();
    stream_ = qz::filesystem::wfopen(path, mode.c_str());
    return stream_ != nullptr;
}

void fileio_std::close() {
    if (stream_) std::fclose(stream_);
    stream_ = nullptr;
}

namespace {

constexpr int kLockAttempts = 20;

// Whether `fd` still is the file named `path`: a holder that removed the
// name before we locked leaves us holding a lock nobody else can see.
bool still_named(int fd, const std::string& path) {
    struct stat by_fd, by_name;
    if (::fstat(fd, &by_fd) != 0 || ::stat(path.c_str(), &by_name) != 0) return false;
    return by_fd.st_dev == by_name.st_dev && by_fd.st_ino == by_name.st_ino;
}

}  // namespace

bool fileio_win::open(const std::wstring& path, const wchar_t* mode, unsigned /*lock*/) {
    close();
    if (path.empty() || !mode) return false;
    bool writes = std::wcschr(mode, L'+') || std::wcschr(mode, L'w') || std::wcschr(mode, L'a');
    bool create = std::wcschr(mode, L'w') != nullptr;
    std::string name = qz::filesystem::native(path);
    int flags = (writes ? O_RDWR : O_RDONLY) | O_CLOEXEC | (create ? O_CREAT : 0);
    // Whatever the lock mode, the handle shares reading only: a second opener
    // that would write is refused while this one holds the file.
    int lock_op = (writes ? LOCK_EX : LOCK_SH) | LOCK_NB;
    for (int attempt = 0; attempt < kLockAttempts; ++attempt) {
        if (attempt > 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        int fd = ::open(name.c_str(), flags, 0666);
        if (fd < 0) return false;
        struct stat st;
        if (::fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
            ::close(fd);
            return false;
        }
        if (::flock(fd, lock_op) != 0) {
            bool busy = errno == EWOULDBLOCK;
            ::close(fd);
            if (!busy) return false;
            continue;  // held by another: wait and try again
        }
        if (!still_named(fd, name)) {
            ::close(fd);
            continue;  // the holder removed it while we waited; take a new one
        }
        fd_ = fd;
        append_ = std::wcschr(mode, L'a') != nullptr;
        if (append_) ::lseek(fd_, 0, SEEK_END);
        return true;
    }
    return false;
}

bool fileio_win::open(const std::wstring& path, unsigned access, unsigned lock) {
    std::string m = stdio_mode(access & (access_read | access_write | access_append));
    std::wstring wm(m.begin(), m.end());
    return open(path, wm.c_str(), lock);
}

bool fileio_win::close_and_remove(const std::wstring& path) {
    if (fd_ < 0) return false;
    bool removed = qz::filesystem::remove_file(path);
    close();
    return removed;
}

void fileio_win::close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    append_ = false;
}

}  // namespace qz::detail
