// Fuzz target: any bytes as a table file for the file check and the checked
// open. The check reads header, descriptors and every value; the open
// refuses or opens; deletion flags are read and written. A crash, a
// sanitizer report or a leak is a finding.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "qzk_file_dbf_ext.h"

namespace {

std::string scratch_path() {
    static std::string path = [] {
        const char* tmp = std::getenv("TMPDIR");
        return std::string(tmp && *tmp ? tmp : "/tmp") + "/qzdbf-fuzz-check-" +
               std::to_string(::getpid()) + ".dbf";
    }();
    return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = scratch_path();
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return 0;
    if (size > 0) std::fwrite(data, 1, size, f);
    std::fclose(f);
    if (Tqz_dbf_check_result* r = qz_dbf_check_file(path.c_str(), QZ_DBF_CHECK_VALUES)) {
        for (unsigned i = 0; i <= qz_dbf_check_count(r); ++i) {
            qz_dbf_check_severity(r, i);
            qz_dbf_check_kind(r, i);
            qz_dbf_check_what(r, i);
            qz_dbf_check_where(r, i);
        }
        qz_dbf_check_free(r);
    }
    for (unsigned options : {0u, QZ_DBF_OPEN_READ_ONLY | QZ_DBF_OPEN_FORCE}) {
        if (Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), options)) {
            const unsigned nr = qz_dbf_get_nr(t);
            for (unsigned r = 0; r < 4 && r <= nr; ++r) {
                if (qz_dbf_get_deleted(t, r) >= 0) qz_dbf_set_deleted(t, r, true);
            }
            qz_dbf_get_deleted(t, nr > 0 ? nr - 1 : 0);
            qz_dbf_close(t);
        }
        qz_dbf_last_error_message();
    }
    std::remove(path.c_str());
    std::remove((path.substr(0, path.size() - 4) + ".cpg").c_str());
    return 0;
}
