// qzdbf: dBASE tables at the terminal.
#include <clocale>
#include <cstdio>
#include <string>

#include "cli.h"
#include "command.h"

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

int main(int argc, char** argv) {
    // System text follows the terminal's locale.
    std::setlocale(LC_ALL, "");
    using namespace qzdbf;
    Command_line line;
    line.add_command("create", "create a table", setup_create);
    line.add_command("info", "print the table's dialect, counts, encoding and fields", setup_info);
    line.add_command("dump", "print records as columns, lines, CSV or JSON Lines", setup_dump);
    line.add_command("get", "print values of one record or of the records that match", setup_get);
    line.add_command("set", "write one value, checked whole first", setup_set);
    line.add_command("append", "add blank records", setup_append);
    line.add_command("edit", "change a table loaded into memory, command by command", setup_edit);
    line.add_command("alter", "change the table's fields, keeping its records", setup_alter);
    line.add_command("pack", "remove for good the records marked deleted", setup_pack);
    line.add_command("delete", "remove the named records for good", setup_delete);
    line.add_command("names", "list the field names that break the rules", setup_names);
    line.add_command("watch", "print the table's update events until interrupted", setup_watch);
    line.add_command("check", "print what is wrong with each file", setup_check);
    line.add_command("import", "make a table from a CSV file", setup_import);
    line.add_command("export", "write the table to a vector format GDAL writes", setup_export);
    line.add_command("stats", "per field: values, blanks, min, max, distinct values", setup_stats);
    return line.run(argc, argv);
}
