// The storage and the layers of an opened table.
#include <string>

#include "cli.h"
#include "qzk_file_dbf_ext.h"

namespace qzdbf {

namespace {

void append_text(void* user, const char* text) {
    if (text) *static_cast<std::string*>(user) += text;
}

}  // namespace

std::string storage_text(Tqz_dbf_rw* table) {
    switch (qz_dbf_get_storage(table)) {
        case qz_dbf_storage_file:
            return "DBF file";
        case qz_dbf_storage_memory:
            return "memory";
        case qz_dbf_storage_ogr:
            return std::string("OGR (") + qz_dbf_get_ogr_driver(table) + ")";
        default:
            return "none";
    }
}

std::string layer_name(Tqz_dbf_rw* table, unsigned int layer) {
    std::string name;
    Iqz_string_adp* adp = qz_string_adp_create(append_text, nullptr, &name);
    qz_dbf_get_layer_name(table, layer, adp);
    qz_string_adp_destroy(adp);
    return name;
}

bool select_layer(Tqz_dbf_rw* table, const std::string& arg, std::string& error) {
    unsigned long long n = 0;
    const unsigned int count = qz_dbf_get_nl(table);
    if (!parse_count(arg, 0xFFFFFFFFull, n) || n >= count) {
        error = "no layer " + arg + " (the source has " + std::to_string(count) + ")";
        return false;
    }
    if (!qz_dbf_set_layer(table, static_cast<unsigned int>(n))) {
        error = "cannot switch to layer " + arg;
        return false;
    }
    return true;
}

}  // namespace qzdbf
