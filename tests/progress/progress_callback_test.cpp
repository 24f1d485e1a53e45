// The progress callbacks of deleting by mask and applying a restructure:
// what the callback hears, and a cancel at any call leaving the table file
// byte for byte as it was, with no lock file or copy left beside it.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "qzk_basic.h"
#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

using qz_test::Temp_dir;

constexpr unsigned int kRecords = 20000;

// A table of kRecords records: a number and a name per record.
void make_table(const std::string& path) {
    Tqz_dbf_field fields[2];
    qz_dbf_field_init(&fields[0], "ID", dbf_ft_numeric, 8, 0);
    qz_dbf_field_init(&fields[1], "NAME", dbf_ft_char, 12, 0);
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), 2, kRecords, fields, false);
    ASSERT_NE(t, nullptr);
    for (unsigned int r = 0; r < kRecords; ++r) {
        qz_dbf_set_int(t, 0, r, static_cast<int>(r));
        qz_dbf_set_str(t, 1, r, ("name " + std::to_string(r)).c_str());
    }
    qz_dbf_close(t);
}

// What a callback heard; it asks to stop at call `stop_at` (1-based; 0:
// never).
struct Heard {
    std::vector<std::pair<unsigned long long, unsigned long long>> calls;
    size_t stop_at = 0;
};

int listen(void* user, unsigned long long done, unsigned long long total) {
    auto* h = static_cast<Heard*>(user);
    h->calls.emplace_back(done, total);
    return h->stop_at != 0 && h->calls.size() >= h->stop_at ? 1 : 0;
}

// The calls increase, share one total, and end at it.
void expect_whole_pass(const Heard& h, unsigned long long total) {
    ASSERT_GE(h.calls.size(), 3u) << "a 20000-record rewrite is told in several steps";
    for (size_t i = 0; i < h.calls.size(); ++i) {
        EXPECT_EQ(h.calls[i].second, total);
        EXPECT_LE(h.calls[i].first, total);
        if (i > 0) {
            EXPECT_GT(h.calls[i].first, h.calls[i - 1].first) << "call " << i;
        }
    }
    EXPECT_EQ(h.calls.back().first, total);
}

// A cell's text without the padding.
std::string cell(Tqz_dbf_rw* t, unsigned int field, unsigned int record) {
    bool ok = false;
    std::string s = qz_dbf_get_str(t, field, record, ok);
    s.erase(s.find_last_not_of(' ') + 1);
    return s;
}

unsigned int record_count(const std::string& path) {
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), true, false);
    if (!t) return 0;
    const unsigned int n = qz_dbf_get_nr(t);
    qz_dbf_close(t);
    return n;
}

TEST(ProgressCallback, DeleteByMaskIsToldEveryStepAndCancelChangesNothing) {
    Temp_dir dir;
    const std::string path = dir.file("t.dbf");
    make_table(path);
    const std::vector<uint8_t> original = qz_test::read_bytes(path);
    void* mask = qz_bits_create();
    for (unsigned int r = 0; r < kRecords; r += 3) qz_bits_set_bit(mask, r, 1);

    // Stopped at the first call, in the middle, and at the last (when the
    // copy is whole but not yet in place): nothing changes.
    for (size_t stop_at : {size_t{1}, size_t{3}, size_t{1000}}) {
        Heard h;
        h.stop_at = stop_at;
        qz_dbf_clear_last_error();
        const int reason =
            qz_dbf_del_records_by_msk_progress_w(qz_test::widen(path).c_str(), mask, listen, &h);
        if (stop_at == 1000) {
            // Fewer calls than that: the pass runs to its end, so stop at
            // the last one it makes instead.
            ASSERT_EQ(reason, QZ_DBF_DELMASK_DONE);
            qz_test::write_bytes(path, original);
            const size_t last = h.calls.size();
            h = Heard();
            h.stop_at = last;
            EXPECT_EQ(qz_dbf_del_records_by_msk_progress_w(qz_test::widen(path).c_str(), mask,
                                                           listen, &h),
                      QZ_DBF_DELMASK_CANCELLED);
            EXPECT_EQ(h.calls.back().first, kRecords) << "stopped at the count that ends it";
        } else {
            EXPECT_EQ(reason, QZ_DBF_DELMASK_CANCELLED) << "stop at call " << stop_at;
            EXPECT_EQ(h.calls.size(), stop_at) << "no call after the stop";
        }
        EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_CANCELLED);
        EXPECT_EQ(qz_test::read_bytes(path), original) << "stop at call " << stop_at;
        EXPECT_FALSE(qz_test::exists(path + ".lk"));
    }

    // Run to its end: told in steps up to the table's records, and done.
    Heard h;
    ASSERT_EQ(qz_dbf_del_records_by_msk_progress_w(qz_test::widen(path).c_str(), mask, listen, &h),
              QZ_DBF_DELMASK_DONE);
    expect_whole_pass(h, kRecords);
    const unsigned int gone = (kRecords + 2) / 3;
    EXPECT_EQ(record_count(path), kRecords - gone);
    EXPECT_FALSE(qz_test::exists(path + ".lk"));

    // A null callback is the plain call.
    qz_test::write_bytes(path, original);
    EXPECT_EQ(
        qz_dbf_del_records_by_msk_progress_w(qz_test::widen(path).c_str(), mask, nullptr, nullptr),
        QZ_DBF_DELMASK_DONE);
    EXPECT_EQ(record_count(path), kRecords - gone);
    qz_bits_destroy(mask);
}

TEST(ProgressCallback, RestructureIsToldEveryStepAndCancelChangesNothing) {
    Temp_dir dir;
    const std::string path = dir.file("t.dbf");
    make_table(path);
    // A .cpg beside the table must come through a cancel as it was.
    qz_test::write_bytes(dir.file("t.cpg"), {'U', 'T', 'F', '-', '8'});
    const std::vector<uint8_t> original = qz_test::read_bytes(path);
    auto widened = [&] {
        Tqz_dbf_rstrct* d = qz_dbf_restruct_create(path.c_str());
        Tqz_dbf_field f;
        qz_dbf_field_init(&f, "NOTE", dbf_ft_char, 5, 0);
        qz_dbf_restruct_add_field(d, &f);
        return d;
    };

    // The window of a rewrite holds every record of so small a table: the
    // callback hears the end only, and a stop there changes nothing.
    {
        Heard h;
        h.stop_at = 1;
        Tqz_dbf_rstrct* d = widened();
        qz_dbf_clear_last_error();
        EXPECT_FALSE(qz_dbf_restruct_apply_progress(d, listen, &h));
        qz_dbf_restruct_destroy(d);
        ASSERT_EQ(h.calls.size(), 1u);
        EXPECT_EQ(h.calls[0].first, kRecords);
        EXPECT_EQ(h.calls[0].second, kRecords);
        EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_CANCELLED);
        EXPECT_EQ(qz_test::read_bytes(path), original);
        EXPECT_EQ(qz_test::read_bytes(dir.file("t.cpg")),
                  (std::vector<uint8_t>{'U', 'T', 'F', '-', '8'}));
        EXPECT_FALSE(qz_test::exists(path + ".lk"));
        EXPECT_FALSE(qz_test::exists(path + ".bak.dbf"));
    }
    {
        Heard h;
        Tqz_dbf_rstrct* d = widened();
        EXPECT_TRUE(qz_dbf_restruct_apply_progress(d, listen, &h));
        qz_dbf_restruct_destroy(d);
        ASSERT_FALSE(h.calls.empty());
        EXPECT_EQ(h.calls.back(), std::make_pair(0ull + kRecords, 0ull + kRecords));
        Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), true, false);
        ASSERT_NE(t, nullptr);
        EXPECT_EQ(qz_dbf_get_nf(t), 3u);
        EXPECT_EQ(qz_dbf_get_nr(t), kRecords);
        EXPECT_EQ(cell(t, 1, kRecords - 1), "name 19999");
        qz_dbf_close(t);
        EXPECT_FALSE(qz_test::exists(path + ".lk"));
    }
}

// A table too wide for one window of the rewrite is told window by window.
TEST(ProgressCallback, RestructureOfAWideTableIsToldWindowByWindow) {
    Temp_dir dir;
    const std::string path = dir.file("wide.dbf");
    constexpr unsigned int nf = 8, nr = 12000;  // 8 x 254 bytes: about 4 windows of 8 MiB
    Tqz_dbf_field fields[nf];
    for (unsigned int i = 0; i < nf; ++i)
        qz_dbf_field_init(&fields[i], ("F" + std::to_string(i)).c_str(), dbf_ft_char, 254, 0);
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), nf, nr, fields, false);
    ASSERT_NE(t, nullptr);
    for (unsigned int r = 0; r < nr; r += 97) qz_dbf_set_str(t, 0, r, std::to_string(r).c_str());
    qz_dbf_close(t);
    const std::vector<uint8_t> original = qz_test::read_bytes(path);

    Tqz_dbf_rstrct* d = qz_dbf_restruct_create(path.c_str());
    qz_dbf_restruct_remove_field_idx(d, nf - 1);
    Heard h;
    h.stop_at = 2;
    EXPECT_FALSE(qz_dbf_restruct_apply_progress(d, listen, &h));
    EXPECT_EQ(h.calls.size(), 2u);
    EXPECT_LT(h.calls[1].first, nr) << "stopped before the end";
    EXPECT_EQ(qz_test::read_bytes(path), original);
    EXPECT_FALSE(qz_test::exists(path + ".lk"));
    EXPECT_FALSE(qz_test::exists(path + ".bak.dbf"));

    h = Heard();
    EXPECT_TRUE(qz_dbf_restruct_apply_progress(d, listen, &h));
    qz_dbf_restruct_destroy(d);
    expect_whole_pass(h, nr);
    t = qz_dbf_open(path.c_str(), true, false);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(qz_dbf_get_nf(t), nf - 1);
    EXPECT_EQ(cell(t, 0, 9991), "9991");
    qz_dbf_close(t);
}

}  // namespace
