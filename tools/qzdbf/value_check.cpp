#include "value_check.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <strings.h>
#include <string>

#include "cell_values.h"
#include "cli.h"
#include "qzk_file_dbf_ext.h"

namespace qzdbf {

namespace {

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// A number as a person types it: a sign, digits with one decimal point or
// comma, an exponent. The text with a point, or false.
bool number_syntax(const std::string& text, bool whole, std::string& out) {
    out.clear();
    size_t i = 0;
    bool digits = false, point = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) out += text[i++];
    for (; i < text.size(); ++i) {
        const char c = text[i];
        if (c >= '0' && c <= '9') {
            digits = true;
            out += c;
        } else if ((c == '.' || c == ',') && !point && !whole) {
            point = true;
            out += '.';
        } else {
            break;
        }
    }
    if (!digits) return false;
    if (i < text.size() && (text[i] == 'e' || text[i] == 'E') && !whole) {
        out += 'e';
        ++i;
        if (i < text.size() && (text[i] == '+' || text[i] == '-')) out += text[i++];
        bool exp = false;
        for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
            out += text[i];
            exp = true;
        }
        if (!exp) return false;
    }
    return i == text.size();
}

bool parse_double(const std::string& text, double& v) {
    std::string s = text;
    if (!s.empty() && s[0] == '+') s.erase(0, 1);
    auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
    return ec == std::errc() && end == s.data() + s.size() && std::isfinite(v);
}

std::wstring to_wide(unsigned cp, const std::string& text) {
    if (text.empty()) return std::wstring();
    const int len = static_cast<int>(text.size());
    int n = qz_code_page_to_wide(cp, text.data(), len, nullptr, 0);
    std::wstring w(static_cast<size_t>(n > 0 ? n : 0), L'\0');
    if (n > 0) qz_code_page_to_wide(cp, text.data(), len, w.data(), n);
    return w;
}

std::string from_wide(unsigned cp, const std::wstring& w) {
    if (w.empty()) return std::string();
    const int len = static_cast<int>(w.size());
    int n = qz_wide_to_code_page(cp, w.data(), len, nullptr, 0);
    std::string s(static_cast<size_t>(n > 0 ? n : 0), '\0');
    if (n > 0) qz_wide_to_code_page(cp, w.data(), len, s.data(), n);
    return s;
}

// Why a text is no number: its first character that cannot be part of one.
std::string not_a_number(const std::string& text) {
    for (char c : text)
        if (!std::strchr("0123456789+-.,eE", c))
            return std::string("'") + c + "' cannot be part of a number";
    return "it is not a number";
}

std::string character_text(wchar_t c) {
    return from_wide(65001, std::wstring(1, c));
}

bool check_text(Tqz_dbf_rw* t, unsigned int field, const std::string& input, bool truncate,
                std::string& out, std::string& error) {
    std::string name;
    const unsigned cp = text_code_page(t, name);
    const char* cp_name = name.c_str();
    const std::wstring wide = to_wide(0, input);
    if (!input.empty() && (wide.empty() || from_wide(0, wide) != input)) {
        error = "it is not valid text in the terminal's encoding";
        return false;
    }
    if (cp == 0) {
        // An encoding without a code page number here: the library checks
        // the characters and the length when it writes.
        out = input;
        return true;
    }
    // Every character must survive the table's code page.
    for (wchar_t c : wide) {
        const std::wstring one(1, c);
        if (to_wide(cp, from_wide(cp, one)) != one) {
            error = "the character '" + character_text(c) + "' cannot be stored in " + cp_name;
            return false;
        }
    }
    // The whole width of a character field over 255 bytes (the length's
    // high byte in the decimals byte), as the cell writes take it.
    const unsigned flen =
        std::max<unsigned>(qz_dbf_get_field_flen(t, field), qz_dbf_get_field_width(t, field));
    size_t bytes = 0, keep = 0;
    for (; keep < wide.size(); ++keep) {
        const size_t n = from_wide(cp, wide.substr(keep, 1)).size();
        if (bytes + n > flen) break;
        bytes += n;
    }
    if (keep < wide.size()) {
        if (!truncate) {
            error = "it takes " + std::to_string(from_wide(cp, wide).size()) + " bytes in " +
                    cp_name + ", the field holds " + std::to_string(flen) + " (--truncate cuts it)";
            return false;
        }
        std::fprintf(stderr, "qzdbf: cut to %zu of %zu characters\n", keep, wide.size());
    }
    out = from_wide(0, wide.substr(0, keep));
    return true;
}

}  // namespace

unsigned text_code_page(Tqz_dbf_rw* t, std::string& name) {
    const unsigned flags = qz_dbf_get_utf8_flag(t) ? 65001 : qz_dbf_get_dos_flag(t) ? 866 : 1251;
    if (!writes_in_table_encoding(t)) {
        name = qz_code_page_iconv_name(flags);
        return flags;
    }
    char chosen[64] = "";
    qz_dbf_get_encoding(t, chosen, sizeof chosen);
    name = chosen;
    // The code pages that qzk_basic converts, by their iconv names.
    static const unsigned known[] = {
        65001, 1250, 1251, 1252,  1253,  1254,  1255,  1256,  1257,  1258,  866,  20127, 437,
        850,   852,  855,  857,   860,   861,   862,   863,   864,   865,   869,  874,   932,
        936,   949,  950,  10000, 20866, 21866, 28591, 28592, 28595, 28597, 28605};
    for (unsigned cp : known) {
        const char* n = qz_code_page_iconv_name(cp);
        if (n && strcasecmp(n, chosen) == 0) return cp;
    }
    return 0;
}

bool writes_in_table_encoding(Tqz_dbf_rw* t) {
    const Tqz_dbf_storage storage = qz_dbf_get_storage(t);
    return storage == qz_dbf_storage_file || storage == qz_dbf_storage_memory;
}

std::string text_in_table_encoding(Tqz_dbf_rw* t, unsigned int field, unsigned int record) {
    const long n = qz_dbf_get_cell_utf8(t, field, record, nullptr, 0);
    if (n <= 0) return std::string();
    std::string utf8(static_cast<size_t>(n) + 1, '\0');
    qz_dbf_get_cell_utf8(t, field, record, utf8.data(), utf8.size());
    utf8.resize(static_cast<size_t>(n));
    return utf8_to_system(utf8);
}

bool valid_date(const std::string& d) {
    if (d.size() != 8) return false;
    for (char c : d)
        if (c < '0' || c > '9') return false;
    const int year = std::stoi(d.substr(0, 4)), month = std::stoi(d.substr(4, 2)),
              day = std::stoi(d.substr(6, 2));
    if (year < 1 || month < 1 || month > 12 || day < 1) return false;
    static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return day <= days[month - 1] + (month == 2 && leap ? 1 : 0);
}

bool check_value(Tqz_dbf_rw* t, unsigned int field, const std::string& input, bool truncate,
                 std::string& out, std::string& error) {
    out.clear();
    const std::string value = trim_blanks(input);
    const unsigned flen = qz_dbf_get_field_flen(t, field);
    const int dec = qz_dbf_get_field_dlen(t, field);
    std::string number;
    switch (qz_dbf_get_field_type(t, field)) {
        case dbf_ft_numeric:
        case dbf_ft_float: {
            if (value.empty()) return true;
            double v = 0;
            if (!number_syntax(value, false, number) || !parse_double(number, v)) {
                error = not_a_number(value);
                return false;
            }
            const int places = dec > 0 ? dec : 0;
            char text[400];
            const int n = std::snprintf(text, sizeof text, "%.*f", places, v);
            if (n < 0 || static_cast<unsigned>(n) > flen) {
                error = "it does not fit the field (" + std::to_string(flen) + " characters, " +
                        std::to_string(places) + " decimals)";
                return false;
            }
            out = text;
            return true;
        }
        case dbf_ft_integer: {
            if (value.empty()) return true;
            long long v = 0;
            std::string s;
            if (!number_syntax(value, true, s)) {
                error = "it is not a whole number";
                return false;
            }
            if (!s.empty() && s[0] == '+') s.erase(0, 1);
            auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
            if (ec != std::errc() || end != s.data() + s.size() || v < -2147483648LL ||
                v > 2147483647LL) {
                error = "it is outside -2147483648..2147483647";
                return false;
            }
            out = std::to_string(v);
            return true;
        }
        case dbf_ft_double: {
            if (value.empty()) return true;
            double v = 0;
            if (!number_syntax(value, false, number) || !parse_double(number, v)) {
                error = "it is not a finite number";
                return false;
            }
            out = number;
            return true;
        }
        case dbf_ft_logical: {
            const std::string l = lower(value);
            if (l.empty() || l == "?") return true;
            if (l == "t" || l == "true" || l == "y" || l == "yes" || l == "1") {
                out = "T";
                return true;
            }
            if (l == "f" || l == "false" || l == "n" || l == "no" || l == "0") {
                out = "F";
                return true;
            }
            error = "a logical value is T, F, Y, N, true, false, yes, no, 1 or 0";
            return false;
        }
        case dbf_ft_date: {
            if (value.empty()) return true;
            std::string d = value;
            if (d.size() == 10 && d[4] == '-' && d[7] == '-')
                d = d.substr(0, 4) + d.substr(5, 2) + d.substr(8, 2);
            if (!valid_date(d)) {
                error = "it is not a day of the calendar as YYYYMMDD or YYYY-MM-DD";
                return false;
            }
            out = d;
            return true;
        }
        case dbf_ft_memo:
        case dbf_ft_picture:
            error =
                "a memo cell holds the block number of its memo; text written there would "
                "lose the memo";
            return false;
        default:
            return check_text(t, field, input, truncate, out, error);
    }
}

}  // namespace qzdbf
