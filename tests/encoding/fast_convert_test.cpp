// The table-driven conversions give exactly what the general conversions
// (iconv) give: every short UTF-8 sequence, every byte of every page, random
// text with invalid and unmappable parts, and wide text.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "code_page_text.h"
#include "encoding/encodings.h"
#include "encoding/fast_convert.h"
#include "qzk_basic.h"

namespace {

using qz::strconv::text_buffer;
using qz::strconv::text_converter;

const unsigned pages[] = {65001, 1251, 866, 1250, 1252, 1253, 1257, 20127, 1255, 932};

std::string general(unsigned from, unsigned to, const std::string& s) {
    return qz::strconv::convert<std::string>(s.data(), s.size(), qz_code_page_iconv_name(from),
                                             qz_code_page_iconv_name(to), nullptr);
}

class Fast_convert : public ::testing::Test {
  protected:
    void TearDown() override { qz_options_set_ansi_code_page(0); }

    void check_narrow(unsigned from, unsigned to, const std::string& s) {
        text_buffer out;
        conv.narrow(from, to, s.data(), s.size(), false, out);
        std::string want = general(from, to, s);
        ASSERT_EQ(std::string(out.c_str(), out.size()), want)
            << from << " -> " << to << " of " << ::testing::PrintToString(s);
        // Up to a zero byte, as the table's buffers are converted.
        std::string z = s + '\0' + "tail\xC3";
        const char* view = conv.narrow_view(from, to, z.c_str(), z.size(), out);
        std::string head = s.substr(0, s.find('\0'));
        ASSERT_STREQ(view, general(from, to, head).c_str()) << ::testing::PrintToString(s);
    }
    void check_wide(unsigned cp, const std::string& s) {
        std::wstring got;
        conv.to_wide(cp, s.data(), s.size(), got);
        ASSERT_EQ(got, qz::basic::cp_to_wide(cp, s.data(), s.size()))
            << cp << " of " << ::testing::PrintToString(s);
    }

    text_converter conv;
};

TEST_F(Fast_convert, EveryShortUtf8Sequence) {
    std::vector<std::string> texts;
    for (unsigned a = 0x80; a < 0x100; ++a) {
        texts.push_back(std::string(1, char(a)));
        for (unsigned b = 0; b < 0x100; b += (b < 0x7F || b > 0xC0 ? 7 : 1))
            texts.push_back(std::string{char(a), char(b)});
    }
    for (unsigned a = 0xE0; a < 0xF0; ++a)
        for (unsigned b = 0x80; b < 0xC0; ++b)
            for (unsigned c = 0x7E; c < 0xC2; ++c)
                texts.push_back(std::string{char(a), char(b), char(c)});
    std::mt19937 rng(5);
    for (int i = 0; i < 30000; ++i) {
        unsigned a = 0xF0 + rng() % 8;
        texts.push_back(std::string{char(a), char(0x80 + rng() % 0x40), char(0x7F + rng() % 0x42),
                                    char(0x80 + rng() % 0x40)});
    }
    for (const std::string& t : texts) {
        std::string framed = "a" + t + "b";
        for (unsigned to : {65001u, 1251u, 866u}) {
            check_narrow(65001, to, t);
            check_narrow(65001, to, framed);
        }
        check_wide(65001, t);
        check_wide(65001, framed);
    }
}

TEST_F(Fast_convert, EveryByteOfEveryPage) {
    for (unsigned from : pages) {
        for (unsigned b = 0; b < 256; ++b) {
            std::string one(1, char(b));
            for (unsigned to : pages) check_narrow(from, to, "x" + one + "yz");
            check_wide(from, one);
        }
    }
}

TEST_F(Fast_convert, RandomTextBetweenPages) {
    std::mt19937 rng(6);
    const char* pieces[] = {"Ёлка", "щ",    "€",    "日本", "😀",    "\xD0", "\xE2\x82",
                            "\x98", "\xFF", "abc ", "  ",   "\x1A", "é"};
    for (int i = 0; i < 40000; ++i) {
        std::string s;
        size_t n = rng() % 12;
        for (size_t k = 0; k < n; ++k) {
            if (rng() % 3)
                s += pieces[rng() % (sizeof pieces / sizeof pieces[0])];
            else
                s += char(rng() % 256);
        }
        unsigned from = pages[rng() % 10], to = pages[rng() % 10];
        check_narrow(from, to, s);
        check_wide(from, s);
    }
}

TEST_F(Fast_convert, WideText) {
    std::mt19937 rng(7);
    const wchar_t odd[] = {0xD800, 0xDFFF, 0x110000, -1, 0xFFFE, 0x20AC, 0x401, 0x1F600, 0};
    for (int i = 0; i < 40000; ++i) {
        std::wstring w;
        size_t n = rng() % 10;
        for (size_t k = 0; k < n; ++k) {
            switch (rng() % 4) {
                case 0:
                    w += wchar_t(rng() % 0x80);
                    break;
                case 1:
                    w += wchar_t(0x400 + rng() % 0x60);
                    break;
                case 2:
                    w += odd[rng() % 8];
                    break;
                default:
                    w += wchar_t(rng() % 0x110000);
                    break;
            }
        }
        for (unsigned cp : pages) {
            std::string got;
            conv.from_wide(cp, w.data(), w.size(), got);
            ASSERT_EQ(got, qz::basic::wide_to_cp(cp, w.data(), w.size())) << cp;
        }
    }
}

TEST_F(Fast_convert, SystemCodePageIsTheOneSetAtTheTime) {
    text_buffer out;
    qz_options_set_ansi_code_page(1251);
    conv.narrow(866, 0, "\x9F", 1, false, out);
    EXPECT_STREQ(out.c_str(), "\xDF");  // Я
    qz_options_set_ansi_code_page(65001);
    conv.narrow(866, 0, "\x9F", 1, false, out);
    EXPECT_STREQ(out.c_str(), "Я");
    // Unchanged text is handed back where it is.
    const char text[] = "plain 123";
    EXPECT_EQ(conv.narrow_view(1251, 0, text, sizeof text, out), text);
    const char same[] = "Я";
    EXPECT_EQ(conv.narrow_view(65001, 0, same, sizeof same, out), same);
    EXPECT_NE(conv.narrow_view(1251, 0, "\xDF", 2, out), nullptr);
    EXPECT_STREQ(conv.narrow_view(1251, 0, "\xDF", 2, out), "Я");
}

}  // namespace
