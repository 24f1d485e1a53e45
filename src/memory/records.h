// Tqz_dbf_records: the records of a memory table, each `length` bytes, in
// table order.
//
// Every record of a store has the same length, so the bytes live in large
// blocks carved into equal slots rather than in one allocation per record:
// a table loaded from a file takes one block for all its records (read from
// the file in one pass) and a pointer per record. The order of the table is
// the vector of slot pointers; inserting or deleting a record moves only
// pointers. A deleted record's slot is reused by the next record made.
#pragma once

#include <cstddef>
#include <vector>

class Tqz_dbf_records {
  public:
    Tqz_dbf_records() = default;
    ~Tqz_dbf_records();
    Tqz_dbf_records(const Tqz_dbf_records&) = delete;
    Tqz_dbf_records& operator=(const Tqz_dbf_records&) = delete;

    // Frees every record; the length is kept.
    void clear();
    unsigned int get_size() const { return static_cast<unsigned int>(index.size()); }
    // Drops the records from `n` on, or appends records of spaces up to `n`.
    void set_size(unsigned int n) { set_size(n, true); }
    // The same; with `fill` false the new records' bytes are left unset for
    // the caller to write (get_block tells where they lie).
    void set_size(unsigned int n, bool fill);

    unsigned int get_length() const { return length; }
    // Gives every record `len` bytes, keeping the first min(old, new) bytes
    // of each; the bytes added are spaces. 0 leaves records without bytes.
    void set_length(unsigned int len);

    // The bytes of record `i` (null for records of length 0); `i` must be
    // below get_size().
    unsigned char* get_ptr(unsigned int i) const { return index[i]; }

    // Appends a record of spaces.
    bool add();
    // Puts a record of spaces at `i`, moving the records from `i` on up by
    // one; false (nothing changed) when `i` is not below the count.
    bool ins(unsigned int i);
    // Removes record `i`; false (nothing changed) when there is none.
    bool del(unsigned int i);
    // Removes the records at `at` (strictly ascending) in one pass; entries
    // at or past the count are ignored. Returns how many went: as `at`
    // ascends, they are its first entries.
    unsigned int del_many(const std::vector<unsigned int>& at);
    // Undoes del_many in one pass: puts `n` records back so that record k
    // sits at at[k] (at the end when the store is shorter by then), each
    // filled from `bytes + k * size` (its first min(size, length) bytes, then
    // spaces). `at` ascends strictly.
    void ins_many(const unsigned int* at, size_t n, const unsigned char* bytes, size_t size);
    // Makes this store a copy of `other` (length, count and bytes).
    void assign(const Tqz_dbf_records* other);

    // Records `first`, `first + 1`, ... that lie one after another in memory:
    // the bytes of record `first` and how many records follow there (at
    // most `count`). Null when `first` is not below get_size() or the
    // length is 0.
    unsigned char* get_block(unsigned int first, unsigned int& count) const;

    // Bytes taken from the heap by the record bytes and the order vector.
    size_t get_heap_bytes() const;

  private:
    struct Block {
        unsigned char* bytes;
        size_t slots;  // records the block can hold
        size_t used;   // slots handed out from the front so far
    };

    // A slot of `length` bytes, contents unset; null when the length is 0.
    unsigned char* take_slot();
    void put_slot(unsigned char* slot);
    // Adds a block of exactly `slots` records.
    void add_block(size_t slots);
    void free_blocks();

    std::vector<unsigned char*> index;       // the records in table order
    std::vector<unsigned char*> free_slots;  // slots of deleted records
    std::vector<Block> blocks;
    unsigned int length = 0;
};
