#include "support/strutil.h"

#include <cerrno>
#include <cstdlib>
#include <cwchar>
#include <locale.h>

#include "code_page_text.h"
#include "qzk_basic.h"

namespace qz::strutil {

namespace {

template <class S, class C>
S trim_any(const S& s, const C* chars, bool right) {
    size_t b = s.find_first_not_of(chars);
    if (b == S::npos) return S();
    size_t e = right ? s.find_last_not_of(chars) + 1 : s.size();
    return s.substr(b, e - b);
}

std::wstring lower(std::wstring w) {
    qz_text_lower_w(w.data());
    return w;
}

template <class S, class Parse>
double numeric(S text, bool* ok, Parse parse) {
    size_t comma = text.find(typename S::value_type(','));
    if (comma != S::npos) text[comma] = typename S::value_type('.');
    errno = 0;
    typename S::value_type* end = nullptr;
    double v = parse(text.c_str(), &end);
    if (ok) {
        bool consumed = end != text.c_str();
        bool at_end = end == text.c_str() + text.size();
        *ok = consumed && at_end && errno != ERANGE;
    }
    return v;
}

}  // namespace

std::string trim(const std::string& s, const char* chars) {
    return trim_any(s, chars, true);
}
std::wstring trim(const std::wstring& s, const wchar_t* chars) {
    return trim_any(s, chars, true);
}
std::string trim_left(const std::string& s, const char* chars) {
    return trim_any(s, chars, false);
}
std::wstring trim_left(const std::wstring& s, const wchar_t* chars) {
    return trim_any(s, chars, false);
}
void trim_inplace(std::string& s, const char* chars) {
    s = trim(s, chars);
}
void trim_inplace(std::wstring& s, const wchar_t* chars) {
    s = trim(s, chars);
}

size_t find_ic(const std::wstring& haystack, const std::wstring& needle) {
    return lower(haystack).find(lower(needle));
}

size_t find_ic(const std::string& haystack, const std::string& needle) {
    // Work in wide text so that letters of any code page fold, then map the
    // position back to a byte offset of the original text.
    std::wstring h = qz::basic::cp_to_wide(0, haystack);
    size_t pos = find_ic(h, qz::basic::cp_to_wide(0, needle));
    if (pos == std::wstring::npos) return std::string::npos;
    return qz::basic::wide_to_cp(0, h.data(), pos).size();
}

// Numbers in tables always use a point, whatever locale the host runs in.
locale_t c_locale() {
    static locale_t loc = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return loc;
}

double to_numeric_safe(const std::string& text, bool* ok) {
    return numeric(text, ok, [](const char* s, char** e) { return strtod_l(s, e, c_locale()); });
}

double to_numeric_safe(const std::wstring& text, bool* ok) {
    return numeric(text, ok,
                   [](const wchar_t* s, wchar_t** e) { return wcstod_l(s, e, c_locale()); });
}

bool icase_less::operator()(const std::string& a, const std::string& b) const {
    return qz_text_icompare(a.c_str(), b.c_str()) < 0;
}

bool icase_less::operator()(const std::wstring& a, const std::wstring& b) const {
    return qz_text_icompare_w(a.c_str(), b.c_str()) < 0;
}

}  // namespace qz::strutil
