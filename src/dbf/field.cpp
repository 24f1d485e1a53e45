#include "dbf/field.h"

#include <cstring>

char type2char(Tqz_dbf_field_type t) {
    static const char letters[] = "CCNLMDFIBP";
    unsigned int i = static_cast<unsigned int>(t);
    return i <= 9 ? letters[i] : 'C';
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
