// Broken memo files: zero and negative block sizes, blocks past the end,
// absurd length fields, truncated headers and random bytes. Each read stays
// inside the file and the reader never holds more memory than the file
// could fill (its buffer stays at the first 1024 bytes or the file size + 1).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>

#include "memo/dbt_rw.h"
#include "memo/fpt_rw.h"
#include "memo_files.h"
#include "qzk_file_dbf.h"
#include "test_support.h"

using namespace memo_test;

namespace {

// Reads `block` and checks what any answer must satisfy: a result within
// the file, zero-terminated, and a buffer no larger than the file needs.
template <class R>
void read_checked(R& r, unsigned int block, size_t file_size) {
    unsigned int len = 12345, type = 0;
    const char* m = r.get_memo(block, len, type);
    const int32_t bound = std::max<int32_t>(1024, static_cast<int32_t>(file_size) + 1);
    EXPECT_LE(r.get_buff_size(), bound) << "block " << block;
    if (!m) {
        EXPECT_EQ(len, 0u) << "block " << block;
        return;
    }
    EXPECT_LE(len, file_size) << "block " << block;
    ASSERT_LT(static_cast<int32_t>(len), r.get_buff_size());
    EXPECT_EQ(m[len], 0);
}

const unsigned int hostile_blocks[] = {
    0, 1, 2, 7, 8, 63, 64, 1000, 0x00FFFFFF, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFE, 0xFFFFFFFF};

TEST(FptBadInput, AbsurdLengthsAreCutToTheFile) {
    qz_test::Temp_dir dir;
    auto file = fpt_file(64);
    fpt_put(file, 64, 8, 1, "only this much", 0xFFFFFFFF);
    fpt_put(file, 64, 9, 1, "and this", 0x7FFFFFFF);
    fpt_put(file, 64, 10, 1, "tail", 0x80000000);
    qz_test::write_bytes(dir.file("m.fpt"), file);
    const size_t size = file.size();

    Tqz_fpt_rw r;
    ASSERT_EQ(r.open(dir.wfile("m.fpt").c_str(), true), 0);
    unsigned int len = 0, type = 0;
    const char* m = r.get_memo(10, len, type);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(std::string(m, len), "tail") << "the bytes up to the end of the file";
    EXPECT_EQ(type, 16777216u);
    EXPECT_LE(r.get_buff_size(), 1024);

    // A length of 0xFFFFFFFF: the rest of the file (the memos after it and
    // their headers), never 4 GiB.
    m = r.get_memo(8, len, type);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(len, size - (8 * 64 + 8));
    EXPECT_EQ(std::string(m, 14), "only this much");
    EXPECT_EQ(r.get_buff_size(), 1024) << "the first buffer already holds the whole file";

    // A big file: the bound is the file, not the field.
    auto big = fpt_file(512);
    fpt_put(big, 512, 1, 1, pattern(200000), 0xFFFFFFFF);
    qz_test::write_bytes(dir.file("big.fpt"), big);
    Tqz_fpt_rw rb;
    ASSERT_EQ(rb.open(dir.wfile("big.fpt").c_str(), true), 0);
    m = rb.get_memo(1, len, type);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(std::string(m, len), pattern(200000));
    EXPECT_EQ(rb.get_buff_size(), 200001);
    for (unsigned int b : hostile_blocks) read_checked(rb, b, big.size());

    // Through the export as well.
    Tqz_fpt_rw* h = qz_fpt_open_w(dir.wfile("m.fpt").c_str(), true);
    ASSERT_NE(h, nullptr);
    EXPECT_NE(qz_fpt_get_memo(h, 8, &len, &type), nullptr);
    EXPECT_EQ(len, size - (8 * 64 + 8));
    qz_fpt_close(h);
}

TEST(FptBadInput, BlockSizesAndBlocksPastTheEnd) {
    qz_test::Temp_dir dir;
    unsigned int len = 0, type = 0;

    // Block size 0: every block is the file header read as a memo header.
    auto zero = fpt_file(0, 0x00000001);
    zero[4] = zero[5] = 0xFF;  // the "length" bytes 4..7 read FF FF 00 00
    qz_test::write_bytes(dir.file("zero.fpt"), zero);
    Tqz_fpt_rw z;
    ASSERT_EQ(z.open(dir.wfile("zero.fpt").c_str(), true), 0);
    EXPECT_EQ(z.get_file_hdr().block_size, 0);
    const char* m = z.get_memo(5, len, type);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(type, 16777216u) << "the next-free field as read";
    EXPECT_EQ(len, 512u - 8) << "0xFFFF0000 cut to the file";
    for (unsigned int b : hostile_blocks) read_checked(z, b, zero.size());

    // Block sizes that are negative as signed 16-bit numbers, and a block
    // whose offset wraps in 32 bits.
    for (uint16_t bs : {0x8000, 0xFFFF, 0xFE00}) {
        auto f = fpt_file(bs);
        f.resize(4096, 'x');
        qz_test::write_bytes(dir.file("neg.fpt"), f);
        Tqz_fpt_rw r;
        ASSERT_EQ(r.open(dir.wfile("neg.fpt").c_str(), true), 0);
        EXPECT_EQ(r.get_file_hdr().block_size, static_cast<int16_t>(bs));
        EXPECT_EQ(r.get_memo(1, len, type), nullptr) << "negative offset, bs " << bs;
        EXPECT_EQ(len, 0u);
        EXPECT_EQ(type, 0u);
        for (unsigned int b : hostile_blocks) read_checked(r, b, f.size());
    }

    // Blocks past the end, and a block header cut short by the end of file.
    auto f = fpt_file(64);
    fpt_put(f, 64, 8, 1, "x");
    f.resize(9 * 64 + 4, 0);  // only half of block 9's header is in the file
    qz_test::write_bytes(dir.file("short.fpt"), f);
    Tqz_fpt_rw r;
    ASSERT_EQ(r.open(dir.wfile("short.fpt").c_str(), true), 0);
    EXPECT_EQ(r.get_memo(9, len, type), nullptr) << "header not whole";
    EXPECT_EQ(r.get_memo(1000000, len, type), nullptr);
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(type, 0u);
    m = r.get_memo(8, len, type);
    ASSERT_NE(m, nullptr) << "still reads after failures";
    EXPECT_EQ(std::string(m, len), "x");
}

TEST(MemoBadInput, TruncatedAndEmptyFiles) {
    qz_test::Temp_dir dir;
    unsigned int len = 0, type = 0;
    for (size_t size : {0, 1, 7, 300, 511}) {
        std::vector<uint8_t> bytes(size, 0x1A);
        if (size >= 8) bytes[6] = 0, bytes[7] = 1;  // FPT block size 1 if the header got that far
        qz_test::write_bytes(dir.file("t.fpt"), bytes);
        qz_test::write_bytes(dir.file("t.dbt"), bytes);

        Tqz_fpt_rw f;
        ASSERT_EQ(f.open(dir.wfile("t.fpt").c_str(), true), 0) << "a short header still opens";
        const int expected_bs = size >= 8 ? 1 : size == 7 ? 0x1A00 : 0;
        EXPECT_EQ(f.get_file_hdr().block_size, expected_bs) << "missing bytes read as zeros";
        for (unsigned int b : hostile_blocks) read_checked(f, b, size);

        Tqz_dbt_rw d;
        ASSERT_EQ(d.open(dir.wfile("t.dbt").c_str(), true), 0);
        EXPECT_EQ(d.get_file_hdr().bytes[511], 0) << "the missing part reads as zeros";
        for (unsigned int b : hostile_blocks) read_checked(d, b, size);
        EXPECT_EQ(d.get_memo(1, len, type), nullptr);
        EXPECT_EQ(len, 0u);
    }

    // DBT: a block number whose offset wraps in 32 bits reads from the wrapped
    // offset; one far past the end reads nothing.
    auto dbt = dbt_file();
    dbt_put(dbt, 1, "one\x1A");
    qz_test::write_bytes(dir.file("w.dbt"), dbt);
    Tqz_dbt_rw d;
    ASSERT_EQ(d.open(dir.wfile("w.dbt").c_str(), true), 0);
    const char* m = d.get_memo(0x00800001, len, type);  // (b << 9) mod 2^32 is block 1
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(std::string(m, len), "one");
    EXPECT_EQ(d.get_memo(0x007FFFFF, len, type), nullptr);
    EXPECT_EQ(len, 0u);
}

// Random files and random block numbers: nothing may read or write outside
// a buffer (the sanitizer build checks that), and every answer stays within
// the file.
TEST(MemoBadInput, RandomFilesSurvive) {
    qz_test::Temp_dir dir;
    std::mt19937 rng(20240611);
    for (int round = 0; round < 150; ++round) {
        std::vector<uint8_t> bytes(rng() % 6000);
        for (auto& b : bytes) b = static_cast<uint8_t>(rng() % 4 == 0 ? 0x1A : rng());
        if (bytes.size() >= 8 && round % 2 == 0) {
            bytes[6] = 0;
            bytes[7] = static_cast<uint8_t>(1 + rng() % 64);  // small, plausible block sizes
        }
        qz_test::write_bytes(dir.file("r.fpt"), bytes);
        qz_test::write_bytes(dir.file("r.dbt"), bytes);
        Tqz_fpt_rw f;
        Tqz_dbt_rw d;
        ASSERT_EQ(f.open(dir.wfile("r.fpt").c_str(), true), 0);
        ASSERT_EQ(d.open(dir.wfile("r.dbt").c_str(), true), 0);
        for (int k = 0; k < 40; ++k) {
            unsigned int block = k < 20 ? rng() % 128 : static_cast<unsigned int>(rng());
            read_checked(f, block, bytes.size());
            read_checked(d, block, bytes.size());
        }
    }
}

}  // namespace
