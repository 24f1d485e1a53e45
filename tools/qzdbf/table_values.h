// Reading a table's cells as typed values for export and stats.
#pragma once

#include <string>

#include "qzk_file_dbf_ext.h"

namespace qzdbf {

// The kind of values a field holds, from its type letter, length and
// decimals: what export makes of it in another format.
enum class Value_class { text, integer, real, logical, date, datetime, bytes };
Value_class value_class(Tqz_dbf_rw* table, unsigned int field);

// A value as text: numbers as stored (or %.15g), dates YYYY-MM-DD,
// datetimes YYYY-MM-DDTHH:MM:SS[.mmm]Z, logicals T/F, bytes "<N bytes>",
// null as "".
std::string value_text(const Tqz_dbf_value& v);

// The type letter of a field as the header holds it ('?' when unknown to
// the classic interface).
char field_letter(Tqz_dbf_rw* table, unsigned int field);

// Splits days since 1970-01-01 into a civil date.
void civil_from_days(long long days, int& y, unsigned& m, unsigned& d);

}  // namespace qzdbf
