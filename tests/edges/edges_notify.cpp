// The change-notification objects at their edges (white-box: no export
// compares two objects).
#include <gtest/gtest.h>

#include "notify/extensible_obj.h"
#include "qzk_basic.h"

namespace {

void set(Tqz_any& a, int kind, int which) {
    switch (kind) {
        case QZ_ANY_STRING:
            any_assign_string(&a, which ? "b" : "a");
            break;
        case QZ_ANY_INTEGER:
            any_assign_integer(&a, which ? 7 : -7);
            break;
        case QZ_ANY_FLOATING:
            any_assign_floating(&a, which ? 2.5 : 0.1);
            break;
        default:
            any_assign_boolean(&a, which != 0);
            break;
    }
}

// Two objects are equal when their extra values are: the same value of any
// kind compares equal (also in an object that took the values over with
// assign), another value or another kind does not. A wrong answer would
// make a caller miss a changed setting, or see one where none changed.
TEST(EdgesNotify, ExtraValuesOfEveryKindDecideEquality) {
    const int kinds[] = {QZ_ANY_STRING, QZ_ANY_INTEGER, QZ_ANY_FLOATING, QZ_ANY_BOOLEAN};
    for (int kind : kinds) {
        SCOPED_TRACE(kind);
        Tqz_extensible_obj a, same, copy, other, other_kind;
        Tqz_any v, w, u;
        any_init(&v);
        any_init(&w);
        any_init(&u);
        set(v, kind, 0);
        set(w, kind, 1);
        set(u, kind == QZ_ANY_INTEGER ? QZ_ANY_STRING : QZ_ANY_INTEGER, 0);
        a.set_extra("x", &v);
        same.set_extra("x", &v);
        copy.assign(&a);
        other.set_extra("x", &w);
        other_kind.set_extra("x", &u);
        EXPECT_TRUE(a.equal(&same));
        EXPECT_TRUE(copy.equal(&a));
        EXPECT_FALSE(a.equal(&other));
        EXPECT_FALSE(a.equal(&other_kind));
        any_clear(&v);
        any_clear(&w);
        any_clear(&u);
    }
}

}  // namespace
