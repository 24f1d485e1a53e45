#include "dbf/field.h"

#include <cstring>

char type2char(Tqz_dbf_field_type t) {
    static const char letters[] = "CCNLMDFIBP";
    unsigned int i = static_cast<unsigned int>(t);
    return i <= 9 ? letters[i] : 'C';
}

Tqz_dbf_field_type char2type(char c) {
    // 'B'..'P'; the letters in between that name no type map to 0.
    static const Tqz_dbf_field_type table[15] = {
        dbf_ft_double,  dbf_ft_char,    dbf_ft_date,    dbf_ft_unknown, dbf_ft_float,
        dbf_ft_unknown, dbf_ft_unknown, dbf_ft_integer, dbf_ft_unknown, dbf_ft_unknown,
        dbf_ft_logical, dbf_ft_memo,    dbf_ft_numeric, dbf_ft_unknown, dbf_ft_picture,
    };
    if (c < 'B' || c > 'P') return dbf_ft_unknown;
    return table[c - 'B'];
}

void Tqz_dbf_field_utils::init_field(Tqz_dbf_field* f, const char* name, Tqz_dbf_field_type type,
                                     unsigned char flen, char dlen) {
    if (!f) return;
    std::memset(f->name, 0, sizeof f->name);
    if (name) std::strncpy(f->name, name, 10);
    f->name[10] = 0;
    f->type = type2char(type);
    f->flen = flen;
    f->dlen = static_cast<signed char>(dlen);
}
