// The progress callbacks of deleting by mask and applying a restructure:
// the calls rise to one total and end at it, and a stop at any call leaves
// the table file (and its .cpg) byte for byte as it was, with no lock file
// or backup beside it and the last error saying so.
#include <gtest/gtest.h>

#include "qzk_basic.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

// What a callback heard; it asks to stop at call `stop_at` (1-based; 0: never).
struct Heard {
    std::vector<std::pair<unsigned long long, unsigned long long>> calls;
    size_t stop_at = 0;
};
int listen(void* user, unsigned long long done, unsigned long long total) {
    auto* h = static_cast<Heard*>(user);
    h->calls.emplace_back(done, total);
    return h->stop_at != 0 && h->calls.size() >= h->stop_at;
}

// A table of `nf` C fields of `flen` bytes and `nr` records, each record's
// number in its first field; its path.
std::string make_table(const qz_test::Temp_dir& dir, unsigned nf, unsigned flen, unsigned nr) {
    std::vector<Tqz_dbf_field> fields(nf);
    for (unsigned i = 0; i < nf; ++i)
        qz_dbf_field_init(&fields[i], ("F" + std::to_string(i)).c_str(), dbf_ft_char, flen, 0);
    const std::string path = dir.file("t.dbf");
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), nf, nr, fields.data(), false);
    for (unsigned r = 0; r < nr; ++r) qz_dbf_set_str(t, 0, r, std::to_string(r).c_str());
    qz_dbf_close(t);
    qz_test::write_bytes(dir.file("t.cpg"), {'U', 'T', 'F', '-', '8'});
    return path;
}

// Runs `pass` stopped at call `stop_at`, then to its end: nothing changed
// by the stop, the whole pass told in steps up to `total`.
template <class Pass>
void stop_then_run(const qz_test::Temp_dir& dir, size_t stop_at, size_t min_calls,
                   unsigned long long total, Pass pass) {
    const std::string path = dir.file("t.dbf");
    const auto original = qz_test::read_bytes(path), cpg = qz_test::read_bytes(dir.file("t.cpg"));
    Heard h;
    h.stop_at = stop_at;
    qz_dbf_clear_last_error();
    EXPECT_FALSE(pass(&h)) << "stop at call " << stop_at;
    EXPECT_EQ(h.calls.size(), stop_at) << "no call after the stop";
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_CANCELLED);
    EXPECT_EQ(qz_test::read_bytes(path), original);
    EXPECT_EQ(qz_test::read_bytes(dir.file("t.cpg")), cpg);
    for (const char* left : {".lk", ".bak.dbf"}) EXPECT_FALSE(qz_test::exists(path + left));
    h = Heard();
    EXPECT_TRUE(pass(&h));
    ASSERT_GE(h.calls.size(), min_calls);
    for (size_t i = 0; i < h.calls.size(); ++i) {
        EXPECT_EQ(h.calls[i].second, total);
        if (i > 0) {
            EXPECT_GT(h.calls[i].first, h.calls[i - 1].first) << "call " << i;
        }
    }
    EXPECT_EQ(h.calls.back().first, total);
    EXPECT_FALSE(qz_test::exists(path + ".lk"));
}

unsigned records(const std::string& path) {
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), true, false);
    const unsigned n = qz_dbf_get_nr(t);
    qz_dbf_close(t);
    return n;
}

TEST(ProgressCallback, DeleteByMaskIsToldEveryStepAndAStopChangesNothing) {
    qz_test::Temp_dir dir;
    const unsigned nr = 20000;
    const std::wstring path = qz_test::widen(make_table(dir, 2, 12, nr));
    const auto original = qz_test::read_bytes(dir.file("t.dbf"));
    void* mask = qz_bits_create();
    for (unsigned r = 0; r < nr; r += 3) qz_bits_set_bit(mask, r, 1);
    auto pass = [&](Heard* h) {
        return qz_dbf_del_records_by_msk_progress_w(path.c_str(), mask, listen, h) ==
               QZ_DBF_DELMASK_DONE;
    };
    Heard whole;
    ASSERT_TRUE(pass(&whole));
    // Stopped at the first call, in the middle, and at the last (when the
    // copy is whole but not yet in place).
    for (size_t stop_at : {size_t{1}, size_t{3}, whole.calls.size()}) {
        qz_test::write_bytes(dir.file("t.dbf"), original);
        stop_then_run(dir, stop_at, 3, nr, pass);
        EXPECT_EQ(records(dir.file("t.dbf")), nr - (nr + 2) / 3);
    }
    // A null callback is the plain call.
    qz_test::write_bytes(dir.file("t.dbf"), original);
    EXPECT_EQ(qz_dbf_del_records_by_msk_progress_w(path.c_str(), mask, nullptr, nullptr),
              QZ_DBF_DELMASK_DONE);
    EXPECT_EQ(records(dir.file("t.dbf")), nr - (nr + 2) / 3);
    qz_bits_destroy(mask);
}

// A table within one window of the rewrite is told at the end only; a wide
// one (8 x 254 bytes, 12000 records: about 4 windows of 8 MiB) window by
// window.
TEST(ProgressCallback, RestructureIsToldWindowByWindowAndAStopChangesNothing) {
    for (auto [nf, flen, nr, stop_at, calls] : {std::tuple{2u, 12u, 20000u, size_t{1}, size_t{1}},
                                                {8u, 254u, 12000u, size_t{2}, size_t{3}}}) {
        qz_test::Temp_dir dir;
        const std::string path = make_table(dir, nf, flen, nr);
        Tqz_dbf_rstrct* d = qz_dbf_restruct_create(path.c_str());
        qz_dbf_restruct_remove_field_idx(d, nf - 1);
        stop_then_run(dir, stop_at, calls, nr,
                      [&](Heard* h) { return qz_dbf_restruct_apply_progress(d, listen, h); });
        qz_dbf_restruct_destroy(d);
        Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), true, false);
        EXPECT_EQ(qz_dbf_get_nf(t), nf - 1);
        EXPECT_EQ(qz_dbf_get_nr(t), nr);
        bool ok = false;
        EXPECT_EQ(std::string(qz_dbf_get_str(t, 0, nr - 1, ok)).find(std::to_string(nr - 1)), 0u);
        qz_dbf_close(t);
    }
}

}  // namespace
