// The command lines of import, export and stats, declared for the shared
// parser; the commands themselves take their options from import_export.h.
#include <memory>
#include <string>

#include "command.h"
#include "import_export.h"

namespace qzdbf {

Runner setup_import(CLI::App& cmd) {
    auto o = std::make_shared<Import_options>();
    auto delimiter = std::make_shared<std::string>(",");
    cmd.add_option("SRC", o->source, "the CSV file (UTF-8, RFC 4180, a header row)")->required();
    cmd.add_option("DEST", o->destination, "the table to make (.dbf)")->required();
    cmd.add_option("--fields", o->fields,
                   "the fields, one a column in order (default: inferred from the values)")
        ->type_name("NAME:TYPE:LEN[:DEC],...");
    cmd.add_option("--encoding", o->encoding,
                   "the table's text: UTF-8 (default) or a single-byte encoding (CP1251, CP866, "
                   "CP1252, ISO-8859-2, KOI8-R, ...), named in its .cpg")
        ->type_name("NAME");
    cmd.add_option("--delimiter", *delimiter, "the character between cells (or 'tab')")
        ->type_name("C");
    cmd.add_flag("--overwrite", o->overwrite, "replace an existing DEST");
    cmd.add_flag("--quiet", o->quiet, "no progress bar, no notes on repaired names");
    cmd.footer(
        "Types are inferred from the non-empty cells of a column: all T/F/true/false\n"
        "make L(1); all YYYY-MM-DD dates D(8); all numbers -?(0|[1-9][0-9]*)(.[0-9]+)?\n"
        "N with the widest integer part and the most decimals (more than 15 digits,\n"
        "-0 and leading zeros stay text); anything else C, as long as the longest\n"
        "cell in the table's encoding (at most 254 bytes). Header names are repaired\n"
        "into valid field names.\n\n"
        "A value that does not fit or a row with the wrong number of cells stops the\n"
        "import (exit status 2, with the line) and no table is made.\n\n" +
        cmd.get_footer());
    return [o, delimiter] {
        std::string d = *delimiter;
        if (d == "\\t" || d == "tab") d = "\t";
        if (d.size() != 1 || d == "\"" || d == "\n" || d == "\r")
            return fail(kBadUsage, "--delimiter is one character (or 'tab'), not a quote");
        o->delimiter = d[0];
        return run_import(*o);
    };
}

Runner setup_export(CLI::App& cmd) {
    auto o = std::make_shared<Export_options>();
    auto with_deleted = std::make_shared<bool>(false);
    cmd.add_option("SRC", o->source, "the table (.dbf)")->required();
    cmd.add_option("DEST", o->destination,
                   "the file to write; its extension chooses the format (.gpkg, .csv, .geojson, "
                   ".fgb, .xlsx, ...)")
        ->required();
    cmd.add_option("--format", o->format, "a GDAL vector driver name (GPKG, CSV, GeoJSON, ...)")
        ->type_name("NAME");
    add_encoding_option(cmd, o->encoding);
    cmd.add_option("--layer", o->layer, "the layer's name (default: DEST's base name)")
        ->type_name("NAME");
    cmd.add_flag("--with-deleted", *with_deleted, "export the records marked deleted too");
    cmd.add_flag("--overwrite", o->overwrite, "replace an existing DEST");
    cmd.add_flag("--quiet", o->quiet, "no progress bar");
    return [o, with_deleted] {
        o->skip_deleted = !*with_deleted;
        return run_export(*o);
    };
}

Runner setup_stats(CLI::App& cmd) {
    auto o = std::make_shared<Stats_options>();
    cmd.add_option("PATH", o->path, "the table")->required();
    cmd.add_flag("--json", o->json, "one JSON object a field");
    add_encoding_option(cmd, o->encoding);
    cmd.add_option("--cap", o->distinct_cap, "count distinct values up to N (default 10000)")
        ->type_name("N")
        ->check(CLI::Range(1ul, 100000000ul));
    cmd.add_flag("--quiet", o->quiet, "no progress bar");
    return [o] { return run_stats(*o); };
}

}  // namespace qzdbf
