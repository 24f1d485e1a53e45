// Names that no field of a handle's table holds. Each function keeps its
// result in a static string of its own, overwritten by its next call.
#include <cstdint>
#include <set>
#include <string>

#include "api/table_rw.h"
#include "names/field_utils.h"
#include "names/name_text.h"

namespace {

std::set<std::string> table_names(Tqz_dbf_rw& rw) {
    std::set<std::string> names;
    const unsigned int nf = rw.get_nf();
    for (unsigned int i = 0; i < nf; ++i)
        if (const char* name = rw.get_field_name(i)) names.insert(name);
    return names;
}

}  // namespace

const char* Tqz_dbf_rw::generate_unin_name(const char* name) {
    static std::string result;
    const std::string wanted = name ? name : "";
    const std::set<std::string> taken = table_names(*this);
    std::string candidate = qz::names::cut_chars(wanted, qz::names::name_len_max);
    for (uint32_t n = 1; taken.count(candidate); ++n)
        candidate = Tqz_dbf_field_utils::add_num_ending(wanted, n, "");
    result = candidate;
    return result.c_str();
}

const char* Tqz_dbf_rw::generate_unin_name_old(const char* name) {
    static std::string result;
    const std::string wanted = name ? name : "";
    const std::set<std::string> taken = table_names(*this);
    std::string candidate = wanted;
    for (int n = 1; taken.count(candidate); ++n) candidate = wanted + std::to_string(n);
    result = candidate;
    return result.c_str();
}
