// Field and record arguments of the qzdbf commands, and cells as text.
#include <cstring>
#include <string>

#include "cli.h"
#include "qzk_file_dbf_ext.h"

namespace qzdbf {

bool resolve_field(Tqz_dbf_rw* table, const std::string& arg, unsigned int& field,
                   std::string& error) {
    unsigned int nf = qz_dbf_get_nf(table);
    for (unsigned int i = 0; i < nf; ++i) {
        const char* name = qz_dbf_get_field_name(table, i);
        if ((name && arg == name) || arg == field_name(table, i)) {
            field = i;
            return true;
        }
    }
    unsigned long long index = 0;
    if (parse_count(arg, 0xFFFFFFFFull, index)) {
        if (index < nf) {
            field = static_cast<unsigned int>(index);
            return true;
        }
        error = "field index " + arg + " is out of range (the table has " + std::to_string(nf) +
                " fields)";
        return false;
    }
    for (unsigned int i = 0; i < nf; ++i) {
        const char* name = qz_dbf_get_field_name(table, i);
        if (name && qz_text_icompare(name, arg.c_str()) == 0) {
            field = i;
            return true;
        }
    }
    error = "the table has no field named '" + arg + "'";
    return false;
}

std::string field_name(Tqz_dbf_rw* table, unsigned int field) {
    char buffer[128];
    if (qz_dbf_get_field_name_utf8(table, field, buffer, sizeof buffer) >= 0) return buffer;
    const char* name = qz_dbf_get_field_name(table, field);
    return name ? name : "";
}

bool resolve_record(Tqz_dbf_rw* table, const std::string& arg, unsigned int& record,
                    std::string& error) {
    unsigned long long index = 0;
    if (!parse_count(arg, 0xFFFFFFFFull, index)) {
        error = "record '" + arg + "' is not a record index (counted from 0)";
        return false;
    }
    unsigned int nr = qz_dbf_get_nr(table);
    if (index >= nr) {
        error =
            "record " + arg + " is out of range (the table has " + std::to_string(nr) + " records)";
        return false;
    }
    record = static_cast<unsigned int>(index);
    return true;
}

bool numeric_field(Tqz_dbf_rw* table, unsigned int field) {
    switch (qz_dbf_get_field_type(table, field)) {
        case dbf_ft_numeric:
        case dbf_ft_float:
        case dbf_ft_integer:
        case dbf_ft_double:
            return true;
        default:
            return false;
    }
}

std::string cell_text(Tqz_dbf_rw* table, unsigned int field, unsigned int record, bool* ok_out) {
    bool ok = false;
    const char* text = qz_dbf_get_str(table, field, record, ok);
    if (ok_out) *ok_out = ok;
    if (!ok || !text) return std::string();
    return trim_blanks(text);
}

bool memo_text(Tqz_dbf_rw* table, unsigned int field, unsigned int record, std::string& text) {
    text.clear();
    bool ok = false;
    unsigned int length = 0, type = 0;
    const unsigned char* bytes = qz_dbf_get_memo_bytes(table, field, record, ok, length, type);
    if (!ok || !bytes) return false;
    // .dbt memos report type 1; .fpt block headers are reported as stored,
    // big-endian, so text (1) shows as 0x01000000 there.
    if (type != 1 && type != 0x01000000u) {
        text = "<binary, " + std::to_string(length) + " bytes>";
        return true;
    }
    if (length == 0) return true;
    // Memo bytes are in the table's encoding; the terminal wants system text.
    unsigned int cp = qz_dbf_get_utf8_flag(table) ? 65001 : qz_dbf_get_dos_flag(table) ? 866 : 1251;
    int len = length > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<int>(length);
    const char* raw = reinterpret_cast<const char*>(bytes);
    int n = qz_code_page_to_wide(cp, raw, len, nullptr, 0);
    std::wstring wide(static_cast<size_t>(n > 0 ? n : 0), L'\0');
    if (n > 0) qz_code_page_to_wide(cp, raw, len, wide.data(), n);
    int m = qz_wide_to_code_page(0, wide.data(), n, nullptr, 0);
    text.assign(static_cast<size_t>(m > 0 ? m : 0), '\0');
    if (m > 0) qz_wide_to_code_page(0, wide.data(), n, text.data(), m);
    // A memo may end with padding or a terminator.
    while (!text.empty() && (text.back() == '\0' || text.back() == '\x1A')) text.pop_back();
    return true;
}

namespace {

bool all_digits(const std::string& s) {
    for (char c : s)
        if (c < '0' || c > '9') return false;
    return true;
}

}  // namespace

bool prepare_value(Tqz_dbf_rw* t, unsigned int field, const std::string& value, std::string& out,
                   std::string& error) {
    out.clear();
    switch (qz_dbf_get_field_type(t, field)) {
        case dbf_ft_numeric:
        case dbf_ft_float:
        case dbf_ft_integer:
        case dbf_ft_double:
            for (char c : value) {
                char typed = c;
                if (!qz_dbf_validate_val(t, field, &typed, out.c_str(), false)) {
                    error = std::string("'") + c + "' cannot be part of a number in this field";
                    return false;
                }
                out += typed;
            }
            return true;
        case dbf_ft_date:
            if (value.size() == 10 && value[4] == '-' && value[7] == '-') {
                out = value.substr(0, 4) + value.substr(5, 2) + value.substr(8, 2);
            } else {
                out = value;
            }
            if (!out.empty() && (out.size() != 8 || !all_digits(out))) {
                error = "a date is YYYYMMDD or YYYY-MM-DD";
                return false;
            }
            return true;
        default:
            out = value;
            return true;
    }
}

std::string trim_blanks(const std::string& s) {
    const char* ws = " \t\n\r\v\f";
    size_t b = s.find_first_not_of(ws);
    if (b == std::string::npos) return std::string();
    return s.substr(b, s.find_last_not_of(ws) + 1 - b);
}

}  // namespace qzdbf
