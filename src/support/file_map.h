// A shared, writable mapping of the first bytes of an open file: stores into
// it land in the kernel's page cache, the very bytes every read(2) of the
// file by any process returns, and a process killed at any moment has
// nothing of them left in its own memory.
//
// The mapping covers [0, size()) and never more than the file held when it
// was made or grown: a byte past the file's end is never touched through
// it (that would raise SIGBUS). Whoever maps a file must be sure nobody
// shrinks it while it is mapped; our writers hold the table's writer lock.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qz {

class file_map {
  public:
    file_map() = default;
    file_map(const file_map&) = delete;
    file_map& operator=(const file_map&) = delete;
    ~file_map() { unmap(); }

    // Maps the first `len` bytes of `fd` for reading and writing; false
    // (nothing mapped) when `len` is 0 or the file system refuses.
    bool map(int fd, uint64_t len);
    // Grows or shrinks the mapping to `len` bytes, which the file must hold;
    // false (nothing mapped any more) when that fails.
    bool resize(uint64_t len);
    void unmap();

    bool mapped() const { return base_ != nullptr; }
    uint64_t size() const { return len_; }
    // Whether [pos, pos + n) lies inside the mapping (and pos does, so that
    // nothing is ever covered while nothing is mapped).
    bool covers(uint64_t pos, size_t n) const { return pos < len_ && n <= len_ - pos; }
    uint8_t* at(uint64_t pos) const { return base_ + pos; }

  private:
    uint8_t* base_ = nullptr;
    uint64_t len_ = 0;
};

}  // namespace qz
