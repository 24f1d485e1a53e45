// Exports of the records' deletion flags, for table handles and memory
// tables, and the .cpg choice of memory tables.
#include <string>

#include "api/cell_errors.h"
#include "api/guard.h"
#include "api/table_rw.h"
#include "dbf/basic_table.h"
#include "errors/last_error.h"
#include "memory/memory_list.h"
#include "memory/memory_table.h"
#include "qzk_file_dbf_ext.h"

using qz::api::guarded;

namespace {

void no_record(const std::wstring& path, Tqz_dbf_basic* t, unsigned int record) {
    std::string reason = "record " + std::to_string(record) + " does not exist";
    if (record < t->get_nr()) reason += " in the file (the table is cut short)";
    qz::errors::set(qz::errors::argument, path, reason);
}

Tqz_dbf_basic* basic_of(Tqz_dbf_rw* h) {
    Tqz_dbf_ibasic* t = h ? h->current() : nullptr;
    if (!t) qz::api::no_table(h);
    return dynamic_cast<Tqz_dbf_basic*>(t);
}

Tqz_dbf_memory* live(Tqz_dbf_memory* h) {
    Tqz_dbf_memory_list* list = Tqz_dbf_rw::get_mem_list();
    Tqz_dbf_memory* t = h && list ? list->find_by_ptr(h) : nullptr;
    if (!t) qz::errors::set(qz::errors::argument, "not a loaded memory table");
    return t;
}

int get_flag(const std::wstring& path, Tqz_dbf_basic* t, unsigned int record) {
    if (!t) return -1;
    const int flag = t->get_deleted(record);
    if (flag < 0) no_record(path, t, record);
    return flag;
}

bool set_flag(const std::wstring& path, Tqz_dbf_basic* t, unsigned int record, bool deleted,
              bool read_only) {
    if (!t) return false;
    if (!t->has_record(record)) {
        no_record(path, t, record);
        return false;
    }
    if (t->set_deleted(record, deleted)) return true;
    if (read_only)
        qz::errors::set(qz::errors::permission, path, "the table is open read-only");
    else
        qz::errors::set(qz::errors::io, path, "the deletion flag could not be written");
    return false;
}

}  // namespace

extern "C" {

QZ_DBF_API int qz_dbf_get_deleted(Tqz_dbf_rw* h, unsigned int record) {
    return guarded(-1, [&] { return get_flag(h ? h->get_path() : L"", basic_of(h), record); });
}

QZ_DBF_API bool qz_dbf_set_deleted(Tqz_dbf_rw* h, unsigned int record, bool deleted) {
    return guarded(false, [&] {
        return set_flag(h ? h->get_path() : L"", basic_of(h), record, deleted,
                        h && h->is_read_only());
    });
}

QZ_DBF_API int qz_dbf_mem_get_deleted(Tqz_dbf_memory* h, unsigned int record) {
    return guarded(-1, [&] {
        Tqz_dbf_memory* t = live(h);
        return t ? get_flag(t->get_filename(), t, record) : -1;
    });
}

QZ_DBF_API bool qz_dbf_mem_set_deleted(Tqz_dbf_memory* h, unsigned int record, bool deleted) {
    return guarded(false, [&] {
        Tqz_dbf_memory* t = live(h);
        return t ? set_flag(t->get_filename(), t, record, deleted, false) : false;
    });
}

QZ_DBF_API bool qz_dbf_mem_keep_cpg(Tqz_dbf_memory* h, bool keep) {
    return guarded(false, [&] {
        Tqz_dbf_memory* t = live(h);
        if (t) t->keep_cpg(keep);
        return t != nullptr;
    });
}

}  // extern "C"
