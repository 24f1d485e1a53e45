// qzdbf export SRC.dbf DEST [--format NAME] [--encoding NAME] [--layer NAME]
//              [--with-deleted] [--overwrite] [--quiet]
//
// The table is read by this library, not by GDAL: its encoding is the one
// the library chooses (the .cpg file, the language driver, --encoding),
// memo fields give their text, FoxPro and dBASE 7 types their values, and
// records marked deleted are left out. The values go, feature by feature,
// through OGR's C interface into a new layer without geometry of the
// format GDAL writes.
#include <gdal.h>
#include <ogr_api.h>
#include <ogr_srs_api.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstring>
#include <string>
#include <vector>

#include "checked_open.h"
#include "cli.h"
#include "import_export.h"
#include "progress.h"
#include "table_values.h"

namespace qzdbf {

namespace {

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// The driver that writes vector data to files of DEST's extension: the
// usual ones first, then any driver naming the extension.
GDALDriverH driver_for(const std::string& dest, std::string& error) {
    const size_t slash = dest.find_last_of('/'), dot = dest.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) {
        error = dest + ": no extension to choose a format by; use --format";
        return nullptr;
    }
    const std::string ext = lower(dest.substr(dot + 1));
    static const char* const known[][2] = {{"gpkg", "GPKG"},
                                           {"csv", "CSV"},
                                           {"geojson", "GeoJSON"},
                                           {"json", "GeoJSON"},
                                           {"fgb", "FlatGeobuf"},
                                           {"xlsx", "XLSX"},
                                           {"ods", "ODS"},
                                           {"shp", "ESRI Shapefile"},
                                           {"dbf", "ESRI Shapefile"},
                                           {"sqlite", "SQLite"},
                                           {"gml", "GML"},
                                           {"kml", "KML"}};
    for (const auto& k : known)
        if (ext == k[0]) {
            GDALDriverH d = GDALGetDriverByName(k[1]);
            if (d) return d;
            error = std::string("this GDAL build has no ") + k[1] + " driver";
            return nullptr;
        }
    for (int i = 0; i < GDALGetDriverCount(); ++i) {
        GDALDriverH d = GDALGetDriver(i);
        const char* exts = GDALGetMetadataItem(d, GDAL_DMD_EXTENSIONS, nullptr);
        if (!GDALGetMetadataItem(d, GDAL_DCAP_VECTOR, nullptr) ||
            !GDALGetMetadataItem(d, GDAL_DCAP_CREATE, nullptr) || !exts)
            continue;
        std::string list = std::string(" ") + lower(exts) + " ";
        if (list.find(" " + ext + " ") != std::string::npos) return d;
    }
    error = dest + ": no GDAL driver writes '." + ext + "' files; use --format";
    return nullptr;
}

OGRFieldType ogr_type(Value_class c, unsigned length) {
    switch (c) {
        case Value_class::integer:
            return length <= 9 ? OFTInteger : OFTInteger64;
        case Value_class::real:
            return OFTReal;
        case Value_class::logical:
            return OFTInteger;
        case Value_class::date:
            return OFTDate;
        case Value_class::datetime:
            return OFTDateTime;
        case Value_class::bytes:
            return OFTBinary;
        default:
            return OFTString;
    }
}

void set_value(OGRFeatureH f, int i, const Tqz_dbf_value& v) {
    switch (v.kind) {
        case QZ_DBF_VALUE_NULL:
            OGR_F_SetFieldNull(f, i);
            break;
        case QZ_DBF_VALUE_BOOL:
        case QZ_DBF_VALUE_INT:
            OGR_F_SetFieldInteger64(f, i, v.i);
            break;
        case QZ_DBF_VALUE_DOUBLE:
        case QZ_DBF_VALUE_DECIMAL:
            OGR_F_SetFieldDouble(f, i, v.d);
            break;
        case QZ_DBF_VALUE_DATE:
            OGR_F_SetFieldDateTime(f, i, static_cast<int>(v.i / 10000),
                                   static_cast<int>(v.i / 100 % 100), static_cast<int>(v.i % 100),
                                   0, 0, 0, 0);
            break;
        case QZ_DBF_VALUE_BYTES:
            OGR_F_SetFieldBinary(f, i, static_cast<int>(v.length),
                                 reinterpret_cast<const GByte*>(v.text));
            break;
        case QZ_DBF_VALUE_DATETIME:
        case QZ_DBF_VALUE_TEXT:
        default:
            OGR_F_SetFieldString(f, i, value_text(v).c_str());
            break;
    }
}

bool exists(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0;
}

}  // namespace

int run_export(const Export_options& o) {
    // Field names and text reach GDAL as UTF-8.
    qz_options_set_ansi_code_page(65001);
    GDALAllRegister();
    std::string error;
    GDALDriverH drv = nullptr;
    if (!o.format.empty()) {
        drv = GDALGetDriverByName(o.format.c_str());
        for (int i = 0; !drv && i < GDALGetDriverCount(); ++i)
            if (lower(GDALGetDriverShortName(GDALGetDriver(i))) == lower(o.format))
                drv = GDALGetDriver(i);
        if (!drv) return fail(kBadUsage, "--format '" + o.format + "': no such GDAL driver");
    } else {
        drv = driver_for(o.destination, error);
        if (!drv) return fail(kBadUsage, error);
    }
    const std::string fmt = GDALGetDriverShortName(drv);
    if (!GDALGetMetadataItem(drv, GDAL_DCAP_VECTOR, nullptr) ||
        !GDALGetMetadataItem(drv, GDAL_DCAP_CREATE, nullptr))
        return fail(kBadUsage, fmt + ": GDAL does not write vector data in this format");
    if (exists(o.destination) && !o.overwrite)
        return fail(kBadUsage, o.destination + ": already exists (--overwrite replaces it)");

    int status = kOk;
    Tqz_dbf_rw* t = open_table(o.source, Access::read, false, status);
    if (!t) return status;
    struct Closer {
        Tqz_dbf_rw* t;
        ~Closer() { qz_dbf_close(t); }
    } closer{t};
    if (!o.encoding.empty() && !qz_dbf_set_encoding(t, o.encoding.c_str()))
        return fail(kBadUsage, "--encoding '" + o.encoding + "': not an encoding iconv knows");

    if (exists(o.destination)) {
        CPLPushErrorHandler(CPLQuietErrorHandler);
        if (GDALDeleteDataset(drv, o.destination.c_str()) != CE_None)
            std::remove(o.destination.c_str());
        CPLPopErrorHandler();
    }
    GDALDatasetH ds = GDALCreate(drv, o.destination.c_str(), 0, 0, 0, GDT_Unknown, nullptr);
    if (!ds) return fail(kIoError, o.destination + ": " + CPLGetLastErrorMsg());
    // A half-written DEST goes.
    auto abandon = [&](const std::string& why) {
        GDALClose(ds);
        CPLPushErrorHandler(CPLQuietErrorHandler);
        if (GDALDeleteDataset(drv, o.destination.c_str()) != CE_None)
            std::remove(o.destination.c_str());
        CPLPopErrorHandler();
        return fail(kIoError, o.destination + ": " + why);
    };
    std::string layer_name = o.layer;
    if (layer_name.empty()) {
        const size_t slash = o.destination.find_last_of('/');
        layer_name = o.destination.substr(slash == std::string::npos ? 0 : slash + 1);
        const size_t dot = layer_name.find_last_of('.');
        if (dot != std::string::npos && dot > 0) layer_name.erase(dot);
    }
    // FlatGeobuf drops features without geometry from a spatial index, and
    // these have none.
    char* layer_options[] = {const_cast<char*>("SPATIAL_INDEX=NO"), nullptr};
    OGRLayerH layer = GDALDatasetCreateLayer(ds, layer_name.c_str(), nullptr, wkbNone,
                                             fmt == "FlatGeobuf" ? layer_options : nullptr);
    if (!layer) return abandon(std::string("cannot make a layer: ") + CPLGetLastErrorMsg());

    const unsigned int nf = qz_dbf_get_nf(t);
    std::vector<Value_class> classes(nf);
    for (unsigned int f = 0; f < nf; ++f) {
        classes[f] = value_class(t, f);
        const char* name = qz_dbf_get_field_name(t, f);
        OGRFieldDefnH d =
            OGR_Fld_Create(name ? name : "", ogr_type(classes[f], qz_dbf_get_field_flen(t, f)));
        const int len = static_cast<int>(qz_dbf_get_field_flen(t, f));
        if (classes[f] == Value_class::real) {
            const int dec = qz_dbf_get_field_dlen(t, f);
            if (qz_dbf_get_field_type(t, f) != dbf_ft_double && dec > 0) {
                OGR_Fld_SetWidth(d, len);
                OGR_Fld_SetPrecision(d, dec);
            }
        } else if (classes[f] == Value_class::logical) {
            OGR_Fld_SetSubType(d, OFSTBoolean);
        } else if (classes[f] == Value_class::text && qz_dbf_get_field_type(t, f) == dbf_ft_char) {
            OGR_Fld_SetWidth(d, len);
        }
        const OGRErr e = OGR_L_CreateField(layer, d, TRUE);
        OGR_Fld_Destroy(d);
        if (e != OGRERR_NONE)
            return abandon(std::string("cannot make field '") + (name ? name : "") +
                           "': " + CPLGetLastErrorMsg());
    }
    OGRFeatureDefnH defn = OGR_L_GetLayerDefn(layer);
    const bool transaction = GDALDatasetStartTransaction(ds, FALSE) == OGRERR_NONE;
    const unsigned int nr = qz_dbf_get_nr(t);
    const bool flags = qz_dbf_get_storage(t) != qz_dbf_storage_ogr;
    Progress bar("export", nr);
    if (o.quiet) bar.set_enabled(false);
    unsigned long long written = 0;
    Tqz_dbf_value v;
    for (unsigned int r = 0; r < nr; ++r) {
        bar.step();
        if (flags) {
            const int del = qz_dbf_get_deleted(t, r);
            if (del < 0) break;  // the file holds no more records (reported at the open)
            if (del == 1 && o.skip_deleted) continue;
        }
        OGRFeatureH feat = OGR_F_Create(defn);
        for (unsigned int f = 0; f < nf; ++f) {
            if (!qz_dbf_get_value(t, f, r, &v)) continue;
            set_value(feat, static_cast<int>(f), v);
        }
        const OGRErr e = OGR_L_CreateFeature(layer, feat);
        OGR_F_Destroy(feat);
        if (e != OGRERR_NONE)
            return abandon("record " + std::to_string(r) + ": " + CPLGetLastErrorMsg());
        ++written;
    }
    bar.finish();
    if (transaction && GDALDatasetCommitTransaction(ds) != OGRERR_NONE)
        return abandon(std::string("cannot commit: ") + CPLGetLastErrorMsg());
    GDALClose(ds);
    if (fmt == "FlatGeobuf" && written > 0) {
        // Some versions of the driver keep no feature without geometry:
        // count what the file holds.
        GIntBig held = -1;
        CPLPushErrorHandler(CPLQuietErrorHandler);
        if (GDALDatasetH back =
                GDALOpenEx(o.destination.c_str(), GDAL_OF_VECTOR, nullptr, nullptr, nullptr)) {
            if (OGRLayerH l = GDALDatasetGetLayer(back, 0)) held = OGR_L_GetFeatureCount(l, TRUE);
            GDALClose(back);
        }
        CPLPopErrorHandler();
        if (held != static_cast<GIntBig>(written)) {
            CPLPushErrorHandler(CPLQuietErrorHandler);
            if (GDALDeleteDataset(drv, o.destination.c_str()) != CE_None)
                std::remove(o.destination.c_str());
            CPLPopErrorHandler();
            return fail(kIoError, o.destination + ": this GDAL (" +
                                      GDALVersionInfo("RELEASE_NAME") + ") wrote " +
                                      std::to_string(held < 0 ? 0 : held) + " of " +
                                      std::to_string(written) +
                                      " records; its FlatGeobuf driver keeps no record without "
                                      "geometry");
        }
    }
    if (!o.quiet && ::isatty(2))
        std::fprintf(stderr, "qzdbf: %llu records to %s (%s)\n", written, o.destination.c_str(),
                     fmt.c_str());
    return kOk;
}

}  // namespace qzdbf
