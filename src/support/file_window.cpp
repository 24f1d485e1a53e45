#include "support/file_window.h"

#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace qz {

namespace {

constexpr size_t min_span = 4096;
constexpr size_t max_span = 256 * 1024;
constexpr uint64_t max_offset = static_cast<uint64_t>(INT64_MAX);

// Reads up to `n` bytes at `pos`, retrying short reads; how many came.
size_t pread_some(int fd, uint64_t pos, uint8_t* out, size_t n) {
    size_t got = 0;
    while (got < n && pos + got <= max_offset) {
        ssize_t r = ::pread(fd, out + got, n - got, static_cast<off_t>(pos + got));
        if (r < 0 && errno == EINTR) continue;
        if (r <= 0) break;
        got += static_cast<size_t>(r);
    }
    return got;
}

}  // namespace

void file_window::attach(int fd, bool writable, std::atomic<uint64_t>* changes, bool follow) {
    detach();
    fd_ = fd;
    writable_ = writable;
    changes_ = changes;
    follow_ = follow && changes != nullptr;
    struct stat st;
    size_ = fd >= 0 && ::fstat(fd, &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
    start_ = 0;
    len_ = 0;
    span_ = min_span;
    dirty_lo_.store(0);
    dirty_hi_.store(0);
    map_wanted_ = writable && !follow && fd >= 0;
    std::lock_guard<std::mutex> g(lock_);
    map_locked();
}

void file_window::map_locked() {
    if (!map_wanted_ || size_ == 0 || size_ == map_.size()) return;
    if (map_.mapped()) {
        // Growing in place or elsewhere; on failure the window serves on.
        if (!map_.resize(size_)) map_wanted_ = false;
    } else {
        if (flush_locked() && map_.map(fd_, size_)) {
            len_ = 0;  // the window's copy is never read again
        } else {
            map_wanted_ = false;
        }
    }
    if (map_.mapped() && !signal_.attached()) signal_.attach(fd_);
    if (!map_.mapped()) signal_.detach();
}

void file_window::detach() {
    if (fd_ >= 0) flush();
    std::lock_guard<std::mutex> g(lock_);
    signal_.detach();
    map_.unmap();
    map_wanted_ = false;
    fd_ = -1;
    writable_ = false;
    follow_ = false;
    changes_ = nullptr;
    size_ = 0;
    start_ = 0;
    len_ = 0;
    buf_.clear();
    buf_.shrink_to_fit();
}

bool file_window::put(uint64_t pos, const void* data, size_t n) {
    auto p = static_cast<const uint8_t*>(data);
    if (pos > max_offset || n > max_offset - pos) return false;
    while (n > 0) {
        ssize_t w = ::pwrite(fd_, p, n, static_cast<off_t>(pos));
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return false;
        p += w;
        pos += static_cast<uint64_t>(w);
        n -= static_cast<size_t>(w);
    }
    return true;
}

bool file_window::flush_locked() {
    uint64_t lo = dirty_lo_.load(std::memory_order_relaxed);
    uint64_t hi = dirty_hi_.load(std::memory_order_relaxed);
    if (lo >= hi) return true;
    dirty_lo_.store(0, std::memory_order_relaxed);
    dirty_hi_.store(0, std::memory_order_relaxed);
    // A mapping holds nothing back: the write that follows tells watchers.
    if (map_.mapped()) {
        untold_.store(false, std::memory_order_relaxed);
        announce();
        return true;
    }
    // Pending bytes always lie inside the window.
    bool ok = fd_ >= 0 && put(lo, buf_.data() + (lo - start_), static_cast<size_t>(hi - lo));
    announce();
    return ok;
}

void file_window::announce() {
    if (!changes_) return;
    // This window's own change does not make what it holds stale.
    uint64_t before = changes_->fetch_add(1, std::memory_order_acq_rel);
    uint64_t expected = before;
    seen_.compare_exchange_strong(expected, before + 1, std::memory_order_relaxed);
}

bool file_window::flush() {
    std::lock_guard<std::mutex> g(lock_);
    if (!map_.mapped()) return flush_locked();
    // The bytes are in the file already: the file's watchers are told now.
    const bool untold = untold_.exchange(false, std::memory_order_acq_rel);
    if (untold) announce();
    if (untold || signal_.pending()) signal_.send();
    return true;
}

void file_window::flush_before_event() {
    std::lock_guard<std::mutex> g(lock_);
    if (!map_.mapped()) {
        flush_locked();
        return;
    }
    // Told once: the event this signal causes finds nothing untold.
    if (!untold_.exchange(false, std::memory_order_acq_rel)) return;
    announce();
    signal_.raise();
}

void file_window::flush_pending() {
    if (map_.mapped()) {
        publish_mapped();
        return;
    }
    std::lock_guard<std::mutex> g(lock_);
    flush_locked();
}

void file_window::publish_mapped() {
    dirty_lo_.store(0, std::memory_order_relaxed);
    dirty_hi_.store(0, std::memory_order_relaxed);
    if (!untold_.exchange(false, std::memory_order_acq_rel)) return;
    announce();
    signal_.raise();
}

void file_window::load_locked(uint64_t pos, size_t need) {
    // Forward from the current window (or just past it): read more next time.
    bool forward = len_ > 0 && pos >= start_ && pos - start_ <= len_ + span_;
    span_ = forward ? std::min(span_ * 2, max_span) : min_span;
    size_t want = std::max(span_, need);
    if (buf_.size() < want) buf_.resize(want);
    // The counter is taken before the bytes: a change that lands after the
    // read moves it again, and the next access reads once more.
    if (changes_) seen_.store(changes_->load(std::memory_order_acquire), std::memory_order_relaxed);
    start_ = pos;
    len_ = fd_ >= 0 ? pread_some(fd_, pos, buf_.data(), want) : 0;
    size_ = std::max(size_, start_ + len_);
}

size_t file_window::read_slow(uint64_t pos, void* out, size_t n) {
    auto* dst = static_cast<uint8_t*>(out);
    std::memset(dst, 0, n);
    if (fd_ < 0 || n == 0) return 0;
    // Past the mapping is past the end of the file: nothing is kept.
    if (map_.mapped()) return pread_some(fd_, pos, dst, n);
    std::lock_guard<std::mutex> g(lock_);
    flush_locked();
    load_locked(pos, n);
    size_t got = std::min(n, len_);
    std::memcpy(dst, buf_.data(), got);
    return got;
}

bool file_window::write_slow(uint64_t pos, const void* data, size_t n) {
    if (fd_ < 0 || !writable_) return false;
    if (n == 0) return true;
    std::lock_guard<std::mutex> g(lock_);
    bool ok = flush_locked();
    // Inside the file: bring the bytes into the window and change them there.
    if (!map_.mapped() && pos <= size_ && n <= size_ - pos) {
        load_locked(pos, n);
        if (len_ >= n) {
            std::memcpy(buf_.data(), data, n);
            mark_dirty(pos, pos + n);
            return ok;
        }
    }
    // Reaching past the end: straight to the file.
    if (!put(pos, data, n)) return false;
    announce();
    if (pos < start_ + len_ && start_ < pos + n) len_ = 0;  // the window would go stale
    size_ = std::max(size_, pos + n);
    map_locked();
    return ok;
}

bool file_window::write_through(uint64_t pos, const void* data, size_t n) {
    if (fd_ < 0 || !writable_) return false;
    if (n == 0) return true;
    std::lock_guard<std::mutex> g(lock_);
    bool ok = flush_locked();
    if (!put(pos, data, n)) return false;
    announce();
    // Keep the window's copy of the bytes it holds.
    uint64_t lo = std::max(pos, start_), hi = std::min(pos + n, start_ + len_);
    if (lo < hi)
        std::memcpy(buf_.data() + (lo - start_), static_cast<const uint8_t*>(data) + (lo - pos),
                    static_cast<size_t>(hi - lo));
    size_ = std::max(size_, pos + n);
    map_locked();
    return ok;
}

}  // namespace qz
