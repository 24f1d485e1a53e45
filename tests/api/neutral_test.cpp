// Every accessor export answers with its neutral result on a handle without
// a table and for field or record indexes out of range (past the counts, or
// past the end of a file shorter than its header says). Run under ASan and
// UBSan, this also shows that no such call reads or writes outside a buffer.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "api/table_rw.h"
#include "qzk_basic.h"
#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

// Calls every accessor export that reads or writes a cell or a field with
// `field` and `record` and checks the neutral answers. With `table` false
// the handle has no table, and the calls that take no index are checked too.
void sweep(Tqz_dbf_rw* h, unsigned field, unsigned record, bool table) {
    SCOPED_TRACE("field " + std::to_string(field) + ", record " + std::to_string(record));
    bool ok = true;
    unsigned len = 12345;
    qz_test::Fed a;
    Tqz_any any;
    any_init(&any);
    any_assign_integer(&any, 5);
    // Text getters leave ok alone and give empty text (null without a table).
    const char* s = qz_dbf_get_str(h, field, record, ok);
    EXPECT_EQ(s ? std::string(s) : "(null)", table ? "" : "(null)");
    const wchar_t* w = qz_dbf_get_wstr(h, field, record, len, ok, 0);
    EXPECT_EQ(w ? std::wstring(w) : L"(null)", table ? L"" : L"(null)");
    EXPECT_TRUE(ok && len == 12345u);
    EXPECT_FALSE(qz_dbf_get_str_w(h, field, record, a.adp) || a.wide != L"untouched");
    // The other getters clear ok; without a table nothing is called at all
    // and ok stays as it was.
    EXPECT_TRUE(qz_dbf_get_wstr_encoded(h, field, record, len, ok) == nullptr && ok == !table);
    ok = true;
    qz_dbf_get_wstr_encoded_adpt(h, field, record, len, ok, a.adp);
    EXPECT_TRUE(a.wide == (table ? L"" : L"untouched") && ok == !table);
    for (int k = 0; k < 3; ++k) {
        ok = true;
        const double got = k == 0   ? qz_dbf_get_int(h, field, record, ok)
                           : k == 1 ? qz_dbf_get_dbl(h, field, record, ok)
                                    : qz_dbf_get_bool(h, field, record, ok);
        EXPECT_TRUE(got == 0.0 && ok == !table) << k;
    }
    EXPECT_TRUE(!qz_dbf_get_any(h, field, record, &any) && any_get_integer(&any) == 5);
    // Setters write nothing and say so.
    const int f = static_cast<int>(field), r = static_cast<int>(record);
    for (bool written :
         {qz_dbf_set_str(h, field, record, "1"), qz_dbf_set_str_w(h, f, r, L"x"),
          qz_dbf_set_wstr_encoded(h, f, r, L"x", 1), qz_dbf_set_int(h, field, record, 1),
          qz_dbf_set_dbl(h, field, record, 1.0), qz_dbf_set_bool(h, field, record, true),
          qz_dbf_set_any(h, field, record, &any)})
        EXPECT_FALSE(written);
    any_clear(&any);
    // Field metadata and search in a field that is not there.
    if (table && field < qz_dbf_get_nf(h)) return;
    unsigned rec = 777;
    EXPECT_FALSE(qz_dbf_find_value(h, field, "", rec));
    qz_dbf_begin_fast_find(h, field);
    EXPECT_FALSE(qz_dbf_find_value_fast(h, "", rec) || rec != 777u);
    qz_dbf_end_fast_find(h);
    EXPECT_EQ(qz_dbf_get_field_name(h, field), nullptr);
    a.wide = L"untouched";
    qz_dbf_get_field_name_w(h, field, a.adp);
    EXPECT_TRUE(a.wide == L"untouched" && qz_dbf_get_field_type(h, field) == dbf_ft_unknown);
    EXPECT_EQ(qz_dbf_get_field_flen(h, field) + qz_dbf_get_field_dlen(h, field), 0u);
    qz_dbf_set_field_name(h, field, "X");
    qz_dbf_set_field_name_w(h, field, L"X");
    char c = '1';
    EXPECT_TRUE(qz_dbf_validate_val(h, field, &c, "", true));  // an unknown field takes anything
    if (table) return;
    qz_dbf_set_dos_flag(h, true);
    qz_dbf_set_utf8_flag(h, true);
    EXPECT_FALSE(qz_dbf_get_dos_flag(h) || qz_dbf_get_utf8_flag(h) || qz_dbf_set_layer(h, 0));
    EXPECT_EQ(qz_dbf_get_nl(h) + qz_dbf_get_nf(h) + qz_dbf_get_nr(h) + qz_dbf_get_layer(h), 0u);
    qz_dbf_get_layer_name(h, 0, a.adp);
    EXPECT_EQ(a.wide, L"untouched");
    qz_dbf_add_records(h, 3);
    unsigned char header[32];
    EXPECT_TRUE(qz_dbf_find_field_index_w(h, L"A") == 0xFFFFFFFFu && qz_dbf_get_nr(h) == 0u &&
                !qz_dbf_get_header(h, header));
}

TEST(Neutral, HandleWithoutTableIndexesOutOfRangeAndRecordsPastTheEnd) {
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
    EXPECT_TRUE(qz_dbf_mem_get_deleted(nullptr, 0) == -1 &&
                !qz_dbf_mem_set_deleted(nullptr, 0, true));

    // A table of every field type with three records, the file cut in the
    // middle of the third while the header still counts five: indexes out
    // of range and records past the end.
    qz_options_set_ansi_code_page(65001);
    const std::string path = dir.file("short.dbf");
    const Tqz_dbf_field_type types[] = {dbf_ft_char, dbf_ft_numeric, dbf_ft_float,  dbf_ft_logical,
                                        dbf_ft_date, dbf_ft_integer, dbf_ft_double, dbf_ft_memo};
    const unsigned char lengths[] = {255, 10, 10, 1, 8, 4, 8, 10};
    std::vector<Tqz_dbf_field> fields(8);
    for (unsigned k = 0; k < 8; ++k) qz_dbf_field_init(&fields[k], "F", types[k], lengths[k], 0);
    qz_dbf_close(qz_dbf_create(path.c_str(), 8, 5, fields.data(), false));
    std::vector<uint8_t> bytes = qz_test::read_bytes(path);
    const size_t rl = qz_test::u16_at(bytes, 10);
    bytes.resize(qz_test::u16_at(bytes, 8) + 2 * rl + rl / 2);
    qz_test::write_bytes(path, bytes);
    for (bool read_only : {true, false}) {
        Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), read_only, false);
        ASSERT_TRUE(t && qz_dbf_get_nr(t) == 5u);
        for (unsigned f : {8u, 1000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFEu, 0xFFFFFFFFu})
            for (unsigned r : {0u, 1u}) sweep(t, f, r, true);
        for (unsigned f = 0; f < 8; ++f) {
            for (unsigned r : {2u, 3u, 4u, 5u, 6u, 1000u, 0x7FFFFFFFu, 0xFFFFFFFFu})
                sweep(t, f, r, true);
            // The records the file holds still read; blank N and F cells have no value.
            bool ok = false;
            EXPECT_TRUE(qz_dbf_get_str(t, f, 1, ok) && ok == (f != 1 && f != 2));
        }
        qz_dbf_close(t);
    }
    EXPECT_EQ(qz_test::read_bytes(path), bytes);  // nothing was written
    qz_options_set_ansi_code_page(0);
}

}  // namespace
