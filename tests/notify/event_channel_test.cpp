// Event channels of qzk_basic: clients that change the channel while it
// broadcasts.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "qzk_basic.h"

namespace {

// A client that records its calls and, once, removes or adds a client from
// inside its callback.
struct Client {
    std::string name;
    std::vector<std::string>* calls;
    Iqz_event_channel* ch;
    Client* remove = nullptr;
    Client* add = nullptr;
};

void client_proc(Tqz_table*, void* user) {
    auto* c = static_cast<Client*>(user);
    c->calls->push_back(c->name);
    if (c->remove)
        qz_event_channel_del_client(c->ch, &client_proc, std::exchange(c->remove, nullptr));
    if (c->add) qz_event_channel_add_client(c->ch, &client_proc, std::exchange(c->add, nullptr));
}

// A client removing itself or one that has not had its turn takes effect at
// once; one added waits for the next broadcast. A client added twice is
// called twice and one removal takes one away; removing a stranger or
// adding a null procedure does nothing; null channels are neutral.
TEST(EventChannel, ClientsChangingTheChannelDuringABroadcast) {
    Iqz_event_channel* ch = qz_event_channel_create();
    ASSERT_NE(ch, nullptr);
    std::vector<std::string> calls;
    Client a{"a", &calls, ch}, b{"b", &calls, ch}, c{"c", &calls, ch}, d{"d", &calls, ch},
        e{"e", &calls, ch};
    a.remove = &a;
    b.remove = &d;
    c.add = &e;
    for (Client* x : {&a, &b, &c, &d}) qz_event_channel_add_client(ch, &client_proc, x);
    Tqz_table ev;
    qz_update_event_init(&ev);
    auto broadcast = [&] {
        calls.clear();
        qz_event_channel_broadcast(ch, &ev);
        return calls;
    };
    using V = std::vector<std::string>;
    EXPECT_EQ(broadcast(), (V{"a", "b", "c"}));
    EXPECT_EQ(broadcast(), (V{"b", "c", "e"}));
    qz_event_channel_add_client(ch, &client_proc, &b);
    EXPECT_EQ(broadcast(), (V{"b", "c", "e", "b"}));
    qz_event_channel_del_client(ch, &client_proc, &b);
    qz_event_channel_del_client(ch, &client_proc, &a);
    qz_event_channel_add_client(ch, nullptr, &a);
    EXPECT_EQ(broadcast(), (V{"c", "e", "b"}));
    qz_update_event_clear(&ev);
    qz_event_channel_destroy(ch);
    qz_event_channel_add_client(nullptr, &client_proc, &a);
    qz_event_channel_broadcast(nullptr, nullptr);
    qz_event_channel_del_client(nullptr, &client_proc, &a);
    qz_event_channel_destroy(nullptr);
}

}  // namespace
