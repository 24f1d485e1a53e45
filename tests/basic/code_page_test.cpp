// Code-page conversion, letter case and string adapters of qzk_basic.
#include <gtest/gtest.h>

#include <string>

#include "code_page_text.h"
#include "qzk_basic.h"

namespace {

using qz::basic::wide_to_cp;

// The ANSI code page drives system text (page 0) and feeds of string
// adapters; an unconvertible page is refused; in the "C" locale of the
// tests the default is UTF-8. Cyrillic folds case in CP866. A feed
// reaches the callback of its width, or is converted to the one there is.
TEST(CodePage, AnsiCodePageLetterCaseAndAdapters) {
    EXPECT_EQ(qz_options_get_ansi_code_page(), 65001u);
    qz_options_set_ansi_code_page(866);
    EXPECT_EQ(qz_text_icompare(wide_to_cp(0, L"ёжик").c_str(), wide_to_cp(0, L"ЁЖИК").c_str()), 0);
    qz_options_set_ansi_code_page(1251);
    qz_options_set_ansi_code_page(4242);
    EXPECT_EQ(qz_options_get_ansi_code_page(), 1251u);
    EXPECT_STREQ(qz_code_page_iconv_name(0), "CP1251");

    struct Collected {
        std::string ansi = "-";
        std::wstring wide = L"-";
    } both, wide, ansi;
    auto on_ansi = [](void* u, const char* t) { static_cast<Collected*>(u)->ansi = t; };
    auto on_wide = [](void* u, const wchar_t* t) { static_cast<Collected*>(u)->wide = t; };
    Iqz_string_adp* adp[] = {qz_string_adp_create(on_ansi, on_wide, &both),
                             qz_string_adp_create(nullptr, on_wide, &wide),
                             qz_string_adp_create(on_ansi, nullptr, &ansi)};
    qz_string_adp_feed(adp[0], L"Дом");
    EXPECT_EQ(both.wide, L"Дом");
    EXPECT_EQ(both.ansi, "-");
    both.wide = L"-";
    qz_string_adp_feed_c(adp[0], "\xC4\xEE\xEC");
    EXPECT_EQ(both.ansi, "\xC4\xEE\xEC");
    EXPECT_EQ(both.wide, L"-");
    qz_string_adp_feed_c(adp[1], "\xC4\xEE\xEC");
    EXPECT_EQ(wide.wide, L"Дом");
    qz_string_adp_feed(adp[2], L"Дом");
    EXPECT_EQ(ansi.ansi, "\xC4\xEE\xEC");
    for (Iqz_string_adp* a : adp) qz_string_adp_destroy(a);
    qz_options_set_ansi_code_page(0);
}

}  // namespace
