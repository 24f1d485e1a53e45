// Typed values into field bytes, by field type and dialect: the image a
// cell of a table holds for a value, or why the field cannot hold it.
// Memo fields are left to the memo layer (only their block number is a
// cell image here).
#pragma once

#include <cstdint>
#include <string>

#include "qzk_file_dbf_ext.h"

namespace qz::dbf {

struct cell_layout {
    char type = 'C';
    unsigned int length = 0;
    int decimals = 0;
    bool visual_foxpro = false;  // version 0x30..0x32: B is a double, memos may take 4 bytes
    bool dbase7 = false;  // version 0x04 or 0x8C: I, + and O big-endian with order bits flipped
};

// Whether the field keeps its value in a memo file (M, G, P, W, and B
// outside Visual FoxPro unless it is 8 bytes wide: a double then).
bool is_memo_type(const cell_layout& f);

// The image of an empty cell: spaces for text and number fields, zeros for
// binary ones (I, B, O, Y, T, @, +, and memo block numbers of 4 bytes).
std::string blank_image(const cell_layout& f);

// Whether a blank image reads back as null (N, F, D, L, T, memo fields,
// and the zeros of I, O and @ in dBASE 7 tables); a blank C field is an
// empty text.
bool blank_reads_null(const cell_layout& f);

// The image of `value` for a field that is no memo field, `length` bytes.
// `table_text` is the value's text already in the table's encoding (for
// text values). False with `why` when the field cannot hold the value: a
// kind the type does not take, a text or number too wide, an integer out
// of range, a date that is none, a non-finite number, or a type written
// by the table alone (+, _NullFlags). dBASE 7 tables keep I big-endian
// with the sign bit flipped and O big-endian with the sign bit set for
// positive numbers and every bit inverted for negative ones, so that the
// bytes sort as the numbers; @ is a big-endian double of milliseconds
// counted from 0001-01-01 as day 1, in every table.
bool encode_cell(const cell_layout& f, const Tqz_dbf_value& value, const std::string& table_text,
                 std::string& image, std::string& why);

// The image of a memo block number: 4 bytes little-endian, or the number
// right-aligned in the field's width (blank for block 0).
std::string memo_block_image(const cell_layout& f, uint32_t block);

// A decimal number text ("-12.345", "7", ".5", "1e3") rounded half away
// from zero to `decimals` places, as "-12.35"; false when it is no number.
bool round_decimal_text(const std::string& text, int decimals, std::string& out);

// Days since 1970-01-01 of a proleptic Gregorian date, and back.
int64_t days_from_civil(int64_t y, unsigned m, unsigned d);
void civil_from_days(int64_t days, int64_t& y, unsigned& m, unsigned& d);
// Whether YYYYMMDD is a real date of the years 1..9999.
bool valid_ymd(long long ymd);

}  // namespace qz::dbf
