#include "memory/records.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// A block made for single records grows with the table (an eighth of it),
// but stays below this size.
constexpr size_t kMaxGrowthBytes = size_t{8} << 20;
constexpr size_t kMinGrowthSlots = 16;

}  // namespace

Tqz_dbf_records::~Tqz_dbf_records() {
    free_blocks();
}

void Tqz_dbf_records::free_blocks() {
    for (Block& b : blocks) std::free(b.bytes);
    blocks.clear();
}

void Tqz_dbf_records::clear() {
    free_blocks();
    std::vector<unsigned char*>().swap(index);
    std::vector<unsigned char*>().swap(free_slots);
    std::vector<Block>().swap(blocks);
}

void Tqz_dbf_records::add_block(size_t slots) {
    if (slots == 0 || length == 0) return;
    if (slots > SIZE_MAX / length) throw std::bad_alloc();
    blocks.reserve(blocks.size() + 1);
    auto* bytes = static_cast<unsigned char*>(std::malloc(slots * length));
    if (!bytes) throw std::bad_alloc();
    blocks.push_back(Block{bytes, slots, 0});
}

unsigned char* Tqz_dbf_records::take_slot() {
    if (length == 0) return nullptr;
    if (!free_slots.empty()) {
        unsigned char* slot = free_slots.back();
        free_slots.pop_back();
        return slot;
    }
    if (blocks.empty() || blocks.back().used == blocks.back().slots) {
        size_t slots = std::max(kMinGrowthSlots, index.size() / 8);
        slots = std::min(slots, std::max<size_t>(1, kMaxGrowthBytes / length));
        add_block(slots);
    }
    Block& b = blocks.back();
    return b.bytes + (b.used++) * length;
}

void Tqz_dbf_records::put_slot(unsigned char* slot) {
    if (!slot) return;
    try {
        free_slots.push_back(slot);
    } catch (...) {
        // Out of memory: the slot is not reused, and goes with its block.
    }
}

void Tqz_dbf_records::set_size(unsigned int n, bool fill) {
    const size_t count = index.size();
    if (n <= count) {
        for (size_t i = n; i < count; ++i) put_slot(index[i]);
        index.resize(n);
        return;
    }
    const size_t need = n - count;
    index.reserve(n);
    if (length > 0) {
        // New records go to free slots, then the last block, then one new
        // block of the rest, so a fresh store gets one block for them all.
        // (A new block becomes the last one: the old last block's free tail
        // is then left unused.)
        size_t tail = blocks.empty() ? 0 : blocks.back().slots - blocks.back().used;
        if (free_slots.size() + tail < need) add_block(need - free_slots.size());
    }
    for (size_t i = count; i < n; ++i) {
        unsigned char* slot = take_slot();
        if (fill && slot) std::memset(slot, ' ', length);
        index.push_back(slot);
    }
}

void Tqz_dbf_records::set_length(unsigned int len) {
    if (len == length) return;
    Tqz_dbf_records resized;
    resized.length = len;
    resized.set_size(get_size(), false);
    const size_t keep = std::min(len, length);
    for (size_t i = 0; i < index.size(); ++i) {
        unsigned char* to = resized.index[i];
        if (!to) continue;
        if (keep > 0) std::memcpy(to, index[i], keep);
        if (len > keep) std::memset(to + keep, ' ', len - keep);
    }
    std::swap(index, resized.index);
    std::swap(free_slots, resized.free_slots);
    std::swap(blocks, resized.blocks);
    length = len;
    // `resized` now holds the old blocks and frees them.
}

bool Tqz_dbf_records::add() {
    unsigned char* slot = take_slot();
    if (slot) std::memset(slot, ' ', length);
    try {
        index.push_back(slot);
    } catch (...) {
        put_slot(slot);
        throw;
    }
    return true;
}

bool Tqz_dbf_records::ins(unsigned int i) {
    if (i >= index.size()) return false;
    unsigned char* slot = take_slot();
    if (slot) std::memset(slot, ' ', length);
    try {
        index.insert(index.begin() + i, slot);
    } catch (...) {
        put_slot(slot);
        throw;
    }
    return true;
}

bool Tqz_dbf_records::del(unsigned int i) {
    if (i >= index.size()) return false;
    put_slot(index[i]);
    index.erase(index.begin() + i);
    return true;
}

unsigned int Tqz_dbf_records::del_many(const std::vector<unsigned int>& at) {
    const size_t count = index.size();
    size_t k = 0;
    size_t out = at.empty() || at[0] >= count ? count : at[0];
    for (size_t i = out; i < count; ++i) {
        if (k < at.size() && at[k] == i) {
            put_slot(index[i]);
            ++k;
        } else {
            index[out++] = index[i];
        }
    }
    index.resize(out);
    return static_cast<unsigned int>(count - out);
}

void Tqz_dbf_records::ins_many(const unsigned int* at, size_t n, const unsigned char* bytes,
                               size_t size) {
    if (n == 0) return;
    const size_t count = index.size();
    std::vector<unsigned char*> merged;
    merged.reserve(count + n);
    std::vector<unsigned char*> slots;
    slots.reserve(n);
    if (length > 0 && free_slots.size() < n) {
        size_t tail = blocks.empty() ? 0 : blocks.back().slots - blocks.back().used;
        if (free_slots.size() + tail < n) add_block(n - free_slots.size() - tail);
    }
    for (size_t k = 0; k < n; ++k) slots.push_back(take_slot());
    const size_t keep = std::min<size_t>(size, length);
    size_t old = 0;
    for (size_t k = 0; k < n; ++k) {
        // Record k lands at at[k], or at the end of what is there by then.
        const size_t pos = std::min<size_t>(at[k], count + k);
        while (merged.size() < pos) merged.push_back(index[old++]);
        unsigned char* slot = slots[k];
        if (slot) {
            if (keep > 0 && bytes) std::memcpy(slot, bytes + k * size, keep);
            if (length > keep) std::memset(slot + keep, ' ', length - keep);
        }
        merged.push_back(slot);
    }
    while (old < count) merged.push_back(index[old++]);
    index.swap(merged);
}

void Tqz_dbf_records::assign(const Tqz_dbf_records* other) {
    if (!other || other == this) return;
    clear();
    length = other->length;
    set_size(other->get_size(), false);
    if (length == 0) return;
    for (size_t i = 0; i < index.size(); ++i) std::memcpy(index[i], other->index[i], length);
}

unsigned char* Tqz_dbf_records::get_block(unsigned int first, unsigned int& count) const {
    if (first >= index.size() || length == 0 || count == 0) {
        count = 0;
        return nullptr;
    }
    unsigned char* start = index[first];
    const size_t limit = std::min<size_t>(count, index.size() - first);
    size_t k = 1;
    while (k < limit && index[first + k] == start + k * length) ++k;
    count = static_cast<unsigned int>(k);
    return start;
}

size_t Tqz_dbf_records::get_heap_bytes() const {
    size_t n = index.capacity() * sizeof(unsigned char*) +
               free_slots.capacity() * sizeof(unsigned char*) + blocks.capacity() * sizeof(Block);
    for (const Block& b : blocks) n += b.slots * length;
    return n;
}
