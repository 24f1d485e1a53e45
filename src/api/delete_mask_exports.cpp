// Exports that delete records by a bit mask.
#include <memory>

#include "api/guard.h"
#include "api/table_rw.h"
#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "restruct/delete_by_mask.h"
#include "restruct/progress_report.h"

using qz::api::guarded;

extern "C" {

QZ_DBF_API unsigned int qz_dbf_del_records_by_msk_and_fn(const wchar_t* path, void* mask) {
    return guarded(1u, [&] {
        auto handle = std::make_unique<Tqz_dbf_rw>();
        return handle->delete_records_by_msk(path, mask);
    });
}

QZ_DBF_API int qz_dbf_del_records_by_msk_why_w(const wchar_t* path, void* mask) {
    return guarded(static_cast<int>(QZ_DBF_DELMASK_CANNOT_OPEN), [&] {
        auto handle = std::make_unique<Tqz_dbf_rw>();
        return static_cast<int>(qz::restruct::delete_by_mask(*handle, path, mask));
    });
}

QZ_DBF_API int qz_dbf_del_records_by_msk_progress_w(const wchar_t* path, void* mask,
                                                    Tqz_dbf_progress_fn progress, void* user) {
    return guarded(static_cast<int>(QZ_DBF_DELMASK_CANNOT_OPEN), [&] {
        auto handle = std::make_unique<Tqz_dbf_rw>();
        qz::restruct::Progress_report report(progress, user);
        return static_cast<int>(qz::restruct::delete_by_mask(*handle, path, mask, &report));
    });
}

}  // extern "C"
