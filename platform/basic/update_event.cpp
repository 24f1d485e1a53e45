// Update events: property tables whose integer entry "event" tells the kind.
#include "qzk_basic.h"

namespace {

void init_kind(Tqz_table* ev, int32_t kind) {
    if (!ev) return;
    table_init(ev);
    Tqz_any v;
    any_init(&v);
    any_assign_integer(&v, kind);
    table_set(ev, "event", &v);
}

}  // namespace

extern "C" {

int32_t qz_event_kind(const Tqz_table* event) {
    const Tqz_any* v = table_get(event, "event");
    return v && any_get_type(v) == QZ_ANY_INTEGER ? any_get_integer(v) : 0;
}

void qz_update_event_init(Tqz_table* ev) {
    init_kind(ev, QZ_EVENT_UPDATE);
}

void qz_update_event_init_details(Tqz_table* ev) {
    if (!ev) return;
    const Tqz_any* old = table_get(ev, "count");
    int32_t count = old && any_get_type(old) == QZ_ANY_INTEGER ? any_get_integer(old) : 0;
    Tqz_any v;
    any_init(&v);
    any_assign_integer(&v, count < INT32_MAX ? count + 1 : count);
    table_set(ev, "count", &v);
}

void qz_update_event_clear(Tqz_table* ev) {
    table_clear(ev);
}

void qz_begin_update_event_init(Tqz_table* ev) {
    init_kind(ev, QZ_EVENT_BEGIN_UPDATE);
}

void qz_begin_update_event_clear(Tqz_table* ev) {
    table_clear(ev);
}

void qz_end_update_event_init(Tqz_table* ev) {
    init_kind(ev, QZ_EVENT_END_UPDATE);
}

void qz_end_update_event_clear(Tqz_table* ev) {
    table_clear(ev);
}

}  // extern "C"
