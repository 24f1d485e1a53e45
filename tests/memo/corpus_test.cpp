// The memos of the sample tables of other software, read by the library and
// by dbfread (dbfread_memos.py prints every memo cell with dbfread's memo).
// Each cell's memo is read twice: through the reader exports, given the
// cell's block number, and through the table (qz_dbf_get_memo_bytes).
//
// Where the library deliberately reads a memo another way than dbfread, the
// comparison leaves it out:
//  - dBASE IV style .dbt files (any version but 0x83): dbfread skips an
//    8-byte block header, the DBT reader reads from the block start to 0x1A
//    (those memos are read all the same: they must be survived);
//  - 4-byte M fields holding a binary block number, and fields the table
//    places elsewhere than dbfread (some writers keep the high byte of a long
//    C field in its decimal count): the table reads another cell there, so
//    only the reader is compared.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "dbf/disk_table.h"
#include "qzk_file_dbf.h"
#include "test_support.h"

namespace {

struct Cell {
    unsigned int record = 0, field = 0, offset = 0, length = 0;
    std::string block, kind, memo, raw;
    bool none = false, failed = false;
};

struct Table {
    std::string path, memo_name;
    unsigned int version = 0;
    std::vector<Cell> cells;
};

std::string from_hex(const std::string& hex) {
    std::string bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    return bytes;
}

// The tables dbfread reads, with their memo cells.
std::vector<Table> dbfread_tables() {
    std::vector<Table> result;
    std::string out;
    const std::string command =
        "/usr/bin/python3 '" + std::string(QZ_DBFREAD_MEMOS) + "' '" + QZ_CORPUS_DIR + "'";
    EXPECT_EQ(qz_test::run(command, &out), 0) << command;
    std::stringstream in(out);
    std::string line;
    while (std::getline(in, line)) {
        std::vector<std::string> p;
        std::stringstream fields(line);
        for (std::string part; std::getline(fields, part, '\t');) p.push_back(part);
        if (!line.empty() && line.back() == '\t') p.emplace_back();
        if (p.size() >= 6 && p[0] == "T" && p[2] == "ok") {
            result.push_back({p[1], p[4], static_cast<unsigned>(std::stoul(p[3])), {}});
        } else if (p.size() == 9 && p[0] == "C" && !result.empty()) {
            Cell c;
            c.record = std::stoul(p[1]), c.field = std::stoul(p[2]);
            c.offset = std::stoul(p[3]), c.length = std::stoul(p[4]);
            c.block = p[5], c.kind = p[6];
            c.none = p[7] == "-";
            c.failed = !p[7].empty() && p[7][0] == '!';
            if (!c.none && !c.failed) c.memo = from_hex(p[7]);
            c.raw = from_hex(p[8]);
            result.back().cells.push_back(c);
        } else if (p.empty() || p[0] != "T") {
            ADD_FAILURE() << "unexpected line from dbfread_memos.py: " << line;
        }
    }
    return result;
}

// The type get_memo reports for a memo dbfread classes as `kind`.
bool type_matches(bool fpt, const std::string& kind, unsigned int type) {
    if (!fpt) return type == 1;
    if (kind == "text") return type == 0x01000000u;
    if (kind == "PictureMemo") return type == 0;
    if (kind == "ObjectMemo") return type == 0x02000000u;
    return type != 0x01000000u && type != 0 && type != 0x02000000u;
}

bool ends_with_ci(const std::string& s, const char* tail) {
    const size_t n = std::char_traits<char>::length(tail);
    if (s.size() < n) return false;
    for (size_t i = 0; i < n; ++i)
        if (std::tolower(static_cast<unsigned char>(s[s.size() - n + i])) != tail[i]) return false;
    return true;
}

TEST(CorpusMemos, ReadersAndTablesReadWhatDbfreadReads) {
    int tables = 0, reader_memos = 0, binary_memos = 0, table_memos = 0, case_companions = 0;
    for (const Table& t : dbfread_tables()) {
        if (t.memo_name == "-" || t.cells.empty()) continue;
        const std::string path = std::string(QZ_CORPUS_DIR) + "/" + t.path;
        const std::string memo_path = path.substr(0, path.rfind('/') + 1) + t.memo_name;
        const bool fpt = ends_with_ci(t.memo_name, ".fpt");
        const bool dbase4 = !fpt && t.version != 0x83;
        SCOPED_TRACE(t.path);

        // The table takes the memo file dbfread takes, whatever its letter case.
        Tqz_dbf_disk disk;
        ASSERT_EQ(disk.open(qz_test::widen(path).c_str(), true, false, true), 0);
        EXPECT_TRUE(fpt ? disk.get_fpt() != nullptr : disk.get_dbt() != nullptr);
        const std::string stem =
            path.substr(path.rfind('/') + 1, path.rfind('.') - path.rfind('/') - 1);
        if (t.memo_name != stem + (fpt ? ".fpt" : ".dbt")) ++case_companions;

        const std::wstring wmemo = qz_test::widen(memo_path);
        Tqz_fpt_rw* f = fpt ? qz_fpt_open_w(wmemo.c_str(), true) : nullptr;
        Tqz_dbt_rw* d = fpt ? nullptr : qz_dbt_open_w(wmemo.c_str(), true);
        ASSERT_TRUE(f || d) << memo_path;
        Tqz_dbf_rw* h = qz_dbf_open_w(qz_test::widen(path).c_str(), true, false);
        ASSERT_NE(h, nullptr);
        for (const Cell& c : t.cells) {
            SCOPED_TRACE("record " + std::to_string(c.record) + " field " +
                         std::to_string(c.field));
            unsigned int offset = 1;
            for (unsigned i = 0; i < c.field; ++i) offset += qz_dbf_get_field_flen(h, i);
            const bool table_agrees = c.length != 4 && offset == c.offset &&
                                      qz_dbf_get_field_flen(h, c.field) == c.length;
            int number = 0;
            unsigned int block = 0;
            if (c.length == 4) {
                for (int i = 3; i >= 0; --i) block = block << 8 | static_cast<uint8_t>(c.raw[i]);
            } else if (std::sscanf(c.raw.c_str(), "%d", &number) == 1) {
                block = static_cast<unsigned>(number);
            } else {
                EXPECT_TRUE(c.none) << "dbfread reads a memo from '" << c.raw << "'";
                bool ok = true;
                unsigned len = 0, type = 0;
                if (table_agrees) {
                    EXPECT_EQ(qz_dbf_get_memo_bytes(h, c.field, c.record, ok, len, type), nullptr);
                    EXPECT_FALSE(ok);
                }
                continue;
            }
            EXPECT_TRUE(c.block == "?" || c.block == std::to_string(block))
                << c.block << " " << block;
            unsigned int len = 0, type = 0;
            const char* got = fpt ? qz_fpt_get_memo(f, block, &len, &type)
                                  : qz_dbt_get_memo(d, block, &len, &type);
            if (dbase4 || (c.length == 4 && c.none && block == 0)) continue;
            EXPECT_FALSE(c.failed || c.none) << "dbfread has no memo at block " << block;
            EXPECT_EQ(got ? std::string(got, len) : "", c.memo) << "block " << block;
            EXPECT_TRUE(!got || type_matches(fpt, c.kind, type)) << type << " for a " << c.kind;
            ++(c.length == 4 ? binary_memos : reader_memos);
            if (!table_agrees) continue;
            bool ok = false;
            const unsigned char* m = qz_dbf_get_memo_bytes(h, c.field, c.record, ok, len, type);
            EXPECT_EQ(ok, m != nullptr);
            EXPECT_EQ(m ? std::string(reinterpret_cast<const char*>(m), len) : "", c.memo);
            ++table_memos;
        }
        ++tables;
        qz_dbf_close(h);
        qz_fpt_close(f);
        qz_dbt_close(d);
    }
    // Guards against a comparison that silently shrank (a script or corpus
    // that stopped delivering): the sample tables hold at least this much.
    EXPECT_GE(tables, 20);
    EXPECT_GE(reader_memos, 400);
    EXPECT_GE(binary_memos, 1200);
    EXPECT_GE(table_memos, 400);
    EXPECT_GE(case_companions, 20);
}

}  // namespace
