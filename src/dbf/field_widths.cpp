#include "dbf/field_widths.h"

#include "dbf/basic_table.h"

namespace qz::dbf {

field_widths widths_of(Tqz_dbf_basic& b) {
    field_widths out;
    const uint8_t version = b.get_header()[0];
    const bool visual_foxpro = version == 0x30 || version == 0x31 || version == 0x32;
    const unsigned int nf = b.get_nf();
    unsigned long at = 0;
    for (unsigned int f = 0; f < nf; ++f) {
        unsigned int w = b.get_field_flen(f);
        const auto high = static_cast<unsigned char>(b.get_field_dlen(f));
        if (b.get_field_letter(f) == 'C' && high != 0 && !visual_foxpro) {
            w += 256u * high;
            out.wide = true;
        }
        out.offset.push_back(static_cast<unsigned int>(at));
        out.width.push_back(w);
        at += w;
    }
    if (out.wide && at + 1 != b.get_record_length()) {
        // The header does not confirm the long fields: the length bytes.
        out.wide = false;
        at = 0;
        for (unsigned int f = 0; f < nf; ++f) {
            out.width[f] = b.get_field_flen(f);
            out.offset[f] = static_cast<unsigned int>(at);
            at += out.width[f];
        }
    }
    return out;
}

}  // namespace qz::dbf
