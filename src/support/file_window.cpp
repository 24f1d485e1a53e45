#include "support/file_window.h"

#include <sys/stat.h>
#include <sys/types.h>

#include <algorithm>

namespace qz {

namespace {

// The window starts small, so that scattered access reads little, and
// doubles while access runs forward through the file.
constexpr size_t min_span = 4096;
constexpr size_t max_span = 256 * 1024;

}  // namespace

void file_window::attach(FILE* stream, bool writable) {
    detach();
    stream_ = stream;
    writable_ = writable;
    struct stat st;
    size_ = stream && ::fstat(fileno(stream), &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
    start_ = 0;
    len_ = 0;
    dirty_lo_ = dirty_hi_ = 0;
    span_ = min_span;
}

void file_window::detach() {
    if (stream_) flush();
    stream_ = nullptr;
    writable_ = false;
    size_ = 0;
    start_ = 0;
    len_ = 0;
    dirty_lo_ = dirty_hi_ = 0;
    buf_.clear();
    buf_.shrink_to_fit();
}

bool file_window::seek(uint64_t pos) {
    if (pos > static_cast<uint64_t>(INT64_MAX)) return false;
    return fseeko(stream_, static_cast<off_t>(pos), SEEK_SET) == 0;
}

bool file_window::flush() {
    if (!stream_) return true;
    bool ok = true;
    if (dirty_lo_ < dirty_hi_) {
        size_t n = dirty_hi_ - dirty_lo_;
        ok = seek(start_ + dirty_lo_) && std::fwrite(buf_.data() + dirty_lo_, 1, n, stream_) == n;
        dirty_lo_ = dirty_hi_ = 0;
    }
    if (writable_ && std::fflush(stream_) != 0) ok = false;
    std::clearerr(stream_);
    return ok;
}

void file_window::load(uint64_t pos, size_t need) {
    flush();
    // Forward from the current window (or just past it): read more next time.
    bool forward = len_ > 0 && pos >= start_ && pos - start_ <= len_ + span_;
    span_ = forward ? std::min(span_ * 2, max_span) : min_span;
    size_t want = std::max(span_, need);
    if (buf_.size() < want) buf_.resize(want);
    start_ = pos;
    len_ = 0;
    if (!seek(pos)) return;
    len_ = std::fread(buf_.data(), 1, want, stream_);
    std::clearerr(stream_);
}

size_t file_window::read_slow(uint64_t pos, void* out, size_t n) {
    auto* dst = static_cast<uint8_t*>(out);
    std::memset(dst, 0, n);
    if (!stream_ || n == 0) return 0;
    load(pos, n);
    size_t got = std::min(n, len_);
    std::memcpy(dst, buf_.data(), got);
    return got;
}

bool file_window::write_slow(uint64_t pos, const void* data, size_t n) {
    if (!stream_ || !writable_) return false;
    if (n == 0) return true;
    // Inside the file: bring the bytes into the window and change them there.
    if (pos <= size_ && n <= size_ - pos) {
        load(pos, n);
        if (len_ >= n) {
            std::memcpy(buf_.data(), data, n);
            mark_dirty(0, n);
            return true;
        }
    }
    // Past the end: straight to the stream.
    flush();
    if (pos < start_ + len_ && start_ < pos + n) len_ = 0;  // the window would go stale
    bool ok = seek(pos) && std::fwrite(data, 1, n, stream_) == n;
    std::clearerr(stream_);
    if (ok) size_ = std::max(size_, pos + n);
    return ok;
}

}  // namespace qz
