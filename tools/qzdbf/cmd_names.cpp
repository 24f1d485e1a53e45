// qzdbf names PATH: the fields whose names break the rules, with the name
// each would get from the library's repair. Exit 0: none; 1: some; 2: bad
// usage; 3: the table cannot be read.
#include <cstdio>
#include <string>
#include <vector>

#include "cli.h"
#include "field_names.h"
#include "qzk_file_dbf.h"

namespace qzdbf {

namespace {

constexpr int kFindings = 1;
constexpr int kUnreadable = 3;

}  // namespace

int cmd_names(const Args& args) {
    if (args.size() != 1) return fail(kBadUsage, "names needs exactly one PATH");
    const std::string& path = args[0];
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), true, false);
    if (!t) return fail(kUnreadable, "cannot open '" + path + "' as a table");
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

}  // namespace qzdbf
