// A field's bytes in a record image read straight into a value, for the
// shapes nearly every cell has: a plain decimal number, an eight-digit date,
// a logical letter. Each parser answers false for anything else, and the
// caller then asks the library for that one cell, so an odd cell reads as
// the cell getters read it.
#pragma once

#include <cstdint>
#include <cstring>

namespace qzpy {

enum class parsed { blank, integer, real, other };

struct number_bytes {
    int64_t integer = 0;
    double real = 0.0;
};

// Blanks, an optional sign, digits, optionally a point (or, with `comma`,
// a comma) and more digits, blanks. `integer` without a point, `real` with
// one (also "12." and "12.00": the cell is written as a fraction). At most
// 18 digits, so the integer cannot overflow; a real has at most 15, so the
// value (one division of two exact doubles) is the one strtod gives. Cells
// of blanks only are blank. Anything else (NUL bytes, exponents, the stars
// of an overflowed number, longer digit runs) is `other`.
inline parsed parse_number_bytes(const unsigned char* p, unsigned len, bool comma,
                                 number_bytes& out) {
    static const double tens[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                  1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
    unsigned i = 0;
    while (i < len && p[i] == ' ') ++i;
    unsigned end = len;
    while (end > i && p[end - 1] == ' ') --end;
    if (i == end) return parsed::blank;
    bool negative = false;
    if (p[i] == '-' || p[i] == '+') {
        negative = p[i] == '-';
        ++i;
    }
    uint64_t mantissa = 0;
    unsigned digits = 0, fraction = 0;
    bool point = false;
    for (; i < end; ++i) {
        const unsigned char c = p[i];
        if (c >= '0' && c <= '9') {
            if (++digits > 18) return parsed::other;
            mantissa = mantissa * 10 + (c - '0');
            if (point) ++fraction;
        } else if ((c == '.' || (comma && c == ',')) && !point) {
            point = true;
        } else {
            return parsed::other;
        }
    }
    if (digits == 0) return parsed::other;
    if (!point) {
        out.integer = negative ? -static_cast<int64_t>(mantissa) : static_cast<int64_t>(mantissa);
        out.real = static_cast<double>(out.integer);
        return parsed::integer;
    }
    if (digits > 15) return parsed::other;
    const double v = static_cast<double>(mantissa) / tens[fraction];
    out.real = negative ? -v : v;
    return parsed::real;
}

int64_t days_from_civil(int year, int month, int day);

// "YYYYMMDD" of a valid date (years 1 to 9999): days since 1970-01-01.
// Eight blanks are blank; anything else is `other`.
inline parsed parse_date_bytes(const unsigned char* p, unsigned len, int64_t& days) {
    if (len != 8) return parsed::other;
    int v[8];
    bool blank = true;
    for (int i = 0; i < 8; ++i) {
        if (p[i] != ' ') blank = false;
        v[i] = p[i] - '0';
    }
    if (blank) return parsed::blank;
    for (int i = 0; i < 8; ++i) {
        if (v[i] < 0 || v[i] > 9) return parsed::other;
    }
    const int year = v[0] * 1000 + v[1] * 100 + v[2] * 10 + v[3];
    const int month = v[4] * 10 + v[5];
    const int day = v[6] * 10 + v[7];
    if (year < 1 || month < 1 || month > 12 || day < 1) return parsed::other;
    static const int month_days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    if (day > month_days[month - 1] + (month == 2 && leap ? 1 : 0)) return parsed::other;
    days = days_from_civil(year, month, day);
    return parsed::integer;
}

// One letter: T t Y y true, F f N n false; anything else is `other`.
inline parsed parse_logical_byte(const unsigned char* p, unsigned len, bool& value) {
    if (len != 1) return parsed::other;
    switch (p[0]) {
        case 'T':
        case 't':
        case 'Y':
        case 'y':
            value = true;
            return parsed::integer;
        case 'F':
        case 'f':
        case 'N':
        case 'n':
            value = false;
            return parsed::integer;
        default:
            return parsed::other;
    }
}

// A C cell's text as the library's text read gives it: up to the first NUL
// byte, without trailing blanks. Returns the length kept.
inline unsigned text_length(const unsigned char* p, unsigned len) {
    const void* nul = std::memchr(p, 0, len);
    if (nul != nullptr) len = static_cast<unsigned>(static_cast<const unsigned char*>(nul) - p);
    while (len > 0 && p[len - 1] == ' ') --len;
    return len;
}

}  // namespace qzpy
