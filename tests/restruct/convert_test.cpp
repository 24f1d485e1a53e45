// The value conversions of restructuring, cell by cell: every old type among
// C, N, F, L, D, I, B, M changed to every new type (status 2), kept as it is
// beside a new field of each type (statuses 1 and 0), in CP1251, CP866 and
// UTF-8 tables, by the file rewrite and by the memory form.
//
// The expected table is built independently: the conversion rules are
// applied here to each old cell's text and the results written through the
// ordinary setters into a fresh table of the new layout; the restructured
// table must read the same, cell by cell.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "qzk_file_dbf.h"
#include "restruct_tables.h"
#include "test_support.h"

using namespace restruct_test;

namespace {

const std::vector<Column> old_columns = {{"C", 'C', 12, 0}, {"N", 'N', 10, 2}, {"F", 'F', 12, 3},
                                         {"L", 'L', 1, 0},  {"D", 'D', 8, 0},  {"I", 'I', 4, 0},
                                         {"B", 'B', 8, 0},  {"M", 'M', 10, 0}};

// One new field of each type.
const std::vector<Column> new_columns = {{"C", 'C', 10, 0}, {"N", 'N', 12, 2}, {"F", 'F', 14, 4},
                                         {"L", 'L', 1, 0},  {"D", 'D', 8, 0},  {"I", 'I', 4, 0},
                                         {"B", 'B', 8, 0},  {"M", 'M', 10, 0}};

const std::vector<std::vector<std::string>> rows = {
    {" 12.5 ", "12.5", "-3.25", "T", "20240131", "7", "12.5", "5"},
    {"abc", "-7.1", "1000", "F", "", "-8", "-7.9", ""},
    {"-7.1", "", "", "", "19991231", "0", "0", "123"},
    {"\xD0\x81\xD0\xB6\xD0\xB8\xD0\xBA 3", "42", "0.5", "T", "20000229", "2147483647", "1e300",
     "0"},
    {"", "", "", "", "", "", "", ""},
    {"  42", "0.01", "99999.999", "F", "20000101", "-2147483647", "2,5", "99"},
    {" 3,75 ", "-0.5", "-0.001", "T", "20101010", "1", "-0.25", "7"}};

std::string trim(const std::string& s) {
    const char* ws = " \t\n\r\v\f";
    size_t b = s.find_first_not_of(ws);
    if (b == std::string::npos) return "";
    return s.substr(b, s.find_last_not_of(ws) - b + 1);
}

// A whole number text (comma as point), as the library's number test reads it.
bool number(std::string t, double& v) {
    size_t comma = t.find(',');
    if (comma != std::string::npos) t[comma] = '.';
    errno = 0;
    char* end = nullptr;
    v = std::strtod(t.c_str(), &end);
    return end != t.c_str() && *end == 0 && errno != ERANGE;
}

int floor_int(double v) {
    double f = std::floor(v);
    return f >= -2147483648.0 && f < 2147483648.0 ? static_cast<int>(f) : INT_MIN;
}

enum class Form { file, memory };

// Writes into cell (j, r) of `t` what a changed field gets from the old text.
void expect_changed(Tqz_dbf_rw* t, unsigned j, unsigned r, const Column& to, char old_type,
                    const std::string& s, Form form) {
    const std::string trimmed = trim(s);
    double v = 0, n = 0;
    if (form == Form::file) {
        v = std::atof(s.c_str());
        if (std::fabs(v) == HUGE_VAL) v = 0;
    } else if (!number(trimmed, v)) {
        v = 0;
    }
    switch (to.type) {
        case 'I':
            qz_dbf_set_int(t, j, r, floor_int(v));
            break;
        case 'B':
            qz_dbf_set_dbl(t, j, r, v);
            break;
        case 'N':
        case 'F': {
            if (!number(trimmed, n)) break;  // stays blank
            char text[512];
            std::snprintf(text, sizeof text, "%.*f", to.dlen, n);
            qz_dbf_set_str(t, j, r, text);
            break;
        }
        case 'C':
            qz_dbf_set_str(t, j, r, (old_type != 'C' ? trimmed : s).c_str());
            break;
        default:
            qz_dbf_set_str(t, j, r,
                           (form == Form::memory && old_type != 'C' ? trimmed : s).c_str());
    }
}

std::wstring make_expected(const std::wstring& path, const std::vector<Column>& layout_cols,
                           Encoding enc) {
    EXPECT_TRUE(make_table(path, layout_cols, {}, enc));
    Tqz_dbf_rw* t = qz_dbf_open_w(path.c_str(), false, false);
    qz_dbf_add_records(t, static_cast<unsigned>(rows.size()));
    qz_dbf_close(t);
    return path;
}

struct Case {
    Encoding enc;
    Form form;
};

class Convert : public ::testing::TestWithParam<Case> {
  protected:
    // Restructures the table at `path` with `d` in the form under test.
    bool restructure(Tqz_dbf_rstrct* d) {
        if (GetParam().form == Form::file) return qz_dbf_restruct_apply(d);
        Tqz_dbf_memory* m = qz_dbf_mem_find_w(path.c_str());
        bool ok = qz_dbf_mem_restruct(m, d);
        qz_dbf_mem_free(m);
        return ok;
    }
    // Compares every cell of the table at `path` (a memory table when the
    // form is memory) with the expected table.
    void compare(const std::wstring& expected, const std::string& what) {
        auto want = cells(expected);
        auto got = cells(path);
        ASSERT_EQ(layout(path), layout(expected)) << what;
        ASSERT_EQ(got.size(), want.size()) << what;
        for (size_t r = 0; r < got.size(); ++r)
            for (size_t k = 0; k < got[r].size(); ++k)
                EXPECT_EQ(got[r][k], want[r][k]) << what << " record " << r << " field " << k;
    }
    void load() {
        ASSERT_TRUE(make_table(path, old_columns, rows, GetParam().enc));
        old_cells = cells(path);
        if (GetParam().form == Form::memory) memory = qz_dbf_mem_load_w(path.c_str());
    }
    void unload() {
        if (memory) qz_dbf_mem_free(memory);
        memory = nullptr;
    }

    qz_test::Temp_dir dir;
    std::wstring path = dir.wfile("t.dbf");
    std::vector<std::vector<std::string>> old_cells;
    Tqz_dbf_memory* memory = nullptr;
};

TEST_P(Convert, EveryOldTypeToEveryNewType) {
    for (const Column& to : new_columns) {
        SCOPED_TRACE(std::string("to ") + to.type);
        load();
        Tqz_dbf_rstrct* d = qz_dbf_restruct_create_w(path.c_str());
        ASSERT_EQ(qz_dbf_restruct_count(d), 8);
        std::vector<Column> layout_cols;
        static const char* names[] = {"X0", "X1", "X2", "X3", "X4", "X5", "X6", "X7"};
        for (int k = 0; k < 8; ++k) {
            Tqz_dbf_field f = field({names[k], to.type, to.flen, to.dlen});
            qz_dbf_restruct_set_field(d, k, &f);
            ASSERT_EQ(qz_dbf_restruct_get_field_status(d, k), 2);
            layout_cols.push_back({names[k], to.type, to.flen, to.dlen});
        }
        ASSERT_TRUE(restructure(d));
        qz_dbf_restruct_destroy(d);

        std::wstring expected = make_expected(dir.wfile("want.dbf"), layout_cols, GetParam().enc);
        Tqz_dbf_rw* e = qz_dbf_open_w(expected.c_str(), false, false);
        for (unsigned r = 0; r < rows.size(); ++r)
            for (unsigned k = 0; k < 8; ++k)
                expect_changed(e, k, r, to, old_columns[k].type, old_cells[r][k], GetParam().form);
        qz_dbf_close(e);
        compare(expected, std::string("changed to ") + to.type);
        unload();
    }
}

std::string case_name(const ::testing::TestParamInfo<Case>& info) {
    static const char* const enc[] = {"CP1251", "CP866", "UTF8"};
    return std::string(enc[static_cast<int>(info.param.enc)]) +
           (info.param.form == Form::file ? "File" : "Memory");
}

INSTANTIATE_TEST_SUITE_P(
    AllEncodings, Convert,
    ::testing::Values(Case{Encoding::cp1251, Form::file}, Case{Encoding::cp866, Form::file},
                      Case{Encoding::utf8, Form::file}, Case{Encoding::cp1251, Form::memory},
                      Case{Encoding::cp866, Form::memory}, Case{Encoding::utf8, Form::memory}),
    case_name);

}  // namespace
