// Tqz_dbf_disk: a table in a .dbf file, opened in place. A writable table
// holds the writer lock "<file>.lk" from open or create until close.
#pragma once

#include <cstdio>
#include <string>

#include "dbf/basic_table.h"
#include "notify/update_scope.h"
#include "support/file_window.h"
#include "support/fileio.h"

class Tqz_dbf_notifier;

class Tqz_dbf_disk final : public Tqz_dbf_basic {
  public:
    Tqz_dbf_disk();
    ~Tqz_dbf_disk() override;

    // 0 on success, 1 on failure. Unless `read_only` (or `no_lock`), the
    // writer lock is taken first and the open fails while another holds it.
    int open(const wchar_t* path, bool read_only, bool dos_flag, bool no_lock);
    int open(const char* path, bool read_only, bool dos_flag, bool no_lock);
    // Writes a new table with `nf` fields and `nr` blank records; 0 or 1.
    int create(const wchar_t* path, unsigned int nf, unsigned int nr, Tqz_dbf_field* fields,
               bool dos_flag, bool no_lock);
    int create(const char* path, unsigned int nf, unsigned int nr, Tqz_dbf_field* fields,
               bool dos_flag, bool no_lock);
    void close() override;

    bool is_open() const { return file != nullptr; }
    // Whether the last open or create failed because another writer holds
    // the lock.
    bool lock_refused() const { return lock_was_refused; }
    bool is_read_only() const { return read_only; }
    // With `keep`, close leaves the table's .cpg file as it is instead of
    // writing the table's encoding into it. Holds until the next open.
    void keep_cpg(bool keep) { cpg_kept = keep; }
    const std::wstring& get_filename() const { return filename; }

    // The shared notifier of the file, taken at open and create, given back
    // at close; null while closed.
    Tqz_dbf_notifier* get_notifier() const { return notifier; }
    // Brackets one change of the file on its notifier for the length of a
    // scope, so that listeners see the change as one:
    //     auto bracket = update_bracket();
    qz::notify::Update_scope update_bracket();
    // The bracket a writable handle keeps open on the notifier from open to
    // close. While it is open a write needs no bracket of its own: a nested
    // one sends listeners nothing, so leaving it out changes no event and
    // saves two locks of the notifier per cell.
    void begin_handle_bracket();
    void end_handle_bracket();

    // Every write below (set_field_name, set_record, the raw setters,
    // restruct) is one bracket on the notifier; add_records is none.

    // Writes the table's pending bytes to the file now. The table holds the
    // writes of at most one record: they go to the file when an access
    // reaches another record, before the notifier sends an update event,
    // here, and at close.
    bool flush();

    // Renames a field in memory and in the file's descriptor.
    void set_field_name(unsigned int field, const char* name) override;
    using Tqz_dbf_basic::set_field_name;
    // Writes `id` into the header's language-driver byte (29); false for a
    // table not open for writing.
    bool set_language_driver(uint8_t id);
    // Appends `count` blank records and rewrites the header's count.
    void add_records(unsigned int count) override;
    // A table on disk is restructured by rewriting its file, never in place:
    // the attempt is bracketed on the notifier and refused.
    bool restruct(void*) override {
        auto bracket = update_bracket();
        return false;
    }

    // The record length from the header.
    unsigned int get_record_size() const { return get_record_length(); }
    // The record image: record-length bytes from the record's first field on
    // (its own deletion flag is not part of it; its last byte is the byte
    // after the record). `buffer` holds at least get_record_size() bytes.
    void get_record(unsigned int record, unsigned char* buffer);
    bool set_record(unsigned int record, const unsigned char* buffer);
    // Whole records as the file holds them (the deletion flag byte first,
    // get_record_size() bytes each): the records [first, first + count)
    // that the file holds whole go one after another into `buffer`, which
    // holds at least count x get_record_size() bytes. Returns how many.
    unsigned int get_record_images(unsigned int first, unsigned int count, unsigned char* buffer);
    // The offset of a field's bytes from the start of a record image.
    unsigned int get_field_offset(unsigned int field) {
        const qz::dbf::Tdbf_descriptor* d = descriptor(field);
        return d ? d->offset() : 0;
    }

    // Raw cell access: the field's bytes as they stand, or 4 or 8 bytes read
    // as a little-endian integer or IEEE float at the field's position.
    const char* get_string(int field, int record) override;
    int get_integer(int field, int record) override;
    float get_float(int field, int record) override;
    double get_double(int field, int record) override;
    // Text is cut at the field's length or padded with spaces to it.
    void set_string(int field, int record, const char* text) override;
    void set_integer(int field, int record, int value) override;
    void set_float(int field, int record, float value) override;
    void set_double(int field, int record, double value) override;

    int get_deleted(unsigned int record) override;
    bool set_deleted(unsigned int record, bool deleted) override;
    bool set_cell_bytes(unsigned int field, unsigned int record, const void* bytes,
                        size_t n) override;
    bool get_cell_bytes(unsigned int field, unsigned int record, std::string& out) override;

    // Records below the header's count that the file holds completely.
    bool has_record(unsigned int record) override;
    bool records_alike() override { return get_record_length() == 0; }

  private:
    bool take_lock(const std::wstring& path, bool no_lock);
    void read_descriptors();
    // The file position of a field of a record, or false when there is no
    // such cell.
    bool cell_position(int field, int record, uint64_t& pos, unsigned& flen);
    // Where a cell lies by the fields' whole widths (see field_span), for
    // the typed cell bytes.
    bool cell_span(unsigned int field, unsigned int record, uint64_t& pos, unsigned& width);
    uint64_t record_position(unsigned int record) const {
        return get_header_length() + static_cast<uint64_t>(get_record_length()) * record;
    }
    // Every access to a record goes through here: pending writes to another
    // record go to the file first. A record's bytes run to the first byte of
    // the next (where a record image ends).
    void enter_record(unsigned int record) {
        uint64_t at = record_position(record);
        window.enter(at, at + get_record_length() + 1);
    }
    void attach_window(bool writable, bool follow);
    template <class T>
    T read_value(int field, int record);
    template <class T>
    void write_value(int field, int record, T value);

    FILE* file = nullptr;
    // All reads and writes of the open file go through this window.
    qz::file_window window;
    // False after create: a created table reads nothing until it is opened
    // again.
    bool can_read = false;
    // How many records, from the first, the file holds completely (at most
    // the header's count); set whenever the file or the count changes size.
    uint32_t whole_records = 0;
    void count_whole_records();
    std::wstring filename;
    bool read_only = true;
    qz::fileio lock_file{qz::strconv::utf8};
    std::wstring lock_path;
    bool lock_was_refused = false;
    bool cpg_kept = false;
    Tqz_dbf_notifier* notifier = nullptr;
    bool handle_bracket = false;  // begin_handle_bracket's bracket is open
};
