// The two memo file layouts. FPT: a 512-byte file header whose block size
// is big-endian, and an 8-byte big-endian header (type, length) in front of
// each memo. DBT: a 512-byte file header and 512-byte blocks; a memo runs
// from the start of its block up to the byte 0x1A.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qz::memo {

constexpr size_t file_header_size = 512;
constexpr size_t dbt_block_size = 512;
constexpr size_t dbt_max_chunks = 128;  // a DBT memo is looked for in 64 KiB
constexpr uint8_t dbt_terminator = 0x1A;
constexpr int32_t initial_buffer_size = 1024;

// The FPT memo types as get_memo reports them: the four bytes of the block
// header taken in host order, unswapped, so text (1 in the file) is 0x01000000.
constexpr unsigned int fpt_type_picture = 0;
constexpr unsigned int fpt_type_text = 0x01000000;

inline uint16_t swap_short(uint16_t v) {
    return static_cast<uint16_t>((v >> 8) | (v << 8));
}

inline uint32_t swap_int(uint32_t v) {
    return (v >> 24) | ((v >> 8) & 0xFF00u) | ((v << 8) & 0xFF0000u) | (v << 24);
}

}  // namespace qz::memo

#pragma pack(push, 1)
// The FPT file header as kept by the reader: the block size is stored
// swapped to host order, everything else as in the file.
struct Tfpt_file_hdr {
    uint32_t next_free;  // big-endian; not used
    uint16_t reserved1;
    int16_t block_size;
    uint8_t reserved2[504];
};

// The header of an FPT memo's first block, as in the file (big-endian).
struct Tfpt_block_hdr {
    uint32_t type;
    uint32_t length;
};

// The DBT file header: read whole at open, not interpreted.
struct Tdbt_file_hdr {
    uint8_t bytes[512];
};
#pragma pack(pop)

static_assert(sizeof(Tfpt_file_hdr) == qz::memo::file_header_size, "FPT file header");
static_assert(sizeof(Tfpt_block_hdr) == 8, "FPT block header");
static_assert(sizeof(Tdbt_file_hdr) == qz::memo::file_header_size, "DBT file header");
