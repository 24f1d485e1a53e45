// The registry of memory tables of the process, kept by Tqz_dbf_rw: one
// list, made by the first load and deleted when its last table goes.
#include "api/table_rw.h"
#include "memory/memory_list.h"
#include "memory/memory_table.h"

namespace {

Tqz_dbf_memory_list* mem_list = nullptr;

}  // namespace

Tqz_dbf_memory_list* Tqz_dbf_rw::get_mem_list() {
    return mem_list;
}

void Tqz_dbf_rw::test_free_list() {
    if (mem_list && mem_list->get_size() == 0) {
        delete mem_list;
        mem_list = nullptr;
    }
}

bool Tqz_dbf_rw::dbf_is_in_mem(const wchar_t* name) {
    if (!mem_list) return false;
    Tqz_dbf_memory* t = mem_list->find(name);
    if (!t) return false;
    t->add_reference();
    dbf_free_mem_by_ptr(t);
    return true;
}

bool Tqz_dbf_rw::dbf_is_in_mem(const char* name) {
    if (!mem_list) return false;
    Tqz_dbf_memory* t = mem_list->find(name);
    if (!t) return false;
    t->add_reference();
    dbf_free_mem_by_ptr(t);
    return true;
}

Tqz_dbf_memory* Tqz_dbf_rw::dbf_find_mem(const wchar_t* name) {
    return mem_list ? mem_list->find_mem(name) : nullptr;
}

Tqz_dbf_memory* Tqz_dbf_rw::dbf_find_mem(const char* name) {
    return mem_list ? mem_list->find_mem(name) : nullptr;
}

// Loads through the registry, made on demand; a registry left empty by a
// failed load goes again, also when the load throws.
template <class C>
Tqz_dbf_memory* Tqz_dbf_rw::load_through_list(const C* name, bool create) {
    if (!mem_list) mem_list = new Tqz_dbf_memory_list();
    Tqz_dbf_memory* t = nullptr;
    try {
        t = mem_list->load_mem(name, create);
    } catch (...) {
        test_free_list();
        throw;
    }
    test_free_list();
    return t;
}

Tqz_dbf_memory* Tqz_dbf_rw::dbf_load_mem(const wchar_t* name, bool create) {
    return load_through_list(name, create);
}

Tqz_dbf_memory* Tqz_dbf_rw::dbf_load_mem(const char* name, bool create) {
    return load_through_list(name, create);
}

bool Tqz_dbf_rw::dbf_free_mem(const wchar_t* name) {
    if (!mem_list) return false;
    bool found = mem_list->free_mem(name);
    test_free_list();
    return found;
}

bool Tqz_dbf_rw::dbf_free_mem(const char* name) {
    if (!mem_list) return false;
    bool found = mem_list->free_mem(name);
    test_free_list();
    return found;
}

bool Tqz_dbf_rw::dbf_free_mem_by_ptr(Tqz_dbf_memory* t) {
    if (!mem_list) {
        test_free_list();
        return false;
    }
    bool found = mem_list->free_mem_by_ptr(t);
    test_free_list();
    return found;
}
