// The encoding names and language drivers of the table encoding choice
// (the precedence of the sources is checked through the exports).
#include <gtest/gtest.h>

#include <string>

#include "encoding/table_encoding.h"

using namespace qz::strconv;

namespace {

// How .cpg files and callers spell encodings in the wild ("": no encoding).
// clang-format off
const std::pair<const char*, const char*> spellings[] = {
    {"UTF8", "UTF-8"}, {"utf-8\r\n", "UTF-8"}, {"65001", "UTF-8"}, {"cp1252\n", "CP1252"},
    {"1252", "CP1252"}, {"ANSI 1251", "CP1251"}, {"OEM 866", "CP866"}, {"437", "CP437"},
    {"Windows-1250", "CP1250"}, {"88591", "ISO-8859-1"}, {"8859_1", "ISO-8859-1"},
    {"8859-5", "ISO-8859-5"}, {"885915", "ISO-8859-15"}, {"885916", "ISO-8859-16"},
    {"885912", ""}, {"885917", ""}, {"ISO88592", "ISO-8859-2"}, {"ISO_8859_2", "ISO-8859-2"},
    {"28592", "ISO-8859-2"}, {"latin2", "ISO-8859-2"}, {"LATIN1", "ISO-8859-1"},
    {"latin9", "ISO-8859-15"}, {"koi8r", "KOI8-R"}, {"20866", "KOI8-R"}, {"KOI8-U", "KOI8-U"},
    {"936", "CP936"}, {"950", "CP950"}, {"Big-5", "BIG5"}, {"shiftjis", "SHIFT_JIS"},
    {"SJIS", "SHIFT_JIS"}, {"EUC-KR", "EUC-KR"}, {"eucjp", "EUC-JP"}, {"874", "CP874"},
    {"gbk", "GBK"}, {"  CP866  \n second line ignored", "CP866"}, {"", ""}, {"   \n", ""},
    {"not an encoding", ""}, {"??", ""}, {"-", ""}, {"CP1251//TRANSLIT", ""}, {"8859", ""},
    {"88590", ""}, {"latin11", ""}, {"99999", ""}};
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

// Language-driver ids and their code pages (0: none iconv knows).
// clang-format off
const std::pair<uint8_t, uint32_t> drivers[] = {
    {0x01, 437}, {0x02, 850}, {0x03, 1252}, {0x57, 1252}, {0x58, 1252}, {0x59, 1252},
    {0x64, 852}, {0x65, 866}, {0x66, 865}, {0x67, 861}, {0x6A, 737}, {0x6B, 857},
    {0x78, 950}, {0x79, 949}, {0x7A, 936}, {0x7B, 932}, {0x7C, 874}, {0x7D, 1255},
    {0x7E, 1256}, {0xC8, 1250}, {0xC9, 1251}, {0xCA, 1254}, {0xCB, 1253}, {0xCC, 1257},
    {0x26, 866}, {0x4D, 936}, {0x4E, 949}, {0x4F, 950}, {0x50, 874}, {0x13, 932},
    {0x1C, 863}, {0x24, 860}, {0x08, 865}, {0x1F, 852}, {0x96, 10007}, {0x00, 0},
    {0x68, 0}, {0x69, 0}, {0xF0, 0}, {0xFF, 0}};
// clang-format on

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
