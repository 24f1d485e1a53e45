// Memo values written through a handle that a loaded (memory) table
// serves: the memo goes to the memo file at once (the loaded table holds
// the writer lock), the block number into the table in memory, and the
// table file changes only when the memory table is saved.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "../typed/table_builder.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

using typed_test::make_table;
using typed_test::memo_kind;

std::string text_of(Tqz_dbf_rw* t, unsigned field, unsigned record) {
    Tqz_dbf_value v;
    if (!qz_dbf_get_value(t, field, record, &v)) return "<error>";
    if (v.kind == QZ_DBF_VALUE_NULL) return "<null>";
    return std::string(v.text, v.length);
}

TEST(MemoryMemo, WrittenToTheMemoFileAndKeptBySave) {
    for (memo_kind kind : {memo_kind::fpt, memo_kind::dbt3, memo_kind::dbt4}) {
        SCOPED_TRACE(static_cast<int>(kind));
        qz_test::Temp_dir dir;
        const uint8_t version = kind == memo_kind::fpt    ? 0xF5
                                : kind == memo_kind::dbt3 ? 0x83
                                                          : 0x8B;
        const std::string path = make_table(
            dir, "notes", version, {{"ID", 'N', 4, 0, 0}, {"NOTE", 'M', 10, 0, 0}}, 2, kind);
        const std::string memo_path = dir.file(kind == memo_kind::fpt ? "notes.fpt" : "notes.dbt");
        const std::vector<uint8_t> table_before = qz_test::read_bytes(path);
        const size_t memo_before = qz_test::read_bytes(memo_path).size();

        Tqz_dbf_memory* m = qz_dbf_mem_load(path.c_str());
        ASSERT_NE(m, nullptr);
        Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), false, false);
        ASSERT_NE(t, nullptr);
        ASSERT_EQ(qz_dbf_get_storage(t), qz_dbf_storage_memory);
        const std::string first = "first memo", second(700, 's');
        Tqz_dbf_value a{QZ_DBF_VALUE_TEXT, 0, 0.0, first.data(), first.size()},
            b{QZ_DBF_VALUE_TEXT, 0, 0.0, second.data(), second.size()};
        ASSERT_TRUE(qz_dbf_set_value(t, 1, 0, &a)) << qz_dbf_last_error_message();
        ASSERT_TRUE(qz_dbf_set_value(t, 1, 1, &b)) << qz_dbf_last_error_message();
        EXPECT_EQ(text_of(t, 1, 0), first);
        EXPECT_EQ(text_of(t, 1, 1), second);
        qz_dbf_close(t);
        // The memos are in the memo file; the table file waits for the save.
        EXPECT_GT(qz_test::read_bytes(memo_path).size(), memo_before + first.size() + 700);
        EXPECT_TRUE(qz_test::read_bytes(path) == table_before);
        ASSERT_TRUE(qz_dbf_mem_save(m)) << qz_dbf_last_error_message();
        qz_dbf_mem_free(m);

        t = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
        ASSERT_NE(t, nullptr) << qz_dbf_last_error_message();
        EXPECT_EQ(text_of(t, 1, 0), first);
        EXPECT_EQ(text_of(t, 1, 1), second);
        qz_dbf_close(t);
    }
}

}  // namespace
