// An exclusive lock on a file, waited for: for a shared scratch file (a
// fixed name in the temporary folder) that two processes must not fill at
// the same time. The lock file stays; only the lock goes.
#pragma once

#include <string>

namespace qz::filesystem {

class wait_lock {
  public:
    wait_lock() = default;
    wait_lock(const wait_lock&) = delete;
    wait_lock& operator=(const wait_lock&) = delete;
    ~wait_lock() { release(); }

    // Takes the lock on `path` (created when missing), waiting up to
    // `timeout_ms` for another holder to let go; false when it cannot be
    // taken in time or the file cannot be made.
    bool take(const std::wstring& path, int timeout_ms);
    void release();

  private:
    int fd = -1;
};

}  // namespace qz::filesystem
