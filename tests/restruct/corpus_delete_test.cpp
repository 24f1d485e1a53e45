// Deleting records by mask on copies of the real tables of the corpus: every
// third record removed, the kept ones read the same through the library;
// tables the rewrite cannot handle are refused and left byte for byte.
#include <gtest/gtest.h>

#include <cstring>

#include "restruct_tables.h"

namespace {

// The cells of the first 3000 records the file holds whole (enough to cross
// every block of the rewrite), trailing blanks and NULs dropped; a memo by
// its text (the rewrite renumbers the blocks), an N cell by its value, F and
// B cells not at all (a value may be written back shorter). `held` gets the
// number of whole records.
restruct_test::Rows rows(const std::string& file, unsigned& held) {
    restruct_test::Rows out;
    Tqz_dbf_rw* h = qz_dbf_open(file.c_str(), true, false);
    if (!h) return out;
    const std::vector<uint8_t> b = qz_test::read_bytes(file);
    const size_t header = qz_test::u16_at(b, 8), length = qz_test::u16_at(b, 10);
    held = length == 0 || b.size() <= header
               ? 0
               : std::min<size_t>((b.size() - header) / length, qz_dbf_get_nr(h));
    for (unsigned r = 0; r < held && r < 3000; ++r) {
        out.emplace_back();
        for (unsigned f = 0; f < qz_dbf_get_nf(h); ++f) {
            const char type = qz_dbftype2char(qz_dbf_get_field_type(h, f));
            std::string v = type && std::strchr("CLDN", type) ? restruct_test::cell(h, f, r) : "";
            char num[40];
            Tqz_dbf_value memo;
            if (type == 'M' && qz_dbf_get_value(h, f, r, &memo) && memo.text)
                v.assign(memo.text, memo.length);
            while (!v.empty() && (v.back() == ' ' || v.back() == '\0')) v.pop_back();
            char* end = nullptr;  // an N cell by its value, if it has one
            const double x = type == 'N' ? std::strtod(v.c_str(), &end) : 0;
            if (type == 'N')
                v.assign(num, end == v.c_str() ? 0 : std::snprintf(num, 40, "%.15g", x));
            out.back().push_back(v);
        }
    }
    qz_dbf_close(h);
    return out;
}

TEST(CorpusDelete, EveryThirdRecordGoesTheRestStays) {
    const std::vector<std::string> tables = qz_test::corpus_tables();
    if (tables.empty()) GTEST_SKIP() << "no corpus at " QZ_CORPUS_DIR;
    // The copies go to a RAM folder when there is one: two hundred rewrites
    // synced to a disk cost seconds.
    if (qz_test::exists("/dev/shm")) setenv("TMPDIR", "/dev/shm", 1);
    qz_test::Temp_dir dir;
    restruct_test::Temp_folder temp(dir.path());
    int rewritten = 0, n = 0;
    for (const std::string& table : tables) {
        SCOPED_TRACE(table);
        const std::string work =
            qz_test::copy_with_companions(table, dir.file(std::to_string(n++)));
        Tqz_dbf_rw* h = qz_dbf_open(work.c_str(), false, false);
        if (!h) continue;  // not a table the library writes
        qz_dbf_close(h);
        const std::vector<uint8_t> bytes_before = qz_test::read_bytes(work);
        unsigned held = 0, left = 0;
        const restruct_test::Rows before = rows(work, held);
        restruct_test::Rows kept;
        void* mask = qz_bits_create();
        for (unsigned r = 0; r < held; ++r)
            if (r % 3 == 2)
                qz_bits_set_bit(mask, r, 1);
            else if (r < before.size())
                kept.push_back(before[r]);
        const std::wstring wpath = qz_test::widen(work);
        if (qz_dbf_del_records_by_msk_and_fn(wpath.c_str(), mask) != 0) {
            // A file without fields, or with fields that do not fill its
            // records: refused, left as it was.
            const int why = qz_dbf_del_records_by_msk_why_w(wpath.c_str(), mask);
            EXPECT_TRUE(why == QZ_DBF_DELMASK_UNKNOWN_LAYOUT || why == QZ_DBF_DELMASK_CANNOT_OPEN);
            EXPECT_EQ(qz_test::read_bytes(work), bytes_before);
        } else {
            ++rewritten;
            restruct_test::Rows after = rows(work, left);
            EXPECT_EQ(left, held - held / 3);
            after.resize(std::min(after.size(), kept.size()));
            EXPECT_EQ(after, kept);
        }
        qz_bits_destroy(mask);
    }
    EXPECT_GT(rewritten, 100);
}

}  // namespace
