// Fuzz target: any bytes as a table file, read and written cell by cell.
// The bytes are written to a file and opened read-only: the cells of the
// first records are read through every typed getter and searched both
// ways. Then the file is opened writable: cells are written, records
// appended and the writes flushed. A crash, a sanitizer report, a leak or
// a run that takes long (a header's claimed count walked) is a finding.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "qzk_file_dbf.h"
#include "scratch_file.h"
#include "qzk_file_dbf_ext.h"

namespace {

// The first records and fields: enough to reach every field type.
constexpr unsigned kRecords = 16, kFields = 64;

void read_all(Tqz_dbf_rw* t) {
    const unsigned nf = qz_dbf_get_nf(t), nr = qz_dbf_get_nr(t);
    std::string first;
    for (unsigned r = 0; r <= nr && r < kRecords; ++r) {
        for (unsigned f = 0; f <= nf && f < kFields; ++f) {
            bool ok = false;
            unsigned len = 0;
            const char* s = qz_dbf_get_str(t, f, r, ok);
            if (ok && s && first.empty()) first = s;
            qz_dbf_get_int(t, f, r, ok);
            qz_dbf_get_dbl(t, f, r, ok);
            qz_dbf_get_bool(t, f, r, ok);
            qz_dbf_get_wstr(t, f, r, len, ok, 0);
            Tqz_any any;
            any_init(&any);
            qz_dbf_get_any(t, f, r, &any);
            any_clear(&any);
        }
    }
    unsigned rec = 0;
    for (unsigned f = 0; f < nf && f < 4; ++f) {
        qz_dbf_find_value(t, f, first.c_str(), rec);
        qz_dbf_find_value(t, f, "\xD0\x90 absent", rec);
        qz_dbf_begin_fast_find(t, f);
        qz_dbf_find_value_fast(t, first.c_str(), rec);
        qz_dbf_end_fast_find(t);
    }
}

void write_some(Tqz_dbf_rw* t) {
    const unsigned nf = qz_dbf_get_nf(t), nr = qz_dbf_get_nr(t);
    for (unsigned r = 0; r < nr && r < 4; ++r) {
        for (unsigned f = 0; f < nf && f < kFields; ++f) {
            qz_dbf_set_str(t, f, r, "12.5");
            qz_dbf_set_int(t, f, r, -7);
            qz_dbf_set_dbl(t, f, r, 1e300);
            qz_dbf_set_bool(t, f, r, true);
            qz_dbf_set_str_w(t, static_cast<int>(f), static_cast<int>(r), L"\u0416x");
        }
    }
    // An append goes after the header's count of records, wherever the
    // file ends: only for a small count, or the file grows to the claim.
    if (nr <= kRecords) qz_dbf_add_records(t, 1);
    qz_dbf_flush(t);
    read_all(t);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = qz_fuzz::scratch_path("values", ".dbf");
    if (!qz_fuzz::write_scratch(path, data, size)) return 0;
    if (Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), true, false)) {
        read_all(t);
        qz_dbf_close(t);
    }
    if (Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), false, false)) {
        write_some(t);
        qz_dbf_close(t);
    }
    qz_fuzz::remove_scratch(path);
    return 0;
}
