#include "dbf/fast_find.h"

#include <cstring>

namespace {

constexpr uint64_t max_key_length = (1u << 24) - 1;

inline size_t key_length(uint64_t ref) {
    return static_cast<size_t>(ref & max_key_length);
}
inline size_t key_offset(uint64_t ref) {
    return static_cast<size_t>(ref >> 24);
}

}  // namespace

void Tqz_dbf_fast_find::clear() {
    std::vector<slot>().swap(slots_);
    std::vector<slot>().swap(pending_);
    std::vector<char>().swap(keys_);
    count_ = 0;
}

void Tqz_dbf_fast_find::reserve(size_t count) {
    pending_.reserve(count);
    keys_.reserve(count * 12);
}

uint32_t Tqz_dbf_fast_find::hash_of(const char* key, size_t len) {
    // Eight bytes at a time, mixed at the end: quick for the short texts of
    // table cells.
    uint64_t h = 0xcbf29ce484222325ull ^ len;
    size_t i = 0;
    for (; i + 8 <= len; i += 8) {
        uint64_t w;
        std::memcpy(&w, key + i, 8);
        h = (h ^ w) * 0x100000001b3ull;
        h ^= h >> 29;
    }
    uint64_t tail = 0;
    if (len > i) std::memcpy(&tail, key + i, len - i);
    h = (h ^ tail) * 0x100000001b3ull;
    h ^= h >> 32;
    h *= 0xd6e8feb86659fd93ull;
    h ^= h >> 32;
    return static_cast<uint32_t>(h);
}

bool Tqz_dbf_fast_find::same_key(const slot& s, const char* key, size_t len) const {
    return key_length(s.key) == len &&
           (len == 0 || std::memcmp(keys_.data() + key_offset(s.key), key, len) == 0);
}

void Tqz_dbf_fast_find::add(const char* key, size_t len, uint32_t record) {
    if (len > max_key_length) return;  // no cell text comes near this
    if (keys_.empty()) keys_.push_back(0);
    uint64_t offset = keys_.size();
    keys_.insert(keys_.end(), key, key + len);
    pending_.push_back(slot{hash_of(key, len), record, offset << 24 | len});
}

void Tqz_dbf_fast_find::build() {
    if (pending_.empty()) return;
    // Room for the entries already built and the new ones at two thirds full.
    size_t total = count_ + pending_.size();
    size_t size = 16;
    int bits = 4;
    while (size * 2 < total * 3) size *= 2, ++bits;
    std::vector<slot> entries;
    entries.reserve(total);
    for (const slot& s : slots_)
        if (s.key) entries.push_back(s);
    entries.insert(entries.end(), pending_.begin(), pending_.end());
    std::vector<slot>().swap(pending_);

    // Stable radix sort by home slot, 11 bits a pass: entries of one text
    // keep the order they were added in.
    const size_t mask = size - 1;
    std::vector<slot> sorted(entries.size());
    for (int shift = 0; shift < bits; shift += 11) {
        size_t counts[2049] = {0};
        for (const slot& s : entries) ++counts[((s.hash & mask) >> shift & 2047) + 1];
        for (size_t i = 1; i < 2049; ++i) counts[i] += counts[i - 1];
        for (const slot& s : entries) sorted[counts[(s.hash & mask) >> shift & 2047]++] = s;
        entries.swap(sorted);
    }
    std::vector<slot>().swap(sorted);

    slots_.assign(size, slot{0, 0, 0});
    count_ = 0;
    for (const slot& e : entries) {
        size_t i = e.hash & mask;
        for (;; i = (i + 1) & mask) {
            slot& s = slots_[i];
            if (!s.key) {
                s = e;
                ++count_;
                break;
            }
            if (s.hash == e.hash &&
                same_key(s, keys_.data() + key_offset(e.key), key_length(e.key))) {
                s.record = e.record;  // the later record wins
                break;
            }
        }
    }
}

bool Tqz_dbf_fast_find::find(const char* key, size_t len, uint32_t& record) const {
    if (count_ == 0) return false;
    const uint32_t hash = hash_of(key, len);
    const size_t mask = slots_.size() - 1;
    for (size_t i = hash & mask;; i = (i + 1) & mask) {
        const slot& s = slots_[i];
        if (!s.key) return false;
        if (s.hash == hash && same_key(s, key, len)) {
            record = s.record;
            return true;
        }
    }
}
