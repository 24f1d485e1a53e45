#include "memo/fpt_rw.h"

#include <cstring>

#include "code_page_text.h"

using namespace qz::memo;

Tqz_fpt_rw::Tqz_fpt_rw() {
    std::memset(&header, 0, sizeof header);
}

Tqz_fpt_rw::~Tqz_fpt_rw() = default;

int Tqz_fpt_rw::open(const wchar_t* path, bool read_only) {
    if (!open_file(path, read_only)) return 1;
    read_file_hdr(&header);
    return 0;
}

int Tqz_fpt_rw::open(const char* path, bool read_only) {
    std::wstring w = path ? qz::basic::cp_to_wide(0, path, std::strlen(path)) : std::wstring();
    return open(w.c_str(), read_only);
}

bool Tqz_fpt_rw::read_file_hdr(Tfpt_file_hdr* hdr) {
    if (!hdr) return false;
    std::memset(hdr, 0, sizeof *hdr);
    read_at(0, hdr, sizeof *hdr);
    hdr->block_size = static_cast<int16_t>(swap_short(static_cast<uint16_t>(hdr->block_size)));
    return true;
}

int32_t Tqz_fpt_rw::block_offset(unsigned int block) const {
    // Wraps like the 32-bit product it is; a negative result addresses nothing.
    uint32_t product = block * static_cast<uint32_t>(static_cast<int32_t>(header.block_size));
    return static_cast<int32_t>(product);
}

bool Tqz_fpt_rw::read_block_hdr(int block, Tfpt_block_hdr* hdr) {
    if (!hdr) return false;
    std::memset(hdr, 0, sizeof *hdr);
    return read_at(block_offset(static_cast<unsigned int>(block)), hdr, sizeof *hdr) == sizeof *hdr;
}

const char* Tqz_fpt_rw::get_memo(unsigned int block, unsigned int& len, unsigned int& type) {
    len = 0;
    type = 0;
    Tfpt_block_hdr hdr;
    if (!read_block_hdr(static_cast<int>(block), &hdr)) return nullptr;
    type = hdr.type;
    uint32_t length = swap_int(hdr.length);

    // The length field is not trusted: only the bytes the file holds after
    // the block header are read, and only that much memory is taken.
    const int64_t data_at = static_cast<int64_t>(block_offset(block)) + sizeof hdr;
    const int64_t available = file_size() - data_at;
    if (available <= 0)
        length = 0;
    else if (static_cast<uint64_t>(length) > static_cast<uint64_t>(available))
        length = static_cast<uint32_t>(available);

    char* out = reserve(length);
    if (!out) {
        type = 0;
        return nullptr;
    }
    len = static_cast<unsigned int>(read_at(data_at, out, length));
    out[len] = 0;
    return out;
}
