// The scratch table file of a fuzz target: one per target and process in
// $TMPDIR (or /tmp), filled with the input, and removed with the companions
// the library may have written beside it.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace qz_fuzz {

// "<tmp>/qzdbf-fuzz-<target>-<pid><tail>", e.g. tail ".dbf".
inline std::string scratch_path(const char* target, const char* tail) {
    const char* tmp = std::getenv("TMPDIR");
    return std::string(tmp && *tmp ? tmp : "/tmp") + "/qzdbf-fuzz-" + target + "-" +
           std::to_string(::getpid()) + tail;
}

// Writes the input to `path`; false when the file cannot be made.
inline bool write_scratch(const std::string& path, const uint8_t* data, size_t size) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    if (size > 0) std::fwrite(data, 1, size, f);
    std::fclose(f);
    return true;
}

// Removes the table, its lock file and its .cpg.
inline void remove_scratch(const std::string& path) {
    std::remove(path.c_str());
    std::remove((path + ".lk").c_str());
    std::remove((path.substr(0, path.size() - 4) + ".cpg").c_str());
}

}  // namespace qz_fuzz
