#include "support/filesystem.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "code_page_text.h"
#include "qzk_basic.h"

namespace qz::filesystem {

namespace fs = std::filesystem;

std::string native(const std::wstring& path) {
    return qz::basic::wide_to_cp(65001, path);
}

std::wstring from_native(const std::string& path) {
    return qz::basic::cp_to_wide(65001, path);
}

namespace {

template <class S>
S change_ext(const S& path, const S& ext) {
    using C = typename S::value_type;
    size_t stem = path.size();
    for (size_t i = path.size(); i-- > 0;) {
        C c = path[i];
        if (c == C('/') || c == C('\\')) break;
        if (c == C('.')) {
            if (i >= 1) stem = i;
            break;
        }
    }
    S result = path.substr(0, stem);
    if (!ext.empty() && ext[0] != C('.')) result += C('.');
    return result + ext;
}

}  // namespace

std::wstring change_extension(const std::wstring& path, const std::wstring& ext) {
    return change_ext(path, ext);
}

std::string change_extension(const std::string& path, const std::string& ext) {
    return change_ext(path, ext);
}

std::wstring directory(const std::wstring& path) {
    size_t slash = path.find_last_of(L"/\\");
    return slash == std::wstring::npos ? std::wstring() : path.substr(0, slash + 1);
}

std::wstring find_companion(const std::wstring& path) {
    if (path_exist(path)) return path;
    std::wstring dir = directory(path);
    std::wstring name = path.substr(dir.size());
    if (name.empty()) return path;
    DIR* d = opendir(dir.empty() ? "." : native(dir).c_str());
    if (!d) return path;
    std::wstring found;
    while (dirent* e = readdir(d)) {
        std::wstring candidate = from_native(e->d_name);
        if (qz_text_icompare_w(candidate.c_str(), name.c_str()) != 0) continue;
        // Several matches: take the first in name order, so the choice does
        // not depend on the order the folder lists them in.
        if (found.empty() || candidate < found) found = candidate;
    }
    closedir(d);
    return found.empty() ? path : dir + found;
}

bool path_exist(const std::wstring& path) {
    struct stat st;
    return !path.empty() && ::stat(native(path).c_str(), &st) == 0;
}

int64_t file_mtime(const std::wstring& path) {
    struct stat st;
    if (path.empty() || ::stat(native(path).c_str(), &st) != 0) return 0;
    return static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
}

bool copy_file(const std::wstring& from, const std::wstring& to, bool overwrite) {
    std::error_code ec;
    auto opt = overwrite ? fs::copy_options::overwrite_existing : fs::copy_options::none;
    return fs::copy_file(native(from), native(to), opt, ec) && !ec;
}

bool move_file(const std::wstring& from, const std::wstring& to, bool overwrite) {
    std::string f = native(from), t = native(to);
    struct stat st;
    if (!overwrite && ::stat(t.c_str(), &st) == 0) return false;
    if (::rename(f.c_str(), t.c_str()) == 0) return true;
    if (errno != EXDEV) return false;
    // Across file systems: copy, then remove the original.
    if (!copy_file(from, to, overwrite)) return false;
    return ::unlink(f.c_str()) == 0;
}

bool remove_file(const std::wstring& path) {
    return !path.empty() && ::unlink(native(path).c_str()) == 0;
}

uint64_t stream_size(FILE* stream) {
    struct stat st;
    if (!stream || ::fstat(fileno(stream), &st) != 0) return 0;
    return static_cast<uint64_t>(st.st_size);
}

path_info stat_path(const std::wstring& path) {
    path_info info;
    struct stat st;
    if (path.empty() || ::stat(native(path).c_str(), &st) != 0) return info;
    info.kind = S_ISREG(st.st_mode)   ? path_kind::file
                : S_ISDIR(st.st_mode) ? path_kind::folder
                                      : path_kind::other;
    info.size = static_cast<uint64_t>(st.st_size);
    info.mtime = static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    info.any_write = (st.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) != 0;
    return info;
}

int open_error(const std::wstring& path, bool write) {
    if (path.empty()) return ENOENT;
    int fd = ::open(native(path).c_str(), (write ? O_RDWR : O_RDONLY) | O_CLOEXEC);
    if (fd < 0) return errno;
    ::close(fd);
    return 0;
}

bool is_permission_error(int error_number) {
    return error_number == EACCES || error_number == EPERM || error_number == EROFS;
}

std::string error_text(int error_number) {
    std::error_code ec(error_number, std::generic_category());
    return ec.message();
}

FILE* wfopen(const std::wstring& path, const char* mode) {
    if (path.empty()) return nullptr;
    FILE* f = std::fopen(native(path).c_str(), mode);
    if (!f) return nullptr;
    struct stat st;
    if (::fstat(fileno(f), &st) != 0 || S_ISDIR(st.st_mode)) {
        std::fclose(f);
        return nullptr;
    }
    return f;
}

}  // namespace qz::filesystem
