// Variants, property tables and tuples: ownership and copies.
#include <gtest/gtest.h>

#include <cstring>

#include "qzk_basic.h"

namespace {

TEST(Variant, AssignmentsReplaceAndOwnTheirString) {
    Tqz_any a;
    any_init(&a);
    EXPECT_EQ(any_get_type(&a), QZ_ANY_EMPTY);
    char text[] = "hello";
    any_assign_string(&a, text);
    text[0] = 'J';  // the variant keeps its own copy
    EXPECT_STREQ(any_get_string(&a), "hello");
    any_assign_string(&a, any_get_string(&a));  // self-assignment is safe
    EXPECT_STREQ(any_get_string(&a), "hello");
    any_assign_integer(&a, -7);
    EXPECT_EQ(any_get_type(&a), QZ_ANY_INTEGER);
    EXPECT_EQ(any_get_integer(&a), -7);
    EXPECT_EQ(any_get_string(&a), nullptr);
    any_assign_floating(&a, 2.5);
    EXPECT_DOUBLE_EQ(any_get_floating(&a), 2.5);
    any_assign_boolean(&a, true);
    EXPECT_TRUE(any_get_boolean(&a));
    any_clear(&a);
    EXPECT_EQ(any_get_type(&a), QZ_ANY_EMPTY);
}

TEST(TableTuple, ValuesAreCopiedAndLookedUp) {
    Tqz_table t;
    table_init(&t);
    EXPECT_EQ(table_count(&t), 0u);
    EXPECT_EQ(table_get(&t, "x"), nullptr);
    Tqz_any v;
    any_init(&v);
    any_assign_string(&v, "name");
    table_set(&t, "s", &v);
    any_assign_integer(&v, 3);
    table_set(&t, "i", &v);
    table_set(&t, "i", &v);  // replaces
    any_clear(&v);
    EXPECT_EQ(table_count(&t), 2u);
    EXPECT_STREQ(any_get_string(table_get(&t, "s")), "name");
    EXPECT_EQ(any_get_integer(table_get(&t, "i")), 3);
    table_clear(&t);
    EXPECT_EQ(table_count(&t), 0u);

    Tqz_tuple u;
    tuple_init(&u);
    any_assign_floating(&v, 1.5);
    tuple_add(&u, &v);
    any_assign_string(&v, "b");
    tuple_add(&u, &v);
    any_clear(&v);
    ASSERT_EQ(tuple_count(&u), 2u);
    EXPECT_DOUBLE_EQ(any_get_floating(tuple_get(&u, 0)), 1.5);
    EXPECT_STREQ(any_get_string(tuple_get(&u, 1)), "b");
    EXPECT_EQ(tuple_get(&u, 2), nullptr);
    tuple_clear(&u);
}

}  // namespace
