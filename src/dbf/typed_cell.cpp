#include "dbf/typed_cell.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace qz::dbf {

namespace {

constexpr int64_t epoch_julian_day = 2440588;  // 1970-01-01
constexpr int64_t ms_per_day = 86400000;

void put_le(std::string& out, uint64_t v, unsigned n) {
    for (unsigned k = 0; k < n; ++k) out.push_back(static_cast<char>(v >> (8 * k)));
}

std::string le_image(uint64_t v, unsigned n) {
    std::string out;
    put_le(out, v, n);
    return out;
}

std::string be_image(uint64_t v, unsigned n) {
    std::string out;
    for (unsigned k = n; k-- > 0;) out.push_back(static_cast<char>(v >> (8 * k)));
    return out;
}

// A dBASE 7 O cell: positive numbers with the sign bit set, negative ones
// with every bit inverted, big-endian.
std::string dbase7_double_image(double d) {
    uint64_t bits;
    std::memcpy(&bits, &d, sizeof bits);
    bits = (bits >> 63) ? ~bits : bits | (uint64_t(1) << 63);
    return be_image(bits, 8);
}

// Milliseconds from 0001-01-01 counted as day 1 to 1970-01-01.
constexpr double timestamp_epoch_ms = 719163.0 * 86400000.0;

std::string double_image(double d) {
    uint64_t bits;
    std::memcpy(&bits, &d, sizeof bits);
    return le_image(bits, 8);
}

std::string field_name(const cell_layout& f) {
    char buf[48];
    if (f.decimals > 0)
        std::snprintf(buf, sizeof buf, "%c(%u,%d)", f.type, f.length, f.decimals);
    else
        std::snprintf(buf, sizeof buf, "%c(%u)", f.type, f.length);
    return buf;
}

const char* kind_name(int kind) {
    static const char* const names[] = {"null", "bool",     "integer", "double", "decimal",
                                        "date", "datetime", "text",    "bytes"};
    return kind >= 0 && kind <= 8 ? names[kind] : "unknown";
}

bool refuse(const cell_layout& f, const Tqz_dbf_value& v, std::string& why) {
    why = std::string("a ") + kind_name(v.kind) + " value does not go into a field of type " +
          field_name(f);
    return false;
}

// The value's digits: the text of a decimal (or a text), else the number
// formatted; false for what is no finite number.
bool number_text(const Tqz_dbf_value& v, std::string& text) {
    char buf[64];
    switch (v.kind) {
        case QZ_DBF_VALUE_INT:
            std::snprintf(buf, sizeof buf, "%lld", v.i);
            text = buf;
            return true;
        case QZ_DBF_VALUE_DOUBLE:
            if (!std::isfinite(v.d)) return false;
            std::snprintf(buf, sizeof buf, "%.17g", v.d);
            text = buf;
            return true;
        case QZ_DBF_VALUE_DECIMAL:
        case QZ_DBF_VALUE_TEXT:
            if (v.text && v.length) {
                text.assign(v.text, v.length);
                return true;
            }
            if (v.kind == QZ_DBF_VALUE_TEXT || !std::isfinite(v.d)) return false;
            std::snprintf(buf, sizeof buf, "%.17g", v.d);
            text = buf;
            return true;
        default:
            return false;
    }
}

bool as_double(const Tqz_dbf_value& v, double& d) {
    if (v.kind == QZ_DBF_VALUE_DOUBLE) {
        d = v.d;
        return true;
    }
    if (v.kind == QZ_DBF_VALUE_INT) {
        d = static_cast<double>(v.i);
        return true;
    }
    std::string text;
    if ((v.kind == QZ_DBF_VALUE_DECIMAL || v.kind == QZ_DBF_VALUE_TEXT) && number_text(v, text)) {
        char* end = nullptr;
        d = std::strtod(text.c_str(), &end);
        return end != text.c_str() && !*end;
    }
    return false;
}

bool as_int64(const Tqz_dbf_value& v, int64_t& i) {
    if (v.kind == QZ_DBF_VALUE_INT) {
        i = v.i;
        return true;
    }
    double d;
    if (!as_double(v, d) || !std::isfinite(d) || d != std::floor(d) || std::fabs(d) >= 9.2e18)
        return false;
    i = static_cast<int64_t>(d);
    return true;
}

// Milliseconds since 1970 of a date or datetime value.
bool as_epoch_ms(const Tqz_dbf_value& v, int64_t& ms) {
    if (v.kind == QZ_DBF_VALUE_DATETIME) {
        ms = v.i;
        return true;
    }
    if (v.kind == QZ_DBF_VALUE_DATE && valid_ymd(v.i)) {
        ms = days_from_civil(v.i / 10000, v.i / 100 % 100, v.i % 100) * ms_per_day;
        return true;
    }
    return false;
}

std::string right_aligned(const std::string& text, unsigned width) {
    return std::string(width - text.size(), ' ') + text;
}

}  // namespace

int64_t days_from_civil(int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

void civil_from_days(int64_t z, int64_t& y, unsigned& m, unsigned& d) {
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = doy - (153 * mp + 2) / 5 + 1;
    m = mp < 10 ? mp + 3 : mp - 9;
    y = static_cast<int64_t>(yoe) + era * 400 + (m <= 2);
}

bool valid_ymd(long long ymd) {
    if (ymd < 10101 || ymd > 99991231) return false;
    const int64_t y = ymd / 10000;
    const unsigned m = static_cast<unsigned>(ymd / 100 % 100), d = static_cast<unsigned>(ymd % 100);
    if (m < 1 || m > 12 || d < 1) return false;
    int64_t y2;
    unsigned m2, d2;
    civil_from_days(days_from_civil(y, m, d), y2, m2, d2);
    return y2 == y && m2 == m && d2 == d;
}

bool round_decimal_text(const std::string& text, int decimals, std::string& out) {
    size_t a = text.find_first_not_of(' '), b = text.find_last_not_of(' ');
    if (a == std::string::npos) return false;
    std::string s = text.substr(a, b - a + 1);
    if (s.find_first_of("eE") != std::string::npos) {  // exponent: through a double
        char* end = nullptr;
        const double d = std::strtod(s.c_str(), &end);
        if (end == s.c_str() || *end || !std::isfinite(d)) return false;
        char buf[400];
        std::snprintf(buf, sizeof buf, "%.*f", decimals, d);
        s = buf;
    }
    bool negative = false;
    size_t i = 0;
    if (i < s.size() && (s[i] == '-' || s[i] == '+')) negative = s[i++] == '-';
    std::string whole, frac;
    while (i < s.size() && std::isdigit(static_cast<unsigned char>(s[i]))) whole += s[i++];
    if (i < s.size() && s[i] == '.') {
        ++i;
        while (i < s.size() && std::isdigit(static_cast<unsigned char>(s[i]))) frac += s[i++];
    }
    if (i != s.size() || (whole.empty() && frac.empty())) return false;
    if (decimals < 0) decimals = 0;
    const size_t keep = static_cast<size_t>(decimals);
    bool round_up = frac.size() > keep && frac[keep] >= '5';
    frac.resize(keep, '0');
    std::string digits = (whole.empty() ? "0" : whole) + frac;
    if (round_up) {
        size_t k = digits.size();
        while (k > 0 && digits[k - 1] == '9') digits[--k] = '0';
        if (k == 0)
            digits.insert(digits.begin(), '1');
        else
            ++digits[k - 1];
    }
    std::string int_part = digits.substr(0, digits.size() - keep);
    const size_t nz = int_part.find_first_not_of('0');
    int_part = nz == std::string::npos ? "0" : int_part.substr(nz);
    out = int_part;
    if (keep) out += "." + digits.substr(digits.size() - keep);
    if (negative && digits.find_first_not_of('0') != std::string::npos) out.insert(0, "-");
    return true;
}

bool is_memo_type(const cell_layout& f) {
    switch (f.type) {
        case 'M':
        case 'G':
        case 'P':
        case 'W':
            return true;
        case 'B':  // a memo block number (10 wide) outside Visual FoxPro, else a double
            return !f.visual_foxpro && f.length != 8;
        default:
            return false;
    }
}

std::string blank_image(const cell_layout& f) {
    switch (f.type) {
        case 'I':
        case 'O':
        case 'Y':
        case 'T':
        case '@':
        case '+':
        case '0':
        case 'Q':
            return std::string(f.length, '\0');
        case 'B':
            return std::string(f.length, is_memo_type(f) ? ' ' : '\0');
        default:
            if (is_memo_type(f) && f.length == 4) return std::string(4, '\0');
            return std::string(f.length, ' ');
    }
}

bool blank_reads_null(const cell_layout& f) {
    switch (f.type) {
        case 'N':
        case 'F':
        case 'D':
        case 'L':
        case 'T':
            return true;
        case 'I':
        case 'O':
            return f.dbase7;
        case '@':
            return true;
        default:
            return is_memo_type(f);
    }
}

std::string memo_block_image(const cell_layout& f, uint32_t block) {
    if (f.length == 4) return le_image(block, 4);
    if (block == 0) return std::string(f.length, ' ');
    const std::string digits = std::to_string(block);
    if (digits.size() > f.length) return std::string(f.length, ' ');
    return right_aligned(digits, f.length);
}

bool encode_cell(const cell_layout& f, const Tqz_dbf_value& v, const std::string& table_text,
                 std::string& image, std::string& why) {
    image.clear();
    const unsigned n = f.length;
    auto too_wide = [&](const std::string& what) {
        why = what + " does not fit a field of type " + field_name(f);
        return false;
    };
    switch (f.type) {
        case 'C':
        case 'V': {
            std::string text;
            if (v.kind == QZ_DBF_VALUE_TEXT)
                text = table_text;
            else if (v.kind == QZ_DBF_VALUE_BYTES)
                text.assign(v.text ? v.text : "", v.text ? v.length : 0);
            else
                return refuse(f, v, why);
            if (text.size() > n)
                return too_wide("a text of " + std::to_string(text.size()) + " bytes");
            image = text + std::string(n - text.size(), ' ');
            return true;
        }
        case 'N':
        case 'F': {
            std::string text, rounded;
            if (v.kind == QZ_DBF_VALUE_INT && f.decimals <= 0) {
                rounded = std::to_string(v.i);
            } else if (!number_text(v, text) || !round_decimal_text(text, f.decimals, rounded)) {
                if (v.kind == QZ_DBF_VALUE_DOUBLE && !std::isfinite(v.d)) {
                    why = "a number that is not finite does not go into a field";
                    return false;
                }
                return refuse(f, v, why);
            }
            if (rounded.size() > n) return too_wide("the number " + rounded);
            image = right_aligned(rounded, n);
            return true;
        }
        case 'L':
            if (v.kind != QZ_DBF_VALUE_BOOL) return refuse(f, v, why);
            image = std::string(n, ' ');
            if (n) image[0] = v.i ? 'T' : 'F';
            return true;
        case 'D': {
            if (v.kind != QZ_DBF_VALUE_DATE) return refuse(f, v, why);
            if (!valid_ymd(v.i)) {
                why = "the date " + std::to_string(v.i) + " is no date of the years 1 to 9999";
                return false;
            }
            char buf[16];
            std::snprintf(buf, sizeof buf, "%08lld", v.i);
            if (n < 8) return too_wide("a date");
            image = std::string(buf) + std::string(n - 8, ' ');
            return true;
        }
        case 'I': {
            int64_t i;
            if (v.kind == QZ_DBF_VALUE_BOOL || !as_int64(v, i)) return refuse(f, v, why);
            if (i < std::numeric_limits<int32_t>::min() || i > std::numeric_limits<int32_t>::max())
                return too_wide("the integer " + std::to_string(i));
            // In dBASE 7 the image of the smallest integer is all zeros: the
            // empty cell.
            if (f.dbase7 && i == std::numeric_limits<int32_t>::min())
                return too_wide("the integer " + std::to_string(i) + " (an empty cell in dBASE 7)");
            const uint32_t bits = static_cast<uint32_t>(static_cast<int32_t>(i));
            image = f.dbase7 ? be_image(bits ^ 0x80000000u, 4) : le_image(bits, 4);
            break;
        }
        case 'B':
        case 'O': {
            double d;
            if (v.kind == QZ_DBF_VALUE_BOOL || !as_double(v, d)) return refuse(f, v, why);
            if (!std::isfinite(d)) {
                why = "a number that is not finite does not go into a field";
                return false;
            }
            image = f.dbase7 && f.type == 'O' ? dbase7_double_image(d) : double_image(d);
            break;
        }
        case 'Y': {
            int64_t units = 0;
            std::string text, rounded;
            if (v.kind == QZ_DBF_VALUE_INT) {
                if (v.i > INT64_MAX / 10000 || v.i < INT64_MIN / 10000)
                    return too_wide("the amount " + std::to_string(v.i));
                units = v.i * 10000;
            } else if (number_text(v, text) && round_decimal_text(text, 4, rounded)) {
                std::string digits = rounded;
                digits.erase(digits.find('.'), 1);
                errno = 0;
                char* end = nullptr;
                const long long u = std::strtoll(digits.c_str(), &end, 10);
                if (errno == ERANGE || *end) return too_wide("the amount " + rounded);
                units = u;
            } else {
                return refuse(f, v, why);
            }
            image = le_image(static_cast<uint64_t>(units), 8);
            break;
        }
        case 'T': {
            int64_t ms;
            if (!as_epoch_ms(v, ms)) return refuse(f, v, why);
            int64_t days = ms / ms_per_day, rest = ms % ms_per_day;
            if (rest < 0) {
                rest += ms_per_day;
                --days;
            }
            const int64_t jd = days + epoch_julian_day;
            if (jd < 1 || jd > 0x7FFFFFFF) {
                why = "the datetime lies outside the days a field of type T counts";
                return false;
            }
            image =
                le_image(static_cast<uint32_t>(jd), 4) + le_image(static_cast<uint32_t>(rest), 4);
            break;
        }
        case '+':
            why = "an autoincrement field takes its values from the table, not from a caller";
            return false;
        case '0':
            why = "the null flags field is kept by the table itself";
            return false;
        case '@': {
            int64_t ms;
            if (!as_epoch_ms(v, ms)) return refuse(f, v, why);
            // Whole milliseconds up to 2^53 stay exact in the double; the
            // range is checked on integers, before any rounding.
            constexpr int64_t epoch = 719163LL * 86400000LL, exact = 1LL << 53;
            if (ms < 86400000LL - epoch || ms > exact - epoch) {
                why =
                    "the timestamp lies before 0001-01-01 or past the days a field of type @ "
                    "counts exactly";
                return false;
            }
            const double stored = static_cast<double>(ms + epoch);
            uint64_t bits;
            std::memcpy(&bits, &stored, sizeof bits);
            image = be_image(bits, 8);
            break;
        }
        default:
            if (v.kind != QZ_DBF_VALUE_BYTES) return refuse(f, v, why);
            if (v.length > n) return too_wide("bytes of " + std::to_string(v.length));
            image.assign(v.text ? v.text : "", v.text ? v.length : 0);
            image.resize(n, '\0');
            return true;
    }
    if (image.size() > n)
        return too_wide("a binary value of " + std::to_string(image.size()) + " bytes");
    image.resize(n, '\0');
    return true;
}

}  // namespace qz::dbf
