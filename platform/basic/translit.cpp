// Transliteration of any script into Latin letters, ASCII where possible.
#include <unicode/translit.h>
#include <unicode/unistr.h>

#include <memory>
#include <mutex>
#include <string>

#include "qzk_basic.h"

namespace {

std::mutex translit_mutex;

// Building the transliterator parses its rules; do it once per process.
icu::Transliterator* transliterator() {
    static std::unique_ptr<icu::Transliterator> t = [] {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::Transliterator> made(
            icu::Transliterator::createInstance("Any-Latin; Latin-ASCII", UTRANS_FORWARD, status));
        return U_SUCCESS(status) ? std::move(made) : nullptr;
    }();
    return t.get();
}

}  // namespace

extern "C" {

void qz_translit(const wchar_t* text, Iqz_string_adp* out) {
    if (!out) return;
    std::wstring src = text ? text : L"";
    icu::UnicodeString u = icu::UnicodeString::fromUTF32(
        reinterpret_cast<const UChar32*>(src.data()), static_cast<int32_t>(src.size()));
    {
        std::lock_guard<std::mutex> lock(translit_mutex);
        if (icu::Transliterator* t = transliterator()) t->transliterate(u);
    }
    UErrorCode status = U_ZERO_ERROR;
    int32_t n = u.toUTF32(nullptr, 0, status);
    std::wstring result(static_cast<size_t>(n), L'\0');
    status = U_ZERO_ERROR;
    if (n > 0) u.toUTF32(reinterpret_cast<UChar32*>(result.data()), n, status);
    qz_string_adp_feed(out, result.c_str());
}

}  // extern "C"
