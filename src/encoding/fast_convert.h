// Table-driven text conversion between the code pages of the tables and of
// the system, with exactly the results of the general conversions.
//
// A table converts every cell it reads or writes, and going through iconv for
// a short cell costs more than the rest of the read. Between UTF-8 and the
// stateless single-byte code pages (CP866, CP1250..CP1257 without CP1255) a
// character maps to a character, so a table of the 256 bytes of each page,
// taken from iconv itself, gives the same text. Whenever a text holds
// anything the tables cannot answer for certain (an invalid byte, a character
// the target cannot hold), the whole text goes the general way instead, so
// that the dropped bytes, replacement characters and question marks are
// exactly those of the general conversions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "qzk_basic.h"

namespace qz::strconv {

// The bytes of one single-byte code page and the characters they stand for.
struct byte_table;

// A growable, always terminated text buffer that is not cleared when it
// grows (the converter writes every byte it keeps).
class text_buffer {
  public:
    const char* c_str() const { return data_ ? data_.get() : ""; }
    size_t size() const { return size_; }
    // Room for `n` bytes and a terminator; the contents are not kept.
    char* reserve(size_t n) {
        if (n + 1 > cap_) {
            size_t cap = cap_ ? cap_ : 64;
            while (cap < n + 1) cap *= 2;
            data_.reset(new char[cap]);
            cap_ = cap;
        }
        return data_.get();
    }
    // Ends the text after `n` bytes.
    void set_size(size_t n) {
        reserve(n)[n] = 0;
        size_ = n;
    }
    void assign(const char* s, size_t n) {
        char* d = reserve(n);
        if (n) std::memcpy(d, s, n);
        set_size(n);
    }
    void swap(text_buffer& other) {
        data_.swap(other.data_);
        std::swap(cap_, other.cap_);
        std::swap(size_, other.size_);
    }

  private:
    std::unique_ptr<char[]> data_;
    size_t cap_ = 0;
    size_t size_ = 0;
};

class text_converter {
  public:
    // Code pages are numbers as in the encoding table (65001 for UTF-8); 0
    // is the system code page as configured at the time of the call.

    // The result of convert<std::string>(src, n, <from>, <to>), where n is
    // `len`, or with `to_nul` the length of the text up to its first zero
    // byte within `len` bytes (all of which must be readable).
    void narrow(unsigned from_cp, unsigned to_cp, const char* src, size_t len, bool to_nul,
                text_buffer& out);
    // The same for a text that ends with a zero byte within `len` readable
    // bytes, as a terminated text: `src` itself when the conversion would not
    // change it (plain ASCII, or text valid in its code page when both are
    // one), else the converted text in `out`.
    const char* narrow_view(unsigned from_cp, unsigned to_cp, const char* src, size_t len,
                            text_buffer& out) {
        resolve_pair(from_cp, to_cp);
        // Most cells are plain ASCII (numbers, dates, codes): seen here, they
        // need no call at all.
        if (pair_tables_) {
            for (size_t i = 0; i + 8 <= len; i += 8) {
                uint64_t w;
                std::memcpy(&w, src + i, 8);
                const uint64_t high = w & 0x8080808080808080ull;
                // The lowest byte flagged here is the first zero byte (those
                // above it may be flagged wrongly); it ends the text, and
                // what follows it (an earlier text, in a reused buffer) does
                // not count.
                const uint64_t zero = (w - 0x0101010101010101ull) & ~w & 0x8080808080808080ull;
                if (zero) {
                    if (!(high & (zero ^ (zero - 1)))) return src;
                    break;
                }
                if (high) break;
            }
        }
        const char* kept = convert_text(src, len, true, true, out);
        return kept ? kept : out.c_str();
    }

    // Whether plain ASCII text converts to itself between the two code pages
    // (both are converted by table), so that text known to be ASCII needs no
    // conversion at all.
    bool keeps_ascii(unsigned from_cp, unsigned to_cp) {
        resolve_pair(from_cp, to_cp);
        return pair_tables_;
    }

    // The result of qz::basic::cp_to_wide(cp, src, len).
    void to_wide(unsigned cp, const char* src, size_t len, std::wstring& out);
    // The result of qz::basic::wide_to_cp(cp, src, len).
    void from_wide(unsigned cp, const wchar_t* src, size_t len, std::string& out);

  private:
    enum kind_t { k_other, k_utf8, k_bytes };
    struct side {
        unsigned cp = 0xFFFFFFFF;
        kind_t kind = k_other;
        const byte_table* table = nullptr;
        std::string iconv_name;  // empty when iconv knows no name for cp
    };
    // The side of code page `cp`, made when it is not at hand, never in the
    // place of `keep`.
    const side& resolve(unsigned cp, const side* keep = nullptr);
    // The sides of a narrow conversion.
    void resolve_pair(unsigned from_cp, unsigned to_cp) {
        const unsigned system = from_cp == 0 || to_cp == 0 ? qz_options_get_ansi_code_page() : 0;
        if (from_cp != pair_from_ || to_cp != pair_to_ || system != pair_system_)
            resolve_pair_again(from_cp, to_cp, system);
    }
    void resolve_pair_again(unsigned from_cp, unsigned to_cp, unsigned system);
    // Converts into `out`; null when the text would come back unchanged and
    // `keep` allows that answer.
    const char* convert_text(const char* src, size_t len, bool to_nul, bool keep, text_buffer& out);

    // The last few code pages asked for (a table and the system's).
    side sides_[4];
    unsigned next_ = 0;
    // The pair of the last narrow conversion: the code pages as asked for
    // (with the system's as it was then) and their sides.
    unsigned pair_from_ = 0xFFFFFFFF, pair_to_ = 0xFFFFFFFF, pair_system_ = 0;
    const side* pair_a_ = nullptr;
    const side* pair_b_ = nullptr;
    bool pair_tables_ = false;  // both sides convert by table (ASCII stays as it is)
};

}  // namespace qz::strconv
