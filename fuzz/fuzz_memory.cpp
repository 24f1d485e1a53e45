// Fuzz target: any bytes as a table loaded into memory. The table is read
// cell by cell, changed (records added, inserted and deleted, every field of
// a record written), every change undone and redone, saved, and freed. A
// crash, a sanitizer report or a leak is a finding.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "qzk_file_dbf.h"
#include "scratch_file.h"

namespace {

void read_cells(Tqz_dbf_memory* t) {
    const unsigned nf = qz_dbf_mem_get_nf(t), nr = qz_dbf_mem_get_nr(t);
    for (unsigned f = 0; f <= nf && f < 300; ++f) {
        qz_dbf_mem_get_field_name(t, f);
        qz_dbf_mem_get_field_type(t, f);
        for (unsigned r = 0; r <= nr && r < 16; ++r) {
            bool ok = false;
            unsigned int length = 0;
            qz_dbf_mem_get_str(t, f, r, ok);
            qz_dbf_mem_get_dbl(t, f, r, ok);
            qz_dbf_mem_get_wstr(t, f, r, length, ok);
            Tqz_any v;
            any_init(&v);
            qz_dbf_mem_get_any(t, f, r, &v);
            any_clear(&v);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = qz_fuzz::scratch_path("mem", ".dbf");
    const std::string copy = qz_fuzz::scratch_path("mem", "-copy.dbf");
    if (!qz_fuzz::write_scratch(path, data, size)) return 0;

    Iqz_history_manager* m = qz_history_manager_get_instance();
    if (Tqz_dbf_memory* t = qz_dbf_mem_load(path.c_str())) {
        read_cells(t);
        const unsigned nf = qz_dbf_mem_get_nf(t);
        qz_dbf_mem_add(t);
        qz_dbf_mem_ins(t, 0);
        for (unsigned k = 0; k < nf && k < 300; ++k) {
            qz_dbf_mem_set_str(t, k, 0, "20240229");
            qz_dbf_mem_set_int(t, k, 1, -7);
            qz_dbf_mem_set_dbl(t, k, 1, 1e300);
        }
        qz_dbf_mem_del(t, qz_dbf_mem_get_nr(t) - 1);
        qz_dbf_mem_del(t, qz_dbf_mem_get_nr(t) + 5);
        // The path now opens on the memory table.
        if (Tqz_dbf_rw* h = qz_dbf_open(path.c_str(), false, false)) {
            qz_dbf_add_records(h, 2);
            qz_dbf_close(h);
        }
        while (qz_history_manager_undo(m)) {
        }
        read_cells(t);
        while (qz_history_manager_redo(m)) {
        }
        qz_dbf_mem_save_as(t, copy.c_str());
        qz_dbf_mem_reload(t);
        qz_dbf_mem_free(t);
    }
    qz_fuzz::remove_scratch(path);
    qz_fuzz::remove_scratch(copy);
    return 0;
}
