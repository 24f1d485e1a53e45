// The thread's last error, read by hosts after a failed call.
#include "errors/last_error.h"
#include "qzk_file_dbf_ext.h"

extern "C" {

QZ_DBF_API int qz_dbf_last_error(void) {
    return qz::errors::last_code();
}

QZ_DBF_API const char* qz_dbf_last_error_message(void) {
    return qz::errors::last_message();
}

QZ_DBF_API void qz_dbf_clear_last_error(void) {
    qz::errors::clear();
}

}  // extern "C"
