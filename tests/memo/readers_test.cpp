// The FPT and DBT readers on hand-built files: what a block reads as, how the
// buffer grows, and hostile files. Every read goes through `read`, which
// checks what any answer must satisfy: a length within the file, a
// terminating zero, and a buffer no larger than the file could fill. Then
// which memo file a table takes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <random>
#include <tuple>
#include <string>

#include "memo/dbt_rw.h"
#include "memo/fpt_rw.h"
#include "memo_files.h"
#include "qzk_file_dbf.h"
#include "test_support.h"

using namespace memo_test;

namespace {

constexpr unsigned kText = 0x01000000u;  // type 1 of the file, reported unswapped
const std::string kNull = "<null>";

template <class R>
std::string read(R& r, unsigned int block, size_t file_size, unsigned int* type_out = nullptr) {
    unsigned int len = 12345, type = 12345;
    const char* m = r.get_memo(block, len, type);
    if (type_out) *type_out = type;
    EXPECT_LE(r.get_buff_size(), std::max<int32_t>(1024, static_cast<int32_t>(file_size) + 1))
        << "block " << block;
    if (!m) {
        EXPECT_EQ(len, 0u) << "block " << block;
        return kNull;
    }
    EXPECT_LE(len, file_size) << "block " << block;
    EXPECT_LT(static_cast<int32_t>(len), r.get_buff_size());
    EXPECT_EQ(m[len], 0) << "block " << block;
    return std::string(m, len);
}

const unsigned int hostile_blocks[] = {
    0, 1, 2, 7, 8, 63, 64, 1000, 0x00FFFFFF, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFE, 0xFFFFFFFF};

// A block, what it reads as (kNull for no memo) and the type reported.
// clang-format off
struct Case { unsigned int block; std::string memo; unsigned int type; };
// clang-format on

template <class R>
void check(R& r, const std::vector<Case>& cases, size_t file_size) {
    for (const Case& c : cases) {
        unsigned int type = 0;
        EXPECT_EQ(read(r, c.block, file_size, &type), c.memo) << "block " << c.block;
        EXPECT_EQ(type, c.type) << "block " << c.block;
    }
}

TEST(MemoReaders, FptBlocksReadAsWrittenDbtMemosToTheTerminator) {
    qz_test::Temp_dir dir;
    auto file = fpt_file(64, 40);
    fpt_put(file, 64, 8, 1, "hello");
    fpt_put(file, 64, 9, 0, std::string("p\0q\xFFr", 5));
    fpt_put(file, 64, 10, 2, "ole");
    fpt_put(file, 64, 11, 1, "");
    fpt_put(file, 64, 12, 1, pattern(3000));
    fpt_put(file, 64, 60, 1, "only this much", 0xFFFFFFFF);
    file.resize(61 * 64 + 4, 0);  // block 61's header is cut short
    qz_test::write_bytes(dir.file("m.fpt"), file);

    Tqz_fpt_rw r;
    EXPECT_EQ(r.get_buff_size(), 1024);
    ASSERT_EQ(r.open(dir.wfile("m.fpt").c_str(), true), 0);
    EXPECT_EQ(r.get_file_hdr().block_size, 64) << "kept in host order";
    check(r,
          {
              {8, "hello", kText},
              {9, std::string("p\0q\xFFr", 5), 0},  // a picture: zero bytes kept
              {10, "ole", 0x02000000u},
              {11, "", kText},  // empty, not a failure
              {12, pattern(3000), kText},
              // A length field past the end of the file reads the rest of the file.
              {60, "only this much" + std::string(46, '\0'), kText},
              {61, kNull, 0},
              {1000000, kNull, 0},
          },
          file.size());
    EXPECT_EQ(r.get_buff_size(), 3001) << "grown to exactly len + 1, never shrunk";
    auto at_end = fpt_file(64);
    fpt_put(at_end, 64, 8, 1, "", 0x7FFFFFF0);  // a header and nothing after it
    qz_test::write_bytes(dir.file("end.fpt"), at_end);
    Tqz_fpt_rw e;
    ASSERT_EQ(e.open(dir.wfile("end.fpt").c_str(), true), 0);
    EXPECT_EQ(read(e, 8, at_end.size()), "");
    Tfpt_block_hdr bh;
    ASSERT_TRUE(r.read_block_hdr(8, &bh));
    EXPECT_EQ(bh.length, 0x05000000u) << "a block header as in the file";
    EXPECT_FALSE(r.read_block_hdr(61, &bh));

    // Other block sizes, negative ones and 0 (every block is the file header).
    const std::tuple<uint16_t, unsigned, std::string> sizes[] = {
        {512, 3, "at 3"},   {1, 600, "at 600"}, {0x8000, 1, kNull},
        {0xFFFF, 1, kNull}, {0xFE00, 1, kNull}, {0, 5, std::string(504, '\0')}};
    for (const auto& [bs, block, memo] : sizes) {
        auto f = fpt_file(bs, 1);
        if (bs == 0) f[4] = f[5] = 0xFF;  // read as the memo length FFFF0000
        if (memo != kNull && bs) fpt_put(f, bs, block, 1, memo);
        if (bs) f.resize(std::max<size_t>(f.size(), 4096), 'x');
        qz_test::write_bytes(dir.file("b.fpt"), f);
        Tqz_fpt_rw rb;
        ASSERT_EQ(rb.open(dir.wfile("b.fpt").c_str(), false), 0) << "rb+ opens too";
        EXPECT_EQ(rb.get_file_hdr().block_size, static_cast<int16_t>(bs));
        const std::string got = read(rb, block, f.size());
        EXPECT_EQ(got.substr(0, memo.size()), memo) << "block size " << bs;
        for (unsigned int b : hostile_blocks) read(rb, b, f.size());
    }

    // DBT memos run to the terminator, within 64 KiB.
    auto dbt = dbt_file(400);
    put(dbt, 1 * 512, "short\x1A\x1A");
    put(dbt, 3 * 512, pattern(700) + "\x1A");  // across two chunks
    put(dbt, 5 * 512, "\x1A");
    put(dbt, 6 * 512, pattern(512) + "\x1A");  // terminator opens chunk 2
    put(dbt, 10 * 512, pattern(65535) + "\x1A");
    put(dbt, 140 * 512, pattern(65536) + "\x1A");
    put(dbt, 270 * 512, pattern(70000, 'A') + "\x1A");
    put(dbt, 420 * 512, "tail without terminator");
    qz_test::write_bytes(dir.file("m.dbt"), dbt);
    Tqz_dbt_rw d;
    ASSERT_EQ(d.open(dir.wfile("m.dbt").c_str(), true), 0);
    EXPECT_EQ(d.get_file_hdr().bytes[0], 400 % 256);
    check(d,
          {
              {1, "short", 1},
              {3, pattern(700), 1},
              {4, pattern(700).substr(512), 1},  // a block inside a memo starts one of its own
              {5, kNull, 1},                     // empty reads as none, terminator found
              {6, pattern(512), 1},
              {10, pattern(65535), 1},
              {140, kNull, 0},  // terminator past the first 64 KiB
              {270, kNull, 0},
              {420, kNull, 0},           // end of file first
              {0x00800001, "short", 1},  // the offset wraps in 32 bits to block 1
              {0x007FFFFF, kNull, 0},
          },
          dbt.size());
    EXPECT_EQ(d.get_buff_size(), 65536);
}

// Random, short and empty files, opened through the reader exports (wide and
// narrow names by turns): the headers read are the file's bytes with zeros
// where it ends, and reads with any block number stay inside the file and the
// buffer (the sanitizer build checks the rest).
TEST(MemoReader, RandomAndShortFilesSurvive) {
    qz_test::Temp_dir dir;
    std::mt19937 rng(20240611);
    for (int round = 0; round < 160; ++round) {
        std::vector<uint8_t> bytes(
            round >= 150 ? std::vector<size_t>{0, 1, 7, 300, 511}[round % 5] : rng() % 6000, 0x1A);
        for (auto& b : bytes)
            if (round < 150 && rng() % 4) b = static_cast<uint8_t>(rng());
        if (bytes.size() >= 8 && round % 2 == 0) bytes[6] = 0, bytes[7] = 1 + rng() % 64;
        qz_test::write_bytes(dir.file("r.fpt"), bytes);
        qz_test::write_bytes(dir.file("r.dbt"), bytes);
        Tqz_fpt_rw* f = round % 2 ? qz_fpt_open(dir.file("r.fpt").c_str(), true)
                                  : qz_fpt_open_w(dir.wfile("r.fpt").c_str(), true);
        Tqz_dbt_rw* d = round % 2 ? qz_dbt_open_w(dir.wfile("r.dbt").c_str(), true)
                                  : qz_dbt_open(dir.file("r.dbt").c_str(), true);
        ASSERT_TRUE(f && d);
        std::vector<uint8_t> header(bytes.begin(),
                                    bytes.begin() + std::min<size_t>(512, bytes.size()));
        header.resize(512, 0);
        EXPECT_EQ(std::vector<uint8_t>(d->get_file_hdr().bytes, d->get_file_hdr().bytes + 512),
                  header);
        EXPECT_EQ(f->get_file_hdr().block_size, static_cast<int16_t>(header[6] << 8 | header[7]));
        for (int k = 0; k < 40; ++k) {
            unsigned int block = k < 13 ? hostile_blocks[k] : k < 26 ? rng() % 128 : rng();
            read(*f, block, bytes.size());
            read(*d, block, bytes.size());
        }
        unsigned int len = 0, type = 0;  // the reader exports read as the readers do
        EXPECT_EQ(qz_fpt_get_memo(f, 8, &len, &type) == nullptr,
                  read(*f, 8, bytes.size()) == kNull);
        EXPECT_EQ(qz_dbt_get_memo(d, 1, &len, &type) == nullptr,
                  read(*d, 1, bytes.size()) == kNull);
        qz_fpt_close(f);
        qz_dbt_close(d);
    }
}

// The memo files of a disk table: which file open takes (by version byte,
// found without regard to letter case), and the memo of a cell through the
// table's export.

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
