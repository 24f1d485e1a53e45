// Exports of the memo readers (the handle is the reader itself) and of the
// memo of a table cell.
#include <cstring>
#include <string>

#include "api/cell_errors.h"
#include "api/guard.h"
#include "code_page_text.h"
#include "dbf/basic_table.h"
#include "errors/last_error.h"
#include "api/table_rw.h"
#include "memo/dbt_rw.h"
#include "memo/fpt_rw.h"
#include "qzk_file_dbf.h"

using qz::api::guarded;

namespace {

std::wstring as_wide(const wchar_t* path) {
    return path ? path : L"";
}
std::wstring as_wide(const char* path) {
    return path ? qz::basic::cp_to_wide(0, path, std::strlen(path)) : std::wstring();
}

// A new reader of kind R open on `path`, or null.
template <class R, class P>
R* open_reader(P path, bool read_only) {
    return guarded(static_cast<R*>(nullptr), [&] {
        R* reader = new R();
        if (reader->open(path, read_only) == 0) return reader;
        delete reader;
        qz::errors::set_open_failure(as_wide(path), !read_only, false);
        return static_cast<R*>(nullptr);
    });
}

template <class R>
const char* get_memo(R* reader, unsigned int block, unsigned int* len, unsigned int* type) {
    return guarded(static_cast<const char*>(nullptr), [&]() -> const char* {
        unsigned int local_len = 0, local_type = 0;
        unsigned int& l = len ? *len : local_len;
        unsigned int& t = type ? *type : local_type;
        if (!reader) {
            l = 0;
            t = 0;
            return nullptr;
        }
        return reader->get_memo(block, l, t);
    });
}

}  // namespace

extern "C" {

QZ_DBF_API Tqz_fpt_rw* qz_fpt_open_w(const wchar_t* path, bool read_only) {
    return open_reader<Tqz_fpt_rw>(path, read_only);
}

QZ_DBF_API Tqz_fpt_rw* qz_fpt_open(const char* path, bool read_only) {
    return open_reader<Tqz_fpt_rw>(path, read_only);
}

QZ_DBF_API void qz_fpt_close(Tqz_fpt_rw* handle) {
    guarded([&] { delete handle; });
}

QZ_DBF_API const char* qz_fpt_get_memo(Tqz_fpt_rw* handle, unsigned int block, unsigned int* len,
                                       unsigned int* type) {
    return get_memo(handle, block, len, type);
}

QZ_DBF_API Tqz_dbt_rw* qz_dbt_open_w(const wchar_t* path, bool read_only) {
    return open_reader<Tqz_dbt_rw>(path, read_only);
}

QZ_DBF_API Tqz_dbt_rw* qz_dbt_open(const char* path, bool read_only) {
    return open_reader<Tqz_dbt_rw>(path, read_only);
}

QZ_DBF_API void qz_dbt_close(Tqz_dbt_rw* handle) {
    guarded([&] { delete handle; });
}

QZ_DBF_API const char* qz_dbt_get_memo(Tqz_dbt_rw* handle, unsigned int block, unsigned int* len,
                                       unsigned int* type) {
    return get_memo(handle, block, len, type);
}

QZ_DBF_API const unsigned char* qz_dbf_get_memo_bytes(Tqz_dbf_rw* handle, unsigned int field,
                                                      unsigned int record, bool& ok,
                                                      unsigned int& len, unsigned int& type) {
    return guarded(static_cast<const unsigned char*>(nullptr), [&]() -> const unsigned char* {
        Tqz_dbf_ibasic* t = handle ? handle->current() : nullptr;
        if (!t) {
            qz::api::no_table(handle);
            return nullptr;
        }
        const unsigned char* bytes = t->get_memo_bytes(field, record, ok, len, type);
        if (!ok) {
            auto* basic = dynamic_cast<Tqz_dbf_basic*>(t);
            if (basic && !basic->get_fpt() && !basic->get_dbt() && field < t->get_nf())
                qz::errors::set(qz::errors::memo, handle->get_path(), "memo file missing");
            else
                qz::api::cell_failed(handle, t, field, record, "the cell leads to no memo");
        }
        return bytes;
    });
}

}  // extern "C"
