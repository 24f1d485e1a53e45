// The memo of a table cell is found through the cell's number as the value
// layer reads it (get_as_integer). Checks that read memos through a table
// first ask whether this build's value layer reads numbers at all, and skip
// themselves with a message while it does not.
#pragma once

#include <string>

#include "dbf/disk_table.h"
#include "memo_files.h"
#include "test_support.h"

namespace memo_test {

inline bool value_layer_reads_integers() {
    qz_test::Temp_dir dir;
    qz_test::write_bytes(dir.file("probe.dbf"), dbf_file(3, {{"N", 'N', 5}}, {{"   42"}}));
    Tqz_dbf_disk table;
    if (table.open(dir.wfile("probe.dbf").c_str(), true, false, true) != 0) return false;
    bool ok = false;
    const int value = table.get_as_integer(0, 0, ok);
    return ok && value == 42;
}

constexpr const char* no_value_layer =
    "get_as_integer does not read numbers in this build yet: the memo of a table cell "
    "cannot be looked up";

}  // namespace memo_test
