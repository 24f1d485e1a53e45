// C cells to Python str objects: the field's bytes (cut and trimmed as the
// library's text read does) decoded from the table's encoding. A column of
// few distinct texts shares one str per text: a small cache keyed by the
// bytes answers repeated short texts without decoding them again.
#pragma once

#include <Python.h>

#include <cstdint>
#include <string>
#include <vector>

namespace qzpy {

class text_maker {
  public:
    // `encoding`: "utf-8", "cp1251" or "cp866" (the table's text). Needs the
    // GIL, as every call does.
    explicit text_maker(const std::string& encoding);
    ~text_maker();
    text_maker(const text_maker&) = delete;
    text_maker& operator=(const text_maker&) = delete;

    // A new reference to the str of the `len` bytes at `p` (bad UTF-8 is
    // replaced); null with a Python error set when memory runs out.
    PyObject* make(const unsigned char* p, unsigned len);

  private:
    PyObject* decode(const unsigned char* p, unsigned len);

    struct slot {
        uint64_t hash = 0;
        std::string key;
        PyObject* value = nullptr;
    };
    static constexpr unsigned kSlots = 1024;
    static constexpr unsigned kLongest = 40;  // longer texts are not kept

    bool utf8_ = true;
    Py_UCS2 upper_[128] = {};  // code points of the bytes 0x80..0xFF
    std::vector<slot> slots_;
    std::vector<Py_UCS2> wide_;
};

}  // namespace qzpy
