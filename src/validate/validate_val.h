// Tdbf_validate_val: whether a character typed into a cell may be added to
// the text typed so far, judged from the field's type and length.
#pragma once

class Tdbf_validate_val {
  public:
    // The decimal separator numbers are typed with.
    static const char c_decimal_separator;

    // `handle` is a table handle (Tqz_dbf_rw*). May replace `typed` (a comma
    // or point becomes the decimal separator). Records 0 after a backspace
    // and 1 when a full C field refuses a character as the handle's last
    // validation error; other refusals leave it alone.
    static bool validate(void* handle, unsigned int field, char& typed, const char* text,
                         bool length_limit);
};
