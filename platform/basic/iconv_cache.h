// A per-thread cache of iconv descriptors.
//
// Opening a descriptor costs far more than converting a short cell, so every
// conversion path in the qzk libraries takes its descriptor from here. Each
// thread keeps its own descriptors (iconv_t is not shareable between threads);
// they are closed when the thread ends. A descriptor is reset to its initial
// shift state before it is handed out, so results are those of a fresh one.
#pragma once

#include <iconv.h>

#include <cstring>
#include <string>
#include <vector>

namespace qz::basic {

class Iconv_cache {
  public:
    static iconv_t invalid() { return reinterpret_cast<iconv_t>(-1); }

    // The descriptor converting `from` to `to`, or invalid() when iconv knows
    // no such pair (that answer is cached too).
    static iconv_t get(const char* to, const char* from) {
        thread_local Iconv_cache cache;
        return cache.lookup(to, from);
    }

    ~Iconv_cache() {
        for (auto& e : entries_)
            if (e.cd != invalid()) iconv_close(e.cd);
    }

  private:
    struct Entry {
        std::string to, from;
        iconv_t cd;
    };

    iconv_t lookup(const char* to, const char* from) {
        for (auto& e : entries_) {
            if (e.to == to && e.from == from) {
                if (e.cd != invalid()) iconv(e.cd, nullptr, nullptr, nullptr, nullptr);
                return e.cd;
            }
        }
        // A program converts between a handful of pairs; bound the cache all
        // the same so that a caller cycling through names cannot grow it.
        if (entries_.size() >= 64) {
            if (entries_.front().cd != invalid()) iconv_close(entries_.front().cd);
            entries_.erase(entries_.begin());
        }
        entries_.push_back({to, from, iconv_open(to, from)});
        return entries_.back().cd;
    }

    std::vector<Entry> entries_;
};

}  // namespace qz::basic
