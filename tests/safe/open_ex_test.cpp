// The checked open: refusals with reasons, forced reads, and .cpg files
// left byte for byte as they were.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "bad_files.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

using qz_test::read_bytes;
using qz_test::Temp_dir;
using qz_test::write_bytes;

std::vector<uint8_t> bytes_of(const std::string& s) {
    return std::vector<uint8_t>(s.begin(), s.end());
}

TEST(OpenEx, KeepsTheCodePageFileUnlessAsked) {
    Temp_dir dir;
    const std::string path = qz_safe::make_good_table(dir, "cp.dbf");
    const std::string cpg = dir.file("cp.cpg");
    for (const char* text : {"ISO-8859-2", "UTF8", "65001", "1252\r\n", "CP866\n"}) {
        write_bytes(cpg, bytes_of(text));
        Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), 0);
        ASSERT_NE(t, nullptr) << qz_dbf_last_error_message();
        EXPECT_TRUE(qz_dbf_set_str(t, 0, 0, "changed"));
        qz_dbf_close(t);
        EXPECT_EQ(read_bytes(cpg), bytes_of(text)) << text;
    }
    // Asked to, the open writes the table's encoding as the classic open does.
    write_bytes(cpg, bytes_of("ISO-8859-2"));
    Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_WRITE_CPG);
    ASSERT_NE(t, nullptr);
    qz_dbf_close(t);
    EXPECT_EQ(read_bytes(cpg), bytes_of("CP1251\n"));
    // The classic open keeps its behaviour.
    write_bytes(cpg, bytes_of("UTF8"));
    t = qz_dbf_open(path.c_str(), false, false);
    qz_dbf_close(t);
    EXPECT_NE(read_bytes(cpg), bytes_of("UTF8"));
    // A memory table's save writes the .cpg unless it is to be kept.
    EXPECT_FALSE(qz_dbf_mem_keep_cpg(nullptr, true));
    Tqz_dbf_memory* m = qz_dbf_mem_load(path.c_str());
    ASSERT_NE(m, nullptr);
    for (bool keep : {true, false}) {
        write_bytes(cpg, bytes_of("ISO-8859-2"));
        EXPECT_TRUE(qz_dbf_mem_keep_cpg(m, keep));
        EXPECT_TRUE(qz_dbf_mem_save(m));
        EXPECT_EQ(read_bytes(cpg) == bytes_of("ISO-8859-2"), keep);
    }
    qz_dbf_mem_free(m);
}

TEST(OpenEx, RefusesWithReasonsAndForcesReadOnly) {
    Temp_dir dir;
    std::vector<qz_safe::Bad_file> files = qz_safe::make_bad_files(dir);
    for (const qz_safe::Bad_file& b : files) {
        qz_dbf_clear_last_error();
        Tqz_dbf_rw* t = qz_dbf_open_ex(b.path.c_str(), 0);
        if (b.severity == QZ_DBF_SEV_FATAL) {
            EXPECT_EQ(t, nullptr) << b.name;
            EXPECT_NE(std::string(qz_dbf_last_error_message()).find(b.reason), std::string::npos)
                << b.name << ": " << qz_dbf_last_error_message();
            EXPECT_TRUE(qz_dbf_last_error() == QZ_DBF_ERR_NOT_A_TABLE) << b.name;
            EXPECT_FALSE(qz_test::exists(b.path + ".lk")) << b.name;
            if (b.name == "folder.dbf") continue;
            // Forced: opened read-only, nothing written.
            std::vector<uint8_t> before = read_bytes(b.path);
            t = qz_dbf_open_ex(b.path.c_str(), QZ_DBF_OPEN_FORCE);
            if (t) {
                EXPECT_FALSE(qz_dbf_set_deleted(t, 0, true));
                qz_dbf_close(t);
            }
            EXPECT_EQ(read_bytes(b.path), before) << b.name;
            EXPECT_FALSE(qz_test::exists(b.path + ".lk")) << b.name;
        } else if (b.name == "read_only.dbf") {
            EXPECT_EQ(t, nullptr);
            EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_PERMISSION);
            Tqz_dbf_rw* r = qz_dbf_open_ex(b.path.c_str(), QZ_DBF_OPEN_READ_ONLY);
            EXPECT_NE(r, nullptr);
            qz_dbf_close(r);
        } else {
            EXPECT_NE(t, nullptr) << b.name << ": " << qz_dbf_last_error_message();
            qz_dbf_close(t);
        }
    }
    EXPECT_EQ(qz_dbf_open_ex(dir.file("missing.dbf").c_str(), 0), nullptr);
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_NOT_FOUND);
    EXPECT_FALSE(qz_test::exists(dir.file("missing.dbf.lk")));
    EXPECT_EQ(qz_dbf_open_ex(nullptr, 0), nullptr);
}

}  // namespace
