#include "memo/memo_file.h"

#include <cstdlib>
#include <string>

#include "memo/memo_format.h"
#include "support/filesystem.h"

Tqz_memo_file::Tqz_memo_file() {
    set_buff_size(qz::memo::initial_buffer_size);
}

Tqz_memo_file::~Tqz_memo_file() {
    close();
}

void Tqz_memo_file::set_buff_size(int n) {
    if (n <= 0) {
        std::free(buff);
        buff = nullptr;
        buff_size = 0;
        return;
    }
    void* grown = std::realloc(buff, static_cast<size_t>(n));
    if (!grown) return;
    buff = static_cast<char*>(grown);
    buff_size = n;
}

void Tqz_memo_file::close() {
    set_buff_size(0);
    if (file) std::fclose(file);
    file = nullptr;
}

bool Tqz_memo_file::open_file(const wchar_t* path, bool read_only) {
    if (file) std::fclose(file);
    file = qz::filesystem::wfopen(path ? path : L"", read_only ? "rb" : "rb+");
    this->read_only = read_only;
    return file != nullptr;
}

bool Tqz_memo_file::seek(int64_t offset) {
    if (!file || offset < 0) return false;
    if (std::fseek(file, static_cast<long>(offset), SEEK_SET) == 0) return true;
    std::clearerr(file);
    return false;
}

size_t Tqz_memo_file::read(void* dst, size_t n) {
    if (!file || n == 0) return 0;
    size_t got = std::fread(dst, 1, n, file);
    if (got < n) std::clearerr(file);
    return got;
}

bool Tqz_memo_file::write_raw(int64_t offset, const void* src, size_t n) {
    if (!seek(offset)) return false;
    const bool ok = std::fwrite(src, 1, n, file) == n && std::fflush(file) == 0;
    if (!ok) std::clearerr(file);
    return ok;
}

int64_t Tqz_memo_file::file_size() {
    if (!file || std::fseek(file, 0, SEEK_END) != 0) return 0;
    long end = std::ftell(file);
    return end > 0 ? static_cast<int64_t>(end) : 0;
}

char* Tqz_memo_file::reserve(uint32_t len) {
    if (len >= static_cast<uint32_t>(INT32_MAX)) return nullptr;
    const int32_t needed = static_cast<int32_t>(len) + 1;
    if (needed > buff_size) {
        set_buff_size(needed);
        if (buff_size != needed) return nullptr;
    }
    return buff;
}
