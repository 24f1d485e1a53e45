// Tqz_extensible_obj: a base object with named extra values and an update
// event channel whose begin/end bracket merges updates.
//
// Clients of the channel see, for each outermost bracket, a begin event when
// it opens and an end event when it closes; all updates announced inside it
// reach them as one update event (its "count" says how many) just before the
// end event. An update announced outside any bracket is sent at once.
//
// The bracket state may be used from several threads (a notifier's updates
// come from its folder watcher's thread): one recursive lock covers the
// counter, the pending event and every broadcast, so the events of one
// bracket are never interleaved with another thread's.
#pragma once

#include <cstdint>
#include <mutex>

#include "notify/basic_obj.h"
#include "notify/updatable.h"
#include "qzk_basic.h"

class Tqz_extensible_obj : public Tqz_basic_obj, public virtual Iqz_updatable {
  public:
    Tqz_extensible_obj();
    ~Tqz_extensible_obj() override;

    // Takes over the extra values of `src` when it is an extensible object.
    virtual void assign(Tqz_basic_obj* src);
    // The same object, or an extensible one with the same extra values.
    virtual bool equal(Tqz_basic_obj* other);

    // Named extra values; get_extra gives null for an absent name.
    virtual const Tqz_any* get_extra(const char* name);
    virtual Tqz_table& get_table_extra();
    virtual void set_table_extra(Tqz_table& values);
    virtual void set_extra(const char* name, Tqz_any* value);

    // Created on first use; belongs to the object.
    virtual Iqz_event_channel* get_update_event_channel();
    // Starts a fresh pending update event.
    virtual void init_update_event();
    // Announces one update: sent at once outside a bracket, merged into the
    // pending event inside one.
    virtual void broadcast_update_event();
    virtual void broadcast_begin_update_event();
    virtual void broadcast_end_update_event();
    // The same with an integer "code" or a text "what" entry and further
    // entries copied from `details`; inside a bracket later values win.
    virtual void broadcast_update_event(int code);
    virtual void broadcast_update_event(const char* what);
    virtual void broadcast_update_event(int code, Tqz_table& details);
    virtual void broadcast_update_event(const char* what, Tqz_table& details);
    // Sends an event of any kind at once, bracket or not; the tuple's values
    // become the entries "arg0", "arg1", ...
    virtual void broadcast_event(int kind);
    virtual void broadcast_event(int kind, Tqz_tuple& args);

    unsigned int begin_update() override;
    unsigned int end_update() override;

    // The bracket nesting depth, 0 outside any bracket.
    unsigned int get_update_depth() const;

  protected:
    std::recursive_mutex& update_mutex() const { return update_lock; }
    // Runs, under the bracket lock, just before an update event goes to the
    // channel's clients (at once outside a bracket, at the outermost
    // end_update inside one).
    virtual void before_update_event() {}

  private:
    void add_update(const Tqz_any* label, const char* label_key, const Tqz_table* details);
    void send(Tqz_table& event);
    void send_kind(int kind);

    Tqz_table extras;
    Iqz_event_channel* update_channel = nullptr;
    uint32_t update_count = 0;
    Tqz_table pending_event;
    bool pending = false;
    mutable std::recursive_mutex update_lock;
};
