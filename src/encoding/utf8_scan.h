// Checking that a text is well-formed UTF-8, eight bytes at a time where it
// is plain ASCII and through a small automaton elsewhere.
//
// Well-formed means what the conversions accept character by character:
// no stray continuation bytes, no overlong forms, no surrogates, nothing
// above U+10FFFF, no character cut off by the end of the text.
//
// The automaton keeps its state as a bit offset (a multiple of 6) into a
// 64-bit row per byte value; the row holds, at each state's offset, the
// offset of the state that byte leads to. One step is one load and one
// shift, and only the low six bits of the state are ever used as a shift
// count, so the steps need no masking in between.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qz::strconv {

// The rows of the automaton, by byte value.
struct utf8_table {
    uint64_t row[256];
};
extern const utf8_table utf8_rows;

// The state between characters; every malformed text ends in another.
constexpr unsigned utf8_accept = 0;

// The state after `n` bytes from `state` (only its low six bits count).
inline uint64_t utf8_steps(uint64_t state, const unsigned char* p, size_t n) {
    for (size_t i = 0; i < n; ++i) state = utf8_rows.row[p[i]] >> (state & 63);
    return state;
}

// Whether the `n` bytes at `p` are well-formed UTF-8 (zero bytes are plain
// characters here).
inline bool utf8_well_formed(const unsigned char* p, size_t n) {
    const unsigned char* end = p + n;
    uint64_t state = utf8_accept;
    while (end - p >= 8) {
        uint64_t w;
        std::memcpy(&w, p, 8);
        // Eight ASCII bytes between characters leave the state as it is.
        if ((state & 63) != utf8_accept || (w & 0x8080808080808080ull)) {
            state = utf8_rows.row[p[0]] >> (state & 63);
            state = utf8_rows.row[p[1]] >> (state & 63);
            state = utf8_rows.row[p[2]] >> (state & 63);
            state = utf8_rows.row[p[3]] >> (state & 63);
            state = utf8_rows.row[p[4]] >> (state & 63);
            state = utf8_rows.row[p[5]] >> (state & 63);
            state = utf8_rows.row[p[6]] >> (state & 63);
            state = utf8_rows.row[p[7]] >> (state & 63);
        }
        p += 8;
    }
    state = utf8_steps(state, p, static_cast<size_t>(end - p));
    return (state & 63) == utf8_accept;
}

}  // namespace qz::strconv
