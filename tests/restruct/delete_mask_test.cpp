// Deleting records by mask through the exports: the memory path with its
// undo, the rewriting path with its odd masks, and inputs that must leave
// the table as it was.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "qzk_basic.h"
#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

using qz_test::read_bytes;
using qz_test::Temp_dir;

// A table of `n` records: NAME "r<i>", N the number i, L true for odd i.
void make_table(const std::wstring& path, unsigned int n) {
    Tqz_dbf_field fields[3];
    qz_dbf_field_init(&fields[0], "NAME", dbf_ft_char, 6, 0);
    qz_dbf_field_init(&fields[1], "N", dbf_ft_numeric, 5, 0);
    qz_dbf_field_init(&fields[2], "FLAG", dbf_ft_logical, 1, 0);
    Tqz_dbf_rw* h = qz_dbf_create_w(path.c_str(), 3, n, fields, false);
    ASSERT_NE(h, nullptr);
    for (unsigned int i = 0; i < n; ++i) {
        qz_dbf_set_str(h, 0, i, ("r" + std::to_string(i)).c_str());
        qz_dbf_set_str(h, 1, i, std::to_string(i).c_str());
        qz_dbf_set_str(h, 2, i, i % 2 ? "T" : "F");
    }
    qz_dbf_close(h);
}

std::string rtrim(const char* v) {
    std::string s = v ? v : "";
    while (!s.empty() && s.back() == ' ') s.pop_back();
    return s;
}

// Every record as "NAME|N|FLAG", read through the library.
std::vector<std::string> rows(const std::wstring& path) {
    std::vector<std::string> out;
    Tqz_dbf_rw* h = qz_dbf_open_w(path.c_str(), true, false);
    if (!h) return {"<cannot open>"};
    for (unsigned int r = 0; r < qz_dbf_get_nr(h); ++r) {
        std::string row;
        for (unsigned int f = 0; f < qz_dbf_get_nf(h); ++f) {
            bool ok = false;
            const char* v = qz_dbf_get_str(h, f, r, ok);
            row += (f ? "|" : "") + rtrim(v);
        }
        out.push_back(row);
    }
    qz_dbf_close(h);
    return out;
}

std::vector<std::string> expected_rows(const std::vector<unsigned int>& kept) {
    std::vector<std::string> out;
    for (unsigned int i : kept)
        out.push_back("r" + std::to_string(i) + "|" + std::to_string(i) + "|" +
                      (i % 2 ? "T" : "F"));
    return out;
}

void* mask_of(const std::vector<unsigned int>& bits) {
    void* m = qz_bits_create();
    for (unsigned int b : bits) qz_bits_set_bit(m, b, 1);
    return m;
}

// The record count of the header and the deletion flag bytes of the file.
struct File_view {
    uint32_t count = 0;
    std::string flags;
};
File_view view(const std::string& path) {
    std::vector<uint8_t> b = read_bytes(path);
    File_view v;
    if (b.size() < 12) return v;
    v.count = b[4] | b[5] << 8 | b[6] << 16 | uint32_t{b[7]} << 24;
    const size_t header = b[8] | b[9] << 8, length = b[10] | b[11] << 8;
    for (size_t r = 0; r < v.count && header + r * length < b.size(); ++r)
        v.flags += static_cast<char>(b[header + r * length]);
    return v;
}

struct Temp_folder_guard {
    std::wstring saved = qz_options_get_temp_wpath();
    ~Temp_folder_guard() { qz_options_set_temp_wpath(saved.c_str()); }
};

TEST(DeleteByMask, RewritingPathKeepsTheRightRecords) {
    struct Case {
        const char* name;
        std::vector<unsigned int> bits;
        std::vector<unsigned int> kept;
        uint32_t claimed;  // a record count written into the header, or 0
    };
    // Bits past the last record lower the count too, so the last kept
    // records fall off the copy. A header claiming a billion records over
    // five: the copy is made of the five, quickly, and no larger.
    const std::vector<Case> cases = {
        {"no bit", {}, {0, 1, 2, 3, 4}, 0},
        {"records 1 and 3", {1, 3}, {0, 2, 4}, 0},
        {"first and last", {0, 4}, {1, 2, 3}, 0},
        {"every bit", {0, 1, 2, 3, 4}, {}, 0},
        {"bits past the end", {1, 7, 9}, {0, 2}, 0},
        {"more bits than records", {0, 5, 6, 7, 8, 9, 10}, {}, 0},
        {"a billion claimed", {0, 4, 600000000}, {1, 2}, 1000000000},
    };
    Temp_dir dir;
    Temp_folder_guard keep;
    qz_options_set_temp_wpath(qz_test::widen(dir.path() + "/").c_str());
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::wstring path = dir.wfile("t.dbf");
        make_table(path, 5);
        // Mark record 2 deleted in the file: kept records lose the flag.
        std::vector<uint8_t> b = read_bytes(dir.file("t.dbf"));
        const size_t header = b[8] | b[9] << 8, length = b[10] | b[11] << 8;
        b[header + 2 * length] = '*';
        for (int i = 0; c.claimed && i < 4; ++i)
            b[4 + i] = static_cast<uint8_t>(c.claimed >> 8 * i);
        qz_test::write_bytes(dir.file("t.dbf"), b);

        void* m = mask_of(c.bits);
        EXPECT_EQ(qz_dbf_del_records_by_msk_and_fn(path.c_str(), m), 0u);
        qz_bits_destroy(m);
        EXPECT_EQ(rows(path), expected_rows(c.kept));
        File_view v = view(dir.file("t.dbf"));
        EXPECT_EQ(v.count, c.kept.size());
        EXPECT_EQ(v.flags, std::string(c.kept.size(), ' '));
        EXPECT_LE(read_bytes(dir.file("t.dbf")).size(), b.size());
        Tqz_dbf_rw* h = qz_dbf_open_w(path.c_str(), true, false);
        ASSERT_NE(h, nullptr);
        EXPECT_EQ(qz_dbf_get_nf(h), 3u);
        EXPECT_STREQ(qz_dbf_get_field_name(h, 1), "N");
        EXPECT_EQ(qz_dbf_get_field_type(h, 2), dbf_ft_logical);
        qz_dbf_close(h);
        // The temporary copy stays where it was made, no lock file is left.
        EXPECT_TRUE(qz_test::exists(dir.file("temp_minus_dbf.dbf")));
        EXPECT_FALSE(qz_test::exists(dir.file("t.dbf.lk")));
    }
}

TEST(DeleteByMask, BadInputLeavesTheTableAsItWas) {
    Temp_dir dir;
    Temp_folder_guard keep;
    qz_options_set_temp_wpath(qz_test::widen(dir.path() + "/").c_str());
    const std::wstring path = dir.wfile("t.dbf");
    make_table(path, 4);
    const std::vector<uint8_t> before = read_bytes(dir.file("t.dbf"));
    void* m = mask_of({1});

    // No mask, no path, no table.
    EXPECT_EQ(qz_dbf_del_records_by_msk_and_fn(path.c_str(), nullptr), 1u);
    EXPECT_EQ(qz_dbf_del_records_by_msk_why_w(path.c_str(), nullptr), QZ_DBF_DELMASK_NO_MASK);
    EXPECT_EQ(qz_dbf_del_records_by_msk_and_fn(nullptr, m), 1u);
    EXPECT_EQ(qz_dbf_del_records_by_msk_and_fn(dir.wfile("none.dbf").c_str(), m), 1u);
    EXPECT_EQ(qz_dbf_del_records_by_msk_why_w(dir.wfile("none.dbf").c_str(), m),
              QZ_DBF_DELMASK_CANNOT_OPEN);
    // A folder without tables opens neither as a table nor through OGR.
    const std::string empty = dir.file("empty");
    ASSERT_EQ(::mkdir(empty.c_str(), 0700), 0);
    EXPECT_EQ(qz_dbf_del_records_by_msk_and_fn(qz_test::widen(empty).c_str(), m), 1u);
    EXPECT_EQ(read_bytes(dir.file("t.dbf")), before);

    // Another writer holds the table: nothing changes, and its lock stays.
    Tqz_dbf_rw* writer = qz_dbf_open_w(path.c_str(), false, false);
    ASSERT_NE(writer, nullptr);
    EXPECT_EQ(qz_dbf_del_records_by_msk_and_fn(path.c_str(), m), 1u);
    EXPECT_EQ(qz_dbf_del_records_by_msk_why_w(path.c_str(), m), QZ_DBF_DELMASK_LOCKED);
    EXPECT_EQ(read_bytes(dir.file("t.dbf")), before);
    EXPECT_TRUE(qz_test::exists(dir.file("t.dbf.lk")));
    qz_dbf_close(writer);

    // A temporary folder that cannot be written: the classic result is 0
    // all the same, the reason says so, and the table is untouched.
    qz_options_set_temp_wpath(qz_test::widen(dir.path() + "/no/such/folder/").c_str());
    EXPECT_EQ(qz_dbf_del_records_by_msk_and_fn(path.c_str(), m), 0u);
    EXPECT_EQ(qz_dbf_del_records_by_msk_why_w(path.c_str(), m), QZ_DBF_DELMASK_COPY_FAILED);
    EXPECT_EQ(read_bytes(dir.file("t.dbf")), before);
    EXPECT_FALSE(qz_test::exists(dir.file("t.dbf.lk")));

    // A file that is no table at all (no header, no fields).
    qz_test::write_bytes(dir.file("junk.dbf"), {1, 2, 3});
    qz_options_set_temp_wpath(qz_test::widen(dir.path() + "/").c_str());
    EXPECT_EQ(qz_dbf_del_records_by_msk_and_fn(dir.wfile("junk.dbf").c_str(), m), 1u);
    EXPECT_EQ(read_bytes(dir.file("junk.dbf")), (std::vector<uint8_t>{1, 2, 3}));
    qz_bits_destroy(m);
}

TEST(DeleteByMask, MemoryTableLosesRecordsAsOneUndoableStep) {
    Iqz_history_manager* hm = qz_history_manager_get_instance();
    ASSERT_NE(hm, nullptr);
    Temp_dir dir;
    const std::wstring path = dir.wfile("m.dbf");
    make_table(path, 5);
    const std::vector<uint8_t> on_disk = read_bytes(dir.file("m.dbf"));
    Tqz_dbf_memory* t = qz_dbf_mem_load_w(path.c_str());
    ASSERT_NE(t, nullptr);
    auto names = [&] {
        std::string s;
        for (unsigned int r = 0; r < qz_dbf_mem_get_nr(t); ++r) {
            bool ok = false;
            s += std::string(r ? "," : "") + rtrim(qz_dbf_mem_get_str(t, 0, r, ok));
        }
        return s;
    };
    const unsigned int steps = qz_history_manager_get_undo_count(hm);

    void* m = mask_of({1, 3, 40});
    EXPECT_EQ(qz_dbf_del_records_by_msk_and_fn(path.c_str(), m), 0u);
    EXPECT_EQ(names(), "r0,r2,r4");
    EXPECT_EQ(qz_history_manager_get_undo_count(hm), steps + 1);
    EXPECT_EQ(read_bytes(dir.file("m.dbf")), on_disk) << "the file is not touched";

    ASSERT_TRUE(qz_history_manager_undo(hm));
    EXPECT_EQ(names(), "r0,r1,r2,r3,r4");
    bool ok = false;
    EXPECT_STREQ(qz_dbf_mem_get_str(t, 1, 3, ok), "3");
    ASSERT_TRUE(qz_history_manager_redo(hm));
    EXPECT_EQ(names(), "r0,r2,r4");
    ASSERT_TRUE(qz_history_manager_undo(hm));

    // A null mask changes nothing and says so; an empty one is a step.
    EXPECT_EQ(qz_dbf_del_records_by_msk_and_fn(path.c_str(), nullptr), 1u);
    EXPECT_EQ(qz_history_manager_get_undo_count(hm), steps);
    void* none = qz_bits_create();
    EXPECT_EQ(qz_dbf_del_records_by_msk_and_fn(path.c_str(), none), 0u);
    EXPECT_EQ(names(), "r0,r1,r2,r3,r4");
    EXPECT_EQ(qz_history_manager_get_undo_count(hm), steps + 1);
    qz_bits_destroy(none);
    qz_bits_destroy(m);
    qz_dbf_mem_free(t);
    EXPECT_EQ(read_bytes(dir.file("m.dbf")), on_disk);
}

}  // namespace
