// Putting a new file in place of an old one so that a process killed at any
// moment leaves a whole file at the path: the old one or the new one.
//
// The new bytes go to a sibling of the target in the same folder (same file
// system, so rename(2) is atomic), are flushed with fsync, take the old
// file's permission bits, and are renamed over the target; the folder is
// synced after the rename so the new name survives a crash of the machine.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace qz::filesystem {

// A name for a sibling of `target` in its folder that no other file has
// ("<target>.<pid>.<n>.tmp"); the file is not created.
std::wstring sibling_temp_path(const std::wstring& target);

// Writes a sibling of `target` through `write` (given an fd open for
// writing on the sibling; it returns false on failure), syncs it and renames
// it over `target`. On any failure the sibling is removed, `target` is left
// as it was, and false is returned. A symbolic link at `target` is followed:
// the file it names is replaced and the link stays. Siblings of the file
// left by a replace whose process was killed (their pid names no living
// process) are removed first.
bool replace_with(const std::wstring& target, const std::function<bool(int fd)>& write);

// Copies `source` to a sibling of `target`, syncs it and renames it over
// `target` (source and target may be on different file systems). `source`
// is left in place. False, with `target` untouched, on any failure.
bool replace_by_copy(const std::wstring& source, const std::wstring& target);

// Removes the siblings of `target` ("<target>.<pid>.<n>.tmp") whose writer
// process no longer runs: what a process killed while writing one left
// behind. Call it only while holding the lock that every writer of `target`
// takes, so that no sibling being written is touched.
void remove_stale_siblings(const std::wstring& target);

// Writes all of `size` bytes at `data` to `fd`, retrying short writes and
// EINTR. False on any error.
bool write_all(int fd, const void* data, std::size_t size);

}  // namespace qz::filesystem
