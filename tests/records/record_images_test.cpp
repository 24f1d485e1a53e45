// Record images: the bytes the calls copy are the file's records, flag
// first, cut at the table's end, at the buffer's size and at records the
// file does not hold whole; a writable handle's pending write is in them;
// memory tables and bad arguments give 0.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

std::string make_table(const qz_test::Temp_dir& dir, unsigned records) {
    const std::string path = dir.file("img.dbf");
    Tqz_dbf_field fields[3];
    qz_dbf_field_init(&fields[0], "ID", dbf_ft_numeric, 5, 0);
    qz_dbf_field_init(&fields[1], "NAME", dbf_ft_char, 7, 0);
    qz_dbf_field_init(&fields[2], "OK", dbf_ft_logical, 1, 0);
    Tqz_dbf_rw* h = qz_dbf_create(path.c_str(), 3, 0, fields, false);
    EXPECT_NE(h, nullptr);
    qz_dbf_add_records(h, records);
    for (unsigned r = 0; r < records; ++r) {
        qz_dbf_set_int(h, 0, r, static_cast<int>(r * 3));
        qz_dbf_set_str(h, 1, r, ("n" + std::to_string(r)).c_str());
        qz_dbf_set_bool(h, 2, r, r % 2 == 0);
    }
    qz_dbf_set_deleted(h, 2, true);
    qz_dbf_close(h);
    return path;
}

TEST(RecordImages, CopiesTheFileRecordsFlagFirst) {
    qz_test::Temp_dir dir;
    const std::string path = make_table(dir, 9);
    const std::vector<uint8_t> file = qz_test::read_bytes(path);
    Tqz_dbf_rw* h = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
    ASSERT_NE(h, nullptr);
    const unsigned rl = qz_dbf_get_record_size(h);
    ASSERT_EQ(rl, 1u + 5 + 7 + 1);
    EXPECT_EQ(qz_dbf_get_field_offset(h, 0), 1u);
    EXPECT_EQ(qz_dbf_get_field_offset(h, 1), 6u);
    EXPECT_EQ(qz_dbf_get_field_offset(h, 2), 13u);
    EXPECT_EQ(qz_dbf_get_field_offset(h, 3), 0u);
    const size_t header = file[8] | (file[9] << 8);

    std::vector<uint8_t> buf(rl * 20, 0xAB);
    // From record 4 asking 20: five are left.
    EXPECT_EQ(qz_dbf_get_record_images(h, 4, 20, buf.data(), buf.size()), 5u);
    EXPECT_EQ(0, std::memcmp(buf.data(), file.data() + header + 4 * rl, 5 * rl));
    EXPECT_EQ(buf[5 * rl], 0xAB);  // nothing past them
    // All of them, and their cells as the getters read them.
    ASSERT_EQ(qz_dbf_get_record_images(h, 0, 9, buf.data(), buf.size()), 9u);
    for (unsigned r = 0; r < 9; ++r) {
        const uint8_t* img = buf.data() + r * rl;
        EXPECT_EQ(img[0] == '*', qz_dbf_get_deleted(h, r) == 1) << r;
        bool ok = false;
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(img + 6), 7),
                  std::string(qz_dbf_get_str(h, 1, r, ok)))
            << r;
    }
    EXPECT_EQ(buf[2 * rl], '*');
    // A buffer of two and a half images takes two.
    EXPECT_EQ(qz_dbf_get_record_images(h, 0, 9, buf.data(), rl * 2 + rl / 2), 2u);
    EXPECT_EQ(qz_dbf_get_record_images(h, 9, 1, buf.data(), buf.size()), 0u);
    EXPECT_EQ(qz_dbf_get_record_images(h, 0xFFFFFFFFu, 1, buf.data(), buf.size()), 0u);
    EXPECT_EQ(qz_dbf_get_record_images(h, 0, 1, nullptr, 100), 0u);
    EXPECT_EQ(qz_dbf_get_record_images(h, 0, 0, buf.data(), buf.size()), 0u);
    qz_dbf_close(h);

    // The last record cut short: the file holds eight whole ones.
    std::vector<uint8_t> cut(file.begin(), file.end() - 1 - 3);
    qz_test::write_bytes(path, cut);
    h = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY | QZ_DBF_OPEN_FORCE);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(qz_dbf_get_record_images(h, 0, 9, buf.data(), buf.size()), 8u);
    EXPECT_EQ(0, std::memcmp(buf.data(), cut.data() + header, 8 * rl));
    qz_dbf_close(h);
}

// A writable handle's pending write is in its images; a handle without a
// table file has none.
TEST(RecordImages, PendingWritesAndNoImagesWithoutATableFile) {
    qz_test::Temp_dir dir;
    const std::string path = make_table(dir, 3);
    uint8_t buf[64];
    Tqz_dbf_rw* w = qz_dbf_open_ex(path.c_str(), 0);
    ASSERT_NE(w, nullptr);
    ASSERT_TRUE(qz_dbf_set_str(w, 1, 1, "changed"));
    const unsigned rl = qz_dbf_get_record_size(w);
    ASSERT_EQ(qz_dbf_get_record_images(w, 1, 1, buf, sizeof buf), 1u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(buf + 6), 7), "changed");
    EXPECT_EQ(rl, 14u);
    qz_dbf_close(w);
    EXPECT_EQ(qz_dbf_get_record_size(nullptr), 0u);
    EXPECT_EQ(qz_dbf_get_field_offset(nullptr, 0), 0u);
    EXPECT_EQ(qz_dbf_get_record_images(nullptr, 0, 1, buf, sizeof buf), 0u);
    // The handle of a memory table reads through the memory table.
    Tqz_dbf_memory* m = qz_dbf_mem_load(path.c_str());
    ASSERT_NE(m, nullptr);
    Tqz_dbf_rw* h = qz_dbf_open(path.c_str(), true, false);
    ASSERT_NE(h, nullptr);
    ASSERT_EQ(qz_dbf_get_storage(h), qz_dbf_storage_memory);
    EXPECT_EQ(qz_dbf_get_record_size(h), 0u);
    EXPECT_EQ(qz_dbf_get_field_offset(h, 1), 0u);
    EXPECT_EQ(qz_dbf_get_record_images(h, 0, 1, buf, sizeof buf), 0u);
    qz_dbf_close(h);
    qz_dbf_mem_free(m);
}

}  // namespace
