// Event channels: clients called in the order they were added.
//
// A broadcast walks the clients by their sequence number instead of holding
// an iterator or a copy of the list, so a callback may add and remove
// clients (itself included) without the walk skipping or revisiting one. The
// list lock is never held while a callback runs; each running callback is
// recorded so that removing its client from another thread can wait for it.
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "qzk_basic.h"

struct Iqz_event_channel {
    struct Client {
        qz_event_proc proc;
        void* user;
    };
    struct Running {
        uint64_t client;
        std::thread::id thread;
    };

    std::mutex lock;
    std::condition_variable callback_done;
    std::map<uint64_t, Client> clients;  // by sequence number = add order
    uint64_t next_seq = 1;
    std::vector<Running> running;

    void finish(uint64_t seq) {
        std::lock_guard<std::mutex> g(lock);
        for (size_t i = 0; i < running.size(); ++i) {
            if (running[i].client == seq && running[i].thread == std::this_thread::get_id()) {
                running.erase(running.begin() + static_cast<std::ptrdiff_t>(i));
                break;
            }
        }
        callback_done.notify_all();
    }

    bool running_elsewhere(uint64_t seq) const {
        for (const Running& r : running)
            if (r.client == seq && r.thread != std::this_thread::get_id()) return true;
        return false;
    }
};

namespace {

// Marks one callback as finished however it ends.
class Running_call {
  public:
    Running_call(Iqz_event_channel* ch, uint64_t seq) : ch_(ch), seq_(seq) {}
    ~Running_call() { ch_->finish(seq_); }
    Running_call(const Running_call&) = delete;
    Running_call& operator=(const Running_call&) = delete;

  private:
    Iqz_event_channel* ch_;
    uint64_t seq_;
};

}  // namespace

extern "C" {

Iqz_event_channel* qz_event_channel_create(void) {
    try {
        return new Iqz_event_channel();
    } catch (...) {
        return nullptr;
    }
}

void qz_event_channel_destroy(Iqz_event_channel* ch) {
    delete ch;
}

void qz_event_channel_add_client(Iqz_event_channel* ch, qz_event_proc proc, void* user) {
    if (!ch || !proc) return;
    std::lock_guard<std::mutex> g(ch->lock);
    try {
        ch->clients.emplace(ch->next_seq++, Iqz_event_channel::Client{proc, user});
    } catch (...) {
    }
}

void qz_event_channel_del_client(Iqz_event_channel* ch, qz_event_proc proc, void* user) {
    if (!ch) return;
    std::unique_lock<std::mutex> g(ch->lock);
    for (auto it = ch->clients.begin(); it != ch->clients.end(); ++it) {
        if (it->second.proc != proc || it->second.user != user) continue;
        uint64_t seq = it->first;
        ch->clients.erase(it);
        // A callback of this client on another thread may still be using the
        // user data; the caller may free it once we return.
        ch->callback_done.wait(g, [&] { return !ch->running_elsewhere(seq); });
        return;
    }
}

void qz_event_channel_broadcast(Iqz_event_channel* ch, Tqz_table* event) {
    if (!ch) return;
    uint64_t last;
    {
        std::lock_guard<std::mutex> g(ch->lock);
        last = ch->next_seq - 1;  // clients added from now on wait for the next broadcast
    }
    for (uint64_t done = 0;;) {
        Iqz_event_channel::Client client;
        {
            std::lock_guard<std::mutex> g(ch->lock);
            auto it = ch->clients.upper_bound(done);
            if (it == ch->clients.end() || it->first > last) return;
            done = it->first;
            client = it->second;
            try {
                ch->running.push_back({done, std::this_thread::get_id()});
            } catch (...) {
                return;
            }
        }
        Running_call call(ch, done);
        client.proc(event, client.user);
    }
}

}  // extern "C"
