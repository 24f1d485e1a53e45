// The last error of the calling thread: a code and a UTF-8 message naming
// the file (when there is one) and the reason. Failing exports set it;
// successful ones leave it as it is, so a host reads it right after a call
// that failed.
#pragma once

#include <string>

namespace qz::errors {

// The codes of the public header (Tqz_dbf_error), kept in step with it.
enum code : int {
    ok = 0,
    argument = 1,
    not_found = 2,
    not_a_table = 3,
    locked = 4,
    permission = 5,
    io = 6,
    memo = 7,
    value = 8,
    memory = 9,
    internal = 10,
    cancelled = 11,
};

void set(int code, const std::string& message);
// "<file>: <reason>", the file in UTF-8; just the reason when `file` is empty.
void set(int code, const std::wstring& file, const std::string& reason);
void clear();
int last_code();
const char* last_message();

// Why a table file could not be opened (for writing when `write`): missing,
// a folder, permission denied, ... Sets the last error from what is found at
// `path`; `locked` tells that the writer lock was refused.
void set_open_failure(const std::wstring& path, bool write, bool locked);

// The UTF-8 form of a path or wide text.
std::string utf8(const std::wstring& text);

}  // namespace qz::errors
