// Helpers of the field-name tests: adapters that collect fed text, field
// lists built from names, and the system code page set for one test.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "qzk_basic.h"
#include "qzk_file_dbf.h"

namespace names_test {

// Collects the last text fed as 8-bit system text.
class Collect {
  public:
    Collect() : adp_(qz_string_adp_create(&on_text, nullptr, this)) {}
    ~Collect() { qz_string_adp_destroy(adp_); }
    Collect(const Collect&) = delete;
    Collect& operator=(const Collect&) = delete;
    Iqz_string_adp* adp() {
        text.clear();
        fed = 0;
        return adp_;
    }
    std::string text;
    int fed = 0;

  private:
    static void on_text(void* user, const char* t) {
        auto* self = static_cast<Collect*>(user);
        self->text = t ? t : "";
        ++self->fed;
    }
    Iqz_string_adp* adp_;
};

// Fix-style exports as functions returning their text.
template <class F, class... A>
std::string fed(F f, A... args) {
    Collect c;
    f(args..., c.adp());
    return c.text;
}

inline std::vector<Tqz_dbf_field> fields_of(const std::vector<std::string>& names) {
    std::vector<Tqz_dbf_field> out(names.size());
    for (size_t i = 0; i < names.size(); ++i)
        qz_dbf_field_init(&out[i], names[i].c_str(), dbf_ft_char, 10, 0);
    return out;
}

inline std::vector<std::string> names_of(const std::vector<Tqz_dbf_field>& fields) {
    std::vector<std::string> out;
    for (const auto& f : fields) out.emplace_back(f.name, strnlen(f.name, sizeof f.name));
    return out;
}

// Sets the system code page for the life of the object.
class Code_page {
  public:
    explicit Code_page(unsigned int cp) { qz_options_set_ansi_code_page(cp); }
    ~Code_page() { qz_options_set_ansi_code_page(0); }
};

// CP1251 bytes of Cyrillic text given in UTF-8.
inline std::string cp1251(const std::string& utf8) {
    std::wstring w(utf8.size(), L'\0');
    int n = qz_code_page_to_wide(65001, utf8.data(), static_cast<int>(utf8.size()), w.data(),
                                 static_cast<int>(w.size()));
    w.resize(n > 0 ? n : 0);
    std::string out(w.size() * 2 + 1, '\0');
    int m = qz_wide_to_code_page(1251, w.data(), static_cast<int>(w.size()), out.data(),
                                 static_cast<int>(out.size()));
    out.resize(m > 0 ? m : 0);
    return out;
}

}  // namespace names_test
