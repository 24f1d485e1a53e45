#include "support/change_signal.h"

#include <pthread.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

namespace qz {

namespace {

int64_t steady_ns() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// Both times set to now: all that needs is write access to the file (any
// other setting needs its owner).
bool touch(int fd) {
    return ::futimens(fd, nullptr) == 0;
}

}  // namespace

// The attached signals and the thread that tells their deferred changes.
struct signal_hub {
    std::mutex lock;
    std::condition_variable wake;
    std::vector<change_signal*> signals;
    std::thread thread;
    bool running = false;
    // Moved whenever a thread is told to stop: a thread runs while it holds
    // the current value, so a new one may start before the old has gone.
    uint64_t generation = 0;

    static signal_hub& get() {
        // Never destroyed: a handle closed during exit still finds it.
        static signal_hub* hub = [] {
            auto* h = new signal_hub;
            ::pthread_atfork([] { get().lock.lock(); }, [] { get().lock.unlock(); },
                             [] {
                                 // The child has no thread; its handle
                                 // must not be joined or destroyed.
                                 signal_hub& h = get();
                                 new (&h.thread) std::thread();
                                 h.running = false;
                                 ++h.generation;
                                 h.lock.unlock();
                             });
            return h;
        }();
        return *hub;
    }

    void run(uint64_t mine) {
        std::unique_lock<std::mutex> g(lock);
        while (generation == mine) {
            const int64_t now = steady_ns();
            int64_t next = INT64_MAX;
            for (change_signal* s : signals) {
                if (!s->pending_.load(std::memory_order_relaxed)) continue;
                const int64_t due = s->last_ + change_signal::gap;
                if (due <= now) {
                    s->pending_.store(false, std::memory_order_relaxed);
                    touch(s->fd_);
                    s->last_ = now;
                } else {
                    next = std::min(next, due);
                }
            }
            if (next == INT64_MAX)
                wake.wait(g);
            else
                wake.wait_for(g, std::chrono::nanoseconds(next - now));
        }
    }

    // Under lock: the thread runs.
    void start() {
        if (running) return;
        running = true;
        thread = std::thread([this, gen = generation] { run(gen); });
    }
};

void change_signal::attach(int fd) {
    detach();
    if (fd < 0) return;
    signal_hub& hub = signal_hub::get();
    std::lock_guard<std::mutex> g(hub.lock);
    fd_ = fd;
    pending_.store(false);
    last_ = INT64_MIN / 2;
    hub.signals.push_back(this);
    // The thread starts with the first deferred change, not here: a handle
    // opened and closed without writing twice within the gap never costs a
    // thread start.
}

void change_signal::detach() {
    if (fd_ < 0) return;
    signal_hub& hub = signal_hub::get();
    std::thread done;
    {
        std::lock_guard<std::mutex> g(hub.lock);
        if (pending_.exchange(false)) touch(fd_);
        hub.signals.erase(std::find(hub.signals.begin(), hub.signals.end(), this));
        fd_ = -1;
        if (hub.signals.empty() && hub.running) {
            hub.running = false;
            ++hub.generation;
            done = std::move(hub.thread);
            hub.wake.notify_all();
        }
    }
    if (done.joinable()) done.join();
}

void change_signal::raise_slow() {
    signal_hub& hub = signal_hub::get();
    std::lock_guard<std::mutex> g(hub.lock);
    if (fd_ < 0 || pending_.load(std::memory_order_relaxed)) return;
    const int64_t now = steady_ns();
    if (now - last_ >= gap) {
        touch(fd_);
        last_ = now;
        return;
    }
    pending_.store(true, std::memory_order_relaxed);
    hub.start();
    hub.wake.notify_one();
}

bool change_signal::send() {
    signal_hub& hub = signal_hub::get();
    std::lock_guard<std::mutex> g(hub.lock);
    if (fd_ < 0) return true;
    pending_.store(false, std::memory_order_relaxed);
    last_ = steady_ns();
    return touch(fd_);
}

}  // namespace qz
