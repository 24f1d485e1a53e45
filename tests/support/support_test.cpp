// Path, string, stream and text-line helpers the tables rely on.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdio>
#include <string>

#include "qzk_basic.h"
#include "support/fileio.h"
#include "support/filesystem.h"
#include "support/safe_replace.h"
#include "support/string_adapter.h"
#include "support/strutil.h"
#include "support/textio.h"
#include "test_support.h"

namespace {

namespace fsys = qz::filesystem;
namespace su = qz::strutil;

TEST(ChangeExtension, ReplacesOnlyTheLastExtensionOfTheLastElement) {
    EXPECT_EQ(fsys::change_extension(std::wstring(L"a.dbf"), L".cpg"), L"a.cpg");
    EXPECT_EQ(fsys::change_extension(std::wstring(L"a"), L"cpg"), L"a.cpg");
    EXPECT_EQ(fsys::change_extension(std::wstring(L"dir.x\\file"), L".cpg"), L"dir.x\\file.cpg");
    EXPECT_EQ(fsys::change_extension(std::wstring(L"dir.x/file"), L".cpg"), L"dir.x/file.cpg");
    EXPECT_EQ(fsys::change_extension(std::wstring(L"a.b.dbf"), L".cpg"), L"a.b.cpg");
    EXPECT_EQ(fsys::change_extension(std::wstring(L".dbf"), L".cpg"), L".dbf.cpg")
        << "a dot as the very first character is no extension";
    EXPECT_EQ(fsys::change_extension(std::wstring(L"/t/.hidden"), L".cpg"), L"/t/.cpg");
    EXPECT_EQ(fsys::change_extension(std::wstring(L"a.dbf"), L""), L"a");
    EXPECT_EQ(fsys::change_extension(std::string("x/a.DBF"), ".cpg"), "x/a.cpg");
}

TEST(StringHelpers, TrimFindAndNumbers) {
    EXPECT_EQ(su::trim(std::string(" \t\r\n\v\fab c \n")), "ab c");
    EXPECT_EQ(su::trim(std::string(" \t ")), "");
    EXPECT_EQ(su::trim_left(std::string("  a ")), "a ");
    EXPECT_EQ(su::trim(std::wstring(L"\t Дом \n")), L"Дом");

    qz_options_set_ansi_code_page(65001);
    EXPECT_EQ(su::find_ic("Code page CP866", "cp866"), 10u);
    EXPECT_EQ(su::find_ic("Кодировка UTF-8", "utf-8"), std::string("Кодировка ").size())
        << "positions are byte offsets of the original text";
    EXPECT_EQ(su::find_ic("ДОМ", "дом"), 0u);
    EXPECT_EQ(su::find_ic("abc", "x"), std::string::npos);
    qz_options_set_ansi_code_page(0);

    bool ok = false;
    EXPECT_DOUBLE_EQ(su::to_numeric_safe(std::string("12,5"), &ok), 12.5);
    EXPECT_TRUE(ok);
    EXPECT_DOUBLE_EQ(su::to_numeric_safe(std::string("-3.25e2"), &ok), -325.0);
    EXPECT_TRUE(ok);
    EXPECT_DOUBLE_EQ(su::to_numeric_safe(std::string("7x"), &ok), 7.0);
    EXPECT_FALSE(ok) << "text after the number";
    su::to_numeric_safe(std::string(""), &ok);
    EXPECT_FALSE(ok);
    su::to_numeric_safe(std::string("1e999"), &ok);
    EXPECT_FALSE(ok) << "out of range";
    EXPECT_DOUBLE_EQ(su::to_numeric_safe(std::wstring(L"0,25"), &ok), 0.25);
    EXPECT_TRUE(ok);

    su::icase_less less;
    EXPECT_FALSE(less(std::wstring(L"ЯБЛОКО"), std::wstring(L"яблоко")));
    EXPECT_FALSE(less(std::wstring(L"яблоко"), std::wstring(L"ЯБЛОКО")));
    EXPECT_TRUE(less(std::wstring(L"apple"), std::wstring(L"BANANA")));
}

TEST(Streams, ModeStringsAndTextLinesInAnEncoding) {
    using namespace qz::detail;
    EXPECT_EQ(stdio_mode(access_read | access_write | access_binary), "r+b");
    EXPECT_EQ(stdio_mode(access_write), "w");
    EXPECT_EQ(stdio_mode(access_append | access_text), "at");
    EXPECT_EQ(stdio_mode(access_read), "r");

    qz_test::Temp_dir dir;
    std::wstring path = dir.wfile("line.txt");
    fileio_std f;
    ASSERT_TRUE(f.open(path, access_write, lock_none));
    EXPECT_TRUE(qz::textio(f.stream(), qz::strconv::cp866).writeln(L"Дом"));
    f.close();
    auto bytes = qz_test::read_bytes(dir.file("line.txt"));
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "\x84\xAE\xAC\n");
    EXPECT_FALSE(f.open(dir.wfile(""), access_read, lock_none)) << "a folder is no file";
    EXPECT_FALSE(f.open(dir.wfile("missing"), access_read, lock_none));
}

TEST(Paths, CompanionFilesIgnoreLetterCase) {
    qz_test::Temp_dir dir;
    std::wstring want = dir.wfile("CARS.DBT");
    EXPECT_EQ(fsys::find_companion(want), want) << "nothing there: the name itself";
    qz_test::write_bytes(dir.file("cars.Dbt"), {1});
    EXPECT_EQ(fsys::find_companion(want), dir.wfile("cars.Dbt"));
    qz_test::write_bytes(dir.file("CARS.DBT"), {2});
    EXPECT_EQ(fsys::find_companion(want), want) << "an exact match wins";

    EXPECT_TRUE(fsys::path_exist(dir.wfile("")));
    EXPECT_GT(fsys::file_mtime(want), 0);
    EXPECT_EQ(fsys::file_mtime(dir.wfile("none")), 0);
    EXPECT_TRUE(fsys::copy_file(want, dir.wfile("copy"), false));
    EXPECT_FALSE(fsys::copy_file(want, dir.wfile("copy"), false)) << "no overwrite asked";
    EXPECT_TRUE(fsys::move_file(dir.wfile("copy"), dir.wfile("moved"), false));
    EXPECT_FALSE(fsys::path_exist(dir.wfile("copy")));
    EXPECT_FALSE(fsys::move_file(dir.wfile("moved"), want, false));
    EXPECT_TRUE(fsys::move_file(dir.wfile("moved"), want, true));
    EXPECT_TRUE(fsys::remove_file(want));
    EXPECT_FALSE(fsys::remove_file(want));
}

TEST(StringAdapter, CollectsWideAndNarrowText) {
    qz_options_set_ansi_code_page(1251);
    std::wstring target = L"old";
    Tqz_std_wstring_adapter adapter(&target);
    qz_string_adp_feed(adapter.handle(), L"Дом");
    EXPECT_EQ(target, L"Дом");
    qz_string_adp_feed_c(adapter.handle(), "\xCB\xE5\xF1");  // "Лес" in CP1251
    EXPECT_EQ(target, L"Лес");
    qz_string_adp_feed(adapter.handle(), nullptr);
    EXPECT_EQ(target, L"");
    qz_options_set_ansi_code_page(0);
}

}  // namespace

// A replaced file has the new bytes and the old permission bits; a failed
// write leaves the old file and no sibling behind.
TEST(SafeReplace, NewBytesOldModeAndNothingLeftOnFailure) {
    qz_test::Temp_dir dir;
    const std::string target = dir.file("t.dbf");
    qz_test::write_bytes(target, {1, 2, 3});
    ASSERT_EQ(::chmod(target.c_str(), 0640), 0);
    const std::wstring wt = qz_test::widen(target);

    EXPECT_TRUE(fsys::replace_with(wt, [](int fd) { return fsys::write_all(fd, "abcd", 4); }));
    EXPECT_EQ(qz_test::read_bytes(target), (std::vector<uint8_t>{'a', 'b', 'c', 'd'}));
    struct stat st;
    ASSERT_EQ(::stat(target.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);

    EXPECT_FALSE(
        fsys::replace_with(wt, [](int fd) { return fsys::write_all(fd, "zz", 2) && false; }));
    EXPECT_EQ(qz_test::read_bytes(target), (std::vector<uint8_t>{'a', 'b', 'c', 'd'}));

    const std::string src = dir.file("src.bin");
    qz_test::write_bytes(src, std::vector<uint8_t>(200000, 7));
    EXPECT_TRUE(fsys::replace_by_copy(qz_test::widen(src), wt));
    EXPECT_EQ(qz_test::read_bytes(target).size(), 200000u);
    EXPECT_TRUE(qz_test::exists(src));
    EXPECT_FALSE(fsys::replace_by_copy(qz_test::widen(dir.file("missing")), wt));
    EXPECT_FALSE(fsys::replace_by_copy(qz_test::widen(src), qz_test::widen(dir.path())))
        << "a folder is never replaced";

    std::string listing;
    qz_test::run("ls -A " + dir.path(), &listing);
    EXPECT_EQ(listing, "src.bin\nt.dbf\n") << "no sibling is left behind";
}
