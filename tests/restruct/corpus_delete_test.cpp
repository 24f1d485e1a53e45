// Deleting records by mask on copies of the real tables of the corpus: every
// third record removed, the kept ones read the same through the library;
// tables the rewrite cannot handle are refused and left byte for byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "qzk_basic.h"
#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

// The records the file of a table holds whole (its header may claim more).
unsigned held_records(const std::string& path, unsigned claimed) {
    std::vector<uint8_t> b = qz_test::read_bytes(path);
    if (b.size() < 12) return 0;
    const size_t header = b[8] | b[9] << 8, length = b[10] | b[11] << 8;
    if (length == 0 || b.size() <= header) return 0;
    return static_cast<unsigned>(std::min<size_t>(claimed, (b.size() - header) / length));
}

// Records compared cell by cell per table: enough to cross every block and
// page boundary of the rewrite; the count of the rest is checked.
constexpr unsigned kCompared = 3000;

// Every cell of the first kCompared held records as text without trailing
// blanks (a memo cell: its memo); `held` gets the number of records the file holds. `kinds` gets
// 't' for fields kept as text (C, L, D, M), 'n' for N (compared by value), 'o' for the others (an F
// or B value may be written back shorter).
std::vector<std::vector<std::string>> rows(const std::string& file, std::string* kinds,
                                           unsigned& held) {
    std::vector<std::vector<std::string>> out;
    Tqz_dbf_rw* h = qz_dbf_open(file.c_str(), true, false);
    if (!h) return out;
    const unsigned nf = qz_dbf_get_nf(h);
    for (unsigned f = 0; kinds && f < nf; ++f) {
        const char t = qz_dbftype2char(qz_dbf_get_field_type(h, f));
        *kinds += t == 'C' || t == 'L' || t == 'D' || t == 'M' ? 't' : t == 'N' ? 'n' : 'o';
    }
    held = held_records(file, qz_dbf_get_nr(h));
    for (unsigned r = 0; r < held && r < kCompared; ++r) {
        out.emplace_back();
        for (unsigned f = 0; f < nf; ++f) {
            bool ok = false;
            std::string v;
            Tqz_dbf_value memo;
            if (qz_dbf_get_field_type(h, f) != dbf_ft_memo) {
                const char* s = qz_dbf_get_str(h, f, r, ok);
                v = s ? s : "";
            } else if (qz_dbf_get_value(h, f, r, &memo)) {
                // A memo by its text: the rewrite renumbers the blocks.
                v = memo.text ? std::string(memo.text, memo.length) : "";
            }
            while (!v.empty() && (v.back() == ' ' || v.back() == '\0')) v.pop_back();
            out.back().push_back(v);
        }
    }
    qz_dbf_close(h);
    return out;
}

bool same_number(const std::string& a, const std::string& b) {
    char *ea = nullptr, *eb = nullptr;
    const double x = std::strtod(a.c_str(), &ea), y = std::strtod(b.c_str(), &eb);
    if (ea == a.c_str() || eb == b.c_str()) return (ea == a.c_str()) == (eb == b.c_str());
    return x == y || std::fabs(x - y) <= 1e-15 * std::max(std::fabs(x), std::fabs(y));
}

TEST(CorpusDelete, EveryThirdRecordGoesTheRestStays) {
    const std::vector<std::string> tables = qz_test::corpus_tables();
    if (tables.empty()) GTEST_SKIP() << "no corpus at " QZ_CORPUS_DIR;
    // The copies go to a RAM folder when the system has one: the test is
    // about the records kept, and two hundred rewrites synced to a disk
    // cost seconds.
    const char* tmp = std::getenv("TMPDIR");
    const std::string saved_tmp = tmp ? tmp : "";
    if (qz_test::exists("/dev/shm")) setenv("TMPDIR", "/dev/shm", 1);
    qz_test::Temp_dir dir;
    if (tmp)
        setenv("TMPDIR", saved_tmp.c_str(), 1);
    else
        unsetenv("TMPDIR");
    const std::wstring saved_temp = qz_options_get_temp_wpath();
    qz_options_set_temp_wpath(qz_test::widen(dir.path() + "/").c_str());
    int rewritten = 0, n = 0;
    for (const std::string& table : tables) {
        SCOPED_TRACE(table);
        const std::string work =
            qz_test::copy_with_companions(table, dir.file(std::to_string(n++)));
        Tqz_dbf_rw* h = qz_dbf_open(work.c_str(), false, false);
        if (!h) continue;  // not a table the library writes
        qz_dbf_close(h);
        std::string kinds;
        const std::vector<uint8_t> bytes_before = qz_test::read_bytes(work);
        unsigned held = 0;
        const auto before = rows(work, &kinds, held);
        std::vector<std::vector<std::string>> kept;
        void* mask = qz_bits_create();
        for (unsigned r = 0; r < held; ++r) {
            if (r % 3 == 2)
                qz_bits_set_bit(mask, r, 1);
            else if (r < before.size())
                kept.push_back(before[r]);
        }
        const std::wstring wpath = qz_test::widen(work);
        if (qz_dbf_del_records_by_msk_and_fn(wpath.c_str(), mask) != 0) {
            // A file without fields, or with fields that do not fill its
            // records: refused, left as it was.
            const int why = qz_dbf_del_records_by_msk_why_w(wpath.c_str(), mask);
            EXPECT_TRUE(why == QZ_DBF_DELMASK_UNKNOWN_LAYOUT || why == QZ_DBF_DELMASK_CANNOT_OPEN)
                << why;
            EXPECT_EQ(qz_test::read_bytes(work), bytes_before);
            qz_bits_destroy(mask);
            continue;
        }
        qz_bits_destroy(mask);
        ++rewritten;
        unsigned left = 0;
        const auto after = rows(work, nullptr, left);
        ASSERT_EQ(left, held - held / 3);
        ASSERT_GE(after.size(), kept.size());
        for (size_t r = 0; r < kept.size(); ++r) {
            ASSERT_EQ(after[r].size(), kept[r].size());
            for (size_t f = 0; f < kept[r].size(); ++f) {
                if (kinds[f] == 't' || (kinds[f] == 'n' && !same_number(after[r][f], kept[r][f]))) {
                    EXPECT_EQ(after[r][f], kept[r][f]) << "record " << r << " field " << f;
                }
            }
        }
    }
    qz_options_set_temp_wpath(saved_temp.c_str());
    EXPECT_GT(rewritten, 100);
}

}  // namespace
