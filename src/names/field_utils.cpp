// The rules of valid field names and their repair.
#include "names/field_utils.h"

#include <cstring>
#include <set>

#include "names/name_text.h"
#include "support/string_adapter.h"
#include "support/strutil.h"

using namespace qz::names;

bool Tqz_dbf_field_utils::size_ok(const std::string& name) {
    return !name.empty() && name.size() <= name_len_max;
}

std::string Tqz_dbf_field_utils::size_fix(const std::string& name) {
    return name.empty() ? std::string(default_name) : cut_of_after_len_max(name);
}

std::string Tqz_dbf_field_utils::cut_of_after_len_max(const std::string& name) {
    return cut_chars(name, name_len_max);
}

std::string Tqz_dbf_field_utils::fix_empty(const std::string& name) {
    return name.empty() ? std::string(default_name) : name;
}

bool Tqz_dbf_field_utils::symbols_ok(const std::string& name) {
    for (char c : name)
        if (c == 0 || !std::strchr(permitted, c)) return false;
    return true;
}

std::string Tqz_dbf_field_utils::symbols_fix(const std::string& name) {
    std::wstring wide = to_wide(name);
    std::wstring latin;
    {
        Tqz_std_wstring_adapter adapter(&latin);
        qz_translit(wide.c_str(), adapter.handle());
    }
    for (wchar_t& c : latin)
        if (c == L'#') c = L'_';
    return from_wide(latin);
}

bool Tqz_dbf_field_utils::is_letter(char ch) {
    return (ch >= 'A' && ch <= 'Z') || (ch >= 'a' && ch <= 'z');
}

bool Tqz_dbf_field_utils::first_symb_ok(const std::string& name) {
    return !name.empty() && is_letter(name[0]);
}

std::string Tqz_dbf_field_utils::first_symb_fix(const std::string& name) {
    if (name.empty()) return default_name;
    if (is_letter(name[0])) return name;
    if (char_count(name) == 1) return default_name + name;
    // A letter is one byte in every code page, so stripping bytes up to the
    // first letter never leaves part of a character behind.
    size_t first = 0;
    while (first < name.size() && !is_letter(name[first])) ++first;
    return first < name.size() ? name.substr(first) : std::string(default_name);
}

bool Tqz_dbf_field_utils::is_upper_case(const std::string& name) {
    return upper(name) == name;
}

std::string Tqz_dbf_field_utils::fix_upper_case(const std::string& name) {
    return upper(name);
}

bool Tqz_dbf_field_utils::name_is_ok(const std::string& name) {
    return size_ok(name) && symbols_ok(name) && first_symb_ok(name) && is_upper_case(name);
}

std::string Tqz_dbf_field_utils::name_fix(const std::string& name) {
    std::string fixed = symbols_fix(name);
    fixed = first_symb_fix(fixed);
    fixed = size_fix(fixed);
    return fix_upper_case(fixed);
}

std::string Tqz_dbf_field_utils::get_field_name(const Tqz_dbf_field& field) {
    return descriptor_name(field);
}

void Tqz_dbf_field_utils::set_field_name(Tqz_dbf_field& field, const std::string& name) {
    write_descriptor_name(field, name);
}

bool Tqz_dbf_field_utils::duplicates_ic_ok(const fields_t& fields) {
    std::set<std::string, qz::strutil::icase_less> seen;
    for (const Tqz_dbf_field& f : fields)
        if (!seen.insert(get_field_name(f)).second) return false;
    return true;
}

void Tqz_dbf_field_utils::duplicates_ic_fix(fields_t& fields) {
    std::set<std::string, qz::strutil::icase_less> seen;
    for (Tqz_dbf_field& f : fields) {
        std::string name = get_field_name(f);
        if (seen.insert(name).second) continue;
        std::string candidate;
        for (uint32_t n = 1;; ++n) {
            candidate = add_num_ending(name, n, "");
            if (seen.find(candidate) == seen.end()) break;
        }
        set_field_name(f, candidate);
        seen.insert(get_field_name(f));
    }
}

bool Tqz_dbf_field_utils::names_ok(const fields_t& fields) {
    if (!duplicates_ic_ok(fields)) return false;
    for (const Tqz_dbf_field& f : fields)
        if (!name_is_ok(get_field_name(f))) return false;
    return true;
}

void Tqz_dbf_field_utils::names_fix(fields_t& fields) {
    for (Tqz_dbf_field& f : fields) {
        std::string name = get_field_name(f);
        if (!name_is_ok(name)) set_field_name(f, name_fix(name));
    }
    if (!duplicates_ic_ok(fields)) duplicates_ic_fix(fields);
}
