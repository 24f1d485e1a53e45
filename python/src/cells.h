// Cell values of an open table converted by field type, one cell at a time:
// N and F to int or float, D to datetime.date, L to bool or None, I to int,
// B to float, C to str, M to the memo's text. Text crosses the C interface
// as UTF-8 (the module sets that code page when it is imported).
#pragma once

#include <pybind11/pybind11.h>

#include <qzk_file_dbf.h>
#include <qzk_file_dbf_ext.h>

#include <cstdint>
#include <string>
#include <vector>

namespace qzpy {

struct field_info {
    std::string name;
    char type = 'C';
    unsigned length = 0;
    int decimals = 0;
};

std::vector<field_info> read_fields(Tqz_dbf_rw* table);

// The Python codec name of the table's text: "utf-8", "cp866" or "cp1251".
std::string table_encoding(Tqz_dbf_rw* table);

// Parsed forms shared by the cell reader and the column reader.
enum class number_kind { blank, integer, real };
struct number {
    number_kind kind = number_kind::blank;
    int64_t integer = 0;
    double real = 0.0;
};
// An N cell's text (leading blanks already removed by the library).
number parse_number(const char* text);
// Days since 1970-01-01 of a "YYYYMMDD" text; false when it is no date.
bool parse_date(const char* text, int64_t& days);
void civil_from_days(int64_t days, int& year, int& month, int& day);
int64_t days_from_civil(int year, int month, int day);
// Text without its trailing blanks, as a str (bad UTF-8 replaced).
pybind11::str text_value(const char* text);
// The memo of an M cell decoded with the table's encoding; None without one.
pybind11::object memo_value(Tqz_dbf_rw* table, unsigned field, unsigned record,
                            const std::string& encoding);

// The typed value of a cell (qz_dbf_get_value): None, bool, int, float,
// decimal.Decimal (N and F with decimals, and Y, when `decimals`),
// datetime.date, datetime.datetime, str or bytes.
pybind11::object get_cell(Tqz_dbf_rw* table, const field_info& field, unsigned index,
                          unsigned record, bool decimals);
// Writes `value` (None blanks the cell); throws InvalidValue for what the
// field cannot hold.
void set_cell(Tqz_dbf_rw* table, const field_info& field, unsigned index, unsigned record,
              const pybind11::handle& value, const std::string& encoding);

}  // namespace qzpy
