// GDAL and its libraries come into a process only with a source that needs
// OGR: reading table files (by any name) never loads them, while the first
// GeoPackage, CSV or undecodable file does, through the OGR module beside
// the library. The tool's commands on a table load none of it; export does.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

using qz_test::Temp_dir;

// Whether a shared object whose file name contains `name` is mapped here.
bool mapped(const std::string& name) {
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line))
        if (line.find(name) != std::string::npos) return true;
    return false;
}

void make_table(const std::string& path) {
    Tqz_dbf_field f[1];
    qz_dbf_field_init(&f[0], "NAME", dbf_ft_char, 8, 0);
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), 1, 2, f, false);
    ASSERT_NE(t, nullptr);
    qz_dbf_set_str(t, 0, 0, "first");
    qz_dbf_close(t);
}

// One process, in this order: table files first, then the sources that
// need OGR (once loaded, GDAL stays).
TEST(LazyGdal, TablesNeverLoadItAndOtherSourcesDo) {
    Temp_dir dir;
    ASSERT_FALSE(mapped("libgdal")) << "the test program itself must not bring GDAL";
    const std::string table = dir.file("t.dbf");
    make_table(table);
    // The same table under other names: upper case, and no .dbf at all
    // (told by its first bytes).
    qz_test::write_bytes(dir.file("T2.DBF"), qz_test::read_bytes(table));
    qz_test::write_bytes(dir.file("t3.dat"), qz_test::read_bytes(table));
    for (const char* name : {"t.dbf", "T2.DBF", "t3.dat"}) {
        Tqz_dbf_rw* t = qz_dbf_open(dir.file(name).c_str(), false, false);
        ASSERT_NE(t, nullptr) << name;
        EXPECT_EQ(qz_dbf_get_storage(t), qz_dbf_storage_file) << name;
        bool ok = false;
        EXPECT_EQ(std::string(qz_dbf_get_str(t, 0, 0, ok)).substr(0, 5), "first") << name;
        qz_dbf_close(t);
    }
    EXPECT_FALSE(mapped("libgdal"));
    EXPECT_FALSE(mapped("qzk_file_dbf_ogr"));

    // A CSV file is served by OGR: the module and GDAL come in.
    {
        std::ofstream csv(dir.file("s.csv"));
        csv << "a,b\n1,x\n2,y\n";
    }
    Tqz_dbf_rw* t = qz_dbf_open(dir.file("s.csv").c_str(), true, false);
    ASSERT_NE(t, nullptr) << "the OGR module is found beside the library";
    EXPECT_EQ(qz_dbf_get_storage(t), qz_dbf_storage_ogr);
    EXPECT_STREQ(qz_dbf_get_ogr_driver(t), "CSV");
    EXPECT_EQ(qz_dbf_get_nr(t), 2u);
    qz_dbf_close(t);
    EXPECT_TRUE(mapped("qzk_file_dbf_ogr"));
    EXPECT_TRUE(mapped("libgdal"));

    // What the table code cannot open is offered to OGR, as before the
    // module: a missing file keeps the table code's reason.
    EXPECT_EQ(qz_dbf_open(dir.file("missing.dbf").c_str(), true, false), nullptr);
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_NOT_FOUND);
}

// The tool: dump and info of a table load no GDAL; export does, and writes.
TEST(LazyGdal, TheToolLoadsItForExportOnly) {
    Temp_dir dir;
    const std::string table = dir.file("t.dbf");
    make_table(table);
    const std::string exe = QZDBF_EXE;
    for (const std::string& args : {"dump " + table, "info " + table, "stats " + table}) {
        std::string out;
        const int status =
            qz_test::run("LD_DEBUG=libs " + exe + " " + args + " 2>&1 >/dev/null", &out);
        EXPECT_EQ(status, 0) << args;
        EXPECT_EQ(out.find("libgdal"), std::string::npos) << args;
        EXPECT_NE(out.find("libqzk_file_dbf"), std::string::npos) << "LD_DEBUG works";
    }
    std::string out;
    const std::string csv = dir.file("out.csv");
    ASSERT_EQ(qz_test::run("LD_DEBUG=libs " + exe + " export --quiet " + table + " " + csv +
                               " 2>&1 >/dev/null",
                           &out),
              0);
    EXPECT_NE(out.find("qzdbf_export.so"), std::string::npos);
    EXPECT_NE(out.find("libgdal"), std::string::npos);
    std::ifstream back(csv);
    std::stringstream text;
    text << back.rdbuf();
    EXPECT_EQ(text.str().rfind("NAME", 0), 0u) << text.str();
    EXPECT_NE(text.str().find("\nfirst"), std::string::npos) << text.str();
}

}  // namespace
