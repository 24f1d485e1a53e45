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

const unsigned pages[] = {65001, 1251, 866, 1250, 1252, 1253, 1257, 20127, 1255, 932};
qz::strconv::text_converter conv;

std::string general(unsigned from, unsigned to, const std::string& s) {
    return qz::strconv::convert<std::string>(s.data(), s.size(), qz_code_page_iconv_name(from),
                                             qz_code_page_iconv_name(to), nullptr);
}

// `s` converted whole, up to a zero byte (as the table's buffers are), and
// (`wide`) to wide text, each as the general conversion does it.
void check(unsigned from, unsigned to, const std::string& s, bool wide_too = true) {
    text_buffer out;
    conv.narrow(from, to, s.data(), s.size(), false, out);
    ASSERT_EQ(std::string(out.c_str(), out.size()), general(from, to, s))
        << from << " -> " << to << " of " << ::testing::PrintToString(s);
    const std::string z = s + '\0' + "tail\xC3";
    ASSERT_STREQ(conv.narrow_view(from, to, z.c_str(), z.size(), out),
                 general(from, to, s.substr(0, s.find('\0'))).c_str());
    if (!wide_too) return;
    std::wstring wide;
    conv.to_wide(from, s.data(), s.size(), wide);
    ASSERT_EQ(wide, qz::basic::cp_to_wide(from, s.data(), s.size())) << from;
}

TEST(FastConvert, NarrowAndWideAsTheGeneralConversions) {
    // Every one- and two-byte UTF-8 lead, three-byte sequences around the
    // continuation range, random four-byte ones; bare and framed.
    std::vector<std::string> utf8;
    std::mt19937 rng(5);
    for (unsigned a = 0x80; a < 0x100; ++a) {
        utf8.push_back(std::string(1, char(a)));
        for (unsigned b = 0; b < 0x100; b += (b < 0x7F || b > 0xC0 ? 7 : 1))
            utf8.push_back(std::string{char(a), char(b)});
    }
    for (unsigned a = 0xE0; a < 0xF0; ++a)
        for (unsigned b = 0x80; b < 0xC0; ++b)
            for (unsigned c = 0x7E; c < 0xC2; ++c)
                utf8.push_back(std::string{char(a), char(b), char(c)});
    for (int i = 0; i < 30000; ++i)
        utf8.push_back(std::string{char(0xF0 + rng() % 8), char(0x80 + rng() % 0x40),
                                   char(0x7F + rng() % 0x42), char(0x80 + rng() % 0x40)});
    for (const std::string& t : utf8)
        for (unsigned to : {65001u, 1251u, 866u}) {
            check(65001, to, t, to == 65001);
            check(65001, to, "a" + t + "b", to == 65001);
        }
    // Every byte of every page into every page.
    for (unsigned from : pages)
        for (unsigned b = 0; b < 256; ++b)
            for (unsigned to : pages)
                check(from, to, "x" + std::string(1, char(b)) + "yz", to == from);
    // Random text of pieces and bytes between random pages.
    const char* pieces[] = {"Ёлка", "щ",    "€",    "日本", "😀",    "\xD0", "\xE2\x82",
                            "\x98", "\xFF", "abc ", "  ",   "\x1A", "é"};
    for (int i = 0; i < 40000; ++i) {
        std::string s;
        for (size_t k = rng() % 12; k > 0; --k)
            s += rng() % 3 ? std::string(pieces[rng() % 13]) : std::string(1, char(rng() % 256));
        check(pages[rng() % 10], pages[rng() % 10], s);
    }
    // Random wide text, odd code points among it, into every page.
    const wchar_t odd[] = {0xD800, 0xDFFF, 0x110000, -1, 0xFFFE, 0x20AC, 0x401, 0x1F600};
    for (int i = 0; i < 40000; ++i) {
        std::wstring w;
        for (size_t k = rng() % 10; k > 0; --k) {
            const unsigned pick = rng() % 4;
            w += pick == 0   ? wchar_t(rng() % 0x80)
                 : pick == 1 ? wchar_t(0x400 + rng() % 0x60)
                 : pick == 2 ? odd[rng() % 8]
                             : wchar_t(rng() % 0x110000);
        }
        for (unsigned cp : pages) {
            std::string got;
            conv.from_wide(cp, w.data(), w.size(), got);
            ASSERT_EQ(got, qz::basic::wide_to_cp(cp, w.data(), w.size())) << cp;
        }
    }
}

}  // namespace
