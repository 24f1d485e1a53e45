// The file check over broken files, odd layouts and values, and the
// guarantee that checking changes nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "bad_files.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

using qz_test::read_bytes;
using qz_test::Temp_dir;
using qz_test::write_bytes;

struct Findings {
    int worst = 0;
    std::string text;  // "severity kind where: what" lines
    bool has_kind(int kind) const {
        return text.find("|" + std::to_string(kind) + "|") != std::string::npos;
    }
};

Findings check(const std::string& path, unsigned flags = 0) {
    Findings f;
    Tqz_dbf_check_result* r = qz_dbf_check_file(path.c_str(), flags);
    EXPECT_NE(r, nullptr);
    f.worst = qz_dbf_check_worst(r);
    for (unsigned i = 0; i < qz_dbf_check_count(r); ++i)
        f.text += std::to_string(qz_dbf_check_severity(r, i)) + "|" +
                  std::to_string(qz_dbf_check_kind(r, i)) + "| " + qz_dbf_check_where(r, i) + ": " +
                  qz_dbf_check_what(r, i) + "\n";
    EXPECT_STREQ(qz_dbf_check_what(r, qz_dbf_check_count(r)), "");
    qz_dbf_check_free(r);
    return f;
}

TEST(Check, BadFilesAreFoundAndLeftAsTheyAre) {
    Temp_dir dir;
    std::vector<qz_safe::Bad_file> files = qz_safe::make_bad_files(dir);
    ASSERT_GE(files.size(), 13u);
    for (const qz_safe::Bad_file& b : files) {
        const bool folder = b.name == "folder.dbf";
        std::vector<uint8_t> before = folder ? std::vector<uint8_t>() : read_bytes(b.path);
        Findings f = check(b.path, QZ_DBF_CHECK_VALUES);
        EXPECT_EQ(f.worst, b.severity) << b.name << "\n" << f.text;
        EXPECT_NE(f.text.find(b.reason), std::string::npos) << b.name << "\n" << f.text;
        if (!folder) {
            EXPECT_EQ(read_bytes(b.path), before) << b.name;
        }
        EXPECT_FALSE(qz_test::exists(b.path + ".lk")) << b.name;
    }
    EXPECT_EQ(check(dir.file("none.dbf")).worst, QZ_DBF_SEV_FATAL);
    EXPECT_EQ(qz_dbf_check_file(nullptr, 0), nullptr);
    EXPECT_EQ(qz_dbf_check_count(nullptr), 0u);
}

// Descriptor layouts other readers refuse, one change of a good table each.
TEST(Check, FieldLayouts) {
    Temp_dir dir;
    const std::vector<uint8_t> good = read_bytes(qz_safe::make_good_table(dir, "good.dbf"));
    EXPECT_EQ(check(dir.file("good.dbf"), QZ_DBF_CHECK_VALUES).worst, 0)
        << check(dir.file("good.dbf")).text;
    struct Case {
        const char* name;
        size_t at;
        std::vector<uint8_t> bytes;
        int severity, kind;
        const char* reason;
    } cases[] = {
        // field 2 (DAY, D8) at byte 96: type at +11, length at +16, decimals at +17
        {"d_len", 96 + 11, {'L'}, QZ_DBF_SEV_ERROR, QZ_DBF_CHECK_FIELD, "L field of length 8"},
        {"type", 96 + 11, {'S'}, QZ_DBF_SEV_ERROR, QZ_DBF_CHECK_FIELD, "unknown field type 'S'"},
        {"n_dec", 64 + 17, {8}, QZ_DBF_SEV_ERROR, QZ_DBF_CHECK_FIELD, "8 decimals in length 8"},
        {"terminator", 128, {' '}, QZ_DBF_SEV_ERROR, QZ_DBF_CHECK_TERMINATOR, "no terminator"},
        {"long_header", 8, {0xA2}, QZ_DBF_SEV_FATAL, QZ_DBF_CHECK_RECORDS, ""},
        {"record_longer",
         10,
         {28},
         QZ_DBF_SEV_ERROR,
         QZ_DBF_CHECK_RECORD_LENGTH,
         "not the fields' lengths plus one (27)"},
        // field 2's name "DAY": lower case, then the name of field 0 ("NAME")
        {"lower_name",
         96,
         {'d', 'a', 'y'},
         QZ_DBF_SEV_WARNING,
         QZ_DBF_CHECK_NAME,
         "'day' breaks the field-name rules (the repair is 'DAY')"},
        {"same_name",
         96,
         {'n', 'a', 'm', 'e'},
         QZ_DBF_SEV_WARNING,
         QZ_DBF_CHECK_NAME,
         "'name' is used by an earlier field too"},
        // a CP1251 byte in a name: findings stay UTF-8, the byte escaped
        {"byte_name", 96, {0xC4}, QZ_DBF_SEV_WARNING, QZ_DBF_CHECK_NAME, "field 2 (\\xC4AY)"},
        {"value",
         130 + 11,
         {'x'},
         QZ_DBF_SEV_ERROR,
         QZ_DBF_CHECK_VALUE,
         "not a number, the first \" x"},
    };
    for (const Case& c : cases) {
        std::vector<uint8_t> b = good;
        for (size_t i = 0; i < c.bytes.size(); ++i) b[c.at + i] = c.bytes[i];
        const std::string path = dir.file(std::string(c.name) + ".dbf");
        write_bytes(path, b);
        Findings f = check(path, QZ_DBF_CHECK_VALUES);
        if (c.kind == QZ_DBF_CHECK_RECORDS) continue;  // only that it survives
        EXPECT_EQ(f.worst, c.severity) << c.name << "\n" << f.text;
        EXPECT_TRUE(f.has_kind(c.kind)) << c.name << "\n" << f.text;
        EXPECT_NE(f.text.find(c.reason), std::string::npos) << c.name << "\n" << f.text;
    }
}

// Values as other readers parse them.
TEST(Check, ValuesOfEveryRecord) {
    // Each record: a number, a two-letter text, a date and a logical, as
    // other programs may leave them; the check counts the bad ones per field
    // and quotes the first. The text "E5" right after the number must not
    // be read as its exponent.
    const char* const numbers[] = {"    1.50", "abc     ", "        ", "********",
                                   "  +5    ", "-1.5e+3 ", "  1,5   ", "1.2.3   ",
                                   "1e      ", "  -     ", "       5"};
    const std::string euro = "\xE2\x82\xAC";  // three bytes of UTF-8
    const std::string dates[] = {"20240229", euro + "12345", "19000229", "20000229",
                                 "20230229", "20231301",     "        ", "20240100",
                                 "20241231", "20240431",     "20240229"};
    const char* const logicals = "TX? FynZTTT";
    const unsigned n = 11;
    Temp_dir dir;
    const std::string path = dir.file("v.dbf");
    Tqz_dbf_field f[4];
    qz_dbf_field_init(&f[0], "N", dbf_ft_numeric, 8, 2);
    qz_dbf_field_init(&f[1], "C", dbf_ft_char, 2, 0);
    qz_dbf_field_init(&f[2], "D", dbf_ft_date, 8, 0);
    qz_dbf_field_init(&f[3], "L", dbf_ft_logical, 1, 0);
    qz_dbf_close(qz_dbf_create(path.c_str(), 4, n, f, false));
    std::vector<uint8_t> b = read_bytes(path);
    const size_t header = b[8] | b[9] << 8;
    for (unsigned r = 0; r < n; ++r) {
        const std::string rec = std::string(" ") + numbers[r] + "E5" + dates[r] + logicals[r];
        ASSERT_EQ(rec.size(), 20u);
        std::copy(rec.begin(), rec.end(), b.begin() + header + 20 * r);
    }
    write_bytes(path, b);
    Findings found = check(path, QZ_DBF_CHECK_VALUES);
    // Values are quoted with every byte outside printable ASCII as \xNN.
    for (const char* want :
         {"field 0 (N): 4 value(s) that are not a number, the first \"abc     \" in record 1",
          "field 2 (D): 6 value(s) that are not a date, the first \"\\xE2\\x82\\xAC12345\" in "
          "record 1",
          "field 3 (L): 2 value(s) that are not a logical value, the first \"X\" in record 1"})
        EXPECT_NE(found.text.find(want), std::string::npos) << want << "\n" << found.text;
    // Without the flag, records are not read.
    EXPECT_FALSE(check(path).has_kind(QZ_DBF_CHECK_VALUE));
}

}  // namespace
