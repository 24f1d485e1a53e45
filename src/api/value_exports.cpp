// Cells read as typed values, by field type, with text in the table's
// chosen encoding converted to UTF-8.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "api/cell_errors.h"
#include "api/guard.h"
#include "api/table_rw.h"
#include "dbf/basic_table.h"
#include "encoding/encodings.h"
#include "memo/dbt_rw.h"
#include "memo/fpt_rw.h"
#include "qzk_file_dbf_ext.h"

using qz::api::guarded;

namespace {

int64_t le_int(const unsigned char* p, unsigned n) {
    uint64_t v = 0;
    for (unsigned k = 0; k < n; ++k) v |= static_cast<uint64_t>(p[k]) << (8 * k);
    if (n < 8 && (v >> (8 * n - 1)) & 1) v |= ~uint64_t(0) << (8 * n);  // sign
    return static_cast<int64_t>(v);
}

double le_double(const unsigned char* p) {
    double d;
    std::memcpy(&d, p, 8);
    return d;
}

std::string trimmed(const unsigned char* p, unsigned n) {
    unsigned a = 0, b = n;
    while (a < b && (p[a] == ' ' || p[a] == 0)) ++a;
    while (b > a && (p[b - 1] == ' ' || p[b - 1] == 0)) --b;
    return std::string(reinterpret_cast<const char*>(p) + a, b - a);
}

bool is_visual_foxpro(uint8_t version) {
    return version == 0x30 || version == 0x31 || version == 0x32;
}

}  // namespace

extern "C" {

QZ_DBF_API bool qz_dbf_get_value(Tqz_dbf_rw* h, unsigned int field, unsigned int record,
                                 Tqz_dbf_value* v) {
    return guarded(false, [&] {
        if (v) *v = Tqz_dbf_value{QZ_DBF_VALUE_NULL, 0, 0.0, "", 0};
        Tqz_dbf_ibasic* t = h ? h->current() : nullptr;
        Tqz_dbf_basic* b = t ? t->as_basic() : nullptr;
        if (!t || !v) {
            qz::api::no_table(h);
            return false;
        }
        if (!b || h->current_storage() == Tqz_dbf_rw::storage::ogr || field >= b->get_nf() ||
            !b->has_record(record)) {
            qz::api::cell_failed(h, t, field, record, b ? nullptr : "no typed values here");
            return false;
        }
        const unsigned n = b->get_field_flen(field);
        const auto* p = reinterpret_cast<const unsigned char*>(
            b->get_string(static_cast<int>(field), static_cast<int>(record)));
        std::string& text = h->value_text;
        text.clear();
        char name[64];
        qz_dbf_get_encoding(h, name, sizeof name);
        auto to_utf8 = [&](const std::string& raw) {
            bool ok = true;
            return std::string(name) == "UTF-8" || raw.empty()
                       ? raw
                       : qz::strconv::convert<std::string>(raw.data(), raw.size(), name, "UTF-8",
                                                           &ok);
        };
        switch (b->get_field_letter(field)) {
            case 'V':  // Visual FoxPro varchar: the field's text as it stands
                text = to_utf8(std::string(reinterpret_cast<const char*>(p), n));
                v->kind = QZ_DBF_VALUE_TEXT;
                break;
            case 'C': {
                unsigned e = n;
                while (e > 0 && (p[e - 1] == ' ' || p[e - 1] == 0)) --e;
                text = to_utf8(std::string(reinterpret_cast<const char*>(p), e));
                v->kind = QZ_DBF_VALUE_TEXT;
                break;
            }
            case 'N':
            case 'F': {
                text = trimmed(p, n);
                if (text.empty() || text.find_first_not_of('*') == std::string::npos) break;
                // Some writers put the locale's decimal comma.
                if (text.find('.') == std::string::npos) {
                    const size_t comma = text.find(',');
                    if (comma != std::string::npos &&
                        text.find(',', comma + 1) == std::string::npos)
                        text[comma] = '.';
                }
                char* end = nullptr;
                const double d = std::strtod(text.c_str(), &end);
                if (end == text.c_str() || *end) {  // not a number: its text
                    v->kind = QZ_DBF_VALUE_TEXT;
                    break;
                }
                v->d = d;
                v->kind = QZ_DBF_VALUE_DOUBLE;
                if (b->get_field_letter(field) == 'N' &&
                    text.find_first_of(".eE") == std::string::npos) {
                    errno = 0;
                    const long long i = std::strtoll(text.c_str(), &end, 10);
                    if (!*end && errno == 0) {
                        v->i = i;
                        v->kind = QZ_DBF_VALUE_INT;
                    }
                }
                break;
            }
            case 'L': {
                const char c = n ? static_cast<char>(p[0]) : ' ';
                if (std::strchr("TtYy", c) && c) {
                    v->kind = QZ_DBF_VALUE_BOOL;
                    v->i = 1;
                } else if (std::strchr("FfNn", c) && c) {
                    v->kind = QZ_DBF_VALUE_BOOL;
                    v->i = 0;
                }
                break;
            }
            case 'D': {
                text = trimmed(p, n);
                if (text.empty() || text == "00000000") break;
                unsigned y, m, d;
                if (text.size() == 8 && text.find_first_not_of("0123456789") == std::string::npos &&
                    std::sscanf(text.c_str(), "%4u%2u%2u", &y, &m, &d) == 3 && m >= 1 && m <= 12 &&
                    d >= 1 && d <= 31) {
                    v->kind = QZ_DBF_VALUE_DATE;
                    v->i = y * 10000LL + m * 100 + d;
                } else {
                    v->kind = QZ_DBF_VALUE_TEXT;  // not a date: its text
                }
                break;
            }
            case 'I':
            case '+':
                if (n >= 4) {
                    v->kind = QZ_DBF_VALUE_INT;
                    v->i = le_int(p, 4);
                }
                break;
            case 'O':
                if (n >= 8) {
                    v->kind = QZ_DBF_VALUE_DOUBLE;
                    v->d = le_double(p);
                }
                break;
            case 'Y':
                if (n >= 8) {
                    const long long units = le_int(p, 8);
                    const unsigned long long a =
                        units < 0 ? 0ULL - static_cast<unsigned long long>(units) : units;
                    char buf[40];
                    std::snprintf(buf, sizeof buf, "%s%llu.%04llu", units < 0 ? "-" : "", a / 10000,
                                  a % 10000);
                    text = buf;
                    v->kind = QZ_DBF_VALUE_DECIMAL;
                    v->d = static_cast<double>(units) / 10000.0;
                }
                break;
            case 'T':
                if (n >= 8) {
                    const int64_t jd = le_int(p, 4), ms = le_int(p + 4, 4);
                    if (jd == 0 && ms == 0) break;
                    // Julian day 2440588 is 1970-01-01.
                    v->kind = QZ_DBF_VALUE_DATETIME;
                    v->i = (jd - 2440588) * 86400000LL + ms;
                }
                break;
            case 'B':
                if (is_visual_foxpro(b->get_header()[0]) && n >= 8) {
                    v->kind = QZ_DBF_VALUE_DOUBLE;
                    v->d = le_double(p);
                    break;
                }
                [[fallthrough]];
            case 'M':
            case 'G':
            case 'P': {
                bool ok = false;
                unsigned int len = 0, type = 0;
                const unsigned char* bytes = nullptr;
                if (n == 4 && (b->get_fpt() || b->get_dbt())) {
                    // Visual FoxPro keeps the block number as a 4-byte integer.
                    const auto block = static_cast<unsigned int>(le_int(p, 4));
                    const char* memo = nullptr;
                    if (block != 0)
                        memo = b->get_fpt() ? b->get_fpt()->get_memo(block, len, type)
                                            : b->get_dbt()->get_memo(block, len, type);
                    ok = memo != nullptr;
                    bytes = reinterpret_cast<const unsigned char*>(memo);
                } else {
                    bytes = t->get_memo_bytes(field, record, ok, len, type);
                }
                if (!ok || !bytes) break;  // no memo: null
                const std::string raw(reinterpret_cast<const char*>(bytes), len);
                if (b->get_field_letter(field) == 'M' && type != 0) {
                    text = to_utf8(raw);
                    v->kind = QZ_DBF_VALUE_TEXT;
                } else {
                    text = raw;
                    v->kind = QZ_DBF_VALUE_BYTES;
                }
                break;
            }
            default:
                text.assign(reinterpret_cast<const char*>(p), n);
                v->kind = QZ_DBF_VALUE_BYTES;
                break;
        }
        v->text = text.c_str();
        v->length = text.size();
        return true;
    });
}

}  // extern "C"
