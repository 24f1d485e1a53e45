// Encodings at their edges, through the exports.
#include <gtest/gtest.h>

#include <string>

#include "qzk_basic.h"

#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

// Giving a table an encoding states it for other readers: header byte 29
// names the code page's language driver (the Windows one of a Windows page,
// else the usual DOS one, 0 when none stands for it) and the .cpg its iconv
// name. A reader that trusts the driver byte would read every Cyrillic or
// Central European table of ours in the wrong code page if it were off.
TEST(EdgesEncoding, TableEncodingWritesItsDriverByteAndCpg) {
    struct Case {
        const char* asked;
        uint8_t driver;
        const char* cpg;
        bool utf8, dos;
    };
    const Case cases[] = {
        {"1251", 0xC9, "CP1251", false, false},   {"866", 0x65, "CP866", false, true},
        {"1250", 0xC8, "CP1250", false, false},   {"437", 0x01, "CP437", false, false},
        {"1252", 0x03, "CP1252", false, false},   {"utf8", 0x00, "UTF-8", true, false},
        {"KOI8-R", 0x00, "KOI8-R", false, false},
    };
    qz_test::Temp_dir dir;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.asked);
        const std::string dbf = dir.file(std::string("t") + c.asked + ".dbf");
        ASSERT_TRUE(qz_test::make_char_table(dbf, {8}, 1));
        qz_test::write_bytes(dbf.substr(0, dbf.size() - 3) + "cpg", {'8', '6', '6'});
        Tqz_dbf_rw* h = qz_dbf_open(dbf.c_str(), false, false);
        ASSERT_NE(h, nullptr);
        ASSERT_TRUE(qz_dbf_set_table_encoding(h, c.asked));
        EXPECT_EQ(qz_dbf_get_utf8_flag(h), c.utf8);
        EXPECT_EQ(qz_dbf_get_dos_flag(h), c.dos);
        qz_dbf_close(h);
        EXPECT_EQ(qz_test::read_bytes(dbf).at(29), c.driver);
        const auto cpg = qz_test::read_bytes(dbf.substr(0, dbf.size() - 3) + "cpg");
        const std::string text(cpg.begin(), cpg.end());
        EXPECT_EQ(text.substr(0, text.find_first_of("\r\n")), c.cpg);
    }
    // Refused, the file left as it is: a read-only handle, an unknown name.
    const std::string dbf = dir.file("t1251.dbf");
    const auto before = qz_test::read_bytes(dbf);
    for (bool read_only : {true, false}) {
        Tqz_dbf_rw* h = qz_dbf_open(dbf.c_str(), read_only, false);
        ASSERT_NE(h, nullptr);
        EXPECT_FALSE(qz_dbf_set_table_encoding(h, read_only ? "866" : "klingon"));
        qz_dbf_close(h);
        EXPECT_EQ(qz_test::read_bytes(dbf), before);
    }
}

// Texts whose converted form just fills the converter's buffer (63, 127,
// 255 bytes and a terminator) are written and read back whole, one after
// another through one handle.
TEST(EdgesEncoding, TextsThatFillTheConversionBufferRoundTrip) {
    qz_test::Temp_dir dir;
    const std::string dbf = dir.file("t.dbf");
    ASSERT_TRUE(qz_test::make_char_table(dbf, {255}, 9));
    qz_options_set_ansi_code_page(65001);
    Tqz_dbf_rw* h = qz_dbf_open(dbf.c_str(), false, false);
    ASSERT_NE(h, nullptr);
    for (unsigned r = 0; r < 9; ++r) {
        const std::string text((64u << (r % 3)) - 1, static_cast<char>('a' + r));
        ASSERT_TRUE(qz_dbf_set_str(h, 0, r, text.c_str()));
        bool ok = false;
        std::string back = qz_dbf_get_str(h, 0, r, ok);
        back.erase(back.find_last_not_of(' ') + 1);  // the cell's padding
        EXPECT_EQ(back, text) << r;
    }
    qz_dbf_close(h);
    qz_options_set_ansi_code_page(0);
}

}  // namespace
