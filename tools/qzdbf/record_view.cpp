#include "record_view.h"

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <string>

#include "cli.h"
#include "qzk_file_dbf_ext.h"
#include "value_check.h"

namespace qzdbf {

namespace {

// Widest a memo column gets.
constexpr size_t kMemoColumns = 40;

std::wstring wide_of(const std::string& text) {
    int n = qz_code_page_to_wide(0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    if (n <= 0) return std::wstring();
    std::wstring w(static_cast<size_t>(n), L'\0');
    qz_code_page_to_wide(0, text.data(), static_cast<int>(text.size()), w.data(), n);
    return w;
}

size_t char_width(wchar_t c) {
    const int cw = ::wcwidth(c);
    return cw < 0 ? 1 : static_cast<size_t>(cw);
}

}  // namespace

std::string one_line(std::string text, size_t columns) {
    for (char& c : text)
        if (c == '\n' || c == '\r' || c == '\t') c = ' ';
    if (display_width(text) <= columns) return text;
    const bool utf8 = qz_options_get_ansi_code_page() == 65001;
    const std::string marker = utf8 ? "\xE2\x80\xA6" : "...";
    const size_t keep = columns - (utf8 ? 1 : 3);
    const std::wstring w = wide_of(text);
    size_t width = 0, k = 0;
    for (; k < w.size() && width + char_width(w[k]) <= keep; ++k) width += char_width(w[k]);
    int m = qz_wide_to_code_page(0, w.data(), static_cast<int>(k), nullptr, 0);
    std::string cut(static_cast<size_t>(m > 0 ? m : 0), '\0');
    if (m > 0) qz_wide_to_code_page(0, w.data(), static_cast<int>(k), cut.data(), m);
    return cut + marker;
}

void pad_to(std::string& line, const std::string& text, size_t width, bool right) {
    const size_t w = display_width(text);
    const std::string pad(width > w ? width - w : 0, ' ');
    line += right ? pad + text : text + pad;
}

namespace {

void put_line(std::string& line) {
    line.erase(line.find_last_not_of(' ') + 1);
    line += '\n';
    std::fputs(line.c_str(), stdout);
    line.clear();
}

}  // namespace

size_t display_width(const std::string& text) {
    if (text.empty()) return 0;
    const std::wstring w = wide_of(text);
    if (w.empty()) return text.size();
    size_t width = 0;
    for (wchar_t c : w) width += char_width(c);
    return width;
}

void print_records(Tqz_dbf_rw* t, const std::vector<unsigned int>& records,
                   const std::vector<unsigned int>& fields, bool vertical) {
    // Text in the encoding the table's text is written in (--encoding, the
    // .cpg file, the language driver, the flags).
    const bool decode = writes_in_table_encoding(t);
    auto value = [&](unsigned int f, unsigned int r) {
        const Tqz_dbf_field_type type = qz_dbf_get_field_type(t, f);
        if (type == dbf_ft_char && decode) return trim_blanks(text_in_table_encoding(t, f, r));
        if (type != dbf_ft_memo) return cell_text(t, f, r, nullptr);
        std::string text;
        if (!memo_text(t, f, r, text)) return std::string();
        if (decode && text.rfind("<binary, ", 0) != 0) text = text_in_table_encoding(t, f, r);
        return vertical ? text : one_line(text, kMemoColumns);
    };
    auto name = [&](unsigned int f) { return field_name(t, f); };
    if (vertical) {
        bool first = true;
        for (unsigned int r : records) {
            std::printf("%srecord %u%s\n", first ? "" : "\n", r,
                        qz_dbf_get_deleted(t, r) == 1 ? " (deleted)" : "");
            first = false;
            for (unsigned int f : fields) {
                std::string text = value(f, r);
                // A memo's CR LF breaks as plain breaks.
                for (size_t at = text.find("\r\n"); at != std::string::npos;
                     at = text.find("\r\n", at))
                    text.erase(at, 1);
                // Lines of a memo after its first stand under its first.
                const std::string indent(display_width(name(f)) + 2, ' ');
                for (size_t at = text.find('\n'); at != std::string::npos;
                     at = text.find('\n', at + 1 + indent.size()))
                    text.insert(at + 1, indent);
                std::printf("%s: %s\n", name(f).c_str(), text.c_str());
            }
        }
        return;
    }
    std::vector<size_t> width(fields.size());
    std::vector<bool> right(fields.size());
    unsigned int last = 0;
    for (unsigned int r : records) last = std::max(last, r);
    const size_t index_width = std::to_string(last).size();
    for (size_t k = 0; k < fields.size(); ++k) {
        width[k] = display_width(name(fields[k]));
        right[k] = numeric_field(t, fields[k]);
        for (unsigned int r : records)
            width[k] = std::max(width[k], display_width(value(fields[k], r)));
    }
    std::string line = "  ";
    pad_to(line, "#", index_width, true);
    for (size_t k = 0; k < fields.size(); ++k) {
        line += "  ";
        pad_to(line, name(fields[k]), width[k], right[k]);
    }
    put_line(line);
    line = "  " + std::string(index_width, '-');
    for (size_t k = 0; k < fields.size(); ++k) line += "  " + std::string(width[k], '-');
    put_line(line);
    for (unsigned int r : records) {
        line = qz_dbf_get_deleted(t, r) == 1 ? "* " : "  ";
        pad_to(line, std::to_string(r), index_width, true);
        for (size_t k = 0; k < fields.size(); ++k) {
            line += "  ";
            pad_to(line, value(fields[k], r), width[k], right[k]);
        }
        put_line(line);
    }
}

}  // namespace qzdbf
