#include "csv_reader.h"

#include <cstring>

namespace qzdbf {

namespace {
constexpr size_t kChunk = 1 << 20;
}

Csv_reader::Csv_reader(std::FILE* file, char delimiter)
    : file_(file), start_(file ? std::ftell(file) : 0), delim_(delimiter), buf_(kChunk + 1) {
    if (start_ < 0) start_ = 0;
    skip_bom();
}

void Csv_reader::skip_bom() {
    fill();
    if (size_ - pos_ >= 3 && std::memcmp(buf_.data() + pos_, "\xEF\xBB\xBF", 3) == 0) pos_ += 3;
}

bool Csv_reader::rewind() {
    if (!file_ || std::fseek(file_, start_, SEEK_SET) != 0) return false;
    pos_ = size_ = 0;
    consumed_ = 0;
    eof_ = false;
    next_line_ = 1;
    record_line_ = 0;
    error_.clear();
    skip_bom();
    return true;
}

bool Csv_reader::fill() {
    if (eof_ || !file_) {
        eof_ = true;
        return false;
    }
    if (pos_ > 0) {
        std::memmove(buf_.data(), buf_.data() + pos_, size_ - pos_);
        size_ -= pos_;
        consumed_ += pos_;
        pos_ = 0;
    }
    // One byte always stays free after the data: the last cell's NUL.
    if (buf_.size() - 1 - size_ < kChunk / 4) buf_.resize(buf_.size() * 2);
    size_t got = std::fread(buf_.data() + size_, 1, buf_.size() - 1 - size_, file_);
    size_ += got;
    if (got == 0) eof_ = true;
    return got > 0;
}

bool Csv_reader::find_end(size_t& end, size_t& lines) const {
    const char* b = buf_.data();
    size_t i = pos_;
    lines = 0;
    bool cell_start = true;
    while (i < size_) {
        if (cell_start && b[i] == '"') {
            // A quoted cell: up to a quote that is not doubled.
            ++i;
            for (;;) {
                const void* q = std::memchr(b + i, '"', size_ - i);
                size_t stop = q ? static_cast<size_t>(static_cast<const char*>(q) - b) : size_;
                for (size_t k = i; k < stop; ++k) lines += b[k] == '\n';
                if (!q) return false;
                if (stop + 1 >= size_ && !eof_) return false;  // doubled or not: unknown yet
                if (stop + 1 < size_ && b[stop + 1] == '"') {
                    i = stop + 2;
                    continue;
                }
                i = stop + 1;
                break;
            }
            cell_start = false;
            continue;
        }
        const char c = b[i];
        if (c == '\n') {
            end = i;
            return true;
        }
        cell_start = c == delim_;
        ++i;
    }
    if (!eof_) return false;
    end = size_;
    return true;
}

bool Csv_reader::parse(size_t end, std::vector<std::string_view>& cells) {
    char* b = buf_.data();
    size_t rec_end = end;
    if (end < size_ && rec_end > pos_ && b[rec_end - 1] == '\r') --rec_end;
    std::vector<std::pair<size_t, size_t>> spans;
    size_t r = pos_, w = pos_;
    for (;;) {
        const size_t start = w;
        if (r < rec_end && b[r] == '"') {
            ++r;
            for (;;) {
                char* q = static_cast<char*>(std::memchr(b + r, '"', rec_end - r));
                // find_end saw the closing quote: it lies before the record's end.
                size_t stop = q ? static_cast<size_t>(q - b) : rec_end;
                std::memmove(b + w, b + r, stop - r);
                w += stop - r;
                r = stop + 1;
                if (r < rec_end && b[r] == '"') {
                    b[w++] = '"';
                    ++r;
                    continue;
                }
                break;
            }
            if (r < rec_end && b[r] != delim_) {
                error_ = "line " + std::to_string(record_line_) +
                         ": text after the closing quote of cell " +
                         std::to_string(spans.size() + 1);
                return false;
            }
        } else {
            const void* d = std::memchr(b + r, delim_, rec_end - r);
            size_t stop = d ? static_cast<size_t>(static_cast<const char*>(d) - b) : rec_end;
            if (w != r) std::memmove(b + w, b + r, stop - r);
            w += stop - r;
            r = stop;
        }
        spans.emplace_back(start, w - start);
        const bool more = r < rec_end;  // b[r] is a delimiter
        b[w++] = '\0';
        if (!more) break;
        ++r;
    }
    cells.clear();
    for (const auto& s : spans) cells.emplace_back(b + s.first, s.second);
    return true;
}

bool Csv_reader::next(std::vector<std::string_view>& cells) {
    cells.clear();
    if (!error_.empty()) return false;
    for (;;) {
        if (pos_ >= size_ && !fill()) return false;
        size_t end = 0, lines = 0;
        if (find_end(end, lines)) {
            record_line_ = next_line_;
            next_line_ += lines + 1;
            if (!parse(end, cells)) return false;
            pos_ = end < size_ ? end + 1 : end;
            return true;
        }
        if (eof_) {
            // The input ended inside a quoted cell.
            error_ = "line " + std::to_string(next_line_) + ": a quoted cell is not closed";
            return false;
        }
        fill();
    }
}

bool parse_csv_text(const std::string& text, char delimiter,
                    std::vector<std::vector<std::string>>& records, std::string& error) {
    records.clear();
    error.clear();
    std::FILE* f = ::fmemopen(const_cast<char*>(text.data()), text.size(), "rb");
    if (text.empty()) return true;
    if (!f) {
        error = "cannot read the text";
        return false;
    }
    Csv_reader reader(f, delimiter);
    std::vector<std::string_view> cells;
    while (reader.next(cells)) records.emplace_back(cells.begin(), cells.end());
    error = reader.error();
    std::fclose(f);
    return error.empty();
}

}  // namespace qzdbf
