// qzdbf stats PATH [--json] [--encoding NAME] [--cap N]
//
// The first look at an unknown table: for each field how many live records
// have a value, how many are blank, the smallest and largest value (numbers
// and dates by value, text by its characters' order) and how many distinct
// values there are, counted up to a cap (shown as ">CAP" beyond it).
#include <algorithm>
#include <cstdio>
#include <string>
#include <unordered_set>
#include <vector>

#include "checked_open.h"
#include "cli.h"
#include "command.h"
#include "import_export.h"
#include "progress.h"
#include "table_values.h"

namespace qzdbf {

namespace {

struct Field_stats {
    unsigned long long values = 0, blank = 0;
    bool has_range = false, numeric = false;
    double min_num = 0, max_num = 0;
    std::string min_text, max_text;  // as shown
    std::unordered_set<std::string> distinct;
    bool capped = false;
};

// A value's place in the order: numbers (and dates, logicals) as numbers.
bool as_number(const Tqz_dbf_value& v, double& out) {
    switch (v.kind) {
        case QZ_DBF_VALUE_BOOL:
        case QZ_DBF_VALUE_INT:
        case QZ_DBF_VALUE_DATE:
        case QZ_DBF_VALUE_DATETIME:
            out = static_cast<double>(v.i);
            return true;
        case QZ_DBF_VALUE_DOUBLE:
        case QZ_DBF_VALUE_DECIMAL:
            out = v.d;
            return true;
        default:
            return false;
    }
}

std::string json_string(const std::string& s) {
    std::string out = "\"";
    for (unsigned char c : s) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", c);
            out += buf;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

// Whether `s` is a number as JSON writes one.
bool json_number(const std::string& s) {
    size_t i = s[0] == '-' ? 1 : 0;
    auto digits = [&] {
        const size_t from = i;
        while (i < s.size() && s[i] >= '0' && s[i] <= '9') ++i;
        return i - from;
    };
    const size_t lead = i;
    const size_t n = digits();
    if (n == 0 || (n > 1 && s[lead] == '0')) return false;
    if (i < s.size() && s[i] == '.') {
        ++i;
        if (digits() == 0) return false;
    }
    if (i < s.size() && (s[i] == 'e' || s[i] == 'E')) {
        ++i;
        if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
        if (digits() == 0) return false;
    }
    return i == s.size();
}

// Text for a column: line breaks as blanks, at most 24 characters.
std::string cell(std::string s) {
    for (char& c : s)
        if (c == '\n' || c == '\r' || c == '\t') c = ' ';
    size_t chars = 0, i = 0;
    for (; i < s.size(); ++i) {
        if ((static_cast<unsigned char>(s[i]) & 0xC0) == 0x80) continue;
        if (++chars > 24) break;
    }
    if (i < s.size()) s = s.substr(0, i) + "...";
    return s;
}

}  // namespace

int run_stats(const Stats_options& o) {
    qz_options_set_ansi_code_page(65001);
    int status = kOk;
    Tqz_dbf_rw* t = open_table(o.path, Access::read, false, status);
    if (!t) return status;
    struct Closer {
        Tqz_dbf_rw* t;
        ~Closer() { qz_dbf_close(t); }
    } closer{t};
    if (!apply_encoding(t, o.encoding, status)) return status;

    const unsigned int nf = qz_dbf_get_nf(t), nr = qz_dbf_get_nr(t);
    const bool flags = qz_dbf_get_storage(t) != qz_dbf_storage_ogr;
    std::vector<Field_stats> stats(nf);
    unsigned long long live = 0, deleted = 0;
    Progress bar("stats", nr);
    if (o.quiet) bar.set_enabled(false);
    Tqz_dbf_value v;
    for (unsigned int r = 0; r < nr; ++r) {
        bar.step();
        if (flags) {
            const int del = qz_dbf_get_deleted(t, r);
            if (del < 0) break;
            if (del == 1) {
                ++deleted;
                continue;
            }
        }
        ++live;
        for (unsigned int f = 0; f < nf; ++f) {
            Field_stats& s = stats[f];
            if (!qz_dbf_get_value(t, f, r, &v) || v.kind == QZ_DBF_VALUE_NULL ||
                (v.kind == QZ_DBF_VALUE_TEXT && v.length == 0)) {
                ++s.blank;
                continue;
            }
            ++s.values;
            std::string text = value_text(v);
            double n = 0;
            const bool num = as_number(v, n);
            if (!s.has_range) {
                s.has_range = true;
                s.numeric = num;
                s.min_num = s.max_num = n;
                s.min_text = s.max_text = text;
            } else if (s.numeric && num) {
                if (n < s.min_num) s.min_num = n, s.min_text = text;
                if (n > s.max_num) s.max_num = n, s.max_text = text;
            } else {
                // Text (or a number field holding text): by bytes, which for
                // UTF-8 is the order of the characters.
                s.numeric = false;
                if (text < s.min_text) s.min_text = text;
                if (text > s.max_text) s.max_text = text;
            }
            if (!s.capped) {
                s.distinct.insert(std::move(text));
                if (s.distinct.size() > o.distinct_cap) {
                    s.capped = true;
                    s.distinct.clear();
                }
            }
        }
    }
    bar.finish();

    auto distinct_text = [&](const Field_stats& s) {
        return s.capped ? ">" + std::to_string(o.distinct_cap) : std::to_string(s.distinct.size());
    };
    auto type_text = [&](unsigned int f) {
        std::string t_ =
            std::string(1, field_letter(t, f)) + "(" + std::to_string(qz_dbf_get_field_flen(t, f));
        const int dec = qz_dbf_get_field_dlen(t, f);
        if (dec > 0) t_ += "," + std::to_string(dec);
        return t_ + ")";
    };
    if (o.json) {
        std::printf("{\"path\": %s, \"records\": %llu, \"deleted\": %llu, \"fields\": [",
                    json_string(o.path).c_str(), live, deleted);
        for (unsigned int f = 0; f < nf; ++f) {
            const Field_stats& s = stats[f];
            const std::string name = field_name(t, f);
            auto bound = [&](const std::string& text, double n) {
                if (!s.has_range) return std::string("null");
                const Value_class c = value_class(t, f);
                const bool number =
                    s.numeric && (c == Value_class::integer || c == Value_class::real);
                if (!number) return json_string(text);
                if (!text.empty() && json_number(text)) return text;
                char buf[32];
                std::snprintf(buf, sizeof buf, "%.15g", n);
                return std::string(buf);
            };
            std::printf(
                "%s\n  {\"name\": %s, \"type\": \"%c\", \"length\": %u, \"decimals\": %d, "
                "\"count\": %llu, \"blank\": %llu, \"min\": %s, \"max\": %s, \"distinct\": %s, "
                "\"distinct_capped\": %s}",
                f ? "," : "", json_string(name).c_str(), field_letter(t, f),
                qz_dbf_get_field_flen(t, f), qz_dbf_get_field_dlen(t, f), s.values, s.blank,
                bound(s.min_text, s.min_num).c_str(), bound(s.max_text, s.max_num).c_str(),
                s.capped ? "null" : std::to_string(s.distinct.size()).c_str(),
                s.capped ? "true" : "false");
        }
        std::printf("\n]}\n");
        return kOk;
    }
    std::vector<std::vector<std::string>> rows;
    rows.push_back({"FIELD", "TYPE", "COUNT", "BLANK", "DISTINCT", "MIN", "MAX"});
    for (unsigned int f = 0; f < nf; ++f) {
        const Field_stats& s = stats[f];
        rows.push_back({field_name(t, f), type_text(f), std::to_string(s.values),
                        std::to_string(s.blank), distinct_text(s), cell(s.min_text),
                        cell(s.max_text)});
    }
    std::vector<size_t> width(rows[0].size(), 0);
    auto chars = [](const std::string& s) {
        size_t n = 0;
        for (unsigned char c : s) n += (c & 0xC0) != 0x80;
        return n;
    };
    for (const auto& row : rows)
        for (size_t i = 0; i < row.size(); ++i) width[i] = std::max(width[i], chars(row[i]));
    std::printf("%s: %llu records", o.path.c_str(), live);
    if (deleted) std::printf(" (and %llu marked deleted, not counted)", deleted);
    std::printf(", %u fields\n", nf);
    for (const auto& row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            const std::string pad(width[i] - chars(row[i]), ' ');
            const bool right = i >= 2 && i <= 4;
            line += (i ? "  " : "") + (right ? pad + row[i] : row[i] + pad);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        std::printf("%s\n", line.c_str());
    }
    return kOk;
}

}  // namespace qzdbf
