// Tables we create are accepted by two independent readers: dbfread and
// GDAL's ogrinfo, in each of the three table encodings.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qzk_file_dbf.h"
#include "test_support.h"

namespace {

using qz_test::Temp_dir;

struct Encoding {
    const char* label;
    bool dos, utf8;
    const char* python;
};

const Encoding kEncodings[] = {
    {"CP1251", false, false, "cp1251"},
    {"CP866", true, false, "cp866"},
    {"UTF-8", false, true, "utf-8"},
};

bool have(const std::string& tool) {
    return qz_test::run("command -v " + tool + " >/dev/null 2>&1") == 0;
}

std::string create_table(const Temp_dir& dir, const Encoding& e) {
    std::string path = dir.file(std::string("t_") + e.python + ".dbf");
    Tqz_dbf_field f[7];
    qz_dbf_field_init(&f[0], "NAME", dbf_ft_char, 30, 0);
    qz_dbf_field_init(&f[1], "AMOUNT", dbf_ft_numeric, 12, 2);
    qz_dbf_field_init(&f[2], "RATIO", dbf_ft_float, 10, 4);
    qz_dbf_field_init(&f[3], "ACTIVE", dbf_ft_logical, 1, 0);
    qz_dbf_field_init(&f[4], "BORN", dbf_ft_date, 8, 0);
    qz_dbf_field_init(&f[5], "COUNT", dbf_ft_integer, 4, 0);
    // Cyrillic names are stored in the table's encoding; with UTF-8 the
    // create call still writes them as CP1251, so that table keeps ASCII.
    qz_dbf_field_init(&f[6], e.utf8 ? "CITY" : "ГОРОД", dbf_ft_char, 20, 0);
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), 7, 5, f, e.dos);
    if (!t) return "";
    if (e.utf8) qz_dbf_set_utf8_flag(t, true);
    qz_dbf_close(t);
    return path;
}

TEST(Interop, DbfreadReadsOurTablesInEachEncoding) {
    if (qz_test::run("/usr/bin/python3 -c 'import dbfread'") != 0) GTEST_SKIP() << "no dbfread";
    qz_options_set_ansi_code_page(65001);
    Temp_dir dir;
    for (const auto& e : kEncodings) {
        SCOPED_TRACE(e.label);
        std::string path = create_table(dir, e);
        ASSERT_FALSE(path.empty());
        std::string out;
        int rc = qz_test::run(std::string("/usr/bin/python3 ") + QZ_TEST_SOURCE_DIR +
                                  "/read_with_dbfread.py '" + path + "' " + e.python + " 2>&1",
                              &out);
        ASSERT_EQ(rc, 0) << out;
        EXPECT_NE(out.find(R"(["NAME", "C", 30, 0])"), std::string::npos) << out;
        EXPECT_NE(out.find(R"(["AMOUNT", "N", 12, 2])"), std::string::npos) << out;
        EXPECT_NE(out.find(R"(["RATIO", "F", 10, 4])"), std::string::npos) << out;
        EXPECT_NE(out.find(R"(["ACTIVE", "L", 1, 0])"), std::string::npos) << out;
        EXPECT_NE(out.find(R"(["BORN", "D", 8, 0])"), std::string::npos) << out;
        EXPECT_NE(out.find(R"(["COUNT", "I", 4, 0])"), std::string::npos) << out;
        std::string last = e.utf8 ? R"(["CITY", "C", 20, 0])" : R"(["ГОРОД", "C", 20, 0])";
        EXPECT_NE(out.find(last), std::string::npos) << out;
        EXPECT_NE(out.find(R"("records": 5, "header_records": 5)"), std::string::npos) << out;
    }
    qz_options_set_ansi_code_page(0);
}

TEST(Interop, OgrinfoReadsOurTablesInEachEncoding) {
    if (!have("ogrinfo")) GTEST_SKIP() << "no ogrinfo";
    qz_options_set_ansi_code_page(65001);
    Temp_dir dir;
    for (const auto& e : kEncodings) {
        SCOPED_TRACE(e.label);
        std::string path = create_table(dir, e);
        ASSERT_FALSE(path.empty());
        std::string out;
        int rc = qz_test::run("ogrinfo -ro -al -so '" + path + "' 2>&1", &out);
        ASSERT_EQ(rc, 0) << out;
        EXPECT_EQ(out.find("ERROR"), std::string::npos) << out;
        EXPECT_EQ(out.find("Warning"), std::string::npos) << out;
        EXPECT_NE(out.find("Feature Count: 5"), std::string::npos) << out;
        EXPECT_NE(out.find("NAME: String (30.0)"), std::string::npos) << out;
        EXPECT_NE(out.find("AMOUNT: Real (12.2)"), std::string::npos) << out;
        EXPECT_NE(out.find("BORN: Date"), std::string::npos) << out;
        // GDAL reads the .cpg and gives the name back in UTF-8.
        std::string last = e.utf8 ? "CITY: String (20.0)" : "ГОРОД: String (20.0)";
        EXPECT_NE(out.find(last), std::string::npos) << out;
    }
    qz_options_set_ansi_code_page(0);
}

}  // namespace
