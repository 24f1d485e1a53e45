// Cells of a table handle read as typed values: the table, its encoding
// and its null flags looked up once, then any number of cells read.
#pragma once

#include <string>
#include <vector>

#include "api/table_rw.h"
#include "dbf/null_flags.h"
#include "qzk_file_dbf_ext.h"

class Tqz_dbf_basic;

namespace qz::api {

class cell_reader {
  public:
    // Records the last error and is not usable (ok() false) when the handle
    // has no table whose cells read as typed values.
    explicit cell_reader(Tqz_dbf_rw* h);
    bool ok() const { return table != nullptr; }
    Tqz_dbf_basic* basic() const { return table; }
    const std::string& encoding() const { return encoding_name; }

    // Reads a cell into `v`, its text (UTF-8 or bytes) into `text`; `v.text`
    // is left for the caller to point at where the text is kept. False, with
    // the last error, when there is no such cell.
    bool read(unsigned int field, unsigned int record, Tqz_dbf_value& v, std::string& text);

    // Text in the table's encoding to UTF-8, and back (`ok` false when a
    // character has no place in the table's encoding).
    std::string to_utf8(const char* raw, size_t n);
    std::string from_utf8(const std::string& text, bool& ok);

  private:
    Tqz_dbf_rw* handle;
    Tqz_dbf_basic* table = nullptr;
    std::string encoding_name;
    bool utf8 = false;
    bool ascii_same = false;  // ASCII text reads the same in the encoding
    bool visual_foxpro = false;
    qz::dbf::null_flags nulls;
    // Character fields longer than 255 bytes (FoxPro, Clipper: the length's
    // high byte in the decimals byte), taken when the header's record
    // length agrees: every cell is then read from the record image at
    // these offsets and widths.
    std::vector<unsigned int> wide_offset, wide_width;
    std::vector<unsigned char> record_image;
    unsigned int image_record = ~0u;
    bool read_wide_cell(unsigned int field, unsigned int record, std::string& cell);
};

}  // namespace qz::api
