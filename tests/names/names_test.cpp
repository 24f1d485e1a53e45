// Field names through the exports: the rules of one name and its repairs,
// whole field lists (duplicates without regard to case, descriptors of any
// bytes), unique names against a table, and qz_dbf_create_safe.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "qzk_basic.h"
#include "qzk_file_dbf.h"
#include "test_support.h"

namespace {

using Names = std::vector<std::string>;

// The text a fix-style export feeds to its adapter, as a return value.
template <class F, class... A>
std::string fed(F f, A... args) {
    qz_test::Fed out;
    f(args..., out.adp);
    return out.narrow;
}

std::vector<Tqz_dbf_field> fields_of(const Names& names) {
    std::vector<Tqz_dbf_field> out(names.size());
    for (size_t i = 0; i < names.size(); ++i)
        qz_dbf_field_init(&out[i], names[i].c_str(), dbf_ft_char, 10, 0);
    return out;
}

Names names_of(const Tqz_dbf_field* fields, size_t n) {
    Names out;
    for (size_t i = 0; i < n; ++i) out.emplace_back(fields[i].name, strnlen(fields[i].name, 11));
    return out;
}

// The system code page is UTF-8 for every test of the suite.
class NamesUtf8 : public ::testing::Test {
  protected:
    void SetUp() override { qz_options_set_ansi_code_page(65001); }
    void TearDown() override { qz_options_set_ansi_code_page(0); }
};

// One name: size_ok, symbols_ok, first_ok, name_ok, then the size,
// first-character and whole-name repairs.
TEST_F(NamesUtf8, OneNameThroughEveryExport) {
    const struct {
        const char* name;
        bool size_ok, symbols_ok, first_ok, name_ok;
        const char *size_fix, *first_fix, *name_fix;
    } cases[] = {
        {"ABCDEFGHIJK", false, true, true, false, "ABCDEFGHIJ", "ABCDEFGHIJK", "ABCDEFGHIJ"},
        {"12", true, true, false, false, "12", "PROP", "PROP"},
        {"Цена", true, false, false, false, "Цена", "PROP", "CENA"},
        // A name beginning with a non-letter after transliteration loses it.
        {"_цена", true, false, false, false, "_цена", "PROP", "CENA"},
        // The cut counts bytes and never splits a character; the whole repair
        // cuts after transliteration and before upper-casing.
        {"ЖЖЖЖЖЖЖЖЖЖЖЖ", false, false, false, false, "ЖЖЖЖЖ", "PROP", "ZZZZZZZZZZ"},
        {"aЖЖЖЖЖ", false, false, true, false, "aЖЖЖЖ", "aЖЖЖЖЖ", "AZZZZZ"},
        {"abcdefghi€", false, false, true, false, "abcdefghi", "abcdefghi€", "ABCDEFGHI"},
        // A single non-letter character gets "PROP" before it, however many
        // bytes it has; letters of other scripts are not permitted.
        {"€", true, false, false, false, "€", "PROP€", "PROP€"},
        {"Aé", true, false, true, false, "Aé", "Aé", "AE"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(qz_dbf_field_name_size_ok(c.name), c.size_ok);
        EXPECT_EQ(qz_dbf_field_symbols_ok(c.name), c.symbols_ok);
        EXPECT_EQ(qz_dbf_field_first_symb_ok(c.name), c.first_ok);
        EXPECT_EQ(qz_dbf_field_name_is_ok(c.name), c.name_ok);
        EXPECT_EQ(fed(qz_dbf_field_name_size_fix, c.name), c.size_fix);
        EXPECT_EQ(fed(qz_dbf_field_first_symb_fix, c.name), c.first_fix);
        EXPECT_EQ(fed(qz_dbf_field_name_fix, c.name), c.name_fix);
    }
}

// Each list through the duplicate check and repair (dup) or the whole-name
// check and repair; the repaired list passes its check. Then the older
// repair of whole lists.
TEST_F(NamesUtf8, DuplicatesWholeListRepairsAndDescriptorsOfAnyBytes) {
    const struct {
        bool dup;
        Names in, fixed;
    } cases[] = {
        // A generated name can meet a later field's name; that one is
        // numbered in its turn.
        {true, {"X", "x", "X1"}, {"X", "x1", "X11"}},
        {true, {"ABCDEFGHIJ", "abcdefghij"}, {"ABCDEFGHIJ", "abcdefghi1"}},
        // Cyrillic letters differ only in case by Unicode rules, in UTF-8.
        {true, {"Ёж", "ёЖ", "Еж"}, {"Ёж", "ёЖ1", "Еж"}},
        // Valid names are never touched by the repair of single names; the
        // repaired ones then give way by numbers.
        {false, {"PROP", "", "12"}, {"PROP", "PROP1", "PROP2"}},
        {false, {"1", "PROP1"}, {"PROP1", "PROP11"}},
        {false, {"ABCDEFGHIJKLMN", "ABCDEFGHIJ"}, {"ABCDEFGHIJ", "ABCDEFGHI1"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.in[0]);
        auto fields = fields_of(c.in);
        const unsigned n = static_cast<unsigned>(fields.size());
        auto ok = c.dup ? qz_dbf_fields_duplicates_ic_ok : qz_dbf_fields_names_ok;
        EXPECT_FALSE(ok(fields.data(), n));
        (c.dup ? qz_dbf_fields_duplicates_ic_fix : qz_dbf_fields_names_fix)(fields.data(), n);
        EXPECT_EQ(names_of(fields.data(), fields.size()), c.fixed);
        EXPECT_TRUE(ok(fields.data(), n));
    }
    // Cyrillic kept and upper-cased through Windows-1251 (а..я, ё), other
    // characters as '_' ('A' first, digits kept), then duplicates numbered.
    std::vector<Tqz_dbf_field> f = fields_of({"абвя", "ёж", "-x-y", "1x", "ABC", "abc"});
    EXPECT_TRUE(qz_dbf_make_correct_names(f.data(), static_cast<int>(f.size())));
    EXPECT_EQ(names_of(f.data(), f.size()), (Names{"АБВЯ", "ЁЖ", "AX_Y", "1X", "ABC", "ABC_1"}));
    // Exactly sized heap arrays, so that the address checker catches a read
    // or write past the last descriptor: names of eleven bytes without a
    // zero, invalid UTF-8, empty; the other descriptor bytes are kept.
    const unsigned n = 4;
    std::unique_ptr<Tqz_dbf_field[]> fields(new Tqz_dbf_field[n]);
    const char fill[n] = {'A', '\xd0', 0, 'a'};
    for (unsigned i = 0; i < n; ++i) {
        std::memset(fields[i].name, fill[i], 11);
        fields[i].type = 'N';
        fields[i].flen = 200;
        fields[i].dlen = -3;
    }
    EXPECT_FALSE(qz_dbf_fields_names_ok(fields.get(), n));
    EXPECT_FALSE(qz_dbf_fields_duplicates_ic_ok(fields.get(), n));
    qz_dbf_fields_names_fix(fields.get(), n);
    EXPECT_EQ(names_of(fields.get(), n), (Names{"AAAAAAAAAA", "PROP", "PROP1", "AAAAAAAAA1"}));
    for (unsigned i = 0; i < n; ++i)
        EXPECT_TRUE(fields[i].name[10] == 0 && fields[i].type == 'N' && fields[i].flen == 200 &&
                    fields[i].dlen == -3);
    EXPECT_TRUE(qz_dbf_fields_names_ok(fields.get(), n) && !qz_dbf_fields_names_ok(nullptr, 3));
    qz_dbf_fields_names_fix(nullptr, 5);
}

// The table forms answer in one static string each: the next call
// overwrites it; the old form keeps the whole name.
TEST_F(NamesUtf8, UniqueAgainstATableAndCreateSafe) {
    qz_test::Temp_dir dir;
    auto fields = fields_of({"NAME", "NAME1", "ABCDEFGHIJ", "id"});
    Tqz_dbf_rw* t = qz_dbf_create(dir.file("u.dbf").c_str(), 4, 0, fields.data(), false);
    ASSERT_NE(t, nullptr);
    const char* first = qz_dbf_generate_unin_name(t, "NAME");
    EXPECT_STREQ(first, "NAME2");
    EXPECT_EQ(qz_dbf_generate_unin_name(t, "FREE"), first);
    EXPECT_STREQ(first, "FREE");
    EXPECT_STREQ(qz_dbf_generate_unin_name(t, "ABCDEFGHIJK"), "ABCDEFGHI1");
    const char* old = qz_dbf_generate_unin_name_old(t, "ABCDEFGHIJ");
    EXPECT_STREQ(old, "ABCDEFGHIJ1");
    EXPECT_STREQ(qz_dbf_generate_unin_name(t, "X"), "X");
    EXPECT_STREQ(old, "ABCDEFGHIJ1");
    EXPECT_STREQ(qz_dbf_generate_unin_name_old(t, "NAME"), "NAME2");
    EXPECT_EQ(fed(qz_dbf_generate_unin_name_w, t, L"NAME"), "NAME2");
    qz_dbf_close(t);
    EXPECT_EQ(qz_dbf_generate_unin_name(nullptr, "A"), nullptr);
    // qz_dbf_create_safe repairs the caller's names in place (as the list
    // check would: case duplicates, first characters, transliteration) before
    // the table is made, and another reader opens the table with those names.
    const std::string path = dir.file("safe.dbf");
    auto f = fields_of({"id", "ID", "1x", "Цена", "a#b"});
    EXPECT_FALSE(qz_dbf_fields_names_ok(f.data(), 5));
    qz_dbf_field_init(&f[0], "id", dbf_ft_numeric, 5, 0);
    qz_dbf_field_init(&f[3], "Цена", dbf_ft_numeric, 10, 2);
    t = qz_dbf_create_safe(dir.wfile("safe.dbf").c_str(), 5, 2, f.data(), false);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(names_of(f.data(), f.size()), (Names{"ID", "ID1", "X", "CENA", "A_B"}));
    EXPECT_TRUE(qz_dbf_set_int(t, 0, 0, 7) && qz_dbf_set_str(t, 1, 0, "seven") &&
                qz_dbf_set_dbl(t, 3, 0, 12.5) && qz_dbf_set_str(t, 4, 1, "ab"));
    qz_dbf_close(t);
    ASSERT_TRUE(qz_test::have_dbfread()) << "python3-dbfread is missing";
    std::string out;
    EXPECT_EQ(qz_test::run("/usr/bin/python3 -c \"import sys, dbfread\n"
                           "t = dbfread.DBF(sys.argv[1])\n"
                           "print(','.join(t.field_names))\n"
                           "for r in t: print(r['ID'], r['ID1'], r['CENA'], r['A_B'])\" '" +
                               path + "' 2>&1",
                           &out),
              0);
    EXPECT_EQ(out, "ID,ID1,X,CENA,A_B\n7 seven 12.5 \nNone  None ab\n");
}

}  // namespace
