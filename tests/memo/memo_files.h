// Builds FPT and DBT memo files byte by byte for the memo tests.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace memo_test {

// Writes `data` at `at`, growing `file` with zeros as needed.
inline void put(std::vector<uint8_t>& file, size_t at, const std::string& data) {
    if (file.size() < at + data.size()) file.resize(at + data.size(), 0);
    for (size_t i = 0; i < data.size(); ++i) file[at + i] = static_cast<uint8_t>(data[i]);
}

inline std::string be32(uint32_t v) {
    return {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8),
            static_cast<char>(v)};
}

// An FPT file of only its 512-byte header: next free block and block size
// big-endian.
inline std::vector<uint8_t> fpt_file(uint16_t block_size, uint32_t next_free = 0) {
    std::vector<uint8_t> file(512, 0);
    put(file, 0, be32(next_free));
    file[6] = static_cast<uint8_t>(block_size >> 8);
    file[7] = static_cast<uint8_t>(block_size);
    return file;
}

// A memo at `block`: its 8-byte header (type, length field) and `data`.
inline void fpt_put(std::vector<uint8_t>& file, uint32_t block_size, uint32_t block, uint32_t type,
                    const std::string& data, uint32_t length_field) {
    put(file, size_t{block} * block_size, be32(type) + be32(length_field) + data);
}
inline void fpt_put(std::vector<uint8_t>& file, uint32_t block_size, uint32_t block, uint32_t type,
                    const std::string& data) {
    fpt_put(file, block_size, block, type, data, static_cast<uint32_t>(data.size()));
}

// A DBT file of only its 512-byte header (next free block, little-endian).
inline std::vector<uint8_t> dbt_file(uint32_t next_free = 1) {
    std::vector<uint8_t> file(512, 0);
    for (int i = 0; i < 4; ++i) file[i] = static_cast<uint8_t>(next_free >> (8 * i));
    return file;
}

// `data` at block × 512; the caller adds the terminator 0x1A where wanted.
inline void dbt_put(std::vector<uint8_t>& file, uint32_t block, const std::string& data) {
    put(file, size_t{block} * 512, data);
}

// Text of `n` bytes that never holds 0x1A and differs from position to position.
inline std::string pattern(size_t n, char base = 'a') {
    std::string s(n, ' ');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>(base + i % 23);
    return s;
}

// A number right-aligned in a cell of `width`, as dBASE writes block numbers.
inline std::string right(const std::string& text, size_t width) {
    return text.size() >= width ? text : std::string(width - text.size(), ' ') + text;
}

}  // namespace memo_test
