// Deep copies of Tqz_any values, used by the containers that own them.
#pragma once

#include "qzk_basic.h"

namespace qz::basic {

// Makes `dst` (initialised or cleared) an independent copy of `src`.
inline void any_copy(Tqz_any* dst, const Tqz_any* src) {
    switch (src ? src->type : QZ_ANY_EMPTY) {
        case QZ_ANY_STRING:
            any_assign_string(dst, src->v.s);
            break;
        case QZ_ANY_INTEGER:
            any_assign_integer(dst, src->v.i);
            break;
        case QZ_ANY_FLOATING:
            any_assign_floating(dst, src->v.d);
            break;
        case QZ_ANY_BOOLEAN:
            any_assign_boolean(dst, src->v.b);
            break;
        default:
            any_clear(dst);
            break;
    }
}

// An owning wrapper so that standard containers can hold variants.
class Any_value {
  public:
    Any_value() { any_init(&v_); }
    explicit Any_value(const Tqz_any* src) : Any_value() { any_copy(&v_, src); }
    Any_value(const Any_value& o) : Any_value() { any_copy(&v_, &o.v_); }
    Any_value& operator=(const Any_value& o) {
        if (this != &o) any_copy(&v_, &o.v_);
        return *this;
    }
    ~Any_value() { any_clear(&v_); }
    const Tqz_any* get() const { return &v_; }

  private:
    Tqz_any v_;
};

}  // namespace qz::basic
