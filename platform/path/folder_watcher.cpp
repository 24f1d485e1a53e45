// The folder watcher: one inotify instance and one thread for every watcher
// of the process.
//
// The kernel gives a user few inotify instances (128 by default) and a host
// may keep hundreds of tables open, each with a watcher of its own. So all
// watchers add their folders to the instance of one hub, and the hub's thread
// hands the kernel's events out to them. The thread starts with the first
// watcher and is joined when the last one is destroyed; a process that
// watches nothing has no thread of ours (it keeps the idle inotify instance
// for the next watcher: see spare_notify_fd).
//
// The thread sleeps in poll() on the inotify descriptor and an eventfd that
// wakes it for shutdown. Each watcher gathers changes per file name until its
// folder has been quiet for a moment, so that one program rewriting a file
// (open, truncate, several writes, close) reaches the clients as one event
// per name instead of a storm of them.
//
// One lock guards the hubs and the state of every watcher. The thread never
// holds it while it calls clients, so a client may create and destroy
// watchers, its own included.
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "code_page_text.h"
#include "qzk_path.h"

namespace {

using Clock = std::chrono::steady_clock;

// How long the folder must stay quiet before gathered changes are sent, and
// the longest a change may wait while the folder keeps changing.
constexpr std::chrono::milliseconds quiet_time{100};
constexpr std::chrono::milliseconds longest_wait{500};
// After reading events the thread leaves the kernel's queue alone this long
// (less when changes fall due sooner): the events of a busy folder gather
// there, repeats merged, instead of waking the thread one write at a time,
// which would cost the writing thread a wake-up per write.
constexpr int batch_ms = 10;

constexpr uint32_t watch_mask = IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE | IN_CREATE | IN_DELETE |
                                IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF |
                                IN_ONLYDIR;

// A file name from the kernel (UTF-8 bytes) as system text.
std::string system_name(const std::string& utf8) {
    if (utf8.empty() || qz_options_get_ansi_code_page() == 65001) return utf8;
    return qz::basic::wide_to_cp(0, qz::basic::cp_to_wide(65001, utf8));
}

struct Hub;

// The inotify instance of the last hub that ended, kept for the next one.
// Closing an instance waits for the kernel to retire its watches (tens of
// milliseconds), which a host that opens and closes tables one after another
// would pay every time; an instance without watches costs nothing to keep.
std::atomic<int> spare_notify_fd{-1};

}  // namespace

// Guarded by the hubs' lock, but for `events` (fixed at create) and `stopping`.
struct Iqz_folder_watcher {
    Iqz_event_channel* events = nullptr;  // set by create, then only read
    Hub* hub = nullptr;
    int wd = -1;      // the kernel's watch of the folder; -1 once the folder is gone
    size_t slot = 0;  // the watcher's place in hub->watchers
    std::vector<std::string> changed;  // in the order the names first changed
    Clock::time_point first{}, last{};
    bool delivering = false;            // the hub thread is calling the clients
    bool frees_after_delivery = false;  // destroyed from one of those calls
    std::atomic<bool> stopping{false};  // destroyed: no further call starts

    ~Iqz_folder_watcher() { qz_event_channel_destroy(events); }

    // Notes a change of `name` (empty: the kernel could not say which).
    void note(const std::string& name, Clock::time_point now) {
        if (std::find(changed.begin(), changed.end(), name) == changed.end()) {
            changed.push_back(name);
            if (changed.size() == 1) first = now;
        }
        last = now;
    }

    Clock::time_point due() const { return std::min(last + quiet_time, first + longest_wait); }
};

namespace {

// One inotify instance with its thread, shared by the watchers.
struct Hub {
    int notify_fd = -1;
    int wake_fd = -1;
    std::thread thread;
    std::thread::id thread_id;
    // The watchers of each kernel watch: inotify gives every watcher of one
    // folder the same watch, which goes with the folder's last watcher.
    std::unordered_map<int, std::vector<Iqz_folder_watcher*>> folders;
    std::vector<Iqz_folder_watcher*> watchers;  // every watcher not yet destroyed
    bool ending = false;                        // the last watcher went: the thread ends
    bool frees_itself = false;                  // ... and frees the hub (it went from a callback)

    ~Hub() {
        int none = -1;
        if (notify_fd >= 0 && !spare_notify_fd.compare_exchange_strong(none, notify_fd))
            ::close(notify_fd);
        if (wake_fd >= 0) ::close(wake_fd);
    }

    bool open() {
        notify_fd = spare_notify_fd.exchange(-1);
        if (notify_fd >= 0) {
            // Events of the watches the last hub removed (IN_IGNORED at
            // least) go unread: their watch numbers are never given again.
            alignas(inotify_event) char stale[4096];
            while (::read(notify_fd, stale, sizeof stale) > 0) {
            }
        } else {
            notify_fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        }
        wake_fd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
        return notify_fd >= 0 && wake_fd >= 0;
    }

    void wake() {
        uint64_t one = 1;
        ssize_t wrote = ::write(wake_fd, &one, sizeof one);
        (void)wrote;  // an eventfd write only fails when its counter is full: it is awake
    }

    // Takes `w` in with its folder's watch `wd`. Out of memory, nothing has
    // changed, except that a watch no other watcher uses is gone.
    void add(Iqz_folder_watcher* w, int wd) {
        const bool shared = folders.count(wd) != 0;
        try {
            std::vector<Iqz_folder_watcher*>& list = folders[wd];
            list.reserve(list.size() + 1);
            watchers.reserve(watchers.size() + 1);
            list.push_back(w);
        } catch (...) {
            if (!shared) {
                folders.erase(wd);
                ::inotify_rm_watch(notify_fd, wd);
            }
            throw;
        }
        w->hub = this;
        w->wd = wd;
        w->slot = watchers.size();
        watchers.push_back(w);
    }

    // Lets go of `w`; the kernel's watch goes with the folder's last watcher.
    void remove(Iqz_folder_watcher* w) {
        auto folder = folders.find(w->wd);
        if (w->wd >= 0 && folder != folders.end()) {
            std::vector<Iqz_folder_watcher*>& list = folder->second;
            list.erase(std::remove(list.begin(), list.end(), w), list.end());
            if (list.empty()) {
                ::inotify_rm_watch(notify_fd, w->wd);
                folders.erase(folder);
            }
        }
        w->wd = -1;
        watchers[w->slot] = watchers.back();
        watchers[w->slot]->slot = w->slot;
        watchers.pop_back();
        w->changed.clear();
    }

    // Sorts the events in `buffer` out to the watchers.
    void dispatch(const char* buffer, ssize_t got, Clock::time_point now) {
        for (ssize_t pos = 0; pos + static_cast<ssize_t>(sizeof(inotify_event)) <= got;) {
            const auto* ev = reinterpret_cast<const inotify_event*>(buffer + pos);
            pos += static_cast<ssize_t>(sizeof(inotify_event) + ev->len);
            if (pos > got) break;
            try {
                std::string name =
                    ev->len ? std::string(ev->name, strnlen(ev->name, ev->len)) : std::string();
                if (ev->mask & IN_Q_OVERFLOW) {
                    // Events were lost, of any folder: everyone hears of it.
                    for (Iqz_folder_watcher* w : watchers) w->note(name, now);
                    continue;
                }
                auto folder = folders.find(ev->wd);
                if (folder == folders.end()) continue;  // its last watcher went
                if (ev->mask & IN_IGNORED) {
                    // The folder is gone (deleted, unmounted) and the watch with
                    // it. Its watchers stay until destroyed, but hear no more.
                    for (Iqz_folder_watcher* w : folder->second) w->wd = -1;
                    folders.erase(folder);
                    continue;
                }
                for (Iqz_folder_watcher* w : folder->second) w->note(name, now);
            } catch (...) {
                // Out of memory: this change is not reported.
            }
        }
    }

    // How long poll() may sleep: until the first watcher's changes are due.
    int timeout(Clock::time_point now) const {
        bool any = false;
        Clock::time_point due{};
        for (const Iqz_folder_watcher* w : watchers) {
            if (w->changed.empty()) continue;
            due = any ? std::min(due, w->due()) : w->due();
            any = true;
        }
        if (!any) return -1;
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(due - now);
        return static_cast<int>(std::max<int64_t>(0, left.count() + 1));
    }

    Iqz_folder_watcher* next_due(Clock::time_point now) const {
        for (Iqz_folder_watcher* w : watchers)
            if (!w->changed.empty() && w->due() <= now) return w;
        return nullptr;
    }
};

// The hub of new watchers, and the lock over all hubs and watchers. Never
// destroyed: the thread of watchers a host never gave back may still use it
// while the process exits.
struct Hubs {
    std::mutex lock;
    std::condition_variable delivered;  // some watcher's delivering went false
    Hub* current = nullptr;
};

Hubs& hubs() {
    static Hubs* h = new Hubs();
    return *h;
}

// Broadcasts each name to the watcher's clients; stops when it is destroyed.
void deliver(Iqz_folder_watcher* w, const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        if (w->stopping.load()) return;
        std::string text;
        try {
            text = system_name(name);
        } catch (...) {
            continue;  // out of memory: this name is not reported
        }
        Tqz_table ev;
        table_init(&ev);
        Tqz_any v;
        any_init(&v);
        any_assign_integer(&v, QZ_EVENT_FOLDER_CHANGE);
        table_set(&ev, "event", &v);
        any_assign_string(&v, text.c_str());
        table_set(&ev, "name", &v);
        any_clear(&v);
        qz_event_channel_broadcast(w->events, &ev);
        table_clear(&ev);
    }
}

void hub_main(Hub* hub) {
    Hubs& hs = hubs();
    alignas(inotify_event) char buffer[16384];
    std::unique_lock<std::mutex> lock(hs.lock);
    while (!hub->ending) {
        int timeout = hub->timeout(Clock::now());
        lock.unlock();
        pollfd fds[2] = {{hub->notify_fd, POLLIN, 0}, {hub->wake_fd, POLLIN, 0}};
        int ready = ::poll(fds, 2, timeout);
        if (ready < 0 && errno != EINTR) std::this_thread::sleep_for(quiet_time);
        lock.lock();
        const bool had_events = ready > 0 && (fds[0].revents & POLLIN);
        if (had_events) {
            for (;;) {
                lock.unlock();
                ssize_t got = ::read(hub->notify_fd, buffer, sizeof buffer);
                lock.lock();
                if (got <= 0) break;  // EAGAIN: the queue is empty
                hub->dispatch(buffer, got, Clock::now());
            }
        }
        // Whatever is due goes out, one watcher at a time, with the lock free
        // so that the clients may create and destroy watchers.
        while (!hub->ending) {
            Iqz_folder_watcher* w = hub->next_due(Clock::now());
            if (!w) break;
            std::vector<std::string> names;
            names.swap(w->changed);
            w->delivering = true;
            lock.unlock();
            deliver(w, names);
            lock.lock();
            w->delivering = false;
            hs.delivered.notify_all();
            if (w->frees_after_delivery) {
                lock.unlock();
                delete w;
                lock.lock();
            }
        }
        if (had_events && !hub->ending) {
            int due = hub->timeout(Clock::now());
            int pause = due >= 0 ? std::min(due, batch_ms) : batch_ms;
            lock.unlock();
            pollfd wake = {hub->wake_fd, POLLIN, 0};
            ::poll(&wake, 1, pause);
            lock.lock();
        }
    }
    const bool frees_itself = hub->frees_itself;
    lock.unlock();
    if (frees_itself) delete hub;
}

}  // namespace

extern "C" {

Iqz_folder_watcher* qz_folder_watcher_create(const wchar_t* folder, unsigned int flags) {
    (void)flags;
    if (!folder || !*folder) return nullptr;
    try {
        std::string native = qz::basic::wide_to_cp(65001, folder, std::wcslen(folder));
        if (native.empty()) return nullptr;
        std::unique_ptr<Iqz_folder_watcher> w(new Iqz_folder_watcher());
        w->events = qz_event_channel_create();
        if (!w->events) return nullptr;

        Hubs& hs = hubs();
        std::lock_guard<std::mutex> g(hs.lock);
        std::unique_ptr<Hub> fresh;
        Hub* hub = hs.current;
        if (!hub) {
            fresh.reset(new Hub());
            if (!fresh->open()) return nullptr;
            hub = fresh.get();
        }
        int wd = ::inotify_add_watch(hub->notify_fd, native.c_str(), watch_mask);
        if (wd < 0) return nullptr;
        hub->add(w.get(), wd);
        if (fresh) {
            // The thread takes no process signals: they stay with the host's
            // threads, whatever the host does with them.
            sigset_t all, old;
            sigfillset(&all);
            pthread_sigmask(SIG_BLOCK, &all, &old);
            try {
                fresh->thread = std::thread(hub_main, hub);
            } catch (...) {
                pthread_sigmask(SIG_SETMASK, &old, nullptr);
                return nullptr;  // the hub goes, and its watch with its descriptor
            }
            pthread_sigmask(SIG_SETMASK, &old, nullptr);
            fresh->thread_id = fresh->thread.get_id();
            hs.current = fresh.release();
        }
        return w.release();
    } catch (...) {
        return nullptr;
    }
}

Iqz_event_channel* qz_folder_watcher_get_events(Iqz_folder_watcher* w) {
    return w ? w->events : nullptr;
}

void qz_folder_watcher_destroy(Iqz_folder_watcher* w) {
    if (!w) return;
    Hubs& hs = hubs();
    std::unique_lock<std::mutex> lock(hs.lock);
    Hub* hub = w->hub;
    w->stopping.store(true);
    hub->remove(w);
    const bool on_hub_thread = std::this_thread::get_id() == hub->thread_id;
    std::thread ended;  // the hub's thread, when this ends the hub
    if (hub->watchers.empty()) {
        hub->ending = true;
        if (hs.current == hub) hs.current = nullptr;  // the next watcher starts a new one
        if (on_hub_thread) {
            // Called by a client: the thread cannot wait for itself. It ends
            // when the running delivery is over and frees the hub then.
            hub->frees_itself = true;
            hub->thread.detach();
        } else {
            ended = std::move(hub->thread);
            hub->wake();
        }
    }
    if (on_hub_thread && w->delivering) {
        // From one of w's own callbacks: the delivery frees w when it is over.
        w->frees_after_delivery = true;
        return;
    }
    // A delivery to w on the hub thread runs to the end of its callback.
    hs.delivered.wait(lock, [&] { return !w->delivering; });
    lock.unlock();
    if (ended.joinable()) {
        ended.join();
        delete hub;
    }
    delete w;
}

}  // extern "C"
