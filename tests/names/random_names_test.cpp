// Random field lists (names of 0 to 15 characters: ASCII, Cyrillic in UTF-8
// and in CP1251, duplicates that differ only in letter case) repaired by
// qz_dbf_fields_names_fix: afterwards every name is valid, or fails only by
// characters the transliteration left outside the permitted set, and no two
// names are equal without regard to case. Prints what was left.
#include <gtest/gtest.h>

#include <cstring>
#include <iostream>
#include <map>
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
constexpr int cyr_count = 33;

// A name as characters, each kept with its other-case form, so that a
// duplicate differing only in case can be made.
struct Char {
    std::string as_is, other_case;
};

class Generator {
  public:
    explicit Generator(uint32_t seed) : rng(seed) {}

    std::vector<Char> name() {
        std::vector<Char> out;
        const int len = pick(16);  // 0 to 15 characters
        const int kind = pick(4);  // ASCII, UTF-8 Cyrillic, CP1251 Cyrillic, mixed
        for (int i = 0; i < len; ++i) {
            int k = kind == 3 ? pick(3) : kind;
            if (k == 0) {
                char c = static_cast<char>(0x20 + pick(0x5F));
                char o = c;
                if (c >= 'a' && c <= 'z') o = static_cast<char>(c - 0x20);
                if (c >= 'A' && c <= 'Z') o = static_cast<char>(c + 0x20);
                out.push_back({std::string(1, c), std::string(1, o)});
            } else {
                int j = pick(cyr_count);
                bool up = pick(2);
                std::string a = up ? cyr_upper[j] : cyr_lower[j];
                std::string b = up ? cyr_lower[j] : cyr_upper[j];
                if (k == 2) a = cp1251(a), b = cp1251(b);
                out.push_back({a, b});
            }
        }
        return out;
    }

    // 1 to 12 names; about a third of them repeat an earlier name with
    // some letters in the other case.
    std::vector<std::string> list() {
        std::vector<std::vector<Char>> names;
        std::vector<std::string> out;
        const int n = 1 + pick(12);
        for (int i = 0; i < n; ++i) {
            std::vector<Char> chars = (!names.empty() && pick(3) == 0)
                                          ? names[static_cast<size_t>(pick(int(names.size())))]
                                          : name();
            std::string text;
            for (Char& c : chars) {
                if (pick(2)) std::swap(c.as_is, c.other_case);
                text += c.as_is;
            }
            names.push_back(chars);
            out.push_back(text);
        }
        return out;
    }

  private:
    int pick(int n) { return static_cast<int>(rng() % static_cast<uint32_t>(n)); }
    std::mt19937 rng;
};

bool permitted(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

// The characters of system text (UTF-8 sequences, or single bytes).
std::vector<std::string> split(const std::string& s, bool utf8) {
    std::vector<std::string> out;
    for (size_t i = 0; i < s.size();) {
        size_t n = 1;
        unsigned char c = static_cast<unsigned char>(s[i]);
        if (utf8 && c >= 0xC0) {
            n = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : 2;
            if (i + n > s.size()) n = 1;
        }
        out.push_back(s.substr(i, n));
        i += n;
    }
    return out;
}

std::string shown(const std::string& ch, bool utf8) {
    char buf[32];
    if (utf8 && static_cast<unsigned char>(ch[0]) >= 0x80) {
        std::wstring w(4, L'\0');
        int n = qz_code_page_to_wide(65001, ch.data(), int(ch.size()), w.data(), 4);
        std::snprintf(buf, sizeof buf, "U+%04X", n == 1 ? unsigned(w[0]) : 0xFFFDu);
        return buf;
    }
    if (static_cast<unsigned char>(ch[0]) >= 0x80 || ch[0] < 0x20) {
        std::snprintf(buf, sizeof buf, "0x%02X", unsigned(static_cast<unsigned char>(ch[0])));
        return buf;
    }
    return "'" + ch + "'";
}

struct Figures {
    long lists = 0, names = 0, changed = 0, valid = 0, left_invalid = 0;
    std::map<std::string, long> leftovers;  // character -> names holding it
};

void run(unsigned int code_page, long lists, uint32_t seed, Figures& fig) {
    Code_page cp(code_page);
    const bool utf8 = code_page == 65001;
    Generator gen(seed);
    for (long l = 0; l < lists; ++l) {
        std::vector<std::string> names = gen.list();
        std::vector<Tqz_dbf_field> fields(names.size());
        for (size_t i = 0; i < names.size(); ++i) {
            // Up to 11 name bytes: names of 11 and more lack their zero.
            std::memset(fields[i].name, 0, sizeof fields[i].name);
            std::memcpy(fields[i].name, names[i].data(), std::min<size_t>(names[i].size(), 11));
            fields[i].type = 'N';
            fields[i].flen = static_cast<unsigned char>(i);
            fields[i].dlen = -1;
        }
        std::vector<Tqz_dbf_field> before = fields;
        const unsigned n = static_cast<unsigned>(fields.size());
        qz_dbf_fields_names_fix(fields.data(), n);
        ++fig.lists;
        ASSERT_TRUE(qz_dbf_fields_duplicates_ic_ok(fields.data(), n)) << "list " << l;
        for (size_t i = 0; i < fields.size(); ++i) {
            const Tqz_dbf_field& f = fields[i];
            ++fig.names;
            ASSERT_EQ(f.name[10], 0);
            ASSERT_EQ(f.type, 'N');
            ASSERT_EQ(f.flen, static_cast<unsigned char>(i));
            ASSERT_EQ(f.dlen, -1);
            const std::string name(f.name);
            if (std::memcmp(f.name, before[i].name, sizeof f.name) != 0) ++fig.changed;
            if (qz_dbf_field_name_is_ok(name.c_str())) {
                ++fig.valid;
                continue;
            }
            // Invalid only through characters left outside the permitted
            // set: with each of them made an "X" the name is valid.
            std::string stand_in;
            std::map<std::string, int> here;
            for (const std::string& ch : split(name, utf8)) {
                if (ch.size() == 1 && permitted(ch[0])) {
                    stand_in += ch;
                } else {
                    stand_in += 'X';
                    here[shown(ch, utf8)] = 1;
                }
            }
            ASSERT_FALSE(here.empty()) << "list " << l << ": '" << name << "'";
            ASSERT_TRUE(qz_dbf_field_name_is_ok(stand_in.c_str()))
                << "list " << l << ": '" << name << "'";
            ++fig.left_invalid;
            for (const auto& h : here) ++fig.leftovers[h.first];
        }
    }
}

void report(const char* title, const Figures& fig) {
    std::cout << title << ": " << fig.lists << " lists, " << fig.names << " names, " << fig.changed
              << " changed, " << fig.valid << " valid after repair, " << fig.left_invalid
              << " left with characters outside the set\n  left:";
    for (const auto& l : fig.leftovers) std::cout << ' ' << l.first << " x" << l.second;
    std::cout << std::endl;
}

TEST(NamesRandom, RepairedListsUnderUtf8) {
    Figures fig;
    run(65001, 20000, 20261125, fig);
    report("UTF-8 system text", fig);
    EXPECT_EQ(fig.lists, 20000);
    EXPECT_GT(fig.changed, 0);
    EXPECT_EQ(fig.valid + fig.left_invalid, fig.names);
}

TEST(NamesRandom, RepairedListsUnderCp1251) {
    Figures fig;
    run(1251, 10000, 1251, fig);
    report("CP1251 system text", fig);
    EXPECT_EQ(fig.lists, 10000);
    EXPECT_EQ(fig.valid + fig.left_invalid, fig.names);
}

}  // namespace
