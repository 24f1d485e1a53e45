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

bool field_span(Tqz_dbf_basic& b, unsigned int field, unsigned int& offset, unsigned int& width) {
    const unsigned int nf = b.get_nf();
    if (field >= nf) return false;
    const uint8_t version = b.get_header()[0];
    bool maybe_wide = false;
    if (version != 0x30 && version != 0x31 && version != 0x32)
        for (unsigned int f = 0; f < nf && !maybe_wide; ++f)
            maybe_wide = b.get_field_letter(f) == 'C' && b.get_field_dlen(f) != 0;
    if (maybe_wide) {
        const field_widths w = widths_of(b);
        if (w.wide) {
            offset = 1 + w.offset[field];
            width = w.width[field];
            return true;
        }
    }
    // The descriptors' offsets, as the classic cell operations take them.
    offset = b.get_descriptors()[field].offset();
    width = b.get_field_flen(field);
    return true;
}

}  // namespace qz::dbf
