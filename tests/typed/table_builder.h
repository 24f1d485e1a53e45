// Empty tables of any dialect laid out byte by byte for the typed-value
// tests: a header of the given version, the descriptors, blank records and
// an empty memo file of the given layout.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "test_support.h"

namespace typed_test {

struct tfield {
    std::string name;
    char type;
    uint8_t length;
    uint8_t decimals;
    uint8_t flags;  // Visual FoxPro: 0x02 nullable, 0x04 binary
};

enum class memo_kind { none, fpt, dbt3, dbt4 };

inline bool binary_type(char t, uint8_t version) {
    return std::strchr("IOYT@+0Q", t) != nullptr ||
           (t == 'B' && version >= 0x30 && version <= 0x32);
}

// Writes <dir>/<name>.dbf (and its memo file) and gives its path.
inline std::string make_table(const qz_test::Temp_dir& dir, const std::string& name,
                              uint8_t version, const std::vector<tfield>& fields, unsigned records,
                              memo_kind memo, uint8_t driver = 0) {
    const bool vfp = version >= 0x30 && version <= 0x32;
    unsigned record_length = 1;
    for (const tfield& f : fields) record_length += f.length;
    const unsigned header_length =
        32 + 32 * static_cast<unsigned>(fields.size()) + 1 + (vfp ? 263 : 0);
    std::vector<uint8_t> b(32, 0);
    b[0] = version;
    b[1] = 124;
    b[2] = 5;
    b[3] = 17;
    for (int k = 0; k < 4; ++k) b[4 + k] = static_cast<uint8_t>(records >> (8 * k));
    b[8] = header_length & 0xFF;
    b[9] = static_cast<uint8_t>(header_length >> 8);
    b[10] = record_length & 0xFF;
    b[11] = static_cast<uint8_t>(record_length >> 8);
    b[29] = driver;
    unsigned offset = 1;
    for (const tfield& f : fields) {
        std::vector<uint8_t> d(32, 0);
        std::memcpy(d.data(), f.name.data(), f.name.size());
        d[11] = static_cast<uint8_t>(f.type);
        if (vfp)
            for (int k = 0; k < 4; ++k) d[12 + k] = static_cast<uint8_t>(offset >> (8 * k));
        d[16] = f.length;
        d[17] = f.decimals;
        d[18] = f.flags;
        b.insert(b.end(), d.begin(), d.end());
        offset += f.length;
    }
    b.push_back(0x0D);
    b.resize(header_length, 0);
    for (unsigned r = 0; r < records; ++r) {
        b.push_back(' ');
        for (const tfield& f : fields) {
            const bool zeros = binary_type(f.type, version) || (vfp && f.length == 4);
            b.insert(b.end(), f.length, zeros ? 0 : ' ');
        }
    }
    b.push_back(0x1A);
    const std::string path = dir.file(name + ".dbf");
    qz_test::write_bytes(path, b);
    std::vector<uint8_t> m(512, 0);
    switch (memo) {
        case memo_kind::fpt:
            m[3] = 8;  // next free block (64-byte blocks: the header takes 8)
            m[7] = 64;
            qz_test::write_bytes(dir.file(name + ".fpt"), m);
            break;
        case memo_kind::dbt3:
            m[0] = 1;
            m[16] = 0x03;
            qz_test::write_bytes(dir.file(name + ".dbt"), m);
            break;
        case memo_kind::dbt4:
            m[0] = 1;
            m[21] = 0x02;  // 512-byte blocks
            qz_test::write_bytes(dir.file(name + ".dbt"), m);
            break;
        case memo_kind::none:
            break;
    }
    return path;
}

}  // namespace typed_test
