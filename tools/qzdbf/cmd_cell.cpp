// qzdbf get PATH FIELD RECORD, or get PATH [FIELD] [RECORD] --where ... --fields ...
// qzdbf set PATH FIELD RECORD VALUE
//
// One cell as text. Numbers are checked character by character before they
// are written (a decimal comma becomes a point), dates may be given as
// YYYY-MM-DD; when the table keeps the value in another form (cut to the
// field's length, rounded), that form is reported.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <string>

#include "cell_values.h"
#include "checked_open.h"
#include "cli.h"
#include "command.h"
#include "dump.h"
#include "qzk_file_dbf_ext.h"
#include "value_check.h"

namespace qzdbf {

namespace {

// Whether two texts are the same number (to the 11 digits cells show).
bool same_number(const std::string& a, const std::string& b) {
    auto number = [](std::string s, double& v) {
        s = trim_blanks(s);
        if (!s.empty() && s[0] == '+') s.erase(0, 1);
        auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
        return ec == std::errc() && end == s.data() + s.size();
    };
    double x = 0, y = 0;
    if (!number(a, x) || !number(b, y)) return a == b;
    return x == y || std::fabs(x - y) <= 1e-10 * std::max(std::fabs(x), std::fabs(y));
}

struct Get_options : Dump_options {
    std::string field, record;
};

int run_get(Get_options& o) {
    // Beyond one cell: the chosen fields of the records that match.
    if (!o.where.empty() || !o.fields.empty() || o.vertical || o.limit != Dump_options().limit) {
        // With --fields, a single positional after PATH is the record.
        if (!o.fields.empty() && o.record.empty()) std::swap(o.field, o.record);
        if (o.fields.empty()) o.fields = o.field;
        if (!o.record.empty()) {
            if (!parse_count(o.record, 0xFFFFFFFFull, o.from))
                return fail(kBadUsage,
                            "record '" + o.record + "' is not a record index (counted from 0)");
            o.count = 1;
        }
        o.form = o.vertical ? Form::vertical : Form::values;
        return run_dump(o);
    }
    if (o.field.empty() || o.record.empty())
        return fail(kBadUsage, "get needs PATH FIELD RECORD, or --where or --fields");
    const bool raw = o.raw;
    const Args args{o.path, o.field, o.record};
    int status = kOk;
    Tqz_dbf_rw* t = open_for_reading(o, status);
    if (!t) return status;
    unsigned int field = 0, record = 0;
    std::string error;
    if (!resolve_field(t, args[1], field, error) || !resolve_record(t, args[2], record, error)) {
        qz_dbf_close(t);
        return fail(kBadUsage, error);
    }
    bool ok = false;
    std::string text;
    if (!raw && qz_dbf_get_field_type(t, field) == dbf_ft_memo) {
        // A memo cell shows its memo, never the block number it holds.
        qz_dbf_clear_last_error();
        ok = memo_text(t, field, record, text);
        if (!ok && qz_dbf_last_error() == QZ_DBF_ERR_MEMO) {
            qz_dbf_close(t);
            return fail(kIoError, args[0] + ": memo file missing");
        }
        ok = true;
        if (ok && text.rfind("<binary, ", 0) != 0 && writes_in_table_encoding(t))
            text = text_in_table_encoding(t, field, record);
    } else if (qz_dbf_get_field_type(t, field) == dbf_ft_char && writes_in_table_encoding(t)) {
        // Character text in the encoding it is written in: --encoding, the
        // .cpg file, the language driver, the flags.
        cell_text(t, field, record, &ok);
        if (ok) text = text_in_table_encoding(t, field, record);
    } else {
        text = cell_text(t, field, record, &ok);
    }
    qz_dbf_close(t);
    if (!ok) return fail(kFailed, "the cell holds no value");
    std::printf("%s\n", text.c_str());
    return kOk;
}

struct Set_options {
    std::string path, field, record, value, encoding;
    bool force = false, truncate = false, raw = false;
};

int run_set(const Set_options& o) {
    const bool force = o.force, truncate = o.truncate, raw = o.raw;
    const Args args{o.path, o.field, o.record, o.value};
    int status = kOk;
    Tqz_dbf_rw* t = open_table(args[0], Access::write, force, status);
    if (!t) return status;
    if (!apply_encoding(t, o.encoding, status)) {
        qz_dbf_close(t);
        return status;
    }
    unsigned int field = 0, record = 0;
    std::string error, value;
    if (!resolve_field(t, args[1], field, error) || !resolve_record(t, args[2], record, error)) {
        qz_dbf_close(t);
        return fail(kBadUsage, error);
    }
    // Every value is checked whole before anything is written; a refused
    // value leaves the table as it was.
    const bool memo = qz_dbf_get_field_type(t, field) == dbf_ft_memo;
    unsigned long long block = 0;
    if (raw && memo) {
        if (parse_count(trim_blanks(args[3]), 0xFFFFFFFFull, block)) {
            value = std::to_string(block);
        } else {
            value.clear();
            error = "with --raw a memo cell takes a block number";
        }
    }
    if (raw && memo ? value.empty() : !check_value(t, field, args[3], truncate, value, error)) {
        const std::string name = field_name(t, field);
        qz_dbf_close(t);
        return fail(kBadUsage, "field " + name + ", record " + std::to_string(record) + ": '" +
                                   args[3] + "' refused: " + error);
    }
    // Character text of a table file goes in the encoding its text is read
    // in (--encoding, the .cpg file, the language driver, the flags).
    const bool in_table_encoding =
        qz_dbf_get_field_type(t, field) == dbf_ft_char && writes_in_table_encoding(t);
    if (in_table_encoding) {
        const std::string utf8 = system_to_utf8(value);
        if (!qz_dbf_set_cell_utf8(t, field, record, utf8.c_str(), utf8.size())) {
            const std::string why = qz_dbf_last_error_message();
            qz_dbf_close(t);
            return fail(kBadUsage, "'" + args[3] + "' refused: " + why);
        }
    } else if (!qz_dbf_set_str(t, field, record, value.c_str())) {
        qz_dbf_close(t);
        return fail(kFailed, "the field cannot hold '" + args[3] + "'");
    }
    // Say so when the table keeps something else than was given: a number
    // too long for its field (kept empty) or rounded, text cut at the
    // field's length.
    std::string given = trim_blanks(args[3]);
    std::replace(given.begin(), given.end(), ',', '.');
    bool ok = false;
    std::string stored = cell_text(t, field, record, &ok);
    if (in_table_encoding) stored = text_in_table_encoding(t, field, record);
    bool numeric = numeric_field(t, field);
    qz_dbf_close(t);
    if (numeric && !ok) {
        std::fprintf(stderr, "qzdbf: %s does not fit the field: the cell is empty now\n",
                     args[3].c_str());
    } else if (numeric ? !same_number(stored, given) : stored != trim_blanks(value)) {
        std::fprintf(stderr, "qzdbf: stored as '%s'\n", stored.c_str());
    }
    return kOk;
}

}  // namespace

Runner setup_get(CLI::App& cmd) {
    auto o = std::make_shared<Get_options>();
    add_read_options(cmd, *o);
    cmd.add_option("FIELD", o->field, "a field name or index (from 0)");
    cmd.add_option("RECORD", o->record,
                   "a record index (from 0); with --fields the only positional after PATH");
    add_selection_options(cmd, *o);
    return [o] { return run_get(*o); };
}

Runner setup_set(CLI::App& cmd) {
    auto o = std::make_shared<Set_options>();
    cmd.add_option("PATH", o->path, "the table")->required();
    cmd.add_option("FIELD", o->field, "a field name or index (from 0)")->required();
    cmd.add_option("RECORD", o->record, "a record index (from 0)")->required();
    cmd.add_option("VALUE", o->value,
                   "the value, checked whole first: numbers with a point or a comma, dates as "
                   "YYYYMMDD or YYYY-MM-DD, logical T/F/Y/N (REQUIRED)");
    cmd.add_flag("--truncate", o->truncate, "cut text too long for the field between characters");
    cmd.add_flag("--raw", o->raw, "write a block number into a memo cell");
    cmd.add_flag("--force", o->force, "open a file that fails the check anyway");
    add_encoding_option(cmd, o->encoding);
    // A value may look like an option ("--1", "-x"): what is left over after
    // the options is the value when none was given otherwise.
    cmd.allow_extras();
    CLI::App* app = &cmd;
    return [o, app] {
        Args extra = app->remaining();
        // "--" ends the options: what follows is the value.
        for (auto it = extra.begin(); it != extra.end(); ++it)
            if (*it == "--") {
                extra.erase(it);
                break;
            }
        if (app->count("VALUE") == 0 && extra.size() == 1) {
            o->value = extra[0];
            extra.clear();
        } else if (app->count("VALUE") == 0) {
            return fail(kBadUsage, "set needs PATH FIELD RECORD VALUE: VALUE is required");
        }
        if (!extra.empty()) return fail(kBadUsage, "unexpected argument '" + extra[0] + "'");
        return run_set(*o);
    };
}

}  // namespace qzdbf
