// Restructuring through the C interface.
//
// The restructure descriptor through its C exports: entries made from a
// table, statuses worked out live, editing, moving, removing by name, the
// old-field queries, and indexes outside the entries.
//
// Applying a descriptor: to a table file (the bytes written, the files left,
// tables it must leave alone) and to a loaded memory table in
// place (one undoable step); memory tables made with fields, and tables
// made with another's layout.
//
// The value conversions of restructuring, cell by cell: every old type among
// C, N, F, L, D, I, B, M changed to every new type (status 2), in CP1251,
// CP866 and UTF-8 tables, by the file rewrite and by the memory form.
//
// The expected table is built independently: the conversion rules are
// applied here to each old cell's text and the results written through the
// ordinary setters into a fresh table of the new layout; the restructured
// table must read the same, cell by cell.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <functional>
#include <random>

#include "restruct_tables.h"

using namespace restruct_test;
using qz_test::read_bytes;
namespace fs = std::filesystem;

namespace {

// Every entry as "NAME:status:old number:old type and length:old name"
// ("?0:-" for an entry without an old field).
std::string entries(Tqz_dbf_rstrct* d) {
    std::string out;
    for (int i = 0; i < qz_dbf_restruct_count(d); ++i) {
        qz_test::Fed old;
        old.wide = L"-";  // stays when nothing is handed over
        qz_dbf_restruct_get_field_old_name(d, i, old.adp);
        const Tqz_dbf_field_type t = qz_dbf_restruct_get_field_old_type(d, i);
        out += std::string(i ? " " : "") + qz_dbf_restruct_get_field(d, i)->name + ":" +
               std::to_string(qz_dbf_restruct_get_field_status(d, i)) + ":" +
               std::to_string(qz_dbf_restruct_get_field_old_no(d, i)) + ":" +
               (t == dbf_ft_unknown ? '?' : static_cast<char>(qz_dbftype2char(t))) +
               std::to_string(qz_dbf_restruct_get_field_old_flen(d, i)) + ":" +
               std::string(old.wide.begin(), old.wide.end());
    }
    return out;
}

// One descriptor edited step by step; after each step every entry's name,
// status (0 new, 1 kept, 2 changed), origin and old attributes. The status
// is worked out live: an attribute changed back makes the entry kept again.
// Then an empty descriptor, and indexes outside the entries.
TEST(Descriptor, EditsStatusesOriginsIndexesOutsideTheEntriesAndNames) {
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
        EXPECT_TRUE(!qz_dbf_restruct_get_field(d, bad) &&
                    !qz_dbf_restruct_get_field_status(d, bad) &&
                    qz_dbf_restruct_get_field_old_no(d, bad) == -1 &&
                    qz_dbf_restruct_get_field_old_type(d, bad) == dbf_ft_unknown);
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

    // Entries made from a table keep its names as system text, cut to 10
    // bytes before a character that does not fit whole (CP1251 names: 'a'
    // and nine Ж, then ЖЖ).
    qz_options_set_ansi_code_page(65001);
    const std::string zh9 = "\xC6\xC6\xC6\xC6\xC6\xC6\xC6\xC6\xC6";
    qz_test::write_bytes(dir.file("cp.dbf"),
                         qz_test::dbf_bytes(0x03, {{"a" + zh9, 'C', 2}, {"\xC6\xC6", 'C', 2}}, {}));
    d = qz_dbf_restruct_create(dir.file("cp.dbf").c_str());
    ASSERT_EQ(qz_dbf_restruct_count(d), 2);
    EXPECT_STREQ(qz_dbf_restruct_get_field(d, 0)->name, "a\xD0\x96\xD0\x96\xD0\x96\xD0\x96");
    EXPECT_STREQ(qz_dbf_restruct_get_field(d, 1)->name, "\xD0\x96\xD0\x96");
    qz_dbf_restruct_destroy(d);
    qz_options_set_ansi_code_page(0);
}

class Apply : public ::testing::Test {
  protected:
    qz_test::Temp_dir dir;
    std::string file = dir.file("T.dbf");
    std::wstring path = dir.wfile("T.dbf");
};

TEST_F(Apply, TablesLeftAloneThenRewritten) {
    // Missing table.
    Tqz_dbf_rstrct* d = qz_dbf_restruct_create_empty_w(path.c_str());
    Tqz_dbf_field f = field({"A", 'C', 3, 0});
    qz_dbf_restruct_add_field(d, &f);
    EXPECT_FALSE(qz_dbf_restruct_apply(d) || fs::exists(file));
    qz_dbf_restruct_destroy(d);

    ASSERT_TRUE(make_table(path, {{"A", 'C', 4, 0}, {"B", 'N', 5, 1}, {"K", 'C', 4, 0}},
                           {{"a", "1.5", "  ab"}, {"b", "2"}}));
    const auto before = qz_test::read_bytes(file);
    d = qz_dbf_restruct_create_w(path.c_str());
    qz_dbf_restruct_remove_field_idx(d, 0);
    qz_dbf_restruct_get_field(d, 1)->flen = 9;  // C, longer: leading blanks stay
    // Another writer holds the table: not rewritten.
    Tqz_dbf_rw* writer = qz_dbf_open_w(path.c_str(), false, false);
    EXPECT_FALSE(qz_dbf_restruct_apply(d) || qz_dbf_get_nf(writer) != 3u);
    qz_dbf_close(writer);
    // No fields, or a record too long for a table: refused.
    Tqz_dbf_rstrct* none = qz_dbf_restruct_create_empty_w(path.c_str());
    EXPECT_FALSE(qz_dbf_restruct_apply(none));
    qz_dbf_field_init(&f, "W", dbf_ft_char, 255, 0);
    for (int i = 0; i < 300; ++i) qz_dbf_restruct_add_field(none, &f);
    EXPECT_FALSE(qz_dbf_restruct_apply(none));
    qz_dbf_restruct_destroy(none);
    EXPECT_TRUE(qz_test::read_bytes(file) == before && !fs::exists(file + ".bak.dbf"));

    // A backup left by a killed run is no obstacle; the lock is free again.
    // Siblings of killed rewrites go; those of a live process stay.
    qz_test::write_bytes(file + ".bak.dbf", {1, 2, 3});
    const std::string dead = file + ".2147483000.7.tmp",
                      dead_bak = file + ".bak.dbf.2147483001.0.tmp",
                      live = file + "." + std::to_string(getppid()) + ".3.tmp",
                      other = file + ".x.1.tmp";
    for (const auto& p : {dead, dead_bak, live, other}) qz_test::write_bytes(p, {9});
    EXPECT_TRUE(qz_dbf_restruct_apply(d));
    qz_dbf_restruct_destroy(d);
    EXPECT_EQ(layout(path), "B:N:5:1,K:C:9:0");
    EXPECT_EQ(cells(path), (Rows{{"1.5", "  ab     "}, {"2.0", "         "}}));
    const auto bytes = qz_test::read_bytes(file);
    ASSERT_TRUE(bytes.size() == 32 + 32 * 2 + 1 + 2 * 15 + 1 && bytes.back() == 0x1A);
    EXPECT_EQ(std::string(bytes.begin() + 97 + 6, bytes.begin() + 97 + 15), "  ab     ");
    for (const auto& p : {file + ".bak.dbf", dead, dead_bak, file + ".lk"})
        EXPECT_FALSE(fs::exists(p)) << p;
    EXPECT_TRUE(fs::exists(live) && fs::exists(other) && fs::exists(dir.file("T.cpg")));
    EXPECT_NE(writer = qz_dbf_open_w(path.c_str(), false, false), nullptr);
    qz_dbf_close(writer);
}

// The bytes of a memory table saved to `name`, its date bytes cleared.
std::vector<uint8_t> saved(Tqz_dbf_memory* m, const std::string& name) {
    EXPECT_TRUE(qz_dbf_mem_save_as_w(m, qz_test::widen(name).c_str()));
    auto bytes = qz_test::read_bytes(name);
    for (size_t i = 1; i < 4 && i < bytes.size(); ++i) bytes[i] = 0;
    return bytes;
}

TEST_F(Apply, LoadedTableIsRestructuredInPlaceAsOneStep) {
    copy_sample(dir.file("T"));
    Iqz_history_manager* history = qz_history_manager_get_instance();
    qz_history_manager_clear(history);
    const auto on_disk = qz_test::read_bytes(file);
    const Rows loaded = cells(path);
    Tqz_dbf_memory* m = qz_dbf_mem_load_w(path.c_str());
    qz_dbf_mem_set_str(m, 0, 1, "Changed before");
    const auto before = saved(m, dir.file("before.dbf"));

    Tqz_dbf_rstrct* d = qz_dbf_restruct_create_w(path.c_str());
    ASSERT_EQ(qz_dbf_restruct_count(d), 8);
    qz_dbf_restruct_get_field(d, 0)->flen = 12;                  // NAME C 30 -> 12
    std::strcpy(qz_dbf_restruct_get_field(d, 1)->name, "TOWN");  // CITY renamed
    qz_dbf_restruct_get_field(d, 3)->type = 'C';                 // SALARY N -> C
    qz_dbf_restruct_remove_field_idx(d, 4);                      // RATE dropped
    qz_dbf_restruct_move_field(d, 6, 0);                         // NOTES first
    Tqz_dbf_field f = field({"EXTRA", 'I', 4, 0});
    qz_dbf_restruct_add_field(d, &f);
    // A disk handle cannot restructure in place; the loaded table can.
    Tqz_dbf_rw* disk = qz_dbf_open_w(dir.wfile("before.dbf").c_str(), true, false);
    EXPECT_FALSE(qz_dbf_try_restruct(disk, d) || qz_dbf_mem_restruct(nullptr, d));
    qz_dbf_close(disk);
    ASSERT_TRUE(qz_dbf_restruct_apply(d));
    qz_dbf_restruct_destroy(d);
    EXPECT_EQ(qz_history_manager_get_undo_count(history), 2u);
    EXPECT_EQ(qz_test::read_bytes(file), on_disk) << "in place: the file is not written";
    EXPECT_EQ(layout(path),
              "NOTES:M:10:0,NAME:C:12:0,TOWN:C:20:0,BORN:D:8:0,SALARY:C:12:2,ACTIVE:L:1:0,"
              "KIDS:I:4:0,EXTRA:I:4:0");
    const auto after = saved(m, dir.file("after.dbf"));
    ASSERT_NE(after, before);
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(qz_history_manager_undo(history) && saved(m, dir.file("x.dbf")) == before) << i;
        ASSERT_TRUE(qz_history_manager_redo(history) && saved(m, dir.file("x.dbf")) == after) << i;
    }
    // A change after the restructure is undone first, then the restructure,
    // then the change before it.
    qz_dbf_mem_set_int(m, 7, 0, 5);
    ASSERT_TRUE(qz_history_manager_undo(history) && saved(m, dir.file("x.dbf")) == after);
    ASSERT_TRUE(qz_history_manager_undo(history) && qz_history_manager_undo(history));
    EXPECT_EQ(cells(path), loaded) << "as loaded, read through a handle";
    qz_dbf_mem_free(m);
    EXPECT_EQ(qz_test::read_bytes(file), on_disk);
    qz_history_manager_clear(history);
}

TEST_F(Apply, TablesMadeWithFieldsOrWithAnothersLayout) {
    // Made by mem_create with fields; created again with other fields: the
    // same table, its records kept, every field new (no undo step); without
    // fields: the table as it is. A layout without fields changes nothing.
    const std::wstring name = dir.wfile("scratch.dbf");
    Tqz_dbf_field f[3] = {field({"A", 'C', 5, 0}), field({"B", 'I', 4, 0}),
                          field({"C", 'N', 6, 2})};
    Tqz_dbf_memory* m = qz_dbf_mem_create_w(name.c_str(), 3, f);
    EXPECT_EQ(qz_dbf_mem_get_field_dlen(m, 2), 2);
    for (int i = 0; i < 2; ++i) qz_dbf_mem_add(m);
    EXPECT_TRUE(qz_dbf_mem_set_str(m, 0, 1, "keep") && qz_dbf_mem_set_int(m, 1, 1, 9));
    Tqz_dbf_field g[2] = {field({"A", 'C', 5, 0}), field({"Z", 'B', 8, 0})};
    EXPECT_TRUE(qz_dbf_mem_create_w(name.c_str(), 2, g) == m &&
                qz_dbf_mem_create_w(name.c_str(), 0, nullptr) == m);
    Tqz_dbf_rstrct* none = qz_dbf_restruct_create_empty_w(name.c_str());
    EXPECT_FALSE(qz_dbf_mem_restruct(m, none) || qz_dbf_restruct_apply(none));
    qz_dbf_restruct_destroy(none);
    EXPECT_EQ(layout(name), "A:C:5:0,Z:B:8:0");
    bool ok = false;
    EXPECT_STREQ(qz_dbf_mem_get_str(m, 0, 1, ok), "     ");
    EXPECT_TRUE(qz_dbf_mem_get_dbl(m, 1, 1, ok) == 0.0 && ok);
    EXPECT_FALSE(qz_history_manager_can_undo(qz_history_manager_get_instance()));
    for (int i = 0; i < 3; ++i) qz_dbf_mem_free(m);  // asked for three times
    EXPECT_FALSE(qz_dbf_mem_exist_w(name.c_str()));

    // Nothing at the new path: an empty table in the template's encoding; a
    // table there keeps its record count and its own encoding, its values go;
    // a template that does not open makes nothing.
    copy_sample(dir.file("T"));
    const std::wstring made = dir.wfile("made.dbf"), other = dir.wfile("other.dbf");
    qz_dbf_create_dbf_with_struct(made.c_str(), path.c_str());
    EXPECT_EQ(layout(made) + std::to_string(cells(made).size()), layout(path) + "0");
    ASSERT_TRUE(make_table(other, {{"Q", 'C', 3, 0}}, {{"a"}, {"b"}, {"c"}}, Encoding::utf8));
    qz_dbf_create_dbf_with_struct(other.c_str(), path.c_str());
    EXPECT_EQ(layout(other), layout(path));
    ASSERT_EQ(cells(other).size(), 3u);
    Tqz_dbf_rw* t = qz_dbf_open_w(other.c_str(), true, false);
    EXPECT_TRUE(cells(other)[2][0] == std::string(30, ' ') && qz_dbf_get_utf8_flag(t));
    qz_dbf_close(t);
    qz_dbf_create_dbf_with_struct(dir.wfile("nothing.dbf").c_str(), dir.wfile("no.dbf").c_str());
    EXPECT_FALSE(fs::exists(dir.file("nothing.dbf")));
}

const std::vector<Column> old_columns = {{"C", 'C', 12, 0}, {"N", 'N', 10, 2}, {"F", 'F', 12, 3},
                                         {"L", 'L', 1, 0},  {"D", 'D', 8, 0},  {"I", 'I', 4, 0},
                                         {"B", 'B', 8, 0},  {"M", 'M', 10, 0}};

// One new field of each type.
const std::vector<Column> new_columns = {{"C", 'C', 10, 0}, {"N", 'N', 12, 2}, {"F", 'F', 14, 4},
                                         {"L", 'L', 1, 0},  {"D", 'D', 8, 0},  {"I", 'I', 4, 0},
                                         {"B", 'B', 8, 0},  {"M", 'M', 10, 0}};

const Rows rows = {{" 12.5 ", "12.5", "-3.25", "T", "20240131", "7", "12.5", "5"},
                   {"abc", "-7.1", "1000", "F", "", "-8", "-7.9", ""},
                   {"-7.1", "", "", "", "19991231", "0", "0", "123"},
                   {"\xD0\x81\xD0\xB6\xD0\xB8\xD0\xBA 3", "42", "0.5", "T", "20000229",
                    "2147483647", "1e300", "0"},
                   {"", "", "", "", "", "", "", ""},
                   {"  42", "0.01", "99999.999", "F", "20000101", "-2147483647", "2,5", "99"},
                   {" 3,75 ", "-0.5", "-0.001", "T", "20101010", "1", "-0.25", "7"}};

std::string trim(const std::string& s) {
    const size_t b = s.find_first_not_of(" \t\n\r\v\f");
    return b == std::string::npos ? "" : s.substr(b, s.find_last_not_of(" \t\n\r\v\f") - b + 1);
}

// A whole number text (comma as point), as the library's number test reads it.
bool number(std::string t, double& v) {
    if (t.find(',') != std::string::npos) t[t.find(',')] = '.';
    errno = 0;
    char* end = nullptr;
    v = std::strtod(t.c_str(), &end);
    return end != t.c_str() && *end == 0 && errno != ERANGE;
}

enum class Form { file, memory };

// Writes into cell (j, r) of `t` what a changed field gets from the old text:
// a number read from it (the file form reads any leading number) for I and B,
// the number written with the new decimals (or blank) for N and F, else the
// text, trimmed unless it was C (or the new field is not C in the file form).
void expect_changed(Tqz_dbf_rw* t, unsigned j, unsigned r, const Column& to, char old_type,
                    const std::string& s, Form form) {
    const std::string trimmed = trim(s);
    double v = 0, n = 0;
    if (form == Form::file)
        v = std::fabs(std::atof(s.c_str())) == HUGE_VAL ? 0 : std::atof(s.c_str());
    if (form == Form::memory && !number(trimmed, v)) v = 0;
    const double f = std::floor(v);
    char text[512];
    if (to.type == 'I')
        qz_dbf_set_int(t, j, r, f >= -2147483648.0 && f < 2147483648.0 ? int(f) : INT_MIN);
    else if (to.type == 'B')
        qz_dbf_set_dbl(t, j, r, v);
    else if (to.type != 'N' && to.type != 'F')
        qz_dbf_set_str(
            t, j, r,
            (old_type != 'C' && (to.type == 'C' || form == Form::memory) ? trimmed : s).c_str());
    else if (number(trimmed, n) && std::snprintf(text, sizeof text, "%.*f", to.dlen, n))
        qz_dbf_set_str(t, j, r, text);
}

// Every old field changed to each new type (status 2), in each encoding, by
// the file rewrite and by the memory form, against the expected table.
TEST(Convert, EveryOldTypeToEveryNewTypeInEveryEncodingAndForm) {
    qz_test::Temp_dir dir;
    const std::wstring path = dir.wfile("t.dbf"), expected = dir.wfile("want.dbf");
    const char* const names[] = {"X0", "X1", "X2", "X3", "X4", "X5", "X6", "X7"};
    for (Encoding enc : {Encoding::cp1251, Encoding::cp866, Encoding::utf8})
        for (Form form : {Form::file, Form::memory})
            for (const Column& to : new_columns) {
                SCOPED_TRACE(std::string("to ") + to.type + ", encoding " +
                             std::to_string(int(enc)) + (form == Form::file ? ", file" : ""));
                ASSERT_TRUE(make_table(path, old_columns, rows, enc));
                const Rows old_cells = cells(path);
                Tqz_dbf_memory* memory =
                    form == Form::memory ? qz_dbf_mem_load_w(path.c_str()) : nullptr;
                Tqz_dbf_rstrct* d = qz_dbf_restruct_create_w(path.c_str());
                std::vector<Column> layout_cols(8, to);
                for (int k = 0; k < 8; ++k) {
                    layout_cols[k].name = names[k];
                    Tqz_dbf_field f = field(layout_cols[k]);
                    qz_dbf_restruct_set_field(d, k, &f);
                    ASSERT_EQ(qz_dbf_restruct_get_field_status(d, k), 2);
                }
                ASSERT_TRUE(memory ? qz_dbf_mem_restruct(memory, d) : qz_dbf_restruct_apply(d));
                qz_dbf_restruct_destroy(d);
                // The expected table: the old cells converted here, written
                // into a table of the new layout through the ordinary setters.
                ASSERT_TRUE(make_table(expected, layout_cols, Rows(rows.size()), enc));
                Tqz_dbf_rw* e = qz_dbf_open_w(expected.c_str(), false, false);
                for (unsigned k = 0; k < 8; ++k)
                    for (unsigned r = 0; r < rows.size(); ++r)
                        expect_changed(e, k, r, to, old_columns[k].type, old_cells[r][k], form);
                qz_dbf_close(e);
                EXPECT_EQ(layout(path), layout(expected));
                EXPECT_EQ(cells(path), cells(expected));
                qz_dbf_mem_free(memory);
            }
}

// The tool: qzdbf alter, delete, pack, and edit's alter and delmask, step by
// step on one table each: the exit status, a part of what they print, and
// the table after it (refused changes leave it byte for byte; edit's changes
// are steps that undo takes back).
struct Step {
    std::string args, input;  // "T" in args is the table
    int status;
    std::string out, after;  // `after` as `now` tells it; "" for the bytes as they were
};

void run_steps(const std::string& file, const std::vector<Step>& steps,
               const std::function<std::string()>& now) {
    for (const Step& s : steps) {
        const auto bytes = qz_test::read_bytes(file);
        std::string args = s.args, out;
        args.replace(args.find('T'), 1, "'" + file + "'");
        EXPECT_EQ(qzdbf(args, &out, s.input), s.status) << s.args << "\n" << out;
        EXPECT_NE(out.find(s.out), std::string::npos) << s.args << "\n" << out;
        EXPECT_TRUE(s.after.empty() ? qz_test::read_bytes(file) == bytes : now() == s.after)
            << s.args << (s.after.empty() ? "" : " gives " + now());
    }
}

TEST(Tool, AlterEditsAlterDeletePackAndDelmask) {
    qz_test::Temp_dir dir;
    copy_sample(dir.file("t"));
    const std::string file = dir.file("t.dbf");
    const std::wstring path = dir.wfile("t.dbf");
    const Rows before = cells(path);
    auto now = [&] {
        return layout(path) + " " + cells(path, true)[0][7] + " " + cells(path, true)[1][7];
    };
    const std::string original = now();
    // Refused: unknown names and types, clashes, bad places, no field left,
    // a missing table.
    std::vector<Step> steps;
    for (std::string bad : {"--drop NOPE", "--add 1BAD:C:5", "--add X:Q:5", "--rename CITY=NAME",
                            "--move NAME=9", "--drop A",
                            "--drop NAME --drop CITY --drop BORN "
                            "--drop SALARY --drop RATE --drop ACTIVE --drop KIDS --drop NOTES"})
        steps.push_back({(bad == "--drop A" ? "alter T.dbf " : "alter T ") + bad, "", 2, "", ""});
    steps.insert(steps.end(),
                 {{"edit T", "alter --drop Q\\n", 1, "", ""},
                  {"edit T",
                   "alter --drop KIDS --add Z:I:4 --rename NAME=WHO\\nset Z 0 12\\nundo\\nundo\\n"
                   "save\\nredo\\nquit\\n",
                   0, "new layout", original},  // saved after both undos
                  {"edit T", "alter --drop KIDS --add Z:I:4\\nset Z 1 7\\nsave\\nquit\\n", 0, "",
                   "NAME:C:30:0,CITY:C:20:0,BORN:D:8:0,SALARY:N:12:2,RATE:F:10:4,ACTIVE:L:1:0,"
                   "NOTES:M:10:0,Z:I:4:0 0 7"}});
    run_steps(file, steps, now);

    // Held by another writer: exit status 3, nothing changed, no backup.
    Tqz_dbf_rw* writer = qz_dbf_open_w(path.c_str(), false, false);
    run_steps(file, {{"alter T --drop RATE", "", 3, "", ""}}, nullptr);
    qz_dbf_close(writer);
    EXPECT_FALSE(std::filesystem::exists(file + ".bak.dbf"));

    // Several changes in one rewrite, the layouts printed; the memo field's
    // block numbers move with it, its memo file stays as it was.
    const auto memo = qz_test::read_bytes(dir.file("t.dbt"));
    std::filesystem::copy_file(QZ_EXAMPLES_DIR "/sample.dbf", file,
                               std::filesystem::copy_options::overwrite_existing);
    run_steps(file,
              {{"alter T --add EXTRA:N:8:2 --drop RATE --rename CITY=TOWN --retype NAME:C:40"
                " --move NOTES=0 --rename extra=MORE",
                "", 0, "old layout",
                "NOTES:M:10:0,NAME:C:40:0,TOWN:C:20:0,BORN:D:8:0,SALARY:N:12:2,ACTIVE:L:1:0,"
                "KIDS:I:4:0,MORE:N:8:2"}},
              [&] { return layout(path); });
    EXPECT_EQ(qz_test::read_bytes(dir.file("t.dbt")), memo);
    // Every value moved with its field, NAME widened with blanks.
    Rows want = before, after = cells(path);
    for (size_t r = 0; r < want.size() && r < after.size(); ++r) {
        const std::vector<std::string> b = want[r];
        want[r] = {b[7], b[0] + std::string(10, ' '), b[1], b[2], b[3], b[5], b[6], after[r][7]};
    }
    EXPECT_EQ(after, want);
    // delete, pack and edit's delmask say what went and what is left.
    const std::string d_file = dir.file("d.dbf");
    ASSERT_TRUE(make_table(dir.wfile("d.dbf"), {{"NAME", 'C', 4, 0}},
                           {{"r0"}, {"r1"}, {"r2"}, {"r3"}, {"r4"}, {"r5"}}));
    auto names = [&] {
        std::string s;
        for (const auto& row : cells(dir.wfile("d.dbf"), true)) s += row[0] + ",";
        return s;
    };
    run_steps(
        d_file,
        {// a failed line makes the exit status 1
         {"edit T", "delmask 1 3 5\\nundo\\ndelmask 0 5\\nsave\\ndelmask 9\\nquit\\n", 1,
          "removed 3 records, 3 left\nundone\nremoved 2 records, 4 left\nsaved 4", "r1,r2,r3,r4,"},
         {"edit T", "delmask 9\\nquit\\n", 1, "record 9 is out of range", ""},
         {"delete T 3 0", "", 0, "removed 2 records, 2 left\n", "r2,r3,"}},
        names);
    // A flag set straight in the file: pack removes its record.
    std::vector<uint8_t> b = qz_test::read_bytes(d_file);
    b[qz_test::u16_at(b, 8)] = '*';
    qz_test::write_bytes(d_file, b);
    run_steps(d_file,
              {{"pack T", "", 0, "removed 1 record, 1 left\n", "r3,"},
               {"pack T", "", 0, "removed 0 records, 1 left\n", "r3,"}},
              names);
}

// Deleting records by a bit mask through the exports: the bit sets, the
// rewriting path with its odd masks and headers, inputs that must leave the
// table as it was (each with its reason), and memory tables losing records
// as one undoable step.
// A table of n records, record i: NAME "r<i>", N the number i, FLAG true
// for odd i; the records' cells.
Rows make_numbered(const std::wstring& path, unsigned n) {
    Rows rows;
    for (unsigned i = 0; i < n; ++i)
        rows.push_back({"r" + std::to_string(i), std::to_string(i), i % 2 ? "T" : "F"});
    make_table(path, {{"NAME", 'C', 6, 0}, {"N", 'N', 5, 0}, {"FLAG", 'L', 1, 0}}, rows);
    return cells(path, true);
}

TEST(DeleteByMask, RewritingPathKeepsTheRightRecordsOrLeavesTheTableAsItWas) {
    struct Case {
        std::vector<unsigned> bits, kept;
        uint32_t claimed;  // a record count written into the header, or 0
    };
    // Bits past the last record lower the count too, so the last kept
    // records fall off the copy. A header claiming a billion records over
    // five: the copy is made of the five, quickly.
    const std::vector<Case> cases = {{{}, {0, 1, 2, 3, 4}, 0},
                                     {{1, 3}, {0, 2, 4}, 0},
                                     {{0, 4}, {1, 2, 3}, 0},
                                     {{0, 1, 2, 3, 4}, {}, 0},
                                     {{1, 7, 9}, {0, 2}, 0},
                                     {{0, 5, 6, 7, 8, 9, 10}, {}, 0},
                                     {{0, 4, 600000000}, {1, 2}, 1000000000}};
    qz_test::Temp_dir dir;
    Temp_folder temp(dir.path());
    const std::string file = dir.file("t.dbf");
    const std::wstring path = dir.wfile("t.dbf");
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.bits));
        const Rows all = make_numbered(path, 5);
        // Record 2 flagged deleted in the file: kept records lose the flag.
        std::vector<uint8_t> b = read_bytes(file);
        const size_t header = qz_test::u16_at(b, 8), length = qz_test::u16_at(b, 10);
        b[header + 2 * length] = '*';
        for (int i = 0; c.claimed && i < 4; ++i) b[4 + i] = uint8_t(c.claimed >> 8 * i);
        qz_test::write_bytes(file, b);

        void* m = mask_of(c.bits);
        EXPECT_EQ(qz_dbf_del_records_by_msk_and_fn(path.c_str(), m), 0u);
        qz_bits_destroy(m);
        Rows want;  // the kept records, their flags cleared
        for (unsigned i : c.kept) want.push_back(all[i]);
        EXPECT_EQ(cells(path, true), want);
        const std::vector<uint8_t> a = read_bytes(file);
        EXPECT_TRUE(qz_test::u32_at(a, 4) == c.kept.size() &&
                    a.size() == header + c.kept.size() * length + 1);
        for (size_t r = 0; r < c.kept.size(); ++r) EXPECT_EQ(a[header + r * length], ' ');
        // The temporary copy stays where it was made, no lock file is left.
        EXPECT_TRUE(qz_test::exists(dir.file("temp_minus_dbf.dbf")) &&
                    !qz_test::exists(file + ".lk"));
    }

    // Inputs that cannot be deleted from leave the table as it was, each
    // with its reason.
    const std::wstring none = dir.wfile("none.dbf");
    make_numbered(path, 4);
    const std::vector<uint8_t> before = read_bytes(file);
    void* m = mask_of({1});
    auto why = [&](const std::wstring& p, void* mask) {
        const int reason = qz_dbf_del_records_by_msk_why_w(p.c_str(), mask);
        // The classic result is 1 when nothing could be tried, else 0.
        EXPECT_EQ(qz_dbf_del_records_by_msk_and_fn(p.c_str(), mask),
                  reason == QZ_DBF_DELMASK_COPY_FAILED || reason == 0 ? 0u : 1u);
        EXPECT_EQ(read_bytes(file), before);
        return reason;
    };
    EXPECT_TRUE(why(path, nullptr) == QZ_DBF_DELMASK_NO_MASK &&
                why(none, m) == QZ_DBF_DELMASK_CANNOT_OPEN);
    EXPECT_EQ(qz_dbf_del_records_by_msk_and_fn(nullptr, m), 1u);
    // A folder without tables opens neither as a table nor through OGR.
    ASSERT_EQ(::mkdir(dir.file("empty").c_str(), 0700), 0);
    EXPECT_EQ(why(dir.wfile("empty"), m), QZ_DBF_DELMASK_CANNOT_OPEN);
    // A file that is no table at all.
    qz_test::write_bytes(dir.file("junk.dbf"), {1, 2, 3});
    EXPECT_EQ(why(dir.wfile("junk.dbf"), m), QZ_DBF_DELMASK_CANNOT_OPEN);
    EXPECT_EQ(read_bytes(dir.file("junk.dbf")), (std::vector<uint8_t>{1, 2, 3}));

    // Another writer holds the table: nothing changes, and its lock stays.
    Tqz_dbf_rw* writer = qz_dbf_open_w(path.c_str(), false, false);
    EXPECT_TRUE(writer && why(path, m) == QZ_DBF_DELMASK_LOCKED && qz_test::exists(file + ".lk"));
    qz_dbf_close(writer);

    // A temporary folder that cannot be written: the table is untouched.
    Temp_folder bad(dir.path() + "/no/such/folder");
    EXPECT_TRUE(why(path, m) == QZ_DBF_DELMASK_COPY_FAILED && !qz_test::exists(file + ".lk"));
    qz_bits_destroy(m);
}

// Random masks on loaded tables against the records kept by hand: one undo
// step each, undone and redone twice; a null mask changes nothing and says
// so, an empty one is a step; the file is never touched. Any value but 0
// sets a bit; zeros are counted over the set's size, which only grows.
TEST(DeleteByMask, MemoryTableLosesRecordsAsOneUndoableStep) {
    Iqz_history_manager* hm = qz_history_manager_get_instance();
    qz_test::Temp_dir dir;
    std::mt19937 rng(12345);
    for (int round = 0; round < 30; ++round) {
        SCOPED_TRACE(round);
        const unsigned n = rng() % 40;
        const std::wstring path = dir.wfile(std::to_string(round) + ".dbf");
        make_numbered(path, n);
        const std::vector<uint8_t> on_disk = read_bytes(dir.file(std::to_string(round) + ".dbf"));
        const Rows all = cells(path);
        Tqz_dbf_memory* t = qz_dbf_mem_load_w(path.c_str());
        qz_history_manager_clear(hm);
        Rows want;
        void* mask = qz_bits_create();
        unsigned dropped = 0;
        for (unsigned r = 0; r < n + 5; ++r) {  // some bits past the last record
            const int drop = rng() % 3 == 0 ? (int(r % 5) - 2) | 1 : 0;
            if (drop) qz_bits_set_bit(mask, r, drop), ++dropped;
            if (r < n && !drop) want.push_back(all[r]);
        }
        qz_bits_set_bit(mask, n + 9, 1);
        qz_bits_set_bit(mask, n + 9, 0);
        EXPECT_EQ(qz_bits_get_val_count(mask, 7) + qz_bits_get_bit(mask, 0xFFFFFFFFu), dropped);
        EXPECT_EQ(qz_bits_get_val_count(mask, 0), n + 10 - dropped);
        ASSERT_EQ(qz_dbf_del_records_by_msk_and_fn(path.c_str(), mask), 0u);
        for (int twice = 0; twice < 2; ++twice)
            ASSERT_TRUE(cells(path) == want && qz_history_manager_undo(hm) && cells(path) == all &&
                        qz_history_manager_redo(hm));
        EXPECT_TRUE(qz_dbf_del_records_by_msk_and_fn(path.c_str(), nullptr) == 1u &&
                    qz_history_manager_get_undo_count(hm) == 1u);
        void* empty = mask_of({});
        EXPECT_TRUE(qz_dbf_del_records_by_msk_and_fn(path.c_str(), empty) == 0u &&
                    qz_history_manager_get_undo_count(hm) == 2u && cells(path) == want);
        for (void* b : {mask, empty}) qz_bits_destroy(b);
        qz_dbf_mem_free(t);
        EXPECT_EQ(read_bytes(dir.file(std::to_string(round) + ".dbf")), on_disk);
    }
    qz_history_manager_clear(hm);
}

}  // namespace
