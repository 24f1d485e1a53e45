// Every cell read as system text equals the general conversion of the cell's
// text in the table's code page, whatever the system code page, the table's
// encoding and the bytes in the cell (numbers the value layer writes out
// itself, text in other pages, bytes no page defines, zero bytes).
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "api/table_rw.h"
#include "code_page_text.h"
#include "dbf/basic_table.h"
#include "qzk_basic.h"
#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

struct Layout {
    const char* name;
    Tqz_dbf_field_type type;
    unsigned char flen;
    char dlen;
};

const Layout kFields[] = {{"NAME", dbf_ft_char, 12, 0},    {"AMOUNT", dbf_ft_numeric, 10, 2},
                          {"RATE", dbf_ft_float, 12, 4},   {"COUNT", dbf_ft_integer, 4, 0},
                          {"VALUE", dbf_ft_double, 8, 0},  {"BORN", dbf_ft_date, 8, 0},
                          {"ACTIVE", dbf_ft_logical, 1, 0}};
constexpr unsigned kNf = sizeof kFields / sizeof kFields[0];

// Cell bytes as a file may hold them, field by field; I and B cells take
// their bytes as the little-endian value.
const char* const kText[] = {"plain text", "\xC0\xE1\xE2 \xD0\xAF", "\x98\x81 odd",
                             "a\0hidden",  "\xE2\x82\xAC euro",     "   "};
// clang-format off
const char* const kNumber[] = {"  12.50", "-0.05", "1,5", "abc", "\xD0\xAF" "12", "1e3", "", " 7"};
// clang-format on
const char* const kFloat[] = {"  3.1416", "1,25", "-12345678.9", "1e300", "x", "\xAB", "0.0001"};
const int kInts[] = {0, -1, 2147483647, -2147483647 - 1, 42};
const double kDoubles[] = {0.0, -0.0, 1.5, 1e-300, 123456789012345.0, -2.5e10};

std::string general(unsigned from, unsigned to, const std::string& s) {
    return qz::strconv::convert<std::string>(s.data(), s.size(), qz_code_page_iconv_name(from),
                                             qz_code_page_iconv_name(to), nullptr);
}

void put(std::vector<uint8_t>& bytes, size_t at, const void* src, size_t n, size_t width) {
    std::memset(&bytes[at], ' ', width);
    std::memcpy(&bytes[at], src, n < width ? n : width);
}

class Cell_text : public ::testing::Test {
  protected:
    void TearDown() override { qz_options_set_ansi_code_page(0); }

    // A table of `records` records whose cells are filled from the lists
    // above, in the encoding a flag gives (none: CP1251).
    std::string make(const char* name, unsigned records, bool utf8, bool dos) {
        Tqz_dbf_field f[kNf];
        for (unsigned i = 0; i < kNf; ++i)
            qz_dbf_field_init(&f[i], kFields[i].name, kFields[i].type, kFields[i].flen,
                              kFields[i].dlen);
        const std::string path = dir.file(name);
        Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), kNf, records, f, dos);
        if (utf8) qz_dbf_set_utf8_flag(t, true);
        qz_dbf_close(t);
        std::vector<uint8_t> bytes = qz_test::read_bytes(path);
        const size_t hl = bytes[8] | bytes[9] << 8, rl = bytes[10] | bytes[11] << 8;
        for (unsigned r = 0; r < records; ++r) {
            size_t at = hl + r * rl + 1;
            const char* text = kText[r % 6];
            const size_t text_len = r % 6 == 3 ? 8 : std::strlen(text);
            put(bytes, at, text, text_len, 12);
            at += 12;
            put(bytes, at, kNumber[r % 8], std::strlen(kNumber[r % 8]), 10);
            at += 10;
            put(bytes, at, kFloat[r % 7], std::strlen(kFloat[r % 7]), 12);
            at += 12;
            put(bytes, at, &kInts[r % 5], 4, 4);
            at += 4;
            put(bytes, at, &kDoubles[r % 6], 8, 8);
            at += 8;
            put(bytes, at, r % 2 ? "20240229" : "\xD0\xAF", r % 2 ? 8 : 2, 8);
            at += 8;
            put(bytes, at, r % 3 ? "T" : "?", 1, 1);
        }
        qz_test::write_bytes(path, bytes);
        return path;
    }

    qz_test::Temp_dir dir;
};

TEST_F(Cell_text, EveryCellUnderEverySystemCodePage) {
    const struct {
        bool utf8, dos;
        unsigned cp;
    } tables[] = {{false, false, 1251}, {true, false, 65001}, {false, true, 866}};
    const unsigned systems[] = {65001, 1251, 866, 1252, 20127, 932};
    const unsigned records = 840;  // every list goes round whole
    for (const auto& table : tables) {
        const std::string path = make("t.dbf", records, table.utf8, table.dos);
        Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), true, false);
        ASSERT_NE(t, nullptr);
        Tqz_dbf_basic* basic = t->current()->as_basic();
        ASSERT_NE(basic, nullptr);
        for (unsigned system : systems) {
            qz_options_set_ansi_code_page(system);
            for (unsigned r = 0; r < records; ++r)
                for (unsigned f = 0; f < kNf; ++f) {
                    bool raw_ok = false, ok = false;
                    const std::string raw = basic->get_as_string_raw(f, r, raw_ok);
                    const char* text = qz_dbf_get_str(t, f, r, ok);
                    ASSERT_NE(text, nullptr);
                    ASSERT_EQ(ok, raw_ok);
                    ASSERT_EQ(text, general(table.cp, system, raw))
                        << "table " << table.cp << ", system " << system << ", field " << f
                        << ", record " << r;
                }
        }
        qz_dbf_close(t);
    }
}

// A cell that is not there reads as empty text and says why; one that is
// there never leaves an error behind, even when its text is empty.
TEST_F(Cell_text, MissingCellsAndEmptyCells) {
    const std::string path = make("m.dbf", 8, false, false);
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), true, false);
    ASSERT_NE(t, nullptr);
    bool ok = true;
    qz_dbf_clear_last_error();
    EXPECT_STREQ(qz_dbf_get_str(t, 1, 6, ok), "");  // an empty number cell
    EXPECT_EQ(qz_dbf_last_error(), 0);
    EXPECT_STREQ(qz_dbf_get_str(t, kNf, 0, ok), "");
    EXPECT_NE(std::string(qz_dbf_last_error_message()).find("field 7 does not exist"),
              std::string::npos);
    qz_dbf_clear_last_error();
    EXPECT_STREQ(qz_dbf_get_str(t, 0, 8, ok), "");
    EXPECT_NE(std::string(qz_dbf_last_error_message()).find("record 8 does not exist"),
              std::string::npos);
    qz_dbf_close(t);
}

}  // namespace
