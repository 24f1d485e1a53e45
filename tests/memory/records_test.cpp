// The record store of memory tables: order, slot reuse, resizing, and the
// compact layout that loading relies on.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "memory/records.h"

namespace {

std::string rec(const Tqz_dbf_records& s, unsigned int i) {
    return std::string(reinterpret_cast<const char*>(s.get_ptr(i)), s.get_length());
}

void put(Tqz_dbf_records& s, unsigned int i, const std::string& text) {
    std::memcpy(s.get_ptr(i), text.data(), std::min<size_t>(text.size(), s.get_length()));
}

TEST(RecordStore, AddInsDelKeepTheOrderAndRefuseIndexesPastTheEnd) {
    Tqz_dbf_records s;
    EXPECT_EQ(s.get_size(), 0u);
    s.set_length(4);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(s.add());
        EXPECT_EQ(rec(s, i), "    ");
        put(s, i, std::string(1, static_cast<char>('A' + i)) + "xyz");
    }
    EXPECT_TRUE(s.ins(1));
    EXPECT_EQ(rec(s, 1), "    ");
    EXPECT_EQ(rec(s, 0) + rec(s, 2) + rec(s, 3), "AxyzBxyzCxyz");
    EXPECT_FALSE(s.ins(4)) << "ins only inside the table";
    EXPECT_FALSE(s.del(4));
    EXPECT_EQ(s.get_size(), 4u);

    // A deleted record's slot is what the next record gets.
    unsigned char* slot = s.get_ptr(0);
    EXPECT_TRUE(s.del(0));
    EXPECT_EQ(rec(s, 0), "    ");
    EXPECT_TRUE(s.add());
    EXPECT_EQ(s.get_ptr(3), slot);
    EXPECT_EQ(rec(s, 3), "    ") << "a reused slot is blanked";

    s.set_size(2);
    EXPECT_EQ(s.get_size(), 2u);
    EXPECT_EQ(rec(s, 1), "Bxyz");
    s.set_size(3);
    EXPECT_EQ(rec(s, 2), "    ");
}

TEST(RecordStore, LengthChangesKeepTheFrontAndAssignCopies) {
    Tqz_dbf_records s;
    s.set_length(3);
    s.set_size(2);
    put(s, 0, "abc");
    put(s, 1, "def");
    s.set_length(5);
    EXPECT_EQ(rec(s, 0), "abc  ");
    s.set_length(2);
    EXPECT_EQ(rec(s, 1), "de");
    s.set_length(0);
    EXPECT_EQ(s.get_size(), 2u);
    EXPECT_EQ(s.get_ptr(0), nullptr);
    EXPECT_TRUE(s.add()) << "records of no bytes still count";
    EXPECT_EQ(s.get_size(), 3u);

    Tqz_dbf_records a;
    a.set_length(2);
    a.set_size(3);
    put(a, 2, "zz");
    Tqz_dbf_records b;
    b.assign(&a);
    EXPECT_EQ(b.get_length(), 2u);
    ASSERT_EQ(b.get_size(), 3u);
    EXPECT_EQ(rec(b, 2), "zz");
    EXPECT_NE(b.get_ptr(2), a.get_ptr(2));
    b.assign(&b);
    EXPECT_EQ(rec(b, 2), "zz");

    a.clear();
    EXPECT_EQ(a.get_size(), 0u);
    EXPECT_EQ(a.get_length(), 2u) << "clear keeps the length";
}

TEST(RecordStore, ABulkSizeIsOneBlockAndCostsLittleBeyondItsBytes) {
    Tqz_dbf_records s;
    s.set_length(100);
    s.set_size(10000, false);
    unsigned int run = 20000;
    unsigned char* first = s.get_block(0, run);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(run, 10000u) << "a fresh store lays its records out together";
    EXPECT_EQ(s.get_ptr(9999), first + 9999 * 100);
    // Record bytes plus a pointer each, and a few bytes of bookkeeping.
    EXPECT_LE(s.get_heap_bytes(), 10000u * 108 + 256);

    // An insertion in the middle breaks the run there.
    EXPECT_TRUE(s.ins(5000));
    run = 20000;
    s.get_block(0, run);
    EXPECT_EQ(run, 5000u);
    run = 3;
    EXPECT_EQ(s.get_block(10001, run), nullptr);
    EXPECT_EQ(run, 0u);
}

}  // namespace
