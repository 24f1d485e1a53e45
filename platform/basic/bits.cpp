// Bit sets: a growable row of bits kept in 64-bit words, with the number of
// ones kept up to date so that counting is immediate.
#include <cstdint>
#include <new>
#include <vector>

#include "qzk_basic.h"

namespace {

struct bit_set {
    std::vector<uint64_t> words;
    uint64_t size = 0;  // bits the set holds: one past the highest index set
    uint64_t ones = 0;
};

bit_set* as_set(void* bits) {
    return static_cast<bit_set*>(bits);
}

}  // namespace

extern "C" {

QZ_BASIC_API void* qz_bits_create(void) {
    return new (std::nothrow) bit_set();
}

QZ_BASIC_API void qz_bits_destroy(void* bits) {
    delete as_set(bits);
}

QZ_BASIC_API void qz_bits_set_bit(void* bits, unsigned int index, int value) {
    bit_set* s = as_set(bits);
    if (!s) return;
    const size_t word = index / 64;
    const uint64_t mask = uint64_t{1} << (index % 64);
    if (word >= s->words.size()) {
        try {
            s->words.resize(word + 1, 0);
        } catch (...) {
            return;  // out of memory: the set stays as it was
        }
    }
    if (uint64_t{index} + 1 > s->size) s->size = uint64_t{index} + 1;
    const bool was = (s->words[word] & mask) != 0;
    if (value && !was) {
        s->words[word] |= mask;
        ++s->ones;
    } else if (!value && was) {
        s->words[word] &= ~mask;
        --s->ones;
    }
}

QZ_BASIC_API int qz_bits_get_bit(void* bits, unsigned int index) {
    bit_set* s = as_set(bits);
    if (!s || index / 64 >= s->words.size()) return 0;
    return (s->words[index / 64] >> (index % 64)) & 1 ? 1 : 0;
}

QZ_BASIC_API unsigned qz_bits_get_val_count(void* bits, int value) {
    bit_set* s = as_set(bits);
    if (!s) return 0;
    return static_cast<unsigned>(value ? s->ones : s->size - s->ones);
}

}  // extern "C"
