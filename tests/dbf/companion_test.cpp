// Companion files and deletion: .cpg files found without regard to letter
// case, what qz_dbf_delete removes and what it leaves.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "qzk_file_dbf.h"
#include "test_support.h"

namespace {

using qz_test::exists;
using qz_test::Temp_dir;

void create(const std::string& path, bool dos = false) {
    Tqz_dbf_field f;
    qz_dbf_field_init(&f, "NAME", dbf_ft_char, 10, 0);
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), 1, 1, &f, dos);
    ASSERT_NE(t, nullptr);
    qz_dbf_close(t);
}

struct Flags {
    bool dos, utf8;
};

Flags open_flags(const std::string& path, bool dos_arg) {
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), true, dos_arg);
    if (!t) return {false, false};
    Flags f{qz_dbf_get_dos_flag(t), qz_dbf_get_utf8_flag(t)};
    qz_dbf_close(t);
    return f;
}

TEST(CodePageFile, MarksAreFoundAnywhereIgnoringCaseAndLaterOnesWin) {
    Temp_dir dir;
    std::string path = dir.file("T.dbf");
    create(path);
    struct Case {
        const char* text;
        bool dos_arg;
        Flags want;
    } cases[] = {
        {"cp866\n", false, {true, false}},
        {"  utf-8  \r\n", false, {false, true}},
        {"ANSI 1251", true, {false, false}},  // clears the DOS flag of the call
        {"UTF8", true, {true, false}},        // no mark: the call's flag stays
        {"1252", false, {false, false}},
        {"", true, {true, false}},            // empty: nothing changes
        {"UTF-8 866", false, {true, false}},  // the later mark wins
        {"x CP866 1251", true, {false, false}},
    };
    for (const auto& c : cases) {
        std::ofstream(dir.file("T.cpg"), std::ios::trunc) << c.text;
        Flags got = open_flags(path, c.dos_arg);
        EXPECT_EQ(got.dos, c.want.dos) << '"' << c.text << '"';
        EXPECT_EQ(got.utf8, c.want.utf8) << '"' << c.text << '"';
    }
    // Only the first line, at most 19 bytes, is read.
    std::ofstream(dir.file("T.cpg"), std::ios::trunc) << "CP1252\nUTF-8\n";
    EXPECT_FALSE(open_flags(path, false).utf8);
    std::ofstream(dir.file("T.cpg"), std::ios::trunc) << "12345678901234567890UTF-8";
    EXPECT_FALSE(open_flags(path, false).utf8);
}

TEST(DeleteTable, RemovesTableAndCodePageOnly) {
    Temp_dir dir;
    std::string path = dir.file("d.dbf");
    create(path);
    std::ofstream(dir.file("d.fpt")) << "memo";
    std::ofstream(dir.file("d.dbt")) << "memo";
    std::ofstream(path + ".lk") << "";
    ASSERT_TRUE(exists(dir.file("d.cpg")));

    EXPECT_TRUE(qz_dbf_delete(qz_test::widen(path).c_str()));
    EXPECT_FALSE(exists(path));
    EXPECT_FALSE(exists(dir.file("d.cpg")));
    EXPECT_TRUE(exists(dir.file("d.fpt")));
    EXPECT_TRUE(exists(dir.file("d.dbt")));
    EXPECT_TRUE(exists(path + ".lk"));

    EXPECT_FALSE(qz_dbf_delete(qz_test::widen(path).c_str())) << "nothing left to delete";
    EXPECT_FALSE(qz_dbf_delete(L""));
    EXPECT_FALSE(qz_dbf_delete(nullptr));
}

}  // namespace
