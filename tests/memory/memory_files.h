// Table files built byte by byte, and snapshots of memory tables, for the
// memory table tests.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "qzk_file_dbf.h"

namespace memory_test {

struct Field {
    std::string name;
    char type;
    uint8_t length;
    uint8_t decimals = 0;
};

// A dBASE III file: version 3, date 2024-06-01, the given fields and
// records (each cell's text padded with spaces to the field's length; the
// first byte of a record is its deletion flag, "*" when the record's
// `deleted` entry says so). Descriptor bytes 12..15 hold `junk_offsets` so
// a test can see that loading recomputes them.
inline std::vector<uint8_t> dbf_file(const std::vector<Field>& fields,
                                     const std::vector<std::vector<std::string>>& records,
                                     const std::vector<bool>& deleted = {},
                                     uint32_t junk_offsets = 0) {
    const size_t header_length = 32 + 32 * fields.size() + 1;
    size_t record_length = 1;
    for (const Field& f : fields) record_length += f.length;
    std::vector<uint8_t> file(header_length, 0);
    file[0] = 3;
    file[1] = 124, file[2] = 6, file[3] = 1;
    for (int i = 0; i < 4; ++i) file[4 + i] = static_cast<uint8_t>(records.size() >> (8 * i));
    file[8] = static_cast<uint8_t>(header_length);
    file[9] = static_cast<uint8_t>(header_length >> 8);
    file[10] = static_cast<uint8_t>(record_length);
    file[11] = static_cast<uint8_t>(record_length >> 8);
    for (size_t k = 0; k < fields.size(); ++k) {
        uint8_t* d = file.data() + 32 + 32 * k;
        for (size_t c = 0; c < fields[k].name.size() && c < 10; ++c)
            d[c] = static_cast<uint8_t>(fields[k].name[c]);
        d[11] = static_cast<uint8_t>(fields[k].type);
        for (int i = 0; i < 4; ++i) d[12 + i] = static_cast<uint8_t>(junk_offsets >> (8 * i));
        d[16] = fields[k].length;
        d[17] = fields[k].decimals;
    }
    file[header_length - 1] = 0x0D;
    for (size_t r = 0; r < records.size(); ++r) {
        file.push_back(r < deleted.size() && deleted[r] ? '*' : ' ');
        for (size_t k = 0; k < fields.size(); ++k) {
            std::string cell = k < records[r].size() ? records[r][k] : "";
            cell.resize(fields[k].length, ' ');
            file.insert(file.end(), cell.begin(), cell.end());
        }
    }
    file.push_back(0x1A);
    return file;
}

// A descriptor with no decimals.
inline Tqz_dbf_field field(const char* name, char type, unsigned char flen) {
    Tqz_dbf_field f;
    std::memset(&f, 0, sizeof f);
    std::strncpy(f.name, name, 10);
    f.type = type;
    f.flen = flen;
    return f;
}

// Sets the 32-bit record count of a file image.
inline void set_count(std::vector<uint8_t>& file, uint32_t n) {
    for (int i = 0; i < 4; ++i) file[4 + i] = static_cast<uint8_t>(n >> (8 * i));
}

}  // namespace memory_test
