// Exports of the memory tables. The handle is the Tqz_dbf_memory itself; a
// handle is used only while it is a table of the registry, so a freed or
// foreign pointer gets the neutral result instead of being followed.
#include <algorithm>
#include <cstring>
#include <string>

#include "api/guard.h"
#include "errors/last_error.h"
#include "support/filesystem.h"
#include "api/table_rw.h"
#include "code_page_text.h"
#include "memory/memory_list.h"
#include "memory/memory_table.h"
#include "qzk_file_dbf.h"
#include "restruct/rstrct.h"

using qz::api::guarded;

namespace {

Tqz_dbf_memory* live(Tqz_dbf_memory* h) {
    Tqz_dbf_memory_list* list = Tqz_dbf_rw::get_mem_list();
    return h && list ? list->find_by_ptr(h) : nullptr;
}

void not_loaded() {
    qz::errors::set(qz::errors::argument, "not a loaded memory table");
}

template <class R, class F>
R on_mem(Tqz_dbf_memory* h, R neutral, F&& call) {
    return guarded(neutral, [&] {
        Tqz_dbf_memory* t = live(h);
        if (!t) not_loaded();
        return t ? call(t) : neutral;
    });
}

template <class F>
void on_mem(Tqz_dbf_memory* h, F&& call) {
    guarded([&] {
        if (Tqz_dbf_memory* t = live(h))
            call(t);
        else
            not_loaded();
    });
}

// A failed call on a cell of a memory table: the missing field or record,
// or else `what` about the value.
template <class R>
R cell_result(Tqz_dbf_memory* t, unsigned int field, unsigned int record, R result, bool failed,
              const char* what) {
    if (!failed) return result;
    const std::wstring name = t->get_filename();
    if (field >= t->get_nf())
        qz::errors::set(qz::errors::argument, name,
                        "field " + std::to_string(field) + " does not exist");
    else if (!t->has_record(record))
        qz::errors::set(qz::errors::argument, name,
                        "record " + std::to_string(record) + " does not exist");
    else
        qz::errors::set(qz::errors::value, name,
                        std::string("field ") + t->get_field_name(field) + ", record " +
                            std::to_string(record) + ": " + what);
    return result;
}

// A load that gave no table: why the file could not be read.
Tqz_dbf_memory* load_failed(Tqz_dbf_memory* t, const std::wstring& name) {
    if (!t) {
        const bool locked =
            qz::filesystem::path_exist(name + L".lk") && qz::filesystem::path_exist(name);
        qz::errors::set_open_failure(name, true, false);
        if (locked && qz::errors::last_code() != qz::errors::not_found)
            qz::errors::set(qz::errors::locked, name, "locked by another writer or unreadable");
    }
    return t;
}

std::wstring widen(const char* text) {
    return text ? qz::basic::cp_to_wide(0, text, std::strlen(text)) : std::wstring();
}

}  // namespace

extern "C" {

QZ_DBF_API bool qz_dbf_mem_exist_w(const wchar_t* name) {
    return guarded(false, [&] { return Tqz_dbf_rw::dbf_is_in_mem(name); });
}

// With fields, the table (new or already loaded) is restructured to them
// through a descriptor: it keeps its records, and every field is new.
QZ_DBF_API Tqz_dbf_memory* qz_dbf_mem_create_w(const wchar_t* name, unsigned int nf,
                                               Tqz_dbf_field* fields) {
    return guarded(static_cast<Tqz_dbf_memory*>(nullptr), [&] {
        Tqz_dbf_memory* t = Tqz_dbf_rw::dbf_load_mem(name, true);
        if (t && nf != 0 && fields) {
            Tqz_dbf_rstrct* d = qz_dbf_restruct_create_empty_w(name);
            qz_dbf_restruct_add_fields(d, fields, static_cast<int>(std::min(nf, 0x7FFFFFFFu)));
            qz_dbf_restruct_apply(d);
            qz_dbf_restruct_destroy(d);
        }
        return t;
    });
}

QZ_DBF_API bool qz_dbf_mem_restruct(Tqz_dbf_memory* h, Tqz_dbf_rstrct* descriptor) {
    if (!descriptor) return false;
    return on_mem(h, false, [&](Tqz_dbf_memory* t) { return t->restruct(descriptor); });
}

QZ_DBF_API Tqz_dbf_memory* qz_dbf_mem_create(const char* name, unsigned int nf,
                                             Tqz_dbf_field* fields) {
    return guarded(static_cast<Tqz_dbf_memory*>(nullptr),
                   [&] { return qz_dbf_mem_create_w(widen(name).c_str(), nf, fields); });
}

QZ_DBF_API Tqz_dbf_memory* qz_dbf_mem_load_w(const wchar_t* name) {
    return guarded(static_cast<Tqz_dbf_memory*>(nullptr), [&] {
        return load_failed(Tqz_dbf_rw::dbf_load_mem(name, false), name ? name : L"");
    });
}

QZ_DBF_API Tqz_dbf_memory* qz_dbf_mem_load(const char* name) {
    return guarded(static_cast<Tqz_dbf_memory*>(nullptr),
                   [&] { return load_failed(Tqz_dbf_rw::dbf_load_mem(name, false), widen(name)); });
}

QZ_DBF_API Tqz_dbf_memory* qz_dbf_mem_find_w(const wchar_t* name) {
    return guarded(static_cast<Tqz_dbf_memory*>(nullptr),
                   [&] { return Tqz_dbf_rw::dbf_find_mem(name); });
}

QZ_DBF_API bool qz_dbf_mem_free(Tqz_dbf_memory* h) {
    return guarded(false, [&] { return Tqz_dbf_rw::dbf_free_mem_by_ptr(h); });
}

QZ_DBF_API bool qz_dbf_mem_save(Tqz_dbf_memory* h) {
    return on_mem(h, false, [](Tqz_dbf_memory* t) {
        bool saved = t->save();
        if (!saved) qz::errors::set(qz::errors::io, t->get_filename(), "could not be written");
        return saved;
    });
}

QZ_DBF_API bool qz_dbf_mem_save_as_w(Tqz_dbf_memory* h, const wchar_t* path) {
    return on_mem(h, false, [&](Tqz_dbf_memory* t) {
        bool saved = t->save(path);
        if (!saved) qz::errors::set(qz::errors::io, path ? path : L"", "could not be written");
        return saved;
    });
}

QZ_DBF_API bool qz_dbf_mem_save_as(Tqz_dbf_memory* h, const char* path) {
    return on_mem(h, false, [&](Tqz_dbf_memory* t) {
        const std::wstring wide = widen(path);
        bool saved = t->save(wide.c_str());
        if (!saved) qz::errors::set(qz::errors::io, wide, "could not be written");
        return saved;
    });
}

QZ_DBF_API bool qz_dbf_mem_reload(Tqz_dbf_memory* h) {
    return on_mem(h, false, [](Tqz_dbf_memory* t) { return t->reload(); });
}

QZ_DBF_API unsigned int qz_dbf_mem_get_nf(Tqz_dbf_memory* h) {
    return on_mem(h, 0u, [](Tqz_dbf_memory* t) { return t->get_nf(); });
}

QZ_DBF_API unsigned int qz_dbf_mem_get_nr(Tqz_dbf_memory* h) {
    return on_mem(h, 0u, [](Tqz_dbf_memory* t) { return t->get_nr(); });
}

QZ_DBF_API const char* qz_dbf_mem_get_field_name(Tqz_dbf_memory* h, unsigned int field) {
    return on_mem(h, static_cast<const char*>(nullptr), [&](Tqz_dbf_memory* t) {
        return cell_result(t, field, 0, t->get_field_name(field), field >= t->get_nf(), "");
    });
}

QZ_DBF_API void qz_dbf_mem_get_field_name_w(Tqz_dbf_memory* h, unsigned int field,
                                            Iqz_string_adp* adp) {
    on_mem(h, [&](Tqz_dbf_memory* t) {
        cell_result(t, field, 0, 0, field >= t->get_nf(), "");
        t->get_field_name(field, adp);
    });
}

QZ_DBF_API Tqz_dbf_field_type qz_dbf_mem_get_field_type(Tqz_dbf_memory* h, unsigned int field) {
    return on_mem(h, dbf_ft_unknown, [&](Tqz_dbf_memory* t) {
        return cell_result(t, field, 0, t->get_field_type(field), field >= t->get_nf(), "");
    });
}

QZ_DBF_API unsigned int qz_dbf_mem_get_field_flen(Tqz_dbf_memory* h, unsigned int field) {
    return on_mem(h, 0u, [&](Tqz_dbf_memory* t) {
        cell_result(t, field, 0, 0, field >= t->get_nf(), "");
        return static_cast<unsigned int>(static_cast<unsigned char>(t->get_field_flen(field)));
    });
}

QZ_DBF_API int qz_dbf_mem_get_field_dlen(Tqz_dbf_memory* h, unsigned int field) {
    return on_mem(h, 0, [&](Tqz_dbf_memory* t) {
        cell_result(t, field, 0, 0, field >= t->get_nf(), "");
        return static_cast<int>(static_cast<signed char>(t->get_field_dlen(field)));
    });
}

QZ_DBF_API unsigned int qz_dbf_mem_find_fld_index(Tqz_dbf_memory* h, const wchar_t* name) {
    return on_mem(h, 0xFFFFFFFFu, [&](Tqz_dbf_memory* t) { return t->find_field_index(name); });
}

QZ_DBF_API const char* qz_dbf_mem_get_str(Tqz_dbf_memory* h, unsigned int field,
                                          unsigned int record, bool& ok) {
    return on_mem(h, static_cast<const char*>(nullptr),
                  [&](Tqz_dbf_memory* t) { return t->get_as_string(field, record, ok); });
}

QZ_DBF_API const wchar_t* qz_dbf_mem_get_wstr(Tqz_dbf_memory* h, unsigned int field,
                                              unsigned int record, unsigned int& length, bool& ok) {
    return on_mem(h, static_cast<const wchar_t*>(nullptr),
                  [&](Tqz_dbf_memory* t) { return t->get_as_wchar_t(field, record, length, ok); });
}

QZ_DBF_API int qz_dbf_mem_get_int(Tqz_dbf_memory* h, unsigned int field, unsigned int record,
                                  bool& ok) {
    return on_mem(h, 0, [&](Tqz_dbf_memory* t) {
        int v = t->get_as_integer(field, record, ok);
        return cell_result(t, field, record, v, !ok, "the cell holds no such value");
    });
}

QZ_DBF_API double qz_dbf_mem_get_dbl(Tqz_dbf_memory* h, unsigned int field, unsigned int record,
                                     bool& ok) {
    return on_mem(h, 0.0, [&](Tqz_dbf_memory* t) {
        double v = t->get_as_double(field, record, ok);
        return cell_result(t, field, record, v, !ok, "the cell holds no such value");
    });
}

QZ_DBF_API bool qz_dbf_mem_get_bool(Tqz_dbf_memory* h, unsigned int field, unsigned int record,
                                    bool& ok) {
    return on_mem(h, false, [&](Tqz_dbf_memory* t) {
        bool v = t->get_as_bool(field, record, ok);
        return cell_result(t, field, record, v, !ok, "the cell holds no such value");
    });
}

QZ_DBF_API bool qz_dbf_mem_get_any(Tqz_dbf_memory* h, unsigned int field, unsigned int record,
                                   Tqz_any* value) {
    return on_mem(h, false, [&](Tqz_dbf_memory* t) {
        bool r = t->get_as_any(field, record, value);
        return cell_result(t, field, record, r, !r, "the cell holds no value");
    });
}

QZ_DBF_API bool qz_dbf_mem_set_str(Tqz_dbf_memory* h, unsigned int field, unsigned int record,
                                   const char* value) {
    return on_mem(h, false, [&](Tqz_dbf_memory* t) {
        bool r = t->set_as_string(field, record, value);
        return cell_result(t, static_cast<unsigned>(field), static_cast<unsigned>(record), r, !r,
                           "the value was refused");
    });
}

QZ_DBF_API bool qz_dbf_mem_set_wstr(Tqz_dbf_memory* h, int field, int record,
                                    const wchar_t* value) {
    return on_mem(h, false, [&](Tqz_dbf_memory* t) {
        bool r = t->set_as_wstring(field, record, value);
        return cell_result(t, static_cast<unsigned>(field), static_cast<unsigned>(record), r, !r,
                           "the value was refused");
    });
}

QZ_DBF_API bool qz_dbf_mem_set_int(Tqz_dbf_memory* h, unsigned int field, unsigned int record,
                                   int value) {
    return on_mem(h, false, [&](Tqz_dbf_memory* t) {
        bool r = t->set_as_integer(field, record, value);
        return cell_result(t, static_cast<unsigned>(field), static_cast<unsigned>(record), r, !r,
                           "the value was refused");
    });
}

QZ_DBF_API bool qz_dbf_mem_set_dbl(Tqz_dbf_memory* h, unsigned int field, unsigned int record,
                                   double value) {
    return on_mem(h, false, [&](Tqz_dbf_memory* t) {
        bool r = t->set_as_double(field, record, value);
        return cell_result(t, static_cast<unsigned>(field), static_cast<unsigned>(record), r, !r,
                           "the value was refused");
    });
}

QZ_DBF_API bool qz_dbf_mem_set_bool(Tqz_dbf_memory* h, unsigned int field, unsigned int record,
                                    bool value) {
    return on_mem(h, false, [&](Tqz_dbf_memory* t) {
        bool r = t->set_as_bool(field, record, value);
        return cell_result(t, static_cast<unsigned>(field), static_cast<unsigned>(record), r, !r,
                           "the value was refused");
    });
}

QZ_DBF_API bool qz_dbf_mem_set_any(Tqz_dbf_memory* h, unsigned int field, unsigned int record,
                                   Tqz_any* value) {
    return on_mem(h, false, [&](Tqz_dbf_memory* t) {
        bool r = t->set_as_any(field, record, value);
        return cell_result(t, static_cast<unsigned>(field), static_cast<unsigned>(record), r, !r,
                           "the value was refused");
    });
}

QZ_DBF_API bool qz_dbf_mem_add(Tqz_dbf_memory* h) {
    on_mem(h, [](Tqz_dbf_memory* t) { t->add(); });
    return true;
}

QZ_DBF_API bool qz_dbf_mem_ins(Tqz_dbf_memory* h, unsigned int record) {
    on_mem(h, [&](Tqz_dbf_memory* t) { t->ins(record); });
    return true;
}

QZ_DBF_API bool qz_dbf_mem_del(Tqz_dbf_memory* h, unsigned int record) {
    on_mem(h, [&](Tqz_dbf_memory* t) { t->del(record); });
    return true;
}

}  // extern "C"
