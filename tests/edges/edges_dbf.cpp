// Table files at their edges, through the exports.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include <unistd.h>

#include "qzk_basic.h"
#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

// A descriptor's name has at most 10 significant bytes: a caller may fill
// all 11 bytes of the array, and the 11th is never read. A UTF-8 name cut
// there loses its partial last character in the table's code page (here
// CP1251) instead of borrowing a byte from beyond the array.
TEST(EdgesDbf, CreateReadsTenBytesOfEachNameAndConvertsThem) {
    struct Case {
        const char* given;  // the 11 bytes of the name array
        const char* stored;
    };
    const Case cases[] = {
        {"ABCDEFGHIJK", "ABCDEFGHIJ"},
        {"ABCDEFGHI\xD0\x96", "ABCDEFGHI"},            // "Ж" would be an 11th byte
        {"\xD0\x98\xD0\x9C\xD0\xAF", "\xC8\xCC\xDF"},  // "ИМЯ"
    };
    qz_options_set_ansi_code_page(65001);
    qz_test::Temp_dir dir;
    Tqz_dbf_field fields[3] = {};
    for (unsigned i = 0; i < 3; ++i) {
        std::strncpy(fields[i].name, cases[i].given, sizeof fields[i].name);
        fields[i].type = 'C';
        fields[i].flen = 4;
    }
    Tqz_dbf_rw* h = qz_dbf_create(dir.file("t.dbf").c_str(), 3, 1, fields, false);
    ASSERT_NE(h, nullptr);
    qz_dbf_close(h);
    const auto bytes = qz_test::read_bytes(dir.file("t.dbf"));
    for (unsigned i = 0; i < 3; ++i) {
        const char* name = reinterpret_cast<const char*>(bytes.data() + 32 * (i + 1));
        EXPECT_EQ(std::string(name, strnlen(name, 11)), cases[i].stored) << i;
    }
    qz_options_set_ansi_code_page(0);
}

// Null written to a field without a null flag blanks the cell with spaces,
// whatever its width: other readers take spaces for "no value", but a
// character or number field full of zero bytes for a value of zeros.
TEST(EdgesDbf, NullBlanksCellsOfAnyWidthWithSpaces) {
    qz_test::Temp_dir dir;
    const std::string dbf = dir.file("t.dbf");
    qz_test::write_bytes(dbf,
                         qz_test::dbf_bytes(0x03, {{"C", 'C', 4}, {"N", 'N', 4}, {"M", 'M', 10}},
                                            {{"abcd", "1234", "        17"}}));
    Tqz_dbf_rw* h = qz_dbf_open(dbf.c_str(), false, false);
    ASSERT_NE(h, nullptr);
    const Tqz_dbf_value null{QZ_DBF_VALUE_NULL, 0, 0.0, nullptr, 0};
    for (unsigned f = 0; f < 3; ++f) EXPECT_TRUE(qz_dbf_set_value(h, f, 0, &null)) << f;
    qz_dbf_close(h);
    const auto bytes = qz_test::read_bytes(dbf);
    const size_t record = bytes.size() - 1 - 19;  // flag and cells, then the end mark
    EXPECT_EQ(std::string(bytes.begin() + record, bytes.end() - 1), std::string(19, ' '));
}

// A process may run with its standard input closed: a table opened then
// gets descriptor 0 and must read as any other.
TEST(EdgesDbf, ATableOnDescriptorZeroReads) {
    qz_test::Temp_dir dir;
    const std::string dbf = dir.file("t.dbf");
    qz_test::write_bytes(dbf, qz_test::dbf_bytes(0x03, {{"C", 'C', 4}}, {{"abcd"}, {"efgh"}}));
    const int saved = ::dup(0);
    ::close(0);
    Tqz_dbf_rw* h = qz_dbf_open(dbf.c_str(), true, false);
    std::string got;
    bool ok = false;
    for (unsigned r = 0; h && r < 2; ++r) got += qz_dbf_get_str(h, 0, r, ok);
    qz_dbf_close(h);
    ::dup2(saved, 0);
    ::close(saved);
    EXPECT_EQ(got, "abcdefgh");
}

}  // namespace
