// How qzdbf's commands are declared: each command file provides a setup
// function that declares the command's arguments and options on a CLI11
// subcommand and returns what runs the command once they are parsed.
//
//     Runner setup_info(CLI::App& cmd) {
//         auto o = std::make_shared<Info_options>();
//         cmd.add_option("PATH", o->path, "the table")->required();
//         return [o] { return run_info(*o); };
//     }
//
// main.cpp adds each command with one call: add_command(app, "info", "...",
// setup_info).
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "cli.h"

namespace qzdbf {

// Runs a command whose arguments were parsed; an exit status.
using Runner = std::function<int()>;
// Declares a command's arguments and options on `cmd`.
using Setup = Runner (*)(CLI::App& cmd);

// The tool's command line, with its commands added one call each.
class Command_line {
  public:
    Command_line();
    // Adds the command `name` (a line of help: `summary`).
    void add_command(const char* name, const char* summary, Setup setup);
    // Adds a command that reads its arguments itself (all of them, after the
    // command's name, as `args`): its --help shows only the summary.
    void add_command(const char* name, const char* summary, int (*run)(const Args& args));
    // Parses the command line and runs the command it names; an exit status
    // (0 for --help and --version; 2 for a command line that is wrong).
    int run(int argc, char** argv);
    CLI::App& app() { return app_; }

  private:
    CLI::App app_;
    Runner chosen_;
};

// Runs one command with `args` (without the command's name) as if it were
// typed after "qzdbf NAME"; edit's show runs dump this way.
int run_command(const char* name, Setup setup, const Args& args);

// The commands.
Runner setup_create(CLI::App& cmd);
Runner setup_info(CLI::App& cmd);
Runner setup_dump(CLI::App& cmd);
Runner setup_get(CLI::App& cmd);
Runner setup_set(CLI::App& cmd);
Runner setup_append(CLI::App& cmd);
Runner setup_edit(CLI::App& cmd);
Runner setup_alter(CLI::App& cmd);
Runner setup_pack(CLI::App& cmd);
Runner setup_delete(CLI::App& cmd);
Runner setup_names(CLI::App& cmd);
Runner setup_watch(CLI::App& cmd);
Runner setup_check(CLI::App& cmd);
Runner setup_import(CLI::App& cmd);
Runner setup_export(CLI::App& cmd);
Runner setup_stats(CLI::App& cmd);

// Options most commands that read a table share.
struct Read_options {
    std::string path;
    std::string layer;     // --layer N ("" for the first)
    std::string encoding;  // --encoding NAME ("" to detect)
    bool force = false;    // --force: read a file that fails the check
};
// Declares PATH (first positional), --layer, --encoding and --force on `cmd`.
void add_read_options(CLI::App& cmd, Read_options& o, bool layers = true);
// Declares --encoding NAME, the same on every command that reads or writes
// a table's text: the encoding named wins over the .cpg file and the
// language driver.
void add_encoding_option(CLI::App& cmd, std::string& encoding);

}  // namespace qzdbf

namespace qzdbf {

// Opens the table of `o` for reading (checked as open_table does), on its
// layer and with its encoding; null with a message and `status` set.
Tqz_dbf_rw* open_for_reading(const Read_options& o, int& status);
// Gives `t` the encoding of --encoding (nothing when empty); false, with a
// message and `status` set, for a name iconv does not know.
bool apply_encoding(Tqz_dbf_rw* t, const std::string& encoding, int& status);

}  // namespace qzdbf
