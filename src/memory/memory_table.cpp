#include "memory/memory_table.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "dbf/record.h"
#include "memory/records.h"
#include "restruct/restruct_sink.h"
#include "restruct/rstrct.h"

namespace {

// An owned copy of a text (null counts as empty); throws when memory runs
// out, before anything has changed.
char* dup_text(const char* text) {
    char* copy = strdup(text ? text : "");
    if (!copy) throw std::bad_alloc();
    return copy;
}

}  // namespace

void Tqz_dbf_memory::history::begin_update() {
    owner->begin_update();
}

void Tqz_dbf_memory::history::end_update() {
    owner->end_update();
}

Tqz_dbf_memory::Tqz_dbf_memory() : history(this) {
    open_history(qz_history_manager_get_instance());
}

Tqz_dbf_memory::Tqz_dbf_memory(Iqz_history_manager* manager) : history(this) {
    open_history(manager);
}

Tqz_dbf_memory::~Tqz_dbf_memory() {
    if (history.handle) qz_history_destroy(history.handle);
    history.handle = nullptr;
}

void Tqz_dbf_memory::open_history(Iqz_history_manager* manager) {
    history.manager = manager;
    history.handle = manager ? qz_history_manager_create_history(
                                   manager, Tqz_history_wrapper::begin_update_callback,
                                   Tqz_history_wrapper::end_update_callback, &history)
                             : nullptr;
}

std::exception_ptr& Tqz_dbf_memory::failed_change() {
    static thread_local std::exception_ptr failure;
    return failure;
}

void Tqz_dbf_memory::submit(op_base* op) {
    std::exception_ptr& failure = failed_change();
    failure = nullptr;
    if (history.handle) {
        qz_history_add_item(history.handle, Tqz_history_item_adapter_base::redo_callback,
                            Tqz_history_item_adapter_base::undo_callback,
                            Tqz_history_item_adapter_base::erase_callback, op);
    } else {
        std::unique_ptr<op_base> owned(op);
        try {
            owned->redo();
        } catch (...) {
            // As with a history: only a change not made is this call's failure.
        }
    }
    if (failure) std::rethrow_exception(std::exchange(failure, nullptr));
}

void Tqz_dbf_memory::end_update_quietly() noexcept {
    try {
        end_update();
    } catch (...) {
    }
}

Tqz_dbf_record* Tqz_dbf_memory::copy_record(const unsigned char* bytes, unsigned int size) {
    auto* copy = new Tqz_dbf_record(size);
    if (copy->get_size() != size) {
        delete copy;
        throw std::bad_alloc();
    }
    if (size > 0 && bytes) std::memcpy(copy->get_ptr(), bytes, size);
    return copy;
}

void Tqz_dbf_memory::restore_record(unsigned int index, const Tqz_dbf_record* saved) {
    Tqz_dbf_records* store = get_records();
    unsigned int at = std::min(index, store->get_size());
    if (at < store->get_size())
        store->ins(at);
    else
        store->add();
    set_record_count(get_nr() + 1);
    unsigned char* bytes = store->get_ptr(at);
    if (bytes && saved && saved->get_ptr())
        std::memcpy(bytes, saved->get_ptr(), std::min(saved->get_size(), store->get_length()));
}

// Through the history, text is space-padded: L bytes of the field get the
// first min(L, length) bytes of the text, then spaces.
void Tqz_dbf_memory::write_text(int field, int record, const char* text) {
    size_t n = 0;
    unsigned char* p = cell(field, record, field_length(field), n);
    if (!p) return;
    size_t len = text ? strnlen(text, n) : 0;
    if (len > 0) std::memcpy(p, text, len);
    std::memset(p + len, ' ', n - len);
}

// A binary value: `size` bytes of it, or with `by_field` at most the
// field's length of them.
void Tqz_dbf_memory::write_bytes(int field, int record, const void* value, size_t size,
                                 bool by_field) {
    size_t want = by_field ? std::min<size_t>(field_length(field), size) : size;
    size_t n = 0;
    unsigned char* p = cell(field, record, want, n);
    if (p) std::memcpy(p, value, n);
}

bool Tqz_dbf_memory::add() {
    class op : public op_base {
      public:
        op(Tqz_dbf_memory* t, unsigned int at) : op_base(t), index(at) {}
        void redo() override {
            in_update([this] {
                // The record goes to the end, wherever that is now.
                index = table->get_records()->get_size();
                table->get_records()->add();
                table->set_record_count(table->get_nr() + 1);
            });
        }
        void undo() override {
            in_update([this] {
                if (table->get_records()->del(index)) table->set_record_count(table->get_nr() - 1);
            });
        }
        uint32_t index;
    };
    submit(new op(this, get_nr()));
    return true;
}

bool Tqz_dbf_memory::ins(unsigned int i) {
    class op : public op_base {
      public:
        op(Tqz_dbf_memory* t, unsigned int at) : op_base(t), index(at), made(at) {}
        void redo() override {
            in_update([this] {
                Tqz_dbf_records* store = table->get_records();
                made = std::min(index, store->get_size());
                if (made < store->get_size())
                    store->ins(made);
                else
                    store->add();
                table->set_record_count(table->get_nr() + 1);
            });
        }
        void undo() override {
            // The record the insert made, also when it was appended.
            in_update([this] {
                if (table->get_records()->del(made)) table->set_record_count(table->get_nr() - 1);
            });
        }
        uint32_t index;
        uint32_t made;
    };
    submit(new op(this, i));
    return true;
}

bool Tqz_dbf_memory::del(unsigned int i) {
    class op : public op_base {
      public:
        op(Tqz_dbf_memory* t, unsigned int at) : op_base(t), index(at) {
            Tqz_dbf_records* store = t->get_records();
            if (at < store->get_size())
                saved = copy_record(store->get_ptr(at), store->get_length());
        }
        ~op() override { delete saved; }
        void redo() override {
            in_update([this] {
                removed = table->get_records()->del(index);
                if (removed) table->set_record_count(table->get_nr() - 1);
            });
        }
        void undo() override {
            // A delete beyond the last record changed nothing, so its undo
            // does not either.
            in_update([this] {
                if (removed) table->restore_record(index, saved);
                removed = false;
            });
        }
        uint32_t index;
        Tqz_dbf_record* saved = nullptr;
        bool removed = false;
    };
    submit(new op(this, i));
    return true;
}

void Tqz_dbf_memory::set_string(int field, int record, const char* text) {
    class op : public op_base {
      public:
        op(Tqz_dbf_memory* t, int f, int r, const char* text)
            : op_base(t), field(f), record(r), new_value(dup_text(text)) {
            try {
                old_value = dup_text(t->get_string(f, r));
            } catch (...) {
                std::free(new_value);
                throw;
            }
        }
        ~op() override {
            std::free(new_value);
            std::free(old_value);
        }
        void redo() override {
            in_update([this] { table->write_text(field, record, new_value); });
        }
        void undo() override {
            in_update([this] { table->write_text(field, record, old_value); });
        }
        int32_t field;
        int32_t record;
        char* new_value;
        char* old_value = nullptr;
    };
    submit(new op(this, field, record, text));
}

void Tqz_dbf_memory::set_integer(int field, int record, int value) {
    class op : public op_base {
      public:
        op(Tqz_dbf_memory* t, int f, int r, int v)
            : op_base(t), field(f), record(r), new_value(v), old_value(t->get_integer(f, r)) {}
        void redo() override {
            in_update([this] { table->write_bytes(field, record, &new_value, 4, true); });
        }
        void undo() override {
            in_update([this] { table->write_bytes(field, record, &old_value, 4, true); });
        }
        int32_t field;
        int32_t record;
        int new_value;
        int old_value;
    };
    submit(new op(this, field, record, value));
}

void Tqz_dbf_memory::set_float(int field, int record, float value) {
    class op : public op_base {
      public:
        op(Tqz_dbf_memory* t, int f, int r, float v)
            : op_base(t), field(f), record(r), new_value(v), old_value(t->get_float(f, r)) {}
        void redo() override {
            in_update([this] { table->write_bytes(field, record, &new_value, 4, false); });
        }
        void undo() override {
            in_update([this] { table->write_bytes(field, record, &old_value, 4, false); });
        }
        int32_t field;
        int32_t record;
        float new_value;
        float old_value;
    };
    submit(new op(this, field, record, value));
}

void Tqz_dbf_memory::set_double(int field, int record, double value) {
    class op : public op_base {
      public:
        op(Tqz_dbf_memory* t, int f, int r, double v)
            : op_base(t), field(f), record(r), new_value(v), old_value(t->get_double(f, r)) {}
        void redo() override {
            in_update([this] { table->write_bytes(field, record, &new_value, 8, false); });
        }
        void undo() override {
            in_update([this] { table->write_bytes(field, record, &old_value, 8, false); });
        }
        int32_t field;
        int32_t record;
        double new_value;
        double old_value;
    };
    submit(new op(this, field, record, value));
}

bool Tqz_dbf_memory::delete_records(const std::vector<unsigned int>& indexes) {
    // The indexes, ascending, without repeats, and a copy of each record
    // taken now: one block of bytes for all of them. Both directions go
    // through the store in one pass, whatever the number of records.
    class op : public op_base {
      public:
        op(Tqz_dbf_memory* t, const std::vector<unsigned int>& at) : op_base(t), indexes(at) {
            if (!std::is_sorted(indexes.begin(), indexes.end())) {
                std::sort(indexes.begin(), indexes.end());
            }
            indexes.erase(std::unique(indexes.begin(), indexes.end()), indexes.end());
            Tqz_dbf_records* store = t->get_records();
            size = store->get_length();
            // Only indexes of records that are there now can be restored.
            while (!indexes.empty() && indexes.back() >= store->get_size()) indexes.pop_back();
            saved.resize(indexes.size() * size);
            if (size > 0) {
                for (size_t k = 0; k < indexes.size(); ++k) {
                    const unsigned char* bytes = store->get_ptr(indexes[k]);
                    if (bytes) std::memcpy(saved.data() + k * size, bytes, size);
                }
            }
        }
        void redo() override {
            // The store's records from the last index down, in one pass: the
            // earlier records keep their places.
            in_update([this] {
                removed = table->get_records()->del_many(indexes);
                table->set_record_count(table->get_nr() - removed);
            });
        }
        void undo() override {
            // From the first index up, each copy back at its old place.
            in_update([this] {
                table->get_records()->ins_many(indexes.data(), removed, saved.data(), size);
                table->set_record_count(table->get_nr() + removed);
                removed = 0;
            });
        }
        std::vector<unsigned int> indexes;
        std::vector<unsigned char> saved;
        size_t size = 0;
        unsigned int removed = 0;
    };
    submit(new op(this, indexes));
    return true;
}

bool Tqz_dbf_memory::delete_records_by_msk(void* mask) {
    std::vector<unsigned int> indexes;
    const unsigned int nr = std::min(get_nr(), get_records()->get_size());
    for (unsigned int r = 0; r < nr; ++r) {
        if (qz_bits_get_bit(mask, r)) indexes.push_back(r);
    }
    return delete_records(indexes);
}

bool Tqz_dbf_memory::replace_structure(Tqz_dbf_memory_core* built) {
    class op : public op_base {
      public:
        op(Tqz_dbf_memory* t, Tqz_dbf_memory_core* o) : op_base(t), other(o) {}
        ~op() override { delete other; }
        // After the first redo the table has the new structure and `other`
        // the old one; every further undo or redo swaps them back.
        void redo() override {
            in_update([this] { table->swap(other); });
        }
        void undo() override {
            in_update([this] { table->swap(other); });
        }
        Tqz_dbf_memory_core* other;
    };
    if (!built || built == this) return false;
    op* change;
    try {
        change = new op(this, built);
    } catch (...) {
        delete built;
        throw;
    }
    qz_history_manager_begin_update(qz_history_manager_get_instance());
    try {
        submit(change);
    } catch (...) {
        qz_history_manager_end_update(qz_history_manager_get_instance());
        throw;
    }
    qz_history_manager_end_update(qz_history_manager_get_instance());
    return true;
}

bool Tqz_dbf_memory::restruct(void* descriptor) {
    if (!descriptor) return false;
    const auto& rstrct = *static_cast<const Tqz_dbf_rstrct*>(descriptor);
    Iqz_history_manager* manager = qz_history_manager_get_instance();
    qz_history_manager_begin_update(manager);
    struct End {
        Iqz_history_manager* manager;
        ~End() { qz_history_manager_end_update(manager); }
    } end{manager};
    auto built =
        std::make_unique<Tqz_restruct_sink>(*this, rstrct, qz::restruct::Conversion::memory);
    update();
    // A layout no table can have (no fields, too long a record) is refused
    // and the table stays as it was.
    if (!built->lay_out(get_nr())) return false;
    built->fill(0, get_nr());
    return replace_structure(built.release());
}

bool Tqz_dbf_memory::reload() {
    bool loaded = load();
    if (!loaded) init();
    // The old items' indexes and copies do not fit the data any more.
    if (history.handle) qz_history_destroy(history.handle);
    history.handle = nullptr;
    open_history(history.manager);
    update();
    return loaded;
}

bool Tqz_dbf_memory::set_deleted(unsigned int record, bool deleted) {
    class op : public op_base {
      public:
        op(Tqz_dbf_memory* t, unsigned int r, bool now, bool before)
            : op_base(t), record(r), new_flag(now), old_flag(before) {}
        void redo() override {
            in_update([this] { table->Tqz_dbf_memory_core::set_deleted(record, new_flag); });
        }
        void undo() override {
            in_update([this] { table->Tqz_dbf_memory_core::set_deleted(record, old_flag); });
        }
        uint32_t record;
        bool new_flag, old_flag;
    };
    const int before = get_deleted(record);
    if (before < 0) return false;
    submit(new op(this, record, deleted, before == 1));
    return true;
}

bool Tqz_dbf_memory::set_cell_bytes(unsigned int field, unsigned int record, const void* bytes,
                                    size_t n) {
    class op : public op_base {
      public:
        op(Tqz_dbf_memory* t, unsigned int f, unsigned int r, std::string now, std::string before)
            : op_base(t),
              field(f),
              record(r),
              new_bytes(std::move(now)),
              old_bytes(std::move(before)) {}
        void redo() override {
            in_update([this] { write(new_bytes); });
        }
        void undo() override {
            in_update([this] { write(old_bytes); });
        }
        void write(const std::string& b) {
            table->Tqz_dbf_memory_core::set_cell_bytes(field, record, b.data(), b.size());
        }
        uint32_t field, record;
        std::string new_bytes, old_bytes;
    };
    std::string before;
    if (!bytes || !get_cell_bytes(field, record, before)) return false;
    const size_t len = std::min(n, before.size());
    before.resize(len);
    submit(new op(this, field, record, std::string(static_cast<const char*>(bytes), len),
                  std::move(before)));
    return true;
}
