// The memo files of a disk table: which file open takes (by version byte,
// found without regard to letter case), and the memo of a cell through the
// table's export.
#include <gtest/gtest.h>

#include <cctype>
#include <string>

#include "memo_files.h"
#include "qzk_file_dbf.h"
#include "test_support.h"

using namespace memo_test;

namespace {

// A table `name` with the given version and these cells in its memo field
// (record 0: block 8; 1: blank; 2: a block past the end; 3: block 8 unpadded),
// and memo files each holding its own name at block 8.
void write_files(const qz_test::Temp_dir& dir, const std::string& name, uint8_t version,
                 const std::vector<std::string>& memos) {
    std::vector<std::vector<std::string>> records;
    for (const char* cell : {"         8", "", "       999", "8"}) records.push_back({"1", cell});
    qz_test::write_bytes(dir.file(name),
                         qz_test::dbf_bytes(version, {{"ID", 'N', 4}, {"NOTE", 'M', 10}}, records));
    for (const std::string& m : memos) {
        std::vector<uint8_t> f;
        if (std::tolower(static_cast<unsigned char>(m[m.size() - 3])) == 'f') {
            f = fpt_file(64);
            fpt_put(f, 64, 8, 1, m);
        } else {
            f = dbt_file();
            put(f, 8 * 512, m + "\x1A");
        }
        qz_test::write_bytes(dir.file(m), f);
    }
}

// The memo file the table `name` reads its memos from (the name the memo of
// record 0 holds), or "none"; checks the other records' cells on the way.
std::string held(const qz_test::Temp_dir& dir, const std::string& name, bool read_only = true) {
    Tqz_dbf_rw* h = qz_dbf_open_w(dir.wfile(name).c_str(), read_only, false);
    if (!h) return "open failed";
    std::string memo[4];
    for (unsigned record = 0; record < 4; ++record) {
        bool ok = record % 3 != 0;
        unsigned int len = 77, type = 77;
        const unsigned char* m = qz_dbf_get_memo_bytes(h, 1, record, ok, len, type);
        EXPECT_EQ(ok, m != nullptr) << name << " record " << record;
        memo[record] = m ? std::string(reinterpret_cast<const char*>(m), len) : "";
        // FPT text is type 1 as the file holds it (unswapped), DBT memos type 1.
        const bool fpt = memo[0].size() > 3 && std::tolower(memo[0][memo[0].size() - 3]) == 'f';
        EXPECT_TRUE(!m || type == (fpt ? 0x01000000u : 1u)) << memo[0] << " " << type;
        EXPECT_TRUE(m || record != 0 || len + type == 77u + 77) << "untouched without a memo";
    }
    qz_dbf_close(h);
    EXPECT_EQ(memo[0], memo[3]) << name;
    EXPECT_EQ(memo[1] + memo[2], "") << name << ": blank cells and blocks past the end";
    return memo[0].empty() ? "none" : memo[0];
}

TEST(TableMemoFiles, VersionByteChoosesTheFileAndCaseIsIgnored) {
    qz_test::Temp_dir dir;
    write_files(dir, "t.dbf", 0xF5, {"t.fpt", "t.dbt"});
    EXPECT_EQ(held(dir, "t.dbf"), "t.fpt") << "0xF5 prefers the .fpt";
    for (uint8_t version : {0x03, 0x83, 0x8B, 0x30, 0x00, 0xF4, 0xFF}) {
        write_files(dir, "t.dbf", version, {});
        EXPECT_EQ(held(dir, "t.dbf"), "t.dbt") << "version " << int(version);
    }
    EXPECT_EQ(held(dir, "t.dbf", false), "t.dbt") << "a writable table too";
    // clang-format off
    const struct { const char* table; uint8_t version; std::vector<std::string> memos; const char* held; } cases[] = {
        {"f.dbf", 0x83, {"f.fpt"}, "f.fpt"},  // with only one, either version finds it
        {"d.dbf", 0xF5, {"d.dbt"}, "d.dbt"},
        {"n.dbf", 0xF5, {}, "none"},                      // no memo file is no error
        {"cars2.DBF", 0x83, {"Cars2.Dbt"}, "Cars2.Dbt"},  // letter case aside
        {"e.dbf", 0x83, {"E.DBT", "e.dbt"}, "e.dbt"},     // the exact name wins
    };
    // clang-format on
    for (const auto& c : cases) {
        write_files(dir, c.table, c.version, c.memos);
        EXPECT_EQ(held(dir, c.table), c.held) << c.table;
    }
    // A null handle is a handle without a table: null, ok untouched.
    bool ok = true;
    unsigned int len = 0, type = 0;
    EXPECT_EQ(qz_dbf_get_memo_bytes(nullptr, 1, 0, ok, len, type), nullptr);
    EXPECT_TRUE(ok);
}

}  // namespace
