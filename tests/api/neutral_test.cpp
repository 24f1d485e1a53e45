// Every accessor export answers with its neutral result on a handle without
// a table and for field or record indexes out of range (past the counts, or
// past the end of a file shorter than its header says). Run under ASan and
// UBSan, this also shows that no such call reads or writes outside a buffer.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "api/table_rw.h"
#include "qzk_basic.h"
#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

struct Adapter {
    std::wstring text = L"untouched";
    Iqz_string_adp* adp = qz_string_adp_create(
        nullptr,
        [](void* u, const wchar_t* s) { static_cast<Adapter*>(u)->text = s ? s : L"(null)"; },
        this);
    ~Adapter() { qz_string_adp_destroy(adp); }
};

// Calls every accessor export that reads or writes a cell or a field with
// `field` and `record` and checks the neutral answers. With `table` false
// the handle has no table, and the calls that take no index are checked too.
void sweep(Tqz_dbf_rw* h, unsigned field, unsigned record, bool table) {
    SCOPED_TRACE("field " + std::to_string(field) + ", record " + std::to_string(record));
    bool ok = true;
    unsigned len = 12345;
    Adapter a;
    Tqz_any any;
    any_init(&any);
    any_assign_integer(&any, 5);

    // Text getters leave ok alone and give empty text (null without a table).
    const char* s = qz_dbf_get_str(h, field, record, ok);
    EXPECT_EQ(s ? std::string(s) : "(null)", table ? "" : "(null)");
    EXPECT_TRUE(ok);
    const wchar_t* w = qz_dbf_get_wstr(h, field, record, len, ok, 0);
    EXPECT_EQ(w ? std::wstring(w) : L"(null)", table ? L"" : L"(null)");
    EXPECT_EQ(len, 12345u);
    EXPECT_FALSE(qz_dbf_get_str_w(h, field, record, a.adp));
    EXPECT_EQ(a.text, L"untouched");

    // The other getters clear ok; without a table nothing is called at all
    // and ok stays as it was.
    ok = true;
    EXPECT_EQ(qz_dbf_get_wstr_encoded(h, field, record, len, ok), nullptr);
    EXPECT_EQ(ok, !table);
    ok = true;
    qz_dbf_get_wstr_encoded_adpt(h, field, record, len, ok, a.adp);
    EXPECT_EQ(a.text, table ? L"" : L"untouched");
    ok = true;
    EXPECT_EQ(qz_dbf_get_int(h, field, record, ok), 0);
    EXPECT_EQ(ok, !table);
    ok = true;
    EXPECT_EQ(qz_dbf_get_dbl(h, field, record, ok), 0.0);
    EXPECT_EQ(ok, !table);
    ok = true;
    EXPECT_FALSE(qz_dbf_get_bool(h, field, record, ok));
    EXPECT_EQ(ok, !table);
    EXPECT_FALSE(qz_dbf_get_any(h, field, record, &any));
    EXPECT_EQ(any_get_integer(&any), 5);

    // Setters write nothing and say so.
    const wchar_t wide[] = L"x";
    EXPECT_FALSE(qz_dbf_set_str(h, field, record, "1"));
    EXPECT_FALSE(qz_dbf_set_str_w(h, static_cast<int>(field), static_cast<int>(record), wide));
    EXPECT_FALSE(
        qz_dbf_set_wstr_encoded(h, static_cast<int>(field), static_cast<int>(record), wide, 1));
    EXPECT_FALSE(qz_dbf_set_int(h, field, record, 1));
    EXPECT_FALSE(qz_dbf_set_dbl(h, field, record, 1.0));
    EXPECT_FALSE(qz_dbf_set_bool(h, field, record, true));
    EXPECT_FALSE(qz_dbf_set_any(h, field, record, &any));

    // Field metadata and search in a field that is not there.
    if (!table || field >= qz_dbf_get_nf(h)) {
        unsigned rec = 777;
        EXPECT_FALSE(qz_dbf_find_value(h, field, "", rec));
        qz_dbf_begin_fast_find(h, field);
        EXPECT_FALSE(qz_dbf_find_value_fast(h, "", rec));
        qz_dbf_end_fast_find(h);
        EXPECT_EQ(rec, 777u);
        EXPECT_EQ(qz_dbf_get_field_name(h, field), nullptr);
        a.text = L"untouched";
        qz_dbf_get_field_name_w(h, field, a.adp);
        EXPECT_EQ(a.text, L"untouched");
        EXPECT_EQ(qz_dbf_get_field_type(h, field), dbf_ft_unknown);
        EXPECT_EQ(qz_dbf_get_field_flen(h, field), 0u);
        EXPECT_EQ(qz_dbf_get_field_dlen(h, field), 0);
        qz_dbf_set_field_name(h, field, "X");
        qz_dbf_set_field_name_w(h, field, L"X");
        char c = '1';
        EXPECT_TRUE(
            qz_dbf_validate_val(h, field, &c, "", true));  // an unknown field takes anything
    }
    any_clear(&any);

    if (table) return;
    EXPECT_FALSE(qz_dbf_get_dos_flag(h));
    EXPECT_FALSE(qz_dbf_get_utf8_flag(h));
    qz_dbf_set_dos_flag(h, true);
    qz_dbf_set_utf8_flag(h, true);
    EXPECT_FALSE(qz_dbf_get_dos_flag(h));
    EXPECT_EQ(qz_dbf_get_nl(h), 0u);
    EXPECT_EQ(qz_dbf_get_nf(h), 0u);
    EXPECT_EQ(qz_dbf_get_nr(h), 0u);
    EXPECT_EQ(qz_dbf_get_layer(h), 0u);
    EXPECT_FALSE(qz_dbf_set_layer(h, 0));
    a.text = L"untouched";
    qz_dbf_get_layer_name(h, 0, a.adp);
    EXPECT_EQ(a.text, L"untouched");
    EXPECT_EQ(qz_dbf_find_field_index_w(h, L"A"), 0xFFFFFFFFu);
    qz_dbf_add_records(h, 3);
    EXPECT_EQ(qz_dbf_get_nr(h), 0u);
    unsigned char header[32];
    EXPECT_FALSE(qz_dbf_get_header(h, header));
}

const unsigned kBad[] = {3, 4, 1000, 0x7FFFFFFF, 0x80000000u, 0xFFFFFFFEu, 0xFFFFFFFFu};

TEST(Neutral, HandleWithoutTable) {
    Tqz_dbf_rw* h = new Tqz_dbf_rw();
    for (unsigned f : {0u, 1u, 0xFFFFFFFFu})
        for (unsigned r : {0u, 0xFFFFFFFFu}) sweep(h, f, r, false);
    // A handle whose table was closed is the same.
    qz_test::Temp_dir dir;
    Tqz_dbf_field fld;
    qz_dbf_field_init(&fld, "A", dbf_ft_char, 4, 0);
    ASSERT_EQ(h->create(dir.file("closed.dbf").c_str(), 1, 1, &fld, false), 0);
    h->close();
    sweep(h, 0, 0, false);
    qz_dbf_close(h);
    // No memory table: the deletion flags answer neutrally too.
    EXPECT_EQ(qz_dbf_mem_get_deleted(nullptr, 0), -1);
    EXPECT_FALSE(qz_dbf_mem_set_deleted(nullptr, 0, true));
}

// A table of every field type with three records, the file cut in the
// middle of the third while the header still counts five.
TEST(Neutral, IndexesOutOfRangeAndRecordsPastTheEnd) {
    qz_options_set_ansi_code_page(65001);
    qz_test::Temp_dir dir;
    std::string path = dir.file("short.dbf");
    const struct {
        const char* name;
        Tqz_dbf_field_type type;
        unsigned char flen;
    } defs[] = {{"C", dbf_ft_char, 255},  {"N", dbf_ft_numeric, 10}, {"F", dbf_ft_float, 10},
                {"L", dbf_ft_logical, 1}, {"D", dbf_ft_date, 8},     {"I", dbf_ft_integer, 4},
                {"B", dbf_ft_double, 8},  {"M", dbf_ft_memo, 10}};
    std::vector<Tqz_dbf_field> fields;
    for (auto& s : defs) {
        Tqz_dbf_field f;
        qz_dbf_field_init(&f, s.name, s.type, s.flen, 0);
        fields.push_back(f);
    }
    const unsigned nf = static_cast<unsigned>(fields.size());
    Tqz_dbf_rw* h = qz_dbf_create(path.c_str(), nf, 5, fields.data(), false);
    ASSERT_NE(h, nullptr);
    qz_dbf_close(h);
    std::vector<uint8_t> bytes = qz_test::read_bytes(path);
    size_t header = 32 + 32 * nf + 1, rl = 1;
    for (auto& f : fields) rl += f.flen;
    bytes.resize(header + 2 * rl + rl / 2);
    qz_test::write_bytes(path, bytes);

    for (bool read_only : {true, false}) {
        h = qz_dbf_open(path.c_str(), read_only, false);
        ASSERT_NE(h, nullptr);
        ASSERT_EQ(qz_dbf_get_nr(h), 5u);
        for (unsigned f : kBad) {
            if (f < nf) continue;
            for (unsigned r : {0u, 1u}) sweep(h, f, r, true);
        }
        for (unsigned f = 0; f < nf; ++f) {
            for (unsigned r : {2u, 3u, 4u, 5u, 6u, 1000u, 0x7FFFFFFFu, 0xFFFFFFFFu})
                sweep(h, f, r, true);
            // The records the file holds still read.
            bool ok = false;
            EXPECT_NE(qz_dbf_get_str(h, f, 1, ok), nullptr);
            EXPECT_TRUE(ok || f == 1 || f == 2);  // blank N and F cells have no value
        }
        qz_dbf_close(h);
    }
    // Nothing was written.
    EXPECT_EQ(qz_test::read_bytes(path), bytes);
}

}  // namespace
