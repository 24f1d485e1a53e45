#include "errors/last_error.h"

#include "support/filesystem.h"

namespace qz::errors {

namespace {

struct last_error {
    int code = ok;
    std::string message;
};

last_error& current() {
    thread_local last_error e;
    return e;
}

}  // namespace

void set(int code, const std::string& message) {
    last_error& e = current();
    e.code = code;
    try {
        e.message = message;
    } catch (...) {
        e.message.clear();  // out of memory: the code alone must do
    }
}

void set(int code, const std::wstring& file, const std::string& reason) {
    if (file.empty()) return set(code, reason);
    std::string text;
    try {
        text = utf8(file) + ": " + reason;
    } catch (...) {
    }
    set(code, text);
}

void clear() {
    set(ok, std::string());
}

int last_code() {
    return current().code;
}

const char* last_message() {
    return current().message.c_str();
}

std::string utf8(const std::wstring& text) {
    return qz::filesystem::native(text);
}

void set_open_failure(const std::wstring& path, bool write, bool locked) {
    if (path.empty()) return set(argument, "no path given");
    if (locked) return set(code::locked, path, "locked by another writer");
    const qz::filesystem::path_info info = qz::filesystem::stat_path(path);
    switch (info.kind) {
        case qz::filesystem::path_kind::missing:
            return set(not_found, path, "no such file");
        case qz::filesystem::path_kind::folder:
            return set(not_a_table, path, "not a dBASE table: a folder");
        case qz::filesystem::path_kind::other:
            return set(not_a_table, path, "not a dBASE table: not a regular file");
        case qz::filesystem::path_kind::file:
            break;
    }
    const int err = qz::filesystem::open_error(path, write);
    if (err == 0) return set(io, path, "could not be opened");
    if (qz::filesystem::is_permission_error(err)) return set(permission, path, "permission denied");
    set(io, path, qz::filesystem::error_text(err));
}

}  // namespace qz::errors
