// Field-name rules for the qzdbf commands, over the library's exports: a
// valid name has 1 to 10 bytes of A-Z, 0-9 and "_" and begins with a letter.
// Any command that makes or renames fields checks and repairs names here.
#pragma once

#include <string>
#include <vector>

#include "qzk_file_dbf.h"

namespace qzdbf {

bool name_is_ok(const std::string& name);
// The name repaired by the library's rules (transliterated, leading
// non-letters dropped, cut to 10 bytes, upper case). It can still break the
// rules when the transliteration leaves characters such as "-" or " ".
std::string name_fix(const std::string& name);
// Which rule a name breaks first, in words; empty for a valid name.
std::string name_problem(const std::string& name);
// No two names equal without regard to letter case.
bool duplicates_ic_ok(const std::vector<std::string>& names);

// One name the repair of a whole list changes.
struct Name_repair {
    size_t index;
    std::string name, fixed;
    std::string problem;  // name_problem, or the earlier field it duplicates
};

// Repairs a list of names as qz_dbf_fields_names_fix does, but on the whole
// names (longer than a descriptor holds, too): every invalid name repaired,
// then later duplicates numbered. Returns what changed, in field order.
std::vector<Name_repair> fix_names(std::vector<std::string>& names);

// "'id' -> 'ID' (lower-case letters)".
std::string describe(const Name_repair& r);

}  // namespace qzdbf
