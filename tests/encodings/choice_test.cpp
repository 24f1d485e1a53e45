// The encoding names and language drivers of the table encoding choice
// (the precedence of the sources is checked through the exports).
#include <gtest/gtest.h>

#include <string>

#include "encoding/table_encoding.h"

using namespace qz::strconv;

namespace {

// How .cpg files and callers spell encodings in the wild ("": no encoding),
// one or two of each rule.
// clang-format off
const std::pair<const char*, const char*> spellings[] = {
    {"UTF8", "UTF-8"}, {"utf-8\r\n", "UTF-8"}, {"65001", "UTF-8"}, {"cp1252\n", "CP1252"},
    {"1252", "CP1252"}, {"ANSI 1251", "CP1251"}, {"OEM 866", "CP866"},
    {"Windows-1250", "CP1250"}, {"88591", "ISO-8859-1"}, {"8859_1", "ISO-8859-1"},
    {"885916", "ISO-8859-16"}, {"885912", ""}, {"885917", ""}, {"ISO_8859_2", "ISO-8859-2"},
    {"28592", "ISO-8859-2"}, {"28606", "ISO-8859-16"}, {"28607", ""}, {"latin2", "ISO-8859-2"}, {"latin9", "ISO-8859-15"},
    {"koi8r", "KOI8-R"}, {"20866", "KOI8-R"}, {"Big-5", "BIG5"}, {"SJIS", "SHIFT_JIS"},
    {"eucjp", "EUC-JP"}, {"  CP866  \n second line ignored", "CP866"}, {"   \n", ""},
    {"not an encoding", ""}, {"CP1251//TRANSLIT", ""}, {"8859", ""}, {"latin11", ""},
    {"99999", ""}};
// clang-format on

TEST(EncodingChoice, SpellingsNormaliseToIconvNames) {
    for (const auto& s : spellings) {
        const std::string got = normalize_encoding_name(s.first);
        EXPECT_EQ(got, s.second) << "text \"" << s.first << "\"";
        if (*s.second) {
            EXPECT_TRUE(iconv_knows(got)) << got;
        }
    }
    // A name with a NUL inside is refused, not read up to the NUL.
    EXPECT_EQ(normalize_encoding_name(std::string("CP1251\0junk", 11)), "");
    EXPECT_EQ(normalize_encoding_name(std::string(5000, '1')), "");
}

// A few language-driver ids and their code pages (0: none iconv knows); the
// sweep below checks that every id gives nothing or a page iconv converts.
const std::pair<uint8_t, uint32_t> drivers[] = {
    {0x01, 437},   {0x03, 1252}, {0x26, 866}, {0x65, 866}, {0x7B, 932},
    {0x96, 10007}, {0xC9, 1251}, {0x00, 0},   {0x68, 0},   {0xFF, 0}};

TEST(EncodingChoice, LanguageDriversGiveTheirCodePages) {
    for (const auto& d : drivers)
        EXPECT_EQ(language_driver_code_page(d.first), d.second)
            << "driver 0x" << std::hex << int(d.first);
    // Every id either has no code page or one iconv converts.
    for (int id = 0; id < 256; ++id) {
        const uint32_t cp = language_driver_code_page(static_cast<uint8_t>(id));
        if (cp) {
            EXPECT_TRUE(iconv_knows(code_page_to_iconv(cp))) << id;
        }
    }
}

}  // namespace
