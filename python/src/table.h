// An open table as the Python class qzdbf.Table: a handle from
// qz_dbf_open_ex (or qz_dbf_create), its fields, cells and deletion flags.
#pragma once

#include "cells.h"

#include <pybind11/pybind11.h>

#include <memory>
#include <string>
#include <vector>

namespace qzpy {

class table {
  public:
    // `decimals`: N and F cells with decimals (and Y) read as decimal.Decimal.
    table(const std::string& path, const std::string& mode, const pybind11::object& encoding,
          bool decimals = false, bool memory = false);
    // Takes over a handle just created (writable).
    table(Tqz_dbf_rw* created, const std::string& path);
    ~table();
    table(const table&) = delete;
    table& operator=(const table&) = delete;

    // A memory table: the file read whole (qz_dbf_mem_load) and served
    // through a writable handle; changes are steps of the undo history and
    // reach the file at save().
    // (`memory` in the constructor.)
    bool in_memory() const { return memory_ != nullptr; }
    void save();
    void save_as(const std::string& path);

    void close();
    // Opens the table's path again after close (restructure of a file).
    void reopen() { open_handle(options_); }
    // Reads the fields again (after a restructure in memory).
    void reload_fields() { fields_ = read_fields(handle()); }
    bool closed() const { return handle_ == nullptr; }
    size_t size();
    pybind11::list fields();
    const std::string& encoding() const { return encoding_; }
    const std::string& path() const { return path_; }
    bool writable() const { return writable_; }

    pybind11::tuple row(long long record);
    pybind11::dict row_dict(long long record);
    pybind11::object cell(long long record, const pybind11::object& field);
    void set_cell(long long record, const pybind11::object& field, const pybind11::object& value);
    long long append(const pybind11::object& values);
    bool deleted(long long record);
    void set_deleted(long long record, bool value);
    unsigned pack();
    void flush();

    Tqz_dbf_rw* handle();
    // Work on the handle without the GIL is bracketed by these: close (and
    // pack, which reopens) is refused meanwhile.
    void enter_use() { ++in_use_; }
    void leave_use() { --in_use_; }
    const std::vector<field_info>& field_list() const { return fields_; }
    // True when N and F cells with decimals (and Y) read as decimal.Decimal.
    bool decimals() const { return decimals_; }

  private:
    void open_handle(unsigned options);
    unsigned record_index(long long record);
    unsigned field_index(const pybind11::object& field);
    void need_writable();

    Tqz_dbf_rw* handle_ = nullptr;
    std::string path_;
    bool writable_ = false;
    int in_use_ = 0;
    bool decimals_ = false;
    Tqz_dbf_memory* memory_ = nullptr;  // one holder while set
    unsigned options_ = 0;
    std::string forced_encoding_;
    std::string encoding_;
    std::vector<field_info> fields_;
};

}  // namespace qzpy
