// Code-page conversion, letter case, string adapters and transliteration of
// qzk_basic.
#include <gtest/gtest.h>

#include <string>

#include "code_page_text.h"
#include "qzk_basic.h"

namespace {

using qz::basic::cp_to_wide;
using qz::basic::wide_to_cp;

struct Ansi_code_page {
    explicit Ansi_code_page(unsigned cp) { qz_options_set_ansi_code_page(cp); }
    ~Ansi_code_page() { qz_options_set_ansi_code_page(0); }
};

// Every byte of the 8-bit pages that stands for a character comes back as
// that byte; text round trips through each page; known bytes, invalid
// input and the count-then-convert contract give what they must.
TEST(CodePage, RoundTripsKnownBytesAndInvalidInput) {
    for (unsigned cp : {1251u, 866u}) {
        for (unsigned b = 0x20; b < 0x100; ++b) {
            const std::string byte(1, static_cast<char>(b));
            const std::wstring w = cp_to_wide(cp, byte);
            ASSERT_EQ(w.size(), 1u) << cp << " byte " << b;
            EXPECT_TRUE(w == L"\uFFFD" || wide_to_cp(cp, w) == byte) << cp << " byte " << b;
        }
    }
    const std::wstring text = L"Привет, мир! Ёё 123";
    for (unsigned cp : {1251u, 866u, 65001u}) EXPECT_EQ(cp_to_wide(cp, wide_to_cp(cp, text)), text);
    const struct {
        unsigned cp;
        std::string bytes;
    } ya[] = {{1251, "\xDF"}, {866, "\x9F"}, {65001, "\xD0\xAF"}};
    for (const auto& c : ya) {
        EXPECT_EQ(wide_to_cp(c.cp, L"Я"), c.bytes) << c.cp;
        EXPECT_EQ(cp_to_wide(c.cp, c.bytes), L"Я") << c.cp;
    }
    // What a page cannot hold becomes '?'; invalid UTF-8 bytes, a truncated
    // sequence at the end included, become U+FFFD one by one.
    EXPECT_EQ(wide_to_cp(1251, L"a\u4E2Db"), "a?b");
    EXPECT_EQ(cp_to_wide(65001, std::string("a\xFF\xFE") + "b"), L"a\uFFFD\uFFFDb");
    EXPECT_EQ(cp_to_wide(65001, std::string("ab\xD0")), L"ab\uFFFD");
    EXPECT_EQ(qz_code_page_to_wide(12345, "abc", 3, nullptr, 0), 0);
    EXPECT_EQ(qz_code_page_to_wide(1251, "", 0, nullptr, 0), 0);
    EXPECT_EQ(qz_code_page_iconv_name(12345), nullptr);

    const char pri[] = "\xCF\xF0\xE8";  // "При" in CP1251
    wchar_t out[3];
    EXPECT_EQ(qz_code_page_to_wide(1251, pri, 3, nullptr, 0), 3);
    EXPECT_EQ(qz_code_page_to_wide(1251, pri, 3, out, 2), 0) << "too small a buffer";
    EXPECT_EQ(qz_code_page_to_wide(1251, pri, 3, out, 3), 3);
    EXPECT_EQ(std::wstring(out, 3), L"При");
}

// The ANSI code page drives system text (0 as a page); an unconvertible page
// is refused; in the "C" locale the tests run in, the default is UTF-8.
// Case folding works for Cyrillic in every page.
TEST(CodePage, AnsiCodePageAndLetterCase) {
    {
        Ansi_code_page cp(1251);
        EXPECT_STREQ(qz_code_page_iconv_name(0), "CP1251");
        EXPECT_EQ(cp_to_wide(0, std::string("\xDF")), L"Я");
        qz_options_set_ansi_code_page(4242);
        EXPECT_EQ(qz_options_get_ansi_code_page(), 1251u);
    }
    EXPECT_EQ(qz_options_get_ansi_code_page(), 65001u);

    EXPECT_EQ(qz_text_icompare_w(L"Москва", L"МОСКВА"), 0);
    EXPECT_LT(qz_text_icompare_w(L"abc", L"ABD"), 0);
    EXPECT_GT(qz_text_icompare_w(L"abcd", L"ABC"), 0);
    for (unsigned cp : {1251u, 866u, 65001u}) {
        Ansi_code_page ansi(cp);
        EXPECT_EQ(qz_text_icompare(wide_to_cp(0, L"ёжик").c_str(), wide_to_cp(0, L"ЁЖИК").c_str()),
                  0)
            << cp;
    }
    wchar_t w[] = L"Щука z";
    qz_text_upper_w(w);
    EXPECT_EQ(std::wstring(w), L"ЩУКА Z");
    qz_text_lower_w(w);
    EXPECT_EQ(std::wstring(w), L"щука z");
}

struct Collected {
    std::string ansi = "-";
    std::wstring wide = L"-";
};
void on_ansi(void* u, const char* t) {
    static_cast<Collected*>(u)->ansi = t;
}
void on_wide(void* u, const wchar_t* t) {
    static_cast<Collected*>(u)->wide = t;
}

// A feed reaches the callback of its width, or is converted through the
// ANSI code page to the one there is. Transliteration gives Latin text.
TEST(StringAdapter, FeedsReachTheMatchingCallbackOrAreConverted) {
    Ansi_code_page cp(1251);
    Collected both, wide, ansi;
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
    qz_string_adp_feed(adp[2], L"Дом");
    EXPECT_EQ(wide.wide, L"Дом");
    EXPECT_EQ(ansi.ansi, "\xC4\xEE\xEC");

    qz_translit(L"Привет, Мир", adp[1]);
    EXPECT_EQ(wide.wide, L"Privet, Mir");
    qz_translit(L"Щёлково Ελλάδα", adp[1]);
    EXPECT_FALSE(wide.wide.empty());
    for (wchar_t c : wide.wide) EXPECT_LT(static_cast<unsigned>(c), 0x80u) << "not ASCII";
    for (Iqz_string_adp* a : adp) qz_string_adp_destroy(a);
}

}  // namespace
