// qzdbf check PATH...
//
// Prints what is wrong with each file: its header, field descriptors,
// record count, memo file and every N, F, D and L value. Exit status 0 when
// every file is clean, 1 when anything was found.
#include <cstdio>
#include <string>

#include "cli.h"
#include "command.h"
#include "progress.h"
#include "qzk_file_dbf_ext.h"

namespace qzdbf {

namespace {

const char* severity_name(int severity) {
    switch (severity) {
        case QZ_DBF_SEV_WARNING:
            return "warning";
        case QZ_DBF_SEV_ERROR:
            return "error";
        default:
            return "not a table";
    }
}

int run_check(const Args& args) {
    bool found_any = false;
    Progress bar("check", args.size(), "files");
    uint64_t bar_done = 0;
    for (const std::string& path : args) {
        Tqz_dbf_check_result* r = qz_dbf_check_file(path.c_str(), QZ_DBF_CHECK_VALUES);
        if (!r) return fail(kIoError, path + ": out of memory");
        const unsigned n = qz_dbf_check_count(r);
        // What is found goes out on a line of its own, not over the bar.
        if (n > 0) bar.clear_line();
        if (n == 0) std::printf("%s: ok\n", path.c_str());
        for (unsigned i = 0; i < n; ++i)
            std::printf("%s: %s: %s: %s\n", path.c_str(),
                        severity_name(qz_dbf_check_severity(r, i)), qz_dbf_check_where(r, i),
                        qz_dbf_check_what(r, i));
        found_any = found_any || n > 0;
        qz_dbf_check_free(r);
        std::fflush(stdout);
        bar.report(bar_done += 1);
    }
    bar.finish();
    return found_any ? kFailed : kOk;
}

}  // namespace

Runner setup_check(CLI::App& cmd) {
    auto paths = std::make_shared<Args>();
    cmd.add_option("PATH", *paths, "tables to check (header, fields, records, memo file, values)")
        ->required();
    return [paths] { return run_check(*paths); };
}

}  // namespace qzdbf
