#include "csv_types.h"

#include <iconv.h>

#include <cctype>
#include <string>

namespace qzdbf {

namespace {

constexpr size_t kMaxDigits = 15;  // a double keeps every one of them
constexpr size_t kMaxNumber = 20;  // the widest N field
constexpr size_t kMaxText = 254;

bool digit(char c) {
    return c >= '0' && c <= '9';
}

bool equal_ic(std::string_view a, const char* b) {
    size_t i = 0;
    for (; i < a.size() && b[i]; ++i) {
        char c = a[i];
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c != b[i]) return false;
    }
    return i == a.size() && !b[i];
}

}  // namespace

bool read_number(std::string_view t, Number_form& form) {
    size_t i = 0;
    const bool negative = !t.empty() && t[0] == '-';
    if (negative) ++i;
    const size_t int_start = i;
    while (i < t.size() && digit(t[i])) ++i;
    const size_t int_digits = i - int_start;
    if (int_digits == 0) return false;
    if (int_digits > 1 && t[int_start] == '0') return false;  // "007" stays text
    size_t decimals = 0;
    if (i < t.size()) {
        if (t[i] != '.') return false;
        ++i;
        const size_t dec_start = i;
        while (i < t.size() && digit(t[i])) ++i;
        decimals = i - dec_start;
        if (decimals == 0 || i != t.size()) return false;
    }
    if (negative && t.find_first_not_of("-0.") == std::string_view::npos) return false;  // -0
    form.int_width = int_start + int_digits;
    form.decimals = decimals;
    form.digits = int_digits + decimals;
    return true;
}

bool read_date(std::string_view t, bool compact, char* out) {
    std::string d;
    if (t.size() == 10 && t[4] == '-' && t[7] == '-') {
        d = std::string(t.substr(0, 4)) + std::string(t.substr(5, 2)) + std::string(t.substr(8, 2));
    } else if (compact && t.size() == 8) {
        d = std::string(t);
    } else {
        return false;
    }
    for (char c : d)
        if (!digit(c)) return false;
    const int y = std::stoi(d.substr(0, 4)), m = std::stoi(d.substr(4, 2)),
              day = std::stoi(d.substr(6, 2));
    static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (m < 1 || m > 12 || day < 1) return false;
    const bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
    if (day > days[m - 1] + (m == 2 && leap ? 1 : 0)) return false;
    if (out) d.copy(out, 8), out[8] = '\0';
    return true;
}

int read_logical(std::string_view t, bool wide) {
    if (equal_ic(t, "t") || equal_ic(t, "true")) return 1;
    if (equal_ic(t, "f") || equal_ic(t, "false")) return 0;
    if (wide) {
        if (equal_ic(t, "y") || t == "1") return 1;
        if (equal_ic(t, "n") || t == "0") return 0;
    }
    return -1;
}

Text_measure::Text_measure(const std::string& encoding) {
    std::string n;
    for (char c : encoding)
        if (c != '-' && c != '_' && c != ' ') n += static_cast<char>(std::toupper(c));
    if (n == "UTF8" || n == "65001") {
        utf8_ = usable_ = true;
        return;
    }
    iconv_t cd = ::iconv_open("UTF-32LE", encoding.c_str());
    if (cd == reinterpret_cast<iconv_t>(-1)) return;
    // The code points each byte stands for, alone; a single-byte encoding
    // decodes nearly every byte of its upper half so (a few may be
    // undefined), one of several bytes a character few of them.
    holds_.assign(0x110000 / 8, 0);
    unsigned upper = 0;
    bool ascii = true;
    for (unsigned b = 1; b < 0x100; ++b) {
        char in = static_cast<char>(b);
        uint32_t c = 0;
        char* ip = &in;
        char* op = reinterpret_cast<char*>(&c);
        size_t il = 1, ol = sizeof c;
        ::iconv(cd, nullptr, nullptr, nullptr, nullptr);
        if (::iconv(cd, &ip, &il, &op, &ol) == static_cast<size_t>(-1) || ol != 0) continue;
        if (b < 0x80 && c != b) ascii = false;
        if (c >= 0x110000) continue;
        if (b >= 0x80) ++upper;
        holds_[c / 8] |= static_cast<uint8_t>(1u << (c % 8));
    }
    ::iconv_close(cd);
    usable_ = ascii && upper >= 96;
}

long Text_measure::bytes(std::string_view s) const {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(s.data());
    const size_t n = s.size();
    long count = 0;
    for (size_t i = 0; i < n;) {
        unsigned c = p[i];
        size_t len = 1;
        if (c < 0x80) {
            if (c == 0) return -1;  // no text holds a NUL
            ++i;
            ++count;
            continue;
        }
        if (c >= 0xC2 && c <= 0xDF) {
            len = 2;
            c &= 0x1F;
        } else if (c >= 0xE0 && c <= 0xEF) {
            len = 3;
            c &= 0x0F;
        } else if (c >= 0xF0 && c <= 0xF4) {
            len = 4;
            c &= 0x07;
        } else {
            return -1;
        }
        if (i + len > n) return -1;
        for (size_t k = 1; k < len; ++k) {
            if ((p[i + k] & 0xC0) != 0x80) return -1;
            c = (c << 6) | (p[i + k] & 0x3F);
        }
        // Overlong forms, surrogates and code points past U+10FFFF.
        if ((len == 3 && c < 0x800) || (len == 4 && (c < 0x10000 || c > 0x10FFFF)) ||
            (c >= 0xD800 && c <= 0xDFFF))
            return -1;
        if (utf8_) {
            count += static_cast<long>(len);
        } else {
            if (!(holds_[c / 8] & (1u << (c % 8)))) return -2;
            ++count;
        }
        i += len;
    }
    return count;
}

void Column_guess::add(std::string_view cell, size_t bytes) {
    if (cell.empty()) return;
    any_ = true;
    if (bytes > bytes_) bytes_ = bytes;
    if (logical_ && read_logical(cell, false) < 0) logical_ = false;
    if (date_ && !read_date(cell, false, nullptr)) date_ = false;
    if (number_) {
        Number_form f;
        if (!read_number(cell, f) || f.digits > kMaxDigits) {
            number_ = false;
        } else {
            if (f.int_width > int_width_) int_width_ = f.int_width;
            if (f.decimals > decimals_) decimals_ = f.decimals;
            if (int_width_ + (decimals_ ? decimals_ + 1 : 0) > kMaxNumber) number_ = false;
        }
    }
}

char Column_guess::type() const {
    if (!any_) return 'C';
    if (logical_) return 'L';
    if (date_) return 'D';
    if (number_) return 'N';
    return 'C';
}

unsigned Column_guess::length() const {
    switch (type()) {
        case 'L':
            return 1;
        case 'D':
            return 8;
        case 'N':
            return static_cast<unsigned>(int_width_ + (decimals_ ? decimals_ + 1 : 0));
        default:
            return static_cast<unsigned>(bytes_ == 0 ? 1 : bytes_ > kMaxText ? kMaxText : bytes_);
    }
}

unsigned Column_guess::decimals() const {
    return type() == 'N' ? static_cast<unsigned>(decimals_) : 0;
}

bool value_fits(std::string_view cell, size_t bytes, char type, unsigned length, unsigned decimals,
                std::string& why) {
    if (cell.empty()) return true;
    switch (type) {
        case 'C':
            if (bytes <= length) return true;
            why = std::to_string(bytes) + " bytes do not fit in " + std::to_string(length);
            return false;
        case 'N':
        case 'F': {
            Number_form f;
            if (!read_number(cell, f)) {
                why = "not a number";
                return false;
            }
            if (f.digits > kMaxDigits) {
                why = "more than 15 digits";
                return false;
            }
            if (f.decimals > decimals) {
                why = std::to_string(f.decimals) + " decimals, the field keeps " +
                      std::to_string(decimals);
                return false;
            }
            const size_t need = f.int_width + (decimals ? decimals + 1 : 0);
            if (need > length) {
                why = "the number needs " + std::to_string(need) + " characters, the field has " +
                      std::to_string(length);
                return false;
            }
            return true;
        }
        case 'I': {
            Number_form f;
            if (read_number(cell, f) && f.decimals == 0 && f.digits <= 10) {
                const long long v = std::stoll(std::string(cell));
                if (v >= -2147483648LL && v <= 2147483647LL) return true;
            }
            why = "not a whole number from -2147483648 to 2147483647";
            return false;
        }
        case 'L':
            if (read_logical(cell, true) >= 0) return true;
            why = "not a logical value (T, F, true, false, Y, N, 1, 0)";
            return false;
        case 'D':
            if (read_date(cell, true, nullptr)) return true;
            why = "not a date (YYYY-MM-DD or YYYYMMDD)";
            return false;
        default:
            why = std::string("a ") + type + " field cannot be imported";
            return false;
    }
}

}  // namespace qzdbf
