// Bit sets of qzk_basic: growth, reading past the end, and the counts over
// the set's size, driven by a table of operations.
#include <gtest/gtest.h>

#include <vector>

#include "qzk_basic.h"

namespace {

struct Step {
    unsigned int index;
    int value;
};

struct Case {
    const char* name;
    std::vector<Step> steps;
    std::vector<unsigned int> ones;  // the indexes that read 1 afterwards
    unsigned zeros;                  // bits of the size that read 0
};

TEST(Bits, TableOfSequences) {
    const std::vector<Case> cases = {
        {"empty", {}, {}, 0},
        {"one bit", {{0, 1}}, {0}, 0},
        {"word edges", {{63, 1}, {64, 1}, {127, 1}}, {63, 64, 127}, 125},
        {"clear counts as size", {{10, 0}}, {}, 11},
        {"set then clear", {{5, 1}, {5, 0}}, {}, 6},
        {"set twice", {{7, 1}, {7, 1}}, {7}, 7},
        {"non-zero is one", {{3, -4}, {4, 2}}, {3, 4}, 3},
        {"shrink never", {{200, 1}, {200, 0}, {1, 1}}, {1}, 200},
        {"many words", {{1000, 1}, {4095, 1}, {4096, 0}}, {1000, 4095}, 4095},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        void* b = qz_bits_create();
        ASSERT_NE(b, nullptr);
        for (const Step& s : c.steps) qz_bits_set_bit(b, s.index, s.value);
        EXPECT_EQ(qz_bits_get_val_count(b, 1), c.ones.size());
        EXPECT_EQ(qz_bits_get_val_count(b, 7), c.ones.size());
        EXPECT_EQ(qz_bits_get_val_count(b, 0), c.zeros);
        for (unsigned int i = 0; i < 4200; ++i) {
            bool want = false;
            for (unsigned int o : c.ones) want = want || o == i;
            EXPECT_EQ(qz_bits_get_bit(b, i), want ? 1 : 0) << "bit " << i;
        }
        EXPECT_EQ(qz_bits_get_bit(b, 0xFFFFFFFFu), 0);
        qz_bits_destroy(b);
    }
}

}  // namespace
