// Positioned reads and writes on an open stdio stream through one cached
// window of the file's bytes.
//
// A table reads and writes a few bytes at a time (one cell, one record). Going
// to the stream for each of them costs a seek and a copy through the stream's
// buffer; the window keeps a stretch of the file in memory instead, grows
// while access runs forward, and writes changed bytes back when it moves, on
// flush() and on detach(). Bytes the file does not have read as zero.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

namespace qz {

class file_window {
  public:
    file_window() = default;
    file_window(const file_window&) = delete;
    file_window& operator=(const file_window&) = delete;
    ~file_window() { detach(); }

    // Works on `stream` from now on (the stream stays the caller's). The
    // stream must be open for reading; `writable` says whether its mode also
    // allows writing ("rb+", "wb+") or not ("rb").
    void attach(FILE* stream, bool writable);
    // Writes back what changed and forgets the stream.
    void detach();

    bool attached() const { return stream_ != nullptr; }
    // The file's size as far as this window knows it (grown by its writes).
    uint64_t size() const { return size_; }

    // Copies `n` bytes at `pos` to `out`. Bytes past the end of the file are
    // zero. Returns how many came from the file.
    size_t read(uint64_t pos, void* out, size_t n) {
        if (pos >= start_ && pos - start_ <= len_ && n <= len_ - (pos - start_)) {
            std::memcpy(out, buf_.data() + (pos - start_), n);
            return n;
        }
        return read_slow(pos, out, n);
    }

    // Writes `n` bytes at `pos`; false when the stream cannot write or the
    // write fails. Bytes inside the file go to the window; a write beyond the
    // end goes to the stream at once (a seek past the end leaves a hole).
    bool write(uint64_t pos, const void* data, size_t n) {
        if (writable_ && pos >= start_ && pos - start_ <= len_ && n <= len_ - (pos - start_)) {
            size_t at = static_cast<size_t>(pos - start_);
            std::memcpy(buf_.data() + at, data, n);
            mark_dirty(at, at + n);
            return true;
        }
        return write_slow(pos, data, n);
    }

    // Writes back what changed and flushes the stream; false on an I/O error.
    bool flush();

  private:
    size_t read_slow(uint64_t pos, void* out, size_t n);
    bool write_slow(uint64_t pos, const void* data, size_t n);
    // Moves the window to start at `pos`, holding at least `need` bytes when
    // the file has them.
    void load(uint64_t pos, size_t need);
    void mark_dirty(size_t lo, size_t hi) {
        if (dirty_lo_ >= dirty_hi_) {
            dirty_lo_ = lo;
            dirty_hi_ = hi;
        } else {
            if (lo < dirty_lo_) dirty_lo_ = lo;
            if (hi > dirty_hi_) dirty_hi_ = hi;
        }
    }
    bool seek(uint64_t pos);

    FILE* stream_ = nullptr;
    bool writable_ = false;
    uint64_t size_ = 0;
    std::vector<uint8_t> buf_;
    uint64_t start_ = 0;  // file position of buf_[0]
    size_t len_ = 0;      // bytes of buf_ that hold file bytes
    size_t dirty_lo_ = 0, dirty_hi_ = 0;
    size_t span_ = 0;  // how much the next load reads
};

}  // namespace qz
