#include "validate/validate_val.h"

#include <cstring>

#include "qzk_file_dbf.h"

const char Tdbf_validate_val::c_decimal_separator = '.';

namespace {

constexpr char backspace = 8;

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

}  // namespace

bool Tdbf_validate_val::validate(void* handle, unsigned int field, char& typed, const char* text,
                                 bool length_limit) {
    auto* table = static_cast<Tqz_dbf_rw*>(handle);
    if (typed == backspace) {
        qz_dbf_set_last_valid_error(table, 0);
        return true;
    }
    Tqz_dbf_field_type type = qz_dbf_get_field_type(table, field);
    unsigned int flen = qz_dbf_get_field_flen(table, field);
    (void)qz_dbf_get_field_dlen(table, field);  // asked for; not judged by
    switch (type) {
        case dbf_ft_char:
            if (length_limit && std::strlen(text ? text : "") >= flen) {
                qz_dbf_set_last_valid_error(table, 1);
                return false;
            }
            return true;
        case dbf_ft_numeric:
        case dbf_ft_float:
        case dbf_ft_double:
            if (typed == ',' || typed == '.') {
                typed = c_decimal_separator;
                return true;
            }
            return is_digit(typed) || typed == 'e' || typed == 'E' || typed == '+' || typed == '-';
        case dbf_ft_integer:
            return is_digit(typed) || typed == '+' || typed == '-';
        default:
            return true;
    }
}
