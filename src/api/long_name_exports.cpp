// What a field's descriptor says beyond the classic calls: the full name of
// a dBASE 7 field, and the type letter as written.
#include "api/guard.h"
#include "api/table_rw.h"
#include "dbf/basic_table.h"
#include "errors/last_error.h"
#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"

using qz::api::guarded;

extern "C" {

QZ_DBF_API const char* qz_dbf_get_field_long_name(Tqz_dbf_rw* h, unsigned int field) {
    return guarded(static_cast<const char*>(nullptr), [&]() -> const char* {
        Tqz_dbf_ibasic* t = h ? h->current() : nullptr;
        if (!t || field >= t->get_nf()) {
            qz::errors::set(qz::errors::argument, "no such field");
            return nullptr;
        }
        if (Tqz_dbf_basic* basic = t->as_basic())
            if (const char* name = basic->get_long_field_name(field)) return name;
        return t->get_field_name(field);
    });
}

QZ_DBF_API char qz_dbf_get_field_letter(Tqz_dbf_rw* h, unsigned int field) {
    return guarded('\0', [&]() -> char {
        Tqz_dbf_ibasic* t = h ? h->current() : nullptr;
        if (!t || field >= t->get_nf()) {
            qz::errors::set(qz::errors::argument, "no such field");
            return '\0';
        }
        if (Tqz_dbf_basic* basic = t->as_basic()) return basic->get_field_letter(field);
        const int c = qz_dbftype2char(t->get_field_type(field));
        return c > ' ' && c < 0x7F ? static_cast<char>(c) : '?';
    });
}

}  // extern "C"
