// Tables we create, byte for byte (header, descriptors with offsets, the
// terminator, blank records, the end marker), the .cpg written at close and
// read back without regard to letter case, what qz_dbf_delete removes, and
// broken headers opened with what they hold.
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

// Broken files: each opens or fails exactly as the format rules say, and none
// makes the library read or write outside its buffers (run under ASan/UBSan).

using Bytes = std::vector<uint8_t>;

// A dBASE III header, then descriptors of 10-byte C fields named by
// `names` (garbage where the offset is kept: it must be recomputed).
Bytes table(uint32_t records, uint16_t header_length, uint16_t record_length, const char* names) {
    Bytes b(32, 0);
    b[0] = 3;
    for (int i = 0; i < 4; ++i) b[4 + i] = static_cast<uint8_t>(records >> (8 * i));
    b[8] = header_length & 0xFF, b[9] = header_length >> 8;
    b[10] = record_length & 0xFF, b[11] = record_length >> 8;
    for (const char* n = names; *n; ++n) {
        Bytes d(32, 0);
        d[0] = static_cast<uint8_t>(*n), d[11] = 'C', d[12] = 0xEE, d[16] = 10;
        b.insert(b.end(), d.begin(), d.end());
    }
    return b;
}

// Opens the file; the field count and names, "fail" when refused. Indexes
// past the end give neutral answers.
std::string opened(const std::string& path, bool read_only = true) {
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), read_only, false);
    if (!t) return "fail";
    const unsigned nf = qz_dbf_get_nf(t);
    std::string s = std::to_string(nf) + ":" + std::to_string(qz_dbf_get_nr(t));
    for (unsigned i = 0; i < nf; ++i)
        s += std::string(" ") + qz_dbf_get_field_name(t, i) +
             std::to_string(qz_dbf_get_field_flen(t, i));
    EXPECT_EQ(qz_dbf_get_field_name(t, nf), nullptr);
    qz_dbf_close(t);
    return s;
}

TEST(Malformed, HeadersCutShortOrWithOddLengthsOpenWithWhatWasRead) {
    qz_test::Temp_dir dir;
    const std::string path = dir.file("t.dbf");
    auto with = [](Bytes b, size_t size, bool terminator) {
        b.resize(size);
        if (terminator) b.push_back(0x0D);
        return b;
    };
    // clang-format off
    const struct { Bytes bytes; const char* want; } cases[] = {
        // clang-format on
        {{}, "0:0"},
        // The count cut short: the bytes that were read count, the rest are zero.
        {with(table(0x10007, 65, 11, ""), 6, false), "0:7"},
        // The header length admits two of three descriptors.
        {table(1, 32 + 2 * 32 + 1, 31, "ABC"), "2:1 A10 B10"},
        // No 0x0D at all: the header length ends the list.
        {table(0, 32 + 3 * 32, 31, "ABCD"), "3:0 A10 B10 C10"},
        // A header length below one descriptor: no fields.
        {with(table(0, 40, 11, "A"), 64, true), "0:0"},
        // Header length 0xFFFF and the file ends after two descriptors.
        {table(0, 0xFFFF, 21, "AB"), "2:0 A10 B10"},
    };
    for (const auto& c : cases) {
        qz_test::write_bytes(path, c.bytes);
        EXPECT_EQ(opened(path), c.want) << c.bytes.size();
    }
    // A descriptor cut in half is a field; its length byte was not in the
    // file. A writable open and close changes no table byte.
    const Bytes half = with(table(0, 65, 11, "H"), 32 + 16, false);
    qz_test::write_bytes(path, half);
    EXPECT_EQ(opened(path, false), "1:0 H0");
    EXPECT_EQ(qz_test::read_bytes(path), half);
}

}  // namespace
