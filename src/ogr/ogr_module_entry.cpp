// The entry of the module qzk_file_dbf_ogr.so: the OGR table and the source
// check, handed to the library that loads the module.
#include "ogr/ogr_module.h"
#include "ogr/ogr_table.h"
#include "ogr/source_sniff.h"

namespace {

Tqz_dbf_ogr_source* make_table() {
    return new Tqz_dbf_ogr();
}

bool is_other_source(const char* utf8_path) {
    return utf8_path && qz::ogr::is_other_vector_source(utf8_path);
}

const qz_ogr_module_entry entry = {QZ_OGR_MODULE_VERSION, make_table, is_other_source};

}  // namespace

extern "C" __attribute__((visibility("default"))) const qz_ogr_module_entry*
qz_dbf_ogr_module_entry() {
    return &entry;
}
