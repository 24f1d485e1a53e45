// Fixtures of the notification tests: a log of the events a channel hands
// over (from whatever thread) that a test can wait on, a folder watcher with
// its log, and the process's threads.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "qzk_basic.h"
#include "qzk_path.h"
#include "test_support.h"

namespace qz_test {

using namespace std::chrono_literals;

// A one-shot signal between threads; raising it again does nothing.
struct Signal {
    std::promise<void> p;
    std::shared_future<void> f = p.get_future().share();
    std::atomic<bool> raised{false};
    void raise() {
        if (!raised.exchange(true)) p.set_value();
    }
    bool wait(std::chrono::seconds timeout = 3s) {
        return f.wait_for(timeout) == std::future_status::ready;
    }
};

class Event_log {
  public:
    struct Entry {
        int kind;
        int count;         // "count" of an update event, else 0
        std::string name;  // "name" of a folder event, else ""
    };
    // The client procedure; `user` is the log.
    static void proc(Tqz_table* event, void* user) {
        auto* log = static_cast<Event_log*>(user);
        const Tqz_any* count = table_get(event, "count");
        const Tqz_any* name = table_get(event, "name");
        const char* text = name ? any_get_string(name) : nullptr;
        std::lock_guard<std::mutex> g(log->lock_);
        log->entries_.push_back(
            {qz_event_kind(event), count ? any_get_integer(count) : 0, text ? text : ""});
        log->changed_.notify_all();
    }
    // Waits until at least `n` events are in; false on timeout.
    bool wait_for(size_t n, std::chrono::milliseconds timeout = 3s) {
        std::unique_lock<std::mutex> g(lock_);
        return changed_.wait_for(g, timeout, [&] { return entries_.size() >= n; });
    }
    std::vector<Entry> entries() {
        std::lock_guard<std::mutex> g(lock_);
        return entries_;
    }
    std::vector<int> kinds() {
        std::vector<int> k;
        for (const Entry& e : entries()) k.push_back(e.kind);
        return k;
    }
    std::vector<std::string> names() {
        std::vector<std::string> n;
        for (const Entry& e : entries()) n.push_back(e.name);
        return n;
    }
    size_t size() { return entries().size(); }

  private:
    std::mutex lock_;
    std::condition_variable changed_;
    std::vector<Entry> entries_;
};

// A folder watcher with a log of its events.
struct Logged_watcher {
    Event_log log;
    Iqz_folder_watcher* w;
    explicit Logged_watcher(const std::string& folder)
        : w(qz_folder_watcher_create(widen(folder).c_str(), 0)) {
        if (w) qz_event_channel_add_client(qz_folder_watcher_get_events(w), &Event_log::proc, &log);
    }
    ~Logged_watcher() { destroy(); }
    void destroy() { qz_folder_watcher_destroy(std::exchange(w, nullptr)); }
};

// The number of threads of this process. Some sanitizers start a thread of
// their own with the first thread the process makes; one throwaway thread
// gets that done before anything is counted.
inline size_t thread_count() {
    static const bool warmed_up = (std::thread([] {}).join(), true);
    (void)warmed_up;
    auto tasks = std::filesystem::directory_iterator("/proc/self/task");
    return static_cast<size_t>(std::distance(begin(tasks), end(tasks)));
}

// Waits until the process has `n` threads (a thread's end is no event a test
// can wait on, so this looks); false on timeout.
inline bool wait_thread_count(size_t n) {
    for (auto end = std::chrono::steady_clock::now() + 3s; thread_count() != n;
         std::this_thread::sleep_for(2ms))
        if (std::chrono::steady_clock::now() > end) return false;
    return true;
}

}  // namespace qz_test
