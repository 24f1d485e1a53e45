#include "table_values.h"

#include <cstdio>

namespace qzdbf {

char field_letter(Tqz_dbf_rw* table, unsigned int field) {
    const char c = qz_dbf_get_field_letter(table, field);
    return c > ' ' && c < 0x7F ? c : '?';
}

Value_class value_class(Tqz_dbf_rw* table, unsigned int field) {
    switch (qz_dbf_get_field_type(table, field)) {
        case dbf_ft_numeric:
        case dbf_ft_float:
            return qz_dbf_get_field_dlen(table, field) == 0 &&
                           qz_dbf_get_field_flen(table, field) <= 18
                       ? Value_class::integer
                       : Value_class::real;
        case dbf_ft_integer:
            return Value_class::integer;
        case dbf_ft_double:
            return Value_class::real;
        case dbf_ft_logical:
            return Value_class::logical;
        case dbf_ft_date:
            return Value_class::date;
        case dbf_ft_picture:
            return Value_class::bytes;
        default:
            return Value_class::text;
    }
}

void civil_from_days(long long z, int& y, unsigned& m, unsigned& d) {
    z += 719468;
    const long long era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = doy - (153 * mp + 2) / 5 + 1;
    m = mp < 10 ? mp + 3 : mp - 9;
    y = static_cast<int>(yoe + era * 400 + (m <= 2));
}

std::string value_text(const Tqz_dbf_value& v) {
    char buf[64];
    switch (v.kind) {
        case QZ_DBF_VALUE_BOOL:
            return v.i ? "T" : "F";
        case QZ_DBF_VALUE_INT:
            return std::to_string(v.i);
        case QZ_DBF_VALUE_DOUBLE:
        case QZ_DBF_VALUE_DECIMAL:
            if (v.text && v.length > 0) return std::string(v.text, v.length);
            std::snprintf(buf, sizeof buf, "%.15g", v.d);
            return buf;
        case QZ_DBF_VALUE_DATE:
            std::snprintf(buf, sizeof buf, "%04lld-%02lld-%02lld", v.i / 10000, v.i / 100 % 100,
                          v.i % 100);
            return buf;
        case QZ_DBF_VALUE_DATETIME: {
            long long ms = v.i, days = ms >= 0 ? ms / 86400000 : -((-ms + 86399999) / 86400000);
            long long rest = ms - days * 86400000;
            int y;
            unsigned m, d;
            civil_from_days(days, y, m, d);
            std::snprintf(buf, sizeof buf, "%04d-%02u-%02uT%02lld:%02lld:%02lld", y, m, d,
                          rest / 3600000, rest / 60000 % 60, rest / 1000 % 60);
            std::string s = buf;
            if (rest % 1000) {
                std::snprintf(buf, sizeof buf, ".%03lld", rest % 1000);
                s += buf;
            }
            return s + "Z";
        }
        case QZ_DBF_VALUE_TEXT:
            return std::string(v.text ? v.text : "", v.text ? v.length : 0);
        case QZ_DBF_VALUE_BYTES:
            return "<" + std::to_string(v.length) + " bytes>";
        default:
            return "";
    }
}

}  // namespace qzdbf
