// The encoding table, conversion between encodings, and a table's choice of
// encoding from its flags.
#include <gtest/gtest.h>

#include <string>

#include "dbf/disk_table.h"
#include "encoding/encodings.h"
#include "qzk_basic.h"

namespace {

namespace sc = qz::strconv;

TEST(EncodingTable, CodePagesFindTheirRowsAndSystemIsTheConfiguredOne) {
    const std::pair<uint32_t, sc::encodings> pinned[] = {
        {65001, sc::utf8},  {866, sc::cp866}, {1251, sc::cp1251}, {1258, sc::cp1258},
        {20127, sc::ascii}, {0, sc::utf16},   {4242, sc::system}};
    for (const auto& p : pinned)
        EXPECT_EQ(sc::encoding_for_code_page(p.first), p.second) << p.first;
    qz_options_set_ansi_code_page(1252);
    EXPECT_EQ(sc::encoding_to_iconv(sc::system), "CP1252");
    qz_options_set_ansi_code_page(65001);
    EXPECT_EQ(sc::encoding_to_iconv(sc::system), "UTF-8");
    qz_options_set_ansi_code_page(0);
}

TEST(Convert, DropsWhatCannotConvertAndKeepsTheRest) {
    const std::string dom = "\xD0\x94\xD0\xBE\xD0\xBC";  // "Дом" in UTF-8
    const struct {
        std::string in;
        sc::encodings from, to;
        std::string out;
    } cases[] = {
        {dom, sc::utf8, sc::cp1251, "\xC4\xEE\xEC"},
        {"\xC4\xEE\xEC", sc::cp1251, sc::utf8, dom},
        {"\x84\xAE\xAC", sc::cp866, sc::cp1251, "\xC4\xEE\xEC"},
        {"a\xE4\xB8\xAD"
         "b",
         sc::utf8, sc::cp1251, "ab"},  // not in CP1251: lost alone
        {"a\xFF\xFE"
         "b",
         sc::utf8, sc::cp1251, "ab"},            // invalid bytes dropped one by one
        {"ab\xD0", sc::utf8, sc::cp1251, "ab"},  // cut short at the end
        {"", sc::utf8, sc::cp1251, ""},
        {"plain ASCII 123", sc::cp866, sc::utf8, "plain ASCII 123"},
    };
    for (const auto& c : cases) EXPECT_EQ(sc::convert(c.in, c.from, c.to, nullptr), c.out) << c.in;
    EXPECT_EQ(sc::convert<std::string>(nullptr, 3, "UTF-8", "CP1251", nullptr), "");
    EXPECT_EQ(sc::convert<std::string>("abc", 3, "NO-SUCH", "CP1251", nullptr), "");
    // UTF-16 output keeps its byte order mark and zero bytes, growing the buffer.
    const std::string u16 = sc::convert(std::string(100, 'x'), sc::utf8, sc::utf16, nullptr);
    ASSERT_EQ(u16.size(), 202u);
    EXPECT_TRUE(u16.substr(0, 2) == "\xFF\xFE" || u16.substr(0, 2) == "\xFE\xFF");
}

TEST(TableEncoding, FlagsExcludeEachOtherAndPickTheEncoding) {
    Tqz_dbf_disk t;
    EXPECT_EQ(t.get_encoding(), sc::cp1251);
    t.set_dos_flag(true);
    EXPECT_EQ(t.get_encoding(), sc::cp866);
    t.set_utf8_flag(true);
    EXPECT_FALSE(t.get_dos_flag());
    EXPECT_EQ(t.get_encoding(), sc::utf8);
    t.set_utf8_flag(false);
    EXPECT_EQ(t.get_encoding(), sc::cp1251) << "not CP866 again";

    qz_options_set_ansi_code_page(65001);
    t.set_dos_flag(true);
    EXPECT_STREQ(t.str_from_raw("\x84\xAE\xAC"), "\xD0\x94\xD0\xBE\xD0\xBC");  // "Дом" in CP866
    EXPECT_STREQ(t.str_to_raw("\xD0\x94\xD0\xBE\xD0\xBC"), "\x84\xAE\xAC");
    EXPECT_STREQ(t.str_from_raw_w("\x84\xAE\xAC"), L"Дом");
    EXPECT_STREQ(t.str_to_raw_w(L"Дом\u4E2D"), "\x84\xAE\xAC?") << "unrepresentable becomes '?'";
    EXPECT_STREQ(t.str_to_raw_w(nullptr), "");
    EXPECT_STREQ(t.str_from_raw_w(nullptr), L"");
    qz_options_set_ansi_code_page(0);
}

}  // namespace
