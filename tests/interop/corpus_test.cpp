// Real tables written by other software survive every getter (what they
// read is compared with dbfread by typed_vs_peers.py).
#include <gtest/gtest.h>

#include <string>

#include "qzk_basic.h"
#include "qzk_file_dbf.h"
#include "test_support.h"

namespace {

// Every getter on every cell of the first records and the last ones of
// every table that opens, past the last field and record too: neutral
// results (the sanitizer build checks the rest).
TEST(Corpus, EveryTableSurvivesEveryGetter) {
    qz_options_set_ansi_code_page(65001);
    Iqz_string_adp* adp = qz_string_adp_create(
        nullptr, [](void*, const wchar_t*) {}, nullptr);
    size_t opened = 0;
    for (const std::string& path : qz_test::corpus_tables()) {
        Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), true, false);
        if (!t) continue;
        ++opened;
        const unsigned nf = qz_dbf_get_nf(t), nr = qz_dbf_get_nr(t);
        for (uint64_t next = 0; next < uint64_t{nr} + 2;
             next = next == 199 && nr > 202 ? nr - 2 : next + 1) {
            const unsigned r = static_cast<unsigned>(next);
            for (unsigned f = 0; f <= nf; ++f) {
                bool ok = false;
                unsigned len = 0;
                EXPECT_NE(qz_dbf_get_str(t, f, r, ok), nullptr) << path;
                qz_dbf_get_str_w(t, f, r, adp);
                qz_dbf_get_wstr(t, f, r, len, ok, 0);
                qz_dbf_get_wstr_encoded(t, f, r, len, ok);
                const int i = qz_dbf_get_int(t, f, r, ok);
                EXPECT_TRUE((f < nf && r < nr) || i == 0) << path;
                qz_dbf_get_dbl(t, f, r, ok);
                qz_dbf_get_bool(t, f, r, ok);
                Tqz_any any;
                any_init(&any);
                qz_dbf_get_any(t, f, r, &any);
                any_clear(&any);
            }
        }
        unsigned rec = 0;
        qz_dbf_find_value(t, 0, "x", rec);
        qz_dbf_begin_fast_find(t, 0);
        qz_dbf_find_value_fast(t, "x", rec);
        qz_dbf_end_fast_find(t);
        qz_dbf_close(t);
    }
    qz_string_adp_destroy(adp);
    EXPECT_GT(opened, 200u) << "the corpus is at " << QZ_CORPUS_DIR;
}

}  // namespace
