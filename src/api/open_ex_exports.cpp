// The open of our own tools: checked first, and leaving the .cpg file alone.
#include <memory>
#include <string>

#include "api/guard.h"
#include "api/table_rw.h"
#include "check/table_check.h"
#include "errors/last_error.h"
#include "qzk_file_dbf_ext.h"
#include "support/filesystem.h"

using qz::api::guarded;

extern "C" QZ_DBF_API Tqz_dbf_rw* qz_dbf_open_ex(const char* path_utf8, unsigned int options) {
    return guarded(static_cast<Tqz_dbf_rw*>(nullptr), [&]() -> Tqz_dbf_rw* {
        if (!path_utf8) {
            qz::errors::set(qz::errors::argument, "no path given");
            return nullptr;
        }
        const std::wstring path = qz::filesystem::from_native(path_utf8);
        bool read_only = (options & QZ_DBF_OPEN_READ_ONLY) != 0;
        const qz::check::result found = qz::check::check_file(path, 0);
        if (found.not_a_table()) {
            const qz::check::finding* f = found.first_worst();
            if (f->kind == qz::check::k_file) {
                // Missing, a folder, unreadable: the reason from the file system.
                qz::errors::set_open_failure(path, !read_only, false);
                return nullptr;
            }
            if (!(options & QZ_DBF_OPEN_FORCE)) {
                qz::errors::set(qz::errors::not_a_table, path, f->what);
                return nullptr;
            }
            read_only = true;
        }
        if (!read_only && !qz::filesystem::stat_path(path).any_write) {
            qz::errors::set(qz::errors::permission, path, "the file is read-only");
            return nullptr;
        }
        auto handle = std::make_unique<Tqz_dbf_rw>();
        // A dBASE table held by another writer is refused here, not read
        // through OGR behind the caller's back.
        handle->set_ogr_fallback(false);
        if (handle->open(path.c_str(), read_only, (options & QZ_DBF_OPEN_DOS) != 0) != 0)
            return nullptr;  // the open said why
        if (!(options & QZ_DBF_OPEN_WRITE_CPG)) handle->keep_cpg();
        return handle.release();
    });
}
