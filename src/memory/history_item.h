// Tqz_history_item_adapter_base: an undoable change as the history manager
// of qzk_basic sees it. The manager holds the item as an opaque pointer and
// calls the three plain callbacks, which reach the item's virtual
// operations; erase destroys the item.
#pragma once

#include <atomic>

class Tqz_history_item_adapter_base {
  public:
    Tqz_history_item_adapter_base() { ++live; }
    virtual ~Tqz_history_item_adapter_base() { --live; }
    Tqz_history_item_adapter_base(const Tqz_history_item_adapter_base&) = delete;
    Tqz_history_item_adapter_base& operator=(const Tqz_history_item_adapter_base&) = delete;

    virtual void redo() = 0;
    virtual void undo() = 0;

    // Callbacks for qz_history_add_item; `item` is a
    // Tqz_history_item_adapter_base*. erase ignores null.
    static void redo_callback(void* item);
    static void undo_callback(void* item);
    static void erase_callback(void* item);

    // Items that exist now, in the whole process: what the histories hold
    // (and any being made or run at once).
    static long get_live_count() { return live.load(); }

  private:
    static std::atomic<long> live;
};
