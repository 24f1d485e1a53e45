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

TEST(CodePageFile, FoundAndRewrittenWithoutRegardToLetterCase) {
    Temp_dir dir;
    std::string path = dir.file("CARS.DBF");
    create(path);
    std::remove(dir.file("CARS.cpg").c_str());
    std::ofstream(dir.file("cars.CpG")) << "CP866";
    EXPECT_TRUE(open_flags(path, false).dos);

    // A writable close rewrites that file instead of adding a second one.
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), false, false);
    ASSERT_NE(t, nullptr);
    qz_dbf_set_utf8_flag(t, true);
    qz_dbf_close(t);
    EXPECT_FALSE(exists(dir.file("CARS.cpg")));
    auto bytes = qz_test::read_bytes(dir.file("cars.CpG"));
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "UTF-8\n");
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

TEST(Paths, WideAndNarrowPathsNameTheSameFile) {
    Temp_dir dir;
    Tqz_dbf_field f;
    qz_dbf_field_init(&f, "N", dbf_ft_numeric, 3, 0);
    std::wstring wpath = dir.wfile("") + L"таблица.dbf";
    Tqz_dbf_rw* t = qz_dbf_create_w(wpath.c_str(), 1, 4, &f, false);
    ASSERT_NE(t, nullptr);
    qz_dbf_close(t);
    // On disk the name is UTF-8.
    EXPECT_TRUE(exists(dir.file("таблица.dbf")));

    // A narrow path is system text: in CP1251 the same name is other bytes.
    qz_options_set_ansi_code_page(1251);
    std::string cp1251 = dir.file("\xF2\xE0\xE1\xEB\xE8\xF6\xE0.dbf");
    t = qz_dbf_open(cp1251.c_str(), true, false);
    EXPECT_NE(t, nullptr);
    if (t) {
        EXPECT_EQ(qz_dbf_get_nr(t), 4u);
        qz_dbf_close(t);
    }
    qz_options_set_ansi_code_page(0);

    // Narrow paths are decoded as system text, never passed through as raw
    // bytes: a file whose name is not valid UTF-8 cannot be reached by it.
    std::string bad = dir.file("\xFF\xFE.dbf");
    qz_test::write_bytes(bad, qz_test::read_bytes(dir.file("таблица.dbf")));
    EXPECT_EQ(qz_dbf_open(bad.c_str(), true, false), nullptr);
}

}  // namespace
