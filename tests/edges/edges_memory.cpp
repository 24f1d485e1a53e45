// Tables held in memory at their edges, through the exports.
#include <gtest/gtest.h>

#include <string>

#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

std::string text_of(Tqz_dbf_rw* h, unsigned field, unsigned record) {
    Tqz_dbf_value v{};
    if (!qz_dbf_get_value(h, field, record, &v)) return "<error>";
    return std::to_string(v.kind) + ":" + std::string(v.text ? v.text : "", v.length);
}

// A handle that serves a loaded table reads every record's typed values as
// a handle on the file does, the last record included (no record follows
// its image there).
TEST(EdgesMemory, TypedReadsOfALoadedTableMatchTheFileToTheLastRecord) {
    qz_test::Temp_dir dir;
    const std::string dbf = dir.file("t.dbf");
    qz_test::write_bytes(dbf, qz_test::dbf_bytes(0x03, {{"NAME", 'C', 5}, {"N", 'N', 3}},
                                                 {{"one", "1"}, {"two", "-22"}, {"three", "333"}}));
    Tqz_dbf_rw* file = qz_dbf_open(dbf.c_str(), true, false);
    ASSERT_NE(file, nullptr);
    Tqz_dbf_memory* m = qz_dbf_mem_load(dbf.c_str());
    ASSERT_NE(m, nullptr);
    Tqz_dbf_rw* held = qz_dbf_open(dbf.c_str(), true, false);
    ASSERT_TRUE(held && qz_dbf_is_buffered(held));
    for (unsigned r = 0; r < 3; ++r)
        for (unsigned f = 0; f < 2; ++f) EXPECT_EQ(text_of(held, f, r), text_of(file, f, r));
    EXPECT_EQ(text_of(held, 0, 2), std::to_string(QZ_DBF_VALUE_TEXT) + ":three");
    qz_dbf_close(held);
    qz_dbf_close(file);
    qz_dbf_mem_free(m);
}

// Restructuring a loaded table copies each kept field's bytes to its new
// place: kept fields side by side in the old records but parted by a new
// field keep their own values, the new field comes blank.
TEST(EdgesMemory, RestructureInsertsAFieldBetweenNeighboursOfALoadedTable) {
    qz_test::Temp_dir dir;
    const std::string dbf = dir.file("t.dbf");
    qz_test::write_bytes(dbf,
                         qz_test::dbf_bytes(0x03, {{"A", 'C', 3}, {"B", 'C', 3}, {"C", 'C', 2}},
                                            {{"aaa", "bbb", "cc"}, {"xyz", "uvw", "st"}}));
    Tqz_dbf_memory* m = qz_dbf_mem_load(dbf.c_str());
    ASSERT_NE(m, nullptr);
    Tqz_dbf_rw* held = qz_dbf_open(dbf.c_str(), false, false);
    ASSERT_TRUE(held && qz_dbf_is_buffered(held));
    Tqz_dbf_rstrct* d = qz_dbf_restruct_create(dbf.c_str());
    Tqz_dbf_field added = {"NEW", 'C', 4, 0};
    qz_dbf_restruct_insert_field(d, 1, &added);
    ASSERT_TRUE(qz_dbf_try_restruct(held, d));
    qz_dbf_restruct_destroy(d);
    const std::string t = std::to_string(QZ_DBF_VALUE_TEXT) + ":";
    const char* want[2][4] = {{"aaa", "", "bbb", "cc"}, {"xyz", "", "uvw", "st"}};
    for (unsigned r = 0; r < 2; ++r)
        for (unsigned f = 0; f < 4; ++f) EXPECT_EQ(text_of(held, f, r), t + want[r][f]) << r << f;
    qz_dbf_close(held);
    qz_dbf_mem_free(m);
}

}  // namespace
