// dBASE 7 tables (version 0x04, or 0x8C with a memo file): after the 32-byte
// header come a 32-byte language-driver name and 4 reserved bytes, then
// 48-byte field descriptors ended by 0x0D (name 32 bytes NUL-padded, type at
// 32, length at 33, decimals at 34), then the field-properties structure.
// The descriptors are turned into the 32-byte form the rest of the library
// keeps; the full names (up to 31 characters) are kept beside them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "dbf/dbf_format.h"

namespace qz::dbf {

constexpr size_t dbase7_descriptors_at = 68;  // 32 header + 32 driver name + 4 reserved
constexpr size_t dbase7_descriptor_size = 48;
constexpr size_t dbase7_name_size = 32;
constexpr size_t dbase7_type = 32, dbase7_length = 33, dbase7_decimals = 34;

inline bool is_dbase7_version(uint8_t version) {
    return version == 0x04 || version == 0x8C;
}

// An I or + cell of a dBASE 7 table as its 4 bytes were copied into an
// int32_t in file order: big-endian with the sign bit flipped; all zeros (an
// empty cell) gives 0.
inline int32_t dbase7_integer(int32_t raw) {
    uint8_t b[4];
    std::memcpy(b, &raw, 4);
    if ((b[0] | b[1] | b[2] | b[3]) == 0) return 0;
    const uint32_t v =
        (uint32_t(b[0]) << 24 | uint32_t(b[1]) << 16 | uint32_t(b[2]) << 8 | b[3]) ^ 0x80000000u;
    int32_t out;
    std::memcpy(&out, &v, 4);
    return out;
}

// An O cell of a dBASE 7 table (8 bytes in file order): big-endian, the
// sign bit set for positive numbers and every bit inverted for negative
// ones. False for all zeros (an empty cell).
inline bool dbase7_double(const uint8_t* p, double& out) {
    uint64_t bits = 0;
    for (int k = 0; k < 8; ++k) bits = bits << 8 | p[k];
    if (bits == 0) return false;
    bits = (bits >> 63) ? bits & ~(uint64_t(1) << 63) : ~bits;
    std::memcpy(&out, &bits, 8);
    return true;
}

// An @ cell (8 bytes in file order): a big-endian double of milliseconds
// counted with 0001-01-01 as day 1, as milliseconds since 1970-01-01. A
// set top bit is taken as the order-flipped form of the O cells (a
// timestamp is positive). False for all zeros or a value out of range.
inline bool timestamp_ms(const uint8_t* p, int64_t& out) {
    uint64_t bits = 0;
    for (int k = 0; k < 8; ++k) bits = bits << 8 | p[k];
    if (bits == 0) return false;
    bits &= ~(uint64_t(1) << 63);
    double stored;
    std::memcpy(&stored, &bits, 8);
    const double ms = stored - 719163.0 * 86400000.0;
    if (!(ms > -9.0e18 && ms < 9.0e18)) return false;
    out = static_cast<int64_t>(ms < 0 ? ms - 0.5 : ms + 0.5);
    return true;
}

// Parses the descriptors in `area` (the first `size` bytes of the file, cut
// to the header length). Stops at 0x0D or at the first descriptor that does
// not end within `size`. Each descriptor's name is cut to its first 10 bytes
// for the 32-byte form (the classic interface's 11-byte names); the full
// name, up to its NUL or 31 bytes, goes to `long_names`.
void parse_dbase7_descriptors(const uint8_t* area, size_t size, std::vector<Tdbf_descriptor>& out,
                              std::vector<std::string>& long_names);

// The language-driver name of bytes 32..63 up to its NUL ("DBWINUS0").
std::string language_driver_name(const uint8_t* area, size_t size);

}  // namespace qz::dbf
