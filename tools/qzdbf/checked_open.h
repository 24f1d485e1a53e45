// The one way qzdbf commands open a table: the file is checked first, and
// what cannot be used is refused with one line that says why, before
// anything is opened or written.
//
//     int status = kOk;
//     Tqz_dbf_rw* t = open_table(path, Access::write, force, status);
//     if (!t) return status;
#pragma once

#include <string>

#include "cli.h"

namespace qzdbf {

enum class Access { read, write };

// Opens the table at `path` (the .cpg file is left as it is). Null, with
// one line on standard error and `status` set, when:
//  - the file is missing, a folder, or not a dBASE table (kBadUsage) and,
//    for reading, no source that OGR reads either (those open through OGR,
//    read-only); with
//    `force` such a file is opened anyway, read-only, and a write access
//    is still refused;
//  - for writing, the table's structure is damaged so that a write would
//    land in the wrong place, or its memo file is missing (kBadUsage);
//  - another writer holds the table, or it is read-only or unreadable
//    (kIoError).
// Damage that leaves the table readable (records missing at the end, a
// memo file missing) is reported once on standard error for reading.
Tqz_dbf_rw* open_table(const std::string& path, Access access, bool force, int& status);

// Removes every `flag` from `args`; whether there was one.
bool take_flag(Args& args, const char* flag);

}  // namespace qzdbf
