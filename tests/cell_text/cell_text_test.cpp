// Every cell read as system text equals the general conversion of the cell's
// text in the table's code page, whatever the system code page, the table's
// encoding and the bytes in the cell (numbers the value layer writes out
// itself, text in other pages, bytes no page defines, zero bytes).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "api/table_rw.h"
#include "code_page_text.h"
#include "dbf/basic_table.h"
#include "dbf/number_text.h"
#include "qzk_basic.h"
#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

// Cell bytes as a file may hold them, field by field; I and B cells hold
// their values' little-endian bytes.
// clang-format off
const std::string kText[] = {"plain text", "\xC0\xE1\xE2 \xD0\xAF", "\x98\x81 odd", std::string("a\0hidden", 8), "\xE2\x82\xAC euro", "   "};
const char* const kNumber[] = {"  12.50", "-0.05", "1,5", "abc", "\xD0\xAF" "12", "1e3", "", " 7"};
const char* const kFloat[] = {"  3.1416", "1,25", "-12345678.9", "1e300", "x", "\xAB", "0.0001"};
const int kInts[] = {0, -1, 2147483647, -2147483647 - 1, 42};
const double kDoubles[] = {0.0, -0.0, 1.5, 1e-300, 123456789012345.0, -2.5e10};
const std::vector<qz_test::Field_def> kFields = {{"NAME", 'C', 12}, {"AMOUNT", 'N', 10, 2}, {"RATE", 'F', 12, 4},
    {"COUNT", 'I', 4}, {"VALUE", 'B', 8}, {"BORN", 'D', 8}, {"ACTIVE", 'L', 1}};
// clang-format on
TEST(Cell_text, EveryCellUnderEverySystemCodePage) {
    qz_test::Temp_dir dir;
    const unsigned records = 840;  // every list goes round whole
    std::vector<std::vector<std::string>> rows;
    for (unsigned r = 0; r < records; ++r)
        rows.push_back({kText[r % 6], kNumber[r % 8], kFloat[r % 7],
                        std::string(reinterpret_cast<const char*>(&kInts[r % 5]), 4),
                        std::string(reinterpret_cast<const char*>(&kDoubles[r % 6]), 8),
                        r % 2 ? "20240229" : "\xD0\xAF", r % 3 ? "T" : "?"});
    qz_test::write_bytes(dir.file("t.dbf"), qz_test::dbf_bytes(3, kFields, rows));
    // The same cells read in each code page the .cpg names.
    for (const char* cpg : {"CP1251", "UTF-8", "CP866"}) {
        const unsigned cp = cpg[0] == 'U' ? 65001 : cpg[2] == '8' ? 866 : 1251;
        std::ofstream(dir.file("t.cpg")) << cpg;
        Tqz_dbf_rw* t = qz_dbf_open(dir.file("t.dbf").c_str(), true, false);
        ASSERT_NE(t, nullptr);
        Tqz_dbf_basic* basic = t->current()->as_basic();
        ASSERT_NE(basic, nullptr);
        for (unsigned system : {65001, 1251, 866, 1252, 20127, 932}) {
            qz_options_set_ansi_code_page(system);
            for (unsigned r = 0; r < records; ++r)
                for (unsigned f = 0; f < kFields.size(); ++f) {
                    bool raw_ok = false, ok = false;
                    const std::string raw = basic->get_as_string_raw(f, r, raw_ok);
                    const char* text = qz_dbf_get_str(t, f, r, ok);
                    ASSERT_NE(text, nullptr);
                    ASSERT_EQ(ok, raw_ok);
                    ASSERT_EQ(text, qz::strconv::convert<std::string>(
                                        raw.data(), raw.size(), qz_code_page_iconv_name(cp),
                                        qz_code_page_iconv_name(system), nullptr))
                        << "table " << cp << ", system " << system << ", field " << f << ", record "
                        << r;
                }
        }
        // A cell that is not there reads as empty text and says why; one
        // that is there never leaves an error behind, even when its text is
        // empty.
        bool ok = true;
        qz_dbf_clear_last_error();
        EXPECT_STREQ(qz_dbf_get_str(t, 1, 6, ok), "");  // an empty number cell
        EXPECT_EQ(qz_dbf_last_error(), 0);
        EXPECT_STREQ(qz_dbf_get_str(t, 7, 0, ok), "");
        EXPECT_NE(std::string(qz_dbf_last_error_message()).find("field 7 does not exist"),
                  std::string::npos);
        EXPECT_STREQ(qz_dbf_get_str(t, 0, records, ok), "");
        EXPECT_NE(std::string(qz_dbf_last_error_message()).find("record 840 does not exist"),
                  std::string::npos);
        qz_dbf_close(t);
    }
    qz_options_set_ansi_code_page(0);
}

// The numbers of F and B cells are shown as sprintf's "%19.11g" shows them;
// the fast paths that write that text are checked against sprintf itself on
// random values of every magnitude and on decimal texts as cells hold them.
std::string printf_g19(double v) {
    char buf[128];
    std::snprintf(buf, sizeof buf, "%19.11g", v);
    return buf;
}

TEST(NumberShown, DoublesOfEveryMagnitudeAndDecimalTexts) {
    std::mt19937_64 rng(11);
    using lim = std::numeric_limits<double>;
    // clang-format off
    const double special[] = {0.0, -0.0, 1e-4, 9.99999999995e-5, 99999999999.5, 99999999999.4,
                              1e11, 0.5, 2.5, -1234.5, 123456789012.0, lim::min(), lim::max(),
                              lim::denorm_min(), lim::infinity(), -lim::infinity(), std::nan("")};
    // clang-format on
    char out[64];
    for (double v : special) {
        qz::dbf::format_g19(out, v);
        ASSERT_EQ(out, printf_g19(v)) << v;
    }
    std::uniform_real_distribution<double> mantissa(1.0, 10.0);
    std::uniform_int_distribution<int> exponent(-12, 16), digits(0, 12);
    for (int i = 0; i < 1000000; ++i) {
        double v;
        if (i % 3 == 0) {  // any magnitude, full precision
            v = mantissa(rng) * std::pow(10.0, exponent(rng));
        } else if (i % 3 == 1) {  // few decimals, as money and measures are
            const double scale = std::pow(10.0, digits(rng) % 5);
            v = std::round(mantissa(rng) * std::pow(10.0, digits(rng)) * scale) / scale;
        } else {  // halves at the 11th digit and their neighbours
            const double base = std::floor(mantissa(rng) * 1e10) + 0.5;
            v = std::nextafter(base, (rng() & 1) ? 0.0 : 1e30) / std::pow(10.0, digits(rng));
        }
        if (rng() & 1) v = -v;
        qz::dbf::format_g19(out, v);
        ASSERT_EQ(out, printf_g19(v)) << v;
    }
    // Decimal texts as cells hold them show the number sscanf reads.
    rng.seed(12);
    for (int i = 0; i < 1000000; ++i) {
        std::string text(rng() % 3, ' ');
        if (rng() % 4 == 0) text += (rng() & 1) ? '-' : '+';
        const int whole = static_cast<int>(rng() % 14), frac = static_cast<int>(rng() % 8);
        for (int k = 0; k < whole; ++k) text += static_cast<char>('0' + rng() % 10);
        if (frac > 0 || rng() % 5 == 0) text += '.';
        for (int k = 0; k < frac; ++k)
            text += static_cast<char>('0' + (rng() % 3 ? rng() % 10 : 0));
        if (rng() % 10 == 0) text += "  ";
        double v = 0;
        const bool read = std::sscanf(text.c_str(), "%lg", &v) == 1;
        const size_t len = qz::dbf::decimal_g19(text.c_str(), out);
        if (len == 0) continue;  // left to the general path
        ASSERT_TRUE(read) << text;
        ASSERT_EQ(std::string(out), printf_g19(v)) << "'" << text << "'";
        ASSERT_EQ(len, std::strlen(out));
    }
}

}  // namespace
