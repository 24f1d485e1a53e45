// The .dbf file layout: a 32-byte header, 32-byte field descriptors ended by
// 0x0D, the records, and 0x1A after the last record. All numbers are
// little-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qz::dbf {

constexpr size_t header_size = 32;
constexpr size_t descriptor_size = 32;
constexpr uint8_t descriptor_terminator = 0x0D;
constexpr uint8_t end_of_file = 0x1A;
constexpr uint8_t version_created = 3;
constexpr uint8_t version_foxpro_memo = 0xF5;  // the one version that prefers .fpt

// Header offsets.
constexpr size_t hdr_version = 0, hdr_year = 1, hdr_month = 2, hdr_day = 3;
constexpr size_t hdr_record_count = 4, hdr_header_length = 8, hdr_record_length = 10;
constexpr size_t hdr_language_driver = 29;

// Descriptor offsets. Bytes 12..15 are reserved in the file; in memory they
// hold the field's offset within the record.
constexpr size_t fld_name = 0, fld_name_size = 11, fld_type = 11, fld_offset = 12;
constexpr size_t fld_length = 16, fld_decimals = 17;

inline uint16_t get_u16(const uint8_t* p) {
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}
inline uint32_t get_u32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}
inline void put_u16(uint8_t* p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}
inline void put_u32(uint8_t* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

// One field descriptor, byte for byte as in the file.
struct Tdbf_descriptor {
    uint8_t bytes[descriptor_size];

    char* name() { return reinterpret_cast<char*>(bytes + fld_name); }
    char type() const { return static_cast<char>(bytes[fld_type]); }
    uint32_t offset() const { return get_u32(bytes + fld_offset); }
    void set_offset(uint32_t v) { put_u32(bytes + fld_offset, v); }
    uint8_t flen() const { return bytes[fld_length]; }
    int8_t dlen() const { return static_cast<int8_t>(bytes[fld_decimals]); }
};
static_assert(sizeof(Tdbf_descriptor) == descriptor_size, "descriptor layout");

}  // namespace qz::dbf
