// The numeric cell writer (a layout read off the field, digits from
// std::to_chars) against the way cells were written before: the field's
// printf format built as text and applied by the C library, "%-W.e" when
// that is too long, nothing when still too long. A million values over every
// numeric type, every length and every decimal count must give the same
// bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "dbf/number_text.h"
#include "test_support.h"

namespace {

// The former writer: "%W.Wg" for F, else "%W.Dlf" (a negative D read as no
// precision), then the exponent form, then nothing.
size_t old_text(char type, int flen, int dlen, double v, char* buf) {
    char format[20];
    if (type == 'F')
        std::snprintf(format, sizeof format, "%%%d.%dg", flen, flen);
    else if (dlen < 0)
        std::snprintf(format, sizeof format, "%%%dlf", flen);
    else
        std::snprintf(format, sizeof format, "%%%d.%dlf", flen, dlen);
    int n = std::snprintf(buf, 2048, format, v);
    if (n > flen && (n = std::snprintf(buf, 2048, "%-*e", flen, v)) > flen) n = 0;
    return n < 0 ? 0 : static_cast<size_t>(n);
}

// splitmix64: cheap enough for a million values under the sanitizers.
uint64_t next(uint64_t& s) {
    uint64_t z = (s += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

// Any bit pattern (NaN, infinities, subnormals), the awkward constants, a
// half at the last kept decimal, or a plain number of any magnitude.
double value_for(uint64_t bits, int kind, int dlen) {
    static const double special[] = {0.0,  -0.0,  HUGE_VAL, -HUGE_VAL, NAN,
                                     1e15, -1e15, 0.005,    2.675,     9.995};
    double v;
    std::memcpy(&v, &bits, sizeof v);
    if (kind == 0) return v;
    if (kind == 1) return special[bits % 10];
    if (kind == 2)
        return (static_cast<double>(static_cast<int64_t>(bits % 200001) - 100000) + 0.5) /
               std::pow(10.0, dlen < 0 ? 6 : std::min(dlen, 15));
    return (static_cast<double>(bits % 2000001) / 1e6 - 1) *
           std::pow(10.0, static_cast<int>((bits >> 32) % 35) - 12);
}

TEST(NumberLayout, AMillionValuesGiveTheBytesOfTheFieldFormat) {
    qz_test::C_locale c;
    uint64_t seed = 20261125;
    // Every length a byte holds; for N and M every decimal count up to the
    // length (at most 18) and counts no table should have; F takes its
    // precision from the length.
    std::vector<std::tuple<char, int, int>> fields;  // type, length, decimals
    for (int flen = 1; flen < 256; ++flen) {
        fields.emplace_back('F', flen, 0);
        for (char type : {'N', 'M'}) {
            for (int dlen = 0; dlen <= std::min(flen, 18); ++dlen)
                fields.emplace_back(type, flen, dlen);
            for (int odd : {-1, -128, 19, 127})
                if (odd < 0 || odd > flen) fields.emplace_back(type, flen, odd);
        }
    }
    const long per_field = 1000000 / static_cast<long>(fields.size()) + 1;
    std::string got;
    char want[2048];
    for (const auto& [type, flen, dlen] : fields) {
        const auto layout = qz::dbf::number_layout(type, flen, dlen);
        for (long i = 0; i < per_field; ++i) {
            const double v = value_for(next(seed), static_cast<int>(i % 5), dlen);
            qz::dbf::number_cell_text(got, v, layout, flen);
            const size_t n = old_text(type, flen, dlen, v, want);
            ASSERT_EQ(got, std::string(want, n))
                << type << "(" << flen << "," << dlen << ") of " << ::testing::PrintToString(v);
        }
    }
}

}  // namespace
