// The restructure descriptor through its C exports: entries made from a
// table, statuses worked out live, editing, moving, removing by name, the
// old-field queries, and indexes outside the entries.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "restruct_tables.h"

using namespace restruct_test;

namespace {

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

// One descriptor edited step by step; after each step every entry's name,
// status (0 new, 1 kept, 2 changed), origin and old attributes. The status
// is worked out live: an attribute changed back makes the entry kept again.
// Then an empty descriptor, and indexes outside the entries.
TEST(Descriptor, EditsStatusesOriginsAndIndexesOutsideTheEntries) {
    qz_test::Temp_dir dir;
    const std::wstring path = dir.wfile("t.dbf");
    ASSERT_TRUE(make_table(path, {{"A", 'C', 10, 0}, {"B", 'N', 8, 2}, {"C", 'L', 1, 0}}, {{"x"}}));
    Tqz_dbf_rstrct* d = qz_dbf_restruct_create(dir.file("t.dbf").c_str());
    const std::string kept = "A:1:0:C10:A B:1:1:N8:B C:1:2:L1:C";
    EXPECT_EQ(entries(d), kept);
    Tqz_dbf_field b = field({"B", 'N', 8, 2});
    for (Column c : std::vector<Column>{
             {"BB", 'N', 8, 2}, {"B", 'F', 8, 2}, {"B", 'N', 9, 2}, {"B", 'N', 8, 3}}) {
        Tqz_dbf_field f = field(c);
        qz_dbf_restruct_set_field(d, 1, &f);
        EXPECT_EQ(entries(d), "A:1:0:C10:A " + std::string(c.name) + ":2:1:N8:B C:1:2:L1:C");
        qz_dbf_restruct_set_field(d, 1, &b);
        EXPECT_EQ(entries(d), kept);
    }
    Tqz_dbf_field ins = field({"INS", 'C', 5, 0}), other = field({"NEW", 'C', 1, 0}),
                  lower = field({"b", 'N', 8, 2}), added = field({"NEW", 'I', 4, 0});
    const std::vector<std::pair<std::function<void()>, std::string>> steps = {
        {[&] { std::strcpy(qz_dbf_restruct_get_field(d, 1)->name, "BB"); },
         "A:1:0:C10:A BB:2:1:N8:B C:1:2:L1:C"},  // renamed through the pointer
        {[&] { std::strcpy(qz_dbf_restruct_get_field(d, 1)->name, "B"); }, kept},
        {[&] { EXPECT_EQ(qz_dbf_restruct_add_field(d, &added), 3); }, kept + " NEW:0:-1:?0:-"},
        {[&] { qz_dbf_restruct_insert_field(d, 0, &ins); },
         "INS:0:-1:?0:- " + kept + " NEW:0:-1:?0:-"},
        {[&] { qz_dbf_restruct_remove_field_idx(d, 0); }, kept + " NEW:0:-1:?0:-"},
        // By name only, type and length aside; the name compared exactly.
        {[&] { qz_dbf_restruct_remove_field_val(d, &other); }, kept},
        {[&] { qz_dbf_restruct_remove_field_val(d, &lower); }, kept},
        {[&] { qz_dbf_restruct_move_field(d, 0, 2); }, "B:1:1:N8:B C:1:2:L1:C A:1:0:C10:A"},
        {[&] { qz_dbf_restruct_move_field(d, 2, 0); }, kept},
        {[&] { qz_dbf_restruct_move_field(d, 2, 0); }, "C:1:2:L1:C A:1:0:C10:A B:1:1:N8:B"},
        {[&] { qz_dbf_restruct_move_field(d, 1, 1); }, "C:1:2:L1:C A:1:0:C10:A B:1:1:N8:B"},
    };
    for (size_t i = 0; i < steps.size(); ++i) {
        steps[i].first();
        EXPECT_EQ(entries(d), steps[i].second) << "step " << i;
    }
    qz_dbf_restruct_destroy(d);
    qz_dbf_restruct_destroy(nullptr);

    // The same names as the table's, yet new: nothing ties them to it.
    d = qz_dbf_restruct_create_empty_w(path.c_str());
    Tqz_dbf_field arr[2] = {field({"A", 'C', 10, 0}), b};
    qz_dbf_restruct_add_fields(d, arr, 2);
    qz_dbf_restruct_add_fields(d, arr, 0);
    qz_dbf_restruct_add_fields(d, nullptr, 2);
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
    qz_dbf_restruct_insert_field(d, 2, &arr[0]);  // at the end is allowed
    EXPECT_EQ(entries(d), "A:0:-1:?0:- B:0:-1:?0:- A:0:-1:?0:-");
    qz_dbf_restruct_destroy(d);
    // A table that does not open gives an empty descriptor, still a handle.
    d = qz_dbf_restruct_create_w(dir.wfile("missing.dbf").c_str());
    EXPECT_EQ(qz_dbf_restruct_count(d), 0);
    qz_dbf_restruct_destroy(d);
}

}  // namespace
