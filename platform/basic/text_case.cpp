// Letter case by Unicode rules, independent of the C library's locale, so
// that Cyrillic text compares and converts alike in every code page.
#include <unicode/uchar.h>

#include <string>

#include "code_page_text.h"
#include "qzk_basic.h"

namespace {

UChar32 fold(wchar_t c) {
    return u_foldCase(static_cast<UChar32>(c), U_FOLD_CASE_DEFAULT);
}

std::wstring from_ansi(const char* s) {
    return qz::basic::cp_to_wide(0, s, std::char_traits<char>::length(s));
}

}  // namespace

extern "C" {

int qz_text_icompare_w(const wchar_t* a, const wchar_t* b) {
    if (!a || !b) return a == b ? 0 : (a ? 1 : -1);
    for (;; ++a, ++b) {
        UChar32 x = fold(*a), y = fold(*b);
        if (x != y) return x < y ? -1 : 1;
        if (*a == 0) return 0;
    }
}

int qz_text_icompare(const char* a, const char* b) {
    if (!a || !b) return a == b ? 0 : (a ? 1 : -1);
    return qz_text_icompare_w(from_ansi(a).c_str(), from_ansi(b).c_str());
}

void qz_text_upper_w(wchar_t* text) {
    if (!text) return;
    for (; *text; ++text) *text = static_cast<wchar_t>(u_toupper(static_cast<UChar32>(*text)));
}

void qz_text_lower_w(wchar_t* text) {
    if (!text) return;
    for (; *text; ++text) *text = static_cast<wchar_t>(u_tolower(static_cast<UChar32>(*text)));
}

}  // extern "C"
