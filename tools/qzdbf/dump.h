// Records printed by dump and get: the records chosen (a range, --where,
// --limit), the fields chosen (--fields) and the form (columns, one line a
// field, CSV, JSON Lines, or bare values).
#pragma once

#include <string>

#include "command.h"

namespace qzdbf {

enum class Form {
    columns,   // a header and one aligned line a record
    vertical,  // "name: value" lines, a blank line between records
    csv,       // RFC 4180, a header row
    json,      // JSON Lines, one object a record
    values     // the values of a record on one line, tab-separated
};

struct Dump_options : Read_options {
    Form form = Form::columns;
    std::string fields;              // --fields A,B,C
    std::vector<std::string> where;  // --where, all of them must hold
    bool ignore_case = false;        // -i
    bool vertical = false, csv = false, json = false;
    bool raw = false;  // memo cells as block numbers
    bool skip_deleted = false;
    bool no_pager = false;
    unsigned long long from = 0, count = 0xFFFFFFFFull, limit = ~0ull;
};

// Declares --fields, --where, -i, --vertical, --limit, --raw and
// --skip-deleted on `cmd`.
void add_selection_options(CLI::App& cmd, Dump_options& o);
// Prints the records; an exit status.
int run_dump(const Dump_options& o);

}  // namespace qzdbf
