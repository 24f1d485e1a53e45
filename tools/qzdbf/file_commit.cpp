#include "file_commit.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace qzdbf {

namespace {

// What a signal handler may touch: fixed arrays of file names.
constexpr int kSlots = 8;
char g_paths[kSlots][4096];
volatile sig_atomic_t g_used = 0;
struct sigaction g_old[3];
const int kSignals[3] = {SIGINT, SIGTERM, SIGHUP};

extern "C" void remove_pending(int sig) {
    for (int i = 0; i < g_used; ++i)
        if (g_paths[i][0]) ::unlink(g_paths[i]);
    ::signal(sig, SIG_DFL);
    ::raise(sig);
}

bool sync_path(const std::string& path, bool folder) {
    int fd = ::open(path.c_str(), (folder ? O_RDONLY | O_DIRECTORY : O_RDWR) | O_CLOEXEC);
    if (fd < 0) return false;
    const bool ok = ::fsync(fd) == 0;
    ::close(fd);
    return ok;
}

std::string folder_of(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

Pending_files::Pending_files() {
    struct sigaction sa;
    std::memset(&sa, 0, sizeof sa);
    sa.sa_handler = remove_pending;
    sigemptyset(&sa.sa_mask);
    for (int i = 0; i < 3; ++i) ::sigaction(kSignals[i], &sa, &g_old[i]);
}

Pending_files::~Pending_files() {
    discard();
    for (int i = 0; i < 3; ++i) ::sigaction(kSignals[i], &g_old[i], nullptr);
}

void Pending_files::add(const std::string& path) {
    paths_.push_back(path);
    if (g_used < kSlots && path.size() < sizeof g_paths[0]) {
        std::memcpy(g_paths[g_used], path.c_str(), path.size() + 1);
        g_used = g_used + 1;
    }
}

void Pending_files::discard() {
    for (int i = 0; i < g_used; ++i) g_paths[i][0] = '\0';
    g_used = 0;
    for (const std::string& p : paths_) ::unlink(p.c_str());
    paths_.clear();
}

bool Pending_files::commit(const std::vector<std::pair<std::string, std::string>>& moves,
                           std::string& error) {
    for (const auto& m : moves)
        if (!sync_path(m.first, false)) {
            error = m.first + ": cannot be synced to disk: " + std::strerror(errno);
            return false;
        }
    for (const auto& m : moves) {
        if (::rename(m.first.c_str(), m.second.c_str()) != 0) {
            error = m.second + ": cannot be put in place: " + std::strerror(errno);
            return false;
        }
        // Committed: no longer ours to remove.
        for (int i = 0; i < g_used; ++i)
            if (m.first == g_paths[i]) g_paths[i][0] = '\0';
        for (auto& p : paths_)
            if (p == m.first) p.clear();
    }
    if (!moves.empty()) sync_path(folder_of(moves.back().second), true);
    return true;
}

std::string sibling_path(const std::string& path, const std::string& tag) {
    const size_t slash = path.find_last_of('/');
    const std::string folder = slash == std::string::npos ? "" : path.substr(0, slash + 1);
    std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    std::string ext;
    const size_t dot = name.find_last_of('.');
    if (dot != std::string::npos && dot > 0) {
        ext = name.substr(dot);
        name.erase(dot);
    }
    return folder + "." + name + "." + tag + "-" + std::to_string(::getpid()) + ext;
}

std::string with_extension(const std::string& path, const std::string& ext) {
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    if (dot != std::string::npos && (slash == std::string::npos || dot > slash + 1))
        return path.substr(0, dot) + ext;
    return path + ext;
}

}  // namespace qzdbf
