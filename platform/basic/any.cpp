// Tqz_any: a tagged value whose string form is owned by the variant.
#include <cstdlib>
#include <cstring>

#include "qzk_basic.h"

extern "C" {

void any_init(Tqz_any* a) {
    if (!a) return;
    a->type = QZ_ANY_EMPTY;
    a->v.s = nullptr;
}

void any_clear(Tqz_any* a) {
    if (!a) return;
    if (a->type == QZ_ANY_STRING) std::free(a->v.s);
    any_init(a);
}

void any_assign_string(Tqz_any* a, const char* s) {
    if (!a) return;
    // Copy first: `s` may point into the variant's own string.
    char* copy = strdup(s ? s : "");
    any_clear(a);
    a->type = QZ_ANY_STRING;
    a->v.s = copy;
}

void any_assign_integer(Tqz_any* a, int32_t v) {
    if (!a) return;
    any_clear(a);
    a->type = QZ_ANY_INTEGER;
    a->v.i = v;
}

void any_assign_floating(Tqz_any* a, double v) {
    if (!a) return;
    any_clear(a);
    a->type = QZ_ANY_FLOATING;
    a->v.d = v;
}

void any_assign_boolean(Tqz_any* a, bool v) {
    if (!a) return;
    any_clear(a);
    a->type = QZ_ANY_BOOLEAN;
    a->v.b = v;
}

int32_t any_get_type(const Tqz_any* a) {
    return a ? a->type : QZ_ANY_EMPTY;
}

const char* any_get_string(const Tqz_any* a) {
    return a && a->type == QZ_ANY_STRING ? a->v.s : nullptr;
}

int32_t any_get_integer(const Tqz_any* a) {
    return a && a->type == QZ_ANY_INTEGER ? a->v.i : 0;
}

double any_get_floating(const Tqz_any* a) {
    return a && a->type == QZ_ANY_FLOATING ? a->v.d : 0.0;
}

bool any_get_boolean(const Tqz_any* a) {
    return a && a->type == QZ_ANY_BOOLEAN ? a->v.b : false;
}

}  // extern "C"
