// The memo readers against dbfread on the sample tables of other software.
//
// dbfread_memos.py prints every memo cell of every sample table with a memo
// file, as dbfread reads it. This test parses the .dbf itself (header length,
// record length, descriptors), takes each cell's block number the way the
// table does (the cell's text read as a decimal number), reads the memo
// through the qz_fpt_* / qz_dbt_* exports and compares the bytes.
//
// Tables are left out of the comparison, with their reason, where the
// library deliberately reads a memo another way than dbfread:
//  - dBASE IV style .dbt files (any version but 0x83): dbfread skips the
//    8-byte block header; the DBT reader reads from the block start to 0x1A;
//  - 4-byte M fields holding a binary block number: the table reads the cell
//    as text. The readers are still compared on these, given the binary
//    number, since the bytes at a block are the same either way.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "dbf/disk_table.h"
#include "memo/dbt_rw.h"
#include "memo/fpt_rw.h"
#include "qzk_file_dbf.h"
#include "test_support.h"
#include "value_layer.h"

namespace {

struct Cell {
    unsigned int record = 0, field = 0, offset = 0, length = 0;
    std::string block;    // dbfread's block number, "?" when it reads none
    std::string kind;     // "text", a binary memo class of dbfread, or "-"
    std::string memo;     // bytes, when dbfread read a memo
    bool none = false;    // dbfread has no memo here
    bool failed = false;  // dbfread failed on the cell
};

struct Table {
    std::string path;  // relative to the corpus
    bool read = false;
    std::string unread_reason;
    unsigned int version = 0;
    std::string memo_name;
    std::vector<Cell> cells;
};

std::string corpus(const std::string& rel) {
    return std::string(QZ_CORPUS_DIR) + "/" + rel;
}

std::string folder_of(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

std::string lower(std::string s) {
    for (char& c : s)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return s;
}

std::vector<std::string> split(const std::string& line) {
    std::vector<std::string> parts;
    std::stringstream in(line);
    std::string part;
    while (std::getline(in, part, '\t')) parts.push_back(part);
    if (!line.empty() && line.back() == '\t') parts.emplace_back();
    return parts;
}

std::string from_hex(const std::string& hex) {
    std::string bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    return bytes;
}

// What dbfread reads, once per test program.
const std::vector<Table>& dbfread_tables() {
    static const std::vector<Table> tables = [] {
        std::vector<Table> result;
        std::string out;
        const std::string command =
            "/usr/bin/python3 '" + std::string(QZ_DBFREAD_MEMOS) + "' '" + QZ_CORPUS_DIR + "'";
        int status = qz_test::run(command, &out);
        EXPECT_EQ(status, 0) << command;
        std::stringstream in(out);
        std::string line;
        while (std::getline(in, line)) {
            std::vector<std::string> p = split(line);
            if (p.size() >= 3 && p[0] == "T") {
                Table t;
                t.path = p[1];
                t.read = p[2] == "ok";
                if (t.read && p.size() >= 6) {
                    t.version = static_cast<unsigned int>(std::stoul(p[3]));
                    t.memo_name = p[4];
                } else if (p.size() >= 4) {
                    t.unread_reason = p[3];
                }
                result.push_back(t);
            } else if (p.size() == 8 && p[0] == "C" && !result.empty()) {
                Cell c;
                c.record = static_cast<unsigned int>(std::stoul(p[1]));
                c.field = static_cast<unsigned int>(std::stoul(p[2]));
                c.offset = static_cast<unsigned int>(std::stoul(p[3]));
                c.length = static_cast<unsigned int>(std::stoul(p[4]));
                c.block = p[5];
                c.kind = p[6];
                c.none = p[7] == "-";
                c.failed = !p[7].empty() && p[7][0] == '!';
                if (!c.none && !c.failed) c.memo = from_hex(p[7]);
                result.back().cells.push_back(c);
            } else {
                ADD_FAILURE() << "unexpected line from dbfread_memos.py: " << line;
            }
        }
        return result;
    }();
    return tables;
}

// The .dbf as this test reads it, independently of the library.
struct Dbf {
    std::vector<uint8_t> bytes;
    unsigned int header_length = 0, record_length = 0;
    struct Field {
        char type;
        unsigned int offset, length, decimals;
    };
    std::vector<Field> fields;

    explicit Dbf(const std::string& path) : bytes(qz_test::read_bytes(path)) {
        if (bytes.size() < 32) return;
        header_length = bytes[8] | bytes[9] << 8;
        record_length = bytes[10] | bytes[11] << 8;
        unsigned int offset = 1;
        for (size_t at = 32; at + 32 <= header_length && at < bytes.size(); at += 32) {
            if (bytes[at] == 0x0D) break;
            const unsigned int length = at + 16 < bytes.size() ? bytes[at + 16] : 0;
            const unsigned int decimals = at + 17 < bytes.size() ? bytes[at + 17] : 0;
            fields.push_back({static_cast<char>(bytes[at + 11]), offset, length, decimals});
            offset += length;
        }
    }

    // The bytes of a record at `offset`; empty when the file does not hold them.
    std::string cell(unsigned int record, unsigned int offset, unsigned int length) const {
        size_t at = size_t{header_length} + size_t{record} * record_length + offset;
        if (at + length > bytes.size()) return {};
        return std::string(reinterpret_cast<const char*>(bytes.data()) + at, length);
    }
    // Whether a C field has a decimal count: some writers keep the high byte
    // of a length above 255 there.
    bool wide_char_field() const {
        for (const Field& f : fields)
            if (f.type == 'C' && f.decimals != 0) return true;
        return false;
    }
    // Whether this parse puts the field where dbfread does.
    bool agrees(const Cell& c) const {
        return c.field < fields.size() && fields[c.field].offset == c.offset &&
               fields[c.field].length == c.length;
    }
};

// The block number in a memo cell read the way the table reads it: the
// text's leading decimal number (sscanf "%d"). False when there is none.
bool text_block(const std::string& cell, int& block) {
    return std::sscanf(cell.c_str(), "%d", &block) == 1;
}

uint32_t binary_block(const std::string& cell) {
    uint32_t v = 0;
    for (int i = 3; i >= 0; --i) v = v << 8 | static_cast<uint8_t>(cell[i]);
    return v;
}

// One memo file open through the exports.
struct Memo_file {
    bool fpt;
    Tqz_fpt_rw* f = nullptr;
    Tqz_dbt_rw* d = nullptr;
    Memo_file(const std::string& path, bool is_fpt) : fpt(is_fpt) {
        std::wstring w = qz_test::widen(path);
        if (fpt)
            f = qz_fpt_open_w(w.c_str(), true);
        else
            d = qz_dbt_open_w(w.c_str(), true);
    }
    ~Memo_file() {
        qz_fpt_close(f);
        qz_dbt_close(d);
    }
    bool is_open() const { return f || d; }
    const char* get(unsigned int block, unsigned int& len, unsigned int& type) {
        return fpt ? qz_fpt_get_memo(f, block, &len, &type)
                   : qz_dbt_get_memo(d, block, &len, &type);
    }
};

// dBASE IV style .dbt files are read as described, not as dbfread does.
bool dbase4_dbt(const Table& t) {
    return lower(t.memo_name).size() > 4 &&
           lower(t.memo_name).compare(t.memo_name.size() - 4, 4, ".dbt") == 0 && t.version != 0x83;
}

bool is_fpt(const Table& t) {
    const std::string name = lower(t.memo_name);
    return name.size() > 4 && name.compare(name.size() - 4, 4, ".fpt") == 0;
}

// The type get_memo should report for a memo dbfread classed as `kind`.
bool type_matches(bool fpt, const std::string& kind, unsigned int type) {
    if (!fpt) return type == 1;
    if (kind == "text") return type == 0x01000000u;
    if (kind == "PictureMemo") return type == 0;
    if (kind == "ObjectMemo") return type == 0x02000000u;
    return type != 0x01000000u && type != 0 && type != 0x02000000u;
}

TEST(CorpusMemos, ReadersReadWhatDbfreadReads) {
    const std::vector<Table>& tables = dbfread_tables();
    ASSERT_FALSE(tables.empty());

    int compared_tables = 0, compared_memos = 0, binary_memos = 0, other_memos = 0;
    int case_companions = 0;
    std::vector<std::string> mismatches;
    std::ostringstream report;
    for (const Table& t : tables) {
        if (!t.read) {
            report << "  unread by dbfread: " << t.path << " (" << t.unread_reason << ")\n";
            continue;
        }
        if (t.memo_name == "-" || t.cells.empty()) {
            report << "  no memo cells: " << t.path << "\n";
            continue;
        }
        const std::string table_path = corpus(t.path);
        const std::string memo_path = folder_of(table_path) + t.memo_name;
        const bool fpt = is_fpt(t);

        // The table, opened by the library, takes the same memo file, also
        // when its name differs from the table's in letter case.
        {
            Tqz_dbf_disk table;
            ASSERT_EQ(table.open(qz_test::widen(table_path).c_str(), true, false, true), 0)
                << t.path;
            EXPECT_TRUE(fpt ? table.get_fpt() != nullptr : table.get_dbt() != nullptr)
                << t.path << ": the table did not take " << t.memo_name;
            std::string table_stem = t.path.substr(t.path.rfind('/') + 1);
            table_stem = table_stem.substr(0, table_stem.rfind('.'));
            const std::string wanted = table_stem + (fpt ? ".fpt" : ".dbt");
            if (t.memo_name != wanted) ++case_companions;
        }

        const Dbf dbf(table_path);
        Memo_file memo(memo_path, fpt);
        ASSERT_TRUE(memo.is_open()) << memo_path;

        const bool dbase4 = dbase4_dbt(t);
        bool binary_cells = false, offsets_differ = false;
        int memos_here = 0;
        for (const Cell& c : t.cells) {
            const std::string where = t.path + " record " + std::to_string(c.record) + " field " +
                                      std::to_string(c.field);
            // The reader is given the cell where dbfread finds it; whether
            // the table finds it there too is noted for the table.
            if (!dbf.agrees(c)) offsets_differ = true;
            const std::string cell = dbf.cell(c.record, c.offset, c.length);
            ASSERT_EQ(cell.size(), c.length) << where;

            unsigned int block = 0;
            if (c.length == 4) {
                binary_cells = true;
                block = binary_block(cell);
            } else {
                int number = 0;
                if (!text_block(cell, number)) {
                    // No number: no memo for the table either.
                    if (!c.none)
                        mismatches.push_back(where + ": dbfread reads a memo, cell '" + cell +
                                             "' holds no number");
                    continue;
                }
                block = static_cast<unsigned int>(number);
            }
            if (c.block != "?" && c.block != std::to_string(block))
                mismatches.push_back(where + ": block " + std::to_string(block) + ", dbfread's " +
                                     c.block);
            if (dbase4) {
                unsigned int len = 0, type = 0;
                memo.get(block, len, type);  // read all the same: it must survive
                continue;
            }

            unsigned int len = 0, type = 0;
            const char* got = memo.get(block, len, type);
            if (c.length == 4 && c.none && block == 0) continue;  // an empty binary cell
            if (c.failed || c.none) {
                mismatches.push_back(where + ": dbfread " + (c.failed ? "failed" : "has no memo") +
                                     " at block " + std::to_string(block));
                continue;
            }
            const std::string ours = got ? std::string(got, len) : std::string();
            if (ours != c.memo) {
                mismatches.push_back(where + ": block " + std::to_string(block) + ": " +
                                     std::to_string(ours.size()) + " bytes, dbfread " +
                                     std::to_string(c.memo.size()));
                continue;
            }
            if (got && !type_matches(fpt, c.kind, type))
                mismatches.push_back(where + ": type " + std::to_string(type) + " for a " + c.kind);
            if (c.length == 4)
                ++binary_memos;
            else
                ++memos_here;
        }
        if (dbase4) {
            report << "  not compared: " << t.path << " (dBASE IV .dbt: dbfread skips the 8-byte "
                   << "block header, the DBT reader reads from the block start to 0x1A)\n";
        } else if (binary_cells) {
            report << "  reader compared, table differs by design: " << t.path
                   << " (binary block number in a 4-byte M field; the table reads the cell as "
                   << "text)\n";
        } else if (offsets_differ) {
            report << "  reader compared, table differs by design: " << t.path
                   << " (the table's one-byte field lengths put the memo cells elsewhere than "
                   << "dbfread"
                   << (dbf.wide_char_field() ? ", which takes a C field's length partly from its "
                                               "decimal-count byte"
                                             : "")
                   << ")\n";
            other_memos += memos_here;
        } else {
            report << "  compared: " << t.path << " (" << memos_here << " memos)\n";
            ++compared_tables;
            compared_memos += memos_here;
        }
    }

    std::cout << "memo comparison with dbfread: " << compared_tables << " tables, "
              << compared_memos
              << " memos through text block numbers; reader only: " << binary_memos
              << " memos through binary block numbers, " << other_memos
              << " where the table's field layout differs; " << case_companions
              << " memo files named in another letter case\n"
              << report.str();
    for (const std::string& m : mismatches) ADD_FAILURE() << m;
    // Guards against a comparison that silently shrank (a script or corpus
    // that stopped delivering): the sample tables hold at least this much.
    EXPECT_GE(compared_tables, 20);
    EXPECT_GE(compared_memos, 400);
    EXPECT_GE(binary_memos, 1200);
    EXPECT_GE(case_companions, 20);
}

// The same memos through the table: qz_dbf_get_memo_bytes reads the cell's
// number with get_as_integer. Skipped while this build's value layer does
// not read numbers (value_layer.h).
TEST(CorpusMemos, TableCellsReadWhatDbfreadReads) {
    if (!memo_test::value_layer_reads_integers()) GTEST_SKIP() << memo_test::no_value_layer;
    int compared = 0;
    for (const Table& t : dbfread_tables()) {
        if (!t.read || t.cells.empty() || dbase4_dbt(t) || t.cells.front().length == 4) continue;
        const Dbf dbf(corpus(t.path));
        bool same_layout = true;
        for (const Cell& c : t.cells) same_layout = same_layout && dbf.agrees(c);
        if (!same_layout) continue;
        Tqz_dbf_rw* h = qz_dbf_open_w(qz_test::widen(corpus(t.path)).c_str(), true, false);
        ASSERT_NE(h, nullptr) << t.path;
        for (const Cell& c : t.cells) {
            const std::string where = t.path + " record " + std::to_string(c.record) + " field " +
                                      std::to_string(c.field);
            bool ok = false;
            unsigned int len = 0, type = 0;
            const unsigned char* m = qz_dbf_get_memo_bytes(h, c.field, c.record, ok, len, type);
            int number = 0;
            if (!text_block(dbf.cell(c.record, c.offset, c.length), number)) {
                EXPECT_FALSE(ok) << where;
                EXPECT_EQ(m, nullptr) << where;
                continue;
            }
            const std::string ours = m ? std::string(reinterpret_cast<const char*>(m), len) : "";
            EXPECT_EQ(ok, m != nullptr) << where;
            EXPECT_EQ(ours, c.memo) << where;
            ++compared;
        }
        qz_dbf_close(h);
    }
    EXPECT_GE(compared, 400);
}

}  // namespace
