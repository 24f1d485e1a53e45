// Tqz_memo_file: what the FPT and DBT readers share: the open memo file
// and the growable buffer that their get_memo results point into.
#pragma once

#include <cstdint>
#include <cstdio>

class Tqz_memo_file {
  public:
    Tqz_memo_file(const Tqz_memo_file&) = delete;
    Tqz_memo_file& operator=(const Tqz_memo_file&) = delete;

    // Sets the buffer's capacity to n bytes (a negative n counts as 0, which
    // frees the buffer). When memory runs out the buffer stays as it was.
    void set_buff_size(int n);
    int32_t get_buff_size() const { return buff_size; }

    // Frees the buffer (capacity 0) and closes the file.
    void close();
    bool is_open() const { return file != nullptr; }
    // Whether the file is open for writing ("rb+").
    bool is_writable() const { return file != nullptr && !read_only; }

    // Raw access for the memo layouts built on the file: up to `n` bytes
    // from `offset` (the count read), `n` bytes written at `offset` and
    // flushed (false when the file is closed, read-only or the write
    // fails), and the file's size in bytes.
    size_t read_raw(int64_t offset, void* dst, size_t n) { return read_at(offset, dst, n); }
    bool write_raw(int64_t offset, const void* src, size_t n);
    int64_t raw_size() { return file_size(); }

  protected:
    Tqz_memo_file();
    ~Tqz_memo_file();

    // Opens the memo file "rb", or "rb+" unless `read_only`, closing the one
    // open before. False when it cannot be opened.
    bool open_file(const wchar_t* path, bool read_only);

    // Moves to `offset`; false for a negative offset or a closed file.
    bool seek(int64_t offset);
    // Up to `n` bytes from the current position; the count read.
    size_t read(void* dst, size_t n);
    // Up to `n` bytes from `offset`; the count read. Nothing is read from a
    // negative offset, a closed file or past the end.
    size_t read_at(int64_t offset, void* dst, size_t n) { return seek(offset) ? read(dst, n) : 0; }
    // The file's current size in bytes; 0 when unknown.
    int64_t file_size();
    // Makes room for `len` bytes and a terminating zero: the buffer grows to
    // exactly len + 1 bytes when it is smaller, and never shrinks here.
    // Null when memory runs out or len + 1 does not fit the capacity.
    char* reserve(uint32_t len);

    FILE* file = nullptr;
    bool read_only = true;
    int32_t buff_size = 0;
    char* buff = nullptr;  // malloc'd, buff_size bytes
};
