// Event channels and update events of qzk_basic.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "event_log.h"
#include "qzk_basic.h"

namespace {

using namespace std::chrono_literals;

// A client that records its calls and may change the channel from inside
// its callback.
struct Client {
    std::string name;
    std::vector<std::string>* calls;
    Iqz_event_channel* ch;
    Client* remove = nullptr;  // removed from inside the callback (may be this one)
    Client* add = nullptr;     // added from inside the callback
};

void client_proc(Tqz_table*, void* user) {
    auto* c = static_cast<Client*>(user);
    c->calls->push_back(c->name);
    if (c->remove) qz_event_channel_del_client(c->ch, &client_proc, c->remove);
    if (c->add) qz_event_channel_add_client(c->ch, &client_proc, c->add);
    c->remove = c->add = nullptr;  // once only
}

TEST(EventChannel, ClientsChangingTheChannelDuringABroadcast) {
    Iqz_event_channel* ch = qz_event_channel_create();
    ASSERT_NE(ch, nullptr);
    std::vector<std::string> calls;
    Client a{"a", &calls, ch}, b{"b", &calls, ch}, c{"c", &calls, ch}, d{"d", &calls, ch},
        e{"e", &calls, ch};
    a.remove = &a;  // a removes itself
    b.remove = &d;  // b removes a client that has not had its turn
    c.add = &e;     // c adds one: it waits for the next broadcast
    for (Client* x : {&a, &b, &c, &d}) qz_event_channel_add_client(ch, &client_proc, x);

    Tqz_table ev;
    qz_update_event_init(&ev);
    qz_event_channel_broadcast(ch, &ev);
    EXPECT_EQ(calls, (std::vector<std::string>{"a", "b", "c"}));
    calls.clear();
    qz_event_channel_broadcast(ch, &ev);
    EXPECT_EQ(calls, (std::vector<std::string>{"b", "c", "e"}));

    // A client added twice is called twice; one removal takes one away.
    calls.clear();
    qz_event_channel_add_client(ch, &client_proc, &b);
    qz_event_channel_broadcast(ch, &ev);
    EXPECT_EQ(calls, (std::vector<std::string>{"b", "c", "e", "b"}));
    calls.clear();
    qz_event_channel_del_client(ch, &client_proc, &b);
    qz_event_channel_del_client(ch, &client_proc, &a);  // not a client any more: no effect
    qz_event_channel_add_client(ch, nullptr, &a);       // a null procedure is not added
    qz_event_channel_broadcast(ch, &ev);
    EXPECT_EQ(calls, (std::vector<std::string>{"c", "e", "b"}));

    qz_update_event_clear(&ev);
    qz_event_channel_destroy(ch);
    // Null channels are neutral.
    qz_event_channel_add_client(nullptr, &client_proc, &a);
    qz_event_channel_broadcast(nullptr, nullptr);
    qz_event_channel_del_client(nullptr, &client_proc, &a);
    qz_event_channel_destroy(nullptr);
}

}  // namespace
