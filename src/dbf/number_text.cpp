#include "dbf/number_text.h"

#include <locale.h>

#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace qz::dbf {

namespace {

// Runs `body` with the classic locale as the calling thread's locale.
template <class F>
auto in_c_locale(F&& body) {
    static locale_t c_loc = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    locale_t old = c_loc ? uselocale(c_loc) : static_cast<locale_t>(nullptr);
    auto result = body();
    if (c_loc) uselocale(old);
    return result;
}

bool is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}
bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

bool sscanf_double(const char* text, double& v) {
    return in_c_locale([&] { return std::sscanf(text, "%lg", &v) == 1; });
}

bool sscanf_int(const char* text, int& v) {
    return in_c_locale([&] { return std::sscanf(text, "%d", &v) == 1; });
}

std::string vformat(const char* format, ...) __attribute__((format(printf, 1, 2)));

std::string vformat(const char* format, ...) {
    static locale_t c_loc = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    locale_t old = c_loc ? uselocale(c_loc) : static_cast<locale_t>(nullptr);
    std::string out;
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    int n = std::vsnprintf(nullptr, 0, format, args);
    va_end(args);
    if (n > 0) {
        out.resize(static_cast<size_t>(n));
        std::vsnprintf(out.data(), out.size() + 1, format, again);
    }
    va_end(again);
    if (c_loc) uselocale(old);
    return out;
}

// The largest precision converted without the C library; beyond it the text
// no longer fits the local buffer.
constexpr int max_fast_precision = 300;

}  // namespace

bool scan_double(const char* text, double& v) {
    const char* p = text;
    while (is_space(*p)) ++p;
    bool negative = false;
    if (*p == '+' || *p == '-') negative = *p++ == '-';
    const char* begin = p;
    // Only plain decimal numbers are read here: "12", "-1.5", ".5", "3e-7".
    if (!is_digit(*p) && *p != '.') {
        // inf, nan and their spellings are the C library's business.
        if (*p == 'i' || *p == 'I' || *p == 'n' || *p == 'N') return sscanf_double(text, v);
        return false;
    }
    if (p[0] == '0' && (p[1] == 'x' || p[1] == 'X')) return sscanf_double(text, v);
    size_t digits = 0;
    size_t fraction = 0;
    uint64_t mantissa = 0;
    while (is_digit(*p)) mantissa = mantissa * 10 + static_cast<unsigned>(*p++ - '0'), ++digits;
    if (*p == '.') {
        ++p;
        while (is_digit(*p))
            mantissa = mantissa * 10 + static_cast<unsigned>(*p++ - '0'), ++digits, ++fraction;
    }
    if (digits == 0) return sscanf_double(text, v);
    if (*p == 'e' || *p == 'E') {
        const char* e = p + 1;
        if (*e == '+' || *e == '-') ++e;
        // An exponent mark without digits makes the whole conversion fail in
        // the C library; let it say so.
        if (!is_digit(*e)) return sscanf_double(text, v);
        while (is_digit(*e)) ++e;
        p = e;
    } else if (digits <= 15) {
        // At most 15 digits make a whole number below 2^53, held exactly, and
        // at most 15 decimals a power of ten held exactly: one division of
        // two exact values is rounded once, to the nearest double, which is
        // the number the text stands for.
        static const double pow10[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                       1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
        double value = static_cast<double>(mantissa) / pow10[fraction];
        v = negative ? -value : value;
        return true;
    }
    double value = 0;
    auto [end, ec] = std::from_chars(begin, p, value, std::chars_format::general);
    if (ec != std::errc() || end != p) return sscanf_double(text, v);
    v = negative ? -value : value;
    return true;
}

bool scan_int(const char* text, int& v) {
    const char* p = text;
    while (is_space(*p)) ++p;
    bool negative = false;
    if (*p == '+' || *p == '-') negative = *p++ == '-';
    if (!is_digit(*p)) return false;
    const char* digits = p;
    while (is_digit(*p)) ++p;
    // Long runs overflow a long inside the C library, which then stores the
    // clipped value's low bits; leave those to it.
    if (p - digits > 18) return sscanf_int(text, v);
    int64_t value = 0;
    for (const char* d = digits; d < p; ++d) value = value * 10 + (*d - '0');
    if (negative) value = -value;
    // sscanf reads a long and stores it into the int: the low 32 bits.
    v = static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(value)));
    return true;
}

bool parse_format(const char* format, number_format& f) {
    const char* p = format;
    if (*p++ != '%') return false;
    number_format r;
    if (*p == '-') {
        r.left = true;
        ++p;
    }
    auto number = [&](int& out) {
        if (!is_digit(*p)) return false;
        long n = 0;
        while (is_digit(*p)) {
            n = n * 10 + (*p++ - '0');
            if (n > 100000) return false;
        }
        out = static_cast<int>(n);
        return true;
    };
    if (is_digit(*p) && !number(r.width)) return false;
    if (*p == '.') {
        ++p;
        // A negative decimal count gives a precision such as ".-1"; it is
        // taken as C takes a negative precision argument: as if none were
        // given.
        bool negative = *p == '-';
        if (negative) ++p;
        if (!number(r.precision)) return false;
        if (negative) r.precision = -1;
    }
    if (*p == 'l') ++p;
    if (*p != 'f' && *p != 'e' && *p != 'g') return false;
    r.conversion = *p++;
    if (*p != 0) return false;
    f = r;
    return true;
}

void format_double(std::string& out, double v, const number_format& f) {
    out.clear();
    int precision = f.precision < 0 ? 6 : f.precision;
    if (!std::isfinite(v) || precision > max_fast_precision || f.width > 1000) {
        char pattern[32];
        std::snprintf(pattern, sizeof pattern, "%%%s*.*%c", f.left ? "-" : "", f.conversion);
        out = vformat(pattern, f.width, precision, v);
        return;
    }
    char buf[1024];
    std::chars_format cf = f.conversion == 'f'   ? std::chars_format::fixed
                           : f.conversion == 'e' ? std::chars_format::scientific
                                                 : std::chars_format::general;
    auto [end, ec] = std::to_chars(buf, buf + sizeof buf, v, cf, precision);
    if (ec != std::errc()) {
        char pattern[32];
        std::snprintf(pattern, sizeof pattern, "%%%s*.*%c", f.left ? "-" : "", f.conversion);
        out = vformat(pattern, f.width, precision, v);
        return;
    }
    size_t len = static_cast<size_t>(end - buf);
    size_t pad = f.width > 0 && static_cast<size_t>(f.width) > len ? f.width - len : 0;
    out.reserve(len + pad);
    if (!f.left) out.append(pad, ' ');
    out.append(buf, len);
    if (f.left) out.append(pad, ' ');
}

number_format number_layout(char type, unsigned flen, int dlen) {
    number_format f;
    f.width = static_cast<int>(flen);
    if (type == 'F') {
        f.precision = static_cast<int>(flen);
        f.conversion = 'g';
    } else {
        f.precision = dlen < 0 ? -1 : dlen;
        f.conversion = 'f';
    }
    return f;
}

void number_cell_text(std::string& out, double v, const number_format& layout, unsigned flen) {
    format_double(out, v, layout);
    if (out.size() <= flen) return;
    number_format e;
    e.width = static_cast<int>(flen);
    e.left = true;
    e.conversion = 'e';
    format_double(out, v, e);
    if (out.size() > flen) out.clear();
}

namespace {

// The digits of 0..99 by twos.
constexpr char digit_pairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// Room for the significant digits of a number (at most 11), read 16 bytes at
// a time from any of them: the digits, then '0' up to the end.
struct digit_run {
    char d[32];
    digit_run() { std::memset(d, '0', sizeof d); }
};

// "%.11g" of a number given by its sign, its significant digits (1 to 11,
// the first not 0, the last not 0) and the decimal exponent of the first
// digit, right-aligned in 19 columns. The digits are copied 16 bytes at a
// time (fixed-size copies, no calls), the text end moved by the count that
// counts.
size_t g11_from_digits(char* out, bool negative, const digit_run& run, int k, int exp10) {
    // The text is written after 19 spaces, so that the 19 columns ending
    // with it are one fixed-size copy (it is never longer than 18, and no
    // copy reaches past byte 19 + 18 + 16).
    const char* digits = run.d;
    char buf[64];
    std::memset(buf, ' ', 19);
    char* const text = buf + 19;
    char* o = text;
    if (negative) *o++ = '-';
    if (exp10 >= -4 && exp10 < 11) {
        if (exp10 >= 0) {
            // The whole part: the digits up to the point, zeros past the last.
            std::memcpy(o, digits, 16);
            o += exp10 + 1;
            if (k > exp10 + 1) {
                *o++ = '.';
                std::memcpy(o, digits + exp10 + 1, 16);
                o += k - exp10 - 1;
            }
        } else {
            std::memcpy(o, "0.000", 5);
            o += 2 - exp10 - 1;
            std::memcpy(o, digits, 16);
            o += k;
        }
    } else {
        *o++ = digits[0];
        if (k > 1) {
            *o++ = '.';
            std::memcpy(o, digits + 1, 16);
            o += k - 1;
        }
        *o++ = 'e';
        *o++ = exp10 < 0 ? '-' : '+';
        int e = exp10 < 0 ? -exp10 : exp10;
        if (e >= 100) *o++ = static_cast<char>('0' + e / 100);
        *o++ = static_cast<char>('0' + e / 10 % 10);
        *o++ = static_cast<char>('0' + e % 10);
    }
    const size_t len = static_cast<size_t>(o - text);
    if (len <= 19) {
        std::memcpy(out, text + len - 19, 19);
        out[19] = 0;
        return 19;
    }
    std::memcpy(out, text, len);
    out[len] = 0;
    return len;
}

size_t zero_g19(char* out, bool negative) {
    const char* text = negative ? "-0" : "0";
    size_t len = std::strlen(text);
    std::memset(out, ' ', 19 - len);
    std::memcpy(out + 19 - len, text, len + 1);
    return 19;
}

}  // namespace

size_t format_g19(char* out, double v) {
    if (!std::isfinite(v)) {
        std::string s = vformat("%19.11g", v);
        std::memcpy(out, s.c_str(), s.size() + 1);
        return s.size();
    }
    if (v == 0) return zero_g19(out, std::signbit(v));
    // Numbers from 1e-4 to below 1e11 are scaled to an 11-digit whole
    // number. The one rounding of the product is far smaller than a unit, so
    // it decides the last digit unless the product lies next to a half,
    // which is left to the exact conversion below.
    const bool negative = std::signbit(v);
    const double a = std::fabs(v);
    static const double pow10[] = {1e-4, 1e-3, 1e-2, 1e-1, 1e0, 1e1, 1e2,  1e3,
                                   1e4,  1e5,  1e6,  1e7,  1e8, 1e9, 1e10, 1e11};
    static const double scale[] = {1e14, 1e13, 1e12, 1e11, 1e10, 1e9, 1e8, 1e7,
                                   1e6,  1e5,  1e4,  1e3,  1e2,  1e1, 1e0};
    if (a >= pow10[0] && a < pow10[15]) {
        int x = 0;
        while (a >= pow10[x + 1]) ++x;  // pow10[x] <= a < pow10[x + 1]
        double m = a * scale[x];
        double whole = std::floor(m);
        double frac = m - whole;
        if (std::fabs(frac - 0.5) > 1e-4 && m >= 1e10 && m < 1e11) {
            uint64_t n = static_cast<uint64_t>(whole) + (frac > 0.5 ? 1 : 0);
            int exp10 = x - 4;
            if (n == 100000000000ull) {
                n = 10000000000ull;
                ++exp10;
            }
            // Eleven digits: five pairs from the end, then the first.
            digit_run run;
            char* e = run.d + 11;
            for (int i = 0; i < 5; ++i, n /= 100) {
                e -= 2;
                std::memcpy(e, digit_pairs + 2 * (n % 100), 2);
            }
            run.d[0] = static_cast<char>('0' + n);
            int k = 11;
            while (k > 1 && run.d[k - 1] == '0') --k;
            return g11_from_digits(out, negative, run, k, exp10);
        }
    }
    char buf[40];
    // Everything else exactly, as printf would.
    auto [end, ec] = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::general, 11);
    size_t len = ec == std::errc() ? static_cast<size_t>(end - buf) : 0;
    size_t pad = len < 19 ? 19 - len : 0;
    std::memset(out, ' ', pad);
    std::memcpy(out + pad, buf, len);
    out[pad + len] = 0;
    return pad + len;
}

size_t decimal_g19(const char* text, char* out) {
    const char* p = text;
    while (is_space(*p)) ++p;
    bool negative = false;
    if (*p == '+' || *p == '-') negative = *p++ == '-';
    if (p[0] == '0' && (p[1] == 'x' || p[1] == 'X')) return 0;
    digit_run run;
    char* const digits = run.d;
    int k = 0;           // significant digits kept
    int exp10 = 0;       // decimal exponent of the first of them
    int int_digits = 0;  // digits before the point, leading zeros included
    int lead_zeros = 0;  // zeros after the point before the first significant digit
    int trailing = 0;    // zeros seen after the last kept digit, not yet kept
    bool any = false, started = false;
    for (; is_digit(*p); ++p, ++int_digits) {
        any = true;
        if (*p == '0' && !started) continue;
        if (!started) {
            started = true;
            exp10 = -1;
        }
        ++exp10;
        if (*p == '0') {
            ++trailing;
            continue;
        }
        if (k + trailing + 1 > 11) return 0;
        while (trailing > 0) digits[k++] = '0', --trailing;
        digits[k++] = *p;
    }
    if (*p == '.') {
        ++p;
        for (; is_digit(*p); ++p) {
            any = true;
            if (*p == '0' && !started) {
                ++lead_zeros;
                continue;
            }
            if (!started) {
                started = true;
                exp10 = -lead_zeros - 1;
            }
            if (*p == '0') {
                ++trailing;
                continue;
            }
            if (k + trailing + 1 > 11) return 0;
            while (trailing > 0) digits[k++] = '0', --trailing;
            digits[k++] = *p;
        }
    }
    (void)int_digits;
    // An exponent, or no digits at all, is for the general path.
    if (!any || *p == 'e' || *p == 'E') return 0;
    if (!started) return zero_g19(out, negative);
    if (exp10 > 300 || exp10 < -300) return 0;
    return g11_from_digits(out, negative, run, k, exp10);
}

size_t format_int(char* out, int v) {
    auto [end, ec] = std::to_chars(out, out + 11, v);
    size_t len = ec == std::errc() ? static_cast<size_t>(end - out) : 0;
    out[len] = 0;
    return len;
}

std::string printf_double(const char* format, double v) {
    return vformat(format, v);
}

}  // namespace qz::dbf
