// Table files, their encodings and tables held in memory at their edges,
// through the exports.
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

// Every type letter names its type and comes back from it; any other byte
// (lower case included) names no type.
TEST(EdgesDbf, TypeLettersRoundTrip) {
    const std::string letters = "CNLMDFIBP";  // in the order of the type numbers 1..9
    for (int c = 1; c < 256; ++c) {
        const size_t at = letters.find(static_cast<char>(c));
        const Tqz_dbf_field_type t = qz_char2dbftype(static_cast<char>(c));
        EXPECT_EQ(static_cast<size_t>(t), at == std::string::npos ? 0 : at + 1) << c;
        if (t != dbf_ft_unknown) {
            EXPECT_EQ(qz_dbftype2char(t), c);
        }
    }
}

// Giving an open table an encoding (the tool's create tests the usual pages)
// replaces the .cpg it had, writes the driver byte of a Windows page's
// Windows driver, and switches the handle's own reading at once. A read-only
// handle or an unknown name is refused and the file left as it is.
TEST(EdgesEncoding, TableEncodingReplacesTheCpgAndSwitchesTheHandle) {
    const struct {
        const char* asked;
        uint8_t driver;
        const char* cpg;
        bool utf8, dos;
    } cases[] = {{"1252", 0x03, "CP1252", false, false},
                 {"866", 0x65, "CP866", false, true},
                 {"utf8", 0x00, "UTF-8", true, false}};
    qz_test::Temp_dir dir;
    const std::string dbf = dir.file("t.dbf"), cpg = dir.file("t.cpg");
    ASSERT_TRUE(qz_test::make_char_table(dbf, {8}, 1));
    for (const auto& c : cases) {
        qz_test::write_bytes(cpg, {'8', '6', '6'});
        Tqz_dbf_rw* h = qz_dbf_open(dbf.c_str(), false, false);
        ASSERT_TRUE(qz_dbf_set_table_encoding(h, c.asked)) << c.asked;
        EXPECT_EQ(qz_dbf_get_utf8_flag(h), c.utf8) << c.asked;
        EXPECT_EQ(qz_dbf_get_dos_flag(h), c.dos) << c.asked;
        qz_dbf_close(h);
        EXPECT_EQ(qz_test::read_bytes(dbf).at(29), c.driver) << c.asked;
        const auto bytes = qz_test::read_bytes(cpg);
        const std::string text(bytes.begin(), bytes.end());
        EXPECT_EQ(text.substr(0, text.find_first_of("\r\n")), c.cpg);
    }
    const auto before = qz_test::read_bytes(dbf);
    for (bool read_only : {true, false}) {
        Tqz_dbf_rw* h = qz_dbf_open(dbf.c_str(), read_only, false);
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

std::string text_of(Tqz_dbf_rw* h, unsigned field, unsigned record) {
    Tqz_dbf_value v{};
    if (!qz_dbf_get_value(h, field, record, &v)) return "<error>";
    return std::to_string(v.kind) + ":" + std::string(v.text ? v.text : "", v.length);
}

// A handle that serves a loaded table reads every record's typed values as
// a handle on the file does, the last record included (no record follows
// its image there). Restructuring it copies each kept field's bytes to its
// new place: neighbours parted by a new field keep their own values, the
// new field comes blank (the file itself is not written).
TEST(EdgesMemory, ALoadedTableReadsAsTheFileAndKeepsItsValuesThroughARestructure) {
    qz_test::Temp_dir dir;
    const std::string dbf = dir.file("t.dbf");
    qz_test::write_bytes(
        dbf,
        qz_test::dbf_bytes(0x03, {{"NAME", 'C', 5}, {"N", 'N', 3}, {"C", 'C', 2}},
                           {{"one", "1", "cc"}, {"two", "-22", "st"}, {"three", "333", "uv"}}));
    Tqz_dbf_rw* file = qz_dbf_open(dbf.c_str(), true, false);
    ASSERT_NE(file, nullptr);
    Tqz_dbf_memory* m = qz_dbf_mem_load(dbf.c_str());
    ASSERT_NE(m, nullptr);
    Tqz_dbf_rw* held = qz_dbf_open(dbf.c_str(), false, false);
    ASSERT_TRUE(held && qz_dbf_is_buffered(held));
    for (unsigned r = 0; r < 3; ++r)
        for (unsigned f = 0; f < 3; ++f) EXPECT_EQ(text_of(held, f, r), text_of(file, f, r));
    const std::string t = std::to_string(QZ_DBF_VALUE_TEXT) + ":";
    EXPECT_EQ(text_of(held, 0, 2), t + "three");
    Tqz_dbf_rstrct* d = qz_dbf_restruct_create(dbf.c_str());
    Tqz_dbf_field added = {"NEW", 'C', 4, 0};
    qz_dbf_restruct_insert_field(d, 1, &added);
    ASSERT_TRUE(qz_dbf_try_restruct(held, d));
    qz_dbf_restruct_destroy(d);
    for (unsigned r = 0; r < 3; ++r)
        for (unsigned f = 0; f < 4; ++f)
            EXPECT_EQ(text_of(held, f, r), f == 1 ? t : text_of(file, f - (f > 1), r)) << r << f;
    qz_dbf_close(held);
    qz_dbf_close(file);
    qz_dbf_mem_free(m);
}

// A table cut short loads the records its file holds, a cut last one
// completed with blanks: the header's larger count adds none that are not
// there.
TEST(EdgesMemory, ATableCutShortLoadsTheRecordsItHolds) {
    qz_test::Temp_dir dir;
    const auto whole = qz_test::dbf_bytes(0x03, {{"C", 'C', 4}}, {{"ab"}, {"cd"}, {"ef"}});
    const size_t header = qz_test::u16_at(whole, 8);  // records of 5 bytes follow
    for (const auto& [kept, records] : {std::pair{10, 2u}, {9, 2u}, {11, 3u}}) {
        std::vector<uint8_t> bytes(whole.begin(), whole.begin() + header + kept);
        bytes[4] = 5;
        qz_test::write_bytes(dir.file("t.dbf"), bytes);
        Tqz_dbf_memory* m = qz_dbf_mem_load(dir.file("t.dbf").c_str());
        EXPECT_EQ(qz_dbf_mem_get_nr(m), records) << kept;
        qz_dbf_mem_free(m);
    }
}

}  // namespace
