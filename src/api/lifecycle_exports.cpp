// Exports that open, create, close and delete tables.
#include "api/guard.h"
#include "api/table_rw.h"
#include "qzk_file_dbf.h"

using qz::api::guarded;

namespace {

template <class Open>
Tqz_dbf_rw* make_handle(Open&& open) {
    return guarded(static_cast<Tqz_dbf_rw*>(nullptr), [&] {
        Tqz_dbf_rw* h = new Tqz_dbf_rw();
        int result = 1;
        try {
            result = open(*h);
        } catch (...) {
            delete h;
            throw;
        }
        if (result == 0) return h;
        delete h;
        return static_cast<Tqz_dbf_rw*>(nullptr);
    });
}

}  // namespace

extern "C" {

QZ_DBF_API Tqz_dbf_rw* qz_dbf_open_w(const wchar_t* path, bool read_only, bool dos_flag) {
    return make_handle([&](Tqz_dbf_rw& h) { return h.open(path, read_only, dos_flag); });
}

QZ_DBF_API Tqz_dbf_rw* qz_dbf_open(const char* path, bool read_only, bool dos_flag) {
    return make_handle([&](Tqz_dbf_rw& h) { return h.open(path, read_only, dos_flag); });
}

QZ_DBF_API Tqz_dbf_rw* qz_dbf_create_w(const wchar_t* path, unsigned int nf, unsigned int nr,
                                       Tqz_dbf_field* fields, bool dos_flag) {
    return make_handle([&](Tqz_dbf_rw& h) { return h.create(path, nf, nr, fields, dos_flag); });
}

QZ_DBF_API Tqz_dbf_rw* qz_dbf_create(const char* path, unsigned int nf, unsigned int nr,
                                     Tqz_dbf_field* fields, bool dos_flag) {
    return make_handle([&](Tqz_dbf_rw& h) { return h.create(path, nf, nr, fields, dos_flag); });
}

QZ_DBF_API Tqz_dbf_rw* qz_dbf_create_safe(const wchar_t* path, unsigned int nf, unsigned int nr,
                                          Tqz_dbf_field* fields, bool dos_flag) {
    // The caller's names are repaired in place: valid and unique, whatever
    // they were.
    qz_dbf_fields_names_fix(fields, nf);
    return qz_dbf_create_w(path, nf, nr, fields, dos_flag);
}

// A null handle is tolerated everywhere: it is answered like a handle
// without a table rather than dereferenced.
QZ_DBF_API void qz_dbf_close(Tqz_dbf_rw* handle) {
    if (!handle) return;
    guarded([&] {
        handle->close();
        delete handle;
    });
}

QZ_DBF_API bool qz_dbf_delete(const wchar_t* path) {
    return guarded(false, [&] { return Tqz_dbf_rw::delete_files(path); });
}

QZ_DBF_API bool qz_dbf_is_buffered(Tqz_dbf_rw* handle) {
    return handle ? handle->is_buffered() : false;
}

QZ_DBF_API void qz_dbf_set_last_valid_error(Tqz_dbf_rw* handle, int code) {
    if (handle) handle->last_valid_error = code;
}

QZ_DBF_API int qz_dbf_get_last_valid_error(Tqz_dbf_rw* handle) {
    return handle ? handle->last_valid_error : 0;
}

}  // extern "C"
