// The value layer of Tqz_dbf_basic: typed reads and writes of cells by field
// type, on top of the raw cell operations of the storage.
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "dbf/basic_table.h"
#include "dbf/number_text.h"
#include "support/strutil.h"

using namespace qz::dbf;

namespace {

bool is_ws(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

const char* skip_ws(const char* p) {
    while (is_ws(*p)) ++p;
    return p;
}

// A double as the int a cast toward zero gives, clipped to the int range
// (NaN gives 0).
int truncate_to_int(double v) {
    if (std::isnan(v)) return 0;
    if (v >= 2147483647.0) return INT_MAX;
    if (v <= -2147483648.0) return INT_MIN;
    return static_cast<int>(v);
}

bool ascii_equal_ic(const char* a, size_t n, const char* word) {
    size_t i = 0;
    for (; i < n && word[i]; ++i) {
        char x = a[i], y = word[i];
        if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
        if (x != y) return false;
    }
    return i == n && word[i] == 0;
}

// The whole trimmed text equals `word` without regard to case. Letters
// beyond ASCII fold by Unicode rules, like every other comparison of text.
bool word_equal(const char* text, size_t n, bool ascii, const char* word) {
    if (ascii) return ascii_equal_ic(text, n, word);
    return qz_text_icompare(std::string(text, n).c_str(), word) == 0;
}

void append_hex4(std::string& out, unsigned v) {
    static const char digits[] = "0123456789ABCDEF";
    for (int shift = 12; shift >= 0; shift -= 4) out += digits[(v >> shift) & 0xF];
}

}  // namespace

// ---- Parsing -----------------------------------------------------------------

int Tqz_dbf_basic::try_int(const char* text, bool& ok) {
    int v = 0;
    ok = text && scan_int(text, v);
    return ok ? v : 0;
}

double Tqz_dbf_basic::try_dbl(const char* text, bool& ok) {
    double v = 0.0;
    ok = text && scan_double(text, v);
    return ok ? v : 0.0;
}

bool Tqz_dbf_basic::try_bool(const char* text, bool& ok) {
    ok = false;
    if (!text) return false;
    const char* b = skip_ws(text);
    const char* e = b + std::strlen(b);
    while (e > b && is_ws(e[-1])) --e;
    size_t n = static_cast<size_t>(e - b);
    bool ascii = true;
    for (size_t i = 0; i < n; ++i)
        if (static_cast<unsigned char>(b[i]) >= 0x80) ascii = false;
    for (const char* w : {"t", "true", "1", "y"}) {
        if (word_equal(b, n, ascii, w)) {
            ok = true;
            return true;
        }
    }
    for (const char* w : {"f", "false", "0", "n"}) {
        if (word_equal(b, n, ascii, w)) {
            ok = true;
            return false;
        }
    }
    return false;
}

// ---- Reading -----------------------------------------------------------------

const char* Tqz_dbf_basic::get_as_string_raw(unsigned int field, unsigned int record, bool& ok) {
    bool formatted = false;
    return value_text(field, record, ok, formatted);
}

const char* Tqz_dbf_basic::value_text(unsigned int field, unsigned int record, bool& ok,
                                      bool& formatted) {
    if (!cell_ok(field, record)) {
        value_buffer[0] = 0;
        return value_buffer;
    }
    const int f = static_cast<int>(field), r = static_cast<int>(record);
    const Tqz_dbf_field_type type = field_type(field);
    switch (type) {
        case dbf_ft_numeric:
        case dbf_ft_float: {
            const char* text = skip_ws(get_string(f, r));
            size_t n = strnlen(text, 256);
            std::memcpy(value_buffer, text, n);
            value_buffer[n] = 0;
            ok = n > 0;
            if (type == dbf_ft_float) {
                // A decimal comma is read as a point; the number is shown
                // right-aligned with 11 significant digits.
                if (char* comma =
                        static_cast<char*>(std::memchr(value_buffer, ',', n < 20 ? n : 20)))
                    *comma = '.';
                char shown[64];
                double v;
                if (size_t len = decimal_g19(value_buffer, shown)) {
                    std::memcpy(value_buffer, shown, len + 1);
                    formatted = true;
                } else if (scan_double(value_buffer, v)) {
                    format_g19(value_buffer, v);
                    formatted = true;
                }
            }
            return value_buffer;
        }
        case dbf_ft_integer:
            format_int(value_buffer, get_integer(f, r));
            ok = formatted = true;
            return value_buffer;
        case dbf_ft_double:
            format_g19(value_buffer, get_double(f, r));
            ok = formatted = true;
            return value_buffer;
        default:
            ok = true;
            return get_string(f, r);
    }
}

const char* Tqz_dbf_basic::get_as_string(unsigned int field, unsigned int record, bool& ok) {
    // A number this layer wrote out itself is plain ASCII, which needs no
    // conversion between pages that keep ASCII as it is.
    bool formatted = false;
    const char* text = value_text(field, record, ok, formatted);
    if (formatted && converter.keeps_ascii(table_code_page(), 0)) return text;
    return raw_to_system(text);
}

const wchar_t* Tqz_dbf_basic::get_as_wstring(unsigned int field, unsigned int record, unsigned int&,
                                             bool& ok, int) {
    return str_from_raw_w(get_as_string_raw(field, record, ok));
}

const wchar_t* Tqz_dbf_basic::get_as_wchar_t(unsigned int field, unsigned int record,
                                             unsigned int& count, bool& ok) {
    if (!cell_ok(field, record)) {
        ok = false;
        return nullptr;
    }
    Tqz_dbf_field_type type = field_type(field);
    if (type == dbf_ft_integer || type == dbf_ft_double) {
        ok = false;
        return nullptr;
    }
    std::string text = qz::strutil::trim(
        std::string(get_string(static_cast<int>(field), static_cast<int>(record))));
    size_t n = text.size() / 4;
    count = static_cast<unsigned int>(n);
    ok = true;
    // Four hexadecimal digits per UTF-16 code unit; a surrogate pair is
    // joined into the one character it stands for.
    std::vector<unsigned short> units(n, 0);
    for (size_t i = 0; i < n; ++i) {
        unsigned short v = 0;
        if (std::sscanf(text.c_str() + 4 * i, "%4hX", &v) == 1)
            units[i] = v;
        else
            ok = false;
    }
    wide_value.clear();
    if (!ok) return wide_value.c_str();
    for (size_t i = 0; i < n; ++i) {
        unsigned u = units[i];
        if (u >= 0xD800 && u <= 0xDBFF && i + 1 < n && units[i + 1] >= 0xDC00 &&
            units[i + 1] <= 0xDFFF) {
            unsigned lo = units[++i];
            wide_value += static_cast<wchar_t>(0x10000 + ((u - 0xD800) << 10) + (lo - 0xDC00));
        } else {
            wide_value += static_cast<wchar_t>(u);
        }
    }
    count = static_cast<unsigned int>(wide_value.size());
    return wide_value.c_str();
}

int Tqz_dbf_basic::get_as_integer(unsigned int field, unsigned int record, bool& ok) {
    if (!cell_ok(field, record)) {
        ok = false;
        return 0;
    }
    const int f = static_cast<int>(field), r = static_cast<int>(record);
    switch (field_type(field)) {
        case dbf_ft_integer:
            ok = true;
            return get_integer(f, r);
        case dbf_ft_double:
            ok = true;
            return truncate_to_int(get_double(f, r));
        default:
            return try_int(get_string(f, r), ok);
    }
}

double Tqz_dbf_basic::get_as_double(unsigned int field, unsigned int record, bool& ok) {
    if (!cell_ok(field, record)) {
        ok = false;
        return 0.0;
    }
    const int f = static_cast<int>(field), r = static_cast<int>(record);
    switch (field_type(field)) {
        case dbf_ft_integer:
            ok = true;
            return get_integer(f, r);
        case dbf_ft_double:
            ok = true;
            return get_double(f, r);
        default:
            return try_dbl(get_string(f, r), ok);
    }
}

bool Tqz_dbf_basic::get_as_bool(unsigned int field, unsigned int record, bool& ok) {
    if (!cell_ok(field, record)) {
        ok = false;
        return false;
    }
    const int f = static_cast<int>(field), r = static_cast<int>(record);
    switch (field_type(field)) {
        case dbf_ft_integer:
            ok = true;
            return get_integer(f, r) != 0;
        case dbf_ft_double:
            ok = true;
            return get_double(f, r) != 0.0;
        default:
            return try_bool(get_string(f, r), ok);
    }
}

bool Tqz_dbf_basic::get_as_any(unsigned int field, unsigned int record, Tqz_any* value) {
    if (!value) return false;
    bool ok = false;
    switch (field_type(field)) {
        case dbf_ft_numeric:
        case dbf_ft_float:
        case dbf_ft_double: {
            double v = get_as_double(field, record, ok);
            if (ok) any_assign_floating(value, v);
            break;
        }
        case dbf_ft_logical: {
            bool v = get_as_bool(field, record, ok);
            if (ok) any_assign_boolean(value, v);
            break;
        }
        case dbf_ft_integer: {
            int v = get_as_integer(field, record, ok);
            if (ok) any_assign_integer(value, v);
            break;
        }
        default: {
            const char* v = get_as_string(field, record, ok);
            if (ok) any_assign_string(value, v);
            break;
        }
    }
    return ok;
}

// ---- Writing -----------------------------------------------------------------

bool Tqz_dbf_basic::set_fitting(unsigned int field, unsigned int record, const std::string& text) {
    bool fits = text.size() <= get_field_flen(field);
    set_string(static_cast<int>(field), static_cast<int>(record), fits ? text.c_str() : "");
    return fits;
}

bool Tqz_dbf_basic::set_as_string_raw(unsigned int field, unsigned int record, const char* raw) {
    if (!raw || !cell_ok(field, record)) return false;
    const int f = static_cast<int>(field), r = static_cast<int>(record);
    switch (field_type(field)) {
        case dbf_ft_numeric:
        case dbf_ft_float: {
            double v;
            if (scan_double(raw, v)) return set_as_double(field, record, v);
            set_string(f, r, "");  // not a number: the old value goes
            return false;
        }
        case dbf_ft_integer: {
            int v;
            if (!scan_int(raw, v)) return false;
            set_integer(f, r, v);
            return true;
        }
        case dbf_ft_double: {
            double v;
            if (!scan_double(raw, v)) return false;
            set_double(f, r, v);
            return true;
        }
        default:
            set_string(f, r, raw);
            return true;
    }
}

bool Tqz_dbf_basic::set_as_string(unsigned int field, unsigned int record, const char* text) {
    if (!text || !cell_ok(field, record)) return false;
    return set_as_string_raw(field, record, str_to_raw(text));
}

bool Tqz_dbf_basic::set_as_wstring(int field, int record, const wchar_t* text) {
    const unsigned int f = static_cast<unsigned int>(field), r = static_cast<unsigned int>(record);
    if (!text || !cell_ok(f, r)) return false;
    return set_as_string_raw(f, r, str_to_raw_w(text));
}

bool Tqz_dbf_basic::set_as_wchar_t(int field, int record, const wchar_t* text, unsigned int count) {
    const unsigned int f = static_cast<unsigned int>(field), r = static_cast<unsigned int>(record);
    if (!cell_ok(f, r)) return false;
    switch (field_type(f)) {
        case dbf_ft_numeric:
        case dbf_ft_float:
        case dbf_ft_integer:
        case dbf_ft_double:
            return false;
        default:
            break;
    }
    unsigned int n = count < 64 ? count : 64;
    if (n > 0 && !text) return false;
    // Each character as UTF-16 code units of four upper-case hexadecimal
    // digits: one unit below U+10000, a surrogate pair above it.
    number_text.clear();
    for (unsigned int i = 0; i < n; ++i) {
        wchar_t w = text[i];
        if (w >= 0 && w <= 0xFFFF) {
            append_hex4(number_text, static_cast<unsigned>(w));
        } else if (w >= 0x10000 && w <= 0x10FFFF) {
            unsigned v = static_cast<unsigned>(w) - 0x10000;
            append_hex4(number_text, 0xD800 + (v >> 10));
            append_hex4(number_text, 0xDC00 + (v & 0x3FF));
        } else {
            append_hex4(number_text, 0xFFFD);  // not a character
        }
    }
    set_string(field, record, number_text.c_str());
    return true;
}

bool Tqz_dbf_basic::set_as_integer(unsigned int field, unsigned int record, int value) {
    if (!cell_ok(field, record)) return false;
    const int f = static_cast<int>(field), r = static_cast<int>(record);
    switch (field_type(field)) {
        case dbf_ft_numeric:
        case dbf_ft_memo:
        case dbf_ft_float:
            // Written in the field's format; what is too long is cut by the
            // storage, not refused.
            format_double(number_text, static_cast<double>(value), number_layout_of(field));
            set_string(f, r, number_text.c_str());
            return true;
        case dbf_ft_integer:
            set_integer(f, r, value);
            return true;
        case dbf_ft_double:
            set_double(f, r, value);
            return true;
        case dbf_ft_logical:
        case dbf_ft_date:
        case dbf_ft_picture:
            return false;
        default: {
            // Left-aligned and padded to the field's length; refused (and
            // the cell emptied) when it does not fit.
            char digits[16];
            size_t len = format_int(digits, value);
            unsigned flen = get_field_flen(field);
            number_text.assign(digits, len);
            if (len < flen) number_text.append(flen - len, ' ');
            return set_fitting(field, record, number_text);
        }
    }
}

bool Tqz_dbf_basic::set_as_double(unsigned int field, unsigned int record, double value) {
    if (!cell_ok(field, record)) return false;
    const int f = static_cast<int>(field), r = static_cast<int>(record);
    switch (field_type(field)) {
        case dbf_ft_numeric:
        case dbf_ft_memo:
        case dbf_ft_float: {
            // In the field's format; when that is too long, in exponent form;
            // when that is too long as well, empty. Each counts as written.
            number_cell_text(number_text, value, number_layout_of(field), get_field_flen(field));
            set_string(f, r, number_text.c_str());
            return true;
        }
        case dbf_ft_integer:
            set_integer(f, r, truncate_to_int(value));
            return true;
        case dbf_ft_double:
            set_double(f, r, value);
            return true;
        case dbf_ft_logical:
        case dbf_ft_date:
        case dbf_ft_picture:
            return false;
        default: {
            number_format g;
            g.width = get_field_flen(field);
            g.left = true;
            g.conversion = 'g';
            format_double(number_text, value, g);
            return set_fitting(field, record, number_text);
        }
    }
}

bool Tqz_dbf_basic::set_as_bool(unsigned int field, unsigned int record, bool value) {
    if (!cell_ok(field, record)) return false;
    const int f = static_cast<int>(field), r = static_cast<int>(record);
    switch (field_type(field)) {
        case dbf_ft_integer:
            set_integer(f, r, value ? 1 : 0);
            break;
        case dbf_ft_double:
            set_double(f, r, value ? 1.0 : 0.0);
            break;
        default:
            set_string(f, r, value ? "T" : "F");
            break;
    }
    return true;
}

bool Tqz_dbf_basic::set_as_any(unsigned int field, unsigned int record, Tqz_any* value) {
    if (!value) return false;
    switch (value->type) {
        case QZ_ANY_STRING:
            return set_as_string(field, record, value->v.s);
        case QZ_ANY_INTEGER:
            return set_as_integer(field, record, value->v.i);
        case QZ_ANY_FLOATING:
            return set_as_double(field, record, value->v.d);
        case QZ_ANY_BOOLEAN: {
            // The byte as stored, whatever a caller put there.
            unsigned char byte;
            std::memcpy(&byte, &value->v, 1);
            return set_as_bool(field, record, byte != 0);
        }
        default:
            return false;
    }
}
