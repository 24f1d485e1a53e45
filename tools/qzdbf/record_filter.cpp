// Conditions on records for dump and get.
#include "record_filter.h"

#include <charconv>
#include <cwctype>

#include "qzk_file_dbf_ext.h"

namespace qzdbf {

namespace {

// Letters in lower case (through wide text, so that any alphabet folds).
std::string fold(const std::string& utf8) {
    if (utf8.empty()) return utf8;
    const int len = utf8.size() > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<int>(utf8.size());
    int n = qz_code_page_to_wide(65001, utf8.data(), len, nullptr, 0);
    if (n <= 0) return utf8;
    std::wstring w(static_cast<size_t>(n), L'\0');
    qz_code_page_to_wide(65001, utf8.data(), len, w.data(), n);
    for (wchar_t& c : w) c = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
    int m = qz_wide_to_code_page(65001, w.data(), n, nullptr, 0);
    std::string out(static_cast<size_t>(m > 0 ? m : 0), '\0');
    if (m > 0) qz_wide_to_code_page(65001, w.data(), n, out.data(), m);
    return out;
}

bool to_number(std::string s, double& v) {
    s = trim_blanks(s);
    for (char& c : s)
        if (c == ',') c = '.';
    if (!s.empty() && s[0] == '+') s.erase(0, 1);
    if (s.empty()) return false;
    auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
    return ec == std::errc() && end == s.data() + s.size();
}

// YYYY-MM-DD or YYYYMMDD as the number YYYYMMDD.
bool to_date(const std::string& s, long long& v) {
    std::string digits = s;
    if (s.size() == 10 && s[4] == '-' && s[7] == '-')
        digits = s.substr(0, 4) + s.substr(5, 2) + s.substr(8, 2);
    if (digits.size() != 8) return false;
    v = 0;
    for (char c : digits) {
        if (c < '0' || c > '9') return false;
        v = v * 10 + (c - '0');
    }
    return true;
}

int to_logical(const std::string& s) {
    const std::string t = fold(trim_blanks(s));
    if (t == "t" || t == "y" || t == "true" || t == "yes" || t == "1") return 1;
    if (t == "f" || t == "n" || t == "false" || t == "no" || t == "0") return 0;
    return -1;
}

template <typename T>
int compare(const T& a, const T& b) {
    return a < b ? -1 : b < a ? 1 : 0;
}

}  // namespace

bool Record_filter::parse(Tqz_dbf_rw* t, const std::vector<std::string>& conditions,
                          bool ignore_case, std::string& error) {
    ignore_case_ = ignore_case;
    conditions_.clear();
    for (const std::string& text : conditions) {
        Condition c;
        c.text = text;
        const size_t at = text.find_first_of("!=<>~");
        if (at == std::string::npos || at == 0) {
            error = "--where '" + text + "': write NAME=value (or !=, <, >, <=, >=, ~)";
            return false;
        }
        size_t after = at + 1;
        const char op = text[at];
        const bool then_eq = after < text.size() && text[after] == '=';
        switch (op) {
            case '!':
                if (!then_eq) {
                    error = "--where '" + text + "': '!' must be followed by '='";
                    return false;
                }
                c.op = Op::ne;
                ++after;
                break;
            case '<':
                c.op = then_eq ? Op::le : Op::lt;
                after += then_eq;
                break;
            case '>':
                c.op = then_eq ? Op::ge : Op::gt;
                after += then_eq;
                break;
            case '~':
                c.op = Op::contains;
                break;
            default:
                c.op = Op::eq;
        }
        std::string field_error;
        if (!resolve_field(t, text.substr(0, at), c.field, field_error)) {
            error = "--where '" + text + "': " + field_error;
            return false;
        }
        c.system = text.substr(after);
        c.value = system_to_utf8(c.system);
        c.is_number = to_number(c.value, c.number);
        c.is_date = to_date(trim_blanks(c.value), c.date);
        c.logical = to_logical(c.value);
        if (ignore_case) c.value = fold(c.value);
        const bool ordered = c.op == Op::lt || c.op == Op::gt || c.op == Op::le || c.op == Op::ge;
        if (ordered && !trim_blanks(c.value).empty() && numeric_field(t, c.field) && !c.is_number) {
            error = "--where '" + text + "': '" + c.system + "' is not a number";
            return false;
        }
        if (qz_dbf_get_field_type(t, c.field) == dbf_ft_date && !trim_blanks(c.value).empty() &&
            c.op != Op::contains && !c.is_date) {
            error = "--where '" + text + "': a date is YYYY-MM-DD or YYYYMMDD";
            return false;
        }
        conditions_.push_back(c);
    }
    return true;
}

bool Record_filter::matches(Tqz_dbf_rw* t, unsigned int record) const {
    for (const Condition& c : conditions_)
        if (!meets(c, t, record)) return false;
    return true;
}

bool Record_filter::meets(const Condition& c, Tqz_dbf_rw* t, unsigned int record) const {
    const Cell cell = read_cell(t, c.field, record);
    std::string text;
    int order = 0;
    bool null = false, ordered = false;
    if (cell.typed) {
        const Tqz_dbf_value& v = cell.value;
        text = value_text(v, Text_style::csv);
        switch (v.kind) {
            case QZ_DBF_VALUE_NULL:
                null = true;
                break;
            case QZ_DBF_VALUE_INT:
            case QZ_DBF_VALUE_DOUBLE:
            case QZ_DBF_VALUE_DECIMAL:
                if (c.is_number) {
                    const double x = v.kind == QZ_DBF_VALUE_INT ? static_cast<double>(v.i) : v.d;
                    order = compare(x, c.number);
                    ordered = true;
                }
                break;
            case QZ_DBF_VALUE_DATE:
                if (c.is_date) {
                    order = compare(static_cast<long long>(v.i), c.date);
                    ordered = true;
                }
                break;
            case QZ_DBF_VALUE_BOOL:
                if (c.logical >= 0) {
                    order = compare(static_cast<int>(v.i), c.logical);
                    ordered = true;
                }
                break;
            default:
                break;
        }
    } else {
        text = system_to_utf8(cell.text);
        null = !cell.found || text.empty();
        if (!null && numeric_field(t, c.field) && c.is_number) {
            double x = 0;
            if (to_number(text, x)) {
                order = compare(x, c.number);
                ordered = true;
            }
        }
    }
    if (ignore_case_) text = fold(text);
    if (c.op == Op::contains) return text.find(c.value) != std::string::npos;
    // An empty cell equals an empty value and nothing else; it is neither
    // less nor more than anything.
    const bool empty_value = trim_blanks(c.value).empty();
    if (null || (empty_value && !ordered)) {
        const bool same = (null || trim_blanks(text).empty()) && empty_value;
        if (c.op == Op::eq) return same;
        if (c.op == Op::ne) return !same;
        return false;
    }
    if (!ordered) order = compare(text, c.value);
    switch (c.op) {
        case Op::eq:
            return order == 0;
        case Op::ne:
            return order != 0;
        case Op::lt:
            return order < 0;
        case Op::gt:
            return order > 0;
        case Op::le:
            return order <= 0;
        case Op::ge:
            return order >= 0;
        default:
            return false;
    }
}

unsigned long long Record_filter::first_candidate(Tqz_dbf_rw* t, unsigned long long first,
                                                  unsigned long long end) const {
    // The search reads the cells as the classic text reads do: it answers
    // only when the typed reads use the same encoding.
    char name[64];
    if (first >= end || qz_dbf_get_storage(t) != qz_dbf_storage_file ||
        qz_dbf_get_encoding(t, name, sizeof name) != QZ_DBF_ENC_DEFAULT)
        return first;
    for (const Condition& c : conditions_) {
        if (c.op != Op::eq || qz_dbf_get_field_type(t, c.field) != dbf_ft_char ||
            trim_blanks(c.system).empty())
            continue;
        unsigned int found = 0;
        if (!qz_dbf_find_value(t, c.field, c.system.c_str(), found)) return end;
        if (found > first) return found < end ? found : end;
    }
    return first;
}

}  // namespace qzdbf
