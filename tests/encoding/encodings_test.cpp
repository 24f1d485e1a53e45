// The encoding table, conversion between encodings, a table's choice of
// encoding from its flags, and the encoding names and language drivers of
// the table encoding choice (the precedence of the sources is checked
// through the exports, tests/encodings).
#include <gtest/gtest.h>

#include <string>

#include "dbf/disk_table.h"
#include "encoding/encodings.h"
#include "encoding/table_encoding.h"
#include "qzk_basic.h"

namespace {

namespace sc = qz::strconv;

// Code pages find their rows, the system one is the one configured; a
// table's flags exclude each other and pick its encoding.
TEST(EncodingTable, CodePagesFindTheirRowsAndFlagsPickTheTableEncoding) {
    const std::pair<uint32_t, sc::encodings> pinned[] = {
        {65001, sc::utf8},  {866, sc::cp866}, {1251, sc::cp1251}, {1258, sc::cp1258},
        {20127, sc::ascii}, {0, sc::utf16},   {4242, sc::system}};
    for (const auto& p : pinned)
        EXPECT_EQ(sc::encoding_for_code_page(p.first), p.second) << p.first;
    qz_options_set_ansi_code_page(1252);
    EXPECT_EQ(sc::encoding_to_iconv(sc::system), "CP1252");
    qz_options_set_ansi_code_page(65001);
    EXPECT_EQ(sc::encoding_to_iconv(sc::system), "UTF-8");

    // A table's flags exclude each other and pick its encoding.
    Tqz_dbf_disk t;
    EXPECT_EQ(t.get_encoding(), sc::cp1251);
    t.set_dos_flag(true);
    EXPECT_EQ(t.get_encoding(), sc::cp866);
    t.set_utf8_flag(true);
    EXPECT_FALSE(t.get_dos_flag());
    EXPECT_EQ(t.get_encoding(), sc::utf8);
    t.set_utf8_flag(false);
    EXPECT_EQ(t.get_encoding(), sc::cp1251) << "not CP866 again";
    t.set_dos_flag(true);
    EXPECT_STREQ(t.str_from_raw("\x84\xAE\xAC"), "\xD0\x94\xD0\xBE\xD0\xBC");  // "Дом" in CP866
    EXPECT_STREQ(t.str_to_raw("\xD0\x94\xD0\xBE\xD0\xBC"), "\x84\xAE\xAC");
    EXPECT_STREQ(t.str_from_raw_w("\x84\xAE\xAC"), L"Дом");
    EXPECT_STREQ(t.str_to_raw_w(L"Дом\u4E2D"), "\x84\xAE\xAC?") << "unrepresentable becomes '?'";
    EXPECT_STREQ(t.str_to_raw_w(nullptr), "");
    EXPECT_STREQ(t.str_from_raw_w(nullptr), L"");
    qz_options_set_ansi_code_page(0);
}

TEST(Convert, DropsWhatCannotConvertAndKeepsTheRest) {
    const std::string dom = "\xD0\x94\xD0\xBE\xD0\xBC";  // "Дом" in UTF-8
    // clang-format off
    const struct { std::string in; sc::encodings from, to; std::string out; } cases[] = {
        {dom, sc::utf8, sc::cp1251, "\xC4\xEE\xEC"},
        {"\xC4\xEE\xEC", sc::cp1251, sc::utf8, dom},
        {"\x84\xAE\xAC", sc::cp866, sc::cp1251, "\xC4\xEE\xEC"},
        {"a\xE4\xB8\xAD" "b", sc::utf8, sc::cp1251, "ab"},  // not in CP1251: lost alone
        {"a\xFF\xFE" "b", sc::utf8, sc::cp1251, "ab"},      // invalid bytes dropped one by one
        {"ab\xD0", sc::utf8, sc::cp1251, "ab"},             // cut short at the end
        {"", sc::utf8, sc::cp1251, ""},
        {"plain ASCII 123", sc::cp866, sc::utf8, "plain ASCII 123"},
    };
    // clang-format on
    for (const auto& c : cases) EXPECT_EQ(sc::convert(c.in, c.from, c.to, nullptr), c.out) << c.in;
    EXPECT_EQ(sc::convert<std::string>(nullptr, 3, "UTF-8", "CP1251", nullptr), "");
    EXPECT_EQ(sc::convert<std::string>("abc", 3, "NO-SUCH", "CP1251", nullptr), "");
    // UTF-16 output keeps its byte order mark and zero bytes, growing the buffer.
    const std::string u16 = sc::convert(std::string(100, 'x'), sc::utf8, sc::utf16, nullptr);
    ASSERT_EQ(u16.size(), 202u);
    EXPECT_TRUE(u16.substr(0, 2) == "\xFF\xFE" || u16.substr(0, 2) == "\xFE\xFF");
}

// How .cpg files and callers spell encodings in the wild ("": no encoding),
// one or two of each rule, and the code pages of language drivers: every
// name given is one iconv converts.
TEST(EncodingChoice, SpellingsAndLanguageDriversGiveIconvNames) {
    // clang-format off
    const std::pair<std::string, const char*> spellings[] = {
        {"UTF8", "UTF-8"}, {"utf-8\r\n", "UTF-8"}, {"65001", "UTF-8"}, {"cp1252\n", "CP1252"},
        {"1252", "CP1252"}, {"ANSI 1251", "CP1251"}, {"OEM 866", "CP866"},
        {"Windows-1250", "CP1250"}, {"88591", "ISO-8859-1"}, {"8859_1", "ISO-8859-1"},
        {"885916", "ISO-8859-16"}, {"885912", ""}, {"885917", ""}, {"ISO_8859_2", "ISO-8859-2"},
        {"28592", "ISO-8859-2"}, {"28606", "ISO-8859-16"}, {"28607", ""}, {"latin2", "ISO-8859-2"},
        {"latin9", "ISO-8859-15"}, {"koi8r", "KOI8-R"}, {"20866", "KOI8-R"}, {"Big-5", "BIG5"},
        {"SJIS", "SHIFT_JIS"}, {"eucjp", "EUC-JP"}, {"  CP866  \n second line ignored", "CP866"},
        {"   \n", ""}, {"not an encoding", ""}, {"CP1251//TRANSLIT", ""}, {"8859", ""},
        {"latin11", ""}, {"99999", ""}, {std::string(5000, '1'), ""},
        {std::string("CP1251\0junk", 11), ""}};  // a NUL inside: refused, not read up to it
    // clang-format on
    for (const auto& [text, name] : spellings) {
        const std::string got = sc::normalize_encoding_name(text);
        EXPECT_EQ(got, name) << "text \"" << text << "\"";
        EXPECT_TRUE(!*name || sc::iconv_knows(got)) << got;
    }
    // A few language-driver ids and their code pages (0: none iconv knows);
    // every id gives nothing or a page iconv converts.
    const std::pair<uint8_t, uint32_t> drivers[] = {
        {0x01, 437},   {0x03, 1252}, {0x26, 866}, {0x65, 866}, {0x7B, 932},
        {0x96, 10007}, {0xC9, 1251}, {0x00, 0},   {0x68, 0},   {0xFF, 0}};
    for (const auto& [id, cp] : drivers)
        EXPECT_EQ(sc::language_driver_code_page(id), cp) << "driver 0x" << std::hex << int(id);
    for (int id = 0; id < 256; ++id) {
        const uint32_t cp = sc::language_driver_code_page(static_cast<uint8_t>(id));
        EXPECT_TRUE(!cp || sc::iconv_knows(sc::code_page_to_iconv(cp))) << id;
    }
}

}  // namespace
