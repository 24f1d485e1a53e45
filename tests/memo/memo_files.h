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

struct Field {
    std::string name;
    char type;
    uint8_t length;
};

// A .dbf file with the given version byte, fields and records; each record
// is one cell text per field, padded with spaces to the field's length.
inline std::vector<uint8_t> dbf_file(uint8_t version, const std::vector<Field>& fields,
                                     const std::vector<std::vector<std::string>>& records) {
    const size_t header_length = 32 + 32 * fields.size() + 1;
    size_t record_length = 1;
    for (const Field& f : fields) record_length += f.length;
    std::vector<uint8_t> file(header_length, 0);
    file[0] = version;
    file[1] = 124, file[2] = 6, file[3] = 1;
    for (int i = 0; i < 4; ++i) file[4 + i] = static_cast<uint8_t>(records.size() >> (8 * i));
    file[8] = static_cast<uint8_t>(header_length),
    file[9] = static_cast<uint8_t>(header_length >> 8);
    file[10] = static_cast<uint8_t>(record_length),
    file[11] = static_cast<uint8_t>(record_length >> 8);
    for (size_t i = 0; i < fields.size(); ++i) {
        put(file, 32 + 32 * i, fields[i].name.substr(0, 10));
        file[32 + 32 * i + 11] = static_cast<uint8_t>(fields[i].type);
        file[32 + 32 * i + 16] = fields[i].length;
    }
    file[header_length - 1] = 0x0D;
    for (const auto& cells : records) {
        std::string record = " ";
        for (size_t i = 0; i < fields.size(); ++i) {
            std::string cell = i < cells.size() ? cells[i] : std::string();
            cell.resize(fields[i].length, ' ');
            record += cell;
        }
        put(file, file.size(), record);
    }
    file.push_back(0x1A);
    return file;
}

// A number right-aligned in a cell of `width`, as dBASE writes block numbers.
inline std::string right(const std::string& text, size_t width) {
    return text.size() >= width ? text : std::string(width - text.size(), ' ') + text;
}

}  // namespace memo_test
