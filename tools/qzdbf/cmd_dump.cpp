// qzdbf dump PATH [--fields A,B] [--where COND]... [-i] [--limit N]
//                 [--vertical|--csv|--json] [--from N] [--count N] ...
//
// Records as aligned columns for a person, as "name: value" lines for a
// wide table, as CSV (RFC 4180) or JSON Lines for a program. Output starts
// at once: each record is written as it is read, and the columns take
// their widths from the fields' lengths, not from the data. Values are
// read typed in the table's encoding (--encoding names another); text is
// printed in the terminal's encoding (JSON always in UTF-8). Records marked
// deleted show a `*` in the first column (a `deleted` column of true/false
// in CSV, "_deleted": true in JSON); --skip-deleted leaves them out.
#include <cstdio>
#include <cwchar>
#include <string>
#include <vector>

#include "cell_values.h"
#include "checked_open.h"
#include "cli.h"
#include "record_view.h"
#include "dump.h"
#include "output.h"
#include "qzk_file_dbf_ext.h"
#include "record_filter.h"

namespace qzdbf {

namespace {

// Ends a line of the columns, without the padding after its last value.
void put_line(Output& out, std::string& line) {
    line.erase(line.find_last_not_of(' ') + 1);
    line += '\n';
    out.put(line);
    line.clear();
}

// A CSV field: quoted when it holds a comma, a quote or a line break, with
// its quotes doubled.
std::string csv_field(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string out = "\"";
    for (char c : text) {
        if (c == '"') out += '"';
        out += c;
    }
    return out + "\"";
}

// Widest a memo column gets in the aligned view, and a character column.
constexpr size_t kMemoColumns = 40;
constexpr size_t kTextColumns = 60;
// Longest a memo gets on a "name: value" line.
constexpr size_t kVerticalMemo = 400;

// The columns a field takes in the aligned view, from its type and length.
size_t field_columns(Tqz_dbf_rw* t, unsigned int f, bool raw) {
    const unsigned len = qz_dbf_get_field_flen(t, f);
    switch (qz_dbf_get_field_type(t, f)) {
        case dbf_ft_memo:
            return raw ? len : kMemoColumns;
        case dbf_ft_date:
            return 10;
        case dbf_ft_logical:
            return 1;
        case dbf_ft_char:
            return len < kTextColumns ? len : kTextColumns;
        default:
            return len < kTextColumns ? len : kTextColumns;
    }
}

// The fields --fields names, in its order; every field without it.
bool chosen_fields(Tqz_dbf_rw* t, const std::string& list, std::vector<unsigned>& out,
                   std::string& error) {
    out.clear();
    if (list.empty()) {
        for (unsigned f = 0; f < qz_dbf_get_nf(t); ++f) out.push_back(f);
        return true;
    }
    size_t start = 0;
    while (start <= list.size()) {
        size_t comma = list.find(',', start);
        if (comma == std::string::npos) comma = list.size();
        const std::string name = trim_blanks(list.substr(start, comma - start));
        unsigned int f = 0;
        if (name.empty() || !resolve_field(t, name, f, error)) {
            if (name.empty()) error = "an empty field name";
            error = "--fields '" + list + "': " + error;
            return false;
        }
        out.push_back(f);
        start = comma + 1;
    }
    return true;
}

// Prints the chosen records of an open table.
class Printer {
  public:
    Printer(Tqz_dbf_rw* t, const Dump_options& o, const std::vector<unsigned>& fields)
        : t_(t),
          o_(o),
          fields_(fields),
          flags_(qz_dbf_get_storage(t) != qz_dbf_storage_ogr),
          row_(flags_ ? qz_dbf_get_nf(t) : 0) {
        for (unsigned f : fields) {
            names_.push_back(field_name(t, f));
            memo_.push_back(qz_dbf_get_field_type(t, f) == dbf_ft_memo);
        }
    }

    void header(Output& out, unsigned long long last) {
        if (o_.form == Form::csv) {
            std::string line;
            for (size_t i = 0; i < fields_.size(); ++i)
                line += (i ? "," : "") + csv_field(names_[i]);
            line += flags_ ? ",deleted\r\n" : "\r\n";
            out.put(line);
        } else if (o_.form == Form::columns) {
            index_width_ = std::to_string(last).size();
            std::string line = "  ";
            pad_to(line, "#", index_width_, true);
            for (size_t i = 0; i < fields_.size(); ++i) {
                width_.push_back(
                    std::max(display_width(names_[i]), field_columns(t_, fields_[i], o_.raw)));
                right_.push_back(numeric_field(t_, fields_[i]));
                line += "  ";
                pad_to(line, names_[i], width_[i], right_[i]);
            }
            put_line(out, line);
            line = "  " + std::string(index_width_, '-');
            for (size_t w : width_) line += "  " + std::string(w, '-');
            put_line(out, line);
        } else if (o_.form == Form::json) {
            for (const std::string& name : names_)
                json_names_.push_back(json_string(system_to_utf8(name)));
        }
    }

    void record(Output& out, unsigned int r, bool deleted, bool first) {
        // The whole record in one read where the storage can; cell by cell
        // otherwise (OGR's sources, a memo that cannot be read).
        const unsigned nf = static_cast<unsigned>(row_.size());
        row_read_ = nf > 0 && qz_dbf_get_record_values(t_, r, row_.data(), nf) == long{nf};
        std::string line;
        switch (o_.form) {
            case Form::columns:
                line = deleted ? "* " : "  ";
                pad_to(line, std::to_string(r), index_width_, true);
                for (size_t i = 0; i < fields_.size(); ++i) {
                    line += "  ";
                    std::string text = shown(i, r, Text_style::screen);
                    if (memo_[i] || qz_dbf_get_field_type(t_, fields_[i]) == dbf_ft_char)
                        text = one_line(text, width_[i]);
                    pad_to(line, text, width_[i], right_[i]);
                }
                put_line(out, line);
                return;
            case Form::vertical:
                if (!first) line += '\n';
                for (size_t i = 0; i < fields_.size(); ++i) {
                    std::string text = shown(i, r, Text_style::screen);
                    if (memo_[i]) text = one_line(text, kVerticalMemo);
                    line += names_[i] + ": " + text + "\n";
                }
                break;
            case Form::values:
                for (size_t i = 0; i < fields_.size(); ++i)
                    line +=
                        (i ? "\t" : "") + one_line(shown(i, r, Text_style::screen), ~size_t{0} / 2);
                line += '\n';
                break;
            case Form::csv:
                for (size_t i = 0; i < fields_.size(); ++i)
                    line += (i ? "," : "") + csv_field(shown(i, r, Text_style::csv));
                if (flags_) line += deleted ? ",true" : ",false";
                line += "\r\n";
                break;
            case Form::json:
                line = "{";
                for (size_t i = 0; i < fields_.size(); ++i) {
                    if (i) line += ", ";
                    line += json_names_[i];
                    line += ": ";
                    line += json_value(i, r);
                }
                if (deleted)
                    line += fields_.empty() ? "\"_deleted\": true" : ", \"_deleted\": true";
                line += "}\n";
                break;
        }
        out.put(line);
    }

  private:
    // A cell as system text.
    std::string shown(size_t i, unsigned int r, Text_style style) {
        // --raw shows the block number a memo cell holds.
        if (o_.raw && memo_[i]) return cell_text(t_, fields_[i], r, nullptr);
        const Cell c = cell(i, r);
        if (!c.typed) return c.text;
        // On the screen, blanks around a text are not seen: they go, as
        // get and the columns have always shown cells.
        const std::string text = utf8_to_system(value_text(c.value, style));
        return style == Text_style::screen ? trim_blanks(text) : text;
    }

    Cell cell(size_t i, unsigned int r) const {
        if (!row_read_) return read_cell(t_, fields_[i], r);
        Cell c;
        c.value = row_[fields_[i]];
        c.typed = c.found = true;
        return c;
    }

    std::string json_value(size_t i, unsigned int r) {
        if (o_.raw && memo_[i]) {
            bool ok = false;
            const std::string block = cell_text(t_, fields_[i], r, &ok);
            return ok && !block.empty() ? block : "null";
        }
        const Cell c = cell(i, r);
        if (c.typed) return value_json(c.value);
        if (!c.found || c.text.empty()) return "null";
        const std::string text = system_to_utf8(c.text);
        return numeric_field(t_, fields_[i]) && is_json_number(text) ? text : json_string(text);
    }

    Tqz_dbf_rw* t_;
    const Dump_options& o_;
    const std::vector<unsigned>& fields_;
    const bool flags_;
    std::vector<std::string> names_, json_names_;
    std::vector<bool> memo_, right_;
    std::vector<size_t> width_;
    std::vector<Tqz_dbf_value> row_;  // the record's values, when read whole
    bool row_read_ = false;
    size_t index_width_ = 1;
};

}  // namespace

int run_dump(const Dump_options& o) {
    int status = kOk;
    Tqz_dbf_rw* t = open_for_reading(o, status);
    if (!t) return status;
    std::string error;
    std::vector<unsigned> fields;
    Record_filter filter;
    if (!chosen_fields(t, o.fields, fields, error) ||
        !filter.parse(t, o.where, o.ignore_case, error)) {
        qz_dbf_close(t);
        return fail(kBadUsage, error);
    }

    // OGR's sources have no deletion flags: no deleted column, no prefix.
    const bool flags = qz_dbf_get_storage(t) != qz_dbf_storage_ogr;
    const unsigned long long nr = qz_dbf_get_nr(t);
    const unsigned long long first = o.from < nr ? o.from : nr;
    unsigned long long end = nr - first < o.count ? nr : first + o.count;
    // The file may hold fewer records than its header says (the damage was
    // reported at the open): the records it holds are a prefix, found by
    // halving, so that a count of four billion costs nothing.
    if (flags && end > first && qz_dbf_get_deleted(t, static_cast<unsigned int>(end - 1)) < 0) {
        unsigned long long lo = first, hi = end - 1;  // lo: maybe held, hi: not held
        while (lo < hi) {
            const unsigned long long mid = lo + (hi - lo) / 2;
            if (qz_dbf_get_deleted(t, static_cast<unsigned int>(mid)) < 0)
                hi = mid;
            else
                lo = mid + 1;
        }
        end = lo;
    }

    // At most how many lines come out: whether the pager is needed.
    unsigned long long records = end - first < o.limit ? end - first : o.limit;
    unsigned long long per_record = o.form == Form::vertical ? fields.size() + 1 : 1;
    const unsigned long long lines =
        records > (~0ull - 2) / per_record ? ~0ull : records * per_record + 2;
    Output out(lines, !o.no_pager && o.form != Form::csv && o.form != Form::json);
    Printer printer(t, o, fields);
    printer.header(out, end > 0 ? end - 1 : 0);
    unsigned long long shown = 0;
    const unsigned long long start = filter.empty() ? first : filter.first_candidate(t, first, end);
    for (unsigned long long r = start; r < end && shown < o.limit && out.open(); ++r) {
        const unsigned int record = static_cast<unsigned int>(r);
        const bool deleted = flags && qz_dbf_get_deleted(t, record) == 1;
        if (deleted && o.skip_deleted) continue;
        if (!filter.empty() && !filter.matches(t, record)) continue;
        printer.record(out, record, deleted, shown == 0);
        ++shown;
    }
    qz_dbf_close(t);
    return out.finish();
}

void add_selection_options(CLI::App& cmd, Dump_options& o) {
    cmd.add_option("--fields", o.fields, "show these fields, in this order (names or indexes)")
        ->type_name("A,B,C");
    cmd.add_option("--where", o.where,
                   "show the records where NAME=value holds; also NAME!=value, NAME<value, "
                   "NAME>value, NAME<=value, NAME>=value, NAME~text (holds the text); numbers "
                   "compare as numbers, dates (YYYY-MM-DD) as dates; repeat for more conditions, "
                   "all of which must hold")
        ->type_name("COND");
    cmd.add_flag("-i,--ignore-case", o.ignore_case, "--where ignores letter case");
    cmd.add_flag("--vertical", o.vertical,
                 "one 'name: value' line a field, a blank line between records");
    cmd.add_option("--limit", o.limit, "show at most N records")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber);
    cmd.add_flag("--raw", o.raw, "memo cells as the block numbers they hold");
    cmd.add_flag("--skip-deleted", o.skip_deleted, "leave out the records marked deleted");
    cmd.add_flag("--no-pager", o.no_pager, "never page the output on a terminal");
}

Runner setup_dump(CLI::App& cmd) {
    auto o = std::make_shared<Dump_options>();
    add_read_options(cmd, *o);
    add_selection_options(cmd, *o);
    cmd.add_flag("--csv", o->csv, "CSV (RFC 4180) with a header row and a 'deleted' column");
    cmd.add_flag("--json", o->json,
                 "JSON Lines, one object a record, typed: numbers, \"YYYY-MM-DD\" dates, "
                 "true/false/null, memo text, binary cells in base64, \"_deleted\": true");
    cmd.add_option("--from", o->from, "start at record N (counted from 0)")
        ->type_name("N")
        ->check(CLI::Range(0ull, 0xFFFFFFFFull));
    cmd.add_option("--count", o->count,
                   "read N records from there (deleted and unmatched ones too)")
        ->type_name("N")
        ->check(CLI::Range(0ull, 0xFFFFFFFFull));
    cmd.get_option("--csv")->excludes("--json")->excludes("--vertical");
    cmd.get_option("--json")->excludes("--vertical");
    return [o] {
        o->form = o->csv        ? Form::csv
                  : o->json     ? Form::json
                  : o->vertical ? Form::vertical
                                : Form::columns;
        return run_dump(*o);
    };
}

int cmd_dump(const Args& args) {
    Args with = args;
    with.push_back("--no-pager");
    return run_command("dump", setup_dump, with);
}

}  // namespace qzdbf
