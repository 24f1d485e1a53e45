#include "memory/memory_list.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "code_page_text.h"
#include "memory/memory_table.h"

namespace {

const wchar_t kBlanks[] = L" \t\n\r\v\f";

std::wstring trimmed(const wchar_t* text) {
    std::wstring s = text ? text : L"";
    size_t first = s.find_first_not_of(kBlanks);
    if (first == std::wstring::npos) return std::wstring();
    size_t last = s.find_last_not_of(kBlanks);
    return s.substr(first, last - first + 1);
}

// A narrow name is system text; one that does not convert is empty.
std::wstring widen(const char* name) {
    return name ? qz::basic::cp_to_wide(0, name, std::strlen(name)) : std::wstring();
}

}  // namespace

Tqz_dbf_memory_list::~Tqz_dbf_memory_list() {
    clear();
}

void Tqz_dbf_memory_list::clear() {
    std::vector<Tqz_dbf_memory*> gone;
    gone.swap(tables);
    for (Tqz_dbf_memory* t : gone) delete t;
}

Tqz_dbf_memory* Tqz_dbf_memory_list::find(const wchar_t* name) const {
    const std::wstring wanted = trimmed(name);
    for (Tqz_dbf_memory* t : tables)
        if (std::wcscmp(trimmed(t->get_filename()).c_str(), wanted.c_str()) == 0) return t;
    return nullptr;
}

Tqz_dbf_memory* Tqz_dbf_memory_list::find(const char* name) const {
    return find(widen(name).c_str());
}

Tqz_dbf_memory* Tqz_dbf_memory_list::find_by_ptr(const Tqz_dbf_memory* t) const {
    auto it = std::find(tables.begin(), tables.end(), t);
    return it == tables.end() ? nullptr : *it;
}

Tqz_dbf_memory* Tqz_dbf_memory_list::add(const wchar_t* name, bool create) {
    std::unique_ptr<Tqz_dbf_memory> t(create ? new Tqz_dbf_memory(nullptr) : new Tqz_dbf_memory());
    t->set_filename(name);
    if (create)
        t->init();
    else if (!t->load())
        return nullptr;
    tables.push_back(t.get());
    return t.release();
}

Tqz_dbf_memory* Tqz_dbf_memory_list::add(const char* name, bool create) {
    return add(widen(name).c_str(), create);
}

Tqz_dbf_memory* Tqz_dbf_memory_list::load_mem(const wchar_t* name, bool create) {
    Tqz_dbf_memory* t = find(name);
    if (!t) t = add(name, create);
    if (t) t->add_reference();
    return t;
}

Tqz_dbf_memory* Tqz_dbf_memory_list::load_mem(const char* name, bool create) {
    return load_mem(widen(name).c_str(), create);
}

Tqz_dbf_memory* Tqz_dbf_memory_list::find_mem(const wchar_t* name) {
    Tqz_dbf_memory* t = find(name);
    if (t) t->add_reference();
    return t;
}

Tqz_dbf_memory* Tqz_dbf_memory_list::find_mem(const char* name) {
    return find_mem(widen(name).c_str());
}

bool Tqz_dbf_memory_list::free_mem(const wchar_t* name) {
    Tqz_dbf_memory* t = find(name);
    if (t) t->del_reference();
    clean_not_referenced();
    return t != nullptr;
}

bool Tqz_dbf_memory_list::free_mem(const char* name) {
    return free_mem(widen(name).c_str());
}

bool Tqz_dbf_memory_list::free_mem_by_ptr(Tqz_dbf_memory* t) {
    Tqz_dbf_memory* found = find_by_ptr(t);
    if (found) found->del_reference();
    clean_not_referenced();
    return found != nullptr;
}

void Tqz_dbf_memory_list::clean_not_referenced() {
    // Out of the list first, then deleted: a table's destructor reaches
    // listeners that may look at the list.
    std::vector<Tqz_dbf_memory*> gone;
    auto keep = std::stable_partition(tables.begin(), tables.end(),
                                      [](Tqz_dbf_memory* t) { return t->get_reference() > 0; });
    gone.assign(keep, tables.end());
    tables.erase(keep, tables.end());
    for (Tqz_dbf_memory* t : gone) delete t;
}
