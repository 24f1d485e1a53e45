// The memo files of a disk table: which file open takes (by version byte,
// found without regard to letter case), their life with the table, and the
// memo of a cell through the table and its export.
#include <gtest/gtest.h>

#include <string>

#include "dbf/disk_table.h"
#include "memo/dbt_rw.h"
#include "memo/fpt_rw.h"
#include "memo_files.h"
#include "qzk_file_dbf.h"
#include "test_support.h"
#include "value_layer.h"

using namespace memo_test;

namespace {

const std::vector<Field> fields = {{"ID", 'N', 4}, {"NOTE", 'M', 10}};

// A table `name` with the given version and block-number cells in NOTE.
void write_table(const qz_test::Temp_dir& dir, const std::string& name, uint8_t version,
                 const std::vector<std::string>& blocks = {right("8", 10)}) {
    std::vector<std::vector<std::string>> records;
    for (size_t i = 0; i < blocks.size(); ++i)
        records.push_back({right(std::to_string(i), 4), blocks[i]});
    qz_test::write_bytes(dir.file(name), dbf_file(version, fields, records));
}

// An .fpt and a .dbt that both hold a memo at block 8, telling which it is.
void write_fpt(const qz_test::Temp_dir& dir, const std::string& name, const std::string& text) {
    auto f = fpt_file(64);
    fpt_put(f, 64, 8, 1, text);
    qz_test::write_bytes(dir.file(name), f);
}
void write_dbt(const qz_test::Temp_dir& dir, const std::string& name, const std::string& text) {
    auto f = dbt_file();
    dbt_put(f, 8, text + "\x1A");
    qz_test::write_bytes(dir.file(name), f);
}

// Which memo file `table` holds: "fpt: <memo at 8>", "dbt: <memo at 8>" or "none".
std::string held(Tqz_dbf_disk& table) {
    unsigned int len = 0, type = 0;
    EXPECT_FALSE(table.get_fpt() && table.get_dbt()) << "one reader at a time from open";
    if (Tqz_fpt_rw* f = table.get_fpt()) {
        const char* m = f->get_memo(8, len, type);
        return "fpt: " + (m ? std::string(m, len) : "<null>");
    }
    if (Tqz_dbt_rw* d = table.get_dbt()) {
        const char* m = d->get_memo(8, len, type);
        return "dbt: " + (m ? std::string(m, len) : "<null>");
    }
    return "none";
}

std::string open_and_tell(const qz_test::Temp_dir& dir, const std::string& name,
                          bool read_only = true) {
    Tqz_dbf_disk table;
    if (table.open(dir.wfile(name).c_str(), read_only, false, false) != 0) return "open failed";
    return held(table);
}

TEST(TableMemoFiles, VersionByteChoosesTheFileAndCaseIsIgnored) {
    qz_test::Temp_dir dir;
    write_fpt(dir, "t.fpt", "in fpt");
    write_dbt(dir, "t.dbt", "in dbt");

    write_table(dir, "t.dbf", 0xF5);
    EXPECT_EQ(open_and_tell(dir, "t.dbf"), "fpt: in fpt") << "0xF5 prefers the .fpt";
    for (uint8_t version : {0x03, 0x83, 0x8B, 0x30, 0x00, 0xF4, 0xFF}) {
        write_table(dir, "t.dbf", version);
        EXPECT_EQ(open_and_tell(dir, "t.dbf"), "dbt: in dbt") << "version " << int(version);
    }
    write_table(dir, "t.dbf", 0x83);
    EXPECT_EQ(open_and_tell(dir, "t.dbf", false), "dbt: in dbt") << "a writable table too";

    // With only one of the two, either version finds it; with none, neither.
    write_table(dir, "f.dbf", 0x83);
    write_fpt(dir, "f.fpt", "only fpt");
    EXPECT_EQ(open_and_tell(dir, "f.dbf"), "fpt: only fpt");
    write_table(dir, "d.dbf", 0xF5);
    write_dbt(dir, "d.dbt", "only dbt");
    EXPECT_EQ(open_and_tell(dir, "d.dbf"), "dbt: only dbt");
    write_table(dir, "n.dbf", 0xF5);
    EXPECT_EQ(open_and_tell(dir, "n.dbf"), "none") << "a missing memo file is no error";

    // Companions whose names differ in letter case, as other systems write them.
    write_table(dir, "Cars.DBF", 0xF5);
    write_fpt(dir, "CARS.FPT", "upper fpt");
    EXPECT_EQ(open_and_tell(dir, "Cars.DBF"), "fpt: upper fpt");
    write_table(dir, "cars2.DBF", 0x83);
    write_dbt(dir, "Cars2.Dbt", "mixed dbt");
    EXPECT_EQ(open_and_tell(dir, "cars2.DBF"), "dbt: mixed dbt");
    // An exact name wins over a case-insensitive one.
    write_table(dir, "e.dbf", 0x83);
    write_dbt(dir, "e.dbt", "exact");
    write_dbt(dir, "E.DBT", "other");
    EXPECT_EQ(open_and_tell(dir, "e.dbf"), "dbt: exact");
}

TEST(TableMemoFiles, ReadersLiveWithTheTable) {
    qz_test::Temp_dir dir;
    write_table(dir, "t.dbf", 0xF5);
    write_fpt(dir, "t.fpt", "in fpt");
    write_dbt(dir, "t.dbt", "in dbt");

    Tqz_dbf_disk table;
    ASSERT_EQ(table.open(dir.wfile("t.dbf").c_str(), true, false, false), 0);
    EXPECT_EQ(held(table), "fpt: in fpt");

    // The members open the table's companion directly; each open replaces
    // the reader of its kind, and a failed open leaves none.
    EXPECT_TRUE(table.open_dbt(dir.file("t.dbf").c_str(), true)) << "narrow path";
    ASSERT_NE(table.get_dbt(), nullptr);
    EXPECT_NE(table.get_fpt(), nullptr);
    EXPECT_FALSE(table.open_fpt(dir.wfile("missing.dbf").c_str(), true));
    EXPECT_EQ(table.get_fpt(), nullptr);
    EXPECT_FALSE(table.open_dbt(L"", true));
    EXPECT_EQ(table.get_dbt(), nullptr);
    EXPECT_FALSE(table.open_fpt(static_cast<const wchar_t*>(nullptr), true));
    EXPECT_TRUE(table.open_fpt(dir.wfile("t.dbf").c_str(), true));

    table.close();
    EXPECT_EQ(table.get_fpt(), nullptr) << "close gives the readers back";
    EXPECT_EQ(table.get_dbt(), nullptr);
    ASSERT_EQ(table.open(dir.wfile("t.dbf").c_str(), true, false, false), 0);
    EXPECT_EQ(held(table), "fpt: in fpt") << "and a reopen takes them again";
    // Reopening on another table drops the first table's reader.
    write_table(dir, "other.dbf", 0x83);
    ASSERT_EQ(table.open(dir.wfile("other.dbf").c_str(), true, false, false), 0);
    EXPECT_EQ(held(table), "none");
    // The destructor of a table holding readers frees them (the sanitizer
    // build checks for leaks).
    EXPECT_TRUE(table.open_fpt(dir.wfile("t.dbf").c_str(), true));
    EXPECT_TRUE(table.open_dbt(dir.wfile("t.dbf").c_str(), true));
}

TEST(TableMemoBytes, WithoutAMemoFileThereIsNoMemo) {
    qz_test::Temp_dir dir;
    write_table(dir, "t.dbf", 0x83);
    Tqz_dbf_disk table;
    ASSERT_EQ(table.open(dir.wfile("t.dbf").c_str(), true, false, false), 0);
    bool ok = true;
    unsigned int len = 77, type = 88;
    EXPECT_EQ(table.get_memo_bytes(1, 0, ok, len, type), nullptr);
    EXPECT_FALSE(ok);
    EXPECT_EQ(len, 77u) << "counts untouched";
    EXPECT_EQ(type, 88u);

    Tqz_dbf_rw* h = qz_dbf_open_w(dir.wfile("t.dbf").c_str(), true, false);
    ASSERT_NE(h, nullptr);
    ok = true;
    EXPECT_EQ(qz_dbf_get_memo_bytes(h, 1, 0, ok, len, type), nullptr);
    EXPECT_FALSE(ok);
    qz_dbf_close(h);
    // A null handle is a handle without a table: null, ok untouched.
    ok = true;
    EXPECT_EQ(qz_dbf_get_memo_bytes(nullptr, 1, 0, ok, len, type), nullptr);
    EXPECT_TRUE(ok);
}

// Reads block numbers through the value layer: skipped while this build has
// none (see value_layer.h).
TEST(TableMemoBytes, CellsLeadToTheirMemos) {
    if (!value_layer_reads_integers()) GTEST_SKIP() << no_value_layer;
    qz_test::Temp_dir dir;
    const std::vector<std::string> cells = {right("8", 10), "", right("999", 10), "8"};
    write_table(dir, "f.dbf", 0xF5, cells);
    write_fpt(dir, "f.fpt", "fpt text");
    write_table(dir, "d.dbf", 0x83, cells);
    write_dbt(dir, "d.dbt", "dbt text");

    struct Case {
        const char* table;
        std::string text;
        unsigned int type;
    };
    for (const Case& c : {Case{"f.dbf", "fpt text", 16777216u}, Case{"d.dbf", "dbt text", 1u}}) {
        Tqz_dbf_disk table;
        ASSERT_EQ(table.open(dir.wfile(c.table).c_str(), true, false, false), 0);
        bool ok = false;
        unsigned int len = 0, type = 0;
        const unsigned char* m = table.get_memo_bytes(1, 0, ok, len, type);
        EXPECT_TRUE(ok) << c.table;
        ASSERT_NE(m, nullptr) << c.table;
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(m), len), c.text);
        EXPECT_EQ(type, c.type);
        ok = false;
        m = table.get_memo_bytes(1, 3, ok, len, type);
        EXPECT_TRUE(ok) << "a left-aligned number reads the same";
        EXPECT_EQ(m ? std::string(reinterpret_cast<const char*>(m), len) : "", c.text);
        ok = true;
        EXPECT_EQ(table.get_memo_bytes(1, 1, ok, len, type), nullptr) << "blank cell";
        EXPECT_FALSE(ok);
        ok = true;
        EXPECT_EQ(table.get_memo_bytes(1, 2, ok, len, type), nullptr) << "block past the end";
        EXPECT_FALSE(ok);

        Tqz_dbf_rw* h = qz_dbf_open_w(dir.wfile(c.table).c_str(), true, false);
        ASSERT_NE(h, nullptr);
        ok = false;
        m = qz_dbf_get_memo_bytes(h, 1, 0, ok, len, type);
        EXPECT_TRUE(ok);
        EXPECT_EQ(m ? std::string(reinterpret_cast<const char*>(m), len) : "", c.text);
        qz_dbf_close(h);
    }
}

}  // namespace
