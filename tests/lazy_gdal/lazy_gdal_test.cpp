// GDAL and its libraries come into a process only with a source that needs
// OGR: reading table files (by any name) never loads them, while the first
// CSV file does, through the OGR module beside the library. The tool's
// commands on a table load none of it; export does.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

// Whether a shared object whose file name contains `name` is mapped here.
bool mapped(const std::string& name) {
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line))
        if (line.find(name) != std::string::npos) return true;
    return false;
}

// A table of one C field holding "first", under three names: upper case and
// no .dbf at all (told by its first bytes) open as table files too.
std::string make_tables(const qz_test::Temp_dir& dir) {
    for (const char* name : {"t.dbf", "T2.DBF", "t3.dat"})
        qz_test::write_bytes(dir.file(name),
                             qz_test::dbf_bytes(0x03, {{"NAME", 'C', 8}}, {{"first"}, {""}}));
    return dir.file("t.dbf");
}

// One process, in this order: table files first, then a source that needs
// OGR (once loaded, GDAL stays).
TEST(LazyGdal, TablesNeverLoadItAndOtherSourcesDo) {
    qz_test::Temp_dir dir;
    ASSERT_FALSE(mapped("libgdal")) << "the test program itself must not bring GDAL";
    make_tables(dir);
    for (const char* name : {"t.dbf", "T2.DBF", "t3.dat"}) {
        Tqz_dbf_rw* t = qz_dbf_open(dir.file(name).c_str(), false, false);
        bool ok = false;
        EXPECT_EQ(std::string(t ? qz_dbf_get_str(t, 0, 0, ok) : "").substr(0, 5), "first") << name;
        EXPECT_EQ(qz_dbf_get_storage(t), qz_dbf_storage_file) << name;
        qz_dbf_close(t);
    }
    EXPECT_FALSE(mapped("libgdal"));
    EXPECT_FALSE(mapped("qzk_file_dbf_ogr"));

    std::ofstream(dir.file("s.csv")) << "a,b\n1,x\n2,y\n";
    Tqz_dbf_rw* t = qz_dbf_open(dir.file("s.csv").c_str(), true, false);
    ASSERT_NE(t, nullptr) << "the OGR module is found beside the library";
    EXPECT_STREQ(qz_dbf_get_ogr_driver(t), "CSV");
    EXPECT_EQ(qz_dbf_get_nr(t), 2u);
    qz_dbf_close(t);
    EXPECT_TRUE(mapped("qzk_file_dbf_ogr"));
    EXPECT_TRUE(mapped("libgdal"));
    // What the table code cannot open is offered to OGR: a missing file
    // keeps the table code's reason.
    EXPECT_EQ(qz_dbf_open(dir.file("missing.dbf").c_str(), true, false), nullptr);
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_NOT_FOUND);
}

// The tool: dump, info and stats of a table load no GDAL; export does, and writes.
TEST(LazyGdal, TheToolLoadsItForExportOnly) {
    qz_test::Temp_dir dir;
    const std::string table = make_tables(dir), csv = dir.file("out.csv");
    for (const std::string args : {"dump ", "info ", "stats ", "export --quiet "}) {
        const bool exporting = args[0] == 'e';
        std::string out;
        EXPECT_EQ(qz_test::run("LD_DEBUG=libs " QZDBF_EXE " " + args + table + " " +
                                   (exporting ? csv : "") + " 2>&1 >/dev/null",
                               &out),
                  0)
            << args;
        EXPECT_NE(out.find("libqzk_file_dbf"), std::string::npos) << "LD_DEBUG works";
        EXPECT_EQ(out.find("libgdal") != std::string::npos, exporting) << args;
        EXPECT_EQ(out.find("qzdbf_export.so") != std::string::npos, exporting) << args;
    }
    const std::vector<uint8_t> bytes = qz_test::read_bytes(csv);
    const std::string text(bytes.begin(), bytes.end());
    EXPECT_TRUE(text.rfind("NAME", 0) == 0 && text.find("\nfirst") != std::string::npos) << text;
}

}  // namespace
