// Broken files: each opens or fails exactly as the format rules say, and none
// makes the library read or write outside its buffers (run under ASan/UBSan).
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "qzk_file_dbf.h"
#include "test_support.h"

namespace {

using qz_test::Temp_dir;
using Bytes = std::vector<uint8_t>;

Bytes header(uint32_t records, uint16_t header_length, uint16_t record_length) {
    Bytes b(32, 0);
    b[0] = 3;
    for (int i = 0; i < 4; ++i) b[4 + i] = static_cast<uint8_t>(records >> (8 * i));
    b[8] = static_cast<uint8_t>(header_length);
    b[9] = static_cast<uint8_t>(header_length >> 8);
    b[10] = static_cast<uint8_t>(record_length);
    b[11] = static_cast<uint8_t>(record_length >> 8);
    return b;
}

void add_descriptor(Bytes& b, const char* name, char type, uint8_t len) {
    Bytes d(32, 0);
    for (int i = 0; name[i] && i < 11; ++i) d[i] = static_cast<uint8_t>(name[i]);
    d[11] = static_cast<uint8_t>(type);
    d[12] = 0xEE;  // garbage where the offset is kept: must be recomputed
    d[16] = len;
    b.insert(b.end(), d.begin(), d.end());
}

struct Opened {
    bool ok = false;
    unsigned nf = 0, nr = 0;
    std::vector<std::string> names;
    std::vector<unsigned> lengths;
};

Opened open_file(const std::string& path, bool read_only = true) {
    Opened o;
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), read_only, false);
    if (!t) return o;
    o.ok = true;
    o.nf = qz_dbf_get_nf(t);
    o.nr = qz_dbf_get_nr(t);
    for (unsigned i = 0; i < o.nf; ++i) {
        const char* n = qz_dbf_get_field_name(t, i);
        o.names.push_back(n ? n : "(null)");
        o.lengths.push_back(qz_dbf_get_field_flen(t, i));
    }
    // Indexes past the end give neutral answers.
    EXPECT_EQ(qz_dbf_get_field_name(t, o.nf), nullptr);
    EXPECT_EQ(qz_dbf_get_field_flen(t, 0xFFFFFFFF), 0u);
    EXPECT_EQ(qz_dbf_get_field_dlen(t, o.nf + 7), 0);
    EXPECT_EQ(qz_dbf_get_field_type(t, o.nf), dbf_ft_unknown);
    qz_dbf_close(t);
    return o;
}

TEST(Malformed, EmptyAndTruncatedHeadersOpenWithWhatWasRead) {
    Temp_dir dir;
    std::string path = dir.file("t.dbf");
    qz_test::write_bytes(path, {});
    Opened o = open_file(path);
    EXPECT_TRUE(o.ok);
    EXPECT_EQ(o.nf, 0u);
    EXPECT_EQ(o.nr, 0u);

    Bytes h = header(7, 65, 11);
    qz_test::write_bytes(path, Bytes(h.begin(), h.begin() + 6));  // the count cut short
    o = open_file(path);
    EXPECT_TRUE(o.ok);
    EXPECT_EQ(o.nr, 7u & 0xFFFF) << "bytes that were read count, the rest are zero";
    EXPECT_EQ(o.nf, 0u);

    // A header with a descriptor cut in half: the half descriptor is a field.
    Bytes b = header(0, 65, 11);
    add_descriptor(b, "HALF", 'C', 10);
    b.resize(32 + 16);
    qz_test::write_bytes(path, b);
    o = open_file(path, false);
    ASSERT_TRUE(o.ok);
    ASSERT_EQ(o.nf, 1u);
    EXPECT_EQ(o.names[0], "HALF");
    EXPECT_EQ(o.lengths[0], 0u) << "the length byte was not in the file";
    EXPECT_EQ(qz_test::read_bytes(path), b) << "a writable open and close changes no table byte";
}

TEST(Malformed, HeaderLengthDecidesHowManyDescriptorsAreRead) {
    Temp_dir dir;
    std::string path = dir.file("t.dbf");
    // Three descriptors and a terminator, but the header length admits two.
    Bytes b = header(1, 32 + 2 * 32 + 1, 31);
    add_descriptor(b, "A", 'C', 10);
    add_descriptor(b, "B", 'N', 10);
    add_descriptor(b, "C", 'L', 10);
    b.push_back(0x0D);
    qz_test::write_bytes(path, b);
    Opened o = open_file(path);
    ASSERT_TRUE(o.ok);
    EXPECT_EQ(o.nf, 2u);

    // No 0x0D at all: the header length ends the list.
    b = header(0, 32 + 3 * 32, 31);
    add_descriptor(b, "A", 'C', 10);
    add_descriptor(b, "B", 'N', 10);
    add_descriptor(b, "C", 'L', 10);
    add_descriptor(b, "D", 'L', 10);
    qz_test::write_bytes(path, b);
    o = open_file(path);
    ASSERT_TRUE(o.ok);
    EXPECT_EQ(o.nf, 3u);
    EXPECT_EQ(o.names, (std::vector<std::string>{"A", "B", "C"}));

    // A header length below one descriptor: no fields.
    b = header(0, 40, 11);
    add_descriptor(b, "A", 'C', 10);
    b.push_back(0x0D);
    qz_test::write_bytes(path, b);
    EXPECT_EQ(open_file(path).nf, 0u);

    // Header length 0xFFFF and the file ends after two descriptors.
    b = header(0, 0xFFFF, 21);
    add_descriptor(b, "A", 'C', 10);
    add_descriptor(b, "B", 'C', 10);
    qz_test::write_bytes(path, b);
    EXPECT_EQ(open_file(path).nf, 2u);
}

}  // namespace

namespace {

// A numeric field whose decimal byte is 0xFF: writing a number must not hand
// the C library an invalid format; the count is taken as no count at all.
TEST(Malformed, NegativeDecimalCountWritesWithTheDefaultPrecision) {
    Temp_dir dir;
    std::string path = dir.file("neg.dbf");
    Bytes b = header(1, 65, 11);
    add_descriptor(b, "N", 'N', 10);
    b[32 + 17] = 0xFF;
    b.push_back(0x0D);
    b.insert(b.end(), 11, ' ');
    b.push_back(0x1A);
    qz_test::write_bytes(path, b);
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), false, false);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(qz_dbf_get_field_dlen(t, 0), -1);
    EXPECT_TRUE(qz_dbf_set_dbl(t, 0, 0, 3.25));
    bool ok = false;
    const char* text = qz_dbf_get_str(t, 0, 0, ok);
    ASSERT_TRUE(ok);
    EXPECT_STREQ(text, "3.250000");
    qz_dbf_close(t);
}

}  // namespace
