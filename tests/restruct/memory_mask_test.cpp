// Records deleted together from a memory table by a mask: random masks on
// random tables against the records kept by hand, the undo giving back
// every byte, undone and redone twice.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "memory/memory_table.h"
#include "memory/records.h"

namespace {

Tqz_dbf_field field(const char* name, char type, unsigned char flen) {
    Tqz_dbf_field f;
    std::memset(&f, 0, sizeof f);
    std::strncpy(f.name, name, 10);
    f.type = type;
    f.flen = flen;
    return f;
}

std::vector<std::string> records_of(const Tqz_dbf_records& store) {
    std::vector<std::string> out;
    for (unsigned int i = 0; i < store.get_size(); ++i)
        out.emplace_back(reinterpret_cast<const char*>(store.get_ptr(i)), store.get_length());
    return out;
}

void fill(Tqz_dbf_memory& t, unsigned int n, std::mt19937& rng) {
    Tqz_dbf_field fields[] = {field("K", 'C', 7)};
    t.create_new(1, n, fields, false);
    for (unsigned int r = 0; r < n; ++r)
        t.set_string(0, r, ("k" + std::to_string(r) + "_" + std::to_string(rng() % 10)).c_str());
}

TEST(MemoryMask, ManyRandomMasksAgainstOneByOneDeletes) {
    Iqz_history_manager* hm = qz_history_manager_get_instance();
    ASSERT_NE(hm, nullptr);
    std::mt19937 rng(12345);
    for (int round = 0; round < 60; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const unsigned int n = rng() % 40;
        Tqz_dbf_memory t(hm);
        fill(t, n, rng);
        qz_history_manager_clear(hm);
        const std::vector<std::string> before = records_of(*t.get_records());
        // Some bits beyond the last record, which change nothing.
        void* mask = qz_bits_create();
        std::vector<std::string> want;
        for (unsigned int r = 0; r < n + 5; ++r) {
            const bool drop = rng() % 3 == 0;
            if (drop) qz_bits_set_bit(mask, r, 1);
            if (r < n && !drop) want.push_back(before[r]);
        }
        ASSERT_TRUE(t.delete_records_by_msk(mask));
        EXPECT_EQ(records_of(*t.get_records()), want);
        EXPECT_EQ(t.get_nr(), want.size());
        for (int twice = 0; twice < 2; ++twice) {
            ASSERT_TRUE(qz_history_manager_undo(hm));
            EXPECT_EQ(records_of(*t.get_records()), before);
            EXPECT_EQ(t.get_nr(), n);
            ASSERT_TRUE(qz_history_manager_redo(hm));
            EXPECT_EQ(records_of(*t.get_records()), want);
        }
        qz_bits_destroy(mask);
    }
    qz_history_manager_clear(hm);
}

}  // namespace
