// The memo files of a disk table: which file open takes (by version byte,
// found without regard to letter case), read through the reader exports, and
// the memo of a cell through the table's export.
#include <gtest/gtest.h>

#include <cctype>
#include <string>

#include "dbf/disk_table.h"
#include "memo/dbt_rw.h"
#include "memo/fpt_rw.h"
#include "memo_files.h"
#include "qzk_file_dbf.h"
#include "test_support.h"

using namespace memo_test;

namespace {

// A table `name` with the given version and these cells in its memo field,
// and (`memos`) memo files each holding `text` (default: its own name) at block 8.
void write_files(const qz_test::Temp_dir& dir, const std::string& name, uint8_t version,
                 const std::vector<std::string>& memos, const std::string& text = "",
                 const std::vector<std::string>& cells = {"         8"}) {
    std::vector<std::vector<std::string>> records;
    for (size_t i = 0; i < cells.size(); ++i)
        records.push_back({"   " + std::to_string(i), cells[i]});
    qz_test::write_bytes(dir.file(name),
                         qz_test::dbf_bytes(version, {{"ID", 'N', 4}, {"NOTE", 'M', 10}}, records));
    for (const std::string& m : memos) {
        const std::string memo = text.empty() ? m : text;
        std::vector<uint8_t> f;
        if (std::tolower(static_cast<unsigned char>(m[m.size() - 3])) == 'f') {
            f = fpt_file(64);
            fpt_put(f, 64, 8, 1, memo);
        } else {
            f = dbt_file();
            dbt_put(f, 8, memo + "\x1A");
        }
        qz_test::write_bytes(dir.file(m), f);
    }
}

// Which memo file the table `name` holds: "fpt: <memo at 8>", "dbt: <memo at 8>" or "none".
std::string held(const qz_test::Temp_dir& dir, const std::string& name, bool read_only = true) {
    Tqz_dbf_disk table;
    if (table.open(dir.wfile(name).c_str(), read_only, false, false) != 0) return "open failed";
    EXPECT_FALSE(table.get_fpt() && table.get_dbt()) << "one reader at a time from open";
    unsigned int len = 0, type = 0;
    const char* m = nullptr;
    if (table.get_fpt()) m = qz_fpt_get_memo(table.get_fpt(), 8, &len, &type);
    if (table.get_dbt()) m = qz_dbt_get_memo(table.get_dbt(), 8, &len, &type);
    const std::string kind = table.get_fpt() ? "fpt: " : table.get_dbt() ? "dbt: " : "none";
    return kind == "none" ? kind : kind + (m ? std::string(m, len) : "<null>");
}

TEST(TableMemoFiles, VersionByteChoosesTheFileAndCaseIsIgnored) {
    qz_test::Temp_dir dir;
    write_files(dir, "t.dbf", 0xF5, {"t.fpt", "t.dbt"});
    EXPECT_EQ(held(dir, "t.dbf"), "fpt: t.fpt") << "0xF5 prefers the .fpt";
    for (uint8_t version : {0x03, 0x83, 0x8B, 0x30, 0x00, 0xF4, 0xFF}) {
        write_files(dir, "t.dbf", version, {});
        EXPECT_EQ(held(dir, "t.dbf"), "dbt: t.dbt") << "version " << int(version);
    }
    EXPECT_EQ(held(dir, "t.dbf", false), "dbt: t.dbt") << "a writable table too";
    const struct {
        const char* table;
        uint8_t version;
        std::vector<std::string> memos;
        const char* held;
    } cases[] = {
        {"f.dbf", 0x83, {"f.fpt"}, "fpt: f.fpt"},  // with only one, either version finds it
        {"d.dbf", 0xF5, {"d.dbt"}, "dbt: d.dbt"},
        {"n.dbf", 0xF5, {}, "none"},                           // no memo file is no error
        {"cars2.DBF", 0x83, {"Cars2.Dbt"}, "dbt: Cars2.Dbt"},  // letter case aside
        {"e.dbf", 0x83, {"E.DBT", "e.dbt"}, "dbt: e.dbt"},     // the exact name wins
    };
    for (const auto& c : cases) {
        write_files(dir, c.table, c.version, c.memos);
        EXPECT_EQ(held(dir, c.table), c.held) << c.table;
    }
}

TEST(TableMemoBytes, CellsLeadToTheirMemos) {
    qz_test::Temp_dir dir;
    // Records 0 and 3 name block 8; 1 is blank and 2 names a block past the end.
    const std::vector<std::string> cells = {"         8", "", "       999", "8"};
    write_files(dir, "f.dbf", 0xF5, {"f.fpt"}, "fpt text", cells);
    write_files(dir, "d.dbf", 0x83, {"d.dbt"}, "dbt text", cells);
    write_files(dir, "n.dbf", 0x83, {}, "", cells);
    const struct {
        const char* table;
        std::string text;
        unsigned int type;
    } cases[] = {{"f.dbf", "fpt text", 0x01000000u}, {"d.dbf", "dbt text", 1u}, {"n.dbf", "", 77u}};
    for (const auto& c : cases) {
        Tqz_dbf_rw* h = qz_dbf_open_w(dir.wfile(c.table).c_str(), true, false);
        ASSERT_NE(h, nullptr);
        for (unsigned record = 0; record < 4; ++record) {
            SCOPED_TRACE(std::string(c.table) + " record " + std::to_string(record));
            bool ok = record % 3 != 0;
            unsigned int len = 77, type = 77;
            const unsigned char* m = qz_dbf_get_memo_bytes(h, 1, record, ok, len, type);
            const bool has = record % 3 == 0 && !c.text.empty();
            EXPECT_EQ(ok, has);
            EXPECT_EQ(m ? std::string(reinterpret_cast<const char*>(m), len) : "",
                      has ? c.text : "");
            EXPECT_TRUE(!has || type == c.type) << type;
            EXPECT_TRUE(!c.text.empty() || len == 77u) << "counts untouched without a memo file";
        }
        qz_dbf_close(h);
    }
    // A null handle is a handle without a table: null, ok untouched.
    bool ok = true;
    unsigned int len = 0, type = 0;
    EXPECT_EQ(qz_dbf_get_memo_bytes(nullptr, 1, 0, ok, len, type), nullptr);
    EXPECT_TRUE(ok);
}

}  // namespace
