/*
 * qzk_path: watching folders for changes.
 *
 * Conventions as in qzk_basic.h. A watcher belongs to the caller and is given
 * back with qz_folder_watcher_destroy.
 */
#ifndef QZK_PATH_H
#define QZK_PATH_H

#include "qzk_basic.h"

#if defined(QZK_PATH_BUILD)
#define QZ_PATH_API __attribute__((visibility("default")))
#else
#define QZ_PATH_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The version of the qzk libraries, "major.minor.patch". */
QZ_PATH_API const char* qz_path_version(void);

#ifdef __cplusplus
}
#endif

#endif /* QZK_PATH_H */
