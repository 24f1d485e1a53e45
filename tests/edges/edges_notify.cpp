// The change-notification objects at their edges (white-box: no export
// compares two objects).
#include <gtest/gtest.h>

#include "notify/extensible_obj.h"
#include "qzk_basic.h"

namespace {

// Two objects are equal when their extra values are: the same value of any
// kind compares equal (also in an object that took the values over with
// assign), another value or another kind does not. A wrong answer would
// make a caller miss a changed setting, or see one where none changed.
TEST(EdgesNotify, ExtraValuesOfEveryKindDecideEquality) {
    // Per kind (string, integer, floating, boolean): one of two values.
    void (*const set[])(Tqz_any*, int) = {
        [](Tqz_any* a, int which) { any_assign_string(a, which ? "b" : "a"); },
        [](Tqz_any* a, int which) { any_assign_integer(a, which ? 7 : -7); },
        [](Tqz_any* a, int which) { any_assign_floating(a, which ? 2.5 : 0.1); },
        [](Tqz_any* a, int which) { any_assign_boolean(a, which != 0); }};
    for (int kind = 0; kind < 4; ++kind) {
        SCOPED_TRACE(kind);
        Tqz_extensible_obj a, same, copy, other, other_kind;
        Tqz_any v, w, u;
        for (Tqz_any* x : {&v, &w, &u}) any_init(x);
        set[kind](&v, 0);
        set[kind](&w, 1);
        set[(kind + 1) % 4](&u, 0);
        a.set_extra("x", &v);
        same.set_extra("x", &v);
        copy.assign(&a);
        other.set_extra("x", &w);
        other_kind.set_extra("x", &u);
        EXPECT_TRUE(a.equal(&same));
        EXPECT_TRUE(copy.equal(&a));
        EXPECT_FALSE(a.equal(&other));
        EXPECT_FALSE(a.equal(&other_kind));
        for (Tqz_any* x : {&v, &w, &u}) any_clear(x);
    }
}

}  // namespace
