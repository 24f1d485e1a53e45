// Typed writes to dBASE 7 tables. No other reader at hand reads these
// tables, so the corpus is the reference: every I, O and @ cell written
// back with the value read from it must leave the file byte for byte as it
// was, new values must read back and keep the byte order that sorts them,
// and memos written to a dBASE 7 .dbt carry the block header its own
// memos carry.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

std::string corpus(const char* rel) {
    return std::string(QZ_CORPUS_DIR) + "/" + rel;
}

size_t le16(const std::vector<uint8_t>& b, size_t at) {
    return b[at] | b[at + 1] << 8;
}

// The bytes of cell (field at `offset`, `width` wide) of `record`.
std::vector<uint8_t> cell_bytes(const std::vector<uint8_t>& file, unsigned record, size_t offset,
                                size_t width) {
    const size_t at = le16(file, 8) + le16(file, 10) * record + offset;
    return std::vector<uint8_t>(file.begin() + at, file.begin() + at + width);
}

// The type letters of a dBASE 7 table's 48-byte descriptors.
std::string dbase7_letters(const std::vector<uint8_t>& file) {
    std::string out;
    for (size_t at = 68; at + 48 <= file.size() && file[at] != 0x0D; at += 48)
        out.push_back(static_cast<char>(file[at + 32]));
    return out;
}

bool same_value(const Tqz_dbf_value& a, const Tqz_dbf_value& b) {
    if (a.kind != b.kind) return false;
    if (a.kind == QZ_DBF_VALUE_DOUBLE)
        return std::memcmp(&a.d, &b.d, sizeof a.d) == 0;  // -0.0 stays -0.0
    return a.i == b.i;
}

// Every I, O and @ cell of the dBASE 7 corpus tables written back with the
// value read from it (nulls as null): the file must not change.
TEST(Dbase7Write, CorpusCellsWrittenBackLeaveTheFileUnchanged) {
    const char* tables[] = {"php-xbase/dBase/dBaseVII.dbf",
                            "php-xbase/dBase/dBaseVII_int.dbf",
                            "php-xbase/dBase/dBaseVII_double.dbf",
                            "php-xbase/dBase/dBaseVII_ts.dbf",
                            "javadbf/inventory.dbf",
                            "javadbf/bug-102/bug102.dbf"};
    unsigned written = 0, nulls = 0;
    for (const char* rel : tables) {
        SCOPED_TRACE(rel);
        qz_test::Temp_dir dir;
        const std::string path = qz_test::copy_with_companions(corpus(rel), dir.path());
        const std::vector<uint8_t> before = qz_test::read_bytes(path);
        Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), 0);
        ASSERT_NE(t, nullptr) << qz_dbf_last_error_message();
        const std::string letters = dbase7_letters(before);
        ASSERT_EQ(letters.size(), qz_dbf_get_nf(t));
        const unsigned nr = qz_dbf_get_nr(t);
        for (unsigned f = 0; f < letters.size(); ++f) {
            if (!std::strchr("IO@", letters[f])) continue;
            for (unsigned r = 0; r < nr; ++r) {
                Tqz_dbf_value v;
                ASSERT_TRUE(qz_dbf_get_value(t, f, r, &v));
                ASSERT_TRUE(qz_dbf_set_value(t, f, r, &v))
                    << "field " << f << " record " << r << ": " << qz_dbf_last_error_message();
                Tqz_dbf_value back;
                ASSERT_TRUE(qz_dbf_get_value(t, f, r, &back));
                EXPECT_TRUE(same_value(v, back)) << "field " << f << " record " << r;
                ++written;
                nulls += v.kind == QZ_DBF_VALUE_NULL;
            }
        }
        qz_dbf_close(t);
        EXPECT_TRUE(qz_test::read_bytes(path) == before);
    }
    EXPECT_GT(written, 100u);
    EXPECT_GT(nulls, 0u);  // the empty cells (zeros) are among them
}

// New values: each reads back, and the images of a field sort (as bytes)
// in the order of their values, as dBASE 7 keeps them. Refused values
// leave the cell as it was; + is the table's own.
TEST(Dbase7Write, NewValuesReadBackInOrderAndRefusalsKeepTheCell) {
    qz_test::Temp_dir dir;
    const std::string path =
        qz_test::copy_with_companions(corpus("php-xbase/dBase/dBaseVII.dbf"), dir.path());
    Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), 0);
    ASSERT_NE(t, nullptr);
    const unsigned f_int = qz_dbf_find_field_index_w(t, L"INTEGER"),
                   f_ts = qz_dbf_find_field_index_w(t, L"DATETIME"),
                   f_auto = qz_dbf_find_field_index_w(t, L"AUTO_INC");
    ASSERT_LT(f_int, qz_dbf_get_nf(t));
    ASSERT_LT(f_ts, qz_dbf_get_nf(t));
    const size_t off_int = qz_dbf_get_field_offset(t, f_int),
                 off_ts = qz_dbf_get_field_offset(t, f_ts);

    const long long ints[] = {std::numeric_limits<int32_t>::min() + 1, -65536, -1, 0, 1, 255,
                              std::numeric_limits<int32_t>::max()};
    // 0001-01-01, 1601-01-01, 1969-12-31T23:59:59.999, 1970-01-01,
    // 2020-02-20T20:20:20.123, 9999-12-31T23:59:59.999, the last millisecond
    // the double holds exactly (2^53 since day 1).
    const long long stamps[] = {-62135596800000LL, -11644473600000LL, -1, 0, 1582230020123LL,
                                253402300799999LL, 8945063571540992LL};
    // Writes each value, reads it back, and gives the cell's bytes on disk.
    auto written = [&](unsigned field, unsigned record, size_t offset, size_t width, int kind,
                       const long long* values, size_t count) {
        std::vector<std::vector<uint8_t>> images;
        for (size_t k = 0; k < count; ++k) {
            Tqz_dbf_value v{kind, values[k], 0.0, nullptr, 0};
            EXPECT_TRUE(qz_dbf_set_value(t, field, record, &v)) << qz_dbf_last_error_message();
            Tqz_dbf_value back;
            EXPECT_TRUE(qz_dbf_get_value(t, field, record, &back));
            EXPECT_EQ(back.kind, kind);
            EXPECT_EQ(back.i, values[k]);
            qz_dbf_flush(t);
            images.push_back(cell_bytes(qz_test::read_bytes(path), record, offset, width));
        }
        return images;
    };
    std::vector<std::vector<uint8_t>> images =
        written(f_int, 0, off_int, 4, QZ_DBF_VALUE_INT, ints, std::size(ints));
    EXPECT_TRUE(std::is_sorted(images.begin(), images.end()));
    EXPECT_EQ(images[3], (std::vector<uint8_t>{0x80, 0, 0, 0}));  // 0 is no empty cell
    images = written(f_ts, 1, off_ts, 8, QZ_DBF_VALUE_DATETIME, stamps, std::size(stamps));
    EXPECT_TRUE(std::is_sorted(images.begin(), images.end()));
    // A date is its midnight; null is the empty cell (zeros).
    Tqz_dbf_value date{QZ_DBF_VALUE_DATE, 20200220, 0.0, nullptr, 0}, back;
    ASSERT_TRUE(qz_dbf_set_value(t, f_ts, 1, &date));
    ASSERT_TRUE(qz_dbf_get_value(t, f_ts, 1, &back));
    EXPECT_EQ(back.i, 1582156800000LL);
    Tqz_dbf_value null{QZ_DBF_VALUE_NULL, 0, 0.0, nullptr, 0};
    ASSERT_TRUE(qz_dbf_set_value(t, f_int, 2, &null));
    ASSERT_TRUE(qz_dbf_get_value(t, f_int, 2, &back));
    EXPECT_EQ(back.kind, QZ_DBF_VALUE_NULL);
    qz_dbf_flush(t);
    EXPECT_EQ(cell_bytes(qz_test::read_bytes(path), 2, off_int, 4), std::vector<uint8_t>(4, 0));

    // Refusals: out of range, before day 1, the wrong kind, autoincrement.
    qz_dbf_flush(t);
    const std::vector<uint8_t> kept = qz_test::read_bytes(path);
    // The smallest integer's image would be all zeros, the empty cell.
    const Tqz_dbf_value refused[] = {{QZ_DBF_VALUE_INT, 1LL << 31, 0.0, nullptr, 0},
                                     {QZ_DBF_VALUE_INT, -(1LL << 31), 0.0, nullptr, 0},
                                     {QZ_DBF_VALUE_BYTES, 0, 0.0, "12", 2},
                                     {QZ_DBF_VALUE_DATETIME, -62135596800001LL, 0.0, nullptr, 0},
                                     {QZ_DBF_VALUE_DATETIME, 8945063571540993LL, 0.0, nullptr, 0},
                                     {QZ_DBF_VALUE_INT, 9, 0.0, nullptr, 0}};
    const unsigned refused_field[] = {f_int, f_int, f_int, f_ts, f_ts, f_auto};
    static_assert(sizeof refused / sizeof refused[0] == sizeof refused_field / sizeof(unsigned));
    for (size_t k = 0; k < sizeof refused_field / sizeof(unsigned); ++k) {
        EXPECT_FALSE(qz_dbf_set_value(t, refused_field[k], 0, &refused[k])) << k;
        EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_VALUE) << k;
    }
    qz_dbf_flush(t);
    EXPECT_TRUE(qz_test::read_bytes(path) == kept);
    qz_dbf_close(t);
}

// dBASE 7 O fields: doubles of both signs, zeros and extremes read back
// bit for bit, and their images sort as the numbers.
TEST(Dbase7Write, DoublesKeepEveryBitAndSortAsNumbers) {
    qz_test::Temp_dir dir;
    const std::string path =
        qz_test::copy_with_companions(corpus("php-xbase/dBase/dBaseVII_double.dbf"), dir.path());
    Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), 0);
    ASSERT_NE(t, nullptr);
    const double values[] = {
        -std::numeric_limits<double>::max(),       -1e10, -1.5, -1e-300, -0.0, 0.0,
        std::numeric_limits<double>::denorm_min(), 0.1,   2.5,  1e300};
    std::vector<std::vector<uint8_t>> images;
    for (double d : values) {
        Tqz_dbf_value v{QZ_DBF_VALUE_DOUBLE, 0, d, nullptr, 0}, back;
        ASSERT_TRUE(qz_dbf_set_value(t, 0, 0, &v)) << qz_dbf_last_error_message();
        ASSERT_TRUE(qz_dbf_get_value(t, 0, 0, &back));
        EXPECT_TRUE(same_value(v, back)) << d << " read back as " << back.d;
        qz_dbf_flush(t);
        images.push_back(cell_bytes(qz_test::read_bytes(path), 0, 1, 8));
    }
    EXPECT_TRUE(std::is_sorted(images.begin(), images.end()));
    Tqz_dbf_value inf{QZ_DBF_VALUE_DOUBLE, 0, std::numeric_limits<double>::infinity(), nullptr, 0};
    EXPECT_FALSE(qz_dbf_set_value(t, 0, 0, &inf));
    qz_dbf_close(t);
}

// A memo written to a dBASE 7 table goes to the end of its .dbt with the
// block header its own memos have (FF FF 08 00, then the length counting
// those 8 bytes), moves the next-free-block number, and reads back; the
// other memos stay as they were.
TEST(Dbase7Write, MemosCarryTheirBlockHeader) {
    qz_test::Temp_dir dir;
    const std::string path =
        qz_test::copy_with_companions(corpus("php-xbase/dBase/dBaseVII.dbf"), dir.path());
    const std::string memo_path = path.substr(0, path.size() - 4) + ".dbt";
    const std::vector<uint8_t> memo_before = qz_test::read_bytes(memo_path);
    Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), 0);
    ASSERT_NE(t, nullptr);
    const unsigned bio = qz_dbf_find_field_index_w(t, L"BIO");
    ASSERT_LT(bio, qz_dbf_get_nf(t));
    Tqz_dbf_value old1;
    ASSERT_TRUE(qz_dbf_get_value(t, bio, 1, &old1));
    const std::string keep1(old1.text, old1.length);
    const std::string text = std::string(600, 'x') + "\r\nend";
    Tqz_dbf_value v{QZ_DBF_VALUE_TEXT, 0, 0.0, text.c_str(), text.size()}, back;
    ASSERT_TRUE(qz_dbf_set_value(t, bio, 0, &v)) << qz_dbf_last_error_message();
    ASSERT_TRUE(qz_dbf_get_value(t, bio, 0, &back));
    EXPECT_EQ(std::string(back.text, back.length), text);
    ASSERT_TRUE(qz_dbf_get_value(t, bio, 1, &back));
    EXPECT_EQ(std::string(back.text, back.length), keep1);
    qz_dbf_close(t);

    const std::vector<uint8_t> memo = qz_test::read_bytes(memo_path);
    const size_t old_blocks = (memo_before.size() + 511) / 512;
    ASSERT_EQ(memo.size(), (old_blocks + 2) * 512);  // 8 + 605 bytes: two blocks
    const size_t at = old_blocks * 512;
    EXPECT_EQ(std::vector<uint8_t>(memo.begin() + at, memo.begin() + at + 4),
              (std::vector<uint8_t>{0xFF, 0xFF, 0x08, 0x00}));
    EXPECT_EQ(memo[at + 4] | memo[at + 5] << 8 | memo[at + 6] << 16, 8 + 605);
    EXPECT_EQ(std::string(memo.begin() + at + 8, memo.begin() + at + 8 + text.size()), text);
    EXPECT_EQ(memo[0] | memo[1] << 8 | memo[2] << 16, old_blocks + 2);
    // Past the next-free-block number, the old blocks are untouched.
    EXPECT_TRUE(std::equal(memo_before.begin() + 4, memo_before.end(), memo.begin() + 4));
}

}  // namespace
