// Tqz_dbf_ogr: a table over any vector source GDAL's OGR reads (GeoPackage,
// GeoJSON, CSV, a shapefile's attributes, ...). Records are the features of
// the current layer, fields its attribute fields; every value goes through
// OGR's own field getters and setters.
//
// Text: GDAL hands out UTF-8 for nearly every driver (it recodes a
// shapefile's .dbf from its code page itself), and the narrow getters return
// its text as it is. The wide getters and setters convert in the code page
// of the table's flags: UTF-8 with the UTF-8 flag, CP866 with the DOS flag,
// and UTF-8 when neither is set. get_as_wstring converts in the code page of
// the encoding it is given. Paths, field and layer names reach GDAL as UTF-8.
//
// Values: the setters change the feature cached in memory only; nothing is
// written back to the layer, so a set value reads back until another record
// is fetched. add_records (and create) do write through OGR.
#pragma once

#include <ogr_api.h>

#include <cstdint>
#include <string>

#include "ogr/ogr_module.h"

class Tqz_dbf_ogr final : public Tqz_dbf_ogr_source {
  public:
    Tqz_dbf_ogr() = default;
    ~Tqz_dbf_ogr() override;
    Tqz_dbf_ogr(const Tqz_dbf_ogr&) = delete;
    Tqz_dbf_ogr& operator=(const Tqz_dbf_ogr&) = delete;

    // 0 on success; 1 for an empty path, a source OGR cannot open, or one
    // without layers. Layer 0 becomes current.
    int open(const char* path, bool read_only, bool dos) override;
    int open(const wchar_t* path, bool read_only, bool dos) override;
    // A shapefile attribute table (layer "dbf", no geometry) with `nf` fields
    // and `nr` empty records. Always returns 1, success included.
    int create(const char* path, unsigned int nf, unsigned int nr, Tqz_dbf_field* fields, bool dos);
    int create(const wchar_t* path, unsigned int nf, unsigned int nr, Tqz_dbf_field* fields,
               bool dos);
    void close() override;

    bool is_open() const override { return ds != nullptr; }
    // OGR's name of the driver serving the source ("GPKG", "CSV", ...), or
    // "" while closed.
    const char* driver_name() const override;
    // The sum of all field widths of the current layer.
    unsigned int get_record_size();

    bool get_dos_flag() override { return dos_flag; }
    void set_dos_flag(bool on) override;
    bool get_utf8_flag() override { return utf8_flag; }
    void set_utf8_flag(bool on) override;

    unsigned int get_nl() override;
    unsigned int get_nf() override;
    unsigned int get_nr() override;
    unsigned int get_layer() override;
    void get_layer_name(unsigned int layer, Iqz_string_adp* adp) override;
    bool set_layer(unsigned int layer) override;

    const char* get_field_name(unsigned int field) override;
    void get_field_name(unsigned int field, Iqz_string_adp* adp) override;
    void set_field_name(unsigned int field, const char* name) override;
    void set_field_name(unsigned int field, const wchar_t* name) override;
    Tqz_dbf_field_type get_field_type(unsigned int field) override;
    unsigned char get_field_flen(unsigned int field) override;
    char get_field_dlen(unsigned int field) override;
    unsigned int find_field_index(const wchar_t* name) override;
    const char* get_format(unsigned int field) override;

    void add_records(unsigned int count) override;
    bool restruct(void*) override { return false; }

    const char* get_as_string(unsigned int field, unsigned int record, bool& ok) override;
    const wchar_t* get_as_wstring(unsigned int field, unsigned int record, unsigned int& length,
                                  bool& ok, int encoding) override;
    const wchar_t* get_as_wchar_t(unsigned int field, unsigned int record, unsigned int& length,
                                  bool& ok) override;
    int get_as_integer(unsigned int field, unsigned int record, bool& ok) override;
    double get_as_double(unsigned int field, unsigned int record, bool& ok) override;
    bool get_as_bool(unsigned int field, unsigned int record, bool& ok) override;
    bool get_as_any(unsigned int field, unsigned int record, Tqz_any* value) override;
    const unsigned char* get_memo_bytes(unsigned int field, unsigned int record, bool& ok,
                                        unsigned int& length, unsigned int& type) override;

    bool set_as_string(unsigned int field, unsigned int record, const char* value) override;
    bool set_as_wchar_t(int field, int record, const wchar_t* value, unsigned int length) override;
    bool set_as_wstring(int field, int record, const wchar_t* value) override;
    bool set_as_integer(unsigned int field, unsigned int record, int value) override;
    bool set_as_double(unsigned int field, unsigned int record, double value) override;
    bool set_as_bool(unsigned int field, unsigned int record, bool value) override;
    bool set_as_any(unsigned int field, unsigned int record, Tqz_any* value) override;

    // The first record whose value of `field`, trimmed, equals `value`,
    // trimmed, without regard to letter case; unset values never match.
    bool find_value(unsigned int field, const char* value, unsigned int& record) override;
    void begin_fast_find(unsigned int) override {}
    bool find_value_fast(const char*, unsigned int&) override { return false; }
    void end_fast_find() override {}

    // The feature of `record` in the current layer, cached until another
    // record is asked for; null past the end. Reading 0, 1, 2, ... in order
    // costs one OGR_L_GetNextFeature per record and no seek.
    OGRFeatureH find_feature(unsigned int record);
    // How many times the read position was moved by index (a test's view of
    // the sequential fast path).
    uint64_t seek_count() const { return seeks; }

  private:
    // The definition of `field` in the current layer, or null.
    OGRFieldDefnH field_defn(unsigned int field);
    // The cached feature of `record` when `field` is one of its fields.
    OGRFeatureH cell(unsigned int field, unsigned int record);
    bool field_has_value(OGRFeatureH f, unsigned int field);
    void drop_feature();
    // The code page of the wide getters and setters, from the flags.
    unsigned int wide_code_page() const;

    OGRDataSourceH ds = nullptr;
    OGRLayerH layer = nullptr;
    OGRFeatureH feature = nullptr;  // owned
    int32_t feature_index = -1;
    bool dos_flag = false;
    bool utf8_flag = false;
    std::string format;
    std::wstring wide;

    // The record the layer's next OGR_L_GetNextFeature returns, −1 when not
    // known; the layer's feature count, −1 until asked.
    int64_t next_index = -1;
    int64_t record_count = -1;
    // The first record that reading in order found missing, −1 until then.
    int64_t read_end = -1;
    uint64_t seeks = 0;
    std::string narrow;  // scratch for wide setters and names
};
