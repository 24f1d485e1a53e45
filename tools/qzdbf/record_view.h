// Records of an open table printed for a person: aligned columns like
// qzdbf dump, or one "NAME: value" line per field (wide tables).
#pragma once

#include <string>
#include <vector>

#include "qzk_file_dbf.h"

namespace qzdbf {

// Columns a text takes on the terminal (system text; wide characters count
// two where the C library knows them).
size_t display_width(const std::string& text);
// The text on one line: its breaks and tabs as blanks, cut to `columns`
// between characters with a marker (an ellipsis in UTF-8, else "...").
std::string one_line(std::string text, size_t columns);
// Appends `text` to `line` padded to `width` columns, on the left when
// `right`.
void pad_to(std::string& line, const std::string& text, size_t width, bool right);

// Prints `records` (each below the record count) with the `fields` given,
// in their order. Columns: a header, a rule, then a line per record with
// its number, deleted records marked with "*". Vertical: "record N" (and
// "(deleted)"), then "NAME: value" per field, a blank line between records.
// Memo fields show their text: cut to one line in columns, whole otherwise.
void print_records(Tqz_dbf_rw* table, const std::vector<unsigned int>& records,
                   const std::vector<unsigned int>& fields, bool vertical);

}  // namespace qzdbf
