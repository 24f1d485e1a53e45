#include "dbf/dbase7_descriptors.h"

#include <cstring>

namespace qz::dbf {

void parse_dbase7_descriptors(const uint8_t* area, size_t size, std::vector<Tdbf_descriptor>& out,
                              std::vector<std::string>& long_names) {
    out.clear();
    long_names.clear();
    for (size_t pos = dbase7_descriptors_at; pos < size; pos += dbase7_descriptor_size) {
        const uint8_t* p = area + pos;
        if (p[0] == descriptor_terminator) break;
        if (size - pos < dbase7_descriptor_size) break;
        // A name without NUL stops at 31 bytes, as the field can hold no more.
        size_t len = 0;
        while (len < dbase7_name_size - 1 && p[len] != 0) ++len;
        Tdbf_descriptor d;
        std::memset(&d, 0, sizeof d);
        std::memcpy(d.bytes + fld_name, p, len < fld_name_size - 1 ? len : fld_name_size - 1);
        d.bytes[fld_type] = p[dbase7_type];
        d.bytes[fld_length] = p[dbase7_length];
        d.bytes[fld_decimals] = p[dbase7_decimals];
        out.push_back(d);
        long_names.emplace_back(reinterpret_cast<const char*>(p), len);
    }
}

std::string language_driver_name(const uint8_t* area, size_t size) {
    std::string name;
    for (size_t k = 32; k < 64 && k < size && area[k] != 0; ++k) name += static_cast<char>(area[k]);
    return name;
}

}  // namespace qz::dbf
