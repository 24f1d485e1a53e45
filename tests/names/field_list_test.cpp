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

// Each list through the duplicate check and repair (dup) or the whole-name
// check and repair; the repaired list passes its check.
TEST(NamesFieldLists, DuplicatesAndWholeListRepairs) {
    Code_page utf8(65001);
    const struct {
        bool dup;
        Names in;
        bool ok;
        Names fixed;
    } cases[] = {
        // A generated name can meet a later field's name; that one is
        // numbered in its turn.
        {true, {"X", "x", "X1"}, false, {"X", "x1", "X11"}},
        {true, {"ABCDEFGHIJ", "abcdefghij"}, false, {"ABCDEFGHIJ", "abcdefghi1"}},
        // Cyrillic letters differ only in case by Unicode rules, in UTF-8.
        {true, {"Ёж", "ёЖ", "Еж"}, false, {"Ёж", "ёЖ1", "Еж"}},
        {false, {"id", "ID", "1x", "Цена", "a#b"}, false, {"ID", "ID1", "X", "CENA", "A_B"}},
        // Valid names are never touched by the repair of single names; the
        // repaired ones then give way by numbers.
        {false, {"PROP", "", "12"}, false, {"PROP", "PROP1", "PROP2"}},
        {false, {"1", "PROP1"}, false, {"PROP1", "PROP11"}},
        {false, {"ABCDEFGHIJKLMN", "ABCDEFGHIJ"}, false, {"ABCDEFGHIJ", "ABCDEFGHI1"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.in.empty() ? std::string("(none)") : c.in[0]);
        auto fields = fields_of(c.in);
        const unsigned n = static_cast<unsigned>(fields.size());
        auto ok = c.dup ? qz_dbf_fields_duplicates_ic_ok : qz_dbf_fields_names_ok;
        EXPECT_EQ(ok(fields.data(), n), c.ok);
        (c.dup ? qz_dbf_fields_duplicates_ic_fix : qz_dbf_fields_names_fix)(fields.data(), n);
        EXPECT_EQ(names_of(fields.data(), fields.size()), c.fixed);
        EXPECT_TRUE(ok(fields.data(), n));
    }
}

// Exactly sized heap arrays, so that the address checker catches a read or
// write past the last descriptor: names of eleven bytes without a zero,
// invalid UTF-8, empty; the other descriptor bytes are kept.
TEST(NamesFieldLists, DescriptorsOfAnyBytesStayInsideTheirRecords) {
    Code_page utf8(65001);
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
    EXPECT_TRUE(qz_dbf_fields_names_ok(fields.get(), n));
    EXPECT_FALSE(qz_dbf_fields_names_ok(nullptr, 3));
    qz_dbf_fields_names_fix(nullptr, 5);
}

}  // namespace
