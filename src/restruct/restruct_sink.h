// Tqz_restruct_sink: a memory core that receives a restructured table.
//
// Both forms of restructuring build the new table here: a memory table takes
// the sink whole as its new structure (undoably); a file rewrite fills the
// sink a window of records at a time and writes each window to the new file,
// so a table of any size is rewritten in bounded memory.
//
// Values of kept fields travel in one of two ways. A field whose name, type,
// length and decimals are unchanged is copied as bytes (its text is in the
// same encoding, memo block numbers included). Any other kept field is read
// as text and converted to the new field's type; the two forms differ in
// details of that conversion, chosen by `Conversion`. Text cells are padded
// with spaces, as a table file holds them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "memory/memory_core.h"
#include "restruct/rstrct.h"

class Tqz_dbf_rstrct;

namespace qz::restruct {

// file: the rewrite of a table file (numbers for I and B parsed with atof,
// text trimmed only on the way from another type to C). memory: the memory
// form (text trimmed before parsing, parsed with to_numeric_safe, trimmed
// for any new type when it did not come from a C field).
enum class Conversion { file, memory };

}  // namespace qz::restruct

class Tqz_restruct_sink final : public Tqz_dbf_memory_core {
  public:
    Tqz_restruct_sink(Tqz_dbf_ibasic& old_table, const Tqz_dbf_rstrct& descriptor,
                      qz::restruct::Conversion conversion);

    // Lays out the descriptor's fields with room for `n_records` records
    // (written by fill; a laid-out sink must be filled before use), in the
    // old table's encoding. Names that were not changed keep the old table's
    // bytes (not cut to 10 bytes of system text). The version byte (unless
    // the old header has another layout) and the language driver byte are
    // kept.
    // A dBASE 7 table becomes dBASE III (dBASE IV with its memo file, whose
    // blocks keep their dBASE IV headers); its I, +, O and @ cells are
    // decoded and written in the new field's form (an empty cell as a blank
    // or zero one). False when the layout does not fit a table header (no
    // fields, more than 65535 bytes of header or record), memory runs out,
    // or a dBASE 7 field would go into a type that cannot take its values
    // (@ into anything but C, D or T; numbers into D, L, T or a memo; the
    // last error says which field).
    bool lay_out(unsigned int n_records);

    // Records 0..count-1 become the old table's records first..first+count-1
    // in the new layout (blank again first). Records the old table does not
    // hold stay blank.
    void fill(unsigned int first, unsigned int count);

    // The file image before the records: header (with `n_records` as the
    // record count and today's date), descriptors, terminator.
    std::vector<unsigned char> file_head(uint32_t n_records) const;

    void set_string(int field, int record, const char* text) override;

  private:
    struct Plan {
        Tdbf_fld_status status;
        int old_no;
        Tqz_dbf_field_type new_type;
        Tqz_dbf_field_type old_type;
        bool bytes;  // copied as bytes
        int decimals;
        // A dBASE 7 I, +, O or @ field of the old table: its value decoded
        // from the big-endian form and written in the new table's form.
        char dbase7_letter;
    };
    // Bytes copied from the old record straight into the new one: runs of
    // unchanged fields that lie side by side in both (a memory table only).
    struct Run {
        size_t from, to, length;
    };
    void convert(int j, const Plan& p, unsigned int dst, unsigned int src);
    void convert_dbase7(int j, const Plan& p, unsigned int dst, unsigned int src);

    Tqz_dbf_ibasic& old;
    Tqz_dbf_basic* old_dbf;  // the old table when it is a DBF table, for raw bytes
    const Tqz_dbf_rstrct& rstrct;
    qz::restruct::Conversion conversion;
    std::vector<Plan> plans;
    Tqz_dbf_memory_core* old_core;  // the old table when it is held in memory
    std::vector<Run> runs;
};
