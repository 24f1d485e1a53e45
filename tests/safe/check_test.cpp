// The file check over broken files, odd layouts and values, and the
// guarantee that checking changes nothing.
#include <gtest/gtest.h>

#include <string>

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
    Temp_dir dir;
    const std::string path = qz_safe::make_good_table(dir, "v.dbf");
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), false, false);
    ASSERT_NE(t, nullptr);
    qz_dbf_set_str(t, 2, 1, "20230230");  // no such day
    qz_dbf_set_str(t, 2, 2, "2024-1-1");
    qz_dbf_close(t);
    Findings f = check(path, QZ_DBF_CHECK_VALUES);
    EXPECT_NE(f.text.find("2 value(s) that are not a date, the first \"20230230\" in record 1"),
              std::string::npos)
        << f.text;
    // Without the flag, records are not read.
    EXPECT_FALSE(check(path).has_kind(QZ_DBF_CHECK_VALUE));
}

}  // namespace
