#include "text_cells.h"

#include <cstring>

namespace qzpy {

text_maker::text_maker(const std::string& encoding) : slots_(kSlots) {
    utf8_ = encoding == "utf-8";
    if (utf8_) return;
    // The upper half of a single-byte code page, decoded once by Python's
    // codec. A byte the code page leaves undefined is dropped (0 here), as
    // the library's conversion drops it.
    for (unsigned b = 0; b < 128; ++b) {
        const char byte = static_cast<char>(0x80 + b);
        PyObject* s = PyUnicode_Decode(&byte, 1, encoding.c_str(), "strict");
        Py_UCS4 c = 0;
        if (s != nullptr && PyUnicode_GET_LENGTH(s) == 1) c = PyUnicode_READ_CHAR(s, 0);
        if (s == nullptr) PyErr_Clear();
        Py_XDECREF(s);
        upper_[b] = c <= 0xFFFF ? static_cast<Py_UCS2>(c) : 0;
    }
}

text_maker::~text_maker() {
    for (auto& s : slots_) Py_XDECREF(s.value);
}

PyObject* text_maker::decode(const unsigned char* p, unsigned len) {
    bool ascii = true;
    for (unsigned i = 0; i < len; ++i) {
        if (p[i] >= 0x80) {
            ascii = false;
            break;
        }
    }
    if (ascii) {
        PyObject* s = PyUnicode_New(len, 127);
        if (s != nullptr) std::memcpy(PyUnicode_1BYTE_DATA(s), p, len);
        return s;
    }
    if (utf8_) {
        // Bytes that are no UTF-8 are dropped, as the library's conversion
        // drops them; blanks they stood before are then trailing ones.
        PyObject* s = PyUnicode_DecodeUTF8(reinterpret_cast<const char*>(p), len, "ignore");
        if (s == nullptr) return nullptr;
        Py_ssize_t n = PyUnicode_GET_LENGTH(s);
        Py_ssize_t kept = n;
        while (kept > 0 && PyUnicode_READ_CHAR(s, kept - 1) == ' ') --kept;
        if (kept == n) return s;
        PyObject* cut = PyUnicode_Substring(s, 0, kept);
        Py_DECREF(s);
        return cut;
    }
    wide_.resize(len);
    size_t n = 0;
    for (unsigned i = 0; i < len; ++i) {
        const Py_UCS2 c = p[i] < 0x80 ? p[i] : upper_[p[i] - 0x80];
        if (c != 0) wide_[n++] = c;
    }
    while (n > 0 && wide_[n - 1] == ' ') --n;
    return PyUnicode_FromKindAndData(PyUnicode_2BYTE_KIND, wide_.data(),
                                     static_cast<Py_ssize_t>(n));
}

PyObject* text_maker::make(const unsigned char* p, unsigned len) {
    if (len > kLongest) return decode(p, len);
    uint64_t h = 1469598103934665603ull;
    for (unsigned i = 0; i < len; ++i) h = (h ^ p[i]) * 1099511628211ull;
    slot& s = slots_[(h ^ (h >> 29)) & (kSlots - 1)];
    if (s.value != nullptr && s.hash == h && s.key.size() == len &&
        std::memcmp(s.key.data(), p, len) == 0) {
        Py_INCREF(s.value);
        return s.value;
    }
    PyObject* v = decode(p, len);
    if (v == nullptr) return nullptr;
    Py_XDECREF(s.value);
    Py_INCREF(v);
    s.value = v;
    s.hash = h;
    s.key.assign(reinterpret_cast<const char*>(p), len);
    return v;
}

}  // namespace qzpy
