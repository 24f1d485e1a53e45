#include "checked_open.h"

#include <cstdio>

#include "qzk_file_dbf_ext.h"

namespace qzdbf {

namespace {

// Findings after which a write would go to the wrong bytes, or would
// change a table that is already damaged (its memo file gone).
bool breaks_writes(int kind) {
    return kind == QZ_DBF_CHECK_RECORDS || kind == QZ_DBF_CHECK_RECORD_LENGTH ||
           kind == QZ_DBF_CHECK_HEADER_LENGTH || kind == QZ_DBF_CHECK_TERMINATOR ||
           kind == QZ_DBF_CHECK_MEMO;
}

int status_of(int error) {
    switch (error) {
        case QZ_DBF_ERR_LOCKED:
        case QZ_DBF_ERR_PERMISSION:
        case QZ_DBF_ERR_IO:
        case QZ_DBF_ERR_MEMORY:
            return kIoError;
        default:
            return kBadUsage;
    }
}

}  // namespace

bool take_flag(Args& args, const char* flag) {
    bool found = false;
    for (auto it = args.begin(); it != args.end();) {
        if (*it == flag) {
            it = args.erase(it);
            found = true;
        } else {
            ++it;
        }
    }
    return found;
}

Tqz_dbf_rw* open_table(const std::string& path, Access access, bool force, int& status) {
    Tqz_dbf_check_result* found = qz_dbf_check_file(path.c_str(), 0);
    if (!found) {
        status = fail(kIoError, path + ": out of memory");
        return nullptr;
    }
    const bool not_a_table = qz_dbf_check_worst(found) >= QZ_DBF_SEV_FATAL;
    std::string refusal;
    for (unsigned i = 0; i < qz_dbf_check_count(found); ++i) {
        const int sev = qz_dbf_check_severity(found, i);
        const int kind = qz_dbf_check_kind(found, i);
        const std::string what = qz_dbf_check_what(found, i);
        if (sev >= QZ_DBF_SEV_FATAL) {
            if (refusal.empty()) refusal = what;
        } else if (sev >= QZ_DBF_SEV_ERROR && access == Access::write && breaks_writes(kind)) {
            if (refusal.empty()) refusal = "refusing to write: " + what;
        } else if (sev >= QZ_DBF_SEV_ERROR && !not_a_table) {
            std::fprintf(stderr, "qzdbf: warning: %s: %s\n", path.c_str(), what.c_str());
        }
    }
    qz_dbf_check_free(found);

    // A source that only OGR reads (a GeoPackage, a GeoJSON or CSV file, a
    // shapefile's .shp) is read through it, and never written.
    if (not_a_table && access == Access::read) {
        if (Tqz_dbf_rw* o = qz_dbf_open(path.c_str(), true, false)) {
            if (qz_dbf_get_storage(o) == qz_dbf_storage_ogr) {
                status = kOk;
                return o;
            }
            qz_dbf_close(o);
        }
    }
    unsigned options = access == Access::read ? QZ_DBF_OPEN_READ_ONLY : 0;
    if (not_a_table) {
        if (!force || access == Access::write || refusal.find("no such file") == 0 ||
            refusal.find("a folder") != std::string::npos) {
            status = fail(kBadUsage, path + ": " + refusal);
            return nullptr;
        }
        std::fprintf(stderr, "qzdbf: warning: %s: %s; read anyway (--force)\n", path.c_str(),
                     refusal.c_str());
        options |= QZ_DBF_OPEN_FORCE | QZ_DBF_OPEN_READ_ONLY;
    } else if (!refusal.empty()) {
        status = fail(kBadUsage, path + ": " + refusal);
        return nullptr;
    }
    Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), options);
    if (t && access == Access::write && qz_dbf_get_storage(t) == qz_dbf_storage_ogr) {
        // Another writer holds the table: the library then serves it through
        // OGR, read-only, and the last error says why the file was refused.
        qz_dbf_close(t);
        t = nullptr;
    }
    if (!t) {
        // The message names the file already.
        status = fail(status_of(qz_dbf_last_error()), qz_dbf_last_error_message());
        return nullptr;
    }
    status = kOk;
    return t;
}

}  // namespace qzdbf
