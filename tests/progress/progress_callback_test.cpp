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

// Makes a table of `nf` C fields of `flen` bytes and `nr` records (each
// record's number in its first field), then runs `pass` stopped at each call
// of `stops` (nothing changed by a stop), then to its end (told in at least
// `min_calls` rising steps up to `nr`); the table's record count after.
template <class Pass>
unsigned stop_then_run(unsigned nf, unsigned flen, unsigned nr, std::vector<size_t> stops,
                       size_t min_calls, Pass pass) {
    qz_test::Temp_dir dir;
    std::vector<Tqz_dbf_field> fields(nf,
                                      Tqz_dbf_field{"F", 'C', static_cast<unsigned char>(flen), 0});
    for (unsigned i = 0; i < nf; ++i) fields[i].name[1] = static_cast<char>('0' + i);
    const std::string path = dir.file("t.dbf");
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), nf, nr, fields.data(), false);
    for (unsigned r = 0; r < nr; r += r + 97 < nr ? 97 : nr - 1 - r + (r == nr - 1))
        qz_dbf_set_str(t, 0, r, std::to_string(r).c_str());  // some records, the last one too
    qz_dbf_close(t);
    qz_test::write_bytes(dir.file("t.cpg"), {'U', 'T', 'F', '-', '8'});
    const auto original = qz_test::read_bytes(path), cpg = qz_test::read_bytes(dir.file("t.cpg"));
    for (size_t stop_at : stops) {
        Heard h;
        h.stop_at = stop_at;
        qz_dbf_clear_last_error();
        EXPECT_FALSE(pass(path, &h)) << "stop at call " << stop_at;
        EXPECT_EQ(h.calls.size(), stop_at) << "no call after the stop";
        EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_CANCELLED);
        EXPECT_EQ(qz_test::read_bytes(path), original);
        EXPECT_EQ(qz_test::read_bytes(dir.file("t.cpg")), cpg);
        for (const char* left : {".lk", ".bak.dbf"}) EXPECT_FALSE(qz_test::exists(path + left));
    }
    Heard h;
    EXPECT_TRUE(pass(path, &h));
    EXPECT_GE(h.calls.size(), min_calls);
    for (size_t i = 0; i < h.calls.size(); ++i)
        EXPECT_TRUE(h.calls[i].second == nr && (i == 0 || h.calls[i].first > h.calls[i - 1].first))
            << "call " << i << ": " << h.calls[i].first << " of " << h.calls[i].second;
    EXPECT_EQ(h.calls.back().first, nr);
    EXPECT_FALSE(qz_test::exists(path + ".lk"));
    t = qz_dbf_open(path.c_str(), true, false);
    bool ok = false;
    const std::string last = qz_dbf_get_str(t, 0, qz_dbf_get_nr(t) - 1, ok);
    EXPECT_EQ(last.find(std::to_string(nr - 1)), 0u) << "the last record is the last one kept";
    const unsigned left = qz_dbf_get_nr(t) * 100 + qz_dbf_get_nf(t);
    qz_dbf_close(t);
    return left;
}

// Deleting by mask stopped at the first call, in the middle, and at the last
// (the copy is whole but not yet in place); one record in three goes.
TEST(ProgressCallback, DeleteByMaskAndRestructureAreToldEveryStepAndAStopChangesNothing) {
    void* mask = qz_bits_create();
    for (unsigned r = 0; r < 20000; r += 3) qz_bits_set_bit(mask, r, 1);
    size_t calls = 0;
    auto pass = [&](const std::string& path, Heard* h) {
        const int why =
            qz_dbf_del_records_by_msk_progress_w(qz_test::widen(path).c_str(), mask, listen, h);
        calls = std::max(calls, h->calls.size());
        return why == QZ_DBF_DELMASK_DONE;
    };
    EXPECT_EQ(stop_then_run(2, 12, 20000, {}, 3, pass), (20000 - 6667) * 100 + 2);
    EXPECT_EQ(stop_then_run(2, 12, 20000, {1, 3, calls}, 3, pass), (20000 - 6667) * 100 + 2);
    qz_bits_destroy(mask);

    // A restructure of a wide table (8 x 254 bytes, 12000 records: about 4
    // windows of 8 MiB) is told window by window.
    auto restructure = [](const std::string& path, Heard* h) {
        Tqz_dbf_rstrct* d = qz_dbf_restruct_create(path.c_str());
        qz_dbf_restruct_remove_field_idx(d, qz_dbf_restruct_count(d) - 1);
        const bool done = qz_dbf_restruct_apply_progress(d, listen, h);
        qz_dbf_restruct_destroy(d);
        return done;
    };
    EXPECT_EQ(stop_then_run(8, 254, 12000, {1, 2}, 3, restructure), 12000u * 100 + 7);
}

}  // namespace
