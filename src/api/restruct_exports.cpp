// Exports of the restructure descriptor, of restructuring an open table, and
// of creating a table with the layout of another.
#include <cstring>
#include <string>
#include <vector>

#include "api/guard.h"
#include "api/table_rw.h"
#include "code_page_text.h"
#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "restruct/progress_report.h"
#include "restruct/rstrct.h"

using qz::api::guarded;

namespace {

std::wstring widen(const char* text) {
    return text ? qz::basic::cp_to_wide(0, text, std::strlen(text)) : std::wstring();
}

Tqz_dbf_rstrct* make(const std::wstring& path, bool load) {
    return guarded(static_cast<Tqz_dbf_rstrct*>(nullptr),
                   [&] { return new Tqz_dbf_rstrct(path, load); });
}

void create_empty(const wchar_t* path, const wchar_t* template_path, const Tqz_dbf_rstrct& d) {
    std::vector<Tqz_dbf_field> fields;
    for (const Tqz_fld_meta& e : d.entries()) fields.push_back(e.get_field());
    bool dos = false, utf8 = false;
    if (Tqz_dbf_rw* t = qz_dbf_open_w(template_path, true, false)) {
        dos = qz_dbf_get_dos_flag(t);
        utf8 = qz_dbf_get_utf8_flag(t);
        qz_dbf_close(t);
    }
    Tqz_dbf_rw* made =
        qz_dbf_create_w(path, static_cast<unsigned int>(fields.size()), 0, fields.data(), dos);
    if (!made) return;
    if (utf8) {
        qz_dbf_set_utf8_flag(made, true);
        // The names again, now in the table's encoding.
        for (size_t i = 0; i < fields.size(); ++i)
            qz_dbf_set_field_name(made, static_cast<unsigned int>(i), fields[i].name);
    }
    qz_dbf_close(made);
}

}  // namespace

extern "C" {

QZ_DBF_API Tqz_dbf_rstrct* qz_dbf_restruct_create(const char* path) {
    return make(widen(path), true);
}

QZ_DBF_API Tqz_dbf_rstrct* qz_dbf_restruct_create_w(const wchar_t* path) {
    return make(path ? path : L"", true);
}

QZ_DBF_API Tqz_dbf_rstrct* qz_dbf_restruct_create_empty(const char* path) {
    return make(widen(path), false);
}

QZ_DBF_API Tqz_dbf_rstrct* qz_dbf_restruct_create_empty_w(const wchar_t* path) {
    return make(path ? path : L"", false);
}

QZ_DBF_API void qz_dbf_restruct_destroy(Tqz_dbf_rstrct* h) {
    delete h;
}

QZ_DBF_API int qz_dbf_restruct_count(Tqz_dbf_rstrct* h) {
    return h ? h->count() : 0;
}

QZ_DBF_API void qz_dbf_restruct_add_fields(Tqz_dbf_rstrct* h, Tqz_dbf_field* fields, int n) {
    if (h) guarded([&] { h->add_fields(fields, n); });
}

QZ_DBF_API int qz_dbf_restruct_add_field(Tqz_dbf_rstrct* h, Tqz_dbf_field* field) {
    if (!h || !field) return -1;
    return guarded(-1, [&] { return h->add_field(*field, dbf_fld_new, -1); });
}

QZ_DBF_API void qz_dbf_restruct_insert_field(Tqz_dbf_rstrct* h, int idx, Tqz_dbf_field* field) {
    if (h && field) guarded([&] { h->insert_field(idx, *field, dbf_fld_new, -1); });
}

QZ_DBF_API void qz_dbf_restruct_remove_field_idx(Tqz_dbf_rstrct* h, int idx) {
    if (h) h->remove_field(idx);
}

QZ_DBF_API void qz_dbf_restruct_remove_field_val(Tqz_dbf_rstrct* h, Tqz_dbf_field* field) {
    if (h && field) guarded([&] { h->remove_field(*field); });
}

QZ_DBF_API void qz_dbf_restruct_move_field(Tqz_dbf_rstrct* h, int from, int to) {
    if (h) guarded([&] { h->move_field(from, to); });
}

QZ_DBF_API Tqz_dbf_field* qz_dbf_restruct_get_field(Tqz_dbf_rstrct* h, int idx) {
    return h ? h->get_field(idx) : nullptr;
}

QZ_DBF_API void qz_dbf_restruct_set_field(Tqz_dbf_rstrct* h, int idx, Tqz_dbf_field* field) {
    if (h && field) h->set_field(idx, *field);
}

QZ_DBF_API int qz_dbf_restruct_get_field_status(Tqz_dbf_rstrct* h, int idx) {
    return h ? h->get_field_status(idx) : dbf_fld_new;
}

QZ_DBF_API int qz_dbf_restruct_get_field_old_no(Tqz_dbf_rstrct* h, int idx) {
    return h ? h->get_field_old_no(idx) : -1;
}

QZ_DBF_API Tqz_dbf_field_type qz_dbf_restruct_get_field_old_type(Tqz_dbf_rstrct* h, int idx) {
    return h ? guarded(dbf_ft_unknown, [&] { return h->get_old_type(idx); }) : dbf_ft_unknown;
}

QZ_DBF_API unsigned int qz_dbf_restruct_get_field_old_flen(Tqz_dbf_rstrct* h, int idx) {
    return h ? guarded(0u, [&] { return h->get_old_flen(idx); }) : 0u;
}

QZ_DBF_API void qz_dbf_restruct_get_field_old_name(Tqz_dbf_rstrct* h, int idx,
                                                   Iqz_string_adp* out) {
    if (h) guarded([&] { h->get_old_name(idx, out); });
}

QZ_DBF_API bool qz_dbf_restruct_apply(Tqz_dbf_rstrct* h) {
    return h ? guarded(false, [&] { return h->apply_restruct(); }) : false;
}

QZ_DBF_API bool qz_dbf_restruct_apply_progress(Tqz_dbf_rstrct* h, Tqz_dbf_progress_fn progress,
                                               void* user) {
    if (!h) return false;
    return guarded(false, [&] {
        qz::restruct::Progress_report report(progress, user);
        return h->apply_restruct(&report);
    });
}

QZ_DBF_API bool qz_dbf_try_restruct(Tqz_dbf_rw* handle, Tqz_dbf_rstrct* descriptor) {
    if (!handle || !descriptor) return false;
    return guarded(false, [&] { return handle->restruct(descriptor); });
}

QZ_DBF_API void qz_dbf_create_dbf_with_struct(const wchar_t* new_path,
                                              const wchar_t* template_path) {
    guarded([&] {
        Tqz_dbf_rstrct* dst = qz_dbf_restruct_create_empty_w(new_path);
        Tqz_dbf_rstrct* src = qz_dbf_restruct_create_w(template_path);
        for (int i = 0; dst && src && i < qz_dbf_restruct_count(src); ++i) {
            Tqz_dbf_field copy = *qz_dbf_restruct_get_field(src, i);
            qz_dbf_restruct_add_field(dst, &copy);
        }
        qz_dbf_restruct_destroy(src);
        if (Tqz_dbf_rw* existing = qz_dbf_open_w(new_path, true, false)) {
            // A table (or memory table) there takes the layout, keeping its
            // record count; its values go, since every field is new.
            qz_dbf_close(existing);
            qz_dbf_restruct_apply(dst);
        } else if (dst && qz_dbf_restruct_count(dst) > 0) {
            // Nothing there yet: a new empty table in the template's encoding.
            create_empty(new_path, template_path, *dst);
        }
        qz_dbf_restruct_destroy(dst);
    });
}

}  // extern "C"
