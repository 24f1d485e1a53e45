#include "dbf/null_flags.h"

#include <string>

#include "dbf/basic_table.h"

namespace qz::dbf {

void null_flags::read_layout(Tqz_dbf_basic& table) {
    flags_field = -1;
    null_bits.assign(table.get_nf(), -1);
    length_bits.assign(table.get_nf(), -1);
    const uint8_t version = table.get_header()[0];
    if (version != 0x30 && version != 0x31 && version != 0x32) return;
    int bit = 0;
    for (unsigned int f = 0; f < table.get_nf(); ++f) {
        const char type = table.get_field_letter(f);
        if (type == '0') {
            if (flags_field < 0) flags_field = static_cast<int>(f);
            continue;
        }
        if (type == 'V' || type == 'Q') length_bits[f] = bit++;
        if (table.get_field_flags(f) & 0x02) null_bits[f] = bit++;
    }
    // Bits past the flags field's bytes belong to no one.
    const int room = flags_field < 0 ? 0 : 8 * table.get_field_flen(field());
    for (auto* bits : {&null_bits, &length_bits})
        for (int& b : *bits)
            if (b >= room) b = -1;
}

bool null_flags::get(Tqz_dbf_basic& table, unsigned int record, int bit) const {
    if (flags_field < 0 || bit < 0) return false;
    const auto* p = reinterpret_cast<const unsigned char*>(
        table.get_string(flags_field, static_cast<int>(record)));
    // Flags all blanks come from writers that blank every field of a new
    // record: no flag is set there.
    const unsigned n = table.get_field_flen(field());
    unsigned blanks = 0;
    while (blanks < n && p[blanks] == ' ') ++blanks;
    if (blanks == n) return false;
    return (p[bit / 8] >> (bit % 8)) & 1;
}

bool null_flags::set(Tqz_dbf_basic& table, unsigned int record, int bit, bool on) const {
    if (flags_field < 0 || bit < 0) return false;
    const unsigned n = table.get_field_flen(field());
    std::string bytes(table.get_string(flags_field, static_cast<int>(record)), n);
    const auto mask = static_cast<unsigned char>(1u << (bit % 8));
    auto& byte = reinterpret_cast<unsigned char&>(bytes[static_cast<size_t>(bit / 8)]);
    byte = static_cast<unsigned char>(on ? byte | mask : byte & ~mask);
    return table.set_cell_bytes(field(), record, bytes.data(), n);
}

}  // namespace qz::dbf
