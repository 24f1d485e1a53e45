#include "ogr/source_sniff.h"

#include <cpl_vsi.h>
#include <gdal.h>

#include "ogr/dbf_signature.h"
#include "ogr/gdal_session.h"

namespace qz::ogr {

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
