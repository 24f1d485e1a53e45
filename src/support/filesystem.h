// Path operations of the tables. Paths are wide text; they reach the kernel
// as UTF-8 bytes.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace qz::filesystem {

// The UTF-8 bytes under which the kernel knows `path`.
std::string native(const std::wstring& path);
// A file name from the kernel (UTF-8 bytes) as wide text.
std::wstring from_native(const std::string& path);

// `path` with its last extension replaced by `ext` (added when there is
// none). ("a.dbf", ".cpg") -> "a.cpg"; ("a", "cpg") -> "a.cpg".
std::wstring change_extension(const std::wstring& path, const std::wstring& ext);
std::string change_extension(const std::string& path, const std::string& ext);

// The folder part of `path`, with its trailing separator; "" for a bare name.
std::wstring directory(const std::wstring& path);

// A companion file (.cpg, .fpt, .dbt) as found on a case-insensitive file
// system: `path` itself when it exists, else the one file in its folder
// whose name matches it without regard to letter case, else `path`.
std::wstring find_companion(const std::wstring& path);

bool path_exist(const std::wstring& path);
// Modification time in nanoseconds since the epoch; 0 when unknown.
int64_t file_mtime(const std::wstring& path);
bool copy_file(const std::wstring& from, const std::wstring& to, bool overwrite);
bool move_file(const std::wstring& from, const std::wstring& to, bool overwrite);
bool remove_file(const std::wstring& path);

// The size of an open stream's file in bytes; 0 when it cannot be told.
uint64_t stream_size(FILE* stream);

// What lies at a path, for checks and error messages.
enum class path_kind { missing, file, folder, other };
struct path_info {
    path_kind kind = path_kind::missing;
    uint64_t size = 0;
    int64_t mtime = 0;       // nanoseconds since the epoch
    bool any_write = false;  // some write permission bit is set
};
path_info stat_path(const std::wstring& path);
// The error number of opening `path` for reading (read-write when `write`);
// 0 when it opens. The file is closed again at once and not changed.
int open_error(const std::wstring& path, bool write);
bool is_permission_error(int error_number);
// The C library's text for an error number.
std::string error_text(int error_number);

// fopen on `path`; a folder never opens as a file.
FILE* wfopen(const std::wstring& path, const char* mode);

}  // namespace qz::filesystem
