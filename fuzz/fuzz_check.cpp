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
#include "scratch_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = qz_fuzz::scratch_path("check", ".dbf");
    if (!qz_fuzz::write_scratch(path, data, size)) return 0;
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
    qz_fuzz::remove_scratch(path);
    return 0;
}
