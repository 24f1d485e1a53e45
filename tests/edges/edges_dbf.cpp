// Table files at their edges, through the exports.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "qzk_basic.h"
#include "qzk_file_dbf.h"
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

}  // namespace
