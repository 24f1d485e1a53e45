// Helpers of the field-name tests: an adapter that collects fed text, field
// lists built from names, and the system code page set for one test.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "qzk_basic.h"
#include "qzk_file_dbf.h"

namespace names_test {

// Collects the last text fed as 8-bit system text.
struct Collect {
    std::string text;
    Iqz_string_adp* adp = qz_string_adp_create(&on_text, nullptr, this);
    Collect() = default;
    Collect(const Collect&) = delete;
    ~Collect() { qz_string_adp_destroy(adp); }
    static void on_text(void* user, const char* t) {
        static_cast<Collect*>(user)->text = t ? t : "";
    }
};

// Fix-style exports as functions returning their text.
template <class F, class... A>
std::string fed(F f, A... args) {
    Collect c;
    f(args..., c.adp);
    return c.text;
}

inline std::vector<Tqz_dbf_field> fields_of(const std::vector<std::string>& names) {
    std::vector<Tqz_dbf_field> out(names.size());
    for (size_t i = 0; i < names.size(); ++i)
        qz_dbf_field_init(&out[i], names[i].c_str(), dbf_ft_char, 10, 0);
    return out;
}

inline std::vector<std::string> names_of(const Tqz_dbf_field* fields, size_t n) {
    std::vector<std::string> out;
    for (size_t i = 0; i < n; ++i) out.emplace_back(fields[i].name, strnlen(fields[i].name, 11));
    return out;
}

// Sets the system code page for the life of the object.
struct Code_page {
    explicit Code_page(unsigned int cp) { qz_options_set_ansi_code_page(cp); }
    ~Code_page() { qz_options_set_ansi_code_page(0); }
};

}  // namespace names_test
