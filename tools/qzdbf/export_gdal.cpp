// The export writer over GDAL's C interface (the module qzdbf_export.so).
#include <cpl_error.h>
#include <gdal.h>
#include <ogr_api.h>

#include <cctype>
#include <cstdio>
#include <string>

#include "export_writer.h"

namespace qzdbf {

namespace {

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// GDAL's messages stay off the terminal while alive.
struct Quiet {
    Quiet() { CPLPushErrorHandler(CPLQuietErrorHandler); }
    ~Quiet() { CPLPopErrorHandler(); }
    Quiet(const Quiet&) = delete;
    Quiet& operator=(const Quiet&) = delete;
};

std::string last_gdal_error() {
    const char* m = CPLGetLastErrorMsg();
    return m ? m : "";
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

class Gdal_writer final : public Export_writer {
  public:
    Gdal_writer() { GDALAllRegister(); }
    ~Gdal_writer() override {
        if (feature) OGR_F_Destroy(feature);
        if (ds) GDALClose(ds);
    }

    bool choose_format(const std::string& format, const std::string& dest,
                       std::string& error) override {
        if (!format.empty()) {
            drv = GDALGetDriverByName(format.c_str());
            for (int i = 0; !drv && i < GDALGetDriverCount(); ++i)
                if (lower(GDALGetDriverShortName(GDALGetDriver(i))) == lower(format))
                    drv = GDALGetDriver(i);
            if (!drv) {
                error = "--format '" + format + "': no such GDAL driver";
                return false;
            }
        } else if (!(drv = driver_for(dest, error))) {
            return false;
        }
        if (!GDALGetMetadataItem(drv, GDAL_DCAP_VECTOR, nullptr) ||
            !GDALGetMetadataItem(drv, GDAL_DCAP_CREATE, nullptr)) {
            error = format_name() + ": GDAL does not write vector data in this format";
            return false;
        }
        return true;
    }

    std::string format_name() const override { return drv ? GDALGetDriverShortName(drv) : ""; }

    void remove(const std::string& path) override {
        Quiet quiet;
        if (!drv || GDALDeleteDataset(drv, path.c_str()) != CE_None) std::remove(path.c_str());
    }

    bool create(const std::string& path, std::string& error) override {
        dest = path;
        ds = GDALCreate(drv, dest.c_str(), 0, 0, 0, GDT_Unknown, nullptr);
        if (!ds) error = last_gdal_error();
        return ds != nullptr;
    }

    bool add_layer(const std::string& layer_name, std::string& error) override {
        // FlatGeobuf drops features without geometry from a spatial index,
        // and these have none.
        char* layer_options[] = {const_cast<char*>("SPATIAL_INDEX=NO"), nullptr};
        layer = GDALDatasetCreateLayer(ds, layer_name.c_str(), nullptr, wkbNone,
                                       format_name() == "FlatGeobuf" ? layer_options : nullptr);
        if (!layer) {
            error = "cannot make a layer: " + last_gdal_error();
            return false;
        }
        return true;
    }

    bool add_field(const char* name, Export_type type, int width, int precision,
                   std::string& error) override {
        OGRFieldType t = OFTString;
        switch (type) {
            case Export_type::integer:
            case Export_type::boolean:
                t = OFTInteger;
                break;
            case Export_type::integer64:
                t = OFTInteger64;
                break;
            case Export_type::real:
                t = OFTReal;
                break;
            case Export_type::date:
                t = OFTDate;
                break;
            case Export_type::datetime:
                t = OFTDateTime;
                break;
            case Export_type::binary:
                t = OFTBinary;
                break;
            case Export_type::text:
                break;
        }
        OGRFieldDefnH d = OGR_Fld_Create(name ? name : "", t);
        if (type == Export_type::boolean) OGR_Fld_SetSubType(d, OFSTBoolean);
        if (width > 0) OGR_Fld_SetWidth(d, width);
        if (precision > 0) OGR_Fld_SetPrecision(d, precision);
        const OGRErr e = OGR_L_CreateField(layer, d, TRUE);
        OGR_Fld_Destroy(d);
        if (e != OGRERR_NONE) {
            error =
                std::string("cannot make field '") + (name ? name : "") + "': " + last_gdal_error();
            return false;
        }
        return true;
    }

    void begin() override {
        defn = OGR_L_GetLayerDefn(layer);
        transaction = GDALDatasetStartTransaction(ds, FALSE) == OGRERR_NONE;
    }

    void new_feature() override {
        if (feature) OGR_F_Destroy(feature);
        feature = OGR_F_Create(defn);
    }
    void set_null(int i) override { OGR_F_SetFieldNull(feature, i); }
    void set_integer(int i, int64_t v) override {
        OGR_F_SetFieldInteger64(feature, i, static_cast<GIntBig>(v));
    }
    void set_double(int i, double v) override { OGR_F_SetFieldDouble(feature, i, v); }
    void set_date(int i, int y, int m, int d) override {
        OGR_F_SetFieldDateTime(feature, i, y, m, d, 0, 0, 0, 0);
    }
    void set_bytes(int i, const void* bytes, size_t length) override {
        OGR_F_SetFieldBinary(feature, i, static_cast<int>(length),
                             static_cast<const GByte*>(bytes));
    }
    void set_text(int i, const char* utf8) override {
        OGR_F_SetFieldString(feature, i, utf8 ? utf8 : "");
    }
    bool write_feature(std::string& error) override {
        const OGRErr e = OGR_L_CreateFeature(layer, feature);
        OGR_F_Destroy(feature);
        feature = nullptr;
        if (e != OGRERR_NONE) {
            error = last_gdal_error();
            return false;
        }
        return true;
    }

    bool finish(uint64_t written, std::string& error) override {
        if (transaction && GDALDatasetCommitTransaction(ds) != OGRERR_NONE) {
            error = "cannot commit: " + last_gdal_error();
            abandon();
            return false;
        }
        GDALClose(ds);
        ds = nullptr;
        if (format_name() != "FlatGeobuf" || written == 0) return true;
        // Some versions of the driver keep no feature without geometry:
        // count what the file holds.
        GIntBig held = -1;
        {
            Quiet quiet;
            if (GDALDatasetH back =
                    GDALOpenEx(dest.c_str(), GDAL_OF_VECTOR, nullptr, nullptr, nullptr)) {
                if (OGRLayerH l = GDALDatasetGetLayer(back, 0))
                    held = OGR_L_GetFeatureCount(l, TRUE);
                GDALClose(back);
            }
        }
        if (held == static_cast<GIntBig>(written)) return true;
        remove(dest);
        error = std::string("this GDAL (") + GDALVersionInfo("RELEASE_NAME") + ") wrote " +
                std::to_string(held < 0 ? 0 : held) + " of " + std::to_string(written) +
                " records; its FlatGeobuf driver keeps no record without geometry";
        return false;
    }

    void abandon() override {
        if (feature) OGR_F_Destroy(feature);
        feature = nullptr;
        if (ds) GDALClose(ds);
        ds = nullptr;
        remove(dest);
    }

  private:
    GDALDriverH drv = nullptr;
    GDALDatasetH ds = nullptr;
    OGRLayerH layer = nullptr;
    OGRFeatureDefnH defn = nullptr;
    OGRFeatureH feature = nullptr;
    bool transaction = false;
    std::string dest;
};

}  // namespace

}  // namespace qzdbf

extern "C" __attribute__((visibility("default"))) qzdbf::Export_writer* qzdbf_export_writer_new(
    unsigned int version) {
    if (version != qzdbf::kExportWriterVersion) return nullptr;
    return new qzdbf::Gdal_writer();
}
