// qzdbf: dBASE tables at the terminal.
#include <clocale>
#include <cstdio>
#include <cstring>
#include <string>

#include "cli.h"
#include "import_export.h"
#include "qzk_file_dbf.h"

namespace qzdbf {

int fail(int status, const std::string& message) {
    std::fprintf(stderr, "qzdbf: %s\n", message.c_str());
    return status;
}

bool parse_count(const std::string& text, unsigned long long max, unsigned long long& out) {
    if (text.empty() || text.size() > 20) return false;
    unsigned long long v = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        unsigned d = static_cast<unsigned>(c - '0');
        if (d > max || v > (max - d) / 10) return false;
        v = v * 10 + d;
    }
    out = v;
    return true;
}

}  // namespace qzdbf

namespace {

const char kUsage[] =
    "usage: qzdbf COMMAND ...\n"
    "\n"
    "  create PATH FIELD:TYPE:LEN[:DEC]... [--records N] [--dos|--utf8] [--overwrite]\n"
    "         [--fix-names]\n"
    "      create a table; TYPE is one of C N F L D I B M P (M and P also get\n"
    "      an empty memo file); an existing file is replaced only with --overwrite.\n"
    "      Field names must follow the rules (see names); --fix-names repairs\n"
    "      those that do not\n"
    "  info PATH [--layer N]\n"
    "      print the table's version, date, counts, lengths, encoding and fields\n"
    "  dump PATH [--layer N] [--csv] [--raw] [--from N] [--count N] [--skip-deleted]\n"
    "      print records (from record N, N records) as columns, or as CSV;\n"
    "      memo fields show their text, or with --raw their block numbers;\n"
    "      deleted records are marked * (a deleted column in CSV)\n"
    "  get PATH FIELD RECORD\n"
    "      print one value; FIELD is a name or an index, records count from 0\n"
    "  set PATH FIELD RECORD VALUE [--truncate] [--raw]\n"
    "      write one value, checked whole first (dates as YYYYMMDD or YYYY-MM-DD);\n"
    "      --truncate cuts text too long for the field between characters;\n"
    "      --raw writes a block number into a memo cell\n"
    "  append PATH [N]\n"
    "      add N blank records (default 1)\n"
    "  edit PATH\n"
    "      load the table into memory and change it with commands read from\n"
    "      standard input: set FIELD RECORD VALUE, add, ins RECORD, del RECORD,\n"
    "      delmask RECORD..., undo, redo, save, show [FROM [COUNT]],\n"
    "      alter OPTIONS (as for alter), help, quit\n"
    "  alter PATH [--add NAME:TYPE:LEN[:DEC]] [--drop NAME] [--rename OLD=NEW]\n"
    "            [--retype NAME:TYPE:LEN[:DEC]] [--move NAME=INDEX]...\n"
    "      change the table's fields, several in one rewrite, keeping its records;\n"
    "      prints the old and the new layout\n"
    "  pack PATH\n"
    "      remove for good the records whose deletion flag is set\n"
    "  delete PATH RECORD...\n"
    "      remove the named records for good (the table is rewritten)\n"
    "  names PATH\n"
    "      list the fields whose names break the rules (1 to 10 of A-Z 0-9 _,\n"
    "      a letter first, none alike in any case) with their repair; exit 1\n"
    "      when there are some, 3 when the table cannot be read\n"
    "  watch PATH\n"
    "      print a line (time and kind) for each update event of the table,\n"
    "      whoever changes it, until interrupted\n"
    "  check PATH...\n"
    "      print what is wrong with each file (header, fields, records, memo\n"
    "      file, values); exit status 1 when anything is found\n"
    "%s"
    "\n"
    "Every command checks the file first: what is not a dBASE table is\n"
    "refused (exit status 2) and left untouched; --force reads it anyway.\n"
    "Values are checked before anything is written (exit status 2, table\n"
    "unchanged); a locked, read-only or unreadable file gives exit status 3.\n"
    "\n"
    "Text is read and printed in the terminal's encoding (LC_ALL / LANG).\n";

}  // namespace

int main(int argc, char** argv) {
    // System text follows the terminal's locale.
    std::setlocale(LC_ALL, "");
    if (argc < 2) {
        std::fprintf(stderr, kUsage, qzdbf::kImportExportUsage);
        return qzdbf::kBadUsage;
    }
    std::string command = argv[1];
    qzdbf::Args args(argv + 2, argv + argc);
    if (command == "-h" || command == "--help" || command == "help") {
        std::printf(kUsage, qzdbf::kImportExportUsage);
        return qzdbf::kOk;
    }
    if (command == "create") return qzdbf::cmd_create(args);
    if (command == "info") return qzdbf::cmd_info(args);
    if (command == "dump") return qzdbf::cmd_dump(args);
    if (command == "get") return qzdbf::cmd_get(args);
    if (command == "set") return qzdbf::cmd_set(args);
    if (command == "append") return qzdbf::cmd_append(args);
    if (command == "edit") return qzdbf::cmd_edit(args);
    if (command == "alter") return qzdbf::cmd_alter(args);
    if (command == "watch") return qzdbf::cmd_watch(args);
    if (command == "pack") return qzdbf::cmd_pack(args);
    if (command == "delete") return qzdbf::cmd_delete(args);
    if (command == "names") return qzdbf::cmd_names(args);
    if (command == "check") return qzdbf::cmd_check(args);
    if (command == "import") return qzdbf::cmd_import(args);
    if (command == "export") return qzdbf::cmd_export(args);
    if (command == "stats") return qzdbf::cmd_stats(args);
    std::fprintf(stderr, kUsage, qzdbf::kImportExportUsage);
    return qzdbf::fail(qzdbf::kBadUsage, "unknown command '" + command + "'");
}
