// Tqz_dbf_field_utils: the rules for field names (validity, repair, names
// that collide without regard to case) and unique names with numeric
// endings. Static operations only.
//
// Names are system text (the ANSI code page). A name has at most 10 bytes; a
// name is never cut inside a multi-byte character. The valid names are 1 to
// 10 characters of "A-Z a-z _ 0-9" that begin with a letter and are in upper
// case.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qzk_basic.h"
#include "qzk_file_dbf.h"

class Tqz_dbf_field_utils {
  public:
    using fields_t = std::vector<Tqz_dbf_field>;

    // The name every repair gives when nothing usable is left.
    static constexpr const char* default_name = "PROP";
    // The characters a valid name is made of.
    static constexpr const char* permitted =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_0123456789";

    // Copies at most 10 bytes of `name` (NUL-padded, terminated) and the
    // letter of `type`; nothing is validated.
    static void init_field(Tqz_dbf_field* f, const char* name, Tqz_dbf_field_type type,
                           unsigned char flen, char dlen);

    // Length: 1 to 10 bytes.
    static bool size_ok(const std::string& name);
    // Empty: "PROP"; longer than 10 bytes: cut; otherwise unchanged.
    static std::string size_fix(const std::string& name);
    static std::string cut_of_after_len_max(const std::string& name);
    static std::string fix_empty(const std::string& name);

    // Every byte one of `permitted` (true for the empty name).
    static bool symbols_ok(const std::string& name);
    // The name transliterated into Latin letters, "#" replaced by "_".
    static std::string symbols_fix(const std::string& name);

    static bool first_symb_ok(const std::string& name);
    static bool is_letter(char ch);
    // Leading characters that are not letters removed: "12AB" -> "AB";
    // a lone non-letter gets "PROP" before it ("1" -> "PROP1"); nothing
    // left gives "PROP".
    static std::string first_symb_fix(const std::string& name);

    static bool is_upper_case(const std::string& name);
    static std::string fix_upper_case(const std::string& name);

    // All rules: size, characters, first letter, upper case.
    static bool name_is_ok(const std::string& name);
    // Transliteration, first letter, size, upper case. Characters the
    // transliteration leaves outside the permitted set stay.
    static std::string name_fix(const std::string& name);

    // The descriptor's name up to its zero (at most its 11 bytes).
    static std::string get_field_name(const Tqz_dbf_field& field);
    // Writes at most 10 bytes of `name`; the rest of the area becomes zeros.
    static void set_field_name(Tqz_dbf_field& field, const std::string& name);

    // No two names equal without regard to letter case (true when empty).
    static bool duplicates_ic_ok(const fields_t& fields);
    // Renames every later duplicate by a numeric ending, n = 1, 2, ...
    static void duplicates_ic_fix(fields_t& fields);
    static bool names_ok(const fields_t& fields);
    // Repairs every invalid name, then the duplicates.
    static void names_fix(fields_t& fields);

    // `name` with the decimal `n` (and `sep` before it when the name must be
    // cut), at most 10 bytes whenever the number and separator leave room.
    static std::string add_num_ending(const std::string& name, uint32_t n, std::string sep);
    // The name cut to 10 bytes, else the first of name+"0", name+"1", ...
    // (cut to fit) that no descriptor holds (exact comparison).
    static std::string unique_name(const Tqz_dbf_field* fields, unsigned int count,
                                   const std::string& name);
    // The whole name, else name+"0", name+"1", ... without any cut.
    static std::string unique_name_old(const Tqz_dbf_field* fields, unsigned int count,
                                       const std::string& name);
    static void unique_name(const Tqz_dbf_field* fields, unsigned int count, const char* name,
                            Iqz_string_adp* out);
    static void unique_name_old(const Tqz_dbf_field* fields, unsigned int count, const char* name,
                                Iqz_string_adp* out);
};
