// The restructure descriptor through its C exports: entries made from a
// table, statuses worked out live, editing, moving, removing by name, the
// old-field queries reading the file at the time of the call, and indexes
// outside the entries.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "qzk_basic.h"
#include "qzk_file_dbf.h"
#include "restruct_tables.h"
#include "test_support.h"

using namespace restruct_test;

namespace {

std::string names(Tqz_dbf_rstrct* d) {
    std::string out;
    for (int i = 0; i < qz_dbf_restruct_count(d); ++i)
        out += std::string(i ? "," : "") + qz_dbf_restruct_get_field(d, i)->name;
    return out;
}

// Every entry as "NAME:status:old number:old type and length:old name"
// ("?0:-" for an entry without an old field).
std::string entries(Tqz_dbf_rstrct* d) {
    std::string out;
    for (int i = 0; i < qz_dbf_restruct_count(d); ++i) {
        std::wstring old = L"-";  // stays when nothing is handed over
        Iqz_string_adp* adp = qz_string_adp_create(
            nullptr,
            [](void* ctx, const wchar_t* s) { static_cast<std::wstring*>(ctx)->assign(s); }, &old);
        qz_dbf_restruct_get_field_old_name(d, i, adp);
        qz_string_adp_destroy(adp);
        const Tqz_dbf_field_type t = qz_dbf_restruct_get_field_old_type(d, i);
        out += std::string(i ? " " : "") + qz_dbf_restruct_get_field(d, i)->name + ":" +
               std::to_string(qz_dbf_restruct_get_field_status(d, i)) + ":" +
               std::to_string(qz_dbf_restruct_get_field_old_no(d, i)) + ":" +
               (t == dbf_ft_unknown ? '?' : static_cast<char>(qz_dbftype2char(t))) +
               std::to_string(qz_dbf_restruct_get_field_old_flen(d, i)) + ":" +
               std::string(old.begin(), old.end());
    }
    return out;
}

Tqz_dbf_field make(const char* name, Tqz_dbf_field_type type, unsigned char flen,
                   signed char dlen) {
    Tqz_dbf_field f;
    qz_dbf_field_init(&f, name, type, flen, dlen);
    return f;
}

class Descriptor : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(make_table(path, {{"A", 'C', 10, 0}, {"B", 'N', 8, 2}, {"C", 'L', 1, 0}},
                               {{"x", "1.5", "T"}}));
    }
    qz_test::Temp_dir dir;
    std::wstring path = dir.wfile("t.dbf");
};

// One descriptor edited step by step; after each step every entry's name,
// status (0 new, 1 kept, 2 changed), origin and old attributes. The status
// is worked out live: an attribute changed back makes the entry kept again.
TEST_F(Descriptor, EditsAndWhatEachEntryKnowsOfItsOrigin) {
    Tqz_dbf_rstrct* d = qz_dbf_restruct_create_w(path.c_str());
    ASSERT_NE(d, nullptr);
    Tqz_dbf_field b = make("B", dbf_ft_numeric, 8, 2);
    auto with = [&](void (*edit)(Tqz_dbf_field&)) {
        Tqz_dbf_field f = *qz_dbf_restruct_get_field(d, 1);
        edit(f);
        qz_dbf_restruct_set_field(d, 1, &f);
    };
    const std::string kept = "A:1:0:C10:A B:1:1:N8:B C:1:2:L1:C";
    const std::string b_changed = "A:1:0:C10:A B:2:1:N8:B C:1:2:L1:C";
    struct Step {
        const char* what;
        std::function<void()> edit;
        std::string after;
    };
    const std::vector<Step> steps = {
        {"loaded", [] {}, kept},
        {"renamed through the pointer",
         [&] { std::strcpy(qz_dbf_restruct_get_field(d, 1)->name, "BB"); },
         "A:1:0:C10:A BB:2:1:N8:B C:1:2:L1:C"},
        {"named back", [&] { std::strcpy(qz_dbf_restruct_get_field(d, 1)->name, "B"); }, kept},
        {"type", [&] { with([](Tqz_dbf_field& f) { f.type = 'F'; }); }, b_changed},
        {"set back", [&] { qz_dbf_restruct_set_field(d, 1, &b); }, kept},
        {"length", [&] { with([](Tqz_dbf_field& f) { f.flen = 9; }); }, b_changed},
        {"set back", [&] { qz_dbf_restruct_set_field(d, 1, &b); }, kept},
        {"decimals", [&] { with([](Tqz_dbf_field& f) { f.dlen = 3; }); }, b_changed},
        {"set back", [&] { qz_dbf_restruct_set_field(d, 1, &b); }, kept},
        {"added",
         [&] {
             Tqz_dbf_field n = make("NEW", dbf_ft_integer, 4, 0);
             EXPECT_EQ(qz_dbf_restruct_add_field(d, &n), 3);
         },
         kept + " NEW:0:-1:?0:-"},
        {"inserted",
         [&] {
             Tqz_dbf_field n = make("INS", dbf_ft_char, 5, 0);
             qz_dbf_restruct_insert_field(d, 0, &n);
         },
         "INS:0:-1:?0:- " + kept + " NEW:0:-1:?0:-"},
        {"removed by index", [&] { qz_dbf_restruct_remove_field_idx(d, 0); },
         kept + " NEW:0:-1:?0:-"},
        {"removed by name, type and length aside",
         [&] {
             Tqz_dbf_field n = make("NEW", dbf_ft_char, 1, 0);
             qz_dbf_restruct_remove_field_val(d, &n);
         },
         kept},
        {"name compared exactly",
         [&] {
             Tqz_dbf_field n = make("b", dbf_ft_numeric, 8, 2);
             qz_dbf_restruct_remove_field_val(d, &n);
         },
         kept},
        {"moved forward", [&] { qz_dbf_restruct_move_field(d, 0, 2); },
         "B:1:1:N8:B C:1:2:L1:C A:1:0:C10:A"},
        {"moved back", [&] { qz_dbf_restruct_move_field(d, 2, 0); }, kept},
        {"last to first", [&] { qz_dbf_restruct_move_field(d, 2, 0); },
         "C:1:2:L1:C A:1:0:C10:A B:1:1:N8:B"},
        {"onto itself", [&] { qz_dbf_restruct_move_field(d, 1, 1); },
         "C:1:2:L1:C A:1:0:C10:A B:1:1:N8:B"},
    };
    for (const Step& s : steps) {
        s.edit();
        EXPECT_EQ(entries(d), s.after) << s.what;
    }
    qz_dbf_restruct_destroy(d);
    qz_dbf_restruct_destroy(nullptr);
}

TEST_F(Descriptor, EmptyDescriptorAndIndexesOutsideTheEntries) {
    Tqz_dbf_rstrct* d = qz_dbf_restruct_create_empty_w(path.c_str());
    EXPECT_EQ(qz_dbf_restruct_count(d), 0);
    Tqz_dbf_field arr[2];
    qz_dbf_field_init(&arr[0], "A", dbf_ft_char, 10, 0);
    qz_dbf_field_init(&arr[1], "B", dbf_ft_numeric, 8, 2);
    qz_dbf_restruct_add_fields(d, arr, 2);
    qz_dbf_restruct_add_fields(d, arr, 0);
    qz_dbf_restruct_add_fields(d, nullptr, 2);
    ASSERT_EQ(qz_dbf_restruct_count(d), 2);
    // The same names as the table's, yet new: nothing ties them to it.
    EXPECT_EQ(qz_dbf_restruct_get_field_status(d, 0), 0);
    EXPECT_EQ(qz_dbf_restruct_get_field_old_no(d, 1), -1);

    for (int bad : {-1, 2, 1 << 30}) {
        EXPECT_EQ(qz_dbf_restruct_get_field(d, bad), nullptr);
        EXPECT_EQ(qz_dbf_restruct_get_field_status(d, bad), 0);
        EXPECT_EQ(qz_dbf_restruct_get_field_old_no(d, bad), -1);
        EXPECT_EQ(qz_dbf_restruct_get_field_old_type(d, bad), dbf_ft_unknown);
        qz_dbf_restruct_set_field(d, bad, &arr[0]);
        qz_dbf_restruct_remove_field_idx(d, bad);
        qz_dbf_restruct_move_field(d, bad, 0);
        qz_dbf_restruct_move_field(d, 0, bad);
        qz_dbf_restruct_insert_field(d, bad + (bad == 2 ? 1 : 0), &arr[0]);
    }
    EXPECT_EQ(names(d), "A,B");
    qz_dbf_restruct_insert_field(d, 2, &arr[0]);  // at the end is allowed
    EXPECT_EQ(names(d), "A,B,A");
    qz_dbf_restruct_destroy(d);

    // A table that does not open gives an empty descriptor, still a handle.
    std::wstring missing = dir.wfile("missing.dbf");
    d = qz_dbf_restruct_create_w(missing.c_str());
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(qz_dbf_restruct_count(d), 0);
    qz_dbf_restruct_destroy(d);
    d = qz_dbf_restruct_create(dir.file("t.dbf").c_str());
    EXPECT_EQ(qz_dbf_restruct_count(d), 3) << "narrow path";
    qz_dbf_restruct_destroy(d);
}

}  // namespace
