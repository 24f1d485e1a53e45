// Numbers as cell text: the sscanf and sprintf conversions the value layer is
// defined by ("%d", "%lg", "%19.11g", "%10.2lf", ...), with the results the C
// library gives in its classic locale, whatever locale the host has set.
//
// The common shapes (plain decimal numbers, finite values) are converted with
// std::from_chars / std::to_chars, which are exact; anything unusual (hex
// numbers, inf and nan, exponents without digits, huge digit runs) is handed
// to the C library itself under the classic locale, so every result is the
// one sscanf or sprintf would give.
#pragma once

#include <cstddef>
#include <string>

namespace qz::dbf {

// sscanf(text, "%lg", &v) == 1.
bool scan_double(const char* text, double& v);
// sscanf(text, "%d", &v) == 1.
bool scan_int(const char* text, int& v);

// A printf conversion of one double: width, precision and one of 'f', 'e',
// 'g'; `left` is the '-' flag. A negative precision means the default (6).
struct number_format {
    int width = 0;
    int precision = -1;
    char conversion = 'g';
    bool left = false;
};

// Reads a format of the shape "%[-][width][.precision][l](f|e|g)"; false
// for any other text.
bool parse_format(const char* format, number_format& f);

// Appends the text sprintf gives for `v` under `f` to `out` (cleared first).
void format_double(std::string& out, double v, const number_format& f);
// The layout a numeric cell of a field is written in: sprintf's "%W.Pg"
// with W and P the length for type 'F', else "%W.Dlf" with D the decimal
// count (a negative one taken as none given).
number_format number_layout(char type, unsigned flen, int dlen);
// The text a numeric cell (types 'N', 'F', 'M') of length `flen` holds for
// `v`: the field's layout; when that is too long, left-aligned exponent
// form; when that is too long as well, empty.
void number_cell_text(std::string& out, double v, const number_format& layout, unsigned flen);
// Writes the text of sprintf "%19.11g" into `out` (at least 64 bytes) with
// its terminator; returns its length.
size_t format_g19(char* out, double v);
// The text of sprintf "%19.11g" of the number sscanf "%lg" reads from
// `text`, into `out` (at least 64 bytes), when `text` is a plain decimal
// number of at most 11 significant digits; such a number is shown with its
// own digits, so no binary conversion is needed. 0 for any other text.
size_t decimal_g19(const char* text, char* out);
// Writes the text of sprintf "%d" into `out` (at least 12 bytes) with its
// terminator; returns its length.
size_t format_int(char* out, int v);

// sprintf(out, format, v) in the classic locale for any one-conversion
// format taking a double, into a string of any length.
std::string printf_double(const char* format, double v);

}  // namespace qz::dbf
