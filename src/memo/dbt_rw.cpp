#include "memo/dbt_rw.h"

#include <cstring>

#include "code_page_text.h"

using namespace qz::memo;

Tqz_dbt_rw::Tqz_dbt_rw() {
    std::memset(&header, 0, sizeof header);
}

Tqz_dbt_rw::~Tqz_dbt_rw() = default;

int Tqz_dbt_rw::open(const wchar_t* path, bool read_only) {
    if (!open_file(path, read_only)) return 1;
    read_file_hdr(&header);
    return 0;
}

int Tqz_dbt_rw::open(const char* path, bool read_only) {
    std::wstring w = path ? qz::basic::cp_to_wide(0, path, std::strlen(path)) : std::wstring();
    return open(w.c_str(), read_only);
}

bool Tqz_dbt_rw::read_file_hdr(Tdbt_file_hdr* hdr) {
    if (!hdr) return false;
    std::memset(hdr, 0, sizeof *hdr);
    read_at(0, hdr, sizeof *hdr);
    return true;
}

const char* Tqz_dbt_rw::get_memo(unsigned int block, unsigned int& len, unsigned int& type) {
    len = 0;
    type = 0;
    const int64_t start = static_cast<uint32_t>(block << 9);  // a 32-bit shift, as addressed

    // Look for the terminator chunk by chunk; a short chunk is the end of file.
    char chunk[dbt_block_size];
    uint32_t scanned = 0;
    if (!seek(start)) return nullptr;
    for (size_t c = 0; c < dbt_max_chunks; ++c) {
        size_t got = read(chunk, sizeof chunk);
        if (const void* end = std::memchr(chunk, dbt_terminator, got)) {
            len = scanned + static_cast<uint32_t>(static_cast<const char*>(end) - chunk);
            type = 1;
            break;
        }
        scanned += static_cast<uint32_t>(got);
        if (got < sizeof chunk) break;
    }
    if (len == 0) return nullptr;

    char* out = reserve(len);
    if (!out) {
        len = 0;
        return nullptr;
    }
    // The file may have changed since the scan: keep only what is read now.
    len = static_cast<unsigned int>(read_at(start, out, len));
    out[len] = 0;
    return out;
}
