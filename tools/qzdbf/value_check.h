// Whole values checked before qzdbf writes them: what the field's type and
// layout can hold, in the table's encoding. Nothing is written here.
#pragma once

#include <string>

#include "qzk_file_dbf.h"

namespace qzdbf {

// The text to store for `input` (system text) in `field`: a number in the
// field's layout, T or F, a date as YYYYMMDD, text as given. False with the
// reason in `error` for a value the field cannot hold whole: not a number,
// out of range, no such date, not a logical value, characters the table's
// code page lacks, text longer than the field (unless `truncate`, which cuts
// it between characters), and any text for a memo field.
bool check_value(Tqz_dbf_rw* table, unsigned int field, const std::string& input, bool truncate,
                 std::string& out, std::string& error);

// Whether character text written through `table` goes in the encoding the
// table's text is read in (a table file or a memory table: --encoding, the
// .cpg file, the language driver, the flags), rather than in the code page
// of its flags.
bool writes_in_table_encoding(Tqz_dbf_rw* table);

// A character or memo text cell as the typed reads see it (converted from
// the table's encoding, trailing blanks dropped), in system text.
std::string text_in_table_encoding(Tqz_dbf_rw* table, unsigned int field, unsigned int record);

// The code page character text of `table` is checked against, with its
// iconv name in `name`; 0 for an encoding that has no code page number here
// (the library then checks the text as it writes it).
unsigned text_code_page(Tqz_dbf_rw* table, std::string& name);

// Whether `text` names a day of the calendar as YYYYMMDD.
bool valid_date(const std::string& text);

}  // namespace qzdbf
