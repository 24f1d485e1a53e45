// Tqz_dbf_memory: the memory table that the rest of the library uses. Each
// change (a record added, inserted or deleted, a raw value written, records
// deleted together, the structure replaced) is made as an operation object
// and handed to the table's history in the history manager of qzk_basic,
// which performs it and can later undo and redo it. A table without a
// history performs the same operation at once and forgets it.
//
// Every operation checks, when it runs, that its record and field are still
// there (a history outlives re-creations of the table through the handle),
// and keeps the header's record count equal to the number of records.
#pragma once

#include <exception>
#include <vector>

#include "memory/history_item.h"
#include "memory/history_wrapper.h"
#include "memory/memory_core.h"
#include "qzk_basic.h"

class Tqz_dbf_record;

class Tqz_dbf_memory : public Tqz_dbf_memory_core {
  public:
    // The link to the history manager; its begin and end bracket an undo or
    // redo run on the table's notifier.
    class history : public Tqz_history_wrapper {
      public:
        explicit history(Tqz_dbf_memory* table) : owner(table) {}
        void begin_update() override;
        void end_update() override;

        Iqz_history_manager* manager = nullptr;
        void* handle = nullptr;
        Tqz_dbf_memory* owner;
    };

    // The base of the table's operations: the table comes first.
    class op_base : public Tqz_history_item_adapter_base {
      public:
        explicit op_base(Tqz_dbf_memory* t) : table(t) {}

      protected:
        // Runs one direction of a change inside one update of the table.
        // The history calls an item's redo and undo in turn, the first call
        // a redo; a direction whose change is already in the table (its
        // other direction failed) is skipped, so that the undo of a change
        // never made takes nothing back. The history swallows what an item
        // throws: a failure before the change is made (out of memory telling
        // the listeners, or in the change itself) is kept for submit() to
        // report, and the update is ended however the change ends.
        template <class F>
        void in_update(F&& change) {
            const bool undoing = calls++ % 2 == 1;
            if (undoing != applied) return;
            bool begun = false, made = false;
            try {
                table->begin_update();
                begun = true;
                change();
                made = true;
                applied = !undoing;
                table->update();
                begun = false;
                table->end_update();
            } catch (...) {
                if (!made) failed_change() = std::current_exception();
                if (begun) table->end_update_quietly();
                throw;
            }
        }

        Tqz_dbf_memory* table;

      private:
        unsigned long calls = 0;  // redo and undo calls so far
        bool applied = false;     // whether the table holds the change
    };

    // With the process's history manager (none while it is disabled).
    Tqz_dbf_memory();
    // With the given manager; null gives a table without undo.
    explicit Tqz_dbf_memory(Iqz_history_manager* manager);
    ~Tqz_dbf_memory() override;

    bool add() override;
    bool ins(unsigned int i) override;
    bool del(unsigned int i) override;
    void set_string(int field, int record, const char* text) override;
    void set_integer(int field, int record, int value) override;
    void set_float(int field, int record, float value) override;
    void set_double(int field, int record, double value) override;

    // Marks a record deleted or live as one operation of the history.
    bool set_deleted(unsigned int record, bool deleted) override;
    // Writes a cell's bytes as one operation of the history.
    bool set_cell_bytes(unsigned int field, unsigned int record, const void* bytes,
                        size_t n) override;
    // Removes the records at `indexes` (in any order; repeats and indexes
    // past the last record are ignored) as one operation. Undo puts them
    // back at their old places; time grows with the table, not with the
    // product of table and indexes.
    bool delete_records(const std::vector<unsigned int>& indexes);
    // Removes, as one operation, every record r below the record count whose
    // bit r is set in `mask` (a bit set of qzk_basic; null removes nothing).
    // The step is recorded even when no bit is set. Always true.
    virtual bool delete_records_by_msk(void* mask);

    // Gives the table the header, fields and records of `built` (which it
    // takes) as one operation; undo gives the old ones back.
    bool replace_structure(Tqz_dbf_memory_core* built);
    // Gives the table the layout of a restructure descriptor
    // (Tqz_dbf_rstrct*), keeping its records, as one undoable step (at once
    // for a table without history). False, with nothing changed, for a
    // layout no table can have (no fields, a record over 65535 bytes).
    bool restruct(void* descriptor) override;

    // Loads the file again (the one-field table when that fails) and starts
    // a new, empty history.
    bool reload();
    // Exchanges header, fields and records with `other`.
    void swap(Tqz_dbf_memory_core* other) { swap_structure(other); }

    Iqz_history_manager* get_history_manager() const { return history.manager; }
    void* get_history_handle() const { return history.handle; }

  private:
    // Records `op` in the history, which performs it; without a history
    // performs it at once and destroys it. Throws what kept the change from
    // being made; a failure after it (telling the listeners, recording the
    // step) leaves the change made.
    void submit(op_base* op);
    // The failure of this thread's latest change, until submit() takes it.
    static std::exception_ptr& failed_change();
    // Ends an update whose change failed; a failing end is not reported.
    void end_update_quietly() noexcept;
    void open_history(Iqz_history_manager* manager);

    // The raw writes of the operations, on cells that are there.
    void write_text(int field, int record, const char* text);
    void write_bytes(int field, int record, const void* value, size_t size, bool by_field);
    static Tqz_dbf_record* copy_record(const unsigned char* bytes, unsigned int size);
    // Puts a copy of `saved` at `index` (at the end when there are fewer).
    void restore_record(unsigned int index, const Tqz_dbf_record* saved);

    class history history;
};
