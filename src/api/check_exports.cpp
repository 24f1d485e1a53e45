// Exports of the file check: a result object with its findings.
#include <string>

#include "api/guard.h"
#include "check/table_check.h"
#include "errors/last_error.h"
#include "qzk_file_dbf_ext.h"
#include "support/filesystem.h"

using qz::api::guarded;

struct Tqz_dbf_check_result {
    qz::check::result result;
};

namespace {

const qz::check::finding* at(const Tqz_dbf_check_result* r, unsigned int index) {
    return r && index < r->result.findings.size() ? &r->result.findings[index] : nullptr;
}

}  // namespace

extern "C" {

QZ_DBF_API Tqz_dbf_check_result* qz_dbf_check_file(const char* path, unsigned int flags) {
    return guarded(static_cast<Tqz_dbf_check_result*>(nullptr), [&] {
        if (!path) {
            qz::errors::set(qz::errors::argument, "no path given");
            return static_cast<Tqz_dbf_check_result*>(nullptr);
        }
        auto* r = new Tqz_dbf_check_result();
        try {
            r->result = qz::check::check_file(qz::filesystem::from_native(path), flags);
        } catch (...) {
            delete r;
            throw;
        }
        return r;
    });
}

QZ_DBF_API unsigned int qz_dbf_check_count(const Tqz_dbf_check_result* r) {
    return r ? static_cast<unsigned int>(r->result.findings.size()) : 0;
}

QZ_DBF_API int qz_dbf_check_worst(const Tqz_dbf_check_result* r) {
    return r ? r->result.worst() : 0;
}

QZ_DBF_API int qz_dbf_check_severity(const Tqz_dbf_check_result* r, unsigned int index) {
    const qz::check::finding* f = at(r, index);
    return f ? f->severity : 0;
}

QZ_DBF_API int qz_dbf_check_kind(const Tqz_dbf_check_result* r, unsigned int index) {
    const qz::check::finding* f = at(r, index);
    return f ? f->kind : 0;
}

QZ_DBF_API const char* qz_dbf_check_what(const Tqz_dbf_check_result* r, unsigned int index) {
    const qz::check::finding* f = at(r, index);
    return f ? f->what.c_str() : "";
}

QZ_DBF_API const char* qz_dbf_check_where(const Tqz_dbf_check_result* r, unsigned int index) {
    const qz::check::finding* f = at(r, index);
    return f ? f->where.c_str() : "";
}

QZ_DBF_API void qz_dbf_check_free(Tqz_dbf_check_result* r) {
    delete r;
}

}  // extern "C"
