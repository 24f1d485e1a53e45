// Property tables (named variants) and tuples (ordered variants).
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "any_copy.h"
#include "qzk_basic.h"

using qz::basic::Any_value;

namespace {
using Table_impl = std::map<std::string, Any_value>;
using Tuple_impl = std::vector<Any_value>;

Table_impl* impl(const Tqz_table* t) {
    return t ? static_cast<Table_impl*>(t->impl) : nullptr;
}
Tuple_impl* impl(const Tqz_tuple* t) {
    return t ? static_cast<Tuple_impl*>(t->impl) : nullptr;
}
}  // namespace

extern "C" {

void table_init(Tqz_table* t) {
    if (t) t->impl = nullptr;
}

void table_clear(Tqz_table* t) {
    if (!t) return;
    delete impl(t);
    t->impl = nullptr;
}

void table_set(Tqz_table* t, const char* key, const Tqz_any* value) {
    if (!t || !key) return;
    if (!t->impl) t->impl = new Table_impl();
    (*impl(t))[key] = Any_value(value);
}

const Tqz_any* table_get(const Tqz_table* t, const char* key) {
    Table_impl* m = impl(t);
    if (!m || !key) return nullptr;
    auto it = m->find(key);
    return it == m->end() ? nullptr : it->second.get();
}

unsigned int table_count(const Tqz_table* t) {
    Table_impl* m = impl(t);
    return m ? static_cast<unsigned int>(m->size()) : 0;
}

void table_assign(Tqz_table* dst, const Tqz_table* src) {
    if (!dst || dst == src) return;
    Table_impl* from = impl(src);
    Table_impl* copy = from && !from->empty() ? new Table_impl(*from) : nullptr;
    delete impl(dst);
    dst->impl = copy;
}

const char* table_key(const Tqz_table* t, unsigned int index) {
    Table_impl* m = impl(t);
    if (!m || index >= m->size()) return nullptr;
    return std::next(m->begin(), index)->first.c_str();
}

void tuple_init(Tqz_tuple* t) {
    if (t) t->impl = nullptr;
}

void tuple_clear(Tqz_tuple* t) {
    if (!t) return;
    delete impl(t);
    t->impl = nullptr;
}

void tuple_add(Tqz_tuple* t, const Tqz_any* value) {
    if (!t) return;
    if (!t->impl) t->impl = new Tuple_impl();
    impl(t)->emplace_back(value);
}

const Tqz_any* tuple_get(const Tqz_tuple* t, unsigned int index) {
    Tuple_impl* v = impl(t);
    return v && index < v->size() ? (*v)[index].get() : nullptr;
}

unsigned int tuple_count(const Tqz_tuple* t) {
    Tuple_impl* v = impl(t);
    return v ? static_cast<unsigned int>(v->size()) : 0;
}

}  // extern "C"
