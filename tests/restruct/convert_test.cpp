// The value conversions of restructuring, cell by cell: every old type among
// C, N, F, L, D, I, B, M changed to every new type (status 2), in CP1251,
// CP866 and UTF-8 tables, by the file rewrite and by the memory form.
//
// The expected table is built independently: the conversion rules are
// applied here to each old cell's text and the results written through the
// ordinary setters into a fresh table of the new layout; the restructured
// table must read the same, cell by cell.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cmath>

#include "restruct_tables.h"

using namespace restruct_test;

namespace {

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

using Case = std::tuple<Encoding, Form>;
class Convert : public ::testing::TestWithParam<Case> {};

TEST_P(Convert, EveryOldTypeToEveryNewType) {
    const auto [enc, form] = GetParam();
    qz_test::Temp_dir dir;
    const std::wstring path = dir.wfile("t.dbf"), expected = dir.wfile("want.dbf");
    for (const Column& to : new_columns) {
        SCOPED_TRACE(std::string("to ") + to.type);
        ASSERT_TRUE(make_table(path, old_columns, rows, enc));
        const Rows old_cells = cells(path);
        Tqz_dbf_memory* memory = form == Form::memory ? qz_dbf_mem_load_w(path.c_str()) : nullptr;
        Tqz_dbf_rstrct* d = qz_dbf_restruct_create_w(path.c_str());
        std::vector<Column> layout_cols(8, {"X", to.type, to.flen, to.dlen});
        for (int k = 0; k < 8; ++k) {
            Tqz_dbf_field f = field(layout_cols[k]);
            f.name[1] = char('0' + k);
            qz_dbf_restruct_set_field(d, k, &f);
            ASSERT_EQ(qz_dbf_restruct_get_field_status(d, k), 2);
        }
        ASSERT_TRUE(memory ? qz_dbf_mem_restruct(memory, d) : qz_dbf_restruct_apply(d));
        qz_dbf_restruct_destroy(d);
        // The expected table: the old cells converted here, written into a
        // table of the new layout through the ordinary setters.
        ASSERT_TRUE(make_table(expected, layout_cols, Rows(rows.size()), enc));
        Tqz_dbf_rw* e = qz_dbf_open_w(expected.c_str(), false, false);
        for (unsigned k = 0; k < 8; ++k) {
            qz_dbf_set_field_name(e, k, ("X" + std::to_string(k)).c_str());
            for (unsigned r = 0; r < rows.size(); ++r)
                expect_changed(e, k, r, to, old_columns[k].type, old_cells[r][k], form);
        }
        qz_dbf_close(e);
        EXPECT_EQ(layout(path), layout(expected));
        EXPECT_EQ(cells(path), cells(expected));
        qz_dbf_mem_free(memory);
    }
}

std::string case_name(const ::testing::TestParamInfo<Case>& info) {
    static const char* const enc[] = {"CP1251", "CP866", "UTF8"};
    return std::string(enc[int(std::get<0>(info.param))]) +
           (std::get<1>(info.param) == Form::file ? "File" : "Memory");
}
INSTANTIATE_TEST_SUITE_P(AllEncodings, Convert,
                         ::testing::Combine(::testing::Values(Encoding::cp1251, Encoding::cp866,
                                                              Encoding::utf8),
                                            ::testing::Values(Form::file, Form::memory)),
                         case_name);

}  // namespace
