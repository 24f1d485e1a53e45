// Shared fixtures of the memory table tests.
#pragma once

#include <cstring>

#include "qzk_file_dbf.h"

namespace memory_test {

// A descriptor with no decimals.
inline Tqz_dbf_field field(const char* name, char type, unsigned char flen) {
    Tqz_dbf_field f;
    std::memset(&f, 0, sizeof f);
    std::strncpy(f.name, name, 10);
    f.type = type;
    f.flen = flen;
    return f;
}

}  // namespace memory_test
