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

/* ---- Deleting records by mask, with the reason -------------------------------- */

/* The reasons of qz_dbf_del_records_by_msk_why_w. */
enum {
    QZ_DBF_DELMASK_DONE = 0,          /* the records are gone */
    QZ_DBF_DELMASK_CANNOT_OPEN = 1,   /* no table could be opened at the path */
    QZ_DBF_DELMASK_LOCKED = 2,        /* another writer holds the table */
    QZ_DBF_DELMASK_NO_MASK = 3,       /* the mask is null */
    QZ_DBF_DELMASK_COPY_FAILED = 4,   /* the temporary copy could not be made whole */
    QZ_DBF_DELMASK_REPLACE_FAILED = 5, /* the copy could not take the table's place */
    QZ_DBF_DELMASK_UNKNOWN_LAYOUT = 6  /* the fields do not fill the records exactly, so a
                                          copy field by field would lose bytes */
};

/* qz_dbf_del_records_by_msk_and_fn, answering why it ended as it did. On
 * every reason but QZ_DBF_DELMASK_DONE the table is unchanged. */
QZ_DBF_API int qz_dbf_del_records_by_msk_why_w(const wchar_t* path, void* mask);

#ifdef __cplusplus
}
#endif

#endif /* QZK_FILE_DBF_EXT_H */
