// Builds FPT and DBT memo files byte by byte for the memo tests.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace memo_test {

// Writes `data` at `at`, growing `file` with zeros as needed.
inline void put(std::vector<uint8_t>& file, size_t at, const std::string& data) {
    if (file.size() < at + data.size()) file.resize(at + data.size(), 0);
    std::copy(data.begin(), data.end(), file.begin() + at);
}

inline std::string be32(uint32_t v) {
    return {char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
}

// An FPT file of only its 512-byte header: next free block and block size
// big-endian.
inline std::vector<uint8_t> fpt_file(uint16_t block_size, uint32_t next_free = 0) {
    std::vector<uint8_t> file(512, 0);
    put(file, 0, be32(next_free) + std::string{0, 0, char(block_size >> 8), char(block_size)});
    return file;
}

// A memo at `block`: its 8-byte header (type, length field: by default the
// length of `data`) and `data`.
inline void fpt_put(std::vector<uint8_t>& file, uint32_t block_size, uint32_t block, uint32_t type,
                    const std::string& data, int64_t length_field = -1) {
    const uint32_t length = length_field < 0 ? uint32_t(data.size()) : uint32_t(length_field);
    put(file, size_t{block} * block_size, be32(type) + be32(length) + data);
}

// A DBT file of only its 512-byte header (next free block, little-endian);
// its memos go at block × 512 (`put`), the caller adds the terminator 0x1A.
inline std::vector<uint8_t> dbt_file(uint32_t next_free = 1) {
    std::vector<uint8_t> file(512, 0);
    put(file, 0, be32(next_free));
    std::reverse(file.begin(), file.begin() + 4);
    return file;
}

// Text of `n` bytes that never holds 0x1A and differs from position to position.
inline std::string pattern(size_t n, char base = 'a') {
    std::string s(n, ' ');
    for (size_t i = 0; i < n; ++i) s[i] = char(base + i % 23);
    return s;
}

}  // namespace memo_test
