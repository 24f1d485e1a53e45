// Field lists: duplicates without regard to case, whole-list checks and
// repairs, and descriptors whose bytes are anything at all.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "names_support.h"

using namespace names_test;

namespace {

using Names = std::vector<std::string>;

TEST(NamesFieldLists, DuplicatesWithoutRegardToCase) {
    Code_page utf8(65001);
    struct Case {
        Names in;
        bool ok;
        Names fixed;
    } cases[] = {
        {{}, true, {}},
        {{"id", "ID", "Id"}, false, {"id", "ID1", "Id2"}},
        {{"A", "B", "a"}, false, {"A", "B", "a1"}},
        // A generated name can meet a later field's name; that one is
        // numbered in its turn.
        {{"X", "x", "X1"}, false, {"X", "x1", "X11"}},
        {{"ABCDEFGHIJ", "abcdefghij"}, false, {"ABCDEFGHIJ", "abcdefghi1"}},
        // Cyrillic letters differ only in case by Unicode rules, in UTF-8.
        {{"Цена", "ЦЕНА"}, false, {"Цена", "ЦЕНА1"}},
        {{"Ёж", "ёЖ", "Еж"}, false, {"Ёж", "ёЖ1", "Еж"}},
        {{"A", "B"}, true, {"A", "B"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.in.empty() ? std::string("(none)") : c.in[0]);
        auto fields = fields_of(c.in);
        const unsigned n = static_cast<unsigned>(fields.size());
        EXPECT_EQ(qz_dbf_fields_duplicates_ic_ok(fields.data(), n), c.ok);
        qz_dbf_fields_duplicates_ic_fix(fields.data(), n);
        EXPECT_EQ(names_of(fields), c.fixed);
        EXPECT_TRUE(qz_dbf_fields_duplicates_ic_ok(fields.data(), n));
    }
    // The same Cyrillic duplicates under CP1251.
    Code_page cp(1251);
    auto fields = fields_of({cp1251("Цена"), cp1251("цЕНА")});
    EXPECT_FALSE(qz_dbf_fields_duplicates_ic_ok(fields.data(), 2));
}

TEST(NamesFieldLists, NamesOkAndFix) {
    Code_page utf8(65001);
    struct Case {
        Names in;
        bool ok;
        Names fixed;
    } cases[] = {
        {{}, true, {}},
        {{"ID", "NAME"}, true, {"ID", "NAME"}},
        {{"ID", "id"}, false, {"ID", "ID1"}},
        {{"id", "ID", "1x", "Цена", "a#b"}, false, {"ID", "ID1", "X", "CENA", "A_B"}},
        // Valid names are never touched by the repair of single names; the
        // repaired ones then give way by numbers.
        {{"PROP", "", "12"}, false, {"PROP", "PROP1", "PROP2"}},
        {{"1", "PROP1"}, false, {"PROP1", "PROP11"}},
        {{"ABCDEFGHIJKLMN", "ABCDEFGHIJ"}, false, {"ABCDEFGHIJ", "ABCDEFGHI1"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.in.empty() ? std::string("(none)") : c.in[0]);
        auto fields = fields_of(c.in);
        const unsigned n = static_cast<unsigned>(fields.size());
        EXPECT_EQ(qz_dbf_fields_names_ok(fields.data(), n), c.ok);
        qz_dbf_fields_names_fix(fields.data(), n);
        EXPECT_EQ(names_of(fields), c.fixed);
        EXPECT_TRUE(qz_dbf_fields_names_ok(fields.data(), n));
    }
}

TEST(NamesFieldLists, DescriptorsOfAnyBytesStayInsideTheirRecords) {
    Code_page utf8(65001);
    // Exactly sized heap arrays, so that a read or write past the last
    // record is caught by the address checker.
    const unsigned n = 4;
    std::unique_ptr<Tqz_dbf_field[]> fields(new Tqz_dbf_field[n]);
    // 1: eleven name bytes without a zero; 2: invalid UTF-8 filling the
    // area; 3: an empty name; 4: the same bytes as 1 in lower case.
    std::memset(fields[0].name, 'A', 11);
    std::memset(fields[1].name, '\xd0', 11);
    std::memset(fields[2].name, 0, 11);
    std::memset(fields[3].name, 'a', 11);
    for (unsigned i = 0; i < n; ++i) {
        fields[i].type = 'N';
        fields[i].flen = 200;
        fields[i].dlen = -3;
    }
    EXPECT_FALSE(qz_dbf_fields_names_ok(fields.get(), n));
    EXPECT_FALSE(qz_dbf_fields_duplicates_ic_ok(fields.get(), n));
    qz_dbf_fields_names_fix(fields.get(), n);
    EXPECT_EQ(names_of(std::vector<Tqz_dbf_field>(fields.get(), fields.get() + n)),
              (Names{"AAAAAAAAAA", "PROP", "PROP1", "AAAAAAAAA1"}));
    for (unsigned i = 0; i < n; ++i)  // every repaired name ends with its zero
        EXPECT_TRUE(fields[i].name[10] == 0 && fields[i].type == 'N' && fields[i].flen == 200 &&
                    fields[i].dlen == -3);
    EXPECT_TRUE(qz_dbf_fields_names_ok(fields.get(), n));

    // The older repair reads at most 10 name bytes and leaves the eleventh
    // zero too.
    std::memset(fields[0].name, 'b', 11);
    std::memset(fields[1].name, '\xff', 11);
    EXPECT_TRUE(qz_dbf_make_correct_names(fields.get(), 2));
    EXPECT_EQ(std::string(fields[0].name), "BBBBBBBBBB");
    EXPECT_EQ(std::string(fields[1].name), "A_________");

    // Null arrays and count 0.
    EXPECT_TRUE(qz_dbf_fields_names_ok(nullptr, 0) && qz_dbf_fields_duplicates_ic_ok(nullptr, 0));
    EXPECT_FALSE(qz_dbf_fields_names_ok(nullptr, 3));
    qz_dbf_fields_names_fix(nullptr, 5);
    qz_dbf_fields_duplicates_ic_fix(nullptr, 5);
    std::memset(fields[0].name, 'b', 11);
    qz_dbf_fields_names_fix(fields.get(), 0);
    EXPECT_EQ(fields[0].name[10], 'b');
}

}  // namespace
