#include "field_names.h"

#include <algorithm>
#include <cstring>

#include "qzk_basic.h"

namespace qzdbf {

namespace {

void on_text(void* user, const char* text) {
    *static_cast<std::string*>(user) = text ? text : "";
}

// The first earlier name equal to names[i] without regard to case.
size_t earlier_equal(const std::vector<std::string>& names, size_t i) {
    for (size_t j = 0; j < i; ++j)
        if (qz_text_icompare(names[j].c_str(), names[i].c_str()) == 0) return j;
    return i;
}

}  // namespace

bool name_is_ok(const std::string& name) {
    return qz_dbf_field_name_is_ok(name.c_str());
}

std::string name_fix(const std::string& name) {
    std::string out;
    Iqz_string_adp* adp = qz_string_adp_create(&on_text, nullptr, &out);
    qz_dbf_field_name_fix(name.c_str(), adp);
    qz_string_adp_destroy(adp);
    return out;
}

std::string name_problem(const std::string& name) {
    if (name.empty()) return "empty";
    if (!qz_dbf_field_name_size_ok(name.c_str())) return "longer than 10 bytes";
    if (!qz_dbf_field_symbols_ok(name.c_str())) return "characters other than A-Z, 0-9 and _";
    if (!qz_dbf_field_first_symb_ok(name.c_str())) return "does not begin with a letter";
    if (!name_is_ok(name)) return "lower-case letters";
    return "";
}

bool duplicates_ic_ok(const std::vector<std::string>& names) {
    for (size_t i = 0; i < names.size(); ++i)
        if (earlier_equal(names, i) != i) return false;
    return true;
}

std::vector<Name_repair> fix_names(std::vector<std::string>& names) {
    std::vector<Name_repair> repairs;
    std::vector<Tqz_dbf_field> fields(names.size());
    for (size_t i = 0; i < names.size(); ++i) {
        std::string problem = name_problem(names[i]);
        std::string fixed = problem.empty() ? names[i] : name_fix(names[i]);
        qz_dbf_field_init(&fields[i], fixed.c_str(), dbf_ft_char, 1, 0);
        if (!problem.empty()) repairs.push_back({i, names[i], fixed, problem});
    }
    const std::vector<std::string> original = names;
    std::vector<std::string> single;
    for (const auto& f : fields) single.emplace_back(f.name);
    qz_dbf_fields_duplicates_ic_fix(fields.data(), static_cast<unsigned>(fields.size()));
    std::vector<std::string> final_names;
    for (const auto& f : fields) final_names.emplace_back(f.name);
    for (size_t i = 0; i < names.size(); ++i) {
        const std::string& now = final_names[i];
        if (now != single[i]) {
            // The earlier field (as it ends up) that the name collided with.
            std::vector<std::string> probe(final_names.begin(), final_names.begin() + i);
            probe.push_back(single[i]);
            size_t j = earlier_equal(probe, i);
            std::string why = "same as field " + std::to_string(j) + " ('" + probe[j] +
                              "') without regard to case";
            bool listed = false;
            for (Name_repair& r : repairs)
                if (r.index == i) {
                    r.fixed = now;
                    r.problem += "; " + why;
                    listed = true;
                }
            if (!listed) repairs.push_back({i, original[i], now, why});
        }
        names[i] = now;
    }
    std::sort(repairs.begin(), repairs.end(),
              [](const Name_repair& a, const Name_repair& b) { return a.index < b.index; });
    return repairs;
}

std::string describe(const Name_repair& r) {
    return "'" + r.name + "' -> '" + r.fixed + "' (" + r.problem + ")";
}

}  // namespace qzdbf
