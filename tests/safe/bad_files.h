// Broken and awkward table files, made fresh in a folder for the tests of
// the file check and of the tool.
#pragma once

#include <string>
#include <vector>

#include "test_support.h"

namespace qz_safe {

struct Bad_file {
    std::string name;  // the case, also the file's name
    std::string path;
    // What a checker is expected to say: the worst severity and a part of
    // the reason.
    int severity;
    std::string reason;
};

// A good table "NAME C10, AMOUNT N8.2, DAY D8" with three records, written
// through the library.
std::string make_good_table(const qz_test::Temp_dir& dir, const std::string& name);

// Every bad file, each in `dir`. The "locked" table is good on disk; the
// caller holds its lock. The "read_only" table has mode 0444.
std::vector<Bad_file> make_bad_files(const qz_test::Temp_dir& dir);

}  // namespace qz_safe
