// How CSV text becomes table fields: the value forms import reads, the field
// a column gets when its type is inferred, and whether a value fits a field.
//
// Inference, over a column's non-empty cells (empty cells fit any type):
//  - all T, F, true or false (any letter case)      -> L(1)
//  - all dates YYYY-MM-DD                           -> D(8)
//  - all numbers -?(0|[1-9][0-9]*)(.[0-9]+)?        -> N, as wide as the
//    widest integer part plus the most decimals (and the point), with the
//    most decimals any cell has; numbers with more than 15 digits, a field
//    wider than 20 characters, "-0" and integers with leading zeros ("007")
//    keep the column as text, so that no digit is lost;
//  - anything else                                  -> C, as long as the
//    longest cell in the table's encoding (in bytes), at most 254.
// An all-empty column is C(1).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qzdbf {

// The parts of a number cell; false for anything that is no such number.
struct Number_form {
    size_t int_width = 0;  // characters before the point, the sign included
    size_t decimals = 0;   // digits after the point
    size_t digits = 0;     // all digits
};
bool read_number(std::string_view text, Number_form& form);

// A date YYYY-MM-DD (or, with `compact`, YYYYMMDD too) of the calendar;
// writes YYYYMMDD into `out` (9 bytes).
bool read_date(std::string_view text, bool compact, char* out);

// 1 for T/true, 0 for F/false (any case), -1 otherwise. With `wide`, also
// Y/N/1/0 (values given for an L field).
int read_logical(std::string_view text, bool wide);

// Byte lengths of UTF-8 text in a table encoding: UTF-8 or any single-byte
// encoding iconv knows whose lower half is ASCII.
class Text_measure {
  public:
    explicit Text_measure(const std::string& encoding);
    // False for an encoding iconv does not know, or one with characters of
    // several bytes other than UTF-8.
    bool usable() const { return usable_; }
    // The bytes `utf8` takes in the table; -1 when it is not UTF-8, -2 when
    // it holds a character the encoding cannot store.
    long bytes(std::string_view utf8) const;

  private:
    bool utf8_ = false, usable_ = false;
    std::vector<uint8_t> holds_;  // one bit per code point the encoding stores
};

// What the cells of one column allow.
class Column_guess {
  public:
    // One cell, with its length in the table's encoding.
    void add(std::string_view cell, size_t bytes);
    // The field: type letter, length, decimals.
    char type() const;
    unsigned length() const;
    unsigned decimals() const;

  private:
    bool any_ = false, logical_ = true, date_ = true, number_ = true;
    size_t int_width_ = 0, decimals_ = 0, bytes_ = 0;
};

// Whether `cell` fits a field of `type`, `length`, `decimals` (as import
// writes it); false with the reason in `why`.
bool value_fits(std::string_view cell, size_t bytes, char type, unsigned length, unsigned decimals,
                std::string& why);

}  // namespace qzdbf
