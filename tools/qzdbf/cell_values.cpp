// Typed cells as text and as JSON.
#include "cell_values.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "cli.h"

namespace qzdbf {

namespace {

// Days since 1970-01-01 as a civil date (proleptic Gregorian calendar).
void civil_from_days(long long z, long long& y, unsigned& m, unsigned& d) {
    z += 719468;
    const long long era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    y = static_cast<long long>(yoe) + era * 400;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = doy - (153 * mp + 2) / 5 + 1;
    m = mp < 10 ? mp + 3 : mp - 9;
    if (m <= 2) ++y;
}

std::string double_text(double d) {
    if (!std::isfinite(d)) return std::isnan(d) ? "NaN" : d > 0 ? "Infinity" : "-Infinity";
    char buf[64];
    auto [end, ec] = std::to_chars(buf, buf + sizeof buf, d);
    return ec == std::errc() ? std::string(buf, end) : std::string("0");
}

}  // namespace

// -?(0|[1-9]d*)(.d+)?([eE][+-]?d+)?
bool is_json_number(const std::string& s) {
    size_t i = 0, n = s.size();
    auto digits = [&] {
        size_t b = i;
        while (i < n && s[i] >= '0' && s[i] <= '9') ++i;
        return i > b;
    };
    if (i < n && s[i] == '-') ++i;
    if (i < n && s[i] == '0') {
        ++i;
    } else if (!digits()) {
        return false;
    }
    if (i < n && s[i] == '.') {
        ++i;
        if (!digits()) return false;
    }
    if (i < n && (s[i] == 'e' || s[i] == 'E')) {
        ++i;
        if (i < n && (s[i] == '+' || s[i] == '-')) ++i;
        if (!digits()) return false;
    }
    return i == n;
}

namespace {

// The digits a number cell holds, else the number written from its value.
std::string number_text(const Tqz_dbf_value& v) {
    if (v.text && v.length > 0) return std::string(v.text, v.length);
    return v.kind == QZ_DBF_VALUE_INT ? std::to_string(v.i) : double_text(v.d);
}

std::string convert(unsigned from, unsigned to, const std::string& text) {
    if (text.empty()) return text;
    const int len = text.size() > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<int>(text.size());
    int n = qz_code_page_to_wide(from, text.data(), len, nullptr, 0);
    if (n <= 0) return std::string();
    std::wstring wide(static_cast<size_t>(n), L'\0');
    qz_code_page_to_wide(from, text.data(), len, wide.data(), n);
    int m = qz_wide_to_code_page(to, wide.data(), n, nullptr, 0);
    std::string out(static_cast<size_t>(m > 0 ? m : 0), '\0');
    if (m > 0) qz_wide_to_code_page(to, wide.data(), n, out.data(), m);
    return out;
}

bool system_is_utf8() {
    static const bool utf8 = qz_options_get_ansi_code_page() == 65001;
    return utf8;
}

}  // namespace

Cell read_cell(Tqz_dbf_rw* t, unsigned int field, unsigned int record) {
    Cell c;
    if (qz_dbf_get_value(t, field, record, &c.value)) {
        c.typed = c.found = true;
        return c;
    }
    if (qz_dbf_get_storage(t) != qz_dbf_storage_ogr) {
        // A memo that cannot be read shows nothing, never its block number.
        return c;
    }
    c.text = cell_text(t, field, record, &c.found);
    return c;
}

std::string date_text(long long v) {
    if (v < 0 || v > 99991231) {
        char buf[32];
        std::snprintf(buf, sizeof buf, "%04lld-%02lld-%02lld", v / 10000, v / 100 % 100, v % 100);
        return buf;
    }
    // Written digit by digit: a dump writes millions of dates.
    char d[10] = {'0', '0', '0', '0', '-', '0', '0', '-', '0', '0'};
    const int at[8] = {9, 8, 6, 5, 3, 2, 1, 0};
    for (int k = 0; k < 8; ++k, v /= 10) d[at[k]] = static_cast<char>('0' + v % 10);
    return std::string(d, 10);
}

std::string datetime_text(long long ms) {
    long long days = ms / 86400000, rest = ms % 86400000;
    if (rest < 0) {
        rest += 86400000;
        --days;
    }
    long long y = 0;
    unsigned m = 0, d = 0;
    civil_from_days(days, y, m, d);
    char buf[64];
    std::snprintf(buf, sizeof buf, "%04lld-%02u-%02uT%02lld:%02lld:%02lld.%03lld", y, m, d,
                  rest / 3600000, rest / 60000 % 60, rest / 1000 % 60, rest % 1000);
    return buf;
}

std::string value_text(const Tqz_dbf_value& v, Text_style style) {
    switch (v.kind) {
        case QZ_DBF_VALUE_BOOL:
            return style == Text_style::screen ? (v.i ? "T" : "F") : (v.i ? "true" : "false");
        case QZ_DBF_VALUE_INT:
        case QZ_DBF_VALUE_DOUBLE:
        case QZ_DBF_VALUE_DECIMAL:
            return number_text(v);
        case QZ_DBF_VALUE_DATE:
            return date_text(v.i);
        case QZ_DBF_VALUE_DATETIME:
            return datetime_text(v.i);
        case QZ_DBF_VALUE_TEXT:
            return v.text ? std::string(v.text, v.length) : std::string();
        case QZ_DBF_VALUE_BYTES:
            if (style == Text_style::screen)
                return "<binary, " + std::to_string(v.length) + " bytes>";
            return base64(reinterpret_cast<const unsigned char*>(v.text), v.length);
        default:
            return std::string();
    }
}

std::string value_json(const Tqz_dbf_value& v) {
    switch (v.kind) {
        case QZ_DBF_VALUE_BOOL:
            return v.i ? "true" : "false";
        case QZ_DBF_VALUE_INT:
        case QZ_DBF_VALUE_DOUBLE:
        case QZ_DBF_VALUE_DECIMAL: {
            std::string digits = number_text(v);
            if (is_json_number(digits)) return digits;
            if (v.kind == QZ_DBF_VALUE_INT) return std::to_string(v.i);
            // JSON has no infinities: they are written as text.
            return std::isfinite(v.d) ? double_text(v.d) : json_string(double_text(v.d));
        }
        case QZ_DBF_VALUE_DATE:
        case QZ_DBF_VALUE_DATETIME:
        case QZ_DBF_VALUE_TEXT:
        case QZ_DBF_VALUE_BYTES:
            return json_string(value_text(v, Text_style::csv));
        default:
            return "null";
    }
}

std::string json_string(const std::string& text) {
    std::string out;
    out.reserve(text.size() + 2);
    out += '"';
    for (unsigned char c : text) {
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20) {
                    char buf[8];
                    std::snprintf(buf, sizeof buf, "\\u%04x", c);
                    out += buf;
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    out += '"';
    return out;
}

std::string base64(const unsigned char* p, size_t n) {
    static const char abc[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((n + 2) / 3 * 4);
    size_t i = 0;
    for (; i + 3 <= n; i += 3) {
        const unsigned v = (p[i] << 16) | (p[i + 1] << 8) | p[i + 2];
        out += abc[v >> 18];
        out += abc[(v >> 12) & 63];
        out += abc[(v >> 6) & 63];
        out += abc[v & 63];
    }
    if (i < n) {
        const unsigned v = (p[i] << 16) | (i + 1 < n ? p[i + 1] << 8 : 0);
        out += abc[v >> 18];
        out += abc[(v >> 12) & 63];
        out += i + 1 < n ? abc[(v >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

std::string utf8_to_system(const std::string& text) {
    return system_is_utf8() ? text : convert(65001, 0, text);
}

std::string system_to_utf8(const std::string& text) {
    return system_is_utf8() ? text : convert(0, 65001, text);
}

}  // namespace qzdbf
