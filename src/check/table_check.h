// Tqz_dbf_check: what is wrong with a table file, found by reading its
// header and field descriptors (and, when asked, every record's values)
// without opening it for use: no lock is taken, nothing is written.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qz::check {

// Kept in step with Tqz_dbf_check_severity / Tqz_dbf_check_kind of the
// public header.
enum severity : int { warning = 1, error = 2, fatal = 3 };
enum kind : int {
    k_file = 1,
    k_header = 2,
    k_version = 3,
    k_header_length = 4,
    k_terminator = 5,
    k_record_length = 6,
    k_field = 7,
    k_records = 8,
    k_memo = 9,
    k_value = 10,
    k_name = 11,
};

struct finding {
    int severity;
    int kind;
    std::string what;   // the reason, UTF-8
    std::string where;  // "header bytes 8-9", "field 2 (NAME)", "record 7", "file"
};

struct result {
    std::vector<finding> findings;
    // The highest severity found; 0 when the file is clean.
    int worst() const;
    // Whether a fatal finding says the file is not a dBASE table at all.
    bool not_a_table() const { return worst() >= fatal; }
    // The first finding of the highest severity, or null.
    const finding* first_worst() const;
};

// Also read every record and check N, F, D and L values as other readers
// parse them.
constexpr unsigned check_values = 1;

result check_file(const std::wstring& path, unsigned flags);

}  // namespace qz::check
