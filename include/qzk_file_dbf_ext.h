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

/* ---- Storage ---------------------------------------------------------------- */

/* Which storage serves a handle: a table file read directly, a memory table
 * of the registry, or GDAL's OGR (any vector source it reads: GeoPackage,
 * GeoJSON, CSV, a shapefile's attributes, and a table file whose writer lock
 * another handle holds, which OGR then serves read-only). Layers
 * (qz_dbf_get_nl, qz_dbf_set_layer, ...) are OGR's layers there. */
typedef enum Tqz_dbf_storage {
    qz_dbf_storage_none = 0, /* null handle, or nothing open */
    qz_dbf_storage_file = 1,
    qz_dbf_storage_memory = 2,
    qz_dbf_storage_ogr = 3
} Tqz_dbf_storage;

QZ_DBF_API Tqz_dbf_storage qz_dbf_get_storage(Tqz_dbf_rw* handle);
/* OGR's name of the driver serving the handle ("GPKG", "GeoJSON", "CSV",
 * "ESRI Shapefile", ...), static text; "" when OGR does not serve it. */
QZ_DBF_API const char* qz_dbf_get_ogr_driver(Tqz_dbf_rw* handle);

#ifdef __cplusplus
}
#endif

#endif /* QZK_FILE_DBF_EXT_H */
