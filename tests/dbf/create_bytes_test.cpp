// Tables we create, byte for byte (header, descriptors with offsets, the
// terminator, blank records, the end marker), the .cpg written at close and
// read back without regard to letter case, what qz_dbf_delete removes, and
// a writable open of the corpus tables that changes no byte.
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <fstream>
#include <string>
#include <vector>

#include "qzk_file_dbf.h"
#include "test_support.h"

namespace {

using qz_test::exists;
using qz_test::read_bytes;

// The bytes of a created table are those laid out by hand (with today's
// date): the header, NUL-padded names, letters, running offsets, lengths and
// decimals, zeros elsewhere, the terminator, blank records of spaces
// (deletion flag included), 0x1A; with no fields and no records too.
TEST(CreateBytes, HeaderDescriptorsRecordsAndEndMarker) {
    qz_test::Temp_dir dir;
    const std::vector<qz_test::Field_def> defs = {// clang-format off
        {"NAME", 'C', 20}, {"PRICE", 'N', 10, 2}, {"OK", 'L', 1}, {"BORN", 'D', 8},
        {"COUNT", 'I', 4}};
    // clang-format on
    std::vector<Tqz_dbf_field> f(defs.size());
    for (size_t k = 0; k < f.size(); ++k)
        qz_dbf_field_init(&f[k], defs[k].name.c_str(), qz_char2dbftype(defs[k].type),
                          defs[k].length, static_cast<char>(defs[k].decimals));
    const std::string path = dir.file("t.dbf"), empty = dir.file("empty.dbf");
    std::time_t now = std::time(nullptr);
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), 5, 3, f.data(), false);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(qz_dbf_get_nr(t), 3u);
    EXPECT_TRUE(exists(path + ".lk")) << "a writer holds the lock while open";
    qz_dbf_close(t);
    EXPECT_FALSE(exists(path + ".lk"));
    qz_dbf_close(qz_dbf_create(empty.c_str(), 0, 0, nullptr, false));
    std::tm local{};
    localtime_r(&now, &local);
    for (auto want : {qz_test::dbf_bytes(3, defs, std::vector<std::vector<std::string>>(3)),
                      qz_test::dbf_bytes(3, {}, {})}) {
        want[1] = uint8_t(local.tm_year % 100), want[2] = uint8_t(local.tm_mon + 1);
        want[3] = uint8_t(local.tm_mday);
        EXPECT_EQ(read_bytes(want.size() == 34 ? empty : path), want);
    }
    t = qz_dbf_open(empty.c_str(), true, false);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(qz_dbf_get_nf(t) + qz_dbf_get_nr(t), 0u);
    qz_dbf_close(t);
}

// The .cpg is written at close from the flags (none: CP1251); on opening,
// the marks it holds are found anywhere in its first line (at most 19
// bytes), ignoring case, the later one winning; no mark leaves the call's
// DOS flag.
TEST(CreateBytes, CodePageFileWrittenAtCloseAndReadOnOpen) {
    qz_test::Temp_dir dir;
    Tqz_dbf_field f;
    qz_dbf_field_init(&f, "NAME", dbf_ft_char, 10, 0);
    const std::string path = dir.file("T.dbf");
    for (const char* want : {"CP1251\n", "CP866\n", "UTF-8\n"}) {
        const bool dos = want[2] == '8', utf8 = want[0] == 'U';
        Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), 1, 1, &f, dos);
        ASSERT_NE(t, nullptr);
        EXPECT_EQ(qz_dbf_get_dos_flag(t), dos);
        if (utf8) qz_dbf_set_utf8_flag(t, true);
        qz_dbf_close(t);
        EXPECT_EQ(read_bytes(dir.file("T.cpg")),
                  std::vector<uint8_t>(want, want + std::strlen(want)));
    }
    // "ANSI 1251" clears the DOS flag of the call; with no mark, "UTF8"
    // among them, the call's flag stays; the later mark wins; the first line
    // counts, and its first 19 bytes only.
    // clang-format off
    const struct { const char* text; bool dos_arg, dos, utf8; } cases[] = {
        {"cp866\n", false, true, false}, {"  utf-8  \r\n", false, false, true},
        {"ANSI 1251", true, false, false}, {"UTF8", true, true, false},
        {"1252", false, false, false}, {"", true, true, false}, {"UTF-8 866", false, true, false},
        {"x CP866 1251", true, false, false}, {"CP1252\nUTF-8\n", false, false, false},
        {"12345678901234567890UTF-8", false, false, false}};
    // clang-format on
    for (const auto& c : cases) {
        std::ofstream(dir.file("T.cpg"), std::ios::trunc) << c.text;
        Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), true, c.dos_arg);
        ASSERT_NE(t, nullptr);
        EXPECT_EQ(qz_dbf_get_dos_flag(t), c.dos) << '"' << c.text << '"';
        EXPECT_EQ(qz_dbf_get_utf8_flag(t), c.utf8) << '"' << c.text << '"';
        qz_dbf_close(t);
    }
}

TEST(DeleteTable, RemovesTableAndCodePageOnly) {
    qz_test::Temp_dir dir;
    const std::string path = dir.file("d.dbf");
    ASSERT_TRUE(qz_test::make_char_table(path, {10}, 1));
    for (const char* other : {"d.fpt", "d.dbt", "d.dbf.lk"}) std::ofstream(dir.file(other)) << "x";
    ASSERT_TRUE(exists(dir.file("d.cpg")));
    EXPECT_TRUE(qz_dbf_delete(qz_test::widen(path).c_str()));
    EXPECT_FALSE(exists(path));
    EXPECT_FALSE(exists(dir.file("d.cpg")));
    for (const char* other : {"d.fpt", "d.dbt", "d.dbf.lk"}) EXPECT_TRUE(exists(dir.file(other)));
    EXPECT_FALSE(qz_dbf_delete(qz_test::widen(path).c_str())) << "nothing left to delete";
    EXPECT_FALSE(qz_dbf_delete(L"") || qz_dbf_delete(nullptr));
}

// A writable open and close of a copy changes no byte of it, and writes the
// .cpg beside it.
TEST(Corpus, WritableOpenAndCloseChangesNoTableByte) {
    qz_test::Temp_dir dir;
    int n = 0;
    for (const auto& path : qz_test::corpus_tables()) {
        if (++n % 10) continue;  // a sample keeps the test quick
        auto bytes = read_bytes(path);
        const std::string copy = dir.file("copy.dbf");
        qz_test::write_bytes(copy, bytes);
        std::remove(dir.file("copy.cpg").c_str());
        Tqz_dbf_rw* t = qz_dbf_open(copy.c_str(), false, false);
        ASSERT_NE(t, nullptr) << path;
        qz_dbf_close(t);
        EXPECT_EQ(read_bytes(copy), bytes) << path;
        EXPECT_TRUE(exists(dir.file("copy.cpg"))) << path;
    }
}

}  // namespace
