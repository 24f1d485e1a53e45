// Fuzz target: any bytes as a table file. The bytes are written to a file,
// opened read-only and writable, and every answer the handle gives is taken.
// A crash, a sanitizer report or a leak is a finding.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "qzk_file_dbf.h"
#include "scratch_file.h"

namespace {

void exercise(Tqz_dbf_rw* t) {
    unsigned nf = qz_dbf_get_nf(t);
    qz_dbf_get_nr(t);
    qz_dbf_get_nl(t);
    unsigned char header[32];
    qz_dbf_get_header(t, header);
    qz_dbf_find_field_index_w(t, L"NAME");
    for (unsigned i = 0; i <= nf && i < 4096; ++i) {
        qz_dbf_get_field_name(t, i);
        qz_dbf_get_field_type(t, i);
        qz_dbf_get_field_flen(t, i);
        qz_dbf_get_field_dlen(t, i);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = qz_fuzz::scratch_path("open", ".dbf");
    if (!qz_fuzz::write_scratch(path, data, size)) return 0;
    for (bool read_only : {true, false}) {
        if (Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), read_only, false)) {
            exercise(t);
            qz_dbf_close(t);
        }
    }
    qz_fuzz::remove_scratch(path);
    return 0;
}
