// Exports on field types and descriptors.
#include "dbf/field.h"
#include "qzk_file_dbf.h"

extern "C" {

QZ_DBF_API int qz_dbftype2char(Tqz_dbf_field_type type) {
    return type2char(type);
}

QZ_DBF_API Tqz_dbf_field_type qz_char2dbftype(char c) {
    return char2type(c);
}

QZ_DBF_API void qz_dbf_field_init(Tqz_dbf_field* f, const char* name, Tqz_dbf_field_type type,
                                  unsigned char flen, char dlen) {
    Tqz_dbf_field_utils::init_field(f, name, type, flen, dlen);
}

}  // extern "C"
