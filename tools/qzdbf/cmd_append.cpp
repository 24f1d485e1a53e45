// qzdbf append PATH [N]
#include <cstdio>
#include <string>

#include "checked_open.h"
#include "cli.h"

namespace qzdbf {

int cmd_append(const Args& all_args) {
    Args args = all_args;
    const bool force = take_flag(args, "--force");
    if (args.empty() || args.size() > 2) return fail(kBadUsage, "append needs PATH [N]");
    unsigned long long count = 1;
    if (args.size() == 2 && !parse_count(args[1], 0xFFFFFFFFull, count))
        return fail(kBadUsage, "N must be a whole number of records");
    int status = kOk;
    Tqz_dbf_rw* t = open_table(args[0], Access::write, force, status);
    if (!t) return status;
    unsigned int before = qz_dbf_get_nr(t);
    if (count > 0xFFFFFFFFull - before) {
        qz_dbf_close(t);
        return fail(kBadUsage, "a table holds at most 4294967295 records");
    }
    qz_dbf_add_records(t, static_cast<unsigned int>(count));
    unsigned int after = qz_dbf_get_nr(t);
    qz_dbf_close(t);
    std::printf("added %llu blank record%s: records %u to %u\n", count, count == 1 ? "" : "s",
                before, after > 0 ? after - 1 : 0);
    return kOk;
}

}  // namespace qzdbf
