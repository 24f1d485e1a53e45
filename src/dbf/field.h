// Field descriptors and field types as the interface passes them.
#pragma once

#include "qzk_file_dbf.h"

// The letter of a type; 'C' for any value outside 0..9.
char type2char(Tqz_dbf_field_type t);
// The type of a letter; 0 for anything but B C D F I L M N P.
Tqz_dbf_field_type char2type(char c);

struct Tqz_dbf_field_utils {
    // Copies at most 10 bytes of `name` (NUL-padded, terminated) and the
    // letter of `type`; nothing is validated.
    static void init_field(Tqz_dbf_field* f, const char* name, Tqz_dbf_field_type type,
                           unsigned char flen, char dlen);
};
