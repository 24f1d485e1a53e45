// qzdbf append PATH [N]
#include <cstdio>
#include <string>

#include "cli.h"

namespace qzdbf {

int cmd_append(const Args& args) {
    if (args.empty() || args.size() > 2) return fail(kBadUsage, "append needs PATH [N]");
    unsigned long long count = 1;
    if (args.size() == 2 && !parse_count(args[1], 0xFFFFFFFFull, count))
        return fail(kBadUsage, "N must be a whole number of records");
    Tqz_dbf_rw* t = open_for_writing(args[0]);
    if (!t)
        return fail(kFailed, "cannot open '" + args[0] +
                                 "' for writing (missing, or open for writing elsewhere)");
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
