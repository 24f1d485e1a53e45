// Random field lists (names of 0 to 15 characters: ASCII, Cyrillic in UTF-8
// and in CP1251, duplicates that differ only in letter case) repaired by
// qz_dbf_fields_names_fix: afterwards no two names are equal without regard
// to case, the other descriptor bytes are kept, and every name is valid or
// fails only by characters the transliteration left outside the permitted set.
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

const char* const cyr_upper[] = {"А", "Б", "В", "Г", "Д", "Е", "Ё", "Ж", "З", "И", "Й",
                                 "К", "Л", "М", "Н", "О", "П", "Р", "С", "Т", "У", "Ф",
                                 "Х", "Ц", "Ч", "Ш", "Щ", "Ъ", "Ы", "Ь", "Э", "Ю", "Я"};
const char* const cyr_lower[] = {"а", "б", "в", "г", "д", "е", "ё", "ж", "з", "и", "й",
                                 "к", "л", "м", "н", "о", "п", "р", "с", "т", "у", "ф",
                                 "х", "ц", "ч", "ш", "щ", "ъ", "ы", "ь", "э", "ю", "я"};

// 1 to 12 names; about a third repeat an earlier name with some letters in
// the other case. Each character is kept with its other-case form.
std::vector<std::string> random_list(std::mt19937& rng) {
    auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<uint32_t>(n)); };
    std::vector<std::vector<std::pair<std::string, std::string>>> names;
    std::vector<std::string> out;
    for (int i = 0, n = 1 + pick(12); i < n; ++i) {
        std::vector<std::pair<std::string, std::string>> chars;
        if (!names.empty() && pick(3) == 0) {
            chars = names[static_cast<size_t>(pick(int(names.size())))];
        } else {
            const int len = pick(16), kind = pick(4);  // ASCII, UTF-8, CP1251, mixed
            for (int c = 0; c < len; ++c) {
                const int k = kind == 3 ? pick(3) : kind;
                if (k == 0) {
                    const char a = static_cast<char>(0x20 + pick(0x5F));
                    const char o = std::isalpha(static_cast<unsigned char>(a)) ? (a ^ 0x20) : a;
                    chars.push_back({std::string(1, a), std::string(1, o)});
                } else {
                    const int j = pick(33);
                    std::string a = cyr_upper[j], b = cyr_lower[j];
                    if (k == 2) a = cp1251(a), b = cp1251(b);
                    chars.push_back({a, b});
                }
            }
        }
        std::string text;
        for (auto& c : chars) {
            if (pick(2)) std::swap(c.first, c.second);
            text += c.first;
        }
        names.push_back(chars);
        out.push_back(text);
    }
    return out;
}

bool permitted(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

// With each character outside the permitted set made an "X", the name is
// valid; true when there was such a character.
bool invalid_only_by_characters(const std::string& name, bool utf8) {
    std::string stand_in;
    bool found = false;
    for (size_t i = 0; i < name.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(name[i]);
        if (c < 0x80 && permitted(name[i])) {
            stand_in += name[i];
            continue;
        }
        found = true;
        stand_in += 'X';
        if (utf8 && c >= 0xC0)
            i += std::min<size_t>(c >= 0xF0 ? 3 : c >= 0xE0 ? 2 : 1, name.size() - i - 1);
    }
    return found && qz_dbf_field_name_is_ok(stand_in.c_str());
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
                ASSERT_EQ(f.name[10], 0);
                ASSERT_TRUE(f.type == 'N' && f.flen == i && f.dlen == -1);
                changed += std::memcmp(f.name, before[i].name, sizeof f.name) != 0;
                if (!qz_dbf_field_name_is_ok(f.name)) {
                    ASSERT_TRUE(invalid_only_by_characters(f.name, code_page == 65001))
                        << "list " << l << ": '" << f.name << "'";
                }
            }
        }
        EXPECT_GT(changed, 1000);
    }
}

}  // namespace
