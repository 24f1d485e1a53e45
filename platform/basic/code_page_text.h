// std::string / std::wstring forms of the code-page conversions of qzk_basic.
#pragma once

#include <string>

#include "qzk_basic.h"

namespace qz::basic {

// `len` bytes in code page `cp` (0: the ANSI code page) as wide text.
inline std::wstring cp_to_wide(unsigned int cp, const char* s, size_t len) {
    if (!s || len == 0 || len > 0x7FFFFFFF) return {};
    // One pass into a buffer that always suffices: no code page gives more
    // wide characters than bytes.
    std::wstring w(len, L'\0');
    int n = qz_code_page_to_wide(cp, s, static_cast<int>(len), w.data(), static_cast<int>(len));
    w.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return w;
}

inline std::wstring cp_to_wide(unsigned int cp, const std::string& s) {
    return cp_to_wide(cp, s.data(), s.size());
}

// Wide text in code page `cp`; characters it cannot hold become '?'.
inline std::string wide_to_cp(unsigned int cp, const wchar_t* w, size_t len) {
    if (!w || len == 0 || len > 0x7FFFFFFF) return {};
    int n = qz_wide_to_code_page(cp, w, static_cast<int>(len), nullptr, 0);
    std::string s(n > 0 ? static_cast<size_t>(n) : 0, '\0');
    if (n > 0 && qz_wide_to_code_page(cp, w, static_cast<int>(len), s.data(), n) != n) s.clear();
    return s;
}

inline std::string wide_to_cp(unsigned int cp, const std::wstring& w) {
    return wide_to_cp(cp, w.data(), w.size());
}

}  // namespace qz::basic
