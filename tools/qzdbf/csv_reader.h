// An RFC 4180 reader: records of cells separated by a delimiter, ended by
// CRLF or LF; a cell in double quotes may hold delimiters, line breaks and
// doubled quotes (""). The file is read through a buffer of its own, in
// one pass, and can be read again from the start (rewind).
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace qzdbf {

class Csv_reader {
  public:
    // Reads `file` (not owned) from where it stands; a UTF-8 byte order mark
    // at its start is skipped.
    explicit Csv_reader(std::FILE* file, char delimiter = ',');

    // The next record's cells, each ending with a NUL byte in the reader's
    // buffer (valid until the next call). False at the end of the input, and
    // on an error (error() is then not empty): a quoted cell not closed, or
    // text after a closing quote.
    bool next(std::vector<std::string_view>& cells);

    // The line on which the last record began (1 for the first line).
    unsigned long long line() const { return record_line_; }
    const std::string& error() const { return error_; }
    // Bytes consumed so far.
    uint64_t position() const { return consumed_ + pos_; }
    // Back to the start of the file, as if just made; false if it cannot seek.
    bool rewind();

  private:
    // Finds the end of the record starting at pos_; false when the buffer
    // ends first (more must be read).
    bool find_end(size_t& end, size_t& lines) const;
    bool fill();  // keeps [pos_, size_) and reads more after it
    bool parse(size_t end, std::vector<std::string_view>& cells);
    void skip_bom();

    std::FILE* file_;
    long start_;
    char delim_;
    std::vector<char> buf_;
    size_t pos_ = 0, size_ = 0;
    uint64_t consumed_ = 0;  // bytes of the file before buf_[0]
    bool eof_ = false;
    unsigned long long next_line_ = 1, record_line_ = 0;
    std::string error_;
};

// Reads a whole text as CSV; false with a message ("line N: ...") on an
// error. For tests and small inputs.
bool parse_csv_text(const std::string& text, char delimiter,
                    std::vector<std::vector<std::string>>& records, std::string& error);

}  // namespace qzdbf
