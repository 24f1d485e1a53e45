// Tqz_dbf_notifier: one shared object per table file that watches the
// file's folder and sends an update event on its channel whenever the file's
// modification time changes.
//
// Notifiers are kept in a process-wide registry keyed by the path as given,
// compared without regard to letter case, and counted: get_instance adds a
// reference, release takes one back and destroys the notifier with the last.
//
// Threads: the folder watcher calls back on its own thread. The registry and
// the reference counts sit under one lock; the bracket state under the lock
// of Tqz_extensible_obj. Every delivery pins the notifier. Giving back the
// last reference takes the notifier out of the registry at once; it is then
// destroyed after any delivery running on another thread has finished, or,
// when a client gives it back from inside a delivery, as that delivery ends.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "notify/extensible_obj.h"
#include "qzk_path.h"

namespace qz {
class file_window;
}

class Tqz_dbf_notifier : public Tqz_extensible_obj {
  public:
    // The notifier of `path`, created on first use; adds one reference.
    static Tqz_dbf_notifier* get_instance(const wchar_t* path);
    // The narrow path is system text.
    static Tqz_dbf_notifier* get_instance(const char* path);
    // Gives one reference back; the last one destroys the notifier.
    static void release(Tqz_dbf_notifier* notifier);

    // The order of the registry: <0, 0, >0 without regard to letter case.
    static int icmp(const std::wstring& a, const std::wstring& b);

    // Client of the watcher's channel; `user` is the notifier.
    static void event_channel_callback_proc(Tqz_table* event, void* user);

    ~Tqz_dbf_notifier() override;

    const std::wstring& get_path() const { return path; }
    unsigned int get_ref_count() const;
    bool is_watching() const { return watcher != nullptr; }

    // Keeps the notifier alive for the length of a call that may hand
    // control to clients. pin() is false when no reference is left; every
    // successful pin() is matched by unpin() on the same thread, which may
    // free the notifier.
    bool pin();
    void unpin();

    // The file's change counter: moved by the folder watcher before it
    // sends an update event, and by every write a table of this process
    // sends to the file. Windows that follow it drop stale bytes.
    std::atomic<uint64_t>* change_counter() { return &changes; }
    // The windows of the open tables on this file: what they hold pending
    // is written to the file before an update event is sent.
    void add_window(qz::file_window* window);
    void remove_window(qz::file_window* window);

  protected:
    void before_update_event() override;

  private:
    explicit Tqz_dbf_notifier(const wchar_t* path);
    void check_file();

    uint32_t ref_count = 0;  // under the registry lock, as are the two below
    std::vector<std::thread::id> pin_threads;
    bool released = false;
    const std::wstring path;
    Iqz_folder_watcher* watcher = nullptr;
    Iqz_event_channel* watcher_events = nullptr;
    std::atomic<int64_t> last_mtime{0};
    std::atomic<uint64_t> changes{0};
    std::mutex windows_lock;
    std::vector<qz::file_window*> windows;
};
