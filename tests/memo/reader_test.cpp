// The FPT and DBT readers on hand-built files: block arithmetic, the memo
// types, buffer growth, the 64 KiB DBT limit, and the exports over them.
#include <gtest/gtest.h>

#include <string>

#include "memo/dbt_rw.h"
#include "memo/fpt_rw.h"
#include "memo_files.h"
#include "qzk_file_dbf.h"
#include "test_support.h"

using namespace memo_test;

namespace {

// `len` by reference: it is read after the get_memo call in the same argument list.
std::string memo(const char* p, const unsigned int& len) {
    return p ? std::string(p, len) : std::string("<null>");
}

TEST(FptReader, BlockSizeOffsetsTypesAndLengths) {
    qz_test::Temp_dir dir;
    auto file = fpt_file(64, 40);
    fpt_put(file, 64, 8, 1, "hello");                      // offset 512
    fpt_put(file, 64, 9, 0, std::string("p\0q\xFFr", 5));  // picture, binary bytes
    fpt_put(file, 64, 10, 2, "ole");                       // another type, passed on
    fpt_put(file, 64, 11, 1, "");                          // an empty memo
    fpt_put(file, 64, 12, 1, pattern(3000));               // longer than the first buffer
    qz_test::write_bytes(dir.file("m.fpt"), file);

    Tqz_fpt_rw r;
    EXPECT_EQ(r.get_buff_size(), 1024);
    ASSERT_EQ(r.open(dir.wfile("m.fpt").c_str(), true), 0);
    EXPECT_EQ(r.get_file_hdr().block_size, 64) << "kept swapped to host order";

    unsigned int len = 99, type = 99;
    const char* m = r.get_memo(8, len, type);
    EXPECT_EQ(memo(m, len), "hello");
    EXPECT_EQ(len, 5u);
    EXPECT_EQ(type, 16777216u) << "type 1 is reported unswapped";
    EXPECT_EQ(m[len], 0);

    m = r.get_memo(9, len, type);
    EXPECT_EQ(memo(m, len), std::string("p\0q\xFFr", 5)) << "embedded zero bytes are kept";
    EXPECT_EQ(type, 0u);
    m = r.get_memo(10, len, type);
    EXPECT_EQ(memo(m, len), "ole");
    EXPECT_EQ(type, 0x02000000u);
    m = r.get_memo(11, len, type);
    ASSERT_NE(m, nullptr) << "an empty FPT memo is an empty text, not a failure";
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(m[0], 0);
    EXPECT_EQ(r.get_buff_size(), 1024) << "the buffer does not shrink";

    m = r.get_memo(12, len, type);
    EXPECT_EQ(memo(m, len), pattern(3000));
    EXPECT_EQ(r.get_buff_size(), 3001) << "grown to exactly len + 1";
    r.get_memo(8, len, type);
    EXPECT_EQ(r.get_buff_size(), 3001) << "and kept for smaller memos";

    // The reader's own headers: read_file_hdr swaps the block size, a block
    // header is returned as in the file.
    Tfpt_file_hdr fh;
    EXPECT_TRUE(r.read_file_hdr(&fh));
    EXPECT_EQ(fh.block_size, 64);
    Tfpt_block_hdr bh;
    ASSERT_TRUE(r.read_block_hdr(8, &bh));
    EXPECT_EQ(bh.type, 0x01000000u);
    EXPECT_EQ(bh.length, 0x05000000u);

    // Block size 512, the FoxPro default, and block size 1.
    for (uint16_t bs : {512, 1}) {
        auto f2 = fpt_file(bs);
        uint32_t block = bs == 1 ? 600 : 3;
        fpt_put(f2, bs, block, 1, "at " + std::to_string(block));
        qz_test::write_bytes(dir.file("b.fpt"), f2);
        Tqz_fpt_rw r2;
        ASSERT_EQ(r2.open(dir.wfile("b.fpt").c_str(), false), 0) << "rb+ opens too";
        EXPECT_EQ(memo(r2.get_memo(block, len, type), len), "at " + std::to_string(block)) << bs;
    }
}

TEST(DbtReader, TerminatorChunksAndTheSixtyFourKibLimit) {
    qz_test::Temp_dir dir;
    auto file = dbt_file(400);
    dbt_put(file, 1, "short\x1A\x1A");
    dbt_put(file, 3, pattern(700) + "\x1A");           // across two chunks
    dbt_put(file, 5, "\x1A");                          // empty memo
    dbt_put(file, 6, pattern(512) + "\x1A");           // terminator opens chunk 2
    dbt_put(file, 10, pattern(65535) + "\x1A");        // ends in the 128th chunk
    dbt_put(file, 140, pattern(65536) + "\x1A");       // terminator in the 129th chunk
    dbt_put(file, 270, pattern(70000, 'A') + "\x1A");  // 70,000 bytes
    dbt_put(file, 420, "tail without terminator");
    qz_test::write_bytes(dir.file("m.dbt"), file);

    Tqz_dbt_rw r;
    ASSERT_EQ(r.open(dir.wfile("m.dbt").c_str(), true), 0);
    EXPECT_EQ(r.get_file_hdr().bytes[0], 400 % 256) << "header read whole, as in the file";

    unsigned int len = 99, type = 99;
    const char* m = r.get_memo(1, len, type);
    EXPECT_EQ(memo(m, len), "short");
    EXPECT_EQ(type, 1u);
    EXPECT_EQ(m[len], 0);

    m = r.get_memo(3, len, type);
    EXPECT_EQ(len, 700u);
    EXPECT_EQ(type, 1u);
    EXPECT_EQ(memo(m, len), pattern(700));

    EXPECT_EQ(r.get_memo(5, len, type), nullptr) << "an empty memo reads as none";
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(type, 1u) << "the terminator was found all the same";

    EXPECT_EQ(memo(r.get_memo(6, len, type), len), pattern(512));
    EXPECT_EQ(len, 512u);

    m = r.get_memo(10, len, type);
    EXPECT_EQ(len, 65535u);
    EXPECT_EQ(memo(m, len), pattern(65535));
    EXPECT_EQ(r.get_buff_size(), 65536);

    EXPECT_EQ(r.get_memo(140, len, type), nullptr) << "terminator past the first 64 KiB";
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(type, 0u);
    EXPECT_EQ(r.get_memo(270, len, type), nullptr) << "70,000 bytes";
    EXPECT_EQ(r.get_memo(420, len, type), nullptr) << "end of file before any terminator";
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(r.get_buff_size(), 65536) << "failed reads leave the buffer alone";

    // A block right inside a longer memo starts a memo of its own there.
    EXPECT_EQ(memo(r.get_memo(4, len, type), len), pattern(700).substr(512));
}

TEST(MemoReader, BufferSizeCloseAndReopen) {
    qz_test::Temp_dir dir;
    auto file = fpt_file(16);
    fpt_put(file, 16, 32, 1, "memo text");
    qz_test::write_bytes(dir.file("m.fpt"), file);

    Tqz_fpt_rw r;
    r.set_buff_size(-5);
    EXPECT_EQ(r.get_buff_size(), 0) << "negative counts as 0";
    ASSERT_EQ(r.open(dir.wfile("m.fpt").c_str(), true), 0);
    unsigned int len = 0, type = 0;
    EXPECT_EQ(memo(r.get_memo(32, len, type), len), "memo text") << "grows from nothing";
    EXPECT_EQ(r.get_buff_size(), 10);
    r.set_buff_size(4);
    EXPECT_EQ(r.get_buff_size(), 4);
    EXPECT_EQ(memo(r.get_memo(32, len, type), len), "memo text");

    r.close();
    EXPECT_FALSE(r.is_open());
    EXPECT_EQ(r.get_buff_size(), 0);
    EXPECT_EQ(r.get_memo(32, len, type), nullptr) << "a closed reader reads nothing";
    EXPECT_EQ(len, 0u);

    // Reopening the same object works, also on another file.
    ASSERT_EQ(r.open(dir.file("m.fpt").c_str(), true), 0) << "narrow path";
    EXPECT_EQ(memo(r.get_memo(32, len, type), len), "memo text");
    EXPECT_EQ(r.open(dir.wfile("missing.fpt").c_str(), true), 1);
    EXPECT_EQ(r.open(dir.wfile("").c_str(), true), 1);
    EXPECT_EQ(r.open(qz_test::widen(dir.path()).c_str(), true), 1) << "a folder never opens";
    Tqz_dbt_rw d;
    EXPECT_EQ(d.open(static_cast<const char*>(nullptr), true), 1);
}

TEST(MemoExports, OpenReadCloseFromTheFlatInterface) {
    qz_test::Temp_dir dir;
    auto fpt = fpt_file(64);
    fpt_put(fpt, 64, 8, 1, "hello");
    qz_test::write_bytes(dir.file("m.fpt"), fpt);
    auto dbt = dbt_file();
    dbt_put(dbt, 2, pattern(700) + "\x1A");
    qz_test::write_bytes(dir.file("m.dbt"), dbt);

    Tqz_fpt_rw* f = qz_fpt_open_w(dir.wfile("m.fpt").c_str(), true);
    ASSERT_NE(f, nullptr);
    unsigned int len = 0, type = 0;
    const char* m = qz_fpt_get_memo(f, 8, &len, &type);
    EXPECT_EQ(memo(m, len), "hello");
    EXPECT_EQ(type, 16777216u);
    EXPECT_EQ(qz_fpt_get_memo(f, 1000, &len, &type), nullptr);
    EXPECT_EQ(len, 0u);
    EXPECT_NE(qz_fpt_get_memo(f, 8, nullptr, nullptr), nullptr) << "counts may be left out";
    qz_fpt_close(f);

    Tqz_fpt_rw* narrow = qz_fpt_open(dir.file("m.fpt").c_str(), false);
    ASSERT_NE(narrow, nullptr);
    EXPECT_EQ(memo(qz_fpt_get_memo(narrow, 8, &len, &type), len), "hello");
    qz_fpt_close(narrow);

    Tqz_dbt_rw* d = qz_dbt_open_w(dir.wfile("m.dbt").c_str(), false);
    ASSERT_NE(d, nullptr);
    m = qz_dbt_get_memo(d, 2, &len, &type);
    EXPECT_EQ(len, 700u);
    EXPECT_EQ(type, 1u);
    EXPECT_EQ(memo(m, len), pattern(700));
    qz_dbt_close(d);
    d = qz_dbt_open(dir.file("m.dbt").c_str(), true);
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(memo(qz_dbt_get_memo(d, 2, &len, &type), len), pattern(700));
    qz_dbt_close(d);

    EXPECT_EQ(qz_fpt_open_w(dir.wfile("none.fpt").c_str(), true), nullptr);
    EXPECT_EQ(qz_dbt_open(dir.file("none.dbt").c_str(), true), nullptr);
    EXPECT_EQ(qz_dbt_open_w(qz_test::widen(dir.path()).c_str(), true), nullptr);
    EXPECT_EQ(qz_fpt_open(nullptr, true), nullptr);
    qz_fpt_close(nullptr);
    qz_dbt_close(nullptr);
    len = type = 7;
    EXPECT_EQ(qz_fpt_get_memo(nullptr, 8, &len, &type), nullptr);
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(qz_dbt_get_memo(nullptr, 2, &len, &type), nullptr);
}

}  // namespace
