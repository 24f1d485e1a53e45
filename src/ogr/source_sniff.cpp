#include "ogr/source_sniff.h"

#include <cpl_vsi.h>
#include <gdal.h>

#include <cstring>
#include <strings.h>

#include "ogr/gdal_session.h"

namespace qz::ogr {

namespace {

bool has_dbf_extension(const std::string& path) {
    return path.size() >= 4 && strcasecmp(path.c_str() + path.size() - 4, ".dbf") == 0;
}

// The version bytes dBASE, FoxPro and their kin write, and a plausible date
// of last change (month 1..12, day 1..31) after them.
bool looks_like_dbf_header(const unsigned char* h, size_t n) {
    static const unsigned char versions[] = {0x02, 0x03, 0x04, 0x05, 0x07, 0x13, 0x23, 0x30,
                                             0x31, 0x32, 0x33, 0x43, 0x63, 0x7B, 0x83, 0x87,
                                             0x8B, 0x8E, 0xB3, 0xCB, 0xE5, 0xF5, 0xFB};
    if (n < 4) return false;
    if (!std::memchr(versions, h[0], sizeof versions)) return false;
    return h[2] >= 1 && h[2] <= 12 && h[3] >= 1 && h[3] <= 31;
}

}  // namespace

bool is_other_vector_source(const std::string& path) {
    if (path.empty() || has_dbf_extension(path)) return false;
    ensure_registered();
    Quiet_scope quiet;
    VSIStatBufL st;
    if (VSIStatL(path.c_str(), &st) != 0 || !VSI_ISREG(st.st_mode)) return false;
    unsigned char head[4] = {0, 0, 0, 0};
    size_t n = 0;
    if (VSILFILE* f = VSIFOpenL(path.c_str(), "rb")) {
        n = VSIFReadL(head, 1, sizeof head, f);
        VSIFCloseL(f);
    }
    if (looks_like_dbf_header(head, n)) return false;
    // A shapefile's .shp or .shx is claimed too: OGR serves its attributes.
    return GDALIdentifyDriverEx(path.c_str(), GDAL_OF_VECTOR, nullptr, nullptr) != nullptr;
}

}  // namespace qz::ogr
