// qzdbf export SRC.dbf DEST [--format NAME] [--encoding NAME] [--layer NAME]
//              [--with-deleted] [--overwrite] [--quiet]
//
// The table is read by this library, not by GDAL: its encoding is the one
// the library chooses (the .cpg file, the language driver, --encoding),
// memo fields give their text, FoxPro and dBASE 7 types their values, and
// records marked deleted are left out. The values go, feature by feature,
// through the export writer (export_writer.h, GDAL's C interface in a module
// loaded here) into a new layer without geometry of the format GDAL writes.
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "checked_open.h"
#include "cli.h"
#include "command.h"
#include "export_writer.h"
#include "import_export.h"
#include "progress.h"
#include "support/dynamic_module.h"
#include "table_values.h"

namespace qzdbf {

namespace {

// A new writer from the module qzdbf_export.so: beside the program (its
// build folder), then in <prefix>/lib/qzdbf once installed.
std::unique_ptr<Export_writer> load_writer(std::string& error) {
    const std::string folder = qz::support::folder_of_executable();
    std::vector<std::string> candidates;
    if (!folder.empty()) {
        candidates.push_back(folder + "/qzdbf_export.so");
        candidates.push_back(folder + "/../lib/qzdbf/qzdbf_export.so");
    }
    using make_fn = Export_writer* (*)(unsigned int);
    auto make = reinterpret_cast<make_fn>(
        qz::support::load_module_entry(candidates, "qzdbf_export_writer_new", error));
    std::unique_ptr<Export_writer> w(make ? make(kExportWriterVersion) : nullptr);
    if (make && !w) error = "qzdbf_export.so is of another version than this qzdbf";
    return w;
}

Export_type export_type(Value_class c, unsigned length) {
    switch (c) {
        case Value_class::integer:
            return length <= 9 ? Export_type::integer : Export_type::integer64;
        case Value_class::real:
            return Export_type::real;
        case Value_class::logical:
            return Export_type::boolean;
        case Value_class::date:
            return Export_type::date;
        case Value_class::datetime:
            return Export_type::datetime;
        case Value_class::bytes:
            return Export_type::binary;
        default:
            return Export_type::text;
    }
}

void set_value(Export_writer& w, int i, const Tqz_dbf_value& v) {
    switch (v.kind) {
        case QZ_DBF_VALUE_NULL:
            w.set_null(i);
            break;
        case QZ_DBF_VALUE_BOOL:
        case QZ_DBF_VALUE_INT:
            w.set_integer(i, v.i);
            break;
        case QZ_DBF_VALUE_DOUBLE:
        case QZ_DBF_VALUE_DECIMAL:
            w.set_double(i, v.d);
            break;
        case QZ_DBF_VALUE_DATE:
            w.set_date(i, static_cast<int>(v.i / 10000), static_cast<int>(v.i / 100 % 100),
                       static_cast<int>(v.i % 100));
            break;
        case QZ_DBF_VALUE_BYTES:
            w.set_bytes(i, v.text, v.length);
            break;
        case QZ_DBF_VALUE_DATETIME:
        case QZ_DBF_VALUE_TEXT:
        default:
            w.set_text(i, value_text(v).c_str());
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
    std::string error;
    std::unique_ptr<Export_writer> w = load_writer(error);
    if (!w) return fail(kIoError, "export is not available: " + error);
    if (!w->choose_format(o.format, o.destination, error)) return fail(kBadUsage, error);
    const std::string fmt = w->format_name();
    if (exists(o.destination) && !o.overwrite)
        return fail(kBadUsage, o.destination + ": already exists (--overwrite replaces it)");

    int status = kOk;
    Tqz_dbf_rw* t = open_table(o.source, Access::read, false, status);
    if (!t) return status;
    struct Closer {
        Tqz_dbf_rw* t;
        ~Closer() { qz_dbf_close(t); }
    } closer{t};
    if (!apply_encoding(t, o.encoding, status)) return status;

    if (exists(o.destination)) w->remove(o.destination);
    std::string layer_name = o.layer;
    if (layer_name.empty()) {
        const size_t slash = o.destination.find_last_of('/');
        layer_name = o.destination.substr(slash == std::string::npos ? 0 : slash + 1);
        const size_t dot = layer_name.find_last_of('.');
        if (dot != std::string::npos && dot > 0) layer_name.erase(dot);
    }
    // A half-written DEST goes.
    auto abandon = [&](const std::string& why) {
        w->abandon();
        return fail(kIoError, o.destination + ": " + why);
    };
    if (!w->create(o.destination, error)) return fail(kIoError, o.destination + ": " + error);
    if (!w->add_layer(layer_name, error)) return abandon(error);

    const unsigned int nf = qz_dbf_get_nf(t);
    for (unsigned int f = 0; f < nf; ++f) {
        const Value_class c = value_class(t, f);
        // dBASE 7 names keep all their (up to 31) characters.
        const char* name = qz_dbf_get_field_long_name(t, f);
        const int len = static_cast<int>(qz_dbf_get_field_flen(t, f));
        int width = 0, precision = 0;
        if (c == Value_class::real) {
            const int dec = qz_dbf_get_field_dlen(t, f);
            if (qz_dbf_get_field_type(t, f) != dbf_ft_double && dec > 0) {
                width = len;
                precision = dec;
            }
        } else if (c == Value_class::text && qz_dbf_get_field_type(t, f) == dbf_ft_char) {
            width = len;
        }
        if (!w->add_field(name ? name : "", export_type(c, qz_dbf_get_field_flen(t, f)), width,
                          precision, error))
            return abandon(error);
    }
    w->begin();
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
        w->new_feature();
        for (unsigned int f = 0; f < nf; ++f) {
            if (!qz_dbf_get_value(t, f, r, &v)) continue;
            set_value(*w, static_cast<int>(f), v);
        }
        if (!w->write_feature(error)) return abandon("record " + std::to_string(r) + ": " + error);
        ++written;
    }
    bar.finish();
    if (!w->finish(written, error)) return fail(kIoError, o.destination + ": " + error);
    if (!o.quiet && ::isatty(2))
        std::fprintf(stderr, "qzdbf: %llu records to %s (%s)\n", written, o.destination.c_str(),
                     fmt.c_str());
    return kOk;
}

}  // namespace qzdbf
