// The history manager: one undo timeline over every history of the process.
//
// The timeline is a sequence of steps, each a list of items in the order they
// were added; `done` steps from the front are done, the rest were undone and
// can be redone. Callbacks may call back into the manager (an erase that
// destroys another history, a begin procedure whose listener makes a change),
// so the structure is always brought to a consistent state before any item
// is erased, and an undo or redo run changes nothing structural until it is
// over: a history destroyed during a run has its items erased at once and
// marked dead, and the dead items are swept out when the run ends.
#include <algorithm>
#include <atomic>
#include <deque>
#include <vector>

#include "qzk_basic.h"

namespace {

struct History;

struct Item {
    History* history;  // null once erased (its history was destroyed during a run)
    qz_history_item_proc redo;
    qz_history_item_proc undo;
    qz_history_item_proc erase;
    void* data;
};

struct Step {
    std::vector<Item> items;
};

// A callback must not take the manager down with it: what it throws stays
// here. (Item and update procedures have the same type.)
void call(qz_history_item_proc proc, void* data) noexcept {
    if (!proc) return;
    try {
        proc(data);
    } catch (...) {
    }
}

void erase_all(const std::vector<Item>& items) noexcept {
    for (const Item& it : items) call(it.erase, it.data);
}

}  // namespace

struct Iqz_history_manager {
    std::deque<Step> steps;
    size_t done = 0;
    unsigned int limit = 1000;
    unsigned int depth = 0;   // nesting of begin_update
    bool group_open = false;  // the last step is the open bracket's step
    bool running = false;     // an undo or redo run is under way
    bool clear_pending = false;
    std::vector<History*> doomed;  // destroyed during a run, freed after it

    void take_step_items(Step& s, std::vector<Item>& out) {
        for (Item& it : s.items)
            if (it.history) out.push_back(it);
        s.items.clear();
    }

    // Moves the undone steps out of the timeline.
    void cut_redo_tail(std::vector<Item>& out) {
        while (steps.size() > done) {
            take_step_items(steps.back(), out);
            steps.pop_back();
        }
    }

    // Moves the oldest steps beyond the limit out; never the open bracket's.
    void trim(std::vector<Item>& out) {
        while (steps.size() > limit) {
            if (group_open && steps.size() == 1) break;
            take_step_items(steps.front(), out);
            steps.pop_front();
            if (done > 0) --done;
        }
    }

    void take_all(std::vector<Item>& out) {
        for (Step& s : steps) take_step_items(s, out);
        steps.clear();
        done = 0;
        group_open = false;
    }

    // Drops dead items and the steps left empty.
    void sweep() {
        std::deque<Step> kept;
        size_t kept_done = 0;
        const size_t last = steps.size();
        bool open_kept = false;
        for (size_t i = 0; i < last; ++i) {
            Step& s = steps[i];
            s.items.erase(std::remove_if(s.items.begin(), s.items.end(),
                                         [](const Item& it) { return it.history == nullptr; }),
                          s.items.end());
            if (s.items.empty()) continue;
            if (i < done) ++kept_done;
            if (i + 1 == last && group_open) open_kept = true;
            kept.push_back(std::move(s));
        }
        steps.swap(kept);
        done = kept_done;
        group_open = open_kept;
    }

    void run(bool backwards);
    void finish_run();
};

namespace {

struct History {
    Iqz_history_manager* manager;
    qz_history_update_proc begin;
    qz_history_update_proc end;
    void* wrapper;
    bool destroyed = false;
};

std::atomic<bool> enabled{true};

Iqz_history_manager* the_manager() {
    // Lives as long as the process: tables that outlive main's end may
    // still destroy their histories.
    static Iqz_history_manager* const manager = new Iqz_history_manager();
    return manager;
}

// Performs an item that the timeline cannot take, and lets it go.
void perform_and_erase(qz_history_item_proc redo, qz_history_item_proc erase, void* item) {
    call(redo, item);
    call(erase, item);
}

}  // namespace

// One undo (backwards) or redo run over the step at the edge of the done
// part. Each history taking part is bracketed once, in the order its items
// come in the run.
void Iqz_history_manager::run(bool backwards) {
    running = true;
    const size_t index = backwards ? done - 1 : done;
    std::vector<History*> taking_part;
    {
        const std::vector<Item>& items = steps[index].items;
        for (size_t k = 0; k < items.size(); ++k) {
            History* h = items[backwards ? items.size() - 1 - k : k].history;
            if (h && std::find(taking_part.begin(), taking_part.end(), h) == taking_part.end())
                taking_part.push_back(h);
        }
    }
    for (History* h : taking_part)
        if (!h->destroyed) call(h->begin, h->wrapper);
    // The item list is not changed during the run (see above), but it is
    // read afresh each time, since a destroyed history kills its items.
    const size_t n = steps[index].items.size();
    for (size_t k = 0; k < n; ++k) {
        const Item& it = steps[index].items[backwards ? n - 1 - k : k];
        if (it.history) call(backwards ? it.undo : it.redo, it.data);
    }
    for (size_t k = taking_part.size(); k-- > 0;) {
        History* h = taking_part[k];
        if (!h->destroyed) call(h->end, h->wrapper);
    }
    done = backwards ? done - 1 : done + 1;
    finish_run();
}

void Iqz_history_manager::finish_run() {
    running = false;
    std::vector<Item> dropped;
    if (!doomed.empty()) {
        sweep();
        for (History* h : doomed) delete h;
        doomed.clear();
    }
    if (clear_pending) {
        clear_pending = false;
        take_all(dropped);
    }
    trim(dropped);
    erase_all(dropped);
}

extern "C" {

Iqz_history_manager* qz_history_manager_get_instance(void) {
    return enabled.load() ? the_manager() : nullptr;
}

void qz_history_manager_set_enabled(bool on) {
    enabled.store(on);
}

void* qz_history_manager_create_history(Iqz_history_manager* m, qz_history_update_proc begin,
                                        qz_history_update_proc end, void* wrapper) {
    if (!m) return nullptr;
    try {
        return new History{m, begin, end, wrapper};
    } catch (...) {
        return nullptr;
    }
}

void qz_history_destroy(void* history) {
    if (!history) return;
    History* h = static_cast<History*>(history);
    Iqz_history_manager* m = h->manager;
    std::vector<Item> dropped;
    try {
        for (Step& s : m->steps)
            for (Item& it : s.items)
                if (it.history == h) {
                    dropped.push_back(it);
                    it.history = nullptr;
                }
        if (m->running) {
            h->destroyed = true;
            m->doomed.push_back(h);
        } else {
            m->sweep();
            delete h;
        }
    } catch (...) {
        // Out of memory while collecting: the items still marked dead are
        // swept later; the ones collected are erased below.
    }
    erase_all(dropped);
}

void qz_history_add_item(void* history, qz_history_item_proc redo, qz_history_item_proc undo,
                         qz_history_item_proc erase, void* item) {
    History* h = static_cast<History*>(history);
    if (!h || h->destroyed || h->manager->running) {
        perform_and_erase(redo, erase, item);
        return;
    }
    Iqz_history_manager* m = h->manager;
    std::vector<Item> dropped;
    Item it{h, redo, undo, erase, item};
    bool performed = false;
    try {
        m->cut_redo_tail(dropped);
        performed = true;
        call(redo, item);
        if (m->depth > 0 && m->group_open) {
            m->steps.back().items.push_back(it);
        } else {
            Step s;
            s.items.push_back(it);
            m->steps.push_back(std::move(s));
            m->done = m->steps.size();
            m->group_open = m->depth > 0;
        }
        if (!m->group_open) m->trim(dropped);
    } catch (...) {
        // Out of memory: the item is performed but cannot be recorded.
        if (!performed) call(redo, item);
        call(erase, item);
    }
    erase_all(dropped);
}

void qz_history_manager_begin_update(Iqz_history_manager* m) {
    if (m) ++m->depth;
}

void qz_history_manager_end_update(Iqz_history_manager* m) {
    if (!m || m->depth == 0) return;
    if (--m->depth > 0) return;
    m->group_open = false;
    if (m->running) return;  // trimmed when the run ends
    std::vector<Item> dropped;
    m->trim(dropped);
    erase_all(dropped);
}

bool qz_history_manager_can_undo(Iqz_history_manager* m) {
    return m && !m->running && m->depth == 0 && m->done > 0;
}

bool qz_history_manager_can_redo(Iqz_history_manager* m) {
    return m && !m->running && m->depth == 0 && m->done < m->steps.size();
}

bool qz_history_manager_undo(Iqz_history_manager* m) {
    if (!qz_history_manager_can_undo(m)) return false;
    m->run(true);
    return true;
}

bool qz_history_manager_redo(Iqz_history_manager* m) {
    if (!qz_history_manager_can_redo(m)) return false;
    m->run(false);
    return true;
}

void qz_history_manager_clear(Iqz_history_manager* m) {
    if (!m) return;
    if (m->running) {
        m->clear_pending = true;
        return;
    }
    std::vector<Item> dropped;
    m->take_all(dropped);
    erase_all(dropped);
}

void qz_history_manager_set_limit(Iqz_history_manager* m, unsigned int steps) {
    if (!m) return;
    m->limit = steps;
    if (m->running) return;
    std::vector<Item> dropped;
    m->trim(dropped);
    erase_all(dropped);
}

unsigned int qz_history_manager_get_step_count(Iqz_history_manager* m) {
    return m ? static_cast<unsigned int>(m->steps.size()) : 0;
}

unsigned int qz_history_manager_get_undo_count(Iqz_history_manager* m) {
    return m ? static_cast<unsigned int>(m->done) : 0;
}

unsigned int qz_history_manager_get_limit(Iqz_history_manager* m) {
    return m ? m->limit : 0;
}

}  // extern "C"
