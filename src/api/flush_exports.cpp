// Exports that send a handle's pending writes to its file.
#include "api/guard.h"
#include "api/table_rw.h"
#include "qzk_file_dbf_ext.h"

extern "C" QZ_DBF_API bool qz_dbf_flush(Tqz_dbf_rw* handle) {
    if (!handle) return false;
    return qz::api::guarded(false, [&] { return handle->flush(); });
}
