// The UTF-8 check that lets the reads hand text back unchanged: it agrees
// with a character-by-character decoder on every short sequence at every
// place within the eight-byte steps, and the reads
// built on it give what iconv gives, also for text followed by leftovers of
// an earlier text.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "code_page_text.h"
#include "encoding/encodings.h"
#include "encoding/fast_convert.h"
#include "encoding/utf8_scan.h"

namespace {

// By the definition: the lead byte gives the length, the continuation bytes
// the rest; the value must need that length, not be a surrogate and not pass
// U+10FFFF.
bool reference(const std::string& s) {
    for (size_t i = 0, n; i < s.size(); i += n) {
        const unsigned b0 = static_cast<unsigned char>(s[i]);
        n = b0 < 0x80             ? 1
            : (b0 & 0xE0) == 0xC0 ? 2
            : (b0 & 0xF0) == 0xE0 ? 3
            : (b0 & 0xF8) == 0xF0 ? 4
                                  : 0;
        if (n == 0 || i + n > s.size()) return false;
        unsigned v = n == 1 ? b0 : b0 & (0x7F >> n);
        for (size_t k = 1; k < n; ++k) {
            const unsigned b = static_cast<unsigned char>(s[i + k]);
            if ((b & 0xC0) != 0x80) return false;
            v = (v << 6) | (b & 0x3F);
        }
        const unsigned least[] = {0, 0, 0x80, 0x800, 0x10000};
        if (v < least[n] || v > 0x10FFFF || (v >= 0xD800 && v <= 0xDFFF)) return false;
    }
    return true;
}

bool fast(const std::string& s) {
    return qz::strconv::utf8_well_formed(reinterpret_cast<const unsigned char*>(s.data()),
                                         s.size());
}

// `piece` after and before runs of ASCII, so that it falls at every place
// within and across the eight-byte steps.
void check_everywhere(const std::string& piece) {
    for (size_t lead = 0; lead < 10; lead += 3)
        for (size_t trail : {0, 5, 9}) {
            std::string s = std::string(lead, 'a') + piece + std::string(trail, 'z');
            ASSERT_EQ(fast(s), reference(s)) << ::testing::PrintToString(s);
        }
}

TEST(Utf8Scan, AgreesWithTheDecoderAndReadsGiveWhatIconvGives) {
    // Every one- and two-byte sequence, every three-byte one that starts
    // with a three-byte lead, four-byte ones around every boundary.
    for (unsigned a = 0; a < 256; ++a) {
        check_everywhere(std::string(1, char(a)));
        for (unsigned b = 0; b < 256; ++b) {
            ASSERT_EQ(fast({char(a), char(b)}), reference({char(a), char(b)})) << a << " " << b;
            for (unsigned c = 0; a >= 0xE0 && a < 0xF0 && c < 256; ++c)
                ASSERT_EQ(fast({char(a), char(b), char(c)}),
                          reference({char(a), char(b), char(c)}));
            for (unsigned c : {0x7Fu, 0x80u, 0xBFu, 0xC0u})
                for (unsigned d : {0x00u, 0x80u, 0xBFu, 0xC0u}) {
                    if (a < 0xF0 || a >= 0xF8 || b < 0x70 || b >= 0xD0) continue;
                    const std::string four{char(a), char(b), char(c), char(d)};
                    ASSERT_EQ(fast(four), reference(four));
                }
        }
    }
    // The edges of each range, placed across the eight-byte steps.
    for (const char* s : {"\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xE0\x9F\xBF", "\xED\x9F\xBF",
                          "\xED\xA0\x80", "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF0\x8F\xBF\xBF",
                          "\xF4\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xC1\xBF", "\xF5\x80\x80\x80"})
        check_everywhere(s);
    EXPECT_TRUE(fast(std::string("a\0b\xD0\x96", 5)));  // a zero byte is a character here
    EXPECT_TRUE(fast(""));

    // The reads built on it give what iconv gives. A cell's text ends at a zero byte; what follows
    // it in the buffer is left over from a longer cell read before and must not count.
    qz::strconv::text_converter conv;
    qz::strconv::text_buffer out;
    std::mt19937 rng(12);
    const char* pieces[] = {"Ж", "ab", " ", "7", "\xD0", "\x80", "日", "\xF0\x9F\x98\x80"};
    const std::string leftovers[] = {"\xD0\x96\xD0\x96\xD0\x96\xD0\x96", "\xFF\xFE", "plain",
                                     std::string(8, '\x80')};
    // A zero byte inside a character ends the text there: the cut character
    // ("\xD0" before leftover continuation bytes) is dropped as iconv drops it.
    for (int i = 0; i < 20000; ++i) {
        std::string text;
        for (size_t k = rng() % 16; k > 0; --k) text += pieces[rng() % 8];
        for (const std::string& rest : leftovers) {
            std::string buffer = text + '\0' + rest;
            buffer.resize(buffer.size() + rng() % 9, 'x');
            const char* got = conv.narrow_view(65001, 65001, buffer.c_str(), buffer.size(), out);
            ASSERT_EQ(std::string(got), qz::strconv::convert<std::string>(
                                            text.data(), text.size(), "UTF-8", "UTF-8", nullptr))
                << ::testing::PrintToString(buffer);
            // Text that needs no change is handed back where it is.
            ASSERT_TRUE(!reference(text) || got == buffer.c_str());
        }
    }
}

}  // namespace
