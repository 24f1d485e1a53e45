// Where dump and get write: standard output, or the pager ($PAGER, else
// "less -S") when standard output is a terminal and the text is longer
// than the screen. Writes are buffered and handed on in blocks, so that
// output starts at once; when the reader goes away (a closed pipe, a pager
// that quits) writing stops quietly.
#pragma once

#include <cstdio>
#include <string>

namespace qzdbf {

class Output {
  public:
    // `lines`: at most how many lines will be written (decides the pager);
    // `page`: whether a pager may be used at all.
    Output(unsigned long long lines, bool page);
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void put(const std::string& text) {
        buffer_ += text;
        if (buffer_.size() >= block_) {
            flush();
            // The first blocks are small, so that the reader sees the first
            // lines at once; then they grow, for speed.
            if (block_ < kBlock) block_ *= 2;
        }
    }
    void put(char c) { buffer_ += c; }
    // Hands the buffered text on; false once the reader is gone or a write
    // failed.
    bool flush();
    // Whether writing can go on.
    bool open() const { return !gone_ && !failed_; }
    // Flushes, waits for the pager and returns the exit status: 0, also when
    // the reader went away, or 3 when a write failed for another reason.
    int finish();

  private:
    static constexpr size_t kBlock = 1 << 16;
    size_t block_ = 1 << 10;
    std::string buffer_;
    FILE* out_ = stdout;
    bool pager_ = false, gone_ = false, failed_ = false, finished_ = false;
};

}  // namespace qzdbf
