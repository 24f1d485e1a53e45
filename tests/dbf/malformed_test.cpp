// Broken files: each opens or fails exactly as the format rules say, and none
// makes the library read or write outside its buffers (run under ASan/UBSan).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qzk_file_dbf.h"
#include "test_support.h"

namespace {

using Bytes = std::vector<uint8_t>;

// A dBASE III header, then descriptors of 10-byte C fields named by
// `names` (garbage where the offset is kept: it must be recomputed).
Bytes table(uint32_t records, uint16_t header_length, uint16_t record_length, const char* names) {
    Bytes b(32, 0);
    b[0] = 3;
    for (int i = 0; i < 4; ++i) b[4 + i] = static_cast<uint8_t>(records >> (8 * i));
    b[8] = header_length & 0xFF, b[9] = header_length >> 8;
    b[10] = record_length & 0xFF, b[11] = record_length >> 8;
    for (const char* n = names; *n; ++n) {
        Bytes d(32, 0);
        d[0] = static_cast<uint8_t>(*n), d[11] = 'C', d[12] = 0xEE, d[16] = 10;
        b.insert(b.end(), d.begin(), d.end());
    }
    return b;
}

// Opens the file; the field count and names, "fail" when refused. Indexes
// past the end give neutral answers.
std::string opened(const std::string& path, bool read_only = true) {
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), read_only, false);
    if (!t) return "fail";
    const unsigned nf = qz_dbf_get_nf(t);
    std::string s = std::to_string(nf) + ":" + std::to_string(qz_dbf_get_nr(t));
    for (unsigned i = 0; i < nf; ++i)
        s += std::string(" ") + qz_dbf_get_field_name(t, i) +
             std::to_string(qz_dbf_get_field_flen(t, i));
    EXPECT_EQ(qz_dbf_get_field_name(t, nf), nullptr);
    qz_dbf_close(t);
    return s;
}

TEST(Malformed, HeadersCutShortOrWithOddLengthsOpenWithWhatWasRead) {
    qz_test::Temp_dir dir;
    const std::string path = dir.file("t.dbf");
    auto with = [](Bytes b, size_t size, bool terminator) {
        b.resize(size);
        if (terminator) b.push_back(0x0D);
        return b;
    };
    // clang-format off
    const struct { Bytes bytes; const char* want; } cases[] = {
        // clang-format on
        {{}, "0:0"},
        // The count cut short: the bytes that were read count, the rest are zero.
        {with(table(0x10007, 65, 11, ""), 6, false), "0:7"},
        // The header length admits two of three descriptors.
        {table(1, 32 + 2 * 32 + 1, 31, "ABC"), "2:1 A10 B10"},
        // No 0x0D at all: the header length ends the list.
        {table(0, 32 + 3 * 32, 31, "ABCD"), "3:0 A10 B10 C10"},
        // A header length below one descriptor: no fields.
        {with(table(0, 40, 11, "A"), 64, true), "0:0"},
        // Header length 0xFFFF and the file ends after two descriptors.
        {table(0, 0xFFFF, 21, "AB"), "2:0 A10 B10"},
    };
    for (const auto& c : cases) {
        qz_test::write_bytes(path, c.bytes);
        EXPECT_EQ(opened(path), c.want) << c.bytes.size();
    }
    // A descriptor cut in half is a field; its length byte was not in the
    // file. A writable open and close changes no table byte.
    const Bytes half = with(table(0, 65, 11, "H"), 32 + 16, false);
    qz_test::write_bytes(path, half);
    EXPECT_EQ(opened(path, false), "1:0 H0");
    EXPECT_EQ(qz_test::read_bytes(path), half);
}

}  // namespace
