// Restructuring a dBASE 7 table: the new table has 32-byte descriptors
// (dBASE IV with the memo file, dBASE III without), so the big-endian I, +
// and O cells and the @ timestamps must be decoded and written in the new
// field's form, or the restructure refused before anything is written.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

std::string copy_of(const char* rel, const qz_test::Temp_dir& dir) {
    return qz_test::copy_with_companions(std::string(QZ_CORPUS_DIR) + "/" + rel, dir.path());
}

std::vector<Tqz_dbf_value> column(Tqz_dbf_rw* t, unsigned field, std::vector<std::string>& texts) {
    std::vector<Tqz_dbf_value> out;
    for (unsigned r = 0; r < qz_dbf_get_nr(t); ++r) {
        Tqz_dbf_value v;
        EXPECT_TRUE(qz_dbf_get_value(t, field, r, &v));
        texts.push_back(v.text ? std::string(v.text, v.length) : std::string());
        out.push_back(v);
    }
    return out;
}

int index_of(Tqz_dbf_rstrct* d, const char* name) {
    for (int k = 0; k < qz_dbf_restruct_count(d); ++k)
        if (std::strcmp(qz_dbf_restruct_get_field(d, k)->name, name) == 0) return k;
    return -1;
}

// A table of every dBASE 7 kind: @ into @ is refused (nothing written), @
// into C gives the datetime's text; +, I and the memos keep their values.
TEST(Dbase7Restruct, EveryKindConvertedOrRefusedWhole) {
    qz_test::Temp_dir dir;
    const std::string path = copy_of("php-xbase/dBase/dBaseVII.dbf", dir);
    const std::vector<uint8_t> before = qz_test::read_bytes(path);
    Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
    ASSERT_NE(t, nullptr);
    const unsigned f_auto = qz_dbf_find_field_index_w(t, L"AUTO_INC"),
                   f_int = qz_dbf_find_field_index_w(t, L"INTEGER"),
                   f_ts = qz_dbf_find_field_index_w(t, L"DATETIME"),
                   f_bio = qz_dbf_find_field_index_w(t, L"BIO");
    std::vector<std::string> t_auto, t_int, t_ts, t_bio;
    const auto autos = column(t, f_auto, t_auto), ints = column(t, f_int, t_int),
               stamps = column(t, f_ts, t_ts);
    column(t, f_bio, t_bio);
    qz_dbf_close(t);
    ASSERT_EQ(autos.size(), 3u);
    ASSERT_EQ(stamps[0].kind, QZ_DBF_VALUE_DATETIME);

    Tqz_dbf_rstrct* d = qz_dbf_restruct_create(path.c_str());
    ASSERT_NE(d, nullptr);
    const int e_ts = index_of(d, "DATETIME");
    ASSERT_GE(e_ts, 0);
    qz_dbf_clear_last_error();
    EXPECT_FALSE(qz_dbf_restruct_apply(d));
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_VALUE);
    EXPECT_NE(std::string(qz_dbf_last_error_message()).find("DATETIME"), std::string::npos)
        << qz_dbf_last_error_message();
    EXPECT_TRUE(qz_test::read_bytes(path) == before);

    Tqz_dbf_field* ts = qz_dbf_restruct_get_field(d, e_ts);
    ts->type = 'C';
    ts->flen = 23;
    ts->dlen = 0;
    ASSERT_TRUE(qz_dbf_restruct_apply(d)) << qz_dbf_last_error_message();
    qz_dbf_restruct_destroy(d);

    const std::vector<uint8_t> after = qz_test::read_bytes(path);
    EXPECT_EQ(after[0], 0x8B);  // 32-byte descriptors, dBASE IV memo blocks
    t = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
    ASSERT_NE(t, nullptr);
    std::vector<std::string> n_auto, n_int, n_ts, n_bio;
    const auto new_autos = column(t, f_auto, n_auto), new_ints = column(t, f_int, n_int);
    column(t, f_ts, n_ts);
    column(t, f_bio, n_bio);
    for (size_t r = 0; r < autos.size(); ++r) {
        SCOPED_TRACE(r);
        EXPECT_EQ(new_autos[r].kind, autos[r].kind);
        EXPECT_EQ(new_autos[r].i, autos[r].i);
        // A dBASE 7 empty I cell has no form in the new table: it is 0.
        EXPECT_EQ(new_ints[r].i, ints[r].kind == QZ_DBF_VALUE_NULL ? 0 : ints[r].i);
        EXPECT_EQ(n_bio[r], t_bio[r]);
    }
    // 2020-02-20T20:20:20.000 and the like: the text of the timestamp.
    const long long rest = stamps[0].i % 86400000;
    char want[8];
    std::snprintf(want, sizeof want, ".%03lld", rest % 1000);
    EXPECT_EQ(n_ts[0].size(), 23u);
    EXPECT_EQ(n_ts[0].substr(19), want);
    EXPECT_EQ(n_ts[0][10], 'T');
    // The I cells are little-endian now, as the classic layout keeps them.
    const unsigned off = qz_dbf_get_field_offset(t, f_int);
    const size_t at = (after[8] | after[9] << 8) + off;
    const uint32_t stored = after[at] | after[at + 1] << 8 | after[at + 2] << 16 |
                            static_cast<uint32_t>(after[at + 3]) << 24;
    EXPECT_EQ(static_cast<int32_t>(stored), new_ints[0].i);
    qz_dbf_close(t);
}

// O cells: kept as O they become little-endian doubles, bit for bit; into
// N they are rounded to its decimals; into D the restructure is refused.
TEST(Dbase7Restruct, DoublesKeptConvertedOrRefused) {
    struct target {
        char type;
        unsigned char flen;
        char dlen;
        bool applies;
    };
    const target targets[] = {{'O', 8, 0, true}, {'N', 20, 6, true}, {'D', 8, 0, false}};
    for (const target& to : targets) {
        SCOPED_TRACE(to.type);
        qz_test::Temp_dir dir;
        const std::string path = copy_of("php-xbase/dBase/dBaseVII_double.dbf", dir);
        const std::vector<uint8_t> before = qz_test::read_bytes(path);
        Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
        ASSERT_NE(t, nullptr);
        std::vector<std::string> texts;
        const auto old = column(t, 0, texts);
        qz_dbf_close(t);
        Tqz_dbf_rstrct* d = qz_dbf_restruct_create(path.c_str());
        Tqz_dbf_field* f = qz_dbf_restruct_get_field(d, 0);
        f->type = to.type;
        f->flen = to.flen;
        f->dlen = to.dlen;
        EXPECT_EQ(qz_dbf_restruct_apply(d), to.applies) << qz_dbf_last_error_message();
        qz_dbf_restruct_destroy(d);
        if (!to.applies) {
            EXPECT_TRUE(qz_test::read_bytes(path) == before);
            continue;
        }
        EXPECT_EQ(qz_test::read_bytes(path)[0], 0x03);
        t = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
        ASSERT_NE(t, nullptr);
        texts.clear();
        const auto now = column(t, 0, texts);
        ASSERT_EQ(now.size(), old.size());
        for (size_t r = 0; r < old.size(); ++r) {
            if (old[r].kind == QZ_DBF_VALUE_NULL) {
                EXPECT_TRUE(now[r].kind == QZ_DBF_VALUE_NULL ||
                            (now[r].kind == QZ_DBF_VALUE_DOUBLE && now[r].d == 0));
                continue;
            }
            ASSERT_EQ(old[r].kind, QZ_DBF_VALUE_DOUBLE);
            if (to.type == 'O') {
                EXPECT_EQ(std::memcmp(&now[r].d, &old[r].d, 8), 0) << old[r].d;
            } else {
                const double got = now[r].kind == QZ_DBF_VALUE_DOUBLE ? now[r].d
                                   : now[r].kind == QZ_DBF_VALUE_INT  ? double(now[r].i)
                                                                      : std::atof(texts[r].c_str());
                EXPECT_NEAR(got, old[r].d, 5e-7 * std::max(1.0, std::fabs(old[r].d)));
            }
        }
        qz_dbf_close(t);
    }
}

}  // namespace
