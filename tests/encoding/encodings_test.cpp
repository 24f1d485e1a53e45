// The encoding table, conversion between encodings, and a table's choice of
// encoding from its flags.
#include <gtest/gtest.h>

#include <string>

#include "dbf/disk_table.h"
#include "encoding/encodings.h"
#include "qzk_basic.h"

namespace {

namespace sc = qz::strconv;

TEST(EncodingTable, EachCodePageFindsItsFirstRow) {
    ASSERT_EQ(sc::encoding_count, 19);
    for (int i = 0; i < sc::encoding_count; ++i) {
        int first = 0;
        while (sc::encoding_table[first].code_page != sc::encoding_table[i].code_page) ++first;
        EXPECT_EQ(sc::encoding_for_code_page(sc::encoding_table[i].code_page), first) << i;
    }
    struct {
        uint32_t code_page;
        sc::encodings encoding;
    } pinned[] = {{65001, sc::utf8},  {866, sc::cp866}, {1251, sc::cp1251}, {1258, sc::cp1258},
                  {20127, sc::ascii}, {0, sc::utf16},   {4242, sc::system}};
    for (const auto& p : pinned)
        EXPECT_EQ(sc::encoding_for_code_page(p.code_page), p.encoding) << p.code_page;
    EXPECT_STREQ(sc::encoding_table[sc::utf8].iconv_name, "UTF-8");
    // The UTF-32 rows keep their crossed alternative names.
    EXPECT_STREQ(sc::encoding_table[sc::utf32le].alt_name, "UTF-32BE");
}

TEST(EncodingTable, SystemIsTheConfiguredAnsiCodePage) {
    qz_options_set_ansi_code_page(1252);
    EXPECT_EQ(sc::encoding_to_iconv(sc::system), "CP1252");
    qz_options_set_ansi_code_page(65001);
    EXPECT_EQ(sc::encoding_to_iconv(sc::system), "UTF-8");
    qz_options_set_ansi_code_page(0);
}

TEST(Convert, DropsWhatCannotConvertAndKeepsTheRest) {
    // "Дом" in UTF-8 to CP1251 and back.
    std::string utf8 = "\xD0\x94\xD0\xBE\xD0\xBC";
    EXPECT_EQ(sc::convert(utf8, sc::utf8, sc::cp1251, nullptr), "\xC4\xEE\xEC");
    EXPECT_EQ(sc::convert("\xC4\xEE\xEC", sc::cp1251, sc::utf8, nullptr), utf8);
    EXPECT_EQ(sc::convert("\x84\xAE\xAC", sc::cp866, sc::cp1251, nullptr), "\xC4\xEE\xEC");
    // A character CP1251 cannot hold is lost with its neighbours intact.
    EXPECT_EQ(sc::convert("a\xE4\xB8\xAD"
                          "b",
                          sc::utf8, sc::cp1251, nullptr),
              "ab");
    // Invalid input bytes are dropped one at a time.
    EXPECT_EQ(sc::convert("a\xFF\xFE"
                          "b",
                          sc::utf8, sc::cp1251, nullptr),
              "ab");
    // A truncated sequence at the end: what converted before it is kept.
    EXPECT_EQ(sc::convert("ab\xD0", sc::utf8, sc::cp1251, nullptr), "ab");
    EXPECT_EQ(sc::convert("", sc::utf8, sc::cp1251, nullptr), "");
    EXPECT_EQ(sc::convert<std::string>(nullptr, 3, "UTF-8", "CP1251", nullptr), "");
    EXPECT_EQ(sc::convert<std::string>("abc", 3, "NO-SUCH", "CP1251", nullptr), "");
    // UTF-16 output keeps its byte order mark and zero bytes, growing the buffer.
    std::string u16 = sc::convert(std::string(100, 'x'), sc::utf8, sc::utf16, nullptr);
    ASSERT_EQ(u16.size(), 202u);
    EXPECT_TRUE((u16[0] == '\xFF' && u16[1] == '\xFE') || (u16[0] == '\xFE' && u16[1] == '\xFF'));
    EXPECT_NE(u16.find('\0'), std::string::npos);
    // ASCII text takes the fast path and is unchanged in every 8-bit encoding.
    EXPECT_EQ(sc::convert("plain ASCII 123", sc::cp866, sc::utf8, nullptr), "plain ASCII 123");
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
    t.set_dos_flag(true);
    t.set_dos_flag(false);
    EXPECT_FALSE(t.get_utf8_flag());

    qz_options_set_ansi_code_page(65001);
    t.set_dos_flag(true);
    const char* first = t.str_from_raw("\x84\xAE\xAC");  // "Дом" in CP866
    EXPECT_STREQ(first, "\xD0\x94\xD0\xBE\xD0\xBC");
    EXPECT_STREQ(t.str_to_raw("\xD0\x94\xD0\xBE\xD0\xBC"), "\x84\xAE\xAC");
    EXPECT_STREQ(t.str_from_raw_w("\x84\xAE\xAC"), L"Дом");
    EXPECT_STREQ(t.str_to_raw_w(L"Дом\u4E2D"), "\x84\xAE\xAC?") << "unrepresentable becomes '?'";
    EXPECT_STREQ(t.str_to_raw_w(nullptr), "");
    EXPECT_STREQ(t.str_from_raw_w(nullptr), L"");
    qz_options_set_ansi_code_page(0);
}

}  // namespace
