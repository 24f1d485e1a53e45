// qzdbf dump PATH [--layer N] [--csv] [--raw] [--from N] [--count N] [--skip-deleted] [--force]
//
// Records marked deleted show a `*` in the first column (a `deleted` column
// of true/false in CSV); --skip-deleted leaves them out.
// Prints records as aligned columns for a person, or as CSV (RFC 4180) for a
// program. Values are system text, that is the terminal's encoding. Memo
// fields show their text (cut to a column's width in the aligned view, whole
// in CSV); --raw shows the block numbers the cells hold instead.
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <string>
#include <vector>

#include "checked_open.h"
#include "cli.h"
#include "qzk_file_dbf_ext.h"

namespace qzdbf {

namespace {

// Columns a text takes on the terminal: its characters as the library reads
// system text, wide ones counting two where the C library knows them.
size_t display_width(const std::string& text) {
    if (text.empty()) return 0;
    int n = qz_code_page_to_wide(0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    if (n <= 0) return text.size();
    std::wstring w(static_cast<size_t>(n), L'\0');
    qz_code_page_to_wide(0, text.data(), static_cast<int>(text.size()), w.data(), n);
    size_t width = 0;
    for (wchar_t c : w) {
        int cw = ::wcwidth(c);
        width += cw < 0 ? 1 : static_cast<size_t>(cw);
    }
    return width;
}

void pad_to(std::string& line, const std::string& text, size_t width, bool right) {
    size_t w = display_width(text);
    std::string pad(width > w ? width - w : 0, ' ');
    line += right ? pad + text : text + pad;
}

// Ends a line of the columns, without the padding after its last value.
void put_line(std::string& line) {
    line.erase(line.find_last_not_of(' ') + 1);
    line += '\n';
    std::fputs(line.c_str(), stdout);
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

// Widest a memo column gets in the aligned view.
constexpr size_t kMemoColumns = 40;

// Line breaks and tabs of a memo as spaces, and the text cut to `columns`
// with a marker, so that one record stays on one line.
std::string one_line(std::string text, size_t columns) {
    for (char& c : text)
        if (c == '\n' || c == '\r' || c == '\t') c = ' ';
    if (display_width(text) <= columns) return text;
    const bool utf8 = qz_options_get_ansi_code_page() == 65001;
    const std::string marker = utf8 ? "\xE2\x80\xA6" : "...";
    const size_t keep = columns - (utf8 ? 1 : 3);
    int n = qz_code_page_to_wide(0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring w(static_cast<size_t>(n > 0 ? n : 0), L'\0');
    if (n > 0) qz_code_page_to_wide(0, text.data(), static_cast<int>(text.size()), w.data(), n);
    size_t width = 0, k = 0;
    for (; k < w.size(); ++k) {
        int cw = ::wcwidth(w[k]);
        size_t add = cw < 0 ? 1 : static_cast<size_t>(cw);
        if (width + add > keep) break;
        width += add;
    }
    int m = qz_wide_to_code_page(0, w.data(), static_cast<int>(k), nullptr, 0);
    std::string cut(static_cast<size_t>(m > 0 ? m : 0), '\0');
    if (m > 0) qz_wide_to_code_page(0, w.data(), static_cast<int>(k), cut.data(), m);
    return cut + marker;
}

}  // namespace

int cmd_dump(const Args& args) {
    std::string path, layer;
    bool csv = false, raw = false, skip_deleted = false, force = false;
    unsigned long long from = 0, count = 0xFFFFFFFFull;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--csv") {
            csv = true;
        } else if (a == "--raw") {
            raw = true;
        } else if (a == "--skip-deleted") {
            skip_deleted = true;
        } else if (a == "--force") {
            force = true;
        } else if (a == "--from" || a == "--count") {
            unsigned long long v = 0;
            if (i + 1 >= args.size() || !parse_count(args[i + 1], 0xFFFFFFFFull, v))
                return fail(kBadUsage, a + " needs a whole number");
            (a == "--from" ? from : count) = v;
            ++i;
        } else if (a == "--layer") {
            if (i + 1 >= args.size()) return fail(kBadUsage, "--layer needs a layer index");
            layer = args[++i];
        } else if (a.size() > 1 && a[0] == '-') {
            return fail(kBadUsage, "unknown option '" + a + "'");
        } else if (path.empty()) {
            path = a;
        } else {
            return fail(kBadUsage, "dump takes one PATH");
        }
    }
    if (path.empty()) return fail(kBadUsage, "dump needs a PATH");
    int status = kOk;
    Tqz_dbf_rw* t = open_table(path, Access::read, force, status);
    if (!t) return status;
    std::string error;
    if (!layer.empty() && !select_layer(t, layer, error)) {
        qz_dbf_close(t);
        return fail(kBadUsage, error);
    }

    // OGR's sources have no deletion flags: no deleted column, no prefix.
    const bool flags = qz_dbf_get_storage(t) != qz_dbf_storage_ogr;
    const unsigned int nf = qz_dbf_get_nf(t);
    const unsigned long long nr = qz_dbf_get_nr(t);
    const unsigned long long first = from < nr ? from : nr;
    unsigned long long end = nr - first < count ? nr : first + count;
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
    std::vector<bool> memo(nf);
    for (unsigned int f = 0; f < nf; ++f)
        memo[f] = !raw && qz_dbf_get_field_type(t, f) == dbf_ft_memo;
    // A cell as shown: memo text for memo fields, else the value's text.
    auto value = [&](unsigned int f, unsigned long long r) {
        std::string text;
        // A memo cell shows its memo or nothing, never its block number.
        if (memo[f])
            return memo_text(t, f, static_cast<unsigned int>(r), text)
                       ? (csv ? text : one_line(text, kMemoColumns))
                       : std::string();
        return cell_text(t, f, static_cast<unsigned int>(r), nullptr);
    };
    // The deletion flag of each record shown; -1 for a record the file does
    // not hold (reported once when the table was opened).
    auto deleted = [&](unsigned long long r) {
        return qz_dbf_get_deleted(t, static_cast<unsigned int>(r));
    };
    auto shown = [&](unsigned long long r) { return !skip_deleted || deleted(r) != 1; };
    std::vector<std::string> names(nf);
    for (unsigned int f = 0; f < nf; ++f) {
        const char* name = qz_dbf_get_field_name(t, f);
        names[f] = name ? name : "";
    }

    if (csv) {
        for (unsigned int f = 0; f < nf; ++f)
            std::printf("%s%s", f ? "," : "", csv_field(names[f]).c_str());
        std::fputs(flags ? ",deleted\r\n" : "\r\n", stdout);
        for (unsigned long long r = first; r < end; ++r) {
            if (!shown(r)) continue;
            for (unsigned int f = 0; f < nf; ++f) {
                std::printf("%s%s", f ? "," : "", csv_field(value(f, r)).c_str());
            }
            if (flags) std::printf(",%s", deleted(r) == 1 ? "true" : "false");
            std::fputs("\r\n", stdout);
        }
        qz_dbf_close(t);
        return kOk;
    }

    // Two passes: the widths of the columns, then the rows.
    std::vector<size_t> width(nf);
    std::vector<bool> right(nf);
    for (unsigned int f = 0; f < nf; ++f) {
        width[f] = display_width(names[f]);
        right[f] = numeric_field(t, f);
    }
    size_t index_width = std::to_string(end > 0 ? end - 1 : 0).size();
    for (unsigned long long r = first; r < end; ++r)
        for (unsigned int f = 0; f < nf && shown(r); ++f) {
            size_t w = display_width(value(f, r));
            if (w > width[f]) width[f] = w;
        }
    if (index_width < 1) index_width = 1;

    std::string line = "  ";
    pad_to(line, "#", index_width, true);
    for (unsigned int f = 0; f < nf; ++f) {
        line += "  ";
        pad_to(line, names[f], width[f], right[f]);
    }
    put_line(line);
    line = "  " + std::string(index_width, '-');
    for (unsigned int f = 0; f < nf; ++f) line += "  " + std::string(width[f], '-');
    put_line(line);
    for (unsigned long long r = first; r < end; ++r) {
        if (!shown(r)) continue;
        line = deleted(r) == 1 ? "* " : "  ";
        pad_to(line, std::to_string(r), index_width, true);
        for (unsigned int f = 0; f < nf; ++f) {
            line += "  ";
            pad_to(line, value(f, r), width[f], right[f]);
        }
        put_line(line);
    }
    qz_dbf_close(t);
    return kOk;
}

}  // namespace qzdbf
