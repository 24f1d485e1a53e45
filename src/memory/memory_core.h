// Tqz_dbf_memory_core: a DBF table held wholly in memory. The file is read
// once into a record store; reads and writes go to the store, and nothing
// reaches the disk until save. While a table is loaded its writer lock
// "<file>.lk" is held, so no other process (or handle) can load it or open
// it for writing.
//
// The raw cell operations take the field index first, then the record
// index. They convert nothing: text is stored as given, numbers as their
// binary images. Cells outside the table, or field bytes outside a record,
// are neither read nor written (a read gives zeros or the empty text).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "dbf/basic_table.h"
#include "support/fileio.h"

class Tqz_dbf_notifier;
class Tqz_dbf_records;

class Tqz_dbf_memory_core : public Tqz_dbf_basic {
  public:
    Tqz_dbf_memory_core();
    ~Tqz_dbf_memory_core() override;

    // Holders of the table, counted for the registry of memory tables.
    void add_reference() { ++ref_count; }
    void del_reference() { --ref_count; }
    int get_reference() const { return ref_count; }

    const wchar_t* get_filename() const { return filename.c_str(); }
    // Names the table: takes the notifier of `name` in place of the one held.
    void set_filename(const wchar_t* name);

    // The one-field table: "ID", N, 10, 0, no records.
    bool init();
    // A new empty structure of `nf` fields with `nr` records of spaces; the
    // flag is not used. False (and no fields, no records) when `fields` is
    // missing or memory runs out.
    bool create_new(unsigned int nf, unsigned int nr, Tqz_dbf_field* fields, bool flag);
    // Reads the file get_filename(): takes its lock first and fails while
    // another holds it, or when the file cannot be opened or memory runs out.
    bool load();
    // Writes header, descriptors, records and the .cpg file to `path`; no
    // memo file. The header's date becomes today's. The bytes the loaded
    // file's header held after the descriptors' terminator follow it again
    // (a Visual FoxPro table always gets its 263-byte back link, zeros when
    // none was read), and the header length counts them. False for dBASE 7
    // tables and for headers longer than 65535 bytes.
    bool save();
    bool save(const wchar_t* path);
    bool save(const char* path);
    // With `keep`, saves leave the .cpg file beside the table as it is.
    void keep_cpg(bool keep) { cpg_kept = keep; }
    // Releases the lock (and removes the lock file); the records stay.
    void close() override;

    // Update brackets and one update on the table's notifier.
    void begin_update();
    void end_update();
    void update();
    Tqz_dbf_notifier* get_notifier() const { return notifier; }

    // Appends `n` records through the virtual add.
    void add_records(unsigned int n) override;
    // A core is restructured by whoever owns it; nothing to do here.
    bool restruct(void*) override { return true; }

    const char* get_string(int field, int record) override;
    int get_integer(int field, int record) override;
    float get_float(int field, int record) override;
    double get_double(int field, int record) override;
    // Spaces over the field, then `text` cut at the field length; a shorter
    // text is followed by zero bytes.
    void set_string(int field, int record, const char* text) override;
    void set_integer(int field, int record, int value) override;
    void set_float(int field, int record, float value) override;
    void set_double(int field, int record, double value) override;

    // Appends a record of spaces. The header's record count goes one down
    // (the memory table's add counts it up instead).
    virtual bool add();
    // Inserts a record of spaces at `i`; beyond the last record nothing
    // changes.
    virtual bool ins(unsigned int i);
    // Removes record `i`; beyond the last record nothing changes.
    virtual bool del(unsigned int i);
    // The header's record length.
    virtual unsigned int get_record_size();
    // The record length's worth of bytes from the first field on: the
    // record without its deletion flag, then the next record's flag (0x1A
    // after the last record), as a file holds them.
    virtual void get_record(unsigned int record, unsigned char* dst);
    // Writes such an image back; what lies past the record is not written.
    virtual bool set_record(unsigned int record, unsigned char* src);

    bool has_record(unsigned int record) override;
    int get_deleted(unsigned int record) override;
    // Writes the flag at once (the memory table makes it a step of its
    // history).
    bool set_deleted(unsigned int record, bool deleted) override;
    bool set_cell_bytes(unsigned int field, unsigned int record, const void* bytes,
                        size_t n) override;
    bool get_cell_bytes(unsigned int field, unsigned int record, std::string& out) override;

    // Exchanges header, fields and records with `other`; names, locks,
    // notifiers, counts, memo files and the bytes after the descriptors
    // (the back link) stay where they are.
    void swap_structure(Tqz_dbf_memory_core* other);

    Tqz_dbf_records* get_records() const { return records; }
    bool holds_lock() const { return lock_file.win.is_open(); }

  protected:
    void set_record_count(uint32_t n);
    // Where the bytes of a cell lie: the record's bytes from the field's
    // offset, and how many of them the record holds (at most `want`).
    // Null for a cell outside the table.
    unsigned char* cell(int field, int record, size_t want, size_t& avail);
    unsigned int field_length(int field);
    // Where set_cell_bytes and get_cell_bytes find a cell: its bytes by the
    // field's whole width (qz::dbf::field_span), and how many of them the
    // record holds. Null for a cell outside the table.
    unsigned char* cell_span(unsigned int field, unsigned int record, size_t& avail);

  private:
    template <class T>
    T read_value(int field, int record);
    template <class T>
    void write_value(int field, int record, T value);
    bool read_file(FILE* file);

    std::wstring filename;
    std::wstring lock_path;
    qz::fileio lock_file{static_cast<qz::strconv::encodings>(0)};
    int32_t ref_count = 0;
    bool cpg_kept = false;
    Tqz_dbf_records* records = nullptr;  // owned
    // The header's bytes after the descriptors' terminator, as loaded.
    std::vector<uint8_t> header_tail;
    Tqz_dbf_notifier* notifier = nullptr;
};
