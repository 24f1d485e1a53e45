// The memory table core: structure made and loaded, raw cells, saving, and
// the lock held while a table is loaded.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "memory/memory_core.h"
#include "memory/records.h"
#include "test_support.h"

namespace {

using qz_test::exists;
using qz_test::read_bytes;
using qz_test::Temp_dir;

// Cells load as the file holds them (deleted records too), offsets come
// from the lengths whatever the descriptors say, and a save gives the same
// bytes but for the date and the offsets. A file shorter than its header
// says loads the records there, the last one completed with spaces.
TEST(MemoryCore, LoadReadsFieldsAndRecordsAsTheFileHoldsThem) {
    Temp_dir dir;
    std::vector<uint8_t> file = qz_test::dbf_bytes(
        3, {{"NAME", 'C', 6}, {"QTY", 'N', 4}}, {{"apple", "12"}, {"pear", "7"}, {"fig", "100"}});
    file[97 + 11] = '*';
    for (size_t at : {44, 45, 46, 47, 76, 77, 78, 79}) file[at] = 0xEE;
    qz_test::write_bytes(dir.file("t.dbf"), file);
    Tqz_dbf_memory_core t;
    t.set_filename(dir.wfile("t.dbf").c_str());
    ASSERT_TRUE(t.load());
    EXPECT_EQ(t.get_nf(), 2u);
    EXPECT_EQ(t.get_nr(), 3u);
    EXPECT_STREQ(t.get_string(0, 2), "fig   ");
    EXPECT_STREQ(t.get_string(1, 0), "12  ");
    EXPECT_EQ(t.get_records()->get_ptr(1)[0], '*');
    ASSERT_TRUE(t.save(dir.file("copy.dbf").c_str()));
    std::vector<uint8_t> saved = read_bytes(dir.file("copy.dbf"));
    ASSERT_EQ(saved.size(), file.size());
    EXPECT_EQ(saved[44], 1);
    EXPECT_EQ(saved[76], 7) << "the second field starts at 7";
    for (size_t at : {1, 2, 3, 44, 45, 46, 47, 76, 77, 78, 79}) saved[at] = file[at];
    EXPECT_EQ(saved, file);

    file.resize(file.size() - 1 - 8);  // no 0x1A, and 8 bytes of "fig" gone
    file[4] = file[5] = file[6] = 0x7F;
    qz_test::write_bytes(dir.file("short.dbf"), file);
    Tqz_dbf_memory_core s;
    s.set_filename(dir.wfile("short.dbf").c_str());
    ASSERT_TRUE(s.load());
    EXPECT_EQ(s.get_nr(), 3u);
    EXPECT_STREQ(s.get_string(0, 2), "fi    ");
    EXPECT_STREQ(s.get_string(1, 2), "    ");
}

// A loaded table holds "<file>.lk": a second load fails and leaves it; a
// reload releases and takes it again; it goes with its holder.
TEST(MemoryCore, TheLockKeepsASecondLoadOutAndGoesWithItsHolder) {
    Temp_dir dir;
    qz_test::write_bytes(dir.file("t.dbf"), qz_test::dbf_bytes(3, {{"A", 'C', 1}}, {{"x"}}));
    const std::string lock = dir.file("t.dbf.lk");
    auto* first = new Tqz_dbf_memory_core();
    Tqz_dbf_memory_core second;
    first->set_filename(dir.wfile("t.dbf").c_str());
    second.set_filename(dir.wfile("t.dbf").c_str());
    ASSERT_TRUE(first->load());
    EXPECT_TRUE(exists(lock));
    EXPECT_FALSE(second.load());
    second.close();
    EXPECT_TRUE(exists(lock)) << "a load that failed leaves the holder's lock alone";
    EXPECT_TRUE(first->load());
    EXPECT_TRUE(first->holds_lock());
    delete first;
    EXPECT_FALSE(exists(lock));
    EXPECT_TRUE(second.load());
    second.close();
    EXPECT_FALSE(exists(lock));
    EXPECT_EQ(second.get_nr(), 1u) << "the records stay after close";
}

}  // namespace
