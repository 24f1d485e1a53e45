// qzdbf alter PATH [--add NAME:TYPE:LEN[:DEC]] [--drop NAME] [--rename OLD=NEW]
//                  [--retype NAME:TYPE:LEN[:DEC]] [--move NAME=INDEX]...
//
// Every change of one call goes into one restructure descriptor, applied
// once: the table is rewritten a single time (or, when it is loaded as a
// memory table in this process, restructured there). The changes apply in
// the order given; names refer to the layout as the earlier changes left it.
#include <strings.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "checked_open.h"
#include "cli.h"
#include "command.h"
#include "field_names.h"
#include "progress.h"
#include "qzk_file_dbf_ext.h"
#include "table_values.h"

namespace qzdbf {

namespace {

// Whether `name` may name a new field: the field-name rules, with the
// repair named in the message.
bool check_field_name(const std::string& name, std::string& error) {
    if (name_is_ok(name)) return true;
    error = "'" + name + "' is not a field name (" + name_problem(name) + "); '" + name_fix(name) +
            "' would be";
    return false;
}

// The entry named `name`: exactly, else in any letter case; -1 when none.
int find_entry(Tqz_dbf_rstrct* d, const std::string& name) {
    const int n = qz_dbf_restruct_count(d);
    for (int i = 0; i < n; ++i)
        if (name == qz_dbf_restruct_get_field(d, i)->name) return i;
    for (int i = 0; i < n; ++i)
        if (strcasecmp(name.c_str(), qz_dbf_restruct_get_field(d, i)->name) == 0) return i;
    return -1;
}

bool entry_or_error(Tqz_dbf_rstrct* d, const std::string& name, int& idx, std::string& error) {
    idx = find_entry(d, name);
    if (idx < 0) error = "no field '" + name + "'";
    return idx >= 0;
}

// A name no other entry than `except` has (letter case ignored).
bool unused_name(Tqz_dbf_rstrct* d, const std::string& name, int except, std::string& error) {
    if (!check_field_name(name, error)) return false;
    const int n = qz_dbf_restruct_count(d);
    for (int i = 0; i < n; ++i)
        if (i != except && strcasecmp(name.c_str(), qz_dbf_restruct_get_field(d, i)->name) == 0) {
            error = "a field named '" + name + "' is there already";
            return false;
        }
    return true;
}

bool split_pair(const std::string& text, std::string& a, std::string& b) {
    size_t eq = text.find('=');
    if (eq == std::string::npos) return false;
    a = text.substr(0, eq);
    b = text.substr(eq + 1);
    return !a.empty() && !b.empty();
}

}  // namespace

bool parse_alterations(const Args& args, size_t first, Alterations& out, std::string& error) {
    static const char* const options[] = {"--add", "--drop", "--rename", "--retype", "--move"};
    for (size_t i = first; i < args.size(); ++i) {
        bool known = false;
        for (const char* o : options) known = known || args[i] == o;
        if (!known) {
            error = "unknown alteration '" + args[i] + "'";
            return false;
        }
        if (i + 1 >= args.size()) {
            error = args[i] + " needs an argument";
            return false;
        }
        out.emplace_back(args[i], args[i + 1]);
        ++i;
    }
    if (out.empty()) error = "no alteration given (--add, --drop, --rename, --retype, --move)";
    return !out.empty();
}

bool alter_descriptor(Tqz_dbf_rstrct* d, const Alterations& changes, std::string& error) {
    for (const auto& [option, value] : changes) {
        int idx = -1;
        if (option == "--add") {
            Tqz_dbf_field f;
            if (!parse_field(value, f, error) || !unused_name(d, f.name, -1, error)) return false;
            qz_dbf_restruct_add_field(d, &f);
        } else if (option == "--drop") {
            if (!entry_or_error(d, value, idx, error)) return false;
            qz_dbf_restruct_remove_field_idx(d, idx);
        } else if (option == "--rename") {
            std::string from, to;
            if (!split_pair(value, from, to)) {
                error = "--rename takes OLD=NEW";
                return false;
            }
            if (!entry_or_error(d, from, idx, error) || !unused_name(d, to, idx, error))
                return false;
            Tqz_dbf_field* f = qz_dbf_restruct_get_field(d, idx);
            std::memset(f->name, 0, sizeof f->name);
            std::memcpy(f->name, to.data(), to.size());
        } else if (option == "--retype") {
            Tqz_dbf_field wanted;
            if (!parse_field(value, wanted, error) || !entry_or_error(d, wanted.name, idx, error))
                return false;
            Tqz_dbf_field* f = qz_dbf_restruct_get_field(d, idx);
            f->type = wanted.type;
            f->flen = wanted.flen;
            f->dlen = wanted.dlen;
        } else if (option == "--move") {
            std::string name, at;
            unsigned long long to = 0;
            const int n = qz_dbf_restruct_count(d);
            if (!split_pair(value, name, at)) {
                error = "--move takes NAME=INDEX";
                return false;
            }
            if (!entry_or_error(d, name, idx, error)) return false;
            if (!parse_count(at, static_cast<unsigned long long>(n - 1), to)) {
                error = "--move: index '" + at + "' is not from 0 to " + std::to_string(n - 1);
                return false;
            }
            qz_dbf_restruct_move_field(d, idx, static_cast<int>(to));
        }
    }
    if (qz_dbf_restruct_count(d) == 0) {
        error = "a table needs at least one field";
        return false;
    }
    return true;
}

void print_layout(Tqz_dbf_rw* t, const char* title) {
    std::printf("%s\n  %4s  %-10s  %4s  %3s  %3s\n", title, "#", "name", "type", "len", "dec");
    for (unsigned int i = 0; i < qz_dbf_get_nf(t); ++i) {
        const char* name = qz_dbf_get_field_name(t, i);
        std::printf("  %4u  %-10s  %4c  %3u  %3d\n", i, name ? name : "", field_letter(t, i),
                    qz_dbf_get_field_flen(t, i), qz_dbf_get_field_dlen(t, i));
    }
}

namespace {

int run_alter(const std::string& path, const Alterations& changes) {
    std::string error;
    if (changes.empty())
        return fail(kBadUsage, "no alteration given (--add, --drop, --rename, --retype, --move)");

    // Checked as for writing: no table, a damaged one, one another writer
    // holds or a read-only file is refused before anything is written.
    int status = kOk;
    Tqz_dbf_rw* before = open_table(path, Access::write, false, status);
    if (!before) return status;
    Tqz_dbf_rstrct* d = qz_dbf_restruct_create(path.c_str());
    if (!alter_descriptor(d, changes, error)) {
        qz_dbf_restruct_destroy(d);
        qz_dbf_close(before);
        return fail(kBadUsage, error + "; nothing changed");
    }
    print_layout(before, "old layout");
    const unsigned int records = qz_dbf_get_nr(before);
    qz_dbf_close(before);

    Progress bar("alter", records);
    qz_dbf_clear_last_error();
    const bool done = qz_dbf_restruct_apply_progress(d, Progress::library_callback, &bar);
    bar.finish();
    qz_dbf_restruct_destroy(d);
    if (!done) {
        // A value the new layout cannot take is the caller's to change (2);
        // anything else is the file's state (3). The table is as it was.
        const int why = qz_dbf_last_error();
        if (why == QZ_DBF_OK)
            return fail(kIoError,
                        "cannot rewrite '" + path +
                            "' (held by another writer, or not writable); nothing changed");
        return fail(
            why == QZ_DBF_ERR_VALUE ? kBadUsage : kIoError,
            "cannot rewrite '" + path + "': " + qz_dbf_last_error_message() + "; nothing changed");
    }
    Tqz_dbf_rw* after = qz_dbf_open(path.c_str(), true, false);
    if (!after) return fail(kFailed, "cannot open '" + path + "' after the rewrite");
    print_layout(after, "new layout");
    std::printf("%u records kept\n", records);
    qz_dbf_close(after);
    return kOk;
}

}  // namespace

Runner setup_alter(CLI::App& cmd) {
    auto path = std::make_shared<std::string>();
    auto changes = std::make_shared<Alterations>();
    cmd.add_option("PATH", *path, "the table (rewritten once for all the changes)")->required();
    // The changes apply in the order they are given.
    const char* const options[][3] = {
        {"--add", "NAME:TYPE:LEN[:DEC]", "add a field at the end"},
        {"--drop", "NAME", "remove a field"},
        {"--rename", "OLD=NEW", "rename a field"},
        {"--retype", "NAME:TYPE:LEN[:DEC]", "change a field's type, length or decimals"},
        {"--move", "NAME=INDEX", "move a field to the place INDEX (from 0)"}};
    for (const auto& o : options) {
        const std::string name = o[0];
        cmd.add_option_function<std::string>(
               name, [changes, name](const std::string& v) { changes->emplace_back(name, v); },
               o[2])
            ->type_name(o[1])
            ->trigger_on_parse();
    }
    return [path, changes] { return run_alter(*path, *changes); };
}

}  // namespace qzdbf
