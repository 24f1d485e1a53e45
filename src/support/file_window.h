// Positioned reads and writes of one open file through a cached window of
// its bytes.
//
// Reads: the window keeps a stretch of the file in memory, starting small so
// that scattered access reads little and doubling (up to 256 KiB) while
// access runs forward. A window that follows a change counter is read again
// once the counter has moved since it was loaded: the file's watcher moves
// it before it tells anyone the file changed, so a read never serves bytes
// older than a change already announced.
//
// Writes: changed bytes wait in the window only while the caller stays in
// one span (a record, see enter()); they go to the file with one pwrite when
// the caller enters another span, when the window moves, at flush() and at
// detach(). The file is the kernel's page cache: every other reader sees
// the bytes from then on, and a process killed at any moment loses at most
// the writes of the span it was in. Each such write moves the change
// counter, so other windows on the same file in this process drop what they
// hold at once. Bytes the file does not have read as zero.
//
// A writer that is the file's only writer (it holds the table's writer lock,
// so nobody shrinks the file under it) works on a shared mapping of the
// file instead (support/file_map.h): reads and writes inside the file are
// plain copies from and into the kernel's page cache, where every other
// process reads them at once and where a killed process leaves them. What
// the mapping does not cover (bytes past the end) goes to the file with
// pread and pwrite, and the mapping grows with the file. Leaving a written
// span moves the change counter and raises the file's change signal
// (support/change_signal.h), so that the file's watchers hear of the
// change as they hear of a pwrite. File systems that refuse a mapping get
// the window.
//
// Threads: one owner uses the window; flush() may also come from another
// thread (the hook that writes pending bytes before a change event is sent).
// Everything that changes the pending bytes or moves the window holds a
// lock; reads of a current window take none.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <vector>

#include "support/change_signal.h"
#include "support/file_map.h"

namespace qz {

class file_window {
  public:
    file_window() = default;
    file_window(const file_window&) = delete;
    file_window& operator=(const file_window&) = delete;
    ~file_window() { detach(); }

    // Works on `fd` from now on (the descriptor stays the caller's). It must
    // be open for reading, and for writing when `writable`. `changes`, when
    // given, is moved by every write this window sends to the file; with
    // `follow`, the window also drops what it holds whenever `changes`
    // moved since it was loaded (a handle that may not be the file's only
    // writer). A writable window that does not follow maps the file.
    void attach(int fd, bool writable, std::atomic<uint64_t>* changes, bool follow);
    // Writes back what is pending and forgets the descriptor.
    void detach();

    bool attached() const { return fd_ >= 0; }
    // Whether the file is served through a shared mapping.
    bool mapped() const { return map_.mapped(); }
    // The file's size as far as this window knows it (grown by its writes).
    uint64_t size() const { return size_; }

    // The caller works on the bytes [lo, hi) from now on: pending writes
    // outside them go to the file first.
    void enter(uint64_t lo, uint64_t hi) {
        uint64_t dlo = dirty_lo_.load(std::memory_order_relaxed);
        uint64_t dhi = dirty_hi_.load(std::memory_order_relaxed);
        if (dlo < dhi && (dlo < lo || dhi > hi)) flush_pending();
    }

    // Copies `n` bytes at `pos` to `out`. Bytes past the end of the file are
    // zero. Returns how many came from the file.
    size_t read(uint64_t pos, void* out, size_t n) {
        if (map_.covers(pos, n)) {
            std::memcpy(out, map_.at(pos), n);
            return n;
        }
        if (current() && inside(pos, n)) {
            std::memcpy(out, buf_.data() + (pos - start_), n);
            return n;
        }
        return read_slow(pos, out, n);
    }

    // Writes `n` bytes at `pos`; false when the file cannot be written or
    // the write fails. Bytes inside the file wait in the window (see
    // above); a write reaching beyond the end goes to the file at once.
    bool write(uint64_t pos, const void* data, size_t n) {
        if (map_.covers(pos, n)) {
            std::memcpy(map_.at(pos), data, n);
            mark_dirty(pos, pos + n);
            untold_.store(true, std::memory_order_release);
            return true;
        }
        if (writable_ && current() && inside(pos, n)) {
            std::lock_guard<std::mutex> g(lock_);
            size_t at = static_cast<size_t>(pos - start_);
            std::memcpy(buf_.data() + at, data, n);
            mark_dirty(pos, pos + n);
            return true;
        }
        return write_slow(pos, data, n);
    }

    // Writes `n` bytes at `pos` to the file now, after what is pending, and
    // keeps the window's copy of them; false on failure.
    bool write_through(uint64_t pos, const void* data, size_t n);

    // Writes back what is pending; false on an I/O error. Safe to call from
    // another thread than the owner's. A mapped window has its bytes in the
    // file already: it tells the file's watchers now.
    bool flush();
    // flush() before an update event is sent (from any thread): a mapped
    // window tells the watchers within the signal's gap, so that the events
    // its signals cause do not call for a signal each.
    void flush_before_event();

  private:
    bool current() const {
        return !follow_ ||
               changes_->load(std::memory_order_acquire) == seen_.load(std::memory_order_relaxed);
    }
    bool inside(uint64_t pos, size_t n) const {
        return pos >= start_ && pos - start_ <= len_ && n <= len_ - (pos - start_);
    }
    void flush_pending();
    // The owner left the written span of a mapped window.
    void publish_mapped();
    // Under lock_: maps the file (size_ bytes) when the window is meant to,
    // or grows the mapping to size_.
    void map_locked();
    size_t read_slow(uint64_t pos, void* out, size_t n);
    bool write_slow(uint64_t pos, const void* data, size_t n);
    // Under lock_: sends the pending bytes to the file.
    bool flush_locked();
    // Under lock_, nothing pending: moves the window to start at `pos`,
    // holding at least `need` bytes when the file has them.
    void load_locked(uint64_t pos, size_t need);
    // Moves the change counter after a write of this window (atomics only).
    void announce();
    // Under lock_: pwrite of all `n` bytes at `pos`.
    bool put(uint64_t pos, const void* data, size_t n);
    void mark_dirty(uint64_t lo, uint64_t hi) {
        uint64_t dlo = dirty_lo_.load(std::memory_order_relaxed);
        uint64_t dhi = dirty_hi_.load(std::memory_order_relaxed);
        if (dlo >= dhi) {
            dlo = lo;
            dhi = hi;
        } else {
            if (lo < dlo) dlo = lo;
            if (hi > dhi) dhi = hi;
        }
        dirty_lo_.store(dlo, std::memory_order_relaxed);
        dirty_hi_.store(dhi, std::memory_order_relaxed);
    }

    int fd_ = -1;
    bool writable_ = false;
    bool follow_ = false;
    std::atomic<uint64_t>* changes_ = nullptr;
    // The value of *changes_ when the window was loaded (or last wrote).
    std::atomic<uint64_t> seen_{0};
    uint64_t size_ = 0;
    std::vector<uint8_t> buf_;
    uint64_t start_ = 0;  // file position of buf_[0]
    size_t len_ = 0;      // bytes of buf_ that hold file bytes
    size_t span_ = 0;     // how much the next load reads
    // The pending bytes, as file positions [lo, hi); empty when lo >= hi.
    // Changed under lock_; the owner may look without it. A mapped window
    // keeps here the span written since it was last left (only the owner
    // changes it then).
    std::atomic<uint64_t> dirty_lo_{0}, dirty_hi_{0};
    std::mutex lock_;
    // A writer that is the file's only writer maps the file.
    bool map_wanted_ = false;
    // Bytes written through the mapping that neither the change counter nor
    // the file's watchers have been told of. Set by the owner's writes,
    // taken by whoever tells.
    std::atomic<bool> untold_{false};
    // Changed by the owner under lock_ only.
    file_map map_;
    change_signal signal_;
};

}  // namespace qz
