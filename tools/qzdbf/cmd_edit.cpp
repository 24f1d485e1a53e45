// qzdbf edit PATH
//
// Loads the table into memory and reads commands from standard input, one a
// line, so that a script or a person can change it with undo and redo and
// write it back when done. The file is held by the writer lock meanwhile.
// Nothing reaches the file before "save"; quit asks before unsaved changes
// are lost. Ctrl-C or SIGTERM close the table (its lock file goes) and lose
// what is not saved.
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <string>

#include "checked_open.h"
#include "cli.h"
#include "command.h"
#include "qzk_file_dbf_ext.h"
#include "value_check.h"

namespace qzdbf {

namespace {

std::atomic<int> stop_signal{0};

extern "C" void on_stop_signal(int sig) {
    stop_signal = sig;
}

// Ctrl-C and SIGTERM end the reading of commands (the read is interrupted,
// not restarted) so that the table is closed properly.
void catch_stop_signals() {
    struct sigaction sa {};
    sa.sa_handler = on_stop_signal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = 0;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
}

const char kEditHelp[] =
    "  set FIELD RECORD VALUE   write a value (VALUE is the rest of the line;\n"
    "                           put it in double quotes to keep blanks around it)\n"
    "  add                      append a blank record\n"
    "  ins RECORD               insert a blank record before RECORD\n"
    "  del RECORD               delete a record\n"
    "  delmask RECORD...        delete several records as one step\n"
    "  undo, redo               take back the last change, or make it again\n"
    "  save                     write the table to its file\n"
    "  show [FROM [COUNT]]      print the records\n"
    "  alter CHANGE...          change the fields as one step that undo takes back;\n"
    "                           CHANGE: --add NAME:TYPE:LEN[:DEC], --drop NAME,\n"
    "                           --rename OLD=NEW, --retype NAME:TYPE:LEN[:DEC],\n"
    "                           --move NAME=INDEX\n"
    "  help, quit\n"
    "FIELD is a name or an index; records count from 0.\n";

// The rest of `line` after the first `words` words, its blanks trimmed; a
// value in double quotes loses the quotes and keeps what is inside.
std::string rest_after(const std::string& line, int words) {
    const char* ws = " \t";
    size_t at = 0;
    for (int k = 0; k < words; ++k) {
        at = line.find_first_not_of(ws, at);
        if (at == std::string::npos) return std::string();
        at = line.find_first_of(ws, at);
        if (at == std::string::npos) return std::string();
    }
    std::string value = trim_blanks(line.substr(at));
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
        value = value.substr(1, value.size() - 2);
    return value;
}

class Editor {
  public:
    Editor(const std::string& path, Tqz_dbf_memory* mem, Tqz_dbf_rw* view)
        : path(path), mem(mem), view(view), history(qz_history_manager_get_instance()) {}

    // Runs one command line; false with a message when it failed.
    bool run(const std::string& line, std::string& error, bool& quit);
    bool unsaved() const { return changed; }

  private:
    bool set(const std::string& line, const std::vector<std::string>& w, std::string& error);
    bool show(const std::vector<std::string>& w, std::string& error);
    // Asks whether unsaved changes may be lost; the answer is the next line.
    bool confirm_quit();
    bool alter(const std::vector<std::string>& w, std::string& error);

    const std::string path;
    Tqz_dbf_memory* mem;
    Tqz_dbf_rw* view;  // a handle on the path, served by the memory table
    Iqz_history_manager* history;
    bool changed = false;
};

bool Editor::run(const std::string& line, std::string& error, bool& quit) {
    std::istringstream in(line);
    std::vector<std::string> w;
    for (std::string word; in >> word;) w.push_back(word);
    if (w.empty() || w[0][0] == '#') return true;
    const std::string& cmd = w[0];
    unsigned int record = 0;
    if (cmd == "set") return set(line, w, error);
    if (cmd == "add" && w.size() == 1) {
        qz_dbf_mem_add(mem);
        changed = true;
        std::printf("added record %u\n", qz_dbf_mem_get_nr(mem) - 1);
        return true;
    }
    if (cmd == "ins" && w.size() == 2) {
        // Before any record, or at the end.
        unsigned long long at = 0;
        if (!parse_count(w[1], qz_dbf_mem_get_nr(mem), at)) {
            error = "ins needs a record from 0 to " + std::to_string(qz_dbf_mem_get_nr(mem));
            return false;
        }
        qz_dbf_mem_ins(mem, static_cast<unsigned int>(at));
        changed = true;
        std::printf("inserted record %llu\n", at);
        return true;
    }
    if (cmd == "del" && w.size() == 2) {
        if (!resolve_record(view, w[1], record, error)) return false;
        qz_dbf_mem_del(mem, record);
        changed = true;
        std::printf("deleted record %u\n", record);
        return true;
    }
    if (cmd == "delmask") {
        if (!edit_delmask(view, path, Args(w.begin() + 1, w.end()), error)) return false;
        changed = true;
        return true;
    }
    if ((cmd == "undo" || cmd == "redo") && w.size() == 1) {
        bool done =
            cmd == "undo" ? qz_history_manager_undo(history) : qz_history_manager_redo(history);
        changed = changed || done;
        std::printf("%s\n", done ? (cmd == "undo" ? "undone" : "redone")
                                 : (cmd == "undo" ? "nothing to undo" : "nothing to redo"));
        return true;
    }
    if (cmd == "save" && w.size() == 1) {
        if (!qz_dbf_mem_save(mem)) {
            error = "cannot write '" + path + "'";
            return false;
        }
        changed = false;
        std::printf("saved %u records\n", qz_dbf_mem_get_nr(mem));
        return true;
    }
    if (cmd == "show" && w.size() <= 3) return show(w, error);
    if (cmd == "alter") return alter(w, error);
    if (cmd == "help" && w.size() == 1) {
        std::fputs(kEditHelp, stdout);
        return true;
    }
    if ((cmd == "quit" || cmd == "exit") && w.size() == 1) {
        quit = !changed || confirm_quit();
        return true;
    }
    error = "unknown command or wrong arguments: '" + trim_blanks(line) + "' (try help)";
    return false;
}

bool Editor::confirm_quit() {
    std::printf("the changes are not saved; quit without saving? [y/N] ");
    std::fflush(stdout);
    std::string answer;
    if (!std::getline(std::cin, answer)) return stop_signal != 0 || std::cin.eof();
    answer = trim_blanks(answer);
    const bool yes = answer == "y" || answer == "Y" || answer == "yes";
    if (!yes) std::printf("not quitting; save writes the table\n");
    return yes;
}

bool Editor::set(const std::string& line, const std::vector<std::string>& w, std::string& error) {
    if (w.size() < 3) {
        error = "set needs FIELD RECORD VALUE";
        return false;
    }
    unsigned int field = 0, record = 0;
    std::string value;
    if (!resolve_field(view, w[1], field, error) || !resolve_record(view, w[2], record, error))
        return false;
    const std::string given = rest_after(line, 3);
    if (!check_value(view, field, given, false, value, error)) {
        const char* name = qz_dbf_get_field_name(view, field);
        error += " (field " + std::string(name ? name : "?") + ", record " +
                 std::to_string(record) + ", value '" + given + "')";
        return false;
    }
    if (!qz_dbf_mem_set_str(mem, field, record, value.c_str())) {
        error = "the field cannot hold '" + value + "'";
        changed = true;  // a number the field refuses empties the cell
        return false;
    }
    changed = true;
    bool ok = false;
    std::string stored = cell_text(view, field, record, &ok);
    if (!numeric_field(view, field) && stored != trim_blanks(value))
        std::printf("stored as '%s'\n", stored.c_str());
    return true;
}

bool Editor::show(const std::vector<std::string>& w, std::string& error) {
    Args dump{path};
    if (w.size() > 1) dump.insert(dump.end(), {"--from", w[1]});
    if (w.size() > 2) dump.insert(dump.end(), {"--count", w[2]});
    std::fflush(stdout);
    // The dump opens the path, which is served by the memory table.
    if (cmd_dump(dump) != kOk) {
        error = "show takes [FROM [COUNT]] as whole numbers";
        return false;
    }
    return true;
}

bool Editor::alter(const std::vector<std::string>& w, std::string& error) {
    Alterations changes;
    if (!parse_alterations(w, 1, changes, error)) return false;
    // The descriptor reads the loaded table, which the path names here.
    Tqz_dbf_rstrct* d = qz_dbf_restruct_create(path.c_str());
    bool ok = alter_descriptor(d, changes, error);
    if (ok && !qz_dbf_mem_restruct(mem, d)) {
        error = "the table cannot take that layout";
        ok = false;
    }
    qz_dbf_restruct_destroy(d);
    if (!ok) return false;
    changed = true;
    print_layout(view, "new layout");
    return true;
}

}  // namespace

namespace {

int run_edit(const std::string& path, bool force) {
    // The file is checked (and its lock tried) before it is loaded.
    int checked = kOk;
    Tqz_dbf_rw* probe = open_table(path, Access::write, force, checked);
    if (!probe) return checked;
    qz_dbf_close(probe);
    Tqz_dbf_memory* mem = qz_dbf_mem_load(path.c_str());
    if (!mem)
        return fail(qz_dbf_last_error() == QZ_DBF_ERR_LOCKED ? kIoError : kFailed,
                    std::string("cannot load: ") + qz_dbf_last_error_message());
    qz_dbf_mem_keep_cpg(mem, true);  // a save keeps the table's .cpg as it is
    Tqz_dbf_rw* view = qz_dbf_open(path.c_str(), true, false);
    if (!view || !qz_dbf_is_buffered(view)) {
        if (view) qz_dbf_close(view);
        qz_dbf_mem_free(mem);
        return fail(kFailed, "cannot open the loaded table '" + path + "'");
    }

    const bool prompt = isatty(0) && isatty(1);
    if (prompt)
        std::printf("%s: %u fields, %u records in memory; help lists the commands\n", path.c_str(),
                    qz_dbf_mem_get_nf(mem), qz_dbf_mem_get_nr(mem));
    Editor editor(path, mem, view);
    catch_stop_signals();
    int status = kOk;
    std::string line;
    for (unsigned long n = 1;; ++n) {
        if (prompt) {
            std::fputs("> ", stdout);
            std::fflush(stdout);
        }
        if (stop_signal != 0 || !std::getline(std::cin, line) || stop_signal != 0) break;
        std::string error;
        bool quit = false;
        if (!editor.run(line, error, quit)) {
            std::fflush(stdout);
            fail(kFailed, (prompt ? "" : "line " + std::to_string(n) + ": ") + error);
            status = kFailed;
        }
        std::fflush(stdout);
        if (quit) break;
    }
    if (stop_signal != 0) std::fprintf(stderr, "\nqzdbf: interrupted\n");
    if (editor.unsaved()) fail(kOk, "changes not saved are lost");
    qz_dbf_close(view);
    qz_dbf_mem_free(mem);
    if (stop_signal != 0) return 128 + stop_signal;
    return status;
}

}  // namespace

Runner setup_edit(CLI::App& cmd) {
    auto path = std::make_shared<std::string>();
    auto force = std::make_shared<bool>(false);
    cmd.add_option("PATH", *path, "the table, loaded into memory until save")->required();
    cmd.add_flag("--force", *force, "open a file that fails the check anyway");
    cmd.footer(
        "Commands read from standard input: set FIELD RECORD VALUE, add, ins RECORD,\n"
        "del RECORD, delmask RECORD..., undo, redo, save, show [FROM [COUNT]],\n"
        "alter OPTIONS (as for alter), help, quit.\n\n" +
        cmd.get_footer());
    return [path, force] { return run_edit(*path, *force); };
}

}  // namespace qzdbf
