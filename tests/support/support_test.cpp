// Path, string, stream and file-replacement helpers the tables rely on.
#include <gtest/gtest.h>

#include <sys/stat.h>

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
using qz_test::read_bytes;
using Bytes = std::vector<uint8_t>;

// Only the last extension of the last path element changes; a leading dot
// is no extension. Trimming, case-blind search (byte offsets into UTF-8),
// numbers with a decimal comma and the case-blind order.
TEST(Support, ExtensionsStringsAndNumbers) {
    const std::wstring ext_cases[][3] = {
        {L"a.dbf", L".cpg", L"a.cpg"},        {L"a", L"cpg", L"a.cpg"},
        {L"d.x\\f", L".cpg", L"d.x\\f.cpg"},  {L"d.x/f", L".cpg", L"d.x/f.cpg"},
        {L"a.b.dbf", L".cpg", L"a.b.cpg"},    {L".dbf", L".cpg", L".dbf.cpg"},
        {L"/t/.hidden", L".cpg", L"/t/.cpg"}, {L"a.dbf", L"", L"a"}};
    for (const auto& c : ext_cases) EXPECT_EQ(fsys::change_extension(c[0], c[1]), c[2]) << c[0];
    EXPECT_EQ(fsys::change_extension(std::string("x/a.DBF"), ".cpg"), "x/a.cpg");

    EXPECT_EQ(su::trim(std::string(" \t\r\n\v\fab c \n")), "ab c");
    EXPECT_EQ(su::trim(std::string(" \t ")), "");
    EXPECT_EQ(su::trim_left(std::string("  a ")), "a ");
    EXPECT_EQ(su::trim(std::wstring(L"\t Дом \n")), L"Дом");
    qz_options_set_ansi_code_page(65001);
    EXPECT_EQ(su::find_ic("Code page CP866", "cp866"), 10u);
    EXPECT_EQ(su::find_ic("Кодировка UTF-8", "utf-8"), std::string("Кодировка ").size());
    EXPECT_EQ(su::find_ic("ДОМ", "дом"), 0u);
    EXPECT_EQ(su::find_ic("abc", "x"), std::string::npos);
    qz_options_set_ansi_code_page(0);

    const struct {
        const char* text;
        double value;
        bool ok;
    } numbers[] = {{"12,5", 12.5, true},
                   {"-3.25e2", -325, true},
                   {"7x", 7, false},
                   {"", 0, false},
                   {"1e999", 0, false}};
    for (const auto& n : numbers) {
        bool ok = !n.ok;
        const double v = su::to_numeric_safe(std::string(n.text), &ok);
        EXPECT_EQ(ok, n.ok) << n.text;
        if (n.ok) {
            EXPECT_DOUBLE_EQ(v, n.value) << n.text;
        }
    }
    bool ok = false;
    EXPECT_DOUBLE_EQ(su::to_numeric_safe(std::wstring(L"0,25"), &ok), 0.25);
    EXPECT_TRUE(ok);
    su::icase_less less;
    EXPECT_FALSE(less(L"ЯБЛОКО", L"яблоко") || less(L"яблоко", L"ЯБЛОКО"));
    EXPECT_TRUE(less(L"apple", L"BANANA"));
}

// stdio modes, a text line in CP866, companion files found whatever their
// letter case (an exact match first), copy/move/remove answers, and the
// wide-string adapter fed in both widths.
TEST(Support, StreamsCompanionsAndAdapters) {
    using namespace qz::detail;
    EXPECT_EQ(stdio_mode(access_read | access_write | access_binary), "r+b");
    EXPECT_EQ(stdio_mode(access_write), "w");
    EXPECT_EQ(stdio_mode(access_append | access_text), "at");
    qz_test::Temp_dir dir;
    fileio_std f;
    ASSERT_TRUE(f.open(dir.wfile("line.txt"), access_write, lock_none));
    EXPECT_TRUE(qz::textio(f.stream(), qz::strconv::cp866).writeln(L"Дом"));
    f.close();
    EXPECT_EQ(read_bytes(dir.file("line.txt")), (Bytes{0x84, 0xAE, 0xAC, '\n'}));
    EXPECT_FALSE(f.open(dir.wfile(""), access_read, lock_none)) << "a folder is no file";
    EXPECT_FALSE(f.open(dir.wfile("missing"), access_read, lock_none));

    const std::wstring want = dir.wfile("CARS.DBT");
    EXPECT_EQ(fsys::find_companion(want), want) << "nothing there: the name itself";
    qz_test::write_bytes(dir.file("cars.Dbt"), {1});
    EXPECT_EQ(fsys::find_companion(want), dir.wfile("cars.Dbt"));
    qz_test::write_bytes(dir.file("CARS.DBT"), {2});
    EXPECT_EQ(fsys::find_companion(want), want);
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

    qz_options_set_ansi_code_page(1251);
    std::wstring target = L"old";
    Tqz_std_wstring_adapter adapter(&target);
    qz_string_adp_feed_c(adapter.handle(), "\xCB\xE5\xF1");  // "Лес" in CP1251
    EXPECT_EQ(target, L"Лес");
    qz_string_adp_feed(adapter.handle(), nullptr);
    EXPECT_EQ(target, L"");
    qz_options_set_ansi_code_page(0);
}

// A replaced file has the new bytes and the old permission bits; a failed
// write or copy leaves the old file and no sibling behind.
TEST(Support, SafeReplaceKeepsModeAndLeavesNothingOnFailure) {
    qz_test::Temp_dir dir;
    const std::string target = dir.file("t.dbf"), src = dir.file("src.bin");
    qz_test::write_bytes(target, {1, 2, 3});
    ASSERT_EQ(::chmod(target.c_str(), 0640), 0);
    const std::wstring wt = qz_test::widen(target);
    EXPECT_TRUE(fsys::replace_with(wt, [](int fd) { return fsys::write_all(fd, "abcd", 4); }));
    EXPECT_FALSE(fsys::replace_with(wt, [](int fd) { return !fsys::write_all(fd, "zz", 2); }));
    EXPECT_EQ(read_bytes(target), (Bytes{'a', 'b', 'c', 'd'}));
    struct stat st;
    ASSERT_EQ(::stat(target.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);

    qz_test::write_bytes(src, Bytes(200000, 7));
    EXPECT_TRUE(fsys::replace_by_copy(qz_test::widen(src), wt));
    EXPECT_EQ(read_bytes(target), Bytes(200000, 7));
    EXPECT_FALSE(fsys::replace_by_copy(qz_test::widen(dir.file("missing")), wt));
    EXPECT_FALSE(fsys::replace_by_copy(qz_test::widen(src), qz_test::widen(dir.path())))
        << "a folder is never replaced";
    std::string listing;
    qz_test::run("ls -A " + dir.path(), &listing);
    EXPECT_EQ(listing, "src.bin\nt.dbf\n") << "no sibling is left behind";
}

}  // namespace
