#include "api/cell_errors.h"

#include <string>

#include "dbf/basic_table.h"
#include "errors/last_error.h"

namespace qz::api {

void no_table(Tqz_dbf_rw* h) {
    qz::errors::set(qz::errors::argument, h ? "no table is open on this handle" : "null handle");
}

void cell_failed(Tqz_dbf_rw* h, Tqz_dbf_ibasic* t, unsigned int field, unsigned int record,
                 const char* what) {
    const std::wstring& path = h->get_path();
    if (field >= t->get_nf()) {
        qz::errors::set(qz::errors::argument, path,
                        "field " + std::to_string(field) + " does not exist (the table has " +
                            std::to_string(t->get_nf()) + " fields)");
        return;
    }
    Tqz_dbf_basic* basic = t->as_basic();
    if (basic && !basic->has_record(record)) {
        std::string reason = "record " + std::to_string(record) + " does not exist";
        if (record < t->get_nr()) reason += " in the file (the table is cut short)";
        qz::errors::set(qz::errors::argument, path, reason);
        return;
    }
    if (!what) return;
    const char* name = t->get_field_name(field);
    qz::errors::set(qz::errors::value, path,
                    "field " + std::string(name ? name : "?") + ", record " +
                        std::to_string(record) + ": " + what);
}

}  // namespace qz::api
