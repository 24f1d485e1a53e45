#include "encoding/utf8_scan.h"

namespace qz::strconv {

namespace {

// The states, as bit offsets: between characters, failed (for good), and
// waiting for continuation bytes: one or two of any kind, the second byte
// after E0 (A0..BF) or ED (80..9F), three of any kind, the second byte after
// F0 (90..BF) or F4 (80..8F).
enum : unsigned {
    s_accept = 0,
    s_fail = 6,
    s_one = 12,
    s_two = 18,
    s_e0 = 24,
    s_ed = 30,
    s_three = 36,
    s_f0 = 42,
    s_f4 = 48
};
static_assert(s_accept == utf8_accept, "the state between characters");

constexpr unsigned next_state(unsigned state, unsigned b) {
    const bool cont = b >= 0x80 && b < 0xC0;
    switch (state) {
        case s_accept:
            if (b < 0x80) return s_accept;
            if (b >= 0xC2 && b < 0xE0) return s_one;
            if (b == 0xE0) return s_e0;
            if (b == 0xED) return s_ed;
            if (b > 0xE0 && b < 0xF0) return s_two;
            if (b == 0xF0) return s_f0;
            if (b > 0xF0 && b < 0xF4) return s_three;
            if (b == 0xF4) return s_f4;
            return s_fail;
        case s_one:
            return cont ? s_accept : s_fail;
        case s_two:
            return cont ? s_one : s_fail;
        case s_e0:
            return b >= 0xA0 && b < 0xC0 ? s_one : s_fail;
        case s_ed:
            return b >= 0x80 && b < 0xA0 ? s_one : s_fail;
        case s_three:
            return cont ? s_two : s_fail;
        case s_f0:
            return b >= 0x90 && b < 0xC0 ? s_two : s_fail;
        case s_f4:
            return b >= 0x80 && b < 0x90 ? s_two : s_fail;
        default:
            return s_fail;
    }
}

constexpr utf8_table make_rows() {
    utf8_table t{};
    for (unsigned b = 0; b < 256; ++b) {
        uint64_t row = 0;
        for (unsigned s = s_accept; s <= s_f4; s += 6)
            row |= static_cast<uint64_t>(next_state(s, b)) << s;
        t.row[b] = row;
    }
    return t;
}

}  // namespace

// Computed by the compiler (a constant initializer), ready before any code runs.
const utf8_table utf8_rows = make_rows();

}  // namespace qz::strconv
