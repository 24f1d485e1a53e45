// The memo files of a disk table: which file open takes (by version byte,
// found without regard to letter case), their life with the table, and the
// memo of a cell through the table and its export.
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

// A table `name` with the given version and these cells in its memo field.
void write_table(const qz_test::Temp_dir& dir, const std::string& name, uint8_t version,
                 const std::vector<std::string>& cells = {right("8", 10)}) {
    std::vector<std::vector<std::string>> records;
    for (size_t i = 0; i < cells.size(); ++i)
        records.push_back({right(std::to_string(i), 4), cells[i]});
    qz_test::write_bytes(dir.file(name),
                         qz_test::dbf_bytes(version, {{"ID", 'N', 4}, {"NOTE", 'M', 10}}, records));
}

// A memo file holding `text` at block 8.
void write_memo(const qz_test::Temp_dir& dir, const std::string& name, const std::string& text) {
    std::vector<uint8_t> f;
    if (std::tolower(static_cast<unsigned char>(name[name.size() - 3])) == 'f') {
        f = fpt_file(64);
        fpt_put(f, 64, 8, 1, text);
    } else {
        f = dbt_file();
        dbt_put(f, 8, text + "\x1A");
    }
    qz_test::write_bytes(dir.file(name), f);
}

// Which memo file `table` holds: "fpt: <memo at 8>", "dbt: <memo at 8>" or "none".
std::string held(Tqz_dbf_disk& table) {
    unsigned int len = 0, type = 0;
    EXPECT_FALSE(table.get_fpt() && table.get_dbt()) << "one reader at a time from open";
    const char* m = nullptr;
    std::string kind = "none";
    if (Tqz_fpt_rw* f = table.get_fpt()) m = f->get_memo(8, len, type), kind = "fpt: ";
    if (Tqz_dbt_rw* d = table.get_dbt()) m = d->get_memo(8, len, type), kind = "dbt: ";
    return kind == "none" ? kind : kind + (m ? std::string(m, len) : "<null>");
}

std::string open_and_tell(const qz_test::Temp_dir& dir, const std::string& name,
                          bool read_only = true) {
    Tqz_dbf_disk table;
    if (table.open(dir.wfile(name).c_str(), read_only, false, false) != 0) return "open failed";
    return held(table);
}

TEST(TableMemoFiles, VersionByteChoosesTheFileAndCaseIsIgnored) {
    qz_test::Temp_dir dir;
    write_memo(dir, "t.fpt", "in fpt");
    write_memo(dir, "t.dbt", "in dbt");
    write_table(dir, "t.dbf", 0xF5);
    EXPECT_EQ(open_and_tell(dir, "t.dbf"), "fpt: in fpt") << "0xF5 prefers the .fpt";
    for (uint8_t version : {0x03, 0x83, 0x8B, 0x30, 0x00, 0xF4, 0xFF}) {
        write_table(dir, "t.dbf", version);
        EXPECT_EQ(open_and_tell(dir, "t.dbf"), "dbt: in dbt") << "version " << int(version);
    }
    EXPECT_EQ(open_and_tell(dir, "t.dbf", false), "dbt: in dbt") << "a writable table too";

    struct Case {
        const char* table;
        uint8_t version;
        std::vector<const char*> memos;  // each holds its own name
        const char* held;
    };
    const Case cases[] = {
        {"f.dbf", 0x83, {"f.fpt"}, "fpt: f.fpt"},  // with only one, either version finds it
        {"d.dbf", 0xF5, {"d.dbt"}, "dbt: d.dbt"},
        {"n.dbf", 0xF5, {}, "none"},                           // no memo file is no error
        {"cars2.DBF", 0x83, {"Cars2.Dbt"}, "dbt: Cars2.Dbt"},  // letter case aside
        {"e.dbf", 0x83, {"E.DBT", "e.dbt"}, "dbt: e.dbt"},     // the exact name wins
    };
    for (const Case& c : cases) {
        write_table(dir, c.table, c.version);
        for (const char* m : c.memos) write_memo(dir, m, m);
        EXPECT_EQ(open_and_tell(dir, c.table), c.held) << c.table;
    }
}

TEST(TableMemoBytes, CellsLeadToTheirMemos) {
    qz_test::Temp_dir dir;
    const std::vector<std::string> cells = {right("8", 10), "", right("999", 10), "8"};
    write_table(dir, "f.dbf", 0xF5, cells);
    write_memo(dir, "f.fpt", "fpt text");
    write_table(dir, "d.dbf", 0x83, cells);
    write_memo(dir, "d.dbt", "dbt text");
    write_table(dir, "n.dbf", 0x83, cells);

    struct Case {
        const char* table;
        std::string text;  // of records 0 and 3; records 1 (blank) and 2 (past the end) have none
        unsigned int type;
    };
    for (const Case& c : {Case{"f.dbf", "fpt text", 0x01000000u}, Case{"d.dbf", "dbt text", 1u},
                          Case{"n.dbf", "", 77u}}) {
        Tqz_dbf_rw* h = qz_dbf_open_w(dir.wfile(c.table).c_str(), true, false);
        ASSERT_NE(h, nullptr);
        for (unsigned record = 0; record < 4; ++record) {
            bool ok = !(record % 3 == 0);
            unsigned int len = 77, type = 77;
            const unsigned char* m = qz_dbf_get_memo_bytes(h, 1, record, ok, len, type);
            const bool has = record % 3 == 0 && !c.text.empty();
            EXPECT_EQ(ok, has) << c.table << " record " << record;
            EXPECT_EQ(m ? std::string(reinterpret_cast<const char*>(m), len) : "",
                      has ? c.text : "")
                << c.table << " record " << record;
            if (has) {
                EXPECT_EQ(type, c.type);
            }
            if (c.text.empty()) {
                EXPECT_EQ(len, 77u) << "counts untouched without a memo file";
            }
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
