// Cells as the dump and get commands show them: typed values (read in the
// table's encoding) as JSON, as plain text, and text between UTF-8 and the
// terminal's encoding.
#pragma once

#include <string>

#include "qzk_file_dbf_ext.h"

namespace qzdbf {

// How a value is written as text.
enum class Text_style {
    screen,  // logical T/F, binary as "<binary, N bytes>"
    csv      // logical true/false, binary as base64
};

// A cell read as a typed value; `typed` is false where the storage gives
// no typed values (OGR's sources), `text` then holds the cell's system text.
struct Cell {
    Tqz_dbf_value value{};
    bool typed = false;
    bool found = false;  // false: no such cell, or a memo that cannot be read
    std::string text;
};

// Reads cell (`field`, `record`): typed where the storage can, else as
// system text.
Cell read_cell(Tqz_dbf_rw* table, unsigned int field, unsigned int record);

// The value as text, in UTF-8: numbers as their digits, dates YYYY-MM-DD,
// datetimes YYYY-MM-DDTHH:MM:SS.fff, null as "".
std::string value_text(const Tqz_dbf_value& value, Text_style style);
// The value as a JSON value: numbers as JSON numbers, dates and datetimes
// as above in a string, logical true/false, null, text and base64 bytes as
// strings.
std::string value_json(const Tqz_dbf_value& value);

// Whether `text` is a number as JSON writes one.
bool is_json_number(const std::string& text);
// `text` as a JSON string, quotes included.
std::string json_string(const std::string& text);
// `bytes` in base64 (RFC 4648, with padding).
std::string base64(const unsigned char* bytes, size_t length);

// UTF-8 text as system text (the terminal's encoding) and back; unchanged
// when the terminal uses UTF-8.
std::string utf8_to_system(const std::string& text);
std::string system_to_utf8(const std::string& text);

// A date "YYYY-MM-DD" from its number YYYYMMDD, and a datetime
// "YYYY-MM-DDTHH:MM:SS.fff" from milliseconds since 1970-01-01 00:00.
std::string date_text(long long yyyymmdd);
std::string datetime_text(long long milliseconds);

}  // namespace qzdbf
