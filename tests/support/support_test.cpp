// Path, string and stream helpers the tables rely on.
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "qzk_basic.h"
#include "support/fileio.h"
#include "support/file_window.h"
#include "support/filesystem.h"
#include "support/string_adapter.h"
#include "support/strutil.h"
#include "support/textio.h"
#include "test_support.h"

namespace {

namespace fsys = qz::filesystem;
namespace su = qz::strutil;

// Only the last extension of the last path element changes; a leading dot
// is no extension. Trimming, numbers with a decimal comma (text after the
// number or out of range is no number) and the case-blind order.
TEST(Support, ExtensionsStringsAndNumbers) {
    const std::wstring ext_cases[][3] = {
        {L"a.dbf", L".cpg", L"a.cpg"},        {L"a", L"cpg", L"a.cpg"},
        {L"d.x\\f", L".cpg", L"d.x\\f.cpg"},  {L"d.x/f", L".cpg", L"d.x/f.cpg"},
        {L"a.b.dbf", L".cpg", L"a.b.cpg"},    {L".dbf", L".cpg", L".dbf.cpg"},
        {L"/t/.hidden", L".cpg", L"/t/.cpg"}, {L"a.dbf", L"", L"a"}};
    for (const auto& c : ext_cases) EXPECT_EQ(fsys::change_extension(c[0], c[1]), c[2]) << c[0];
    EXPECT_EQ(fsys::change_extension(std::string("x/a.DBF"), ".cpg"), "x/a.cpg");
    EXPECT_EQ(su::trim(std::string(" \t\r\n\v\fab c \n")), "ab c");
    EXPECT_EQ(su::trim_left(std::string("  a ")), "a ");
    EXPECT_EQ(su::trim(std::wstring(L"\t Дом \n")), L"Дом");
    bool ok = false;
    EXPECT_TRUE(su::to_numeric_safe(std::wstring(L"-0,25e1"), &ok) == -2.5 && ok);
    for (const char* bad : {"7x", "", "1e999"})
        EXPECT_FALSE((su::to_numeric_safe(std::string(bad), &ok), ok)) << bad;
    for (int e : {EACCES, EPERM, EROFS, ENOENT, EISDIR})  // the refusals that name a permission
        EXPECT_EQ(fsys::is_permission_error(e), e != ENOENT && e != EISDIR) << e;
    su::icase_less less;
    EXPECT_FALSE(less(L"ЯБЛОКО", L"яблоко") || less(L"яблоко", L"ЯБЛОКО"));
    EXPECT_TRUE(less(std::string("apple"), std::string("BANANA")));
}

// A text line in CP866, companion files found whatever their letter case
// (an exact match first), move/remove answers, and the wide-string
// adapter fed 8-bit text.
TEST(Support, StreamsCompanionsAndAdapters) {
    qz_test::Temp_dir dir;
    qz::detail::fileio_std f;
    ASSERT_TRUE(f.open(dir.wfile("line.txt"), qz::detail::access_write, qz::detail::lock_none));
    EXPECT_TRUE(qz::textio(f.stream(), qz::strconv::cp866).writeln(L"Дом"));
    f.close();
    EXPECT_EQ(qz_test::read_bytes(dir.file("line.txt")),
              (std::vector<uint8_t>{0x84, 0xAE, 0xAC, '\n'}));
    EXPECT_EQ(qz::detail::stdio_mode(qz::detail::access_append | qz::detail::access_text), "at");
    EXPECT_FALSE(f.open(dir.wfile(""), qz::detail::access_read, qz::detail::lock_none) ||
                 f.open(dir.wfile("missing"), qz::detail::access_read, qz::detail::lock_none));

    const std::wstring want = dir.wfile("CARS.DBT");
    EXPECT_EQ(fsys::find_companion(want), want) << "nothing there: the name itself";
    qz_test::write_bytes(dir.file("cars.Dbt"), {1});
    EXPECT_EQ(fsys::find_companion(want), dir.wfile("cars.Dbt"));
    qz_test::write_bytes(dir.file("CARS.DBT"), {2});
    EXPECT_EQ(fsys::find_companion(want), want);
    EXPECT_TRUE(fsys::move_file(dir.wfile("cars.Dbt"), dir.wfile("moved"), false));
    EXPECT_FALSE(fsys::move_file(dir.wfile("moved"), want, false));
    EXPECT_TRUE(fsys::move_file(dir.wfile("moved"), want, true));
    EXPECT_TRUE(fsys::remove_file(want) && !fsys::remove_file(want));

    // A window that let go of its file takes no more writes, empty ones too.
    qz_test::write_bytes(dir.file("w"), {1, 2, 3});
    const int fd = ::open(dir.file("w").c_str(), O_RDWR);
    qz::file_window w;
    w.attach(fd, true, nullptr, false);
    EXPECT_TRUE(w.write(1, "x", 1));
    w.detach();
    EXPECT_FALSE(w.write(0, "", 0) || w.write(0, "y", 1));
    ::close(fd);
    EXPECT_EQ(qz_test::read_bytes(dir.file("w")), (std::vector<uint8_t>{1, 'x', 3}));

    qz_options_set_ansi_code_page(1251);
    std::wstring target = L"old";
    Tqz_std_wstring_adapter adapter(&target);
    qz_string_adp_feed_c(adapter.handle(), "\xCB\xE5\xF1");  // "Лес" in CP1251
    EXPECT_EQ(target, L"Лес");
    qz_string_adp_feed(adapter.handle(), nullptr);
    EXPECT_EQ(target, L"");
    qz_options_set_ansi_code_page(0);
}

}  // namespace
