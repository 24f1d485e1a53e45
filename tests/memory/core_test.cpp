// The memory table core: structure made and loaded, raw cells, record
// images, saving, and the lock held while a table is loaded.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "memory/memory_core.h"
#include "memory/records.h"
#include "memory_files.h"
#include "test_support.h"

namespace {

using memory_test::dbf_file;
using memory_test::Field;
using memory_test::field;
using qz_test::Temp_dir;

std::string field_bytes(Tqz_dbf_memory_core& t, int field, int record, size_t n) {
    const unsigned char* rec = t.get_records()->get_ptr(static_cast<unsigned int>(record));
    uint32_t offset = 1;
    for (int f = 0; f < field; ++f) offset += t.get_field_flen(static_cast<unsigned int>(f));
    return std::string(reinterpret_cast<const char*>(rec) + offset, n);
}

TEST(MemoryCore, InitGivesTheOneFieldTableAndSaveWritesItAsHeld) {
    Temp_dir dir;
    Tqz_dbf_memory_core t;
    ASSERT_TRUE(t.init());
    EXPECT_EQ(t.get_nf(), 1u);
    EXPECT_STREQ(t.get_field_name(0), "ID");
    EXPECT_EQ(t.get_field_type(0), dbf_ft_numeric);
    EXPECT_EQ(t.get_field_flen(0), 10);
    EXPECT_EQ(t.get_header_length(), 65);
    EXPECT_EQ(t.get_record_length(), 11);
    EXPECT_EQ(t.get_nr(), 0u);

    ASSERT_TRUE(t.save(dir.file("one.dbf").c_str()));
    std::vector<uint8_t> bytes = qz_test::read_bytes(dir.file("one.dbf"));
    ASSERT_EQ(bytes.size(), 66u) << "header, one descriptor, 0x0D, 0x1A";
    EXPECT_EQ(bytes[0], 3);
    EXPECT_EQ(bytes[32 + 12], 1) << "the descriptor carries its offset as held";
    EXPECT_EQ(bytes[64], 0x0D);
    EXPECT_EQ(bytes[65], 0x1A);
    EXPECT_TRUE(qz_test::exists(dir.file("one.cpg")));
    EXPECT_FALSE(t.save(dir.file("missing/x.dbf").c_str()));
    EXPECT_FALSE(t.save(dir.path().c_str())) << "a folder is not a file";
}

TEST(MemoryCore, RawCellsStoreTextAndBinaryImagesWithinTheirRecord) {
    Tqz_dbf_memory_core t;
    Tqz_dbf_field fields[] = {field("NAME", 'C', 5), field("N", 'I', 4), field("D", 'B', 8),
                              field("TAIL", 'B', 2)};
    ASSERT_TRUE(t.create_new(4, 2, fields, true));
    EXPECT_EQ(t.get_record_length(), 20);
    EXPECT_EQ(t.get_header_length(), 4 * 32 + 33);
    EXPECT_EQ(field_bytes(t, 0, 0, 5), "     ") << "new records are spaces";

    // Short text leaves zero bytes after it; long text is cut.
    t.set_string(0, 0, "AB");
    EXPECT_EQ(field_bytes(t, 0, 0, 5), std::string("AB\0\0\0", 5));
    EXPECT_STREQ(t.get_string(0, 0), "AB");
    t.set_string(0, 1, "ABCDEFGH");
    EXPECT_STREQ(t.get_string(0, 1), "ABCDE");
    EXPECT_EQ(field_bytes(t, 1, 1, 1), " ") << "the next field is untouched";

    t.set_integer(1, 0, -123456);
    EXPECT_EQ(t.get_integer(1, 0), -123456);
    t.set_double(2, 1, 2.5);
    EXPECT_EQ(t.get_double(2, 1), 2.5);
    t.set_float(2, 0, 1.25f);
    EXPECT_EQ(t.get_float(2, 0), 1.25f);

    // A double is 8 bytes, but the last field of the record has 2: only
    // those are written, and reading gives back what the record holds.
    t.set_double(3, 0, 1.0);
    double one = 1.0;
    EXPECT_EQ(field_bytes(t, 3, 0, 2), std::string(reinterpret_cast<char*>(&one), 2));

    // Cells outside the table are neither read nor written.
    EXPECT_STREQ(t.get_string(9, 0), "");
    EXPECT_STREQ(t.get_string(0, 2), "");
    EXPECT_EQ(t.get_integer(-1, 0), 0);
    EXPECT_EQ(t.get_double(0, -5), 0.0);
    t.set_string(0, 7, "x");
    t.set_double(-2, 0, 3.0);
    t.set_integer(4, 0, 1);
    EXPECT_FALSE(t.has_record(2));
    EXPECT_TRUE(t.has_record(1));
}

TEST(MemoryCore, RecordImagesAndRecordCountRules) {
    Tqz_dbf_memory_core t;
    Tqz_dbf_field fields[] = {field("A", 'C', 3)};
    ASSERT_TRUE(t.create_new(1, 2, fields, false));
    t.get_records()->get_ptr(1)[0] = '*';
    t.set_string(0, 0, "abc");

    // The image starts after the deletion flag and ends with the next
    // record's flag, or 0x1A after the last record.
    unsigned char image[4];
    ASSERT_EQ(t.get_record_size(), 4u);
    t.get_record(0, image);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(image), 4), "abc*");
    t.get_record(1, image);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(image), 4), "   \x1A");
    unsigned char write[4] = {'x', 'y', 'z', '!'};
    EXPECT_TRUE(t.set_record(1, write));
    EXPECT_EQ(field_bytes(t, 0, 1, 3), "xyz");
    EXPECT_EQ(t.get_records()->get_ptr(1)[0], '*') << "the flag is not part of the image";
    EXPECT_FALSE(t.set_record(2, write));

    // The core's own add counts the header down while adding a record.
    EXPECT_TRUE(t.add());
    EXPECT_EQ(t.get_records()->get_size(), 3u);
    EXPECT_EQ(t.get_nr(), 1u);
    // ins and del keep the count in step with the store, and change nothing
    // past the end.
    EXPECT_TRUE(t.ins(0));
    EXPECT_EQ(t.get_nr(), 2u);
    EXPECT_TRUE(t.ins(99));
    EXPECT_TRUE(t.del(99));
    EXPECT_EQ(t.get_nr(), 2u);
    EXPECT_EQ(t.get_records()->get_size(), 4u);
    EXPECT_TRUE(t.del(0));
    EXPECT_EQ(t.get_nr(), 1u);
    EXPECT_EQ(t.get_records()->get_size(), 3u);

    // Fields missing: nothing is made.
    EXPECT_FALSE(t.create_new(2, 5, nullptr, false));
    EXPECT_EQ(t.get_nf(), 0u);
    EXPECT_EQ(t.get_nr(), 0u);
}

TEST(MemoryCore, LoadReadsFieldsAndRecordsAsTheFileHoldsThem) {
    Temp_dir dir;
    std::vector<Field> fields = {{"NAME", 'C', 6}, {"QTY", 'N', 4}};
    std::vector<uint8_t> file = dbf_file(fields, {{"apple", "12"}, {"pear", "7"}, {"fig", "100"}},
                                         {false, true, false}, 0xDEADBEEF);
    qz_test::write_bytes(dir.file("t.dbf"), file);

    Tqz_dbf_memory_core t;
    t.set_filename(dir.wfile("t.dbf").c_str());
    ASSERT_TRUE(t.load());
    EXPECT_EQ(t.get_nf(), 2u);
    EXPECT_STREQ(t.get_field_name(1), "QTY");
    EXPECT_EQ(t.get_nr(), 3u);
    EXPECT_STREQ(t.get_string(0, 2), "fig   ");
    EXPECT_STREQ(t.get_string(1, 0), "12  ") << "offsets come from the lengths, not the file";
    EXPECT_EQ(t.get_records()->get_ptr(1)[0], '*') << "deleted records load like any other";

    // Saved again: the same bytes, but for the date and the offsets held in
    // the descriptors.
    ASSERT_TRUE(t.save(dir.file("copy.dbf").c_str()));
    std::vector<uint8_t> saved = qz_test::read_bytes(dir.file("copy.dbf"));
    ASSERT_EQ(saved.size(), file.size());
    for (size_t i = 0; i < file.size(); ++i) {
        bool date = i >= 1 && i <= 3;
        bool offset = i >= 32 && i < 96 && (i - 32) % 32 >= 12 && (i - 32) % 32 < 16;
        if (!date && !offset) {
            EXPECT_EQ(saved[i], file[i]) << "byte " << i;
        }
    }
    EXPECT_EQ(saved[32 + 32 + 12], 7) << "the second field starts at 7";

    // A file shorter than its header says: the records there, the last one
    // completed with spaces, and the count says so.
    file.resize(file.size() - 1 - 8);  // no 0x1A, and 8 bytes of "fig" gone
    memory_test::set_count(file, 1000000);
    qz_test::write_bytes(dir.file("short.dbf"), file);
    Tqz_dbf_memory_core s;
    s.set_filename(dir.wfile("short.dbf").c_str());
    ASSERT_TRUE(s.load());
    EXPECT_EQ(s.get_nr(), 3u);
    EXPECT_STREQ(s.get_string(0, 2), "fi    ");
    EXPECT_STREQ(s.get_string(1, 2), "    ");
}

TEST(MemoryCore, OddHeadersAreSurvived) {
    Temp_dir dir;
    std::vector<Field> fields = {{"A", 'C', 2}, {"B", 'C', 2}, {"C", 'C', 2}};
    std::vector<uint8_t> file = dbf_file(fields, {{"a1", "b1", "c1"}});

    // A header length that covers two descriptors only: the scan stops.
    std::vector<uint8_t> two = file;
    two[8] = 32 + 64;
    qz_test::write_bytes(dir.file("two.dbf"), two);
    Tqz_dbf_memory_core t;
    t.set_filename(dir.wfile("two.dbf").c_str());
    ASSERT_TRUE(t.load());
    EXPECT_EQ(t.get_nf(), 2u);

    // No 0x0D after the descriptors: still read up to the header length.
    std::vector<uint8_t> open = file;
    open[32 + 96] = 'X';
    qz_test::write_bytes(dir.file("open.dbf"), open);
    Tqz_dbf_memory_core u;
    u.set_filename(dir.wfile("open.dbf").c_str());
    ASSERT_TRUE(u.load());
    EXPECT_EQ(u.get_nf(), 3u);

    // A record length far below what the fields need: the cells past the
    // record are out of reach, not out of bounds.
    std::vector<uint8_t> narrow = file;
    narrow[10] = 3;
    qz_test::write_bytes(dir.file("narrow.dbf"), narrow);
    Tqz_dbf_memory_core v;
    v.set_filename(dir.wfile("narrow.dbf").c_str());
    ASSERT_TRUE(v.load());
    EXPECT_STREQ(v.get_string(0, 0), "a1");
    EXPECT_STREQ(v.get_string(2, 0), "");
    v.set_string(1, 0, "zz");
    v.set_double(1, 0, 1.5);

    // A record length of 0 and an absurd count: nothing to hold.
    std::vector<uint8_t> empty = file;
    empty[10] = empty[11] = 0;
    memory_test::set_count(empty, 0xFFFFFFFF);
    qz_test::write_bytes(dir.file("empty.dbf"), empty);
    Tqz_dbf_memory_core w;
    w.set_filename(dir.wfile("empty.dbf").c_str());
    ASSERT_TRUE(w.load());
    EXPECT_EQ(w.get_nr(), 0u);

    // A file of a few bytes, and no file at all.
    qz_test::write_bytes(dir.file("tiny.dbf"), {3, 1});
    Tqz_dbf_memory_core x;
    x.set_filename(dir.wfile("tiny.dbf").c_str());
    ASSERT_TRUE(x.load());
    EXPECT_EQ(x.get_nf(), 0u);
    EXPECT_EQ(x.get_nr(), 0u);
    Tqz_dbf_memory_core y;
    y.set_filename(dir.wfile("none.dbf").c_str());
    EXPECT_FALSE(y.load());
    Tqz_dbf_memory_core z;
    EXPECT_FALSE(z.load()) << "a table without a name has no file";
}

TEST(MemoryCore, TheLockKeepsASecondLoadOutAndGoesWithItsHolder) {
    Temp_dir dir;
    qz_test::write_bytes(dir.file("t.dbf"), dbf_file({{"A", 'C', 1}}, {{"x"}}));
    const std::string lock = dir.file("t.dbf.lk");
    auto* first = new Tqz_dbf_memory_core();
    first->set_filename(dir.wfile("t.dbf").c_str());
    ASSERT_TRUE(first->load());
    EXPECT_TRUE(first->holds_lock());
    EXPECT_TRUE(qz_test::exists(lock));

    Tqz_dbf_memory_core second;
    second.set_filename(dir.wfile("t.dbf").c_str());
    EXPECT_FALSE(second.load());
    second.close();
    EXPECT_TRUE(qz_test::exists(lock)) << "a load that failed leaves the holder's lock alone";

    // Loading again releases the lock first, then takes it once more.
    EXPECT_TRUE(first->load());
    EXPECT_TRUE(first->holds_lock());
    delete first;
    EXPECT_FALSE(qz_test::exists(lock));
    EXPECT_TRUE(second.load());
    second.close();
    EXPECT_FALSE(qz_test::exists(lock));
    EXPECT_EQ(second.get_nr(), 1u) << "the records stay after close";
}

}  // namespace
