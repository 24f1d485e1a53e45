// Tqz_basic_obj: the root of the library's objects that are destroyed
// through a base pointer.
#pragma once

class Tqz_basic_obj {
  public:
    Tqz_basic_obj() = default;
    virtual ~Tqz_basic_obj() = default;
    Tqz_basic_obj(const Tqz_basic_obj&) = delete;
    Tqz_basic_obj& operator=(const Tqz_basic_obj&) = delete;
};
