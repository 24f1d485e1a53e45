// qzdbf append PATH [N]
#include <cstdio>
#include <string>

#include "checked_open.h"
#include "cli.h"
#include "command.h"

namespace qzdbf {

namespace {

struct Append_options {
    std::string path, count;
    bool force = false;
};

int run_append(const Append_options& o) {
    unsigned long long count = 1;
    if (!o.count.empty() && !parse_count(o.count, 0xFFFFFFFFull, count))
        return fail(kBadUsage, "N must be a whole number of records");
    int status = kOk;
    Tqz_dbf_rw* t = open_table(o.path, Access::write, o.force, status);
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

}  // namespace

Runner setup_append(CLI::App& cmd) {
    auto o = std::make_shared<Append_options>();
    cmd.add_option("PATH", o->path, "the table")->required();
    cmd.add_option("N", o->count, "how many blank records to add (default 1)");
    cmd.add_flag("--force", o->force, "open a file that fails the check anyway");
    return [o] { return run_append(*o); };
}

}  // namespace qzdbf
