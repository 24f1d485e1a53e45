// The GDAL side of `qzdbf export`: a new layer without geometry in a vector
// format GDAL writes, fed feature by feature. It is built into the module
// qzdbf_export.so, which the tool loads when export runs, so that no other
// command loads GDAL and its libraries.
//
// The tool and the module are built together from these sources; the
// version below is bumped whenever this interface changes, and a module of
// another version is not used.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace qzdbf {

constexpr unsigned int kExportWriterVersion = 1;

// The field types the writer makes.
enum class Export_type { text, integer, integer64, real, boolean, date, datetime, binary };

class Export_writer {
  public:
    virtual ~Export_writer() = default;

    // Picks the format: GDAL's driver `format` (by name, in any letter
    // case) when given, else the one that writes files of `dest`'s
    // extension. False, with `error`, when there is none or it does not
    // write vector data.
    virtual bool choose_format(const std::string& format, const std::string& dest,
                               std::string& error) = 0;
    // The short name of the chosen driver ("GPKG", "CSV", ...).
    virtual std::string format_name() const = 0;
    // Removes `dest` as the chosen driver deletes its files (a plain file
    // removal when the driver cannot).
    virtual void remove(const std::string& dest) = 0;

    // Makes `dest`; false with GDAL's reason (nothing is left to remove).
    virtual bool create(const std::string& dest, std::string& error) = 0;
    // Makes the one layer of `dest`; false with GDAL's reason.
    virtual bool add_layer(const std::string& name, std::string& error) = 0;
    // Adds a field; `width` and `precision` 0 leave the driver's defaults.
    virtual bool add_field(const char* name, Export_type type, int width, int precision,
                           std::string& error) = 0;
    // Starts writing features (in one transaction where the format has them).
    virtual void begin() = 0;

    // A feature: new_feature, the set_* of its fields by index, then
    // write_feature. Fields not set stay unset.
    virtual void new_feature() = 0;
    virtual void set_null(int field) = 0;
    virtual void set_integer(int field, int64_t value) = 0;
    virtual void set_double(int field, double value) = 0;
    virtual void set_date(int field, int year, int month, int day) = 0;
    virtual void set_bytes(int field, const void* bytes, size_t length) = 0;
    virtual void set_text(int field, const char* utf8) = 0;
    virtual bool write_feature(std::string& error) = 0;

    // Commits and closes `dest`, then checks it holds `written` features
    // where a driver is known to drop some. False with the reason; `dest` is
    // then removed.
    virtual bool finish(uint64_t written, std::string& error) = 0;
    // Closes and removes a half-written `dest`.
    virtual void abandon() = 0;
};

}  // namespace qzdbf

extern "C" {
// The module's one export: a new writer, or null when the module is not of
// `version`.
qzdbf::Export_writer* qzdbf_export_writer_new(unsigned int version);
}
