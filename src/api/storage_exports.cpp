// Which storage serves a handle.
#include "api/guard.h"
#include "api/table_rw.h"
#include "qzk_file_dbf_ext.h"

using qz::api::guarded;

extern "C" {

QZ_DBF_API Tqz_dbf_storage qz_dbf_get_storage(Tqz_dbf_rw* h) {
    return guarded(qz_dbf_storage_none, [&] {
        switch (h ? h->current_storage() : Tqz_dbf_rw::storage::none) {
            case Tqz_dbf_rw::storage::disk:
                return qz_dbf_storage_file;
            case Tqz_dbf_rw::storage::memory:
                return qz_dbf_storage_memory;
            case Tqz_dbf_rw::storage::ogr:
                return qz_dbf_storage_ogr;
            default:
                return qz_dbf_storage_none;
        }
    });
}

QZ_DBF_API const char* qz_dbf_get_ogr_driver(Tqz_dbf_rw* h) {
    return guarded<const char*>("", [&] { return h ? h->ogr_driver_name() : ""; });
}

}  // extern "C"
