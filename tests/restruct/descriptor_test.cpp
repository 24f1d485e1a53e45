// The restructure descriptor through its C exports: entries made from a
// table, statuses worked out live, editing, moving, removing by name, the
// old-field queries reading the file at the time of the call, and indexes
// outside the entries.
#include <gtest/gtest.h>

#include <cstring>
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

std::wstring old_name(Tqz_dbf_rstrct* d, int idx) {
    std::wstring got = L"(none)";
    Iqz_string_adp* adp = qz_string_adp_create(
        nullptr, [](void* ctx, const wchar_t* s) { static_cast<std::wstring*>(ctx)->assign(s); },
        &got);
    qz_dbf_restruct_get_field_old_name(d, idx, adp);
    qz_string_adp_destroy(adp);
    return got;
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

TEST_F(Descriptor, LoadedEntriesStatusesAndEdits) {
    Tqz_dbf_rstrct* d = qz_dbf_restruct_create_w(path.c_str());
    ASSERT_NE(d, nullptr);
    ASSERT_EQ(qz_dbf_restruct_count(d), 3);
    EXPECT_EQ(names(d), "A,B,C");
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(qz_dbf_restruct_get_field_old_no(d, i), i);
        EXPECT_EQ(qz_dbf_restruct_get_field_status(d, i), 1);
    }
    Tqz_dbf_field* b = qz_dbf_restruct_get_field(d, 1);
    EXPECT_EQ(b->type, 'N');
    EXPECT_EQ(b->flen, 8);
    EXPECT_EQ(b->dlen, 2);

    // Written in place through the returned pointer: changed, then back.
    std::strcpy(b->name, "BB");
    EXPECT_EQ(qz_dbf_restruct_get_field_status(d, 1), 2);
    std::strcpy(b->name, "B");
    EXPECT_EQ(qz_dbf_restruct_get_field_status(d, 1), 1);
    // Each attribute on its own changes the status.
    for (int what = 0; what < 3; ++what) {
        Tqz_dbf_field f = *qz_dbf_restruct_get_field(d, 1);
        if (what == 0) f.type = 'F';
        if (what == 1) f.flen = 9;
        if (what == 2) f.dlen = 3;
        qz_dbf_restruct_set_field(d, 1, &f);
        EXPECT_EQ(qz_dbf_restruct_get_field_status(d, 1), 2) << what;
        EXPECT_EQ(qz_dbf_restruct_get_field_old_no(d, 1), 1) << "origin stays";
        Tqz_dbf_field back;
        qz_dbf_field_init(&back, "B", dbf_ft_numeric, 8, 2);
        qz_dbf_restruct_set_field(d, 1, &back);
        EXPECT_EQ(qz_dbf_restruct_get_field_status(d, 1), 1) << what;
    }

    Tqz_dbf_field n;
    qz_dbf_field_init(&n, "NEW", dbf_ft_integer, 4, 0);
    EXPECT_EQ(qz_dbf_restruct_add_field(d, &n), 3);
    EXPECT_EQ(qz_dbf_restruct_get_field_status(d, 3), 0);
    EXPECT_EQ(qz_dbf_restruct_get_field_old_no(d, 3), -1);
    EXPECT_EQ(qz_dbf_restruct_get_field_old_type(d, 3), dbf_ft_unknown);
    EXPECT_EQ(qz_dbf_restruct_get_field_old_flen(d, 3), 0u);
    EXPECT_EQ(old_name(d, 3), L"(none)");
    qz_dbf_field_init(&n, "INS", dbf_ft_char, 5, 0);
    qz_dbf_restruct_insert_field(d, 0, &n);
    EXPECT_EQ(names(d), "INS,A,B,C,NEW");
    EXPECT_EQ(qz_dbf_restruct_get_field_old_no(d, 1), 0);
    qz_dbf_restruct_destroy(d);
    qz_dbf_restruct_destroy(nullptr);
}

TEST_F(Descriptor, MoveBothWaysAndRemoveByExactName) {
    Tqz_dbf_rstrct* d = qz_dbf_restruct_create_w(path.c_str());
    qz_dbf_restruct_move_field(d, 0, 2);
    EXPECT_EQ(names(d), "B,C,A");
    EXPECT_EQ(qz_dbf_restruct_get_field_old_no(d, 2), 0);
    qz_dbf_restruct_move_field(d, 2, 0);
    EXPECT_EQ(names(d), "A,B,C");
    qz_dbf_restruct_move_field(d, 2, 0);
    EXPECT_EQ(names(d), "C,A,B");
    qz_dbf_restruct_move_field(d, 1, 1);
    EXPECT_EQ(names(d), "C,A,B");
    // Moving keeps the status of every entry.
    for (int i = 0; i < 3; ++i) EXPECT_EQ(qz_dbf_restruct_get_field_status(d, i), 1);

    Tqz_dbf_field f;
    qz_dbf_field_init(&f, "b", dbf_ft_char, 1, 0);
    qz_dbf_restruct_remove_field_val(d, &f);
    EXPECT_EQ(names(d), "C,A,B");
    qz_dbf_field_init(&f, "B", dbf_ft_char, 1, 0);  // type and length do not matter
    qz_dbf_restruct_remove_field_val(d, &f);
    EXPECT_EQ(names(d), "C,A");
    qz_dbf_restruct_remove_field_idx(d, 0);
    EXPECT_EQ(names(d), "A");
    qz_dbf_restruct_destroy(d);
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
