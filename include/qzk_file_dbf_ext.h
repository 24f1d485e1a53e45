/*
 * qzk_file_dbf_ext: what this library offers beyond its classic interface
 * (qzk_file_dbf.h): the version, and further calls added section by section.
 *
 * Conventions (as in qzk_file_dbf.h, and these besides)
 *  - Every export has C linkage; this header compiles as C99 and as C++.
 *    Out-parameters are pointers here, in C and C++ alike.
 *  - Handles are the classic ones (Tqz_dbf_rw*, Tqz_dbf_memory*): their
 *    ownership and lifetime are those of qzk_file_dbf.h.
 *  - Text crossing this interface is UTF-8 unless a name says otherwise.
 *  - Returned `const char*` text is owned by the library: static text lives
 *    as long as the process, per-handle text until the next call on that
 *    handle, per-thread text until the next call on that thread.
 *  - Threads: a handle is used by one thread at a time; calls on different
 *    handles may run on different threads at once.
 */
#ifndef QZK_FILE_DBF_EXT_H
#define QZK_FILE_DBF_EXT_H

#include "qzk_file_dbf.h"

/* The version of the library this header belongs to. */
#define QZ_DBF_VERSION_MAJOR 0
#define QZ_DBF_VERSION_MINOR 2
#define QZ_DBF_VERSION_PATCH 0

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Version ---------------------------------------------------------------- */

/* The version of the library actually loaded, "MAJOR.MINOR.PATCH" (static
 * text); compare with the QZ_DBF_VERSION_* macros to detect a mismatch. */
QZ_DBF_API const char* qz_dbf_version(void);

/* ---- Last error -------------------------------------------------------------
 *
 * Every export that fails (these and those of qzk_file_dbf.h, whose results
 * stay as they are) records why in a last error of the calling thread: a
 * code and a UTF-8 message naming the file, when there is one, and the
 * reason ("data.dbf: locked by another writer"). A call that succeeds leaves
 * the last error as it was: read it right after the failing call, or clear
 * it first. */

typedef enum Tqz_dbf_error {
    QZ_DBF_OK = 0,
    QZ_DBF_ERR_ARGUMENT = 1,    /* a null handle or argument, an index out of range */
    QZ_DBF_ERR_NOT_FOUND = 2,   /* no such file */
    QZ_DBF_ERR_NOT_A_TABLE = 3, /* the file is not a dBASE table */
    QZ_DBF_ERR_LOCKED = 4,      /* another writer holds the table's lock */
    QZ_DBF_ERR_PERMISSION = 5,  /* permission denied, or a read-only file */
    QZ_DBF_ERR_IO = 6,          /* reading or writing failed */
    QZ_DBF_ERR_MEMO = 7,        /* the memo file is missing or unreadable */
    QZ_DBF_ERR_VALUE = 8,       /* a value the field cannot hold, or no value */
    QZ_DBF_ERR_MEMORY = 9,      /* out of memory */
    QZ_DBF_ERR_INTERNAL = 10    /* anything else */
} Tqz_dbf_error;

/* The code of the thread's last error (QZ_DBF_OK when none). */
QZ_DBF_API int qz_dbf_last_error(void);
/* Its message (per-thread text; "" when none). */
QZ_DBF_API const char* qz_dbf_last_error_message(void);
QZ_DBF_API void qz_dbf_clear_last_error(void);

#ifdef __cplusplus
}
#endif

#endif /* QZK_FILE_DBF_EXT_H */
