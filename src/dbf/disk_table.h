// Tqz_dbf_disk: a table in a .dbf file, opened in place. A writable table
// holds the writer lock "<file>.lk" from open or create until close.
#pragma once

#include <cstdio>
#include <string>

#include "dbf/basic_table.h"
#include "notify/update_scope.h"
#include "support/fileio.h"

class Tqz_dbf_notifier;

class Tqz_dbf_disk : public Tqz_dbf_basic {
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
    bool is_read_only() const { return read_only; }
    const std::wstring& get_filename() const { return filename; }

    // The shared notifier of the file, taken at open and create, given back
    // at close; null while closed.
    Tqz_dbf_notifier* get_notifier() const { return notifier; }
    // Brackets one change of the file on its notifier for the length of a
    // scope, so that listeners see the change as one:
    //     auto bracket = update_bracket();
    qz::notify::Update_scope update_bracket();

    // Record access is the next layer of the disk table.
    void add_records(unsigned int) override {}
    bool restruct(void*) override { return false; }
    const char* get_string(int, int) override { return nullptr; }
    int get_integer(int, int) override { return 0; }
    float get_float(int, int) override { return 0.0f; }
    double get_double(int, int) override { return 0.0; }
    void set_string(int, int, const char*) override {}
    void set_integer(int, int, int) override {}
    void set_float(int, int, float) override {}
    void set_double(int, int, double) override {}

  private:
    bool take_lock(const std::wstring& path, bool no_lock);
    void read_descriptors();

    FILE* file = nullptr;
    std::wstring filename;
    bool read_only = true;
    qz::fileio lock_file{qz::strconv::utf8};
    std::wstring lock_path;
    Tqz_dbf_notifier* notifier = nullptr;
};
