// Field descriptors and field types as the interface passes them.
#pragma once

#include "names/field_utils.h"  // Tqz_dbf_field_utils; init_field is defined here
#include "qzk_file_dbf.h"

// The letter of a type; 'C' for any value outside 0..9.
char type2char(Tqz_dbf_field_type t);
// The type of a letter; 0 for anything but B C D F I L M N P.
Tqz_dbf_field_type char2type(char c);
