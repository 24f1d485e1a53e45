// Code-page conversion, letter case and string adapters of qzk_basic.
#include <gtest/gtest.h>

#include <string>

#include "code_page_text.h"
#include "qzk_basic.h"

namespace {

struct Ansi_code_page {
    explicit Ansi_code_page(unsigned cp) { qz_options_set_ansi_code_page(cp); }
    ~Ansi_code_page() { qz_options_set_ansi_code_page(0); }
};

// Every byte of the 8-bit table pages that stands for a character comes back
// as that byte; text round trips through each page; known bytes and invalid
// input give what they must.
TEST(CodePage, RoundTripsKnownBytesAndInvalidInput) {
    for (unsigned cp : {1251u, 866u}) {
        for (unsigned b = 0x20; b < 0x100; ++b) {
            const std::string byte(1, static_cast<char>(b));
            const std::wstring w = qz::basic::cp_to_wide(cp, byte);
            ASSERT_EQ(w.size(), 1u) << cp << " byte " << b;
            EXPECT_TRUE(w == L"\uFFFD" || qz::basic::wide_to_cp(cp, w) == byte)
                << cp << " byte " << b;
        }
    }
    const std::wstring text = L"Привет, мир! Ёё 123";
    for (unsigned cp : {1251u, 866u, 65001u})
        EXPECT_EQ(qz::basic::cp_to_wide(cp, qz::basic::wide_to_cp(cp, text)), text) << cp;

    struct {
        unsigned cp;
        std::wstring wide;
        std::string bytes;
    } both_ways[] = {{1251, L"Я", "\xDF"}, {866, L"Я", "\x9F"}, {65001, L"Я", "\xD0\xAF"}};
    for (const auto& c : both_ways) {
        EXPECT_EQ(qz::basic::wide_to_cp(c.cp, c.wide), c.bytes) << c.cp;
        EXPECT_EQ(qz::basic::cp_to_wide(c.cp, c.bytes), c.wide) << c.cp;
    }
    // What a page cannot hold becomes '?'; invalid UTF-8 bytes, a truncated
    // sequence at the end included, become U+FFFD one by one.
    EXPECT_EQ(qz::basic::wide_to_cp(1251, L"a\u4E2Db"), "a?b");
    EXPECT_EQ(qz::basic::cp_to_wide(65001, std::string("a\xFF\xFE"
                                                       "b")),
              L"a\uFFFD\uFFFDb");
    EXPECT_EQ(qz::basic::cp_to_wide(65001, std::string("ab\xD0")), L"ab\uFFFD");
    // Unknown code pages and empty input give nothing.
    EXPECT_EQ(qz_code_page_to_wide(12345, "abc", 3, nullptr, 0), 0);
    EXPECT_EQ(qz_code_page_to_wide(1251, "", 0, nullptr, 0), 0);
    EXPECT_EQ(qz_code_page_iconv_name(12345), nullptr);
}

TEST(CodePage, CountThenConvertContract) {
    const char text[] = "\xCF\xF0\xE8";  // "При" in CP1251
    int n = qz_code_page_to_wide(1251, text, 3, nullptr, 0);
    ASSERT_EQ(n, 3);
    wchar_t small[2];
    EXPECT_EQ(qz_code_page_to_wide(1251, text, 3, small, 2), 0) << "too small a buffer";
    wchar_t out[3];
    EXPECT_EQ(qz_code_page_to_wide(1251, text, 3, out, 3), 3);
    EXPECT_EQ(std::wstring(out, 3), L"При");
}

TEST(CodePage, AnsiCodePageSettingDrivesSystemText) {
    {
        Ansi_code_page cp(1251);
        EXPECT_EQ(qz_options_get_ansi_code_page(), 1251u);
        EXPECT_STREQ(qz_code_page_iconv_name(0), "CP1251");
        EXPECT_EQ(qz::basic::cp_to_wide(0, std::string("\xDF")), L"Я");
        // A code page that cannot be converted is refused.
        qz_options_set_ansi_code_page(4242);
        EXPECT_EQ(qz_options_get_ansi_code_page(), 1251u);
    }
    // Tests run in the "C" locale, whose codeset is not a known code page.
    EXPECT_EQ(qz_options_get_ansi_code_page(), 65001u);
}

TEST(TextCase, CyrillicFoldsInEveryCodePage) {
    EXPECT_EQ(qz_text_icompare_w(L"Москва", L"МОСКВА"), 0);
    EXPECT_LT(qz_text_icompare_w(L"abc", L"ABD"), 0);
    EXPECT_GT(qz_text_icompare_w(L"abcd", L"ABC"), 0);
    for (unsigned cp : {1251u, 866u, 65001u}) {
        Ansi_code_page ansi(cp);
        std::string lower = qz::basic::wide_to_cp(0, L"ёжик"),
                    upper = qz::basic::wide_to_cp(0, L"ЁЖИК");
        EXPECT_EQ(qz_text_icompare(lower.c_str(), upper.c_str()), 0) << cp;
    }
    wchar_t w[] = L"Щука z";
    qz_text_upper_w(w);
    EXPECT_EQ(std::wstring(w), L"ЩУКА Z");
    qz_text_lower_w(w);
    EXPECT_EQ(std::wstring(w), L"щука z");
}

struct Collected {
    std::string ansi;
    std::wstring wide;
    int ansi_calls = 0, wide_calls = 0;
};

TEST(StringAdapter, FeedsReachTheMatchingCallbackOrAreConverted) {
    Ansi_code_page cp(1251);
    Collected c;
    auto on_ansi = [](void* u, const char* t) {
        auto* c = static_cast<Collected*>(u);
        c->ansi = t ? t : "(null)";
        ++c->ansi_calls;
    };
    auto on_wide = [](void* u, const wchar_t* t) {
        auto* c = static_cast<Collected*>(u);
        c->wide = t ? t : L"(null)";
        ++c->wide_calls;
    };
    Iqz_string_adp* both = qz_string_adp_create(on_ansi, on_wide, &c);
    qz_string_adp_feed(both, L"Дом");
    qz_string_adp_feed_c(both, "\xC4\xEE\xEC");
    EXPECT_EQ(c.wide, L"Дом");
    EXPECT_EQ(c.ansi, "\xC4\xEE\xEC");
    EXPECT_EQ(c.ansi_calls, 1);
    EXPECT_EQ(c.wide_calls, 1);
    qz_string_adp_destroy(both);

    Collected only_wide;
    Iqz_string_adp* w = qz_string_adp_create(nullptr, on_wide, &only_wide);
    qz_string_adp_feed_c(w, "\xC4\xEE\xEC");  // converted with the ANSI code page
    EXPECT_EQ(only_wide.wide, L"Дом");
    qz_string_adp_destroy(w);

    Collected only_ansi;
    Iqz_string_adp* a = qz_string_adp_create(on_ansi, nullptr, &only_ansi);
    qz_string_adp_feed(a, L"Дом");
    EXPECT_EQ(only_ansi.ansi, "\xC4\xEE\xEC");
    qz_string_adp_destroy(a);
}

TEST(Translit, CyrillicBecomesLatin) {
    std::wstring out;
    Iqz_string_adp* adp = qz_string_adp_create(
        nullptr, [](void* u, const wchar_t* t) { *static_cast<std::wstring*>(u) = t; }, &out);
    qz_translit(L"Привет, Мир", adp);
    EXPECT_EQ(out, L"Privet, Mir");
    qz_translit(L"Щёлково Ελλάδα", adp);
    for (wchar_t c : out)
        EXPECT_LT(static_cast<unsigned>(c), 0x80u) << "not ASCII in " << out.size();
    EXPECT_FALSE(out.empty());
    qz_string_adp_destroy(adp);
}

}  // namespace
