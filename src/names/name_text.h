// Field names as system text: characters of the ANSI code page, letter case,
// conversion to and from wide text, and the name bytes of a descriptor.
#pragma once

#include <cstddef>
#include <string>

#include "qzk_file_dbf.h"

namespace qz::names {

// Room for a name in a descriptor, in bytes of system text.
constexpr size_t name_len_max = 10;

// The byte length of the character that starts at `pos` (1 for a byte that
// starts no valid sequence, 0 at the end).
size_t char_len_at(const std::string& s, size_t pos);
// The number of characters of `s`.
size_t char_count(const std::string& s);
// The longest prefix of `s` with at most `max_bytes` bytes that ends on a
// character boundary: a name is never cut inside a multi-byte character.
std::string cut_chars(const std::string& s, size_t max_bytes);

// Upper case by Unicode rules on the text decoded from the ANSI code page.
// Bytes that decode to no character, and characters whose capital the code
// page cannot hold, stay as they are.
std::string upper(const std::string& s);
// Compares without regard to letter case: <0, 0 or >0.
int icompare(const std::string& a, const std::string& b);

// Conversions between system text and wide text; empty on failure.
std::wstring to_wide(const std::string& s);
std::string from_wide(const std::wstring& w);
std::string from_wide(const wchar_t* w);

// The name bytes of a descriptor up to its zero, reading at most `max`
// bytes of the 11-byte area (a name without its zero reads as `max` bytes).
std::string descriptor_name(const Tqz_dbf_field& f, size_t max = sizeof(Tqz_dbf_field::name));
// Writes at most 10 bytes of `name` (cut before a multi-byte character that
// does not fit), pads the rest with zeros and zeroes the eleventh byte.
void write_descriptor_name(Tqz_dbf_field& f, const std::string& name);

}  // namespace qz::names
