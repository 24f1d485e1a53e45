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

// Makes a rename in the target's folder durable. The replacement is made
// whatever this gives: a folder that cannot be synced (opened without the
// right, or a file system without directory fsync) leaves it as the kernel
// keeps it, and there is nothing to take back.
void sync_folder_of(const std::string& native_target) {
    auto slash = native_target.rfind('/');
    std::string folder = slash == std::string::npos ? "." : native_target.substr(0, slash + 1);
    int dfd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd < 0) return;
    ::fsync(dfd);
    ::close(dfd);
}

// The file a path names: symbolic links followed (a link is replaced by
// writing its target, not by a file in the link's place). A dangling link
// names the file it points to. At most 40 links, like the kernel.
std::string resolve_links(std::string path) {
    for (int hops = 0; hops < 40; ++hops) {
        struct stat st;
        if (::lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return path;
        std::string link(static_cast<size_t>(st.st_size > 0 ? st.st_size : 255) + 1, '\0');
        ssize_t n = ::readlink(path.c_str(), &link[0], link.size());
        if (n < 0 || static_cast<size_t>(n) >= link.size()) return path;
        link.resize(static_cast<size_t>(n));
        if (link.empty() || link[0] == '/') {
            path = link;
        } else {
            auto slash = path.rfind('/');
            path = (slash == std::string::npos ? std::string() : path.substr(0, slash + 1)) + link;
        }
    }
    return path;
}

// Whether `name` is "<base>.<pid>.<n>.tmp" with a pid of no living process
// other than this one: what a replace killed half-way leaves behind.
bool is_orphan_sibling(const std::string& name, const std::string& base) {
    if (name.size() <= base.size() + 1 || name.compare(0, base.size(), base) != 0 ||
        name[base.size()] != '.')
        return false;
    std::string rest = name.substr(base.size() + 1);
    const std::string suffix = ".tmp";
    if (rest.size() <= suffix.size() ||
        rest.compare(rest.size() - suffix.size(), suffix.size(), suffix) != 0)
        return false;
    rest.resize(rest.size() - suffix.size());
    auto dot = rest.find('.');
    if (dot == 0 || dot == std::string::npos || dot + 1 == rest.size()) return false;
    for (size_t i = 0; i < rest.size(); ++i)
        if (i != dot && (rest[i] < '0' || rest[i] > '9')) return false;
    if (dot > 10) return false;  // no pid has that many digits (2^31 has 10)
    long pid = std::stol(rest.substr(0, dot));
    if (pid <= 0 || pid == static_cast<long>(::getpid())) return false;
    return ::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH;
}

// Removes the siblings of `target` left by replaces that were killed.
void remove_orphan_siblings(const std::string& target) {
    auto slash = target.rfind('/');
    std::string folder = slash == std::string::npos ? "." : target.substr(0, slash + 1);
    std::string base = slash == std::string::npos ? target : target.substr(slash + 1);
    if (folder.empty()) folder = "/";
    DIR* dir = ::opendir(folder.c_str());
    if (!dir) return;
    std::vector<std::string> orphans;
    while (dirent* e = ::readdir(dir))
        if (is_orphan_sibling(e->d_name, base)) orphans.push_back(e->d_name);
    ::closedir(dir);
    for (const std::string& name : orphans)
        ::unlink((slash == std::string::npos ? name : folder + name).c_str());
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
    remove_orphan_siblings(native(target));
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
    const std::string dst = resolve_links(native(target));
    remove_orphan_siblings(dst);
    const std::string tmp = native(sibling_temp_path(from_native(dst)));
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
