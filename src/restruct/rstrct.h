// Tqz_dbf_rstrct: the field layout a table file is to have, entry by entry,
// each entry remembering which field of the old table it came from.
//
// A host builds a descriptor from a table (one entry per field), edits it
// (adds, inserts, removes, moves, changes fields) and applies it: a memory
// table of that path is restructured in place, a file is rewritten. The
// status of an entry (new, the same as before, changed) is never stored; it
// is worked out from the entry each time it is asked for.
//
// Indexes are checked: an index outside the entries gives the neutral
// answer (nothing done, -1, 0, a null field) rather than undefined
// behaviour.
#pragma once

#include <string>
#include <vector>

#include "qzk_basic.h"
#include "qzk_file_dbf.h"

enum Tdbf_fld_status : int32_t { dbf_fld_new = 0, dbf_fld_same = 1, dbf_fld_changed = 2 };

// One entry: the field as it is to be, the field as it was, and its index in
// the old table (-1 for a new field).
class Tqz_fld_meta {
  public:
    // `old_no` is kept only with the status dbf_fld_same; any other status
    // makes a new field.
    Tqz_fld_meta(const Tqz_dbf_field& f, int status, int old_number);

    std::string get_name() const;
    // The first 10 bytes of `name` become the field's name.
    void set_name(const std::string& name);
    Tdbf_fld_status get_status() const;
    int get_old_no() const { return old_no; }
    Tqz_dbf_field& get_field() { return field; }
    const Tqz_dbf_field& get_field() const { return field; }
    const Tqz_dbf_field& get_old_field() const { return old_field; }
    void set_field(const Tqz_dbf_field& f);

  private:
    Tqz_dbf_field field;
    Tqz_dbf_field old_field;
    int32_t old_no;
};

namespace qz::restruct {
class Progress_report;
}

class Tqz_dbf_rstrct {
  public:
    Tqz_dbf_rstrct() = default;
    // With `load`, starts with one unchanged entry per field of the table.
    Tqz_dbf_rstrct(const std::wstring& table_path, bool load);

    const std::wstring& get_path() const { return path; }

    // Appends one entry per field of the table at `table_path` (nothing when
    // it does not open); with status dbf_fld_same they keep their origin,
    // otherwise they are new.
    void add_fields(const std::wstring& table_path, int status);
    int count() const { return static_cast<int>(fields.size()); }
    // Appends an entry; returns its index.
    int add_field(const Tqz_dbf_field& f, int status, int old_number);
    int add_field(const std::string& name, Tqz_dbf_field_type type, unsigned char flen,
                  signed char dlen);
    // Appends the `n` fields of the array as new entries (n < 1: nothing).
    void add_fields(const Tqz_dbf_field* array, int n);
    // Inserts before `idx` (0..count(); outside: nothing, false).
    bool insert_field(int idx, const Tqz_dbf_field& f, int status, int old_number);
    bool insert_field(int idx, const std::string& name, Tqz_dbf_field_type type, unsigned char flen,
                      signed char dlen);
    void remove_field(int idx);
    // Removes the first entry whose name is exactly `name` (letter case
    // counts); nothing when none is.
    void remove_field(const Tqz_dbf_field& f);
    void remove_field(const std::string& name);
    // Moves entry `from` so that it ends at index `to`.
    void move_field(int from, int to);
    // The entry's current field, or null for an index outside the entries.
    // The pointer is valid until the entries change.
    Tqz_dbf_field* get_field(int idx);
    void set_field(int idx, const Tqz_dbf_field& f);
    // dbf_fld_new for an index outside the entries.
    Tdbf_fld_status get_field_status(int idx) const;
    // -1 for an index outside the entries.
    int get_field_old_no(int idx) const;
    // The old field as the table file has it now (the file is opened for
    // each call): 0 for a new entry or a table that does not open.
    Tqz_dbf_field_type get_old_type(int idx) const;
    unsigned int get_old_flen(int idx) const;
    // Feeds the old field's name (wide) to `out`; nothing for a new entry.
    void get_old_name(int idx, Iqz_string_adp* out) const;
    // Whether the table file opens (read-only).
    bool is_dbf_writeble() const;
    // Gives the table the descriptor's layout (restruct_apply.cpp);
    // `progress`, when given, hears how many records the rewrite of a table
    // file has been through, and may stop it (the file is then unchanged).
    bool apply_restruct(qz::restruct::Progress_report* progress = nullptr);

    const std::vector<Tqz_fld_meta>& entries() const { return fields; }

  private:
    bool valid(int idx) const { return idx >= 0 && idx < count(); }

    std::wstring path;
    std::vector<Tqz_fld_meta> fields;
};

namespace qz::restruct {
// A field descriptor: `name` cut to at most 10 bytes (never inside a UTF-8
// character when the system text is UTF-8), the type letter, length and
// decimals.
Tqz_dbf_field make_field(const char* name, char type, unsigned char flen, signed char dlen);
}  // namespace qz::restruct
