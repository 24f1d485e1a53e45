// The export that checks a typed character against a field.
#include "api/guard.h"
#include "qzk_file_dbf.h"
#include "validate/validate_val.h"

extern "C" {

QZ_DBF_API bool qz_dbf_validate_val(Tqz_dbf_rw* handle, unsigned int field, char* typed,
                                    const char* text, bool length_limit) {
    if (!typed) return false;
    return qz::api::guarded(false, [&] {
        return Tdbf_validate_val::validate(handle, field, *typed, text, length_limit);
    });
}

}  // extern "C"
