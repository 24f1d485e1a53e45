// Tqz_dbf_memory_list: the loaded memory tables of the process, in the order
// they were added. It owns them. A table is found by its file name: both
// names trimmed of blanks at their ends, then compared exactly (letter case
// counts, paths are not normalised). Each table counts its holders; a table
// whose count has fallen to 0 or below is deleted at the next clean-up.
#pragma once

#include <vector>

class Tqz_dbf_memory;

class Tqz_dbf_memory_list {
  public:
    Tqz_dbf_memory_list() = default;
    ~Tqz_dbf_memory_list();
    Tqz_dbf_memory_list(const Tqz_dbf_memory_list&) = delete;
    Tqz_dbf_memory_list& operator=(const Tqz_dbf_memory_list&) = delete;

    // Deletes every table.
    void clear();
    unsigned int get_size() const { return static_cast<unsigned int>(tables.size()); }

    // The table of `name`, or null; no count changes.
    Tqz_dbf_memory* find(const wchar_t* name) const;
    Tqz_dbf_memory* find(const char* name) const;
    // `t` when it is in the list, else null.
    Tqz_dbf_memory* find_by_ptr(const Tqz_dbf_memory* t) const;
    // A new table for `name`, appended: with `create`, the one-field table
    // without history; otherwise the file loaded, with the process's
    // history. Null (nothing added) when the load fails. Its count is 0.
    Tqz_dbf_memory* add(const wchar_t* name, bool create);
    Tqz_dbf_memory* add(const char* name, bool create);

    // find, else add; a table returned counts one more holder.
    Tqz_dbf_memory* load_mem(const wchar_t* name, bool create);
    Tqz_dbf_memory* load_mem(const char* name, bool create);
    // find; a table found counts one more holder.
    Tqz_dbf_memory* find_mem(const wchar_t* name);
    Tqz_dbf_memory* find_mem(const char* name);
    // One holder less for the table found (then a clean-up in any case);
    // whether one was found.
    bool free_mem(const wchar_t* name);
    bool free_mem(const char* name);
    bool free_mem_by_ptr(Tqz_dbf_memory* t);
    // Deletes the tables without holders, keeping the others' order.
    void clean_not_referenced();

  private:
    std::vector<Tqz_dbf_memory*> tables;
};
