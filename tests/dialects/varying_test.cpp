// Varying-length fields of Visual FoxPro (V varchar, Q varbinary): a value
// shorter than the field is kept as its bytes, zeros, and its length in the
// field's last byte, with the field's length bit set in _NullFlags; a value
// of the full width clears the bit. Read back, both give exactly what was
// written (zeros and trailing blanks inside the value included).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "../typed/table_builder.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

using typed_test::make_table;
using typed_test::memo_kind;
using typed_test::tfield;

struct written {
    unsigned field;
    int kind;  // QZ_DBF_VALUE_TEXT, _BYTES or _NULL
    std::string value;
    std::vector<uint8_t> cell;  // the field's bytes after the write
    uint8_t flags;              // the record's _NullFlags byte after the write
};

TEST(Varying, ShortValuesKeepTheirLengthInTheLastByte) {
    qz_test::Temp_dir dir;
    // Bits: V's length bit 0, its null bit 1 (nullable); Q's length bit 2.
    const std::vector<tfield> fields = {
        {"NAME", 'V', 6, 0, 0x02}, {"BIN", 'Q', 4, 0, 0x04}, {"_NullFlags", '0', 1, 0, 0x05}};
    const std::string path = make_table(dir, "vary", 0x30, fields, 1, memo_kind::none);
    const std::vector<written> steps = {
        {0, QZ_DBF_VALUE_TEXT, "ab", {'a', 'b', 0, 0, 0, 2}, 0x01},
        {0, QZ_DBF_VALUE_TEXT, "a  ", {'a', ' ', ' ', 0, 0, 3}, 0x01},
        {0, QZ_DBF_VALUE_TEXT, "sixsix", {'s', 'i', 'x', 's', 'i', 'x'}, 0x00},
        {0, QZ_DBF_VALUE_TEXT, "", {0, 0, 0, 0, 0, 0}, 0x01},
        {0, QZ_DBF_VALUE_NULL, "", {' ', ' ', ' ', ' ', ' ', ' '}, 0x03},
        {1, QZ_DBF_VALUE_BYTES, std::string("\0\1", 2), {0, 1, 0, 2}, 0x07},
        {1, QZ_DBF_VALUE_BYTES, std::string("\0\1\2\3", 4), {0, 1, 2, 3}, 0x03},
        {0, QZ_DBF_VALUE_TEXT, "x", {'x', 0, 0, 0, 0, 1}, 0x01},
    };
    Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), 0);
    ASSERT_NE(t, nullptr) << qz_dbf_last_error_message();
    const size_t first = 32 + 32 * fields.size() + 1 + 263;
    for (size_t k = 0; k < steps.size(); ++k) {
        const written& s = steps[k];
        SCOPED_TRACE(k);
        Tqz_dbf_value v{s.kind, 0, 0.0, s.value.data(), s.value.size()}, back;
        ASSERT_TRUE(qz_dbf_set_value(t, s.field, 0, &v)) << qz_dbf_last_error_message();
        ASSERT_TRUE(qz_dbf_get_value(t, s.field, 0, &back));
        EXPECT_EQ(back.kind, s.kind);
        if (s.kind != QZ_DBF_VALUE_NULL) {
            EXPECT_EQ(std::string(back.text, back.length), s.value);
        }
        qz_dbf_flush(t);
        const std::vector<uint8_t> b = qz_test::read_bytes(path);
        const size_t at = first + 1 + (s.field == 0 ? 0 : 6);
        EXPECT_EQ(std::vector<uint8_t>(b.begin() + at, b.begin() + at + s.cell.size()), s.cell);
        EXPECT_EQ(b[first + 11], s.flags);
    }
    // Wider than the field: refused, nothing changed.
    const std::string five("12345");
    Tqz_dbf_value wide{QZ_DBF_VALUE_BYTES, 0, 0.0, five.data(), five.size()};
    const std::vector<uint8_t> kept = qz_test::read_bytes(path);
    EXPECT_FALSE(qz_dbf_set_value(t, 1, 0, &wide));
    qz_dbf_flush(t);
    EXPECT_TRUE(qz_test::read_bytes(path) == kept);
    qz_dbf_close(t);
}

}  // namespace
