// Tqz_history_wrapper: what a history's owner does around an undo or redo
// run of the history manager. The manager is given the two plain callbacks
// and the wrapper, and calls them before and after the run's items of that
// history, so the owner can announce the whole run as one change.
#pragma once

class Tqz_history_wrapper {
  public:
    virtual void begin_update() = 0;
    virtual void end_update() = 0;

    // Callbacks for qz_history_manager_create_history; `wrapper` is a
    // Tqz_history_wrapper*.
    static void begin_update_callback(void* wrapper) {
        if (wrapper) static_cast<Tqz_history_wrapper*>(wrapper)->begin_update();
    }
    static void end_update_callback(void* wrapper) {
        if (wrapper) static_cast<Tqz_history_wrapper*>(wrapper)->end_update();
    }

  protected:
    ~Tqz_history_wrapper() = default;
};
