// Cells of a table handle read as typed values: the table's layout, its
// encoding and its null flags looked up once and kept with the handle (as
// long as the table, its fields and its encoding stay the same), the cells
// of a record taken from one read of the record.
#pragma once

#include <string>
#include <vector>

#include "api/table_rw.h"
#include "dbf/null_flags.h"
#include "encoding/fast_convert.h"
#include "qzk_file_dbf_ext.h"

class Tqz_dbf_basic;
class Tqz_dbf_disk;
class Tqz_dbf_memory_core;

namespace qz::api {

class cell_reader {
  public:
    // The handle's reader, made or made again when the table, its fields or
    // its encoding changed; null, with the last error, when the handle has
    // no table whose cells read as typed values. Each call of an export
    // takes it anew (cells are read again from the table).
    static cell_reader* of(Tqz_dbf_rw* h);

    Tqz_dbf_basic* basic() const { return table; }
    const std::string& encoding() const { return encoding_name; }

    // Reads a cell into `v`, appending its text (UTF-8 or bytes) to `out`
    // and setting `v.length`; `v.text` is left for the caller to point at
    // where the text is kept. False, with the last error, when there is no
    // such cell.
    bool read(unsigned int field, unsigned int record, Tqz_dbf_value& v, std::string& out);

    // Text in the table's encoding to UTF-8 (appended to `out`), and back
    // (`ok` false when a character has no place in the table's encoding).
    void append_utf8(const char* raw, size_t n, std::string& out);
    std::string from_utf8(const std::string& text, bool& ok);

    // Where the record and column reads keep their texts' offsets.
    std::vector<size_t> text_at;

  private:
    explicit cell_reader(Tqz_dbf_rw* h, Tqz_dbf_basic* b, const std::string& encoding,
                         std::string signature);
    // The bytes of a cell: in the record image (read once per record), or
    // copied into `buf`; `n` their count.
    const unsigned char* cell_bytes(unsigned int field, unsigned int record, unsigned& n,
                                    unsigned char* buf);
    bool is_null(unsigned int field, unsigned int record, const unsigned char* image);

    Tqz_dbf_rw* handle;
    Tqz_dbf_basic* table;
    std::string encoding_name;
    std::string signature;  // the fields' types, lengths and flags, the record length
    bool utf8 = false;
    bool ascii_same = false;     // ASCII text reads the same in the encoding
    unsigned int code_page = 0;  // for the table-driven converter; 0: through iconv
    bool visual_foxpro = false;
    bool dbase7 = false;  // version 0x04 or 0x8C: I, +, O and @ big-endian
    qz::dbf::null_flags nulls;
    // Field offsets and widths within the record image (character fields
    // over 255 bytes, FoxPro and Clipper: the length's high byte in the
    // decimals byte, taken when the header's record length agrees).
    std::vector<unsigned int> offset, width;
    std::vector<char> letter;
    bool use_image = false;  // the storage gives whole record images
    Tqz_dbf_disk* disk = nullptr;
    Tqz_dbf_memory_core* core = nullptr;
    qz::strconv::text_converter converter;
    qz::strconv::text_buffer converted;
    std::vector<unsigned char> image;
    unsigned int image_record = ~0u;
};

}  // namespace qz::api
