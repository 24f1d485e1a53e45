// qzdbf's import, export and stats commands: their options and entry points.
// Each entry point takes the options already parsed (by whatever parses the
// command line) and returns an exit status of cli.h.
#pragma once

#include <string>
#include <vector>

namespace qzdbf {

// qzdbf import SRC.csv DEST.dbf
struct Import_options {
    std::string source;       // the CSV file (UTF-8 text, a header row first)
    std::string destination;  // the table to make
    // NAME:TYPE:LEN[:DEC],... one per column, in order; empty: inferred.
    std::string fields;
    std::string encoding = "UTF-8";  // the table's text: UTF-8 or a single-byte one
    char delimiter = ',';
    bool overwrite = false;  // replace an existing DEST
    bool quiet = false;      // no progress bar, no notes on repaired names
};

// qzdbf export SRC.dbf DEST [--format NAME]
struct Export_options {
    std::string source;
    std::string destination;
    std::string format;    // a GDAL vector driver name; empty: by DEST's extension
    std::string encoding;  // the table's text encoding; empty: as the table says
    std::string layer;     // the layer's name; empty: DEST's base name
    bool overwrite = false;
    bool skip_deleted = true;  // records marked deleted are not exported
    bool quiet = false;
};

// qzdbf stats PATH
struct Stats_options {
    std::string path;
    bool json = false;
    std::string encoding;                // empty: as the table says
    unsigned long distinct_cap = 10000;  // distinct values counted up to this
    bool quiet = false;
};

int run_import(const Import_options& options);
int run_export(const Export_options& options);
int run_stats(const Stats_options& options);

// Parsers of the hand-written command line (until the commands move to the
// shared parser): the arguments after the command's name.
int cmd_import(const std::vector<std::string>& args);
int cmd_export(const std::vector<std::string>& args);
int cmd_stats(const std::vector<std::string>& args);

// The usage lines of the three commands, for the tool's help.
extern const char kImportExportUsage[];

}  // namespace qzdbf
