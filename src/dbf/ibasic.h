// The table interface: every storage (disk, memory, OGR) is reached through
// these operations, in this order.
#pragma once

#include "qzk_basic.h"
#include "qzk_file_dbf.h"

class Tqz_dbf_basic;

class Tqz_dbf_ibasic {
  public:
    virtual ~Tqz_dbf_ibasic() = default;
    // The table's DBF layer (disk and memory tables), or null for a storage
    // without one; a cheap answer for calls made on every cell.
    virtual Tqz_dbf_basic* as_basic() { return nullptr; }
    virtual void close() = 0;
    virtual bool get_dos_flag() = 0;
    virtual void set_dos_flag(bool on) = 0;
    virtual bool get_utf8_flag() = 0;
    virtual void set_utf8_flag(bool on) = 0;
    virtual unsigned int get_nl() = 0;
    virtual unsigned int get_nf() = 0;
    virtual unsigned int get_nr() = 0;
    virtual unsigned int get_layer() = 0;
    virtual void get_layer_name(unsigned int layer, Iqz_string_adp* adp) = 0;
    virtual bool set_layer(unsigned int layer) = 0;
    virtual const char* get_field_name(unsigned int field) = 0;
    virtual void get_field_name(unsigned int field, Iqz_string_adp* adp) = 0;
    virtual void set_field_name(unsigned int field, const char* name) = 0;
    virtual void set_field_name(unsigned int field, const wchar_t* name) = 0;
    virtual Tqz_dbf_field_type get_field_type(unsigned int field) = 0;
    virtual unsigned char get_field_flen(unsigned int field) = 0;
    virtual char get_field_dlen(unsigned int field) = 0;
    virtual unsigned int find_field_index(const wchar_t* name) = 0;
    virtual const char* get_format(unsigned int field) = 0;
    virtual void add_records(unsigned int count) = 0;
    virtual bool restruct(void* rstrct) = 0;
    virtual const char* get_as_string(unsigned int field, unsigned int record, bool& ok) = 0;
    virtual const wchar_t* get_as_wstring(unsigned int field, unsigned int record,
                                          unsigned int& length, bool& ok, int mode) = 0;
    virtual const wchar_t* get_as_wchar_t(unsigned int field, unsigned int record,
                                          unsigned int& length, bool& ok) = 0;
    virtual int get_as_integer(unsigned int field, unsigned int record, bool& ok) = 0;
    virtual double get_as_double(unsigned int field, unsigned int record, bool& ok) = 0;
    virtual bool get_as_bool(unsigned int field, unsigned int record, bool& ok) = 0;
    virtual bool get_as_any(unsigned int field, unsigned int record, Tqz_any* value) = 0;
    virtual const unsigned char* get_memo_bytes(unsigned int field, unsigned int record, bool& ok,
                                                unsigned int& length, unsigned int& type) = 0;
    virtual bool set_as_string(unsigned int field, unsigned int record, const char* value) = 0;
    virtual bool set_as_wchar_t(int field, int record, const wchar_t* value,
                                unsigned int length) = 0;
    virtual bool set_as_wstring(int field, int record, const wchar_t* value) = 0;
    virtual bool set_as_integer(unsigned int field, unsigned int record, int value) = 0;
    virtual bool set_as_double(unsigned int field, unsigned int record, double value) = 0;
    virtual bool set_as_bool(unsigned int field, unsigned int record, bool value) = 0;
    virtual bool set_as_any(unsigned int field, unsigned int record, Tqz_any* value) = 0;
    virtual bool find_value(unsigned int field, const char* value, unsigned int& record) = 0;
    virtual void begin_fast_find(unsigned int field) = 0;
    virtual bool find_value_fast(const char* value, unsigned int& record) = 0;
    virtual void end_fast_find() = 0;
};
