#include "names/name_text.h"

#include <cstring>

#include "code_page_text.h"
#include "qzk_basic.h"

namespace qz::names {

namespace {

constexpr unsigned int cp_utf8 = 65001;

bool system_is_utf8() {
    return qz_options_get_ansi_code_page() == cp_utf8;
}

bool continuation(unsigned char c) {
    return (c & 0xC0) == 0x80;
}

// Length of a valid UTF-8 sequence at `pos`, 1 for anything else.
size_t utf8_len_at(const std::string& s, size_t pos) {
    unsigned char c = static_cast<unsigned char>(s[pos]);
    size_t n = c < 0x80                 ? 1
               : c >= 0xC2 && c <= 0xDF ? 2
               : c >= 0xE0 && c <= 0xEF ? 3
               : c >= 0xF0 && c <= 0xF4 ? 4
                                        : 1;
    if (n == 1 || pos + n > s.size()) return 1;
    for (size_t i = 1; i < n; ++i)
        if (!continuation(static_cast<unsigned char>(s[pos + i]))) return 1;
    return n;
}

}  // namespace

size_t char_len_at(const std::string& s, size_t pos) {
    if (pos >= s.size()) return 0;
    return system_is_utf8() ? utf8_len_at(s, pos) : 1;
}

size_t char_count(const std::string& s) {
    if (!system_is_utf8()) return s.size();
    size_t n = 0;
    for (size_t pos = 0; pos < s.size(); pos += utf8_len_at(s, pos)) ++n;
    return n;
}

std::string cut_chars(const std::string& s, size_t max_bytes) {
    if (s.size() <= max_bytes) return s;
    if (!system_is_utf8()) return s.substr(0, max_bytes);
    size_t end = 0;
    while (end < s.size()) {
        size_t n = utf8_len_at(s, end);
        if (end + n > max_bytes) break;
        end += n;
    }
    return s.substr(0, end);
}

std::string upper(const std::string& s) {
    std::string out;
    out.reserve(s.size());
    const bool utf8 = system_is_utf8();
    for (size_t pos = 0; pos < s.size();) {
        size_t n = utf8 ? utf8_len_at(s, pos) : 1;
        unsigned char c = static_cast<unsigned char>(s[pos]);
        if (c < 0x80) {
            out += (c >= 'a' && c <= 'z') ? static_cast<char>(c - 0x20) : static_cast<char>(c);
        } else {
            std::wstring w = qz::basic::cp_to_wide(0, s.data() + pos, n);
            std::string done;
            if (w.size() == 1 && w[0] != 0xFFFD) {
                qz_text_upper_w(&w[0]);
                done = qz::basic::wide_to_cp(0, w);
                // '?' stands for a capital the code page cannot hold.
                if (done == "?") done.clear();
            }
            out += done.empty() ? s.substr(pos, n) : done;
        }
        pos += n;
    }
    return out;
}

int icompare(const std::string& a, const std::string& b) {
    return qz_text_icompare(a.c_str(), b.c_str());
}

std::wstring to_wide(const std::string& s) {
    return qz::basic::cp_to_wide(0, s);
}

std::string from_wide(const std::wstring& w) {
    return qz::basic::wide_to_cp(0, w);
}

std::string from_wide(const wchar_t* w) {
    return w ? qz::basic::wide_to_cp(0, w, std::wcslen(w)) : std::string();
}

std::string descriptor_name(const Tqz_dbf_field& f, size_t max) {
    if (max > sizeof f.name) max = sizeof f.name;
    size_t n = 0;
    while (n < max && f.name[n] != 0) ++n;
    return std::string(f.name, n);
}

void write_descriptor_name(Tqz_dbf_field& f, const std::string& name) {
    std::string cut = cut_chars(name.substr(0, name.find('\0')), name_len_max);
    std::memset(f.name, 0, sizeof f.name);
    std::memcpy(f.name, cut.data(), cut.size());
}

}  // namespace qz::names
