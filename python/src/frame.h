// Whole columns between a table and NumPy arrays: the fast paths under
// qzdbf.read_dataframe and qzdbf.write_dataframe.
#pragma once

#include "table.h"

#include <pybind11/pybind11.h>

namespace qzpy {

// Reads the chosen columns (None: all) of the live records (or all records)
// into a list of (name, kind, values, mask) tuples: kind "float" (float64,
// NaN for blank), "int" (int64 with a bool mask of blanks), "date" (int64
// days since 1970, mask), "bool" (bool, mask), "str" (object array, mask
// None). The pandas frame is assembled from them in Python. A table read
// from its file is parsed from record images, whole chunks of records at a
// time without the GIL; `by_cells` reads every cell through the cell
// getters instead (memory and OGR tables always are).
pybind11::list read_columns(table& t, const pybind11::object& columns, bool skip_deleted,
                            bool by_cells);

// Fills a table created with the right fields from one array per field (in
// field order, as prepared by write_dataframe): "int" int64 + mask, "float"
// float64 (NaN blank), "bool" int8 (-1 blank), "date" int64 days + mask,
// "str" object array (None blank).
void write_columns(table& t, const pybind11::list& columns);

// Reads every cell of the live records through the C interface by field
// type, into C++ values only (no Python object): the baseline the
// benchmark compares read_columns with. Returns the number of cells read.
unsigned long long read_cells_c(table& t);
// The same cells from record images parsed in C++ (numbers, dates and
// logicals into C++ values, text copied as stored into a std::string): the
// floor under read_columns without any Python object. Only for tables
// whose fields all lie inside the record.
unsigned long long read_cells_images(table& t);

}  // namespace qzpy
