// String adapters: the caller's callbacks behind an opaque handle.
#include <string>

#include "code_page_text.h"
#include "qzk_basic.h"

struct Iqz_string_adp {
    qz_ansi_string_proc ansi;
    qz_unicode_string_proc unicode;
    void* user;
};

extern "C" {

Iqz_string_adp* qz_string_adp_create(qz_ansi_string_proc ansi, qz_unicode_string_proc unicode,
                                     void* user) {
    return new Iqz_string_adp{ansi, unicode, user};
}

void qz_string_adp_destroy(Iqz_string_adp* adp) {
    delete adp;
}

void qz_string_adp_feed(Iqz_string_adp* adp, const wchar_t* text) {
    if (!adp) return;
    if (adp->unicode) {
        adp->unicode(adp->user, text);
    } else if (adp->ansi) {
        if (!text) return adp->ansi(adp->user, nullptr);
        std::string s = qz::basic::wide_to_cp(0, text, std::char_traits<wchar_t>::length(text));
        adp->ansi(adp->user, s.c_str());
    }
}

void qz_string_adp_feed_c(Iqz_string_adp* adp, const char* text) {
    if (!adp) return;
    if (adp->ansi) {
        adp->ansi(adp->user, text);
    } else if (adp->unicode) {
        if (!text) return adp->unicode(adp->user, nullptr);
        std::wstring w = qz::basic::cp_to_wide(0, text, std::char_traits<char>::length(text));
        adp->unicode(adp->user, w.c_str());
    }
}

}  // extern "C"
