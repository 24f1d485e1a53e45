// The OGR-backed table read directly: values through every getter, wide
// text by the flags, search, and a table created through OGR (the type
// mapping). Layers are checked through the exports (ogr_facade_test).
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "ogr/ogr_table.h"
#include "ogr_inputs.h"

namespace {

using qz_ogr_test::inputs;
using qz_ogr_test::people;
using qz_ogr_test::people_count;

// Every source of the people table: each getter, unset cells, neutral
// results out of range, and search (trimmed, any letter case, Cyrillic too).
TEST(OgrTable, ValuesAndSearchInEverySourceAndATableCreated) {
    ASSERT_TRUE(inputs().made);
    for (const std::string& path : {inputs().dbf, inputs().gpkg, inputs().geojson, inputs().csv}) {
        SCOPED_TRACE(path);
        Tqz_dbf_ogr t;
        ASSERT_EQ(t.open(path.c_str(), true, false), 0);
        for (unsigned r = 0; r < people_count; ++r) {
            bool ok[4] = {};
            EXPECT_STREQ(t.get_as_string(1, r, ok[0]), people[r].name);
            EXPECT_EQ(t.get_as_integer(0, r, ok[1]), people[r].id);
            EXPECT_EQ(t.get_as_bool(3, r, ok[2]), people[r].flag != 0);
            EXPECT_DOUBLE_EQ(t.get_as_double(2, r, ok[3]), people[r].score);
            EXPECT_TRUE(ok[0] && ok[1] && ok[2]);
            EXPECT_EQ(ok[3], r != 4 || path == inputs().csv)
                << "the score of Eve is unset, except as the empty text of a text-only CSV";
        }
        // Wide text: UTF-8 unless the DOS flag asks for CP866; the flags
        // exclude each other.
        unsigned len = 0;
        bool ok = false;
        EXPECT_EQ(std::wstring(t.get_as_wchar_t(1, 2, len, ok)), L"Сергей");
        EXPECT_EQ(std::wstring(t.get_as_wstring(1, 2, len, ok, 0)), L"Сергей");
        t.set_dos_flag(true);
        EXPECT_TRUE(std::wstring(t.get_as_wchar_t(1, 2, len, ok)) != L"Сергей" && len == 12u)
            << "each UTF-8 byte read as one CP866 character";
        t.set_utf8_flag(true);
        EXPECT_TRUE(t.get_utf8_flag() && !t.get_dos_flag());
        EXPECT_TRUE(std::wstring(t.get_as_wchar_t(1, 2, len, ok)) == L"Сергей" && len == 6u);
        // Past the end and outside the fields (no special fields such as
        // the FID behind the last): neutral results.
        for (const auto& [field, record] : {std::pair{1u, people_count}, {5u, 0u}}) {
            ok = true;
            EXPECT_TRUE(!*t.get_as_string(field, record, ok) && !ok);
        }
        EXPECT_EQ(std::pair(t.get_as_integer(99, 0, ok), t.get_as_double(0, 0xFFFFFFFFu, ok)),
                  std::pair(0, 0.0));
        unsigned size = 1, type = 0;
        EXPECT_TRUE(t.get_memo_bytes(0, 1000, ok, size, type) != nullptr && size == 0 && !ok);
        EXPECT_FALSE(t.set_as_string(0, people_count, "x") || t.set_as_integer(7, 0, 1) ||
                     t.set_as_wstring(-1, 0, L"x") || t.get_as_any(0, 0, nullptr));
        EXPECT_TRUE(t.set_as_any(0, 0, nullptr) && !t.set_as_any(0, people_count, nullptr));
        // Search: field, text, the record found (0 for none).
        const std::tuple<unsigned, const char*, bool, unsigned> finds[] = {
            {1, "  BORIS\t", true, 1}, {1, u8"сергей", true, 2}, {4, "padded", true, 3},
            {0, "7", true, 6},         {1, "nobody", false, 0},  {9, "Anna", false, 0}};
        for (const auto& [field, text, found, record] : finds) {
            unsigned r = 99;
            EXPECT_TRUE(t.find_value(field, text, r) == found && r == record) << text;
        }
        unsigned r = 5;
        EXPECT_FALSE(t.find_value(1, nullptr, r));
        EXPECT_EQ(t.find_value(2, "", r), path == inputs().csv)
            << "the unset score of Eve (text \"\") is no match";
        // A search that finds nothing leaves the last record at hand: no seek
        // to read it again.
        EXPECT_FALSE(t.find_value(1, "nobody", r));
        const uint64_t seeks = t.seek_count();
        EXPECT_STREQ(t.get_as_string(1, people_count - 1, ok), people[people_count - 1].name);
        EXPECT_EQ(t.seek_count(), seeks);
    }
    // A table created through OGR: a shapefile attribute table whose fields
    // follow the type mapping; the result is 1 even on success.
    qz_test::Temp_dir dir;
    std::string path = dir.file("made.dbf");
    Tqz_dbf_field fields[5];
    qz_dbf_field_init(&fields[0], "NAME", dbf_ft_char, 8, 0);
    qz_dbf_field_init(&fields[1], "COUNT", dbf_ft_integer, 4, 0);
    qz_dbf_field_init(&fields[2], "PRICE", dbf_ft_float, 9, 2);
    qz_dbf_field_init(&fields[3], "WHEN", dbf_ft_date, 8, 0);
    qz_dbf_field_init(&fields[4], "OK", dbf_ft_logical, 1, 0);
    {
        Tqz_dbf_ogr t;
        EXPECT_EQ(t.create(path.c_str(), 5, 3, fields, true), 1);
        EXPECT_TRUE(t.is_open() && t.get_dos_flag());
        t.add_records(2);
        EXPECT_EQ(t.get_nr(), 5u);
    }
    Tqz_dbf_ogr t;
    ASSERT_TRUE(t.open(path.c_str(), true, false) == 0 && t.get_nr() == 5u && t.get_nf() == 5u);
    const Tqz_dbf_field_type want[] = {dbf_ft_char, dbf_ft_integer, dbf_ft_numeric, dbf_ft_char,
                                       dbf_ft_char};
    for (unsigned i = 0; i < 5; ++i) EXPECT_EQ(t.get_field_type(i), want[i]) << i;
    EXPECT_EQ(std::tuple(t.get_field_flen(0), t.get_field_flen(2), t.get_field_dlen(2)),
              std::tuple(8u, 9u, 2));
    bool ok = true;
    t.get_as_string(0, 4, ok);
    EXPECT_FALSE(ok) << "new records hold no values";
    EXPECT_EQ(Tqz_dbf_ogr().create("", 0, 0, nullptr, false), 1);
    Tqz_dbf_ogr none;
    none.create(dir.file("no/such/folder/x.dbf").c_str(), 5, 1, fields, false);
    EXPECT_TRUE(!none.is_open() && none.get_layer() == 0xFFFFFFFFu) << "no layer without a source";
}

}  // namespace
