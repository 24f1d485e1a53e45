// Random field lists repaired by qz_dbf_fields_names_fix: afterwards no two names are equal without
// regard to case, the other descriptor bytes are kept, and every name is valid or fails only by
// characters the transliteration left outside the permitted set.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "names_support.h"

using namespace names_test;

namespace {

// Names of up to 13 pieces from a small alphabet (ASCII, Cyrillic in UTF-8
// and in CP1251, both cases), mostly short, so that many lists hold names
// equal but for letter case.
std::vector<std::string> random_list(std::mt19937& rng) {
    static const std::string pieces[] = {
        "a", "A", "b", "B", "1",         "_",         "#",         " ",
        "ж", "Ж", "ё", "Ё", cp1251("ж"), cp1251("Ж"), cp1251("я"), cp1251("Я")};
    std::vector<std::string> out(1 + rng() % 12);
    for (std::string& name : out)
        for (unsigned c = 0, len = rng() % 3 ? rng() % 3 : rng() % 14; c < len; ++c)
            name += pieces[rng() % 16];
    return out;
}

// With each character outside the permitted set made an "X", the name is
// valid; true when there was such a character.
bool invalid_only_by_characters(const std::string& name, bool utf8) {
    std::string stand_in;
    for (size_t i = 0; i < name.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(name[i]);
        stand_in += c < 0x80 && (std::isalnum(c) || c == '_') ? name[i] : 'X';
        if (utf8 && c >= 0xC0)
            i += std::min<size_t>(c >= 0xF0 ? 3 : c >= 0xE0 ? 2 : 1, name.size() - i - 1);
    }
    return stand_in != name && qz_dbf_field_name_is_ok(stand_in.c_str());
}

TEST(NamesRandom, RepairedListsAreValidAndUnique) {
    for (const unsigned code_page : {65001u, 1251u}) {
        SCOPED_TRACE(code_page);
        Code_page cp(code_page);
        std::mt19937 rng(code_page);
        long changed = 0;
        for (int l = 0; l < 10000; ++l) {
            const std::vector<std::string> names = random_list(rng);
            std::vector<Tqz_dbf_field> fields(names.size());
            for (size_t i = 0; i < names.size(); ++i) {
                // Up to 11 name bytes: names of 11 and more lack their zero.
                std::memset(fields[i].name, 0, sizeof fields[i].name);
                std::memcpy(fields[i].name, names[i].data(), std::min<size_t>(names[i].size(), 11));
                fields[i].type = 'N';
                fields[i].flen = static_cast<unsigned char>(i);
                fields[i].dlen = -1;
            }
            const std::vector<Tqz_dbf_field> before = fields;
            const unsigned n = static_cast<unsigned>(fields.size());
            qz_dbf_fields_names_fix(fields.data(), n);
            ASSERT_TRUE(qz_dbf_fields_duplicates_ic_ok(fields.data(), n)) << "list " << l;
            for (size_t i = 0; i < n; ++i) {
                const Tqz_dbf_field& f = fields[i];
                ASSERT_TRUE(f.name[10] == 0 && f.type == 'N' && f.flen == i && f.dlen == -1);
                changed += std::memcmp(f.name, before[i].name, sizeof f.name) != 0;
                ASSERT_TRUE(qz_dbf_field_name_is_ok(f.name) ||
                            invalid_only_by_characters(f.name, code_page == 65001))
                    << "list " << l << ": '" << f.name << "'";
            }
        }
        EXPECT_GT(changed, 1000);
    }
}

}  // namespace
