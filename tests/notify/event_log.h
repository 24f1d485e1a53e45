// Fixtures of the notification tests: a log of the events a channel hands
// over (from whatever thread) that a test can wait on, a one-shot signal, a
// folder watcher with its log, and the process's threads.
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
using Lines = std::vector<std::string>;

// One line per event: its kind, then the values it carries ("1 count=2",
// "4 name=a.txt"). `proc` is the client procedure, `user` the log.
class Event_log {
  public:
    static void proc(Tqz_table* event, void* user) {
        std::string line = std::to_string(qz_event_kind(event));
        for (const char* key : {"count", "code", "what", "row", "arg0", "arg1", "name"}) {
            const Tqz_any* v = table_get(event, key);
            const char* text = v ? any_get_string(v) : nullptr;
            if (v)
                line += std::string(" ") + key + "=" +
                        (text ? text : std::to_string(any_get_integer(v)));
        }
        auto* log = static_cast<Event_log*>(user);
        std::lock_guard<std::mutex> g(log->lock_);
        log->lines_.push_back(line);
        log->changed_.notify_all();
    }
    // Waits until at least `n` events are in; false on timeout.
    bool wait_for(size_t n, std::chrono::milliseconds timeout = 3s) {
        std::unique_lock<std::mutex> g(lock_);
        return changed_.wait_for(g, timeout, [&] { return lines_.size() >= n; });
    }
    Lines lines() {
        std::lock_guard<std::mutex> g(lock_);
        return lines_;
    }

  private:
    std::mutex lock_;
    std::condition_variable changed_;
    Lines lines_;
};

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

// A folder watcher with a log of its events.
struct Logged_watcher {
    Event_log log;
    Iqz_folder_watcher* w;
    explicit Logged_watcher(const std::string& folder)
        : w(qz_folder_watcher_create(widen(folder).c_str(), 0)) {
        if (w) qz_event_channel_add_client(qz_folder_watcher_get_events(w), &Event_log::proc, &log);
    }
    ~Logged_watcher() { qz_folder_watcher_destroy(w); }
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
