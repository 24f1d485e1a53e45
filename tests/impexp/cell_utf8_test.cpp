// qz_dbf_set_cell_utf8: UTF-8 text into a cell in the table's encoding,
// whatever code page it is, never cut and never with a stand-in character.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

// A fresh table of NAME C(6) and SUM N(5,1) whose one record's NAME is
// "old", open for writing with the encoding `enc` ("" the flags' own, "flag"
// the UTF-8 flag).
Tqz_dbf_rw* fresh(const std::string& path, const std::string& enc) {
    std::remove((path.substr(0, path.size() - 3) + "cpg").c_str());
    Tqz_dbf_field f[2];
    qz_dbf_field_init(&f[0], "NAME", dbf_ft_char, 6, 0);
    qz_dbf_field_init(&f[1], "SUM", dbf_ft_numeric, 5, 1);
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), 2, 1, f, false);
    if (t && enc == "flag") qz_dbf_set_utf8_flag(t, true);
    const bool named = enc.empty() || enc == "flag" || qz_dbf_set_encoding(t, enc.c_str());
    if (t && qz_dbf_set_str(t, 0, 0, "old") && named) return t;
    qz_dbf_close(t);
    return nullptr;
}

TEST(CellUtf8, TextInTheTableEncodingOrRefusedWhole) {
    const std::string muller = "M\xC3\xBCller";  // 7 bytes of UTF-8, 6 characters
    // Encoding ("" the flags' own, "flag" the UTF-8 flag), field, text, accepted,
    // the cell's bytes afterwards (its padding aside).
    // clang-format off
    const struct { const char* encoding; unsigned field; std::string text; bool ok; std::string bytes; } cases[] = {
        {"CP1252", 0, muller, true, "M\xFCller"},
        {"ISO-8859-2", 0, "\xC5\x81\xC3\xB3" "d\xC5\xBA", true, "\xA3\xF3" "d\xBC"},
        {"CP1252", 0, "\xE2\x82\xAC", true, "\x80"},    // the euro sign
        {"ISO-8859-1", 0, "\xE2\x82\xAC", false, "old"},  // not in Latin-1
        {"CP1252", 0, muller + "s", false, "old"},        // 7 bytes: never cut
        {"flag", 0, muller, false, "old"},                // UTF-8 table: 7 bytes
        {"flag", 0, "\xD0\x81\xD0\xB6", true, "\xD0\x81\xD0\xB6"},
        {"", 0, "\xD0\x81\xD0\xB6", true, "\xA8\xE6"},    // the classic CP1251
        {"CP1252", 0, "\xFF" "a", false, "old"},          // not UTF-8
        {"CP1252", 0, std::string("a\0b", 3), false, "old"},
        {"CP1252", 0, "", true, ""},
        {"CP1252", 1, "12.5", true, " 12.5"},
        {"CP1252", 1, "x", false, ""},
    };
    // clang-format on
    qz_test::Temp_dir dir;
    const std::string path = dir.file("t.dbf");
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.encoding) + " " + c.text);
        Tqz_dbf_rw* t = fresh(path, c.encoding);
        ASSERT_NE(t, nullptr);
        qz_dbf_clear_last_error();
        EXPECT_EQ(qz_dbf_set_cell_utf8(t, c.field, 0, c.text.data(), c.text.size()), c.ok);
        EXPECT_EQ(qz_dbf_last_error() == QZ_DBF_OK, c.ok);
        qz_dbf_close(t);
        EXPECT_EQ(qz_test::raw_cell(qz_test::read_bytes(path), 0, c.field ? 7 : 1, c.field ? 5 : 6),
                  c.bytes);
    }
    // Cells that are not there; and the text read back through the same encoding.
    Tqz_dbf_rw* t = fresh(path, "CP1252");
    ASSERT_NE(t, nullptr);
    EXPECT_FALSE(qz_dbf_set_cell_utf8(t, 0, 1, "a", 1));  // no record 1
    EXPECT_FALSE(qz_dbf_set_cell_utf8(t, 2, 0, "a", 1));  // no field 2
    EXPECT_FALSE(qz_dbf_set_cell_utf8(t, 0, 0, nullptr, 1));
    EXPECT_FALSE(qz_dbf_set_cell_utf8(nullptr, 0, 0, "a", 1));
    ASSERT_TRUE(qz_dbf_set_cell_utf8(t, 0, 0, "\xC3\xA9t\xC3\xA9", 5));
    qz_dbf_close(t);
    t = qz_dbf_open(path.c_str(), true, false);
    ASSERT_TRUE(qz_dbf_set_encoding(t, "CP1252"));
    char buf[32];
    EXPECT_EQ(qz_dbf_get_cell_utf8(t, 0, 0, buf, sizeof buf), 5);
    EXPECT_STREQ(buf, "\xC3\xA9t\xC3\xA9");
    qz_dbf_close(t);
}

}  // namespace
