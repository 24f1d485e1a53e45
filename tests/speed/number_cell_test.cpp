// Numeric cells are written from a layout worked out from the field and read
// back with a short-cut for plain decimals. Both must give exactly what the
// earlier code gave: the field's printf format built as text and applied by
// the C library (with the exponent form and the empty cell for values that
// do not fit), and sscanf "%lg". A million random values of every numeric
// type, length and decimal count are compared byte for byte.
#include <gtest/gtest.h>

#include <locale.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>

#include "dbf/number_text.h"

namespace {

using namespace qz::dbf;

struct C_locale {
    C_locale() : loc(newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr))) {
        old = uselocale(loc);
    }
    ~C_locale() {
        uselocale(old);
        freelocale(loc);
    }
    locale_t loc, old;
};

// The earlier writer of a numeric cell: the field's format as text, sprintf
// with it, then "%-W.e" when too long, then nothing.
std::string old_cell_text(double v, char type, unsigned flen, int dlen) {
    char format[20];
    if (type == 'F')
        std::snprintf(format, sizeof format, "%%%d.%dg", flen, flen);
    else
        std::snprintf(format, sizeof format, "%%%d.%dlf", flen, dlen);
    // A negative decimal count ("%12.-1lf") was read as no precision given.
    std::string fmt = format;
    size_t minus = fmt.find(".-");
    if (minus != std::string::npos) fmt = fmt.substr(0, minus) + "lf";
    char buf[2048];
    std::snprintf(buf, sizeof buf, fmt.c_str(), v);
    std::string out = buf;
    if (out.size() > flen) {
        std::snprintf(buf, sizeof buf, "%-*e", static_cast<int>(flen), v);
        out = buf;
        if (out.size() > flen) out.clear();
    }
    return out;
}

// Values of every kind a cell meets: small and large, whole numbers, exact
// halves at the rounding digit, values at the edge of the width, and the
// special ones.
double random_value(std::mt19937_64& rng, int dlen) {
    std::uniform_int_distribution<int> kind(0, 9);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    std::uniform_int_distribution<int> exp10(-12, 22);
    switch (kind(rng)) {
        case 0:
            return static_cast<double>(static_cast<int64_t>(rng() % 2000000001) - 1000000000);
        case 1: {
            // A half at the last kept decimal.
            int d = dlen < 0 ? 6 : (dlen > 15 ? 15 : dlen);
            double scale = std::pow(10.0, d);
            return (static_cast<double>(static_cast<int64_t>(rng() % 200001) - 100000) + 0.5) /
                   scale;
        }
        case 2: {
            std::uniform_int_distribution<uint64_t> bits;
            double v;
            uint64_t b = bits(rng);
            std::memcpy(&v, &b, sizeof v);
            return v;  // anything, NaN and infinity included
        }
        case 3: {
            static const double special[] = {0.0,
                                             -0.0,
                                             std::numeric_limits<double>::infinity(),
                                             -std::numeric_limits<double>::infinity(),
                                             std::numeric_limits<double>::quiet_NaN(),
                                             std::numeric_limits<double>::max(),
                                             std::numeric_limits<double>::denorm_min(),
                                             1e15,
                                             -1e15,
                                             0.05,
                                             0.005,
                                             2.675,
                                             9.995,
                                             -9.995};
            return special[rng() % (sizeof special / sizeof special[0])];
        }
        default:
            return unit(rng) * std::pow(10.0, exp10(rng));
    }
}

TEST(NumberCell, LayoutWritesTheBytesOfTheFieldFormat) {
    C_locale c;
    std::mt19937_64 rng(20261125);
    const char types[] = {'N', 'F', 'M'};
    std::string got;
    long checked = 0, failures = 0;
    for (int i = 0; i < 1000000; ++i) {
        char type = types[rng() % 3];
        // Mostly the lengths tables use, now and then anything a byte holds.
        unsigned flen = rng() % 8 == 0 ? static_cast<unsigned>(rng() % 256)
                                       : 1 + static_cast<unsigned>(rng() % 24);
        int dlen = rng() % 16 == 0 ? static_cast<int>(static_cast<int8_t>(rng() % 256))
                                   : static_cast<int>(rng() % (flen < 19 ? flen + 1 : 19));
        double v = random_value(rng, dlen);
        number_cell_text(got, v, number_layout(type, flen, dlen), flen);
        std::string want = old_cell_text(v, type, flen, dlen);
        ++checked;
        if (got != want && ++failures <= 10)
            ADD_FAILURE() << type << "(" << flen << "," << dlen << ") of " << v << ": \"" << got
                          << "\" instead of \"" << want << "\"";
    }
    EXPECT_EQ(failures, 0) << "of " << checked;
}

}  // namespace
