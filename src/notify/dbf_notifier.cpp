#include "notify/dbf_notifier.h"

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>

#include "api/guard.h"
#include "code_page_text.h"
#include "support/file_window.h"
#include "support/filesystem.h"

namespace {

struct Path_less {
    bool operator()(const std::wstring& a, const std::wstring& b) const {
        return Tqz_dbf_notifier::icmp(a, b) < 0;
    }
};

struct Registry {
    std::mutex lock;
    std::condition_variable unpinned;
    std::map<std::wstring, Tqz_dbf_notifier*, Path_less> map;
};

// Never destroyed: watcher threads of notifiers a host never gave back may
// still look at it while the process exits.
Registry& registry() {
    static Registry* r = new Registry();
    return *r;
}

}  // namespace

int Tqz_dbf_notifier::icmp(const std::wstring& a, const std::wstring& b) {
    return qz_text_icompare_w(a.c_str(), b.c_str());
}

Tqz_dbf_notifier* Tqz_dbf_notifier::get_instance(const wchar_t* path_w) {
    std::wstring key = path_w ? path_w : L"";
    Registry& r = registry();
    std::lock_guard<std::mutex> g(r.lock);
    Tqz_dbf_notifier*& slot = r.map[key];
    if (!slot) {
        try {
            new Tqz_dbf_notifier(key.c_str());  // enters itself in the registry
        } catch (...) {
            r.map.erase(key);
            throw;
        }
    }
    ++slot->ref_count;
    return slot;
}

Tqz_dbf_notifier* Tqz_dbf_notifier::get_instance(const char* path) {
    std::wstring w = path ? qz::basic::cp_to_wide(0, path, std::strlen(path)) : std::wstring();
    return get_instance(w.c_str());
}

void Tqz_dbf_notifier::release(Tqz_dbf_notifier* n) {
    if (!n) return;
    {
        Registry& r = registry();
        std::unique_lock<std::mutex> g(r.lock);
        if (n->ref_count == 0 || --n->ref_count > 0) return;
        auto it = r.map.find(n->path);
        if (it != r.map.end() && it->second == n) r.map.erase(it);
        // A later get_instance of the path makes a new notifier from here on.
        auto& holders = n->pin_threads;
        if (std::find(holders.begin(), holders.end(), std::this_thread::get_id()) !=
            holders.end()) {
            // Called from inside one of its own deliveries: the delivery
            // frees it when it is over.
            n->released = true;
            return;
        }
        // A delivery on another thread finishes first (no new one can start).
        r.unpinned.wait(g, [&] { return n->pin_threads.empty(); });
    }
    delete n;
}

bool Tqz_dbf_notifier::pin() {
    std::lock_guard<std::mutex> g(registry().lock);
    if (ref_count == 0) return false;
    try {
        pin_threads.push_back(std::this_thread::get_id());
    } catch (...) {
        return false;  // out of memory: the call is skipped
    }
    return true;
}

void Tqz_dbf_notifier::unpin() {
    bool last;
    {
        Registry& r = registry();
        std::lock_guard<std::mutex> g(r.lock);
        auto it = std::find(pin_threads.begin(), pin_threads.end(), std::this_thread::get_id());
        if (it != pin_threads.end()) pin_threads.erase(it);
        last = pin_threads.empty() && released;
        r.unpinned.notify_all();
    }
    if (last) delete this;
}

unsigned int Tqz_dbf_notifier::get_ref_count() const {
    std::lock_guard<std::mutex> g(registry().lock);
    return ref_count;
}

// Runs under the registry lock (from get_instance).
Tqz_dbf_notifier::Tqz_dbf_notifier(const wchar_t* path_w) : path(path_w) {
    registry().map[path] = this;
    // A bare file name lives in the current folder.
    std::wstring folder = qz::filesystem::directory(path);
    if (folder.empty() && !path.empty()) folder = L".";
    watcher = qz_folder_watcher_create(folder.c_str(), 0);
    if (watcher) {
        watcher_events = qz_folder_watcher_get_events(watcher);
        qz_event_channel_add_client(watcher_events, &event_channel_callback_proc, this);
    }
    try {
        last_mtime.store(qz::filesystem::file_mtime(path));
    } catch (...) {
        // Without a first time, the first change seen counts as an update.
    }
}

Tqz_dbf_notifier::~Tqz_dbf_notifier() {
    // First of all: after these two no watcher callback runs or is running
    // (unless this is that callback, freeing the notifier as it ends).
    qz_event_channel_del_client(watcher_events, &event_channel_callback_proc, this);
    qz_folder_watcher_destroy(watcher);
    Registry& r = registry();
    std::lock_guard<std::mutex> g(r.lock);
    auto it = r.map.find(path);
    if (it != r.map.end() && it->second == this) r.map.erase(it);
}

void Tqz_dbf_notifier::event_channel_callback_proc(Tqz_table*, void* user) {
    auto* n = static_cast<Tqz_dbf_notifier*>(user);
    if (!n || !n->pin()) return;  // its last reference is gone; it is being destroyed
    // Whatever changed in the folder, cached bytes of the file are stale
    // from here on, before anyone hears of the change.
    n->changes.fetch_add(1, std::memory_order_acq_rel);
    qz::api::guarded([&] { n->check_file(); });
    n->unpin();
}

// Any change in the folder leads here; only a new modification time of our
// file is an update. A missing file (time 0) is ignored and the last time
// kept, so a file deleted and written again is an update.
void Tqz_dbf_notifier::check_file() {
    int64_t now = qz::filesystem::file_mtime(path);
    if (now == 0) return;
    if (last_mtime.exchange(now) == now) return;
    std::lock_guard<std::recursive_mutex> g(update_mutex());
    begin_update();
    broadcast_update_event();
    end_update();
}

void Tqz_dbf_notifier::add_window(qz::file_window* window) {
    std::lock_guard<std::mutex> g(windows_lock);
    windows.push_back(window);
}

void Tqz_dbf_notifier::remove_window(qz::file_window* window) {
    std::lock_guard<std::mutex> g(windows_lock);
    auto it = std::find(windows.begin(), windows.end(), window);
    if (it != windows.end()) windows.erase(it);
}

void Tqz_dbf_notifier::before_update_event() {
    std::lock_guard<std::mutex> g(windows_lock);
    for (qz::file_window* w : windows) w->flush_before_event();
}
