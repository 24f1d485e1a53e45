// Record images: the bytes the calls copy are the file's records, flag
// first, cut at the table's end, at the buffer's size and at records the
// file does not hold whole; a writable handle's pending write is in them;
// memory tables and bad arguments give 0.
#include <gtest/gtest.h>

#include <cstring>

#include "qzk_file_dbf_ext.h"
#include "test_support.h"

TEST(RecordImages, CopiesTheFileRecordsFlagFirst) {
    qz_test::Temp_dir dir;
    const std::string path = dir.file("img.dbf");
    std::vector<std::vector<std::string>> rows;
    for (unsigned r = 0; r < 9; ++r)
        rows.push_back({std::to_string(r * 3), "n" + std::to_string(r)});
    qz_test::write_bytes(
        path, qz_test::dbf_bytes(0x03, {{"ID", 'N', 5}, {"NAME", 'C', 7}, {"OK", 'L', 1}}, rows));
    std::vector<uint8_t> file = qz_test::read_bytes(path);
    const size_t header = qz_test::u16_at(file, 8), rl = 14;
    file[header + 2 * rl] = '*';
    qz_test::write_bytes(path, file);
    Tqz_dbf_rw* h = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
    ASSERT_NE(h, nullptr);
    ASSERT_EQ(qz_dbf_get_record_size(h), rl);
    const unsigned offsets[] = {1, 6, 13, 0};  // field 3 does not exist
    for (unsigned f = 0; f < 4; ++f) EXPECT_EQ(qz_dbf_get_field_offset(h, f), offsets[f]);
    std::vector<uint8_t> buf(rl * 20, 0xAB);
    // From record 4 asking 20: five are left, nothing past them.
    EXPECT_EQ(qz_dbf_get_record_images(h, 4, 20, buf.data(), buf.size()), 5u);
    EXPECT_EQ(0, std::memcmp(buf.data(), file.data() + header + 4 * rl, 5 * rl));
    EXPECT_EQ(buf[5 * rl], 0xAB);
    ASSERT_EQ(qz_dbf_get_record_images(h, 0, 9, buf.data(), buf.size()), 9u);
    EXPECT_EQ(0, std::memcmp(buf.data(), file.data() + header, 9 * rl));
    EXPECT_EQ(buf[2 * rl], '*');
    // A buffer of two and a half images takes two; nothing out of range.
    EXPECT_EQ(qz_dbf_get_record_images(h, 0, 9, buf.data(), rl * 2 + rl / 2), 2u);
    EXPECT_EQ(qz_dbf_get_record_images(h, 9, 1, buf.data(), buf.size()) +
                  qz_dbf_get_record_images(h, 0xFFFFFFFFu, 1, buf.data(), buf.size()) +
                  qz_dbf_get_record_images(h, 0, 1, nullptr, 100) +
                  qz_dbf_get_record_images(h, 0, 0, buf.data(), buf.size()),
              0u);
    qz_dbf_close(h);

    // The last record cut short: the file holds eight whole ones.
    qz_test::write_bytes(path, {file.begin(), file.end() - 1 - 3});
    h = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY | QZ_DBF_OPEN_FORCE);
    EXPECT_EQ(qz_dbf_get_record_images(h, 0, 9, buf.data(), buf.size()), 8u);
    EXPECT_EQ(0, std::memcmp(buf.data(), file.data() + header, 8 * rl));
    qz_dbf_close(h);

    // A writable handle's pending write is in its images.
    qz_test::write_bytes(path, file);
    Tqz_dbf_rw* w = qz_dbf_open_ex(path.c_str(), 0);
    ASSERT_TRUE(qz_dbf_set_str(w, 1, 1, "changed"));
    ASSERT_EQ(qz_dbf_get_record_images(w, 1, 1, buf.data(), buf.size()), 1u);
    EXPECT_EQ(std::string(buf.begin() + 6, buf.begin() + 13), "changed");
    qz_dbf_close(w);
    // No handle, or the handle of a memory table: no table file, no images.
    Tqz_dbf_memory* m = qz_dbf_mem_load(path.c_str());
    h = qz_dbf_open(path.c_str(), true, false);
    ASSERT_EQ(qz_dbf_get_storage(h), qz_dbf_storage_memory);
    for (Tqz_dbf_rw* none : {h, static_cast<Tqz_dbf_rw*>(nullptr)})
        EXPECT_EQ(qz_dbf_get_record_size(none) + qz_dbf_get_field_offset(none, 1) +
                      qz_dbf_get_record_images(none, 0, 1, buf.data(), buf.size()),
                  0u);
    qz_dbf_close(h);
    qz_dbf_mem_free(m);
}
