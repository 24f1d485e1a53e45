// The command line of qzdbf: commands, --help, --version and errors.
#include "command.h"

#include <cstdio>

#include "checked_open.h"
#include "qzk_file_dbf_ext.h"

namespace qzdbf {

namespace {

const char kFooter[] =
    "Exit status: 0 done; 1 findings (check, names) or a value that is not\n"
    "there; 2 bad input or usage (a wrong argument, a file that is not a\n"
    "dBASE table, a value the field refuses; nothing is written); 3 an I/O\n"
    "failure (the table is locked, read-only or cannot be read or written).\n"
    "\n"
    "Every command checks the file first: what is not a dBASE table is refused\n"
    "and left untouched; --force reads it anyway. Text is printed in the\n"
    "terminal's encoding (LC_ALL / LANG). 'qzdbf COMMAND --help' lists the\n"
    "options of a command.";

// A parse error as one line that names what is wrong, and the usage status.
int usage_error(const CLI::ParseError& e) {
    std::fprintf(stderr, "qzdbf: %s\n", e.what());
    std::fputs("Run 'qzdbf --help' or 'qzdbf COMMAND --help' for the options.\n", stderr);
    return kBadUsage;
}

// --help and --version print to standard output and end with status 0.
int parse_outcome(CLI::App& app, const CLI::ParseError& e) {
    if (e.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
        app.exit(e);
        return kOk;
    }
    return usage_error(e);
}

}  // namespace

Command_line::Command_line()
    : app_("qzdbf: dBASE tables (.dbf with .dbt/.fpt memo files) at the terminal", "qzdbf") {
    app_.set_version_flag("-V,--version", std::string("qzdbf ") + qz_dbf_version());
    app_.footer(kFooter);
    app_.require_subcommand(1);
    app_.fallthrough(false);
    app_.get_formatter()->column_width(28);
}

void Command_line::add_command(const char* name, const char* summary, Setup setup) {
    CLI::App* cmd = app_.add_subcommand(name, summary);
    cmd->footer(kFooter);
    Runner runner = setup(*cmd);
    cmd->callback([this, runner] { chosen_ = runner; });
}

void Command_line::add_command(const char* name, const char* summary,
                               int (*run)(const Args& args)) {
    CLI::App* cmd = app_.add_subcommand(name, summary);
    cmd->footer(kFooter);
    cmd->allow_extras();
    cmd->prefix_command();
    cmd->callback([this, cmd, run] {
        const Args args = cmd->remaining();
        chosen_ = [run, args] { return run(args); };
    });
}

int Command_line::run(int argc, char** argv) {
    if (argc < 2) {
        std::fputs(app_.help().c_str(), stderr);
        return kBadUsage;
    }
    const std::string first = argv[1];
    if (!first.empty() && first[0] != '-') {
        bool known = false;
        const CLI::App& app = app_;
        for (const CLI::App* cmd : app.get_subcommands([](const CLI::App*) { return true; }))
            known = known || cmd->check_name(first);
        if (!known)
            return fail(kBadUsage, "unknown command '" + first + "' (qzdbf --help lists them)");
    }
    try {
        app_.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return parse_outcome(app_, e);
    }
    return chosen_ ? chosen_() : kBadUsage;
}

int run_command(const char* name, Setup setup, const Args& args) {
    CLI::App app(std::string("qzdbf ") + name, std::string("qzdbf ") + name);
    Runner runner = setup(app);
    std::vector<std::string> reversed(args.rbegin(), args.rend());
    try {
        app.parse(reversed);
    } catch (const CLI::ParseError& e) {
        return parse_outcome(app, e);
    }
    return runner();
}

void add_read_options(CLI::App& cmd, Read_options& o, bool layers) {
    cmd.add_option("PATH", o.path, "the table (.dbf)")->required();
    if (layers)
        cmd.add_option("--layer", o.layer, "the layer N of a source OGR reads (counted from 0)")
            ->type_name("N");
    add_encoding_option(cmd, o.encoding);
    cmd.add_flag("--force", o.force, "read a file that fails the check anyway");
}

void add_encoding_option(CLI::App& cmd, std::string& encoding) {
    cmd.add_option("--encoding", encoding,
                   "the table's text is in this encoding (any name iconv knows: CP1252, "
                   "ISO-8859-2, KOI8-R, UTF-8...), whatever the .cpg file or the language "
                   "driver say")
        ->type_name("NAME");
}

bool apply_encoding(Tqz_dbf_rw* t, const std::string& encoding, int& status) {
    if (encoding.empty() || qz_dbf_set_encoding(t, encoding.c_str())) return true;
    status = fail(kBadUsage, "--encoding: no encoding named '" + encoding + "'");
    return false;
}

Tqz_dbf_rw* open_for_reading(const Read_options& o, int& status) {
    Tqz_dbf_rw* t = open_table(o.path, Access::read, o.force, status);
    if (!t) return nullptr;
    std::string error;
    if (!o.layer.empty() && !select_layer(t, o.layer, error)) {
        qz_dbf_close(t);
        status = fail(kBadUsage, "--layer: " + error);
        return nullptr;
    }
    if (!apply_encoding(t, o.encoding, status)) {
        qz_dbf_close(t);
        return nullptr;
    }
    return t;
}

}  // namespace qzdbf
