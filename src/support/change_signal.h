// Telling a file's watchers that it changed when its bytes change through a
// shared mapping.
//
// Watchers (inotify, and so the notifiers of every process that has the
// table open) hear of write(2) but not of stores into a mapping. A
// change_signal makes up for it: it sets the file's times to now, which
// every watcher hears of as an attribute change and which gives the file a
// new modification time. A change is told at once when the last signal of
// the file is at least `gap` old, otherwise by one thread shared by all
// signals as soon as it is: a run of changes costs one system call per gap
// instead of one per record, and the last of them is told no later than a
// gap after it was made.
//
// Threads: raise() and send() are the owner's; send() may also come from
// another thread. The shared thread runs only while some signal is
// attached.
#pragma once

#include <atomic>
#include <cstdint>

namespace qz {

class change_signal {
  public:
    // The longest a change waits to be told, in nanoseconds.
    static constexpr int64_t gap = 5'000'000;

    change_signal() = default;
    change_signal(const change_signal&) = delete;
    change_signal& operator=(const change_signal&) = delete;
    ~change_signal() { detach(); }

    // Signals changes of `fd` (open for writing; it stays the caller's).
    void attach(int fd);
    // Tells what is still untold now and lets go of the descriptor.
    void detach();
    bool attached() const { return fd_ >= 0; }

    // Bytes of the file changed: told now or within the gap.
    void raise() {
        if (fd_ >= 0 && !pending_.load(std::memory_order_relaxed)) raise_slow();
    }
    // Tells the file's watchers now; false when the file refuses.
    bool send();
    // A change waits to be told.
    bool pending() const { return pending_.load(std::memory_order_relaxed); }

  private:
    friend struct signal_hub;
    void raise_slow();

    int fd_ = -1;
    // A change not yet told; the shared thread tells it when it is due.
    std::atomic<bool> pending_{false};
    // When the last signal was sent (steady clock, ns); under the hub's lock.
    int64_t last_ = INT64_MIN / 2;
};

}  // namespace qz
