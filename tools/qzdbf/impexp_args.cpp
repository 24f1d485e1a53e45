// The command lines of import, export and stats, read into their options.
#include <string>
#include <vector>

#include "cli.h"
#include "import_export.h"

namespace qzdbf {

const char kImportExportUsage[] =
    "  import SRC.csv DEST.dbf [--fields NAME:TYPE:LEN[:DEC],...] [--encoding NAME]\n"
    "         [--delimiter C] [--overwrite] [--quiet]\n"
    "      make a table from a CSV file (UTF-8, RFC 4180, a header row naming the\n"
    "      columns); field types and sizes are inferred from the values unless\n"
    "      --fields gives them; --encoding is the table's: UTF-8 (default), or a\n"
    "      single-byte one (CP1251, CP866, CP1252, ISO-8859-2, ...). A value that\n"
    "      does not fit or a row with the wrong number of cells stops the import\n"
    "      (exit 2, with the line) and no table is made\n"
    "  export SRC.dbf DEST [--format NAME] [--encoding NAME] [--layer NAME]\n"
    "         [--with-deleted] [--overwrite] [--quiet]\n"
    "      write the table to any vector format GDAL writes (GPKG, CSV, GeoJSON,\n"
    "      FlatGeobuf, XLSX, ...), chosen by DEST's extension or --format\n"
    "  stats PATH [--json] [--encoding NAME] [--cap N]\n"
    "      per field: values, blanks, min, max and distinct values (counted up\n"
    "      to N, default 10000)\n";

namespace {

// Takes the value of option `a` at args[i + 1]; false when there is none.
bool value_of(const std::vector<std::string>& args, size_t& i, std::string& out) {
    if (i + 1 >= args.size()) return false;
    out = args[++i];
    return true;
}

}  // namespace

int cmd_import(const std::vector<std::string>& args) {
    Import_options o;
    std::vector<std::string> paths;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        std::string v;
        if (a == "--fields" || a == "--encoding" || a == "--delimiter") {
            if (!value_of(args, i, v)) return fail(kBadUsage, a + " needs a value");
            if (a == "--fields") {
                o.fields = v;
            } else if (a == "--encoding") {
                o.encoding = v;
            } else {
                if (v == "\\t" || v == "tab") v = "\t";
                if (v.size() != 1 || v == "\"" || v == "\n" || v == "\r")
                    return fail(kBadUsage, "--delimiter is one character (or 'tab'), not a quote");
                o.delimiter = v[0];
            }
        } else if (a == "--overwrite") {
            o.overwrite = true;
        } else if (a == "--quiet") {
            o.quiet = true;
        } else if (a.size() > 1 && a[0] == '-') {
            return fail(kBadUsage, "unknown option '" + a + "'");
        } else {
            paths.push_back(a);
        }
    }
    if (paths.size() != 2) return fail(kBadUsage, "import needs SRC.csv and DEST.dbf");
    o.source = paths[0];
    o.destination = paths[1];
    return run_import(o);
}

}  // namespace qzdbf

namespace qzdbf {

int cmd_export(const std::vector<std::string>& args) {
    Export_options o;
    std::vector<std::string> paths;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        std::string v;
        if (a == "--format" || a == "--encoding" || a == "--layer") {
            if (!value_of(args, i, v)) return fail(kBadUsage, a + " needs a value");
            (a == "--format" ? o.format : a == "--encoding" ? o.encoding : o.layer) = v;
        } else if (a == "--overwrite") {
            o.overwrite = true;
        } else if (a == "--with-deleted") {
            o.skip_deleted = false;
        } else if (a == "--quiet") {
            o.quiet = true;
        } else if (a.size() > 1 && a[0] == '-') {
            return fail(kBadUsage, "unknown option '" + a + "'");
        } else {
            paths.push_back(a);
        }
    }
    if (paths.size() != 2) return fail(kBadUsage, "export needs SRC.dbf and DEST");
    o.source = paths[0];
    o.destination = paths[1];
    return run_export(o);
}

int cmd_stats(const std::vector<std::string>& args) {
    Stats_options o;
    std::vector<std::string> paths;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        std::string v;
        if (a == "--encoding") {
            if (!value_of(args, i, o.encoding)) return fail(kBadUsage, a + " needs a value");
        } else if (a == "--cap") {
            unsigned long long cap = 0;
            if (!value_of(args, i, v) || !parse_count(v, 100000000, cap) || cap == 0)
                return fail(kBadUsage, "--cap needs a whole number from 1 to 100000000");
            o.distinct_cap = static_cast<unsigned long>(cap);
        } else if (a == "--json") {
            o.json = true;
        } else if (a == "--quiet") {
            o.quiet = true;
        } else if (a.size() > 1 && a[0] == '-') {
            return fail(kBadUsage, "unknown option '" + a + "'");
        } else {
            paths.push_back(a);
        }
    }
    if (paths.size() != 1) return fail(kBadUsage, "stats takes one PATH");
    o.path = paths[0];
    return run_stats(o);
}

}  // namespace qzdbf
