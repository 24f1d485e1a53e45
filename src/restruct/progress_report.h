// A caller's progress callback over one pass through a table's records:
// called every few thousand records and once at the end, `done` never
// decreasing; a non-zero answer asks the pass to stop.
#pragma once

#include <cstdint>

#include "qzk_file_dbf_ext.h"

namespace qz::restruct {

class Progress_report {
  public:
    Progress_report() = default;
    Progress_report(Tqz_dbf_progress_fn fn, void* user) : fn(fn), user(user) {}

    // A new pass through `total` records.
    void start(uint64_t total);
    // `done` records are through; false once the callback asked to stop
    // (then on every later call too).
    bool advance(uint64_t done);
    // All `total` records are through: the callback hears it once.
    bool finish() { return report(total); }
    bool cancelled() const { return stopped; }

  private:
    bool report(uint64_t done);

    Tqz_dbf_progress_fn fn = nullptr;
    void* user = nullptr;
    uint64_t total = 0;
    uint64_t next = 0;      // the count at which the callback is called next
    uint64_t reported = 0;  // the last count it heard
    bool heard_any = false;
    bool stopped = false;
};

}  // namespace qz::restruct
