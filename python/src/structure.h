// Table layout and memory tables from Python: restructuring over the
// qz_dbf_restruct_* calls, the field-name checks and repairs, and the undo
// history of memory tables.
#pragma once

#include "table.h"

#include <pybind11/pybind11.h>

#include <string>

namespace qzpy {

// Gives the table the fields of `layout` (see Table.restructure), keeping
// its records; the table's fields are read again afterwards.
void restructure(table& t, const pybind11::list& layout);

// The field-name rules: whether `name` is valid, and its repair.
bool field_name_ok(const std::string& name);
std::string fix_field_name(const std::string& name);
// Every invalid name repaired, then names equal to an earlier one (any
// letter case) numbered.
pybind11::list fix_field_names(const pybind11::list& names);

// The process's undo history of memory tables.
bool history_undo();
bool history_redo();
bool history_can_undo();
bool history_can_redo();
void history_clear();

}  // namespace qzpy
