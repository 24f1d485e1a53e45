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
