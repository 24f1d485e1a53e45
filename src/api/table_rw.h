// Tqz_dbf_rw: the object behind every table handle. It chooses the storage
// at open and create time and forwards every request to it.
#pragma once

#include <memory>
#include <string>

#include "dbf/ibasic.h"
#include "encoding/table_encoding.h"

class Tqz_dbf_disk;
class Tqz_dbf_ogr_source;
class Tqz_dbf_memory;
class Tqz_dbf_memory_list;

class Tqz_dbf_rw {
  public:
    Tqz_dbf_rw();
    ~Tqz_dbf_rw();
    Tqz_dbf_rw(const Tqz_dbf_rw&) = delete;
    Tqz_dbf_rw& operator=(const Tqz_dbf_rw&) = delete;

    // 0 on success, otherwise the non-zero result of the storage tried last.
    int open(const wchar_t* path, bool read_only, bool dos_flag);
    int open(const char* path, bool read_only, bool dos_flag);
    int create(const wchar_t* path, unsigned int nf, unsigned int nr, Tqz_dbf_field* fields,
               bool dos_flag);
    int create(const char* path, unsigned int nf, unsigned int nr, Tqz_dbf_field* fields,
               bool dos_flag);
    void close();
    // Writes the disk table's pending bytes to its file; true when nothing
    // is left pending (also when the handle has no disk table).
    bool flush();
    // Whether the handle serves a memory table of the registry.
    bool is_buffered() const { return memory != nullptr; }
    // The memory table of the registry the handle serves, or null.
    Tqz_dbf_memory* memory_table() const { return memory; }

    // Removes the records whose bits are set in `mask` from the table at
    // `path`, using this handle (closed on return); 0 on success, 1 when
    // the table cannot be opened or is held by another writer.
    unsigned int delete_records_by_msk(const wchar_t* path, void* mask);
    bool is_read_only() const { return read_only; }
    // Leaves the .cpg file of a disk table as it is at close.
    void keep_cpg();
    // Whether open tries OGR for what the disk table cannot open (on by
    // default). Off, a table held by another writer stays refused.
    void set_ogr_fallback(bool on) { ogr_fallback = on; }

    // Removes a table file and its .cpg file; false when nothing is at `path`.
    static bool delete_files(const wchar_t* path);

    // The process's registry of memory tables: created by the first load,
    // deleted when its last table goes. Narrow names are system text.
    // The registry, or null while no memory table is loaded.
    static Tqz_dbf_memory_list* get_mem_list();
    // Deletes the registry when it holds no table.
    static void test_free_list();
    // Whether `name` is loaded; leaves its count as it was (and deletes
    // tables without holders, as every free does).
    static bool dbf_is_in_mem(const wchar_t* name);
    static bool dbf_is_in_mem(const char* name);
    // The loaded table of `name` with one more holder, or null.
    static Tqz_dbf_memory* dbf_find_mem(const wchar_t* name);
    static Tqz_dbf_memory* dbf_find_mem(const char* name);
    // The table of `name` with one more holder: the loaded one, else a new
    // one (with `create` the one-field table, otherwise the file read).
    static Tqz_dbf_memory* dbf_load_mem(const wchar_t* name, bool create);
    static Tqz_dbf_memory* dbf_load_mem(const char* name, bool create);
    // One holder less for the table of `name` / at `t`; whether it was found.
    static bool dbf_free_mem(const wchar_t* name);
    static bool dbf_free_mem(const char* name);
    static bool dbf_free_mem_by_ptr(Tqz_dbf_memory* t);

    // The path given to the last open or create.
    const std::wstring& get_path() const { return path; }

    // The current table, or null when nothing is open.
    Tqz_dbf_ibasic* current() const { return table; }

    // Which storage serves the handle.
    enum class storage { none, disk, memory, ogr };
    storage current_storage() const;
    // The table file the handle reads directly, or null (memory and OGR
    // tables, nothing open).
    Tqz_dbf_disk* file_table() const { return current_storage() == storage::disk ? disk : nullptr; }
    // OGR's driver name when OGR serves the handle, otherwise "".
    const char* ogr_driver_name() const;

    // Forwarding to the current table; neutral results when none is open.
    bool get_dos_flag() { return table ? table->get_dos_flag() : false; }
    void set_dos_flag(bool on) {
        if (table) table->set_dos_flag(on);
    }
    bool get_utf8_flag() { return table ? table->get_utf8_flag() : false; }
    void set_utf8_flag(bool on) {
        if (table) table->set_utf8_flag(on);
    }
    unsigned int get_nl() { return table ? table->get_nl() : 0; }
    unsigned int get_nf() { return table ? table->get_nf() : 0; }
    unsigned int get_nr() { return table ? table->get_nr() : 0; }
    unsigned int get_layer() { return table ? table->get_layer() : 0; }
    void get_layer_name(unsigned int layer, Iqz_string_adp* adp) {
        if (table) table->get_layer_name(layer, adp);
    }
    bool set_layer(unsigned int layer) { return table ? table->set_layer(layer) : false; }
    const char* get_field_name(unsigned int field) {
        return table ? table->get_field_name(field) : nullptr;
    }
    void get_field_name(unsigned int field, Iqz_string_adp* adp) {
        if (table) table->get_field_name(field, adp);
    }
    void set_field_name(unsigned int field, const char* name) {
        if (table) table->set_field_name(field, name);
    }
    void set_field_name(unsigned int field, const wchar_t* name) {
        if (table) table->set_field_name(field, name);
    }
    Tqz_dbf_field_type get_field_type(unsigned int field) {
        return table ? table->get_field_type(field) : dbf_ft_unknown;
    }
    unsigned int get_field_flen(unsigned int field) {
        return table ? static_cast<unsigned char>(table->get_field_flen(field)) : 0;
    }
    int get_field_dlen(unsigned int field) {
        return table ? static_cast<signed char>(table->get_field_dlen(field)) : 0;
    }
    unsigned int find_field_index(const wchar_t* name) {
        return table ? table->find_field_index(name) : 0xFFFFFFFF;
    }
    const char* get_format(unsigned int field) {
        return table ? table->get_format(field) : nullptr;
    }
    void add_records(unsigned int count) {
        if (table) table->add_records(count);
    }
    bool restruct(void* rstrct) { return table ? table->restruct(rstrct) : false; }
    const char* get_as_string(unsigned int field, unsigned int record, bool& ok) {
        return table ? table->get_as_string(field, record, ok) : nullptr;
    }
    const wchar_t* get_as_wstring(unsigned int field, unsigned int record, unsigned int& length,
                                  bool& ok, int mode) {
        return table ? table->get_as_wstring(field, record, length, ok, mode) : nullptr;
    }
    const wchar_t* get_as_wchar_t(unsigned int field, unsigned int record, unsigned int& length,
                                  bool& ok) {
        return table ? table->get_as_wchar_t(field, record, length, ok) : nullptr;
    }
    int get_as_integer(unsigned int field, unsigned int record, bool& ok) {
        return table ? table->get_as_integer(field, record, ok) : 0;
    }
    double get_as_double(unsigned int field, unsigned int record, bool& ok) {
        return table ? table->get_as_double(field, record, ok) : 0.0;
    }
    bool get_as_bool(unsigned int field, unsigned int record, bool& ok) {
        return table ? table->get_as_bool(field, record, ok) : false;
    }
    bool get_as_any(unsigned int field, unsigned int record, Tqz_any* value) {
        return table ? table->get_as_any(field, record, value) : false;
    }
    bool set_as_string(unsigned int field, unsigned int record, const char* value) {
        return table ? table->set_as_string(field, record, value) : false;
    }
    bool set_as_wchar_t(int field, int record, const wchar_t* value, unsigned int length) {
        return table ? table->set_as_wchar_t(field, record, value, length) : false;
    }
    bool set_as_wstring(int field, int record, const wchar_t* value) {
        return table ? table->set_as_wstring(field, record, value) : false;
    }
    bool set_as_integer(unsigned int field, unsigned int record, int value) {
        return table ? table->set_as_integer(field, record, value) : false;
    }
    bool set_as_double(unsigned int field, unsigned int record, double value) {
        return table ? table->set_as_double(field, record, value) : false;
    }
    bool set_as_bool(unsigned int field, unsigned int record, bool value) {
        return table ? table->set_as_bool(field, record, value) : false;
    }
    bool set_as_any(unsigned int field, unsigned int record, Tqz_any* value) {
        return table ? table->set_as_any(field, record, value) : false;
    }
    bool find_value(unsigned int field, const char* value, unsigned int& record) {
        return table ? table->find_value(field, value, record) : false;
    }
    void begin_fast_find(unsigned int field) {
        if (table) table->begin_fast_find(field);
    }
    bool find_value_fast(const char* value, unsigned int& record) {
        return table ? table->find_value_fast(value, record) : false;
    }
    void end_fast_find() {
        if (table) table->end_fast_find();
    }

    // A name that no field of the table holds: the name cut to 10 bytes,
    // else with the ending 1, 2, ... (cut to fit); the _old form keeps the
    // whole name and appends the number without a cut. The text lives in a
    // static string of each function until its next call.
    const char* generate_unin_name(const char* name);
    const char* generate_unin_name_old(const char* name);

    int32_t last_valid_error = 0;

    // The text encoding of the typed interface: the name the caller set
    // (kept across opens) and the choice made for the open table (made at
    // the first typed read, forgotten at close).
    std::string encoding_request;
    qz::strconv::table_encoding encoding_choice;
    // The text of the last typed value read through the handle.
    std::string value_text;
    // The texts of the last record or column of typed values read.
    std::string values_text;
    // What the typed reads keep of the open table (its layout, encoding).
    std::shared_ptr<void> typed_reader;

  private:
    template <class C>
    static Tqz_dbf_memory* load_through_list(const C* name, bool create);
    // A writable handle keeps an update bracket open on its file's notifier
    // from open or create until close.
    void begin_write_bracket();
    // The OGR table, made (and the module loaded) on first need; null when
    // the module cannot be loaded.
    Tqz_dbf_ogr_source* ogr_table();

    std::wstring path;
    bool own_table = false;
    bool read_only = false;
    bool ogr_fallback = true;
    Tqz_dbf_ibasic* table = nullptr;
    Tqz_dbf_disk* disk = nullptr;
    // Made on the first open that needs OGR (loading the OGR module then);
    // null while none did or when the module is not there.
    Tqz_dbf_ogr_source* ogr = nullptr;
    Tqz_dbf_memory* memory = nullptr;  // one holder counted while set
};
