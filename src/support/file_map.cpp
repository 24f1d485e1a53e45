#include "support/file_map.h"

#include <sys/mman.h>

#include <cstdint>

namespace qz {

namespace {

// Mappings of more than the address space can hold are not tried.
constexpr uint64_t max_map = static_cast<uint64_t>(PTRDIFF_MAX) / 2;

}  // namespace

bool file_map::map(int fd, uint64_t len) {
    unmap();
    if (fd < 0 || len == 0 || len > max_map) return false;
    void* p = ::mmap(nullptr, static_cast<size_t>(len), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (p == MAP_FAILED) return false;
    base_ = static_cast<uint8_t*>(p);
    len_ = len;
    return true;
}

bool file_map::resize(uint64_t len) {
    if (!base_) return false;
    if (len == len_) return true;
    if (len == 0 || len > max_map) {
        unmap();
        return false;
    }
    void* p = ::mremap(base_, static_cast<size_t>(len_), static_cast<size_t>(len), MREMAP_MAYMOVE);
    if (p == MAP_FAILED) {
        unmap();
        return false;
    }
    base_ = static_cast<uint8_t*>(p);
    len_ = len;
    return true;
}

void file_map::unmap() {
    if (base_) ::munmap(base_, static_cast<size_t>(len_));
    base_ = nullptr;
    len_ = 0;
}

}  // namespace qz
