#include "notify/extensible_obj.h"

#include <cstring>
#include <string>

namespace {

using Lock = std::lock_guard<std::recursive_mutex>;

// An event table of one scope, cleared however the scope ends (a send that
// runs out of memory throws).
struct Scoped_event {
    Tqz_table t;
    Scoped_event() { table_init(&t); }
    explicit Scoped_event(const Tqz_table& taken) : t(taken) {}
    ~Scoped_event() { table_clear(&t); }
    Scoped_event(const Scoped_event&) = delete;
    Scoped_event& operator=(const Scoped_event&) = delete;
};

bool same_value(const Tqz_any* a, const Tqz_any* b) {
    if (!a || !b) return a == b;
    if (a->type != b->type) return false;
    switch (a->type) {
        case QZ_ANY_STRING:
            return std::strcmp(a->v.s ? a->v.s : "", b->v.s ? b->v.s : "") == 0;
        case QZ_ANY_INTEGER:
            return a->v.i == b->v.i;
        case QZ_ANY_FLOATING:
            return a->v.d == b->v.d;
        case QZ_ANY_BOOLEAN:
            return a->v.b == b->v.b;
        default:
            return true;
    }
}

bool same_table(const Tqz_table& a, const Tqz_table& b) {
    unsigned int n = table_count(&a);
    if (n != table_count(&b)) return false;
    for (unsigned int i = 0; i < n; ++i) {
        const char* key = table_key(&a, i);
        const char* other = table_key(&b, i);
        if (!key || !other || std::strcmp(key, other) != 0) return false;
        if (!same_value(table_get(&a, key), table_get(&b, key))) return false;
    }
    return true;
}

// Copies the entries of `from` into `to`, except the two that make an
// update event what it is.
void merge_details(Tqz_table& to, const Tqz_table* from) {
    if (!from) return;
    for (unsigned int i = 0, n = table_count(from); i < n; ++i) {
        const char* key = table_key(from, i);
        if (!key || !std::strcmp(key, "event") || !std::strcmp(key, "count")) continue;
        table_set(&to, key, table_get(from, key));
    }
}

}  // namespace

Tqz_extensible_obj::Tqz_extensible_obj() {
    table_init(&extras);
    table_init(&pending_event);
}

Tqz_extensible_obj::~Tqz_extensible_obj() {
    qz_event_channel_destroy(update_channel);
    table_clear(&pending_event);
    table_clear(&extras);
}

void Tqz_extensible_obj::assign(Tqz_basic_obj* src) {
    auto* other = dynamic_cast<Tqz_extensible_obj*>(src);
    if (other && other != this) table_assign(&extras, &other->extras);
}

bool Tqz_extensible_obj::equal(Tqz_basic_obj* other) {
    if (other == this) return true;
    auto* ext = dynamic_cast<Tqz_extensible_obj*>(other);
    return ext && same_table(extras, ext->extras);
}

const Tqz_any* Tqz_extensible_obj::get_extra(const char* name) {
    return table_get(&extras, name);
}

Tqz_table& Tqz_extensible_obj::get_table_extra() {
    return extras;
}

void Tqz_extensible_obj::set_table_extra(Tqz_table& values) {
    table_assign(&extras, &values);
}

void Tqz_extensible_obj::set_extra(const char* name, Tqz_any* value) {
    Tqz_any empty;
    any_init(&empty);
    table_set(&extras, name, value ? value : &empty);
}

Iqz_event_channel* Tqz_extensible_obj::get_update_event_channel() {
    Lock g(update_lock);
    if (!update_channel) update_channel = qz_event_channel_create();
    return update_channel;
}

void Tqz_extensible_obj::init_update_event() {
    Lock g(update_lock);
    if (pending) qz_update_event_clear(&pending_event);
    pending = false;
    try {
        qz_update_event_init(&pending_event);
    } catch (...) {
        table_clear(&pending_event);  // what the failed init holds already
        throw;
    }
    pending = true;
}

void Tqz_extensible_obj::send(Tqz_table& event) {
    Iqz_event_channel* ch = get_update_event_channel();
    if (ch) qz_event_channel_broadcast(ch, &event);
}

void Tqz_extensible_obj::send_kind(int kind) {
    Scoped_event ev;
    if (kind == QZ_EVENT_BEGIN_UPDATE)
        qz_begin_update_event_init(&ev.t);
    else
        qz_end_update_event_init(&ev.t);
    send(ev.t);
}

void Tqz_extensible_obj::add_update(const Tqz_any* label, const char* label_key,
                                    const Tqz_table* details) {
    Lock g(update_lock);
    if (update_count == 0) {
        Scoped_event ev;
        qz_update_event_init(&ev.t);
        qz_update_event_init_details(&ev.t);
        merge_details(ev.t, details);
        if (label) table_set(&ev.t, label_key, label);
        before_update_event();
        send(ev.t);
        return;
    }
    if (!pending) init_update_event();
    qz_update_event_init_details(&pending_event);
    merge_details(pending_event, details);
    if (label) table_set(&pending_event, label_key, label);
}

void Tqz_extensible_obj::broadcast_update_event() {
    add_update(nullptr, nullptr, nullptr);
}

void Tqz_extensible_obj::broadcast_begin_update_event() {
    Lock g(update_lock);
    send_kind(QZ_EVENT_BEGIN_UPDATE);
}

void Tqz_extensible_obj::broadcast_end_update_event() {
    Lock g(update_lock);
    send_kind(QZ_EVENT_END_UPDATE);
}

void Tqz_extensible_obj::broadcast_update_event(int code) {
    Tqz_any v;
    any_init(&v);
    any_assign_integer(&v, code);
    add_update(&v, "code", nullptr);
}

void Tqz_extensible_obj::broadcast_update_event(const char* what) {
    Tqz_any v;
    any_init(&v);
    any_assign_string(&v, what ? what : "");
    add_update(&v, "what", nullptr);
    any_clear(&v);
}

void Tqz_extensible_obj::broadcast_update_event(int code, Tqz_table& details) {
    Tqz_any v;
    any_init(&v);
    any_assign_integer(&v, code);
    add_update(&v, "code", &details);
}

void Tqz_extensible_obj::broadcast_update_event(const char* what, Tqz_table& details) {
    Tqz_any v;
    any_init(&v);
    any_assign_string(&v, what ? what : "");
    add_update(&v, "what", &details);
    any_clear(&v);
}

void Tqz_extensible_obj::broadcast_event(int kind) {
    Tqz_tuple none;
    tuple_init(&none);
    broadcast_event(kind, none);
    tuple_clear(&none);
}

void Tqz_extensible_obj::broadcast_event(int kind, Tqz_tuple& args) {
    Scoped_event ev;
    Tqz_any v;
    any_init(&v);
    any_assign_integer(&v, kind);
    table_set(&ev.t, "event", &v);
    any_clear(&v);
    for (unsigned int i = 0, n = tuple_count(&args); i < n; ++i)
        table_set(&ev.t, ("arg" + std::to_string(i)).c_str(), tuple_get(&args, i));
    Lock g(update_lock);
    send(ev.t);
}

unsigned int Tqz_extensible_obj::begin_update() {
    Lock g(update_lock);
    if (update_count == 0) broadcast_begin_update_event();
    ++update_count;
    return update_count;
}

unsigned int Tqz_extensible_obj::end_update() {
    Lock g(update_lock);
    if (update_count == 0) return 0;
    if (--update_count > 0) return update_count;
    if (pending) {
        Scoped_event ev(pending_event);  // the event is ours now: a client may start another
        table_init(&pending_event);
        pending = false;
        before_update_event();
        send(ev.t);
    }
    broadcast_end_update_event();
    return 0;
}

unsigned int Tqz_extensible_obj::get_update_depth() const {
    Lock g(update_lock);
    return update_count;
}
