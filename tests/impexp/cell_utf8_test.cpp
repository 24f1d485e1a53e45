// qz_dbf_set_cell_utf8: UTF-8 text into a cell in the table's encoding,
// whatever code page it is, never cut and never with a stand-in character.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

struct Written {
    bool ok;
    std::string bytes;  // the cell's bytes on disk afterwards
};

class CellUtf8 : public ::testing::Test {
  protected:
    // A table of NAME C(6) and SUM N(5,1) with one record whose NAME is
    // "old"; writes `text` into `field` with the handle's encoding `enc`.
    Written write(const char* enc, bool utf8_flag, unsigned field, const std::string& text) {
        const std::string path = dir.file("t.dbf");
        // A .cpg left by the table made before would name its encoding.
        std::remove(dir.file("t.cpg").c_str());
        Tqz_dbf_field f[2];
        qz_dbf_field_init(&f[0], "NAME", dbf_ft_char, 6, 0);
        qz_dbf_field_init(&f[1], "SUM", dbf_ft_numeric, 5, 1);
        Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), 2, 1, f, false);
        EXPECT_NE(t, nullptr);
        if (utf8_flag) qz_dbf_set_utf8_flag(t, true);
        EXPECT_TRUE(qz_dbf_set_str(t, 0, 0, "old"));
        if (enc) {
            EXPECT_TRUE(qz_dbf_set_encoding(t, enc));
        }
        qz_dbf_clear_last_error();
        Written w;
        w.ok = qz_dbf_set_cell_utf8(t, field, 0, text.data(), text.size());
        if (!w.ok) {
            EXPECT_NE(qz_dbf_last_error(), QZ_DBF_OK);
        }
        qz_dbf_close(t);
        const std::vector<uint8_t> b = qz_test::read_bytes(path);
        const size_t header = b[8] | (b[9] << 8);
        const size_t at = header + 1 + (field == 0 ? 0 : 6), len = field == 0 ? 6 : 5;
        w.bytes = b.size() >= at + len ? std::string(b.begin() + at, b.begin() + at + len) : "";
        return w;
    }
    qz_test::Temp_dir dir;
};

TEST_F(CellUtf8, TextInTheTableEncoding) {
    struct Case {
        const char* encoding;
        bool utf8_flag;
        std::string text;
        bool ok;
        std::string bytes;
    };
    const std::string muller = "M\xC3\xBCller";  // 7 bytes of UTF-8, 6 characters
    const Case cases[] = {
        {"CP1252", false, muller, true, "M\xFCller"},
        {"ISO-8859-2", false,
         "\xC5\x81\xC3\xB3"
         "d\xC5\xBA",
         true,
         "\xA3\xF3"
         "d\xBC  "},
        {"CP1252", false, "\xE2\x82\xAC", true, "\x80     "},    // the euro sign
        {"ISO-8859-1", false, "\xE2\x82\xAC", false, "old   "},  // not in Latin-1
        {"CP1252", false, muller + "s", false, "old   "},        // 7 bytes: never cut
        {nullptr, true, muller, false, "old   "},                // UTF-8 table: 7 bytes
        {nullptr, true, "\xD0\x81\xD0\xB6", true, "\xD0\x81\xD0\xB6  "},
        {nullptr, false, "\xD0\x81\xD0\xB6", true, "\xA8\xE6    "},  // the classic CP1251
        {"CP1252", false,
         "\xFF"
         "a",
         false, "old   "},  // not UTF-8
        {"CP1252", false, std::string("a\0b", 3), false, "old   "},
        {"CP1252", false, "", true, "      "},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.encoding ? c.encoding : "flags") + " " + c.text);
        const Written w = write(c.encoding, c.utf8_flag, 0, c.text);
        EXPECT_EQ(w.ok, c.ok);
        EXPECT_EQ(w.bytes, c.bytes);
    }
}

TEST_F(CellUtf8, NumbersAndMissingCells) {
    Written w = write("CP1252", false, 1, "12.5");
    EXPECT_TRUE(w.ok);
    EXPECT_EQ(w.bytes, " 12.5");
    w = write("CP1252", false, 1, "x");
    EXPECT_FALSE(w.ok);
    Tqz_dbf_rw* t = qz_dbf_open(dir.file("t.dbf").c_str(), false, false);
    ASSERT_NE(t, nullptr);
    EXPECT_FALSE(qz_dbf_set_cell_utf8(t, 0, 1, "a", 1));  // no record 1
    EXPECT_FALSE(qz_dbf_set_cell_utf8(t, 2, 0, "a", 1));  // no field 2
    EXPECT_FALSE(qz_dbf_set_cell_utf8(t, 0, 0, nullptr, 1));
    EXPECT_FALSE(qz_dbf_set_cell_utf8(nullptr, 0, 0, "a", 1));
    // Read back through the same encoding.
    ASSERT_TRUE(qz_dbf_set_encoding(t, "CP1252"));
    ASSERT_TRUE(qz_dbf_set_cell_utf8(t, 0, 0, "\xC3\xA9t\xC3\xA9", 5));
    qz_dbf_close(t);
    t = qz_dbf_open(dir.file("t.dbf").c_str(), true, false);
    ASSERT_TRUE(qz_dbf_set_encoding(t, "CP1252"));
    char buf[32];
    EXPECT_EQ(qz_dbf_get_cell_utf8(t, 0, 0, buf, sizeof buf), 5);
    EXPECT_STREQ(buf, "\xC3\xA9t\xC3\xA9");
    qz_dbf_close(t);
}

}  // namespace
