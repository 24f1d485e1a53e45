#include "ogr/dbf_signature.h"

#include <strings.h>

#include <cstring>

#include "support/fileio.h"

namespace qz::ogr {

bool has_dbf_extension(const std::string& path) {
    return path.size() >= 4 && strcasecmp(path.c_str() + path.size() - 4, ".dbf") == 0;
}

bool looks_like_dbf_header(const unsigned char* h, size_t n) {
    static const unsigned char versions[] = {0x02, 0x03, 0x04, 0x05, 0x07, 0x13, 0x23, 0x30,
                                             0x31, 0x32, 0x33, 0x43, 0x63, 0x7B, 0x83, 0x87,
                                             0x8B, 0x8E, 0xB3, 0xCB, 0xE5, 0xF5, 0xFB};
    if (!h || n < 4) return false;
    if (!std::memchr(versions, h[0], sizeof versions)) return false;
    return h[2] >= 1 && h[2] <= 12 && h[3] >= 1 && h[3] <= 31;
}

bool may_be_other_vector_source(const std::wstring& path, const std::string& utf8_path) {
    if (utf8_path.empty() || has_dbf_extension(utf8_path)) return false;
    qz::detail::fileio_std f;
    if (f.open(path, qz::detail::access_read | qz::detail::access_binary, qz::detail::lock_none)) {
        unsigned char head[4] = {0, 0, 0, 0};
        const size_t n = std::fread(head, 1, sizeof head, f.stream());
        if (looks_like_dbf_header(head, n)) return false;
    }
    return true;
}

}  // namespace qz::ogr
