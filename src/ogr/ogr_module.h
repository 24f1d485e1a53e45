// The OGR side of the library (tables over any vector source GDAL reads) is
// built into a module of its own, qzk_file_dbf_ogr.so, beside the library.
// The library loads it on the first open that needs OGR, so a process that
// only reads table files never loads GDAL and its libraries.
//
// The module and the library are built from the same sources together; the
// version below is bumped whenever this interface or Tqz_dbf_ibasic
// changes, and a module of another version is not used.
#pragma once

#include "dbf/ibasic.h"

// A table served through OGR, as the library reaches it.
class Tqz_dbf_ogr_source : public Tqz_dbf_ibasic {
  public:
    // 0 on success; 1 for an empty path, a source OGR cannot open, or one
    // without layers. Layer 0 becomes current.
    virtual int open(const char* utf8_path, bool read_only, bool dos) = 0;
    virtual int open(const wchar_t* path, bool read_only, bool dos) = 0;
    virtual bool is_open() const = 0;
    // OGR's name of the driver serving the source ("GPKG", "CSV", ...), or
    // "" while closed.
    virtual const char* driver_name() const = 0;
};

extern "C" {

#define QZ_OGR_MODULE_VERSION 1u

struct qz_ogr_module_entry {
    unsigned int version;  // QZ_OGR_MODULE_VERSION of the module's build
    // A new closed table; deleted through its virtual destructor.
    Tqz_dbf_ogr_source* (*make_table)();
    // Whether the file is a source OGR reads that is not a dBASE table (see
    // source_sniff.h).
    bool (*is_other_vector_source)(const char* utf8_path);
};

// The module's one exported symbol.
const qz_ogr_module_entry* qz_dbf_ogr_module_entry();
}

namespace qz::ogr {

// The module's entry, loaded on the first call; null when the module cannot
// be found or loaded (the OGR storage is then unavailable). Safe from any
// thread.
const qz_ogr_module_entry* module();

// The folder the library looks in besides its own; set for builds whose
// library code is linked statically into another program (tests), null
// otherwise.
const char* module_fallback_folder();

}  // namespace qz::ogr
