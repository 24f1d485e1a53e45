#include "support/safe_replace.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/filesystem.h"

namespace qz::filesystem {

namespace {

std::atomic<unsigned> g_counter{0};

bool sync_folder_of(const std::string& native_target) {
    auto slash = native_target.rfind('/');
    std::string folder = slash == std::string::npos ? "." : native_target.substr(0, slash + 1);
    if (folder.empty()) folder = "/";
    int dfd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd < 0) return false;
    bool ok = ::fsync(dfd) == 0 || errno == EINVAL;
    ::close(dfd);
    return ok;
}

}  // namespace

std::wstring sibling_temp_path(const std::wstring& target) {
    for (;;) {
        std::wstring p = target + L"." + std::to_wstring(::getpid()) + L"." +
                         std::to_wstring(g_counter.fetch_add(1)) + L".tmp";
        struct stat st;
        if (::lstat(native(p).c_str(), &st) != 0) return p;
    }
}

void remove_stale_siblings(const std::wstring& target) {
    const std::string dst = native(target);
    auto slash = dst.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : dst.substr(0, slash + 1);
    const std::string prefix = (slash == std::string::npos ? dst : dst.substr(slash + 1)) + ".";
    DIR* d = ::opendir(folder.c_str());
    if (!d) return;
    std::vector<std::string> stale;
    while (const dirent* e = ::readdir(d)) {
        const std::string name = e->d_name;
        if (name.size() <= prefix.size() + 4 || name.compare(0, prefix.size(), prefix) != 0 ||
            name.compare(name.size() - 4, 4, ".tmp") != 0)
            continue;
        // "<pid>.<n>" between the prefix and ".tmp".
        const std::string middle = name.substr(prefix.size(), name.size() - prefix.size() - 4);
        const size_t dot = middle.find('.');
        if (dot == std::string::npos || dot == 0 || dot + 1 == middle.size() ||
            middle.find_first_not_of("0123456789.") != std::string::npos ||
            middle.find('.', dot + 1) != std::string::npos)
            continue;
        const long pid = std::strtol(middle.substr(0, dot).c_str(), nullptr, 10);
        if (pid <= 0 || pid == ::getpid()) continue;
        if (::kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM) continue;  // still runs
        stale.push_back(folder + name);
    }
    ::closedir(d);
    for (const std::string& p : stale) ::unlink(p.c_str());
}

bool write_all(int fd, const void* data, std::size_t size) {
    auto p = static_cast<const char*>(data);
    while (size > 0) {
        ssize_t n = ::write(fd, p, size);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        p += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

bool replace_with(const std::wstring& target, const std::function<bool(int fd)>& write) {
    const std::string dst = native(target);
    const std::string tmp = native(sibling_temp_path(target));
    mode_t mode = 0666;
    struct stat st;
    bool had_target = ::stat(dst.c_str(), &st) == 0;
    if (had_target) {
        if (S_ISDIR(st.st_mode)) return false;
        mode = st.st_mode & 07777;
    }
    int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, had_target ? 0600 : 0666);
    if (fd < 0) return false;
    bool ok = write(fd);
    // Keep the old file's permission bits; a new file gets the umask's.
    if (ok && had_target) ok = ::fchmod(fd, mode) == 0;
    if (ok) ok = ::fsync(fd) == 0;
    if (::close(fd) != 0) ok = false;
    if (ok) ok = ::rename(tmp.c_str(), dst.c_str()) == 0;
    if (!ok) {
        ::unlink(tmp.c_str());
        return false;
    }
    sync_folder_of(dst);
    return true;
}

bool replace_by_copy(const std::wstring& source, const std::wstring& target) {
    int in = ::open(native(source).c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) return false;
    struct stat st;
    if (::fstat(in, &st) != 0 || S_ISDIR(st.st_mode)) {
        ::close(in);
        return false;
    }
    bool ok = replace_with(target, [in](int out) {
        char buf[1 << 16];
        for (;;) {
            ssize_t n = ::read(in, buf, sizeof buf);
            if (n < 0) {
                if (errno == EINTR) continue;
                return false;
            }
            if (n == 0) return true;
            if (!write_all(out, buf, static_cast<std::size_t>(n))) return false;
        }
    });
    ::close(in);
    return ok;
}

}  // namespace qz::filesystem
