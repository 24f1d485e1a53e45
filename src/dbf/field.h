// Field descriptors and field types as the interface passes them.
#pragma once

#include "names/field_utils.h"  // Tqz_dbf_field_utils; init_field is defined here
#include "qzk_file_dbf.h"

// The letter of a type; 'C' for any value outside 0..9.
char type2char(Tqz_dbf_field_type t);
// The type of a letter; 0 for anything but B C D F I L M N P. Inline: every
// typed read of a cell asks for it.
inline Tqz_dbf_field_type char2type(char c) {
    // 'B'..'P'; the letters in between that name no type map to 0.
    static constexpr Tqz_dbf_field_type table[15] = {
        dbf_ft_double,  dbf_ft_char,    dbf_ft_date,    dbf_ft_unknown, dbf_ft_float,
        dbf_ft_unknown, dbf_ft_unknown, dbf_ft_integer, dbf_ft_unknown, dbf_ft_unknown,
        dbf_ft_logical, dbf_ft_memo,    dbf_ft_numeric, dbf_ft_unknown, dbf_ft_picture,
    };
    if (c < 'B' || c > 'P') return dbf_ft_unknown;
    return table[c - 'B'];
}
