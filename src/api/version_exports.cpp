// The library's version, as built.
#include "qzk_file_dbf_ext.h"

#define QZ_STR2(x) #x
#define QZ_STR(x) QZ_STR2(x)

extern "C" QZ_DBF_API const char* qz_dbf_version(void) {
    return QZ_STR(QZ_DBF_VERSION_MAJOR) "." QZ_STR(QZ_DBF_VERSION_MINOR) "." QZ_STR(
        QZ_DBF_VERSION_PATCH);
}
