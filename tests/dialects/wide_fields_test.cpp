// Character fields longer than 255 bytes (the length's high byte in the
// decimals byte): the corpus table pr90.dbf has one of 300 bytes. The
// classic length getter keeps answering the length byte; the widths, the
// image offsets and the typed reads take the whole field, so the fields
// after it read right. A header whose record length does not confirm the
// long field is read by the length bytes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

TEST(WideFields, WidthsOffsetsAndValuesFollowTheHighByte) {
    const std::string pr90 = std::string(QZ_CORPUS_DIR) + "/php-xbase/foxpro/pr90.dbf";
    for (bool confirmed : {true, false}) {
        SCOPED_TRACE(confirmed);
        qz_test::Temp_dir dir;
        const std::string path = qz_test::copy_with_companions(pr90, dir.path());
        std::vector<uint8_t> bytes = qz_test::read_bytes(path);
        if (!confirmed) {
            bytes[10] = static_cast<uint8_t>(bytes[10] - 1);  // one byte short of the widths
            qz_test::write_bytes(path, bytes);
        }
        Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
        ASSERT_NE(t, nullptr) << qz_dbf_last_error_message();
        const unsigned note = qz_dbf_find_field_index_w(t, L"NOTE"),
                       pri = qz_dbf_find_field_index_w(t, L"PRI"),
                       temp = qz_dbf_find_field_index_w(t, L"TEMP18");
        ASSERT_LT(temp, qz_dbf_get_nf(t));
        EXPECT_EQ(qz_dbf_get_field_flen(t, note), 44u);  // the length byte, as ever
        EXPECT_EQ(qz_dbf_get_field_dlen(t, note), 1);
        EXPECT_EQ(qz_dbf_get_field_width(t, note), confirmed ? 300u : 44u);
        // The widths tile the record image after the deletion flag.
        unsigned at = 1;
        for (unsigned f = 0; f < qz_dbf_get_nf(t); ++f) {
            EXPECT_EQ(qz_dbf_get_field_offset(t, f), at) << f;
            at += qz_dbf_get_field_width(t, f);
        }
        EXPECT_EQ(at == qz_dbf_get_record_size(t), confirmed);
        if (confirmed) {
            // Typed values: the NOTE text reaches past byte 255 of some
            // record, and every PRI cell is a logical, as the image holds it.
            std::vector<unsigned char> image(qz_dbf_get_record_size(t));
            size_t longest = 0;
            for (unsigned r = 0; r < qz_dbf_get_nr(t); ++r) {
                ASSERT_EQ(qz_dbf_get_record_images(t, r, 1, image.data(), image.size()), 1u);
                Tqz_dbf_value v;
                ASSERT_TRUE(qz_dbf_get_value(t, note, r, &v));
                std::string cell(
                    reinterpret_cast<const char*>(image.data()) + qz_dbf_get_field_offset(t, note),
                    300);
                cell.erase(cell.find_last_not_of(' ') + 1);
                EXPECT_EQ(std::string(v.text, v.length), cell) << r;
                longest = std::max<size_t>(longest, v.length);
                ASSERT_TRUE(qz_dbf_get_value(t, pri, r, &v));
                EXPECT_TRUE(v.kind == QZ_DBF_VALUE_BOOL || v.kind == QZ_DBF_VALUE_NULL) << r;
            }
            EXPECT_GT(longest, 44u);
        }
        qz_dbf_close(t);
    }
}

}  // namespace
