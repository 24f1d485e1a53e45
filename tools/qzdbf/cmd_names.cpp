// qzdbf names PATH: the fields whose names break the rules, with the name
// each would get from the library's repair. Exit 0: none; 1: some; 2: bad
// usage; 3: the table cannot be read.
#include <cstdio>
#include <string>
#include <vector>

#include "checked_open.h"
#include "cli.h"
#include "command.h"
#include "field_names.h"
#include "qzk_file_dbf.h"

namespace qzdbf {

namespace {

constexpr int kFindings = 1;

int run_names(const std::string& path) {
    int status = kOk;
    Tqz_dbf_rw* t = open_table(path, Access::read, false, status);
    if (!t) return status;
    std::vector<std::string> names;
    const unsigned nf = qz_dbf_get_nf(t);
    for (unsigned i = 0; i < nf; ++i) {
        const char* name = qz_dbf_get_field_name(t, i);
        names.push_back(name ? name : "");
    }
    qz_dbf_close(t);

    std::vector<std::string> fixed = names;
    std::vector<Name_repair> repairs = fix_names(fixed);
    if (repairs.empty()) {
        std::printf("all %u field names follow the rules\n", nf);
        return kOk;
    }
    std::printf("  %5s  %-10s  %-10s  %s\n", "field", "name", "repair", "problem");
    for (const Name_repair& r : repairs) {
        std::string problem = r.problem;
        if (!name_is_ok(r.fixed)) problem += "; the repair still breaks the rules";
        std::printf("  %5zu  %-10s  %-10s  %s\n", r.index, r.name.c_str(), r.fixed.c_str(),
                    problem.c_str());
    }
    return kFindings;
}

}  // namespace

Runner setup_names(CLI::App& cmd) {
    auto path = std::make_shared<std::string>();
    cmd.add_option("PATH", *path, "the table")->required();
    return [path] { return run_names(*path); };
}

}  // namespace qzdbf
