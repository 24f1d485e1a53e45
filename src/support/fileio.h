// Files opened two ways: as a standard stream (text files such as .cpg) and
// as a handle that keeps other writers out (the ".lk" writer lock).
#pragma once

#include <cstdio>
#include <string>

#include "encoding/encodings.h"

namespace qz {

namespace detail {

enum access_mode_t : unsigned {
    access_read = 1,
    access_write = 2,
    access_append = 4,
    access_text = 8,
    access_binary = 16,
};

enum lock_mode_t : unsigned {
    lock_none = 0,
    lock_exclusive = 1,
};

// The stdio mode string for an access mode: "r+", "w", "a" or "r", then "b"
// or "t" (the latter is accepted and ignored by the C library).
std::string stdio_mode(unsigned access);

class fileio_std {
  public:
    fileio_std() = default;
    fileio_std(const fileio_std&) = delete;
    fileio_std& operator=(const fileio_std&) = delete;
    ~fileio_std() { close(); }

    // The lock mode is accepted and not used: streams take no lock.
    bool open(const std::wstring& path, unsigned access, unsigned lock);
    void close();
    FILE* stream() const { return stream_; }

  private:
    FILE* stream_ = nullptr;
};

// A file descriptor that, once open, admits no second writer: it holds an
// exclusive flock on the file. Another holder (in this process or another)
// is waited for up to 20 attempts 1 ms apart.
class fileio_win {
  public:
    fileio_win() = default;
    fileio_win(const fileio_win&) = delete;
    fileio_win& operator=(const fileio_win&) = delete;
    ~fileio_win() { close(); }

    // `mode` as for fopen: with "w" the file is created (or emptied), with
    // "+" or "a" it is opened for writing, otherwise for reading only.
    bool open(const std::wstring& path, const wchar_t* mode, unsigned lock);
    bool open(const std::wstring& path, unsigned access, unsigned lock);
    // Removes the file while the lock is still held, then closes it, so that
    // no other process can take a lock on a name that is going away.
    bool close_and_remove(const std::wstring& path);
    void close();
    bool is_open() const { return fd_ >= 0; }
    int fd() const { return fd_; }

  private:
    int fd_ = -1;
    bool append_ = false;
};

}  // namespace detail

// A file of the tables: opened as a stream or as a locked handle, with the
// encoding its text lines are written in.
class fileio {
  public:
    explicit fileio(strconv::encodings e) : encoding_(e) {}
    strconv::encodings encoding() const { return encoding_; }
    detail::fileio_std std;
    detail::fileio_win win;

  private:
    strconv::encodings encoding_;
};

}  // namespace qz
