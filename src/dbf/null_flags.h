// Visual FoxPro null flags: a hidden field "_NullFlags" (type '0') whose
// bits, from the lowest bit of its first byte on, belong in field order to
// the varying-length fields (V, Q: set when the value is shorter than the
// field, its length then in the field's last byte) and to the nullable
// fields (descriptor flag 0x02: set when the value is null). A varying
// field that is also nullable has its length bit first, then its null bit.
#pragma once

#include <vector>

class Tqz_dbf_basic;

namespace qz::dbf {

class null_flags {
  public:
    // The layout of a table's flags; none when the table has no flags field.
    void read_layout(Tqz_dbf_basic& table);
    bool present() const { return flags_field >= 0; }
    unsigned int field() const { return static_cast<unsigned int>(flags_field); }
    // The bit of a field, -1 when it has none.
    int null_bit(unsigned int f) const { return f < null_bits.size() ? null_bits[f] : -1; }
    int length_bit(unsigned int f) const { return f < length_bits.size() ? length_bits[f] : -1; }
    // Bit `bit` of a record's flags; false when the flags field lacks it,
    // and for flags that are all blanks (a record blanked by a writer that
    // knows no flags).
    bool get(Tqz_dbf_basic& table, unsigned int record, int bit) const;
    // Sets or clears bit `bit` of a record's flags; false when it cannot.
    bool set(Tqz_dbf_basic& table, unsigned int record, int bit, bool on) const;

  private:
    int flags_field = -1;
    std::vector<int> null_bits, length_bits;
};

}  // namespace qz::dbf
