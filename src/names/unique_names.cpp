// Numeric endings and names that no field of a list holds yet.
#include <set>
#include <string>

#include "names/field_utils.h"
#include "names/name_text.h"

using namespace qz::names;

namespace {

// The names of the descriptors, for exact (case-sensitive) lookups.
std::set<std::string> names_of(const Tqz_dbf_field* fields, unsigned int count) {
    std::set<std::string> names;
    if (!fields) return names;
    for (unsigned int i = 0; i < count; ++i)
        names.insert(Tqz_dbf_field_utils::get_field_name(fields[i]));
    return names;
}

}  // namespace

std::string Tqz_dbf_field_utils::add_num_ending(const std::string& name, uint32_t n,
                                                std::string sep) {
    std::string base =
        cut_chars(cut_chars(name, name_len_max) + cut_chars(sep, name_len_max), name_len_max);
    std::string num = std::to_string(n);
    if (base.size() + num.size() <= name_len_max) return base + num;
    size_t used = num.size() + sep.size();
    size_t keep = used < name_len_max ? name_len_max - used : 0;
    return cut_chars(base, keep) + sep + num;
}

std::string Tqz_dbf_field_utils::unique_name(const Tqz_dbf_field* fields, unsigned int count,
                                             const std::string& name) {
    // The endings run through the numbers, so among the first count + 1
    // distinct candidates one is free.
    std::set<std::string> taken = names_of(fields, count);
    std::string candidate = cut_chars(name, name_len_max);
    for (uint32_t n = 0; taken.count(candidate); ++n) candidate = add_num_ending(name, n, "");
    return candidate;
}

std::string Tqz_dbf_field_utils::unique_name_old(const Tqz_dbf_field* fields, unsigned int count,
                                                 const std::string& name) {
    std::set<std::string> taken = names_of(fields, count);
    std::string candidate = name;
    for (int n = 0; taken.count(candidate); ++n) candidate = name + std::to_string(n);
    return candidate;
}

void Tqz_dbf_field_utils::unique_name(const Tqz_dbf_field* fields, unsigned int count,
                                      const char* name, Iqz_string_adp* out) {
    std::string found = unique_name(fields, count, std::string(name ? name : ""));
    qz_string_adp_feed_c(out, found.c_str());
}

void Tqz_dbf_field_utils::unique_name_old(const Tqz_dbf_field* fields, unsigned int count,
                                          const char* name, Iqz_string_adp* out) {
    std::string found = unique_name_old(fields, count, std::string(name ? name : ""));
    qz_string_adp_feed_c(out, found.c_str());
}
