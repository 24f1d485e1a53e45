#include "ogr/ogr_table.h"

#include <climits>
#include <cstdio>
#include <cstring>

#include "code_page_text.h"
#include "encoding/encodings.h"
#include "ogr/gdal_session.h"
#include "support/strutil.h"

namespace {

constexpr unsigned int utf8_code_page = 65001;
constexpr unsigned int dos_code_page = 866;
const char empty_text[] = "";

// Table field type to OGR field type.
OGRFieldType ogr_field_type(Tqz_dbf_field_type t) {
    switch (t) {
        case dbf_ft_integer:
            return OFTInteger;
        case dbf_ft_numeric:
        case dbf_ft_float:
        case dbf_ft_double:
            return OFTReal;
        case dbf_ft_date:
            return OFTDateTime;
        case dbf_ft_memo:
            return OFTBinary;
        default:
            return OFTString;
    }
}

// OGR field type to table type; deliberately not the inverse of the above.
Tqz_dbf_field_type dbf_type(OGRFieldType t) {
    switch (t) {
        case OFTInteger:
            return dbf_ft_integer;
        case OFTReal:
            return dbf_ft_numeric;
        case OFTBinary:
            return dbf_ft_memo;
        default:
            return dbf_ft_char;
    }
}

std::string to_utf8(const wchar_t* w) {
    return w ? qz::basic::wide_to_cp(utf8_code_page, w, std::wcslen(w)) : std::string();
}

}  // namespace

Tqz_dbf_ogr::~Tqz_dbf_ogr() {
    close();
}

// ---- Opening and creating --------------------------------------------------

int Tqz_dbf_ogr::open(const char* path, bool read_only, bool dos) {
    close();
    if (!path || !*path) return 1;
    qz::ogr::ensure_registered();
    qz::ogr::Quiet_scope quiet;
    // Each table has its own data source (no shared open), so two handles on
    // one source never move each other's read position.
    ds = OGROpen(path, read_only ? 0 : 1, nullptr);
    if (!ds) return 1;
    if (OGR_DS_GetLayerCount(ds) <= 0 || !(layer = OGR_DS_GetLayer(ds, 0))) {
        close();
        return 1;
    }
    dos_flag = dos;
    return 0;
}

int Tqz_dbf_ogr::open(const wchar_t* path, bool read_only, bool dos) {
    return open(to_utf8(path).c_str(), read_only, dos);
}

int Tqz_dbf_ogr::create(const char* path, unsigned int nf, unsigned int nr, Tqz_dbf_field* fields,
                        bool dos) {
    close();
    if (!path || !*path) return 1;
    qz::ogr::ensure_registered();
    {
        qz::ogr::Quiet_scope quiet;
        OGRSFDriverH driver = OGRGetDriverByName("ESRI Shapefile");
        if (!driver) return 1;
        ds = OGR_Dr_CreateDataSource(driver, path, nullptr);
        if (!ds) ds = OGROpen(path, 1, nullptr);
        if (!ds) return 1;
        layer = OGR_DS_CreateLayer(ds, "dbf", nullptr, wkbNone, nullptr);
        if (!layer) {
            close();
            return 1;
        }
        for (unsigned int i = 0; fields && i < nf; ++i) {
            char name[12];
            std::memcpy(name, fields[i].name, 11);
            name[11] = 0;
            OGRFieldDefnH fd =
                OGR_Fld_Create(name, ogr_field_type(qz_char2dbftype(fields[i].type)));
            OGR_Fld_SetWidth(fd, fields[i].flen);
            OGR_Fld_SetPrecision(fd, fields[i].dlen);
            OGR_L_CreateField(layer, fd, 1);
            OGR_Fld_Destroy(fd);
        }
    }
    add_records(nr);
    dos_flag = dos;
    return 1;
}

int Tqz_dbf_ogr::create(const wchar_t* path, unsigned int nf, unsigned int nr,
                        Tqz_dbf_field* fields, bool dos) {
    return create(to_utf8(path).c_str(), nf, nr, fields, dos);
}

void Tqz_dbf_ogr::close() {
    drop_feature();
    if (ds) {
        qz::ogr::Quiet_scope quiet;
        OGRReleaseDataSource(ds);
    }
    ds = nullptr;
    layer = nullptr;
    next_index = -1;
    record_count = -1;
    read_end = -1;
}

const char* Tqz_dbf_ogr::driver_name() const {
    if (!ds) return empty_text;
    OGRSFDriverH d = OGR_DS_GetDriver(ds);
    const char* name = d ? OGR_Dr_GetName(d) : nullptr;
    return name ? name : empty_text;
}

// ---- Flags -------------------------------------------------------------------

void Tqz_dbf_ogr::set_dos_flag(bool on) {
    dos_flag = on;
    if (on) utf8_flag = false;
}

void Tqz_dbf_ogr::set_utf8_flag(bool on) {
    utf8_flag = on;
    if (on) dos_flag = false;
}

unsigned int Tqz_dbf_ogr::wide_code_page() const {
    return dos_flag && !utf8_flag ? dos_code_page : utf8_code_page;
}

// ---- Layers --------------------------------------------------------------------

unsigned int Tqz_dbf_ogr::get_nl() {
    if (!ds) return 0;
    int n = OGR_DS_GetLayerCount(ds);
    return n > 0 ? static_cast<unsigned int>(n) : 0;
}

unsigned int Tqz_dbf_ogr::get_layer() {
    unsigned int n = get_nl();
    for (unsigned int i = 0; i < n; ++i)
        if (OGR_DS_GetLayer(ds, static_cast<int>(i)) == layer) return i;
    return 0xFFFFFFFF;
}

void Tqz_dbf_ogr::get_layer_name(unsigned int index, Iqz_string_adp* adp) {
    if (!adp || index >= get_nl()) return;
    OGRLayerH l = OGR_DS_GetLayer(ds, static_cast<int>(index));
    const char* name = l ? OGR_L_GetName(l) : nullptr;
    if (!name) return;
    qz_string_adp_feed(adp, qz::basic::cp_to_wide(utf8_code_page, name, std::strlen(name)).c_str());
}

bool Tqz_dbf_ogr::set_layer(unsigned int index) {
    if (index >= get_nl()) return false;
    OGRLayerH l = OGR_DS_GetLayer(ds, static_cast<int>(index));
    if (!l) return false;
    if (l == layer) return true;
    drop_feature();
    layer = l;
    OGR_L_ResetReading(layer);
    next_index = 0;
    record_count = -1;
    read_end = -1;
    return true;
}

// ---- Counts and fields ---------------------------------------------------------

unsigned int Tqz_dbf_ogr::get_nf() {
    if (!layer) return 0;
    int n = OGR_FD_GetFieldCount(OGR_L_GetLayerDefn(layer));
    return n > 0 ? static_cast<unsigned int>(n) : 0;
}

unsigned int Tqz_dbf_ogr::get_nr() {
    if (!layer) return 0;
    if (record_count < 0) {
        qz::ogr::Quiet_scope quiet;
        GIntBig n = OGR_L_GetFeatureCount(layer, 1);
        record_count = n < 0 ? 0 : (n > UINT_MAX ? UINT_MAX : n);
    }
    return static_cast<unsigned int>(record_count);
}

OGRFieldDefnH Tqz_dbf_ogr::field_defn(unsigned int field) {
    if (field >= get_nf()) return nullptr;
    return OGR_FD_GetFieldDefn(OGR_L_GetLayerDefn(layer), static_cast<int>(field));
}

const char* Tqz_dbf_ogr::get_field_name(unsigned int field) {
    OGRFieldDefnH fd = field_defn(field);
    return fd ? OGR_Fld_GetNameRef(fd) : nullptr;
}

void Tqz_dbf_ogr::get_field_name(unsigned int field, Iqz_string_adp* adp) {
    const char* name = get_field_name(field);
    if (!name || !adp) return;
    qz_string_adp_feed(adp, qz::basic::cp_to_wide(utf8_code_page, name, std::strlen(name)).c_str());
}

void Tqz_dbf_ogr::set_field_name(unsigned int field, const char* name) {
    OGRFieldDefnH fd = field_defn(field);
    if (fd && name) OGR_Fld_SetName(fd, name);
}

void Tqz_dbf_ogr::set_field_name(unsigned int field, const wchar_t* name) {
    if (name) set_field_name(field, to_utf8(name).c_str());
}

Tqz_dbf_field_type Tqz_dbf_ogr::get_field_type(unsigned int field) {
    OGRFieldDefnH fd = field_defn(field);
    return fd ? dbf_type(OGR_Fld_GetType(fd)) : dbf_ft_unknown;
}

unsigned char Tqz_dbf_ogr::get_field_flen(unsigned int field) {
    OGRFieldDefnH fd = field_defn(field);
    if (!fd) return 0;
    int width = OGR_Fld_GetWidth(fd);
    if (width != 0) return static_cast<unsigned char>(width % 256);
    switch (OGR_Fld_GetType(fd)) {
        case OFTInteger:
            return 4;
        case OFTReal:
            return 10;
        default:
            return 255;
    }
}

char Tqz_dbf_ogr::get_field_dlen(unsigned int field) {
    OGRFieldDefnH fd = field_defn(field);
    if (!fd) return 0;
    int precision = OGR_Fld_GetPrecision(fd);
    if (precision != 0) return static_cast<char>(static_cast<signed char>(precision));
    return OGR_Fld_GetType(fd) == OFTReal ? 4 : 0;
}

unsigned int Tqz_dbf_ogr::find_field_index(const wchar_t* name) {
    if (!layer || !name) return 0xFFFFFFFF;
    int i = OGR_FD_GetFieldIndex(OGR_L_GetLayerDefn(layer), to_utf8(name).c_str());
    return i < 0 ? 0xFFFFFFFF : static_cast<unsigned int>(i);
}

unsigned int Tqz_dbf_ogr::get_record_size() {
    unsigned int size = 0;
    for (unsigned int i = 0, n = get_nf(); i < n; ++i) {
        int w = OGR_Fld_GetWidth(field_defn(i));
        if (w > 0) size += static_cast<unsigned int>(w);
    }
    return size;
}

const char* Tqz_dbf_ogr::get_format(unsigned int field) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%%%d.%dlf", static_cast<int>(get_field_flen(field)),
                  static_cast<int>(static_cast<signed char>(get_field_dlen(field))));
    format = buf;
    return format.c_str();
}

// ---- Records -----------------------------------------------------------------

void Tqz_dbf_ogr::add_records(unsigned int count) {
    if (!layer || count == 0) return;
    qz::ogr::Quiet_scope quiet;
    OGRFeatureDefnH defn = OGR_L_GetLayerDefn(layer);
    for (unsigned int i = 0; i < count; ++i) {
        OGRFeatureH f = OGR_F_Create(defn);
        const OGRErr err = OGR_L_CreateFeature(layer, f);
        OGR_F_Destroy(f);
        if (err != OGRERR_NONE) break;
    }
    // Writing may move the layer's read position; the count changed.
    next_index = -1;
    record_count = -1;
    read_end = -1;
}

void Tqz_dbf_ogr::drop_feature() {
    if (feature) OGR_F_Destroy(feature);
    feature = nullptr;
    feature_index = -1;
}

OGRFeatureH Tqz_dbf_ogr::find_feature(unsigned int record) {
    if (feature && static_cast<int64_t>(record) == feature_index) return feature;
    drop_feature();
    if (!layer || record > static_cast<unsigned int>(INT32_MAX) || record >= get_nr() ||
        (read_end >= 0 && static_cast<int64_t>(record) >= read_end))
        return nullptr;
    qz::ogr::Quiet_scope quiet;
    if (record == 0) {
        OGR_L_ResetReading(layer);
    } else if (static_cast<int64_t>(record) != next_index) {
        ++seeks;
        if (OGR_L_SetNextByIndex(layer, static_cast<GIntBig>(record)) != OGRERR_NONE) {
            next_index = -1;
            return nullptr;
        }
    }
    const bool in_order = static_cast<int64_t>(record) == next_index || record == 0;
    feature = OGR_L_GetNextFeature(layer);
    // Reading in order ran out before the count: drivers count records that
    // they skip when reading (a table's deleted records), and a seek by
    // index past this point would land on other features than reading in
    // order does. Records from here on are past the end.
    if (!feature && in_order) read_end = record;
    next_index = feature ? static_cast<int64_t>(record) + 1 : -1;
    if (feature) feature_index = static_cast<int32_t>(record);
    return feature;
}

OGRFeatureH Tqz_dbf_ogr::cell(unsigned int field, unsigned int record) {
    OGRFeatureH f = find_feature(record);
    if (!f || field >= static_cast<unsigned int>(OGR_F_GetFieldCount(f))) return nullptr;
    return f;
}

bool Tqz_dbf_ogr::field_has_value(OGRFeatureH f, unsigned int field) {
    return OGR_F_IsFieldSetAndNotNull(f, static_cast<int>(field)) != 0;
}

// ---- Values --------------------------------------------------------------------

const char* Tqz_dbf_ogr::get_as_string(unsigned int field, unsigned int record, bool& ok) {
    OGRFeatureH f = cell(field, record);
    if (!f) {
        ok = false;
        return empty_text;
    }
    ok = field_has_value(f, field);
    const char* s = OGR_F_GetFieldAsString(f, static_cast<int>(field));
    return s ? s : empty_text;
}

const wchar_t* Tqz_dbf_ogr::get_as_wstring(unsigned int field, unsigned int record,
                                           unsigned int& length, bool& ok, int encoding) {
    const char* s = get_as_string(field, record, ok);
    unsigned int cp = wide_code_page();
    if (encoding >= 0 && encoding < qz::strconv::encoding_count)
        cp = qz::strconv::encoding_table[encoding].code_page;
    wide = qz::basic::cp_to_wide(cp, s, std::strlen(s));
    length = static_cast<unsigned int>(wide.size());
    return wide.c_str();
}

const wchar_t* Tqz_dbf_ogr::get_as_wchar_t(unsigned int field, unsigned int record,
                                           unsigned int& length, bool& ok) {
    const char* s = get_as_string(field, record, ok);
    wide = qz::basic::cp_to_wide(wide_code_page(), s, std::strlen(s));
    length = static_cast<unsigned int>(wide.size());
    return wide.c_str();
}

int Tqz_dbf_ogr::get_as_integer(unsigned int field, unsigned int record, bool& ok) {
    OGRFeatureH f = cell(field, record);
    if (!f) {
        ok = false;
        return 0;
    }
    ok = field_has_value(f, field);
    return OGR_F_GetFieldAsInteger(f, static_cast<int>(field));
}

double Tqz_dbf_ogr::get_as_double(unsigned int field, unsigned int record, bool& ok) {
    OGRFeatureH f = cell(field, record);
    if (!f) {
        ok = false;
        return 0.0;
    }
    ok = field_has_value(f, field);
    return OGR_F_GetFieldAsDouble(f, static_cast<int>(field));
}

bool Tqz_dbf_ogr::get_as_bool(unsigned int field, unsigned int record, bool& ok) {
    return get_as_integer(field, record, ok) != 0;
}

bool Tqz_dbf_ogr::get_as_any(unsigned int, unsigned int record, Tqz_any*) {
    find_feature(record);
    return false;
}

const unsigned char* Tqz_dbf_ogr::get_memo_bytes(unsigned int field, unsigned int record, bool& ok,
                                                 unsigned int& length, unsigned int&) {
    static const unsigned char none[1] = {0};
    length = 0;
    OGRFeatureH f = cell(field, record);
    if (!f) {
        ok = false;
        return none;
    }
    ok = field_has_value(f, field);
    int n = 0;
    const GByte* bytes = OGR_F_GetFieldAsBinary(f, static_cast<int>(field), &n);
    if (!bytes || n <= 0) return none;
    length = static_cast<unsigned int>(n);
    return bytes;
}

bool Tqz_dbf_ogr::set_as_string(unsigned int field, unsigned int record, const char* value) {
    OGRFeatureH f = cell(field, record);
    if (!f) return false;
    qz::ogr::Quiet_scope quiet;  // a text that is no number is warned about
    OGR_F_SetFieldString(f, static_cast<int>(field), value ? value : "");
    return true;
}

bool Tqz_dbf_ogr::set_as_wchar_t(int field, int record, const wchar_t* value, unsigned int length) {
    if (field < 0 || record < 0) return false;
    size_t n = 0;
    while (value && n < length && value[n]) ++n;
    narrow = qz::basic::wide_to_cp(wide_code_page(), value, n);
    return set_as_string(static_cast<unsigned int>(field), static_cast<unsigned int>(record),
                         narrow.c_str());
}

bool Tqz_dbf_ogr::set_as_wstring(int field, int record, const wchar_t* value) {
    if (field < 0 || record < 0) return false;
    narrow = value ? qz::basic::wide_to_cp(wide_code_page(), value, std::wcslen(value)) : "";
    return set_as_string(static_cast<unsigned int>(field), static_cast<unsigned int>(record),
                         narrow.c_str());
}

bool Tqz_dbf_ogr::set_as_integer(unsigned int field, unsigned int record, int value) {
    OGRFeatureH f = cell(field, record);
    if (!f) return false;
    qz::ogr::Quiet_scope quiet;  // a text that is no number is warned about
    OGR_F_SetFieldInteger(f, static_cast<int>(field), value);
    return true;
}

bool Tqz_dbf_ogr::set_as_double(unsigned int field, unsigned int record, double value) {
    OGRFeatureH f = cell(field, record);
    if (!f) return false;
    qz::ogr::Quiet_scope quiet;  // a text that is no number is warned about
    OGR_F_SetFieldDouble(f, static_cast<int>(field), value);
    return true;
}

bool Tqz_dbf_ogr::set_as_bool(unsigned int field, unsigned int record, bool value) {
    return set_as_integer(field, record, value ? 1 : 0);
}

bool Tqz_dbf_ogr::set_as_any(unsigned int, unsigned int record, Tqz_any*) {
    return find_feature(record) != nullptr;
}

bool Tqz_dbf_ogr::find_value(unsigned int field, const char* value, unsigned int& record) {
    const std::string wanted = qz::strutil::trim(std::string(value ? value : ""));
    record = 0;
    if (field >= get_nf()) return false;
    for (unsigned int r = 0, n = get_nr(); r < n; ++r) {
        bool ok = false;
        const char* s = get_as_string(field, r, ok);
        if (!ok) continue;
        if (qz_text_icompare(qz::strutil::trim(std::string(s)).c_str(), wanted.c_str()) == 0) {
            record = r;
            return true;
        }
    }
    return false;
}
