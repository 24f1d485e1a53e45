// Encodings through the exports: a table's .cpg, language driver and flags
// decide how its text cells read as UTF-8.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

// A table of one C field NAME of 10 bytes holding `cells` (raw bytes), with
// the language-driver byte `driver`.
void write_table(const std::string& path, uint8_t driver,
                 const std::vector<std::vector<std::string>>& cells) {
    qz_test::write_bytes(path, qz_test::dbf_bytes(0x03, {{"NAME", 'C', 10}}, cells, driver));
}

// "<name> <source>" as detection gives them.
std::string detect(const std::string& path, const char* caller, unsigned int options = 0) {
    char name[32] = "x";
    const int source = qz_dbf_detect_encoding(path.c_str(), caller, options, name, sizeof name);
    return std::string(name) + " " + std::to_string(source);
}

std::string cell(Tqz_dbf_rw* h, unsigned int record) {
    const long n = qz_dbf_get_cell_utf8(h, 0, record, nullptr, 0);
    std::string s(n < 0 ? 0 : static_cast<size_t>(n) + 1, '\0');
    EXPECT_EQ(n < 0 ? n : qz_dbf_get_cell_utf8(h, 0, record, &s[0], s.size()), n);
    return n < 0 ? "<error>" : s.substr(0, static_cast<size_t>(n));
}

const std::string privet = "Привет", privet_1251 = "\xCF\xF0\xE8\xE2\xE5\xF2";

TEST(EncodingExports, SourcesInOrderOfPrecedenceAndCellsReadAsUtf8) {
    qz_test::Temp_dir dir;
    const std::string dbf = dir.file("t.dbf");
    write_table(dbf, 0x65, {{"\x8F\xE0\xA8\xA2\xA5\xE2"}});  // "Привет" in CP866
    // No .cpg: the driver (0x65, Russian MS-DOS).
    EXPECT_EQ(detect(dbf, nullptr), "CP866 " + std::to_string(QZ_DBF_ENC_LANGUAGE_DRIVER));
    // A .cpg (upper-case name, found as on a case-insensitive disk) wins.
    qz_test::write_bytes(dir.file("T.CPG"), {'l', 'a', 't', 'i', 'n', '2', '\r', '\n'});
    EXPECT_EQ(detect(dbf, nullptr), "ISO-8859-2 " + std::to_string(QZ_DBF_ENC_CPG));
    // The caller wins over both.
    EXPECT_EQ(detect(dbf, "20866"), "KOI8-R " + std::to_string(QZ_DBF_ENC_CALLER));
    // An unknown .cpg and no driver: the flags' default.
    qz_test::write_bytes(dir.file("T.CPG"), {'?', '?'});
    write_table(dbf, 0x00, {{"x"}});
    EXPECT_EQ(detect(dbf, nullptr), "CP1251 " + std::to_string(QZ_DBF_ENC_DEFAULT));
    EXPECT_EQ(detect(dbf, nullptr, QZ_DBF_OPEN_DOS), "CP866 " + std::to_string(QZ_DBF_ENC_DEFAULT));
    // Failures, the name emptied and the error recorded: an unknown caller
    // name, a missing file, a file too short for a header, null arguments.
    EXPECT_EQ(detect(dbf, "klingon"), " 0");
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_ARGUMENT);
    EXPECT_EQ(detect(dir.file("none.dbf"), nullptr), " 0");
    qz_test::write_bytes(dir.file("short.dbf"), {0x03, 0x01});
    EXPECT_EQ(detect(dir.file("short.dbf"), nullptr), " 0");
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_NOT_A_TABLE);
    EXPECT_EQ(qz_dbf_detect_encoding(nullptr, nullptr, 0, nullptr, 0), QZ_DBF_ENC_NONE);
    // A small name buffer gets the name cut, closed by its NUL.
    char small[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(qz_dbf_detect_encoding(dbf.c_str(), "ISO-8859-2", 0, small, sizeof small),
              QZ_DBF_ENC_CALLER);
    EXPECT_STREQ(small, "ISO");

    // Cells read as UTF-8 in the encoding chosen.
    write_table(dir.file("cells.dbf"), 0xC9, {{privet_1251}, {"  ab  "}, {""}});
    Tqz_dbf_rw* h = qz_dbf_open_ex(dir.file("cells.dbf").c_str(), QZ_DBF_OPEN_READ_ONLY);
    ASSERT_NE(h, nullptr);
    char name[32];
    EXPECT_EQ(qz_dbf_get_encoding(h, name, sizeof name), QZ_DBF_ENC_LANGUAGE_DRIVER);
    EXPECT_STREQ(name, "CP1251");
    EXPECT_EQ(cell(h, 0), privet);
    EXPECT_EQ(cell(h, 1), "  ab");  // leading blanks kept, trailing dropped
    EXPECT_EQ(cell(h, 2), "");
    // Out of range: -1 with the reason, the buffer emptied.
    char buf[8] = "junk";
    EXPECT_EQ(qz_dbf_get_cell_utf8(h, 0, 3, buf, sizeof buf), -1);
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_ARGUMENT);
    EXPECT_EQ(qz_dbf_get_cell_utf8(h, 1, 0, buf, sizeof buf), -1);
    // A short buffer: cut on a byte, the whole length returned.
    EXPECT_EQ(qz_dbf_get_cell_utf8(h, 0, 0, buf, sizeof buf), 12);
    EXPECT_EQ(std::string(buf), privet.substr(0, 7));
    // The caller's name holds until changed; none returns to detection.
    EXPECT_FALSE(qz_dbf_set_encoding(h, "no such"));
    EXPECT_EQ(cell(h, 0), privet);
    EXPECT_TRUE(qz_dbf_set_encoding(h, "CP866"));
    EXPECT_EQ(qz_dbf_get_encoding(h, name, sizeof name), QZ_DBF_ENC_CALLER);
    EXPECT_NE(cell(h, 0), privet);
    EXPECT_TRUE(qz_dbf_set_encoding(h, nullptr));
    EXPECT_EQ(cell(h, 0), privet);
    qz_dbf_close(h);
    EXPECT_EQ(qz_dbf_get_cell_utf8(nullptr, 0, 0, buf, sizeof buf), -1);
    EXPECT_EQ(qz_dbf_get_encoding(nullptr, name, sizeof name), QZ_DBF_ENC_NONE);
    EXPECT_FALSE(qz_dbf_set_encoding(nullptr, "CP866"));
}

}  // namespace
