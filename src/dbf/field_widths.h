// Field widths as a record holds them. FoxPro and Clipper keep character
// fields longer than 255 bytes with the length's high byte in the decimals
// byte; the classic descriptor keeps the low byte only. The wide reading is
// taken only when the header's record length confirms it (1 + the sum of
// the widths), and never for Visual FoxPro tables (their C fields use the
// decimals byte for nothing of the kind but are never wider than 254).
#pragma once

#include <vector>

class Tqz_dbf_basic;

namespace qz::dbf {

struct field_widths {
    // Per field: its width, and its offset in the record after the
    // deletion flag (the first field at 0).
    std::vector<unsigned int> width, offset;
    bool wide = false;  // some C field is wider than its length byte says
};

field_widths widths_of(Tqz_dbf_basic& table);

// Where the bytes of `field` lie in a record by the widths above: `offset`
// counted from the record's deletion flag (the first field at 1) and
// `width`. The cells written through set_cell_bytes and read through
// get_cell_bytes lie there, where the typed reads find them. False when
// there is no such field.
bool field_span(Tqz_dbf_basic& table, unsigned int field, unsigned int& offset,
                unsigned int& width);

}  // namespace qz::dbf
