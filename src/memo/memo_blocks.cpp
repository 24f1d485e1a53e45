#include "memo/memo_blocks.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace qz::memo {

namespace {

constexpr size_t header_bytes = 512;
constexpr uint8_t dbt4_mark[4] = {0xFF, 0xFF, 0x08, 0x00};
// A memo is never taken longer than this (a damaged length field).
constexpr uint32_t longest_memo = 0x7FFFFFF0u;

uint32_t be32(const uint8_t* p) {
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}
uint32_t le32(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
void put_be32(uint8_t* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (24 - 8 * i));
}
void put_le32(uint8_t* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

// The block size of the file: big-endian at 6 for FPT, little-endian at
// 20 for dBASE IV (0 there means 512), 512 for dBASE III.
uint32_t block_size(Tqz_memo_file& file, layout kind) {
    uint8_t h[24] = {0};
    file.read_raw(0, h, sizeof h);
    switch (kind) {
        case layout::fpt:
            return uint32_t(h[6]) << 8 | h[7];
        case layout::dbt4: {
            const uint32_t n = uint32_t(h[20]) | uint32_t(h[21]) << 8;
            return n ? n : 512;
        }
        default:
            return 512;
    }
}

// Reads `n` bytes at `at`, the count the file holds there.
size_t read_into(Tqz_memo_file& file, uint64_t at, std::string& bytes, uint32_t n) {
    const int64_t size = file.raw_size();
    if (static_cast<int64_t>(at) >= size) return 0;
    n = static_cast<uint32_t>(std::min<uint64_t>(n, static_cast<uint64_t>(size) - at));
    bytes.resize(n);
    const size_t got = file.read_raw(static_cast<int64_t>(at), &bytes[0], n);
    bytes.resize(got);
    return got;
}

}  // namespace

layout dbt_layout_of(uint8_t version) {
    switch (version) {
        case 0x8B:
        case 0xCB:
        case 0x8C:
        case 0x8E:
        case 0x7B:
            return layout::dbt4;
        default:
            return layout::dbt3;
    }
}

bool read_memo(Tqz_memo_file& file, layout kind, uint32_t block, std::string& bytes,
               uint32_t& type) {
    bytes.clear();
    type = fpt_text;
    if (block == 0 || !file.is_open()) return false;
    const uint32_t size = block_size(file, kind);
    if (size == 0) return false;
    const uint64_t at = uint64_t(block) * size;
    uint8_t head[8] = {0};
    const size_t got = file.read_raw(static_cast<int64_t>(at), head, sizeof head);
    if (kind == layout::fpt) {
        if (got < sizeof head) return false;
        type = be32(head);
        read_into(file, at + 8, bytes, std::min(be32(head + 4), longest_memo));
        return true;
    }
    if (got == sizeof head && std::memcmp(head, dbt4_mark, 4) == 0) {
        const uint32_t length = le32(head + 4);
        read_into(file, at + 8, bytes, length >= 8 ? std::min(length - 8, longest_memo) : 0);
        return true;
    }
    if (got == 0) return false;
    // dBASE III: up to the first 0x1A, read a block at a time.
    uint64_t pos = at;
    std::string chunk;
    for (;;) {
        if (read_into(file, pos, chunk, 512) == 0) break;
        const size_t end = chunk.find('\x1A');
        bytes.append(chunk, 0, end == std::string::npos ? chunk.size() : end);
        if (end != std::string::npos || chunk.size() < 512 || bytes.size() >= longest_memo) break;
        pos += 512;
    }
    return true;
}

bool append_memo(Tqz_memo_file& file, layout kind, const std::string& bytes, uint32_t type,
                 uint32_t& block, std::string& why) {
    block = 0;
    if (!file.is_open()) {
        why = "no memo file is open";
        return false;
    }
    if (kind == layout::dbt3 && bytes.find('\x1A') != std::string::npos) {
        why = "a dBASE III memo cannot hold the byte 0x1A";
        return false;
    }
    if (bytes.size() > longest_memo - 16) {
        why = "the memo is too long";
        return false;
    }
    const uint32_t size = block_size(file, kind);
    if (size == 0) {
        why = "the memo file names a block size of 0";
        return false;
    }
    uint8_t head[4] = {0};
    file.read_raw(0, head, sizeof head);
    // The next free block as the header keeps it, but never inside the file
    // header nor before the end of what the file holds.
    const uint64_t first_free = (header_bytes + size - 1) / size;
    const uint64_t used = (static_cast<uint64_t>(file.raw_size()) + size - 1) / size;
    const uint64_t listed = kind == layout::fpt ? be32(head) : le32(head);
    const uint64_t at_block = std::max({first_free, used, listed});

    std::vector<uint8_t> out;
    switch (kind) {
        case layout::fpt:
            out.resize(8);
            put_be32(out.data(), type);
            put_be32(out.data() + 4, static_cast<uint32_t>(bytes.size()));
            out.insert(out.end(), bytes.begin(), bytes.end());
            break;
        case layout::dbt4:
            out.assign(dbt4_mark, dbt4_mark + 4);
            out.resize(8);
            put_le32(out.data() + 4, static_cast<uint32_t>(bytes.size() + 8));
            out.insert(out.end(), bytes.begin(), bytes.end());
            break;
        case layout::dbt3:
            out.assign(bytes.begin(), bytes.end());
            out.push_back(0x1A);
            out.push_back(0x1A);
            break;
    }
    const uint64_t blocks = (out.size() + size - 1) / size;
    out.resize(blocks * size, 0);
    const uint64_t next = at_block + blocks;
    if (next > 0xFFFFFFFFull || next * size > 0x7FFFFFFFFFFFull) {
        why = "the memo file would pass its largest block number";
        return false;
    }
    uint8_t next_bytes[4];
    if (kind == layout::fpt)
        put_be32(next_bytes, static_cast<uint32_t>(next));
    else
        put_le32(next_bytes, static_cast<uint32_t>(next));
    // The memo first, then the header that hands its blocks out: a failure
    // between the two leaves blocks unused, never a memo overwritten.
    if (!file.write_raw(static_cast<int64_t>(at_block * size), out.data(), out.size()) ||
        !file.write_raw(0, next_bytes, sizeof next_bytes)) {
        why = "the memo file could not be written (read-only?)";
        return false;
    }
    block = static_cast<uint32_t>(at_block);
    return true;
}

}  // namespace qz::memo
