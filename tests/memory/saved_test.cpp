// While a memory table is loaded, another process can neither load it nor
// open it for writing; reading needs no lock.
#include <gtest/gtest.h>

#include <string>

#include "qzk_file_dbf.h"
#include "test_support.h"

namespace {

class SavedMemoryTable : public ::testing::Test {
  protected:
    void SetUp() override {
        path = dir.file("goods.dbf");
        Tqz_dbf_field f;
        qz_dbf_field_init(&f, "NAME", dbf_ft_char, 30, 0);
        Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), 1, 4, &f, false);
        ASSERT_NE(t, nullptr);
        for (unsigned r = 0; r < 4; ++r)
            qz_dbf_set_str(t, 0, r, ("disk row " + std::to_string(r)).c_str());
        qz_dbf_close(t);
    }
    void TearDown() override { qz_history_manager_clear(qz_history_manager_get_instance()); }
    qz_test::Temp_dir dir;
    std::string path;
};

TEST_F(SavedMemoryTable, ALoadedTableIsKeptFromOtherProcesses) {
    Tqz_dbf_memory* t = qz_dbf_mem_load(path.c_str());
    ASSERT_NE(t, nullptr);
    const std::string q = "'" QZDBF_EXE "' ";
    const std::string table = "'" + path + "'";
    std::string out;
    // Another process cannot load the table, nor write to the file (exit
    // status 3: the file is locked).
    EXPECT_EQ(qz_test::run("echo show | " + q + "edit " + table + " 2>&1", &out), 3) << out;
    EXPECT_NE(out.find("locked by another writer"), std::string::npos) << out;
    EXPECT_EQ(qz_test::run(q + "set " + table + " NAME 0 other 2>&1", &out), 3) << out;
    EXPECT_EQ(qz_test::run(q + "append " + table + " 2>&1", &out), 3) << out;
    // Reading needs no lock.
    EXPECT_EQ(qz_test::run(q + "get " + table + " NAME 2 2>&1", &out), 0) << out;
    EXPECT_EQ(out, "disk row 2\n");
    EXPECT_TRUE(qz_dbf_mem_free(t));

    // Let go, the table is free for the other process again.
    EXPECT_EQ(qz_test::run(q + "set " + table + " NAME 0 other 2>&1", &out), 0) << out;
}

}  // namespace
