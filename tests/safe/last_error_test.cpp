// The thread's last error after failing calls of the classic and the new
// interface: code, file and reason.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <thread>

#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

using qz_test::Temp_dir;

bool has(const char* text, const std::string& part) {
    return std::string(text).find(part) != std::string::npos;
}

// A table with C, N and M fields and two records; no memo file is made.
std::string make_table(const Temp_dir& dir, const std::string& name) {
    Tqz_dbf_field fields[3];
    qz_dbf_field_init(&fields[0], "NAME", dbf_ft_char, 10, 0);
    qz_dbf_field_init(&fields[1], "COUNT", dbf_ft_numeric, 5, 0);
    qz_dbf_field_init(&fields[2], "NOTE", dbf_ft_memo, 10, 0);
    std::string path = dir.file(name);
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), 3, 2, fields, false);
    EXPECT_NE(t, nullptr);
    qz_dbf_close(t);
    return path;
}

TEST(LastError, OpenFailuresSayWhy) {
    Temp_dir dir;
    std::string path = make_table(dir, "t.dbf");
    qz_dbf_clear_last_error();
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_OK);
    EXPECT_STREQ(qz_dbf_last_error_message(), "");

    EXPECT_EQ(qz_dbf_open(dir.file("none.dbf").c_str(), true, false), nullptr);
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_NOT_FOUND);
    EXPECT_TRUE(has(qz_dbf_last_error_message(), "none.dbf: no such file"))
        << qz_dbf_last_error_message();

    // A folder without tables: neither the table file nor OGR opens it.
    const std::string empty = dir.file("empty");
    ASSERT_EQ(::mkdir(empty.c_str(), 0700), 0);
    EXPECT_EQ(qz_dbf_open(empty.c_str(), true, false), nullptr);
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_NOT_A_TABLE);
    EXPECT_TRUE(has(qz_dbf_last_error_message(), "a folder"));

    // A table another writer holds: the classic open reads it through OGR,
    // read-only, and leaves the last error alone; qz_dbf_open_ex refuses it.
    Tqz_dbf_rw* writer = qz_dbf_open(path.c_str(), false, false);
    ASSERT_NE(writer, nullptr);
    qz_dbf_clear_last_error();
    Tqz_dbf_rw* second = qz_dbf_open(path.c_str(), false, false);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(qz_dbf_get_storage(second), qz_dbf_storage_ogr);
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_OK);
    qz_dbf_close(second);
    EXPECT_EQ(qz_dbf_open_ex(path.c_str(), 0), nullptr);
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_LOCKED);
    EXPECT_TRUE(has(qz_dbf_last_error_message(), "t.dbf: locked by another writer"));
    // A success leaves the last error as it was.
    Tqz_dbf_rw* reader = qz_dbf_open(path.c_str(), true, false);
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_LOCKED);
    qz_dbf_close(reader);
    qz_dbf_close(writer);

    EXPECT_EQ(qz_dbf_create(dir.file("no/such/folder.dbf").c_str(), 0, 0, nullptr, false), nullptr);
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_NOT_FOUND);
    EXPECT_EQ(qz_fpt_open(dir.file("none.fpt").c_str(), true), nullptr);
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_NOT_FOUND);
    EXPECT_EQ(qz_dbf_mem_load(dir.file("none.dbf").c_str()), nullptr);
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_NOT_FOUND);
}

TEST(LastError, CellFailuresNameFieldRecordAndReason) {
    Temp_dir dir;
    std::string path = make_table(dir, "cells.dbf");
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), false, false);
    ASSERT_NE(t, nullptr);
    bool ok = true;
    struct Case {
        unsigned field, record;
        int code;
        const char* part;
    } cases[] = {{7, 0, QZ_DBF_ERR_ARGUMENT, "field 7 does not exist"},
                 {1, 9, QZ_DBF_ERR_ARGUMENT, "record 9 does not exist"},
                 {1, 0, QZ_DBF_ERR_VALUE, "field COUNT, record 0"}};
    for (const Case& c : cases) {
        qz_dbf_clear_last_error();
        EXPECT_EQ(qz_dbf_get_int(t, c.field, c.record, ok), 0);
        EXPECT_FALSE(ok);
        EXPECT_EQ(qz_dbf_last_error(), c.code) << c.part;
        EXPECT_TRUE(has(qz_dbf_last_error_message(), c.part)) << qz_dbf_last_error_message();
    }
    // Text that is not a number, written to an N field: the described result
    // (false) and the reason.
    qz_dbf_clear_last_error();
    EXPECT_FALSE(qz_dbf_set_str(t, 1, 1, "abc"));
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_VALUE);
    EXPECT_TRUE(has(qz_dbf_last_error_message(), "cells.dbf: field COUNT, record 1"));
    // A successful write does not touch it.
    EXPECT_TRUE(qz_dbf_set_str(t, 0, 1, "x"));
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_VALUE);

    unsigned len = 0, type = 0;
    EXPECT_EQ(qz_dbf_get_memo_bytes(t, 2, 0, ok, len, type), nullptr);
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_MEMO);
    EXPECT_TRUE(has(qz_dbf_last_error_message(), "memo file missing"));
    // Field calls name the missing field; the answer stays the neutral one.
    qz_dbf_clear_last_error();
    EXPECT_EQ(qz_dbf_get_field_name(t, 3), nullptr);
    EXPECT_TRUE(
        has(qz_dbf_last_error_message(), "field 3 does not exist (the table has 3 fields)"));
    qz_dbf_clear_last_error();
    EXPECT_EQ(qz_dbf_find_field_index_w(t, L"NOPE"), 0xFFFFFFFFu);
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_ARGUMENT);
    qz_dbf_close(t);

    EXPECT_EQ(qz_dbf_get_nf(nullptr), 0u);
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_ARGUMENT);
    EXPECT_FALSE(qz_dbf_mem_set_int(nullptr, 0, 0, 1));
    EXPECT_TRUE(has(qz_dbf_last_error_message(), "not a loaded memory table"));
}

TEST(LastError, EachThreadHasItsOwn) {
    qz_dbf_clear_last_error();
    std::thread other([] {
        EXPECT_EQ(qz_dbf_open("/nonexistent/x.dbf", true, false), nullptr);
        EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_NOT_FOUND);
    });
    other.join();
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_OK);
}

}  // namespace
