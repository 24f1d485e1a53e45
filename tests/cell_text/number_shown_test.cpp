// The numbers of F and B cells are shown as sprintf's "%19.11g" shows them;
// the fast paths that write that text are checked against sprintf itself on
// random values of every magnitude and on decimal texts as cells hold them.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>

#include "dbf/number_text.h"

namespace {

std::string printf_g19(double v) {
    char buf[128];
    std::snprintf(buf, sizeof buf, "%19.11g", v);
    return buf;
}

TEST(NumberShown, DoublesOfEveryMagnitudeAndDecimalTexts) {
    std::mt19937_64 rng(11);
    using lim = std::numeric_limits<double>;
    // clang-format off
    const double special[] = {0.0, -0.0, 1e-4, 9.99999999995e-5, 99999999999.5, 99999999999.4,
                              1e11, 0.5, 2.5, -1234.5, 123456789012.0, lim::min(), lim::max(),
                              lim::denorm_min(), lim::infinity(), -lim::infinity(), std::nan("")};
    // clang-format on
    char out[64];
    for (double v : special) {
        qz::dbf::format_g19(out, v);
        ASSERT_EQ(out, printf_g19(v)) << v;
    }
    std::uniform_real_distribution<double> mantissa(1.0, 10.0);
    std::uniform_int_distribution<int> exponent(-12, 16), digits(0, 12);
    for (int i = 0; i < 1000000; ++i) {
        double v;
        if (i % 3 == 0) {  // any magnitude, full precision
            v = mantissa(rng) * std::pow(10.0, exponent(rng));
        } else if (i % 3 == 1) {  // few decimals, as money and measures are
            const double scale = std::pow(10.0, digits(rng) % 5);
            v = std::round(mantissa(rng) * std::pow(10.0, digits(rng)) * scale) / scale;
        } else {  // halves at the 11th digit and their neighbours
            const double base = std::floor(mantissa(rng) * 1e10) + 0.5;
            v = std::nextafter(base, (rng() & 1) ? 0.0 : 1e30) / std::pow(10.0, digits(rng));
        }
        if (rng() & 1) v = -v;
        qz::dbf::format_g19(out, v);
        ASSERT_EQ(out, printf_g19(v)) << v;
    }
    // Decimal texts as cells hold them show the number sscanf reads.
    rng.seed(12);
    for (int i = 0; i < 1000000; ++i) {
        std::string text(rng() % 3, ' ');
        if (rng() % 4 == 0) text += (rng() & 1) ? '-' : '+';
        const int whole = static_cast<int>(rng() % 14), frac = static_cast<int>(rng() % 8);
        for (int k = 0; k < whole; ++k) text += static_cast<char>('0' + rng() % 10);
        if (frac > 0 || rng() % 5 == 0) text += '.';
        for (int k = 0; k < frac; ++k)
            text += static_cast<char>('0' + (rng() % 3 ? rng() % 10 : 0));
        if (rng() % 10 == 0) text += "  ";
        double v = 0;
        const bool read = std::sscanf(text.c_str(), "%lg", &v) == 1;
        const size_t len = qz::dbf::decimal_g19(text.c_str(), out);
        if (len == 0) continue;  // left to the general path
        ASSERT_TRUE(read) << text;
        ASSERT_EQ(std::string(out), printf_g19(v)) << "'" << text << "'";
        ASSERT_EQ(len, std::strlen(out));
    }
}

}  // namespace
