// Tqz_dbf_basic: what every DBF-backed table (disk and memory) shares: the
// parsed header and field descriptors, the two encoding flags, the text
// conversions between the table encoding and caller text, and the field
// attribute operations. Storages supply the raw cell operations.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "dbf/dbf_format.h"
#include "dbf/fast_find.h"
#include "dbf/field.h"
#include "dbf/ibasic.h"
#include "dbf/number_text.h"
#include "encoding/encodings.h"
#include "encoding/fast_convert.h"

class Tqz_fpt_rw;
class Tqz_dbt_rw;

class Tqz_dbf_basic : public Tqz_dbf_ibasic {
  public:
    Tqz_dbf_basic();
    ~Tqz_dbf_basic() override;
    Tqz_dbf_basic(const Tqz_dbf_basic&) = delete;
    Tqz_dbf_basic& operator=(const Tqz_dbf_basic&) = delete;
    Tqz_dbf_basic* as_basic() override { return this; }

    // Encoding flags: at most one is set; the table's text is UTF-8, CP866
    // or (neither) CP1251.
    bool get_dos_flag() override { return dos_flag; }
    void set_dos_flag(bool on) override;
    bool get_utf8_flag() override { return utf8_flag; }
    void set_utf8_flag(bool on) override;
    qz::strconv::encodings get_encoding() const {
        if (utf8_flag) return qz::strconv::utf8;
        return dos_flag ? qz::strconv::cp866 : qz::strconv::cp1251;
    }

    // Conversions between raw table bytes and caller text. The results point
    // into this table's scratch strings, valid until the next conversion.
    const char* str_from_raw(const char* raw);
    const char* str_to_raw(const char* text);
    const wchar_t* str_from_raw_w(const char* raw);
    const char* str_to_raw_w(const wchar_t* text);

    unsigned int get_nl() override { return 1; }
    unsigned int get_nf() override { return static_cast<unsigned int>(nf); }
    unsigned int get_nr() override;
    unsigned int get_layer() override { return 0; }
    void get_layer_name(unsigned int layer, Iqz_string_adp* adp) override;
    bool set_layer(unsigned int) override { return true; }

    const char* get_field_name(unsigned int field) override;
    void get_field_name(unsigned int field, Iqz_string_adp* adp) override;
    void set_field_name(unsigned int field, const char* name) override;
    void set_field_name(unsigned int field, const wchar_t* name) override;
    Tqz_dbf_field_type get_field_type(unsigned int field) override { return field_type(field); }
    // The type letter as the descriptor holds it (also one no type stands
    // for); 0 when there is no such field.
    char get_field_letter(unsigned int field) {
        const qz::dbf::Tdbf_descriptor* d = descriptor(field);
        return d ? static_cast<char>(d->type()) : 0;
    }
    // The field flags byte of the descriptor (18: 0x02 nullable, 0x04
    // binary in Visual FoxPro tables); 0 when there is no such field.
    // The descriptors as read (get_nf() of them), to tell a changed layout.
    const qz::dbf::Tdbf_descriptor* get_descriptors() const { return descriptors; }
    // A dBASE 7 table's full field name (up to 31 bytes, table encoding);
    // get_field_name gives its first 10 bytes. Null for other tables and
    // fields that do not exist.
    const char* get_long_field_name(unsigned int field) const {
        return field < long_names.size() ? long_names[field].c_str() : nullptr;
    }
    // A dBASE 7 table's language-driver name ("DB437US0"); empty for others.
    const std::string& get_language_driver_name() const { return driver_name; }
    uint8_t get_field_flags(unsigned int field) {
        const qz::dbf::Tdbf_descriptor* d = descriptor(field);
        return d ? d->bytes[18] : 0;
    }
    unsigned char get_field_flen(unsigned int field) override;
    char get_field_dlen(unsigned int field) override;
    unsigned int find_field_index(const wchar_t* name) override;
    const char* get_format(unsigned int field) override;

    // Typed reads and writes of cells, built on the raw cell operations.
    // Every one of them answers a field or record index out of range (or a
    // record the storage does not hold) with its neutral result.
    const char* get_as_string(unsigned int field, unsigned int record, bool& ok) override;
    const wchar_t* get_as_wstring(unsigned int field, unsigned int record, unsigned int& length,
                                  bool& ok, int code_page) override;
    const wchar_t* get_as_wchar_t(unsigned int field, unsigned int record, unsigned int& count,
                                  bool& ok) override;
    int get_as_integer(unsigned int field, unsigned int record, bool& ok) override;
    double get_as_double(unsigned int field, unsigned int record, bool& ok) override;
    bool get_as_bool(unsigned int field, unsigned int record, bool& ok) override;
    bool get_as_any(unsigned int field, unsigned int record, Tqz_any* value) override;
    // The memo of a cell: the block number read through get_as_integer, the
    // memo from the FPT reader when the table holds one, else the DBT reader.
    const unsigned char* get_memo_bytes(unsigned int field, unsigned int record, bool& ok,
                                        unsigned int& len, unsigned int& type) override;
    bool set_as_string(unsigned int field, unsigned int record, const char* text) override;
    bool set_as_wchar_t(int field, int record, const wchar_t* text, unsigned int count) override;
    bool set_as_wstring(int field, int record, const wchar_t* text) override;
    bool set_as_integer(unsigned int field, unsigned int record, int value) override;
    bool set_as_double(unsigned int field, unsigned int record, double value) override;
    bool set_as_bool(unsigned int field, unsigned int record, bool value) override;
    bool set_as_any(unsigned int field, unsigned int record, Tqz_any* value) override;

    // The cell as text in the table's encoding, by field type (numbers
    // reformatted, binary values printed). Points into this table's buffers.
    const char* get_as_string_raw(unsigned int field, unsigned int record, bool& ok);
    // Stores text in the table's encoding, by field type.
    bool set_as_string_raw(unsigned int field, unsigned int record, const char* raw);

    // Parsing of cell text: a whole number, a number, a logical word ("t",
    // "true", "1", "y" or "f", "false", "0", "n", in any case, trimmed).
    static int try_int(const char* text, bool& ok);
    static double try_dbl(const char* text, bool& ok);
    static bool try_bool(const char* text, bool& ok);

    // Value search: a scan comparing without regard to letter case, and an
    // index of one field's texts built once and asked many times.
    bool find_value(unsigned int field, const char* value, unsigned int& record) override;
    void begin_fast_find(unsigned int field) override;
    bool find_value_fast(const char* value, unsigned int& record) override;
    void end_fast_find() override;

    // Raw cell operations of the storage.
    virtual const char* get_string(int field, int record) = 0;
    virtual int get_integer(int field, int record) = 0;
    virtual float get_float(int field, int record) = 0;
    virtual double get_double(int field, int record) = 0;
    virtual void set_string(int field, int record, const char* value) = 0;
    virtual void set_integer(int field, int record, int value) = 0;
    virtual void set_float(int field, int record, float value) = 0;
    virtual void set_double(int field, int record, double value) = 0;

    // The memo readers: each open replaces the reader of its kind with one on
    // the table's companion file (".fpt" or ".dbt", found without regard to
    // letter case) and tells whether the table now holds one.
    bool open_fpt(const wchar_t* table_path, bool read_only);
    bool open_fpt(const char* table_path, bool read_only);
    bool open_dbt(const wchar_t* table_path, bool read_only);
    bool open_dbt(const char* table_path, bool read_only);
    void close_fpt();
    void close_dbt();
    Tqz_fpt_rw* get_fpt() const { return fpt; }
    Tqz_dbt_rw* get_dbt() const { return dbt; }

    // The deletion flag of a record: 1 when it is marked deleted ('*'), 0
    // when it is live, -1 when the storage does not hold the record.
    virtual int get_deleted(unsigned int) { return -1; }
    // Marks a record deleted or live; false when the storage does not hold
    // it or cannot write.
    virtual bool set_deleted(unsigned int, bool) { return false; }
    // Writes `n` bytes as they are at the start of a cell (at most the
    // field's width of them); false when the storage does not hold the cell
    // or cannot write. The cell lies where qz::dbf::field_span says: a
    // character field over 255 bytes (its length's high byte in the
    // decimals byte) takes its whole width and moves the fields after it,
    // where the classic cell operations go by the length bytes alone.
    virtual bool set_cell_bytes(unsigned int, unsigned int, const void*, size_t) { return false; }
    // The bytes of a cell there, its whole width; false when the storage
    // does not hold the cell.
    virtual bool get_cell_bytes(unsigned int, unsigned int, std::string&) { return false; }

    // Whether the storage holds `record`: below the record count, and for a
    // file, within the file.
    virtual bool has_record(unsigned int record) { return record < get_nr(); }
    // Whether every record reads the same bytes, whatever the count claims
    // (a record length of 0 puts them all at one place): a search then
    // needs to read only one of them.
    virtual bool records_alike() { return false; }

    // Lays out a new table: the header of a created table (version 3, today's
    // date, the counts, the header and record lengths) and the descriptors
    // of `fields`, names in the table's encoding, with their running
    // offsets. False, with the header laid out but no descriptors, when
    // `fields` is missing or the descriptor array cannot be had.
    bool lay_out_new(unsigned int n_fields, unsigned int n_records, const Tqz_dbf_field* fields);

    // Resizes the descriptor array to max(n, 0) entries; false (nothing
    // changed) when memory runs out.
    bool set_nf(int n);

    // Reads the encoding flags from the table's .cpg file, if there is one.
    void load_cpg(const std::wstring& table_path);
    // Writes the table's encoding into its .cpg file, unless `skip`: the
    // name set_cpg_name gave, else the flags' encoding.
    void save_cpg(const std::wstring& table_path, bool skip);
    // The encoding name (an iconv name) save_cpg writes; "" for the flags'.
    void set_cpg_name(const std::string& name) { cpg_name = name; }

    // The file header as read or written: version, date, counts, lengths.
    const uint8_t* get_header() const { return header; }
    uint16_t get_header_length() const {
        return qz::dbf::get_u16(header + qz::dbf::hdr_header_length);
    }
    uint16_t get_record_length() const {
        return qz::dbf::get_u16(header + qz::dbf::hdr_record_length);
    }

  protected:
    // Whether the value operations may touch this cell.
    bool cell_ok(unsigned int field, unsigned int record) {
        return field < get_nf() && has_record(record);
    }
    // The descriptor of `field`, or null when there is no such field.
    qz::dbf::Tdbf_descriptor* descriptor(unsigned int field) {
        return field < static_cast<unsigned int>(nf) ? &descriptors[field] : nullptr;
    }
    // get_field_type without the virtual call, for the cell operations.
    Tqz_dbf_field_type field_type(unsigned int field) {
        const qz::dbf::Tdbf_descriptor* d = descriptor(field);
        return d ? char2type(d->type()) : dbf_ft_unknown;
    }
    void free_descriptors();

    Tqz_fpt_rw* fpt = nullptr;  // owned
    Tqz_dbt_rw* dbt = nullptr;  // owned
    uint8_t header[qz::dbf::header_size];
    int32_t nf = 0;
    qz::dbf::Tdbf_descriptor* descriptors = nullptr;  // malloc'd, nf entries
    std::map<std::string, unsigned int> field_index;
    std::vector<std::string> long_names;  // dBASE 7 tables only, nf entries
    std::string driver_name;              // dBASE 7 tables only
    std::string cpg_name;                 // see set_cpg_name
    bool dos_flag = false;
    bool utf8_flag = false;
    // Raw field bytes of the last get_string, NUL-terminated (lengths go up
    // to 255).
    char raw_buffer[257];

  private:
    // The number layout of a numeric field, read from its descriptor (the
    // same layout get_format describes, without building and parsing its
    // text).
    qz::dbf::number_format number_layout_of(unsigned int field) {
        const qz::dbf::Tdbf_descriptor* d = descriptor(field);
        return d ? qz::dbf::number_layout(static_cast<char>(d->type()), d->flen(), d->dlen())
                 : qz::dbf::number_format();
    }
    // The code page of the table's encoding (65001, 866 or 1251).
    unsigned int table_code_page() const {
        return qz::strconv::encoding_table[get_encoding()].code_page;
    }
    // Stores `text` through set_string, or an empty text when it is longer
    // than the field; the result says which.
    bool set_fitting(unsigned int field, unsigned int record, const std::string& text);

    // get_as_string_raw; `formatted` tells that the text is a number written
    // out here (plain ASCII).
    const char* value_text(unsigned int field, unsigned int record, bool& ok, bool& formatted);
    // Raw table text as system text; `raw` is readable up to a zero byte,
    // and in the table's own buffers up to their end.
    const char* raw_to_system(const char* raw);

    qz::strconv::text_buffer narrow_scratch;
    qz::strconv::text_buffer narrow_spare;  // the next conversion is built here, then swapped in
    std::wstring wide_scratch;
    std::wstring wide_value;  // the last text decoded from hexadecimal
    std::string number_text;  // the last number formatted by a setter
    char format_buffer[20];
    char value_buffer[257];
    qz::strconv::text_converter converter;
    Tqz_dbf_fast_find fast_index;
};
