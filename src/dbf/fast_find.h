// Tqz_dbf_fast_find: the index behind a table's fast value search. It maps
// texts to record indexes; a text added again replaces its record, so the
// index answers with the last record added under a text. Texts are compared
// byte for byte.
//
// The texts live one after another in one block of memory and are found
// through an open-addressing hash table. The table is filled in the order of
// the slots the texts hash to (after a radix sort), so building it for a
// million records writes memory almost in sequence instead of at random.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

class Tqz_dbf_fast_find {
  public:
    void clear();
    // Filling: add() every text with its record, then build(); until then
    // find() answers from the index as it was last built.
    void reserve(size_t count);
    void add(const char* key, size_t len, uint32_t record);
    void build();
    size_t size() const { return count_; }
    // The record of the text, if the index has it.
    bool find(const char* key, size_t len, uint32_t& record) const;

  private:
    struct slot {
        uint32_t hash;
        uint32_t record;
        uint64_t key;  // offset into keys_ << 24 | length; 0 marks a free slot
    };
    static uint32_t hash_of(const char* key, size_t len);
    bool same_key(const slot& s, const char* key, size_t len) const;

    std::vector<slot> slots_;    // a power of two in size, or empty
    std::vector<slot> pending_;  // added, not yet built
    std::vector<char> keys_;     // starts with one unused byte, so no key is at 0
    size_t count_ = 0;
};
