// The disk table's raw record access, checked against the bytes of the file,
// and the record buffer of the memory tables.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "dbf/disk_table.h"
#include "dbf/record.h"
#include "test_support.h"

namespace {

using Bytes = std::vector<uint8_t>;

class Disk_records : public ::testing::Test {
  protected:
    // Two fields, C(10) and N(4); records of 15 bytes after a 97-byte head.
    static constexpr size_t head = 32 + 2 * 32 + 1, rl = 15;

    void SetUp() override {
        path = dir.file("t.dbf");
        Tqz_dbf_field f[2];
        qz_dbf_field_init(&f[0], "TEXT", dbf_ft_char, 10, 0);
        qz_dbf_field_init(&f[1], "NUM", dbf_ft_numeric, 4, 0);
        Tqz_dbf_disk t;
        ASSERT_EQ(t.create(path.c_str(), 2, records, f, false, false), 0);
        t.close();
    }
    void open(bool read_only = false) {
        ASSERT_EQ(table.open(qz_test::widen(path).c_str(), read_only, false, false), 0);
    }
    Bytes file() { return qz_test::read_bytes(path); }
    std::string cell(const Bytes& b, unsigned record, size_t offset, size_t n) {
        size_t at = head + rl * record + offset;
        return std::string(b.begin() + at, b.begin() + at + n);
    }

    unsigned records = 5;
    qz_test::Temp_dir dir;
    std::string path;
    Tqz_dbf_disk table;
};

TEST_F(Disk_records, StringsAreCutAndPaddedAndReadWhole) {
    open();
    table.set_string(0, 1, "AB");
    table.set_string(0, 2, "ABCDEFGHIJKLMNOP");
    table.set_string(1, 2, "");
    EXPECT_STREQ(table.get_string(0, 1), "AB        ");
    EXPECT_STREQ(table.get_string(0, 2), "ABCDEFGHIJ");
    table.close();
    Bytes b = file();
    EXPECT_EQ(cell(b, 1, 1, 10), "AB        ");
    EXPECT_EQ(cell(b, 2, 1, 14), "ABCDEFGHIJ    ");
    EXPECT_EQ(b[head + rl * 2], ' ');  // the deletion flag is not touched
    EXPECT_EQ(b.size(), head + rl * records + 1);
    EXPECT_EQ(b.back(), 0x1A);
}

TEST_F(Disk_records, BinaryValuesAreRawBytesAtTheFieldsPosition) {
    open();
    table.set_string(1, 0, "12");
    // The bytes '1', '2' and the next two (spaces), little-endian.
    EXPECT_EQ(table.get_integer(1, 0), 0x20203231);
    table.set_integer(0, 3, -2);
    table.set_double(0, 4, 1.5);
    table.set_float(1, 4, 0.5f);
    EXPECT_EQ(table.get_integer(0, 3), -2);
    EXPECT_EQ(table.get_double(0, 4), 1.5);
    EXPECT_EQ(table.get_float(1, 4), 0.5f);
    // An 8-byte value in a 4-byte field at the end of the file: what lies
    // past the end reads as zero.
    table.set_string(1, 4, "\x01\x02\x03\x04");
    table.close();
    Bytes b = file();
    EXPECT_EQ(cell(b, 3, 1, 4), std::string("\xFE\xFF\xFF\xFF", 4));
    EXPECT_EQ(cell(b, 4, 1, 8), std::string("\0\0\0\0\0\0\xF8\x3F", 8));
    open();
    const unsigned char tail[8] = {1, 2, 3, 4, 0x1A, 0, 0, 0};
    double expected;
    std::memcpy(&expected, tail, 8);
    EXPECT_EQ(table.get_double(1, 4), expected);
}

TEST_F(Disk_records, AddingRecords) {
    open();
    Bytes before = file();
    table.add_records(0);
    table.flush();
    EXPECT_EQ(file(), before);  // the end byte and the header, both unchanged
    table.add_records(2);
    EXPECT_EQ(table.get_nr(), 7u);
    table.set_string(0, 6, "last");
    table.close();
    Bytes b = file();
    ASSERT_EQ(b.size(), head + rl * 7 + 1);
    EXPECT_EQ(b[4], 7);
    EXPECT_EQ(b.back(), 0x1A);
    EXPECT_EQ(cell(b, 5, 0, rl), std::string(rl, ' '));
    EXPECT_EQ(cell(b, 6, 1, 10), "last      ");
    // The header's date was not refreshed.
    EXPECT_TRUE(std::equal(b.begin(), b.begin() + 4, before.begin()));
}

TEST_F(Disk_records, RecordImagesSpanFromTheFirstFieldToTheNextRecord) {
    open();
    table.set_string(0, 0, "first");
    table.set_string(0, 1, "second");
    table.set_string(0, 4, "fifth");
    table.flush();
    Bytes before = file();
    ASSERT_EQ(table.get_record_size(), rl);
    std::vector<unsigned char> image(rl);
    table.get_record(0, image.data());
    EXPECT_EQ(std::string(image.begin(), image.begin() + 10), "first     ");
    EXPECT_EQ(image[rl - 1], ' ');  // record 1's deletion flag
    table.get_record(4, image.data());
    EXPECT_EQ(image[rl - 1], 0x1A);  // the end-of-file byte
    // Read and written back, every record leaves the file as it was.
    for (unsigned r = 0; r < records; ++r) {
        table.get_record(r, image.data());
        EXPECT_TRUE(table.set_record(r, image.data()));
    }
    table.flush();
    EXPECT_EQ(file(), before);
    // A changed image lands in the right place.
    table.get_record(1, image.data());
    std::memcpy(image.data(), "CHANGED   12  ", 14);
    EXPECT_TRUE(table.set_record(1, image.data()));
    EXPECT_STREQ(table.get_string(0, 1), "CHANGED   ");
    EXPECT_STREQ(table.get_string(1, 1), "12  ");
    EXPECT_FALSE(table.set_record(records, image.data()));
}

TEST_F(Disk_records, FieldNamesGoToTheFile) {
    open();
    table.set_field_name(1, "AMOUNT_TOTAL");
    EXPECT_STREQ(table.get_field_name(1), "AMOUNT_TOT");
    EXPECT_FALSE(table.restruct(nullptr));
    table.close();
    Bytes b = file();
    EXPECT_EQ(std::string(b.begin() + 64, b.begin() + 75), std::string("AMOUNT_TOT\0", 11));
    EXPECT_EQ(b[64 + 11], 'N');
    EXPECT_EQ(b[64 + 12], 11);  // the field's offset in the record
    EXPECT_EQ(b[64 + 16], 4);
}

TEST_F(Disk_records, ReadOnlyTablesAndNewTables) {
    open(true);
    table.set_string(0, 0, "nope");
    table.set_integer(1, 0, 5);
    table.add_records(1);
    EXPECT_STREQ(table.get_string(0, 0), "          ");
    table.close();
    EXPECT_EQ(file().size(), head + rl * records + 1);

    // A table just created takes writes but reads nothing until it is opened
    // again.
    Tqz_dbf_field f;
    qz_dbf_field_init(&f, "TEXT", dbf_ft_char, 10, 0);
    std::wstring fresh = qz_test::widen(dir.file("fresh.dbf"));
    ASSERT_EQ(table.create(fresh.c_str(), 1, 2, &f, false, false), 0);
    table.set_string(0, 1, "written");
    EXPECT_STREQ(table.get_string(0, 1), "");
    EXPECT_EQ(table.get_integer(0, 1), 0);
    table.close();
    ASSERT_EQ(table.open(fresh.c_str(), true, false, false), 0);
    EXPECT_STREQ(table.get_string(0, 1), "written   ");
}

TEST_F(Disk_records, ManyScatteredWritesAllLand) {
    records = 3000;
    SetUp();
    open();
    // Writes and reads in a random order, against a copy kept here.
    std::vector<std::string> want(records, std::string(10, ' '));
    std::mt19937 rng(7);
    for (int i = 0; i < 20000; ++i) {
        unsigned r = rng() % records;
        if (rng() % 3) {
            std::string v = std::to_string(rng() % 100000);
            table.set_string(0, static_cast<int>(r), v.c_str());
            want[r] = v + std::string(10 - v.size(), ' ');
        } else {
            ASSERT_EQ(table.get_string(0, static_cast<int>(r)), want[r]) << r;
        }
    }
    // A reader of its own sees it all once the table is flushed.
    ASSERT_TRUE(table.flush());
    Tqz_dbf_disk reader;
    ASSERT_EQ(reader.open(qz_test::widen(path).c_str(), true, false, false), 0);
    Bytes b = file();
    for (unsigned r = 0; r < records; ++r) {
        EXPECT_EQ(cell(b, r, 1, 10), want[r]) << r;
        EXPECT_EQ(reader.get_string(0, static_cast<int>(r)), want[r]) << r;
    }
}

}  // namespace
