#include "dbf/record.h"

#include <cstdlib>
#include <cstring>

Tqz_dbf_record::Tqz_dbf_record(unsigned int n) {
    if (n > 0 && realloc_bytes(n)) fill_spaces();
}

bool Tqz_dbf_record::realloc_bytes(unsigned int n) {
    if (n == 0) {
        free_bytes();
        return true;
    }
    void* grown = std::realloc(bytes, n);
    if (!grown) return false;
    bytes = static_cast<unsigned char*>(grown);
    size = capacity = n;
    return true;
}

void Tqz_dbf_record::fill_spaces() {
    if (bytes) std::memset(bytes, ' ', size);
}

void Tqz_dbf_record::free_bytes() {
    std::free(bytes);
    bytes = nullptr;
    size = capacity = 0;
}

void Tqz_dbf_record::assign(const Tqz_dbf_record* other) {
    if (!other || other == this) return;
    unsigned int n = other->size < capacity ? other->size : capacity;
    if (n > 0) std::memmove(bytes, other->bytes, n);
    size = n;
}
