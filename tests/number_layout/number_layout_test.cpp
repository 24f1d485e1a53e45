// The numeric cell writer (a layout read off the field, digits from
// std::to_chars) against the way cells were written before: the field's
// printf format built as text and applied by the C library, "%-W.e" when
// that is too long, nothing when still too long. A million values over every
// numeric type, every length and every decimal count must give the same
// bytes.
#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "dbf/number_text.h"
#include "test_support.h"

namespace {

using qz::dbf::number_cell_text;
using qz::dbf::number_layout;

// The former writer, split in its two steps: the format of a field (built
// as text once per field, as the table kept it), then one value under it.
// A negative decimal count ("%12.-1lf") reads as no precision.
struct old_layout {
    std::string format;
    unsigned flen;
    old_layout(char type, unsigned flen_, int dlen) : flen(flen_) {
        char text[20];
        if (type == 'F')
            std::snprintf(text, sizeof text, "%%%d.%dg", flen, flen);
        else
            std::snprintf(text, sizeof text, "%%%d.%dlf", flen, dlen);
        format = text;
        size_t minus = format.find(".-");
        if (minus != std::string::npos) format = format.substr(0, minus) + "lf";
    }
    // The cell's text into `buf` (2048 bytes hold any of them); its length.
    size_t text(double v, char* buf) const {
        int n = std::snprintf(buf, 2048, format.c_str(), v);
        if (n > static_cast<int>(flen)) {
            n = std::snprintf(buf, 2048, "%-*e", static_cast<int>(flen), v);
            if (n > static_cast<int>(flen)) n = 0;
        }
        return n < 0 ? 0 : static_cast<size_t>(n);
    }
};

// A fast generator (splitmix64): the values, not their randomness, are what
// is tested, and a million of them should cost little under the sanitizers.
struct splitmix {
    uint64_t s;
    uint64_t operator()() {
        uint64_t z = (s += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
};

// 10^e for e in -20..25.
double power10(int e) {
    static const struct table {
        double p[46];
        table() {
            for (int i = 0; i < 46; ++i) p[i] = std::pow(10.0, i - 20);
        }
    } t;
    return t.p[e + 20];
}

// One value of the kinds that decide the text: any bit pattern (NaN,
// infinities, subnormals and huge numbers included), the awkward constants,
// a half at the last kept decimal, or a plain number of any magnitude.
double value_for(splitmix& rng, int kind, int dlen) {
    static const double special[] = {0.0,  -0.0,  HUGE_VAL, -HUGE_VAL, NAN,
                                     1e15, -1e15, 0.005,    2.675,     9.995};
    const uint64_t bits = rng();
    switch (kind) {
        case 0: {
            double v;
            std::memcpy(&v, &bits, sizeof v);
            return v;
        }
        case 1:
            return special[bits % 10];
        case 2: {
            const int places = dlen < 0 ? 6 : dlen > 15 ? 15 : dlen;
            return (static_cast<double>(static_cast<int64_t>(bits % 200001) - 100000) + 0.5) /
                   power10(places);
        }
        default:
            return (static_cast<double>(bits % 2000001) / 1e6 - 1) *
                   power10(static_cast<int>((bits >> 32) % 35) - 12);
    }
}

TEST(NumberLayout, AMillionValuesGiveTheBytesOfTheFieldFormat) {
    qz_test::C_locale c;
    splitmix rng{20261125};
    // Every length a byte holds; for N and M every decimal count up to the
    // length (at most 18), plus counts no table should have (negative or
    // larger than the length); F takes its precision from the length.
    struct field {
        char type;
        unsigned flen;
        int dlen;
    };
    std::vector<field> fields;
    for (unsigned flen = 1; flen < 256; ++flen) {
        fields.push_back({'F', flen, 0});
        for (char type : {'N', 'M'}) {
            for (int dlen = 0; dlen <= static_cast<int>(flen < 18 ? flen : 18); ++dlen)
                fields.push_back({type, flen, dlen});
            for (int odd : {-1, -128, 19, 127})
                if (odd < 0 || odd > static_cast<int>(flen)) fields.push_back({type, flen, odd});
        }
    }
    const long total = 1000000;
    const long per_field = total / static_cast<long>(fields.size()) + 1;
    std::string got;
    char want[2048];
    long compared = 0, mismatches = 0;
    for (const field& f : fields) {
        const old_layout old(f.type, f.flen, f.dlen);
        const auto layout = number_layout(f.type, f.flen, f.dlen);
        for (long i = 0; i < per_field; ++i, ++compared) {
            const double v = value_for(rng, static_cast<int>(i % 5), f.dlen);
            number_cell_text(got, v, layout, f.flen);
            const size_t n = old.text(v, want);
            if (got.size() != n || std::memcmp(got.data(), want, n) != 0) {
                ADD_FAILURE() << f.type << "(" << f.flen << "," << f.dlen << ") of "
                              << ::testing::PrintToString(v) << ": \"" << got << "\" against \""
                              << std::string(want, n) << "\"";
                if (++mismatches == 20) return;
            }
        }
    }
    EXPECT_GE(compared, total);
}

}  // namespace
