// The folder watcher: inotify on a thread of its own.
//
// The thread sleeps in poll() on the inotify descriptor and an eventfd that
// wakes it for shutdown. Changes are gathered per file name until the folder
// has been quiet for a moment, so that one program rewriting a file (open,
// truncate, several writes, close) reaches the clients as one event per
// name instead of a storm of them.
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
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "code_page_text.h"
#include "qzk_path.h"

namespace {

using Clock = std::chrono::steady_clock;

// How long the folder must stay quiet before gathered changes are sent, and
// the longest a change may wait while the folder keeps changing.
constexpr std::chrono::milliseconds quiet_time{100};
constexpr std::chrono::milliseconds longest_wait{500};

constexpr uint32_t watch_mask = IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE | IN_CREATE | IN_DELETE |
                                IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF |
                                IN_ONLYDIR;

// A file name from the kernel (UTF-8 bytes) as system text.
std::string system_name(const std::string& utf8) {
    if (utf8.empty() || qz_options_get_ansi_code_page() == 65001) return utf8;
    return qz::basic::wide_to_cp(0, qz::basic::cp_to_wide(65001, utf8));
}

}  // namespace

struct Iqz_folder_watcher {
    int notify_fd = -1;
    int wake_fd = -1;
    Iqz_event_channel* events = nullptr;
    std::thread thread;
    std::mutex start_lock;  // held by create until `thread` is set
    std::atomic<bool> stopping{false};
    bool frees_itself = false;  // only touched on the watcher's own thread

    ~Iqz_folder_watcher() {
        if (notify_fd >= 0) ::close(notify_fd);
        if (wake_fd >= 0) ::close(wake_fd);
        qz_event_channel_destroy(events);
    }

    void thread_main() {
        { std::lock_guard<std::mutex> started(start_lock); }
        try {
            watch();
        } catch (...) {
            // Out of memory while gathering names: the watch ends quietly.
        }
        if (frees_itself) delete this;
    }

    void watch() {
        std::vector<std::string> changed;  // in the order the names first changed
        Clock::time_point first{}, last{};
        alignas(inotify_event) char buffer[16384];
        while (!stopping.load()) {
            int timeout = -1;
            if (!changed.empty()) {
                auto due = std::min(last + quiet_time, first + longest_wait);
                auto left =
                    std::chrono::duration_cast<std::chrono::milliseconds>(due - Clock::now());
                timeout = static_cast<int>(std::max<int64_t>(0, left.count() + 1));
            }
            pollfd fds[2] = {{notify_fd, POLLIN, 0}, {wake_fd, POLLIN, 0}};
            int ready = ::poll(fds, 2, timeout);
            if (ready < 0 && errno != EINTR) return;
            if (ready > 0 && fds[1].revents) return;
            if (ready > 0 && (fds[0].revents & POLLIN)) {
                bool was_quiet = changed.empty();
                if (read_changes(buffer, sizeof buffer, changed)) {
                    last = Clock::now();
                    if (was_quiet) first = last;
                }
            }
            if (changed.empty()) continue;
            Clock::time_point now = Clock::now();
            if (now < last + quiet_time && now < first + longest_wait) continue;
            deliver(changed);
            changed.clear();
        }
    }

    // Reads what the kernel has queued; true when some change was noted.
    bool read_changes(char* buffer, size_t size, std::vector<std::string>& changed) {
        bool any = false;
        for (;;) {
            ssize_t got = ::read(notify_fd, buffer, size);
            if (got <= 0) return any;  // EAGAIN: the queue is empty
            for (ssize_t pos = 0; pos + static_cast<ssize_t>(sizeof(inotify_event)) <= got;) {
                const auto* ev = reinterpret_cast<const inotify_event*>(buffer + pos);
                pos += static_cast<ssize_t>(sizeof(inotify_event) + ev->len);
                if (pos > got) break;
                if (ev->mask & IN_IGNORED) continue;  // the watch itself ended
                std::string name =
                    ev->len ? std::string(ev->name, strnlen(ev->name, ev->len)) : std::string();
                if (std::find(changed.begin(), changed.end(), name) == changed.end())
                    changed.push_back(name);
                any = true;
            }
        }
    }

    void deliver(const std::vector<std::string>& changed) {
        for (const std::string& name : changed) {
            if (stopping.load()) return;
            std::string text = system_name(name);
            Tqz_table ev;
            table_init(&ev);
            Tqz_any v;
            any_init(&v);
            any_assign_integer(&v, QZ_EVENT_FOLDER_CHANGE);
            table_set(&ev, "event", &v);
            any_assign_string(&v, text.c_str());
            table_set(&ev, "name", &v);
            any_clear(&v);
            qz_event_channel_broadcast(events, &ev);
            table_clear(&ev);
        }
    }
};

extern "C" {

Iqz_folder_watcher* qz_folder_watcher_create(const wchar_t* folder, unsigned int flags) {
    (void)flags;
    if (!folder || !*folder) return nullptr;
    Iqz_folder_watcher* w = nullptr;
    try {
        std::string native = qz::basic::wide_to_cp(65001, folder, std::wcslen(folder));
        if (native.empty()) return nullptr;
        w = new Iqz_folder_watcher();
        w->notify_fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        w->wake_fd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
        w->events = qz_event_channel_create();
        if (w->notify_fd < 0 || w->wake_fd < 0 || !w->events ||
            ::inotify_add_watch(w->notify_fd, native.c_str(), watch_mask) < 0) {
            delete w;
            return nullptr;
        }
        // The thread takes no process signals: they stay with the host's
        // threads, whatever the host does with them.
        sigset_t all, old;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, &old);
        {
            std::lock_guard<std::mutex> g(w->start_lock);
            try {
                w->thread = std::thread(&Iqz_folder_watcher::thread_main, w);
            } catch (...) {
                pthread_sigmask(SIG_SETMASK, &old, nullptr);
                throw;
            }
        }
        pthread_sigmask(SIG_SETMASK, &old, nullptr);
        return w;
    } catch (...) {
        delete w;
        return nullptr;
    }
}

Iqz_event_channel* qz_folder_watcher_get_events(Iqz_folder_watcher* w) {
    return w ? w->events : nullptr;
}

void qz_folder_watcher_destroy(Iqz_folder_watcher* w) {
    if (!w) return;
    w->stopping.store(true);
    if (w->thread.get_id() == std::this_thread::get_id()) {
        // From one of our own callbacks: the thread cannot wait for itself.
        // It stops after the running broadcast and frees the watcher then.
        w->frees_itself = true;
        w->thread.detach();
        return;
    }
    uint64_t one = 1;
    ssize_t wrote = ::write(w->wake_fd, &one, sizeof one);
    (void)wrote;  // an eventfd write only fails when its counter is full: it is already awake
    if (w->thread.joinable()) w->thread.join();
    delete w;
}

}  // extern "C"
