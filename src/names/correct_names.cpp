#include "names/correct_names.h"

#include <cstdio>
#include <string>

#include "code_page_text.h"
#include "names/field_utils.h"
#include "names/name_text.h"
#include "support/strutil.h"

using namespace qz::names;

namespace {

constexpr unsigned int cp_1251 = 1251;

// The byte table works on Windows-1251 bytes (Cyrillic in the upper half).
char correct_byte(unsigned char c, size_t pos) {
    if (c >= '0' && c <= '9') return static_cast<char>(c);
    if (c >= 'A' && c <= 'Z') return static_cast<char>(c);
    if (c >= 'a' && c <= 'z') return static_cast<char>(c - 0x20);
    if (c >= 0xC0 && c <= 0xDF) return static_cast<char>(c);
    if (c >= 0xE0) return static_cast<char>(c - 0x20);
    if (c == 0xA8) return static_cast<char>(0xA8);  // Ё
    if (c == 0xB8) return static_cast<char>(0xA8);  // ё -> Ё
    return pos == 0 ? 'A' : '_';
}

std::string correct_1251(const std::string& name) {
    std::string out(name.size(), '\0');
    for (size_t i = 0; i < name.size(); ++i)
        out[i] = correct_byte(static_cast<unsigned char>(name[i]), i);
    return out;
}

}  // namespace

bool correct_fname(Tqz_dbf_field* field) {
    if (!field) return false;
    const std::string old = descriptor_name(*field, name_len_max);
    std::string fixed;
    if (qz_options_get_ansi_code_page() == cp_1251) {
        fixed = correct_1251(old);
    } else {
        // Through Windows-1251 and back; a character it cannot hold arrives
        // as '?' and is mapped like any other byte.
        std::string narrow = qz::basic::wide_to_cp(cp_1251, to_wide(old));
        fixed = from_wide(qz::basic::cp_to_wide(cp_1251, correct_1251(narrow)));
    }
    if (fixed.empty()) fixed = Tqz_dbf_field_utils::default_name;
    fixed = cut_chars(fixed, name_len_max);
    if (fixed == old) return false;
    write_descriptor_name(*field, fixed);
    return true;
}

bool equal_fnames(Tqz_dbf_field a, Tqz_dbf_field b) {
    std::string x = qz::strutil::trim(descriptor_name(a, name_len_max));
    std::string y = qz::strutil::trim(descriptor_name(b, name_len_max));
    return icompare(x, y) == 0;
}

void make_new_fname(Tqz_dbf_field* field, int k) {
    if (!field) return;
    std::string name = qz::strutil::trim(descriptor_name(*field, name_len_max));
    char suffix[16];
    std::snprintf(suffix, sizeof suffix, "_%d", k);
    const size_t suffix_len = std::char_traits<char>::length(suffix);
    size_t keep = suffix_len < name_len_max ? name_len_max - suffix_len : 0;
    if (name.size() < keep) keep = name.size();
    write_descriptor_name(*field, cut_chars(name, keep) + suffix);
}

bool make_correct_names(Tqz_dbf_field* fields, int count) {
    if (!fields || count <= 0) return false;
    bool changed = false;
    // Only the last field's correction counts towards the result.
    for (int i = 0; i < count; ++i) changed = correct_fname(&fields[i]);
    for (int i = 1; i < count; ++i) {
        int k = 0;
        for (int j = 0; j < i;) {
            if (equal_fnames(fields[i], fields[j])) {
                make_new_fname(&fields[i], ++k);
                changed = true;
                j = 0;
            } else {
                ++j;
            }
        }
    }
    return changed;
}
