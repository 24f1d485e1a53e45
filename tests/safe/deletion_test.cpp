// Deletion flags on disk (bytes in the file) and in memory (undo and redo).
#include <gtest/gtest.h>

#include "bad_files.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

using qz_test::read_bytes;
using qz_test::Temp_dir;

TEST(Deletion, DiskFlagsAreTheRecordsFirstByte) {
    Temp_dir dir;
    const std::string path = qz_safe::make_good_table(dir, "d.dbf");
    const std::vector<uint8_t> before = read_bytes(path);
    const size_t header_length = before[8] | before[9] << 8, record_length = before[10];
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), false, false);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(qz_dbf_get_deleted(t, 1), 0);
    EXPECT_TRUE(qz_dbf_set_deleted(t, 1, true));
    EXPECT_EQ(qz_dbf_get_deleted(t, 1), 1);
    EXPECT_EQ(qz_dbf_get_deleted(t, 3), -1);
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_ARGUMENT);
    EXPECT_FALSE(qz_dbf_set_deleted(t, 3, true));
    // Values are untouched by the flag.
    bool ok = false;
    EXPECT_STREQ(qz_dbf_get_str(t, 0, 1, ok), "beta      ");
    qz_dbf_close(t);

    std::vector<uint8_t> after = read_bytes(path);
    ASSERT_EQ(after.size(), before.size());
    for (size_t i = 0; i < after.size(); ++i) {
        if (i == header_length + record_length) {
            EXPECT_EQ(after[i], '*');
        } else if (i >= 32) {
            EXPECT_EQ(after[i], before[i]) << "byte " << i;
        }
    }

    // Read-only handles read the flag and refuse to change it.
    t = qz_dbf_open(path.c_str(), true, false);
    EXPECT_EQ(qz_dbf_get_deleted(t, 1), 1);
    EXPECT_FALSE(qz_dbf_set_deleted(t, 1, false));
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_PERMISSION);
    qz_dbf_close(t);
    EXPECT_EQ(qz_dbf_get_deleted(nullptr, 0), -1);
}

TEST(Deletion, MemoryFlagsUndoAndSave) {
    Temp_dir dir;
    const std::string path = qz_safe::make_good_table(dir, "m.dbf");
    Tqz_dbf_memory* m = qz_dbf_mem_load(path.c_str());
    ASSERT_NE(m, nullptr);
    Iqz_history_manager* history = qz_history_manager_get_instance();
    EXPECT_TRUE(qz_dbf_mem_set_deleted(m, 2, true));
    EXPECT_TRUE(qz_dbf_mem_set_deleted(m, 0, true));
    EXPECT_EQ(qz_dbf_mem_get_deleted(m, 0), 1);
    qz_history_manager_undo(history);
    EXPECT_EQ(qz_dbf_mem_get_deleted(m, 0), 0);
    EXPECT_EQ(qz_dbf_mem_get_deleted(m, 2), 1);
    qz_history_manager_redo(history);
    EXPECT_EQ(qz_dbf_mem_get_deleted(m, 0), 1);
    EXPECT_EQ(qz_dbf_mem_get_deleted(m, 5), -1);
    EXPECT_FALSE(qz_dbf_mem_set_deleted(m, 5, true));
    EXPECT_TRUE(qz_dbf_mem_save(m));
    qz_dbf_mem_free(m);

    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), true, false);
    EXPECT_EQ(qz_dbf_get_deleted(t, 0), 1);
    EXPECT_EQ(qz_dbf_get_deleted(t, 1), 0);
    EXPECT_EQ(qz_dbf_get_deleted(t, 2), 1);
    qz_dbf_close(t);
    EXPECT_EQ(qz_dbf_mem_get_deleted(m, 0), -1);  // freed
}

}  // namespace
