// qzdbf edit PATH
//
// Loads the table into memory and reads commands from standard input, one a
// line, so that a script or a person can change it with undo and redo and
// write it back when done. The file is held by the writer lock meanwhile.
// Nothing reaches the file before "save"; quit asks before unsaved changes
// are lost. Ctrl-C or SIGTERM close the table (its lock file goes) and lose
// what is not saved.
//
// On a terminal the lines are edited (arrows, emacs keys), recalled from a
// history kept in ~/.qzdbf_history (or $QZDBF_HISTORY), and Tab completes
// command and field names; the prompt names the table and shows "*" while
// changes are not saved. Quit and Ctrl-D then ask whether to save them.
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "cell_values.h"
#include "checked_open.h"
#include "cli.h"
#include "command.h"
#include "edit_completion.h"
#include "line_input.h"
#include "qzk_file_dbf_ext.h"
#include "record_view.h"
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
    "  show [FROM [COUNT]] [--vertical] [--fields A,B,...]\n"
    "                           print the records, in columns or one\n"
    "                           NAME: value line per field; only some fields\n"
    "                           (names or indexes, in that order)\n"
    "  find [--vertical] FIELD VALUE\n"
    "                           print the records whose FIELD holds VALUE\n"
    "                           (blanks around it ignored, letter case counts)\n"
    "  alter CHANGE...          change the fields as one step that undo takes back;\n"
    "                           CHANGE: --add NAME:TYPE:LEN[:DEC], --drop NAME,\n"
    "                           --rename OLD=NEW, --retype NAME:TYPE:LEN[:DEC],\n"
    "                           --move NAME=INDEX\n"
    "  help, quit\n"
    "FIELD is a name or an index; records count from 0. On a terminal Tab\n"
    "completes commands and field names, Up and Down recall earlier lines.\n";

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

// The name of the table as the prompt shows it: the file's name.
std::string table_name(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

class Editor {
  public:
    Editor(const std::string& path, Tqz_dbf_memory* mem, Tqz_dbf_rw* view, Line_input& input)
        : path(path),
          mem(mem),
          view(view),
          input(input),
          history(qz_history_manager_get_instance()) {}

    // Runs one command line; false with a message when it failed.
    bool run(const std::string& line, std::string& error, bool& quit);
    bool unsaved() const { return changed; }
    // The table's name, "*" when changes are not saved, and "> ".
    std::string prompt() const { return table_name(path) + (changed ? "*" : "") + "> "; }
    // On a terminal, before unsaved changes are lost: save them (y), lose
    // them (n) or go on editing (c). True when the editor may end.
    bool ask_to_save();
    // The table's field names, for completion.
    std::vector<std::string> field_names() const;

  private:
    bool set(const std::string& line, const std::vector<std::string>& w, std::string& error);
    bool show(const std::vector<std::string>& w, std::string& error);
    bool find(const std::string& line, const std::vector<std::string>& w, std::string& error);
    // Asks whether unsaved changes may be lost; the answer is the next line.
    bool confirm_quit();
    bool alter(const std::vector<std::string>& w, std::string& error);
    // Whether the text of character `field` is read in another encoding
    // than the code page of the table's flags.
    bool decodes_otherwise(unsigned int field) const {
        if (qz_dbf_get_field_type(view, field) != dbf_ft_char) return false;
        std::string name;
        const unsigned flags = qz_dbf_get_utf8_flag(view)  ? 65001
                               : qz_dbf_get_dos_flag(view) ? 866
                                                           : 1251;
        return text_code_page(view, name) != flags;
    }
    bool save(std::string& error);
    // Something changed the table: a fast-find index built before is stale.
    void touched() {
        changed = true;
        ++generation;
    }

    const std::string path;
    Tqz_dbf_memory* mem;
    Tqz_dbf_rw* view;  // a handle on the path, served by the memory table
    Line_input& input;
    Iqz_history_manager* history;
    bool changed = false;
    unsigned long generation = 0;
    // The field and the generation of the table the fast-find index was
    // built from; none at first.
    bool indexed = false;
    unsigned int indexed_field = 0;
    unsigned long indexed_generation = 0;
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
        touched();
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
        touched();
        std::printf("inserted record %llu\n", at);
        return true;
    }
    if (cmd == "del" && w.size() == 2) {
        if (!resolve_record(view, w[1], record, error)) return false;
        qz_dbf_mem_del(mem, record);
        touched();
        std::printf("deleted record %u\n", record);
        return true;
    }
    if (cmd == "delmask") {
        if (!edit_delmask(view, path, Args(w.begin() + 1, w.end()), error)) return false;
        touched();
        return true;
    }
    if ((cmd == "undo" || cmd == "redo") && w.size() == 1) {
        bool done =
            cmd == "undo" ? qz_history_manager_undo(history) : qz_history_manager_redo(history);
        if (done) touched();
        std::printf("%s\n", done ? (cmd == "undo" ? "undone" : "redone")
                                 : (cmd == "undo" ? "nothing to undo" : "nothing to redo"));
        return true;
    }
    if (cmd == "save" && w.size() == 1) return save(error);
    if (cmd == "show") return show(w, error);
    if (cmd == "find") return find(line, w, error);
    if (cmd == "alter") return alter(w, error);
    if (cmd == "help" && w.size() == 1) {
        std::fputs(kEditHelp, stdout);
        return true;
    }
    if ((cmd == "quit" || cmd == "exit") && w.size() == 1) {
        quit = !changed || (input.terminal() ? ask_to_save() : confirm_quit());
        return true;
    }
    error = "unknown command or wrong arguments: '" + trim_blanks(line) + "' (try help)";
    return false;
}

bool Editor::save(std::string& error) {
    if (!qz_dbf_mem_save(mem)) {
        error = "cannot write '" + path + "'";
        return false;
    }
    changed = false;
    std::printf("saved %u records\n", qz_dbf_mem_get_nr(mem));
    return true;
}

bool Editor::ask_to_save() {
    for (;;) {
        std::string answer;
        const std::string question = "save changes to " + path + "? [y/n/c] ";
        if (!input.read(question, answer, false)) {
            // Ctrl-D again (or a signal): leave, and say what is lost.
            std::printf("\n");
            return true;
        }
        answer = trim_blanks(answer);
        if (answer == "y" || answer == "Y" || answer == "yes") {
            std::string error;
            if (save(error)) return true;
            fail(kFailed, error);
            return false;
        }
        if (answer == "n" || answer == "N" || answer == "no") return true;
        if (answer == "c" || answer == "C" || answer.empty()) {
            std::printf("not quitting; save writes the table\n");
            return false;
        }
        std::printf("y saves and quits, n quits without saving, c goes on editing\n");
    }
}

std::vector<std::string> Editor::field_names() const {
    std::vector<std::string> names;
    const unsigned int nf = qz_dbf_get_nf(view);
    for (unsigned int f = 0; f < nf; ++f) {
        std::string name = field_name(view, f);
        if (!name.empty()) names.push_back(std::move(name));
    }
    return names;
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
        error += " (field " + field_name(view, field) + ", record " + std::to_string(record) +
                 ", value '" + given + "')";
        return false;
    }
    // Character text goes in the table's encoding (--encoding, the .cpg
    // file, the language driver, the flags), as one step of the history.
    const bool in_table_encoding =
        qz_dbf_get_field_type(view, field) == dbf_ft_char && writes_in_table_encoding(view);
    if (in_table_encoding) {
        const std::string utf8 = system_to_utf8(value);
        if (!qz_dbf_set_cell_utf8(view, field, record, utf8.c_str(), utf8.size())) {
            error = "'" + given + "' refused: " + qz_dbf_last_error_message();
            return false;
        }
    } else if (!qz_dbf_mem_set_str(mem, field, record, value.c_str())) {
        error = "the field cannot hold '" + value + "'";
        touched();  // a number the field refuses empties the cell
        return false;
    }
    touched();
    bool ok = false;
    std::string stored = in_table_encoding
                             ? trim_blanks(text_in_table_encoding(view, field, record))
                             : cell_text(view, field, record, &ok);
    if (!numeric_field(view, field) && stored != trim_blanks(value))
        std::printf("stored as '%s'\n", stored.c_str());
    return true;
}

bool Editor::show(const std::vector<std::string>& w, std::string& error) {
    bool vertical = false;
    std::vector<unsigned int> fields;
    std::vector<std::string> numbers;
    for (size_t k = 1; k < w.size(); ++k) {
        if (w[k] == "--vertical") {
            vertical = true;
        } else if (w[k] == "--fields") {
            if (k + 1 >= w.size()) {
                error = "--fields needs a list of fields, A,B,...";
                return false;
            }
            std::istringstream list(w[++k]);
            for (std::string one; std::getline(list, one, ',');) {
                unsigned int f = 0;
                if (one.empty()) continue;
                if (!resolve_field(view, one, f, error)) return false;
                fields.push_back(f);
            }
        } else if (!w[k].empty() && w[k][0] == '-') {
            error = "show knows --vertical and --fields, not '" + w[k] + "'";
            return false;
        } else {
            numbers.push_back(w[k]);
        }
    }
    const unsigned int nr = qz_dbf_get_nr(view);
    unsigned long long from = 0, count = nr;
    if (numbers.size() > 2 || (numbers.size() > 0 && !parse_count(numbers[0], ~0u, from)) ||
        (numbers.size() > 1 && !parse_count(numbers[1], ~0u, count))) {
        error = "show takes [FROM [COUNT]] as whole numbers";
        return false;
    }
    if (fields.empty())
        for (unsigned int f = 0; f < qz_dbf_get_nf(view); ++f) fields.push_back(f);
    std::vector<unsigned int> records;
    for (unsigned long long r = from; r < nr && r - from < count; ++r)
        records.push_back(static_cast<unsigned int>(r));
    print_records(view, records, fields, vertical);
    return true;
}

bool Editor::find(const std::string& line, const std::vector<std::string>& w, std::string& error) {
    const bool vertical = w.size() > 1 && w[1] == "--vertical";
    const int first = vertical ? 2 : 1;  // the word that names the field
    if (w.size() < static_cast<size_t>(first) + 2) {
        error = "find needs FIELD VALUE";
        return false;
    }
    unsigned int field = 0;
    if (!resolve_field(view, w[first], field, error)) return false;
    const std::string value = trim_blanks(rest_after(line, first + 1));
    std::vector<unsigned int> hits;
    if (decodes_otherwise(field)) {
        // The index compares the text as the flags' code page reads it:
        // text in another encoding is compared as it reads here.
        const unsigned int nr = qz_dbf_get_nr(view);
        for (unsigned int r = 0; r < nr; ++r)
            if (trim_blanks(text_in_table_encoding(view, field, r)) == value) hits.push_back(r);
    } else {
        // The index of one field serves every find on it until the table
        // changes.
        if (!indexed || indexed_field != field || indexed_generation != generation) {
            qz_dbf_begin_fast_find(view, field);
            indexed = true;
            indexed_field = field;
            indexed_generation = generation;
        }
        unsigned int last = 0;
        if (qz_dbf_find_value_fast(view, value.c_str(), last)) {
            // The index answers with the last record holding the value; the
            // others come before it.
            for (unsigned int r = 0; r < last; ++r) {
                bool ok = false;
                if (cell_text(view, field, r, &ok) == value && ok) hits.push_back(r);
            }
            hits.push_back(last);
        }
    }
    // The name is read after the search, whose reads reuse its buffer.
    const std::string name = field_name(view, field);
    if (hits.empty()) {
        std::printf("no record holds '%s' in %s\n", value.c_str(), name.c_str());
        return true;
    }
    std::string list;
    for (unsigned int r : hits) list += " " + std::to_string(r);
    std::printf("%zu record%s hold%s '%s' in %s:%s\n", hits.size(), hits.size() == 1 ? "" : "s",
                hits.size() == 1 ? "s" : "", value.c_str(), name.c_str(), list.c_str());
    std::vector<unsigned int> fields;
    for (unsigned int f = 0; f < qz_dbf_get_nf(view); ++f) fields.push_back(f);
    print_records(view, hits, fields, vertical);
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
    touched();
    print_layout(view, "new layout");
    return true;
}

}  // namespace

namespace {

int run_edit(const std::string& path, bool force, const std::string& encoding) {
    // The file is checked (and its lock tried) before it is loaded.
    int checked = kOk;
    Tqz_dbf_rw* probe = open_table(path, Access::write, force, checked);
    if (!probe) return checked;
    const bool known = apply_encoding(probe, encoding, checked);
    qz_dbf_close(probe);
    if (!known) return checked;
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
    if (!encoding.empty()) qz_dbf_set_encoding(view, encoding.c_str());

    // Line editing needs a terminal on both sides; scripts and pipes are read
    // line by line, with no prompt.
    const bool prompt = isatty(0) && isatty(1);
    if (prompt)
        std::printf("%s: %u fields, %u records in memory; help lists the commands\n", path.c_str(),
                    qz_dbf_mem_get_nf(mem), qz_dbf_mem_get_nr(mem));
    Editor* editing = nullptr;
    std::unique_ptr<Line_input> input =
        prompt ? terminal_line_input(history_file_name(),
                                     [&editing](const std::string& before) {
                                         return complete_edit_line(before, editing->field_names());
                                     })
               : plain_line_input();
    Editor editor(path, mem, view, *input);
    editing = &editor;
    catch_stop_signals();
    int status = kOk;
    std::string line;
    for (unsigned long n = 1;; ++n) {
        if (stop_signal != 0) break;
        if (!input->read(editor.prompt(), line, true) || stop_signal != 0) {
            // Ctrl-D on a terminal asks about unsaved changes like quit.
            if (stop_signal == 0 && prompt && editor.unsaved()) {
                std::printf("\n");
                if (!editor.ask_to_save()) continue;
            } else if (prompt && stop_signal == 0) {
                std::printf("\n");
            }
            break;
        }
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
    input.reset();  // the terminal gets its settings back, the history is written
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
    auto encoding = std::make_shared<std::string>();
    cmd.add_option("PATH", *path, "the table, loaded into memory until save")->required();
    cmd.add_flag("--force", *force, "open a file that fails the check anyway");
    add_encoding_option(cmd, *encoding);
    cmd.footer(std::string("Commands, read from standard input (or typed at the prompt):\n") +
               kEditHelp + "\n" + cmd.get_footer());
    return [path, force, encoding] { return run_edit(*path, *force, *encoding); };
}

}  // namespace qzdbf
