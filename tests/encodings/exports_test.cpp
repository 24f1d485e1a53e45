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
std::vector<uint8_t> table_bytes(uint8_t driver, const std::vector<std::string>& cells) {
    std::vector<std::vector<std::string>> records;
    for (const std::string& c : cells) records.push_back({c});
    return qz_test::dbf_bytes(0x03, {{"NAME", 'C', 10}}, records, driver);
}

std::string detect(const std::string& path, const char* caller, unsigned int options, int& source) {
    char name[32] = "x";
    source = qz_dbf_detect_encoding(path.c_str(), caller, options, name, sizeof name);
    return name;
}

std::string cell(Tqz_dbf_rw* h, unsigned int field, unsigned int record) {
    const long n = qz_dbf_get_cell_utf8(h, field, record, nullptr, 0);
    if (n < 0) return "<error>";
    std::string s(static_cast<size_t>(n) + 1, '\0');
    EXPECT_EQ(qz_dbf_get_cell_utf8(h, field, record, &s[0], s.size()), n);
    s.resize(static_cast<size_t>(n));
    return s;
}

// "Привет" in CP866, CP1251 and KOI8-R; "Żółw" in CP1250.
const std::string privet_866 = "\x8F\xE0\xA8\xA2\xA5\xE2";
const std::string privet_1251 = "\xCF\xF0\xE8\xE2\xE5\xF2";
const std::string privet_koi8 = "\xF0\xD2\xC9\xD7\xC5\xD4";
const std::string privet = "Привет";

TEST(EncodingExports, SourcesInOrderOfPrecedence) {
    qz_test::Temp_dir dir;
    const std::string dbf = dir.file("t.dbf");
    qz_test::write_bytes(dbf, table_bytes(0x65, {privet_866}));
    int source = -1;
    // No .cpg: the driver (0x65, Russian MS-DOS).
    EXPECT_EQ(detect(dbf, nullptr, 0, source), "CP866");
    EXPECT_EQ(source, QZ_DBF_ENC_LANGUAGE_DRIVER);
    // A .cpg (upper-case name, found as on a case-insensitive disk) wins.
    qz_test::write_bytes(dir.file("T.CPG"), {'l', 'a', 't', 'i', 'n', '2', '\r', '\n'});
    EXPECT_EQ(detect(dbf, nullptr, 0, source), "ISO-8859-2");
    EXPECT_EQ(source, QZ_DBF_ENC_CPG);
    // The caller wins over both.
    EXPECT_EQ(detect(dbf, "20866", 0, source), "KOI8-R");
    EXPECT_EQ(source, QZ_DBF_ENC_CALLER);
    // An unknown .cpg and no driver: the flags' default.
    qz_test::write_bytes(dir.file("T.CPG"), {'?', '?'});
    qz_test::write_bytes(dbf, table_bytes(0x00, {privet_866}));
    EXPECT_EQ(detect(dbf, nullptr, 0, source), "CP1251");
    EXPECT_EQ(source, QZ_DBF_ENC_DEFAULT);
    EXPECT_EQ(detect(dbf, nullptr, QZ_DBF_OPEN_DOS, source), "CP866");
    EXPECT_EQ(source, QZ_DBF_ENC_DEFAULT);
    // Failures: unknown caller name, missing file, a file too short for a
    // header, null arguments. The name is emptied and the error recorded.
    EXPECT_EQ(detect(dbf, "klingon", 0, source), "");
    EXPECT_EQ(source, QZ_DBF_ENC_NONE);
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_ARGUMENT);
    EXPECT_EQ(detect(dir.file("none.dbf"), nullptr, 0, source), "");
    EXPECT_EQ(source, QZ_DBF_ENC_NONE);
    qz_test::write_bytes(dir.file("short.dbf"), {0x03, 0x01});
    EXPECT_EQ(detect(dir.file("short.dbf"), nullptr, 0, source), "");
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_NOT_A_TABLE);
    EXPECT_EQ(qz_dbf_detect_encoding(nullptr, nullptr, 0, nullptr, 0), QZ_DBF_ENC_NONE);
    // A small name buffer gets the name cut, closed by its NUL.
    char small[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(qz_dbf_detect_encoding(dbf.c_str(), "ISO-8859-2", 0, small, sizeof small),
              QZ_DBF_ENC_CALLER);
    EXPECT_STREQ(small, "ISO");
}

TEST(EncodingExports, CellsReadAsUtf8InTheChosenEncoding) {
    qz_test::Temp_dir dir;
    const std::string dbf = dir.file("cells.dbf");
    qz_test::write_bytes(dbf, table_bytes(0xC9, {privet_1251, "  ab  ", ""}));
    Tqz_dbf_rw* h = qz_dbf_open_ex(dbf.c_str(), QZ_DBF_OPEN_READ_ONLY);
    ASSERT_NE(h, nullptr);
    char name[32];
    EXPECT_EQ(qz_dbf_get_encoding(h, name, sizeof name), QZ_DBF_ENC_LANGUAGE_DRIVER);
    EXPECT_STREQ(name, "CP1251");
    EXPECT_EQ(cell(h, 0, 0), privet);
    EXPECT_EQ(cell(h, 0, 1), "  ab");  // leading blanks kept, trailing dropped
    EXPECT_EQ(cell(h, 0, 2), "");
    // Out of range: -1 with the reason, the buffer emptied.
    char buf[8] = "junk";
    EXPECT_EQ(qz_dbf_get_cell_utf8(h, 0, 3, buf, sizeof buf), -1);
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_ARGUMENT);
    EXPECT_EQ(qz_dbf_get_cell_utf8(h, 1, 0, buf, sizeof buf), -1);
    // A short buffer: cut on a byte, the whole length returned.
    EXPECT_EQ(qz_dbf_get_cell_utf8(h, 0, 0, buf, sizeof buf), 12);
    EXPECT_EQ(std::string(buf), privet.substr(0, 7));
    // The caller's name holds until changed; "" returns to detection.
    EXPECT_FALSE(qz_dbf_set_encoding(h, "no such"));
    EXPECT_EQ(cell(h, 0, 0), privet);
    EXPECT_TRUE(qz_dbf_set_encoding(h, "CP866"));
    EXPECT_EQ(qz_dbf_get_encoding(h, name, sizeof name), QZ_DBF_ENC_CALLER);
    EXPECT_NE(cell(h, 0, 0), privet);
    EXPECT_TRUE(qz_dbf_set_encoding(h, nullptr));
    EXPECT_EQ(cell(h, 0, 0), privet);
    qz_dbf_close(h);
    // Null handles.
    EXPECT_EQ(qz_dbf_get_cell_utf8(nullptr, 0, 0, buf, sizeof buf), -1);
    EXPECT_EQ(qz_dbf_get_encoding(nullptr, name, sizeof name), QZ_DBF_ENC_NONE);
    EXPECT_FALSE(qz_dbf_set_encoding(nullptr, "CP866"));
}

}  // namespace
