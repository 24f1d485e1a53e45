// An older repair of a whole field list: capitals of the Latin and Cyrillic
// alphabets, digits (also first), "_" for anything else, and duplicates
// (without regard to case, blanks around ignored) numbered "_1", "_2", ...
#pragma once

#include "qzk_file_dbf.h"

// Maps every byte of the name (at most 10) by the byte table below; an empty
// name becomes "PROP". True when the name changed.
bool correct_fname(Tqz_dbf_field* field);
// Names (at most 10 bytes) equal after trimming blanks, letter case ignored.
bool equal_fnames(Tqz_dbf_field a, Tqz_dbf_field b);
// The trimmed name followed by "_k", cut before the ending to fit 10 bytes.
void make_new_fname(Tqz_dbf_field* field, int k);
// correct_fname on every field, then numbers for names that equal an
// earlier one. False for count <= 0; otherwise whether a duplicate was
// renamed or the last field's name was corrected.
bool make_correct_names(Tqz_dbf_field* fields, int count);
