#include "restruct/progress_report.h"

#include <algorithm>

namespace qz::restruct {

namespace {

constexpr uint64_t kStep = 4096;

}  // namespace

void Progress_report::start(uint64_t n) {
    total = n;
    next = std::min(kStep, n);
    reported = 0;
    heard_any = false;
}

bool Progress_report::advance(uint64_t done) {
    if (stopped) return false;
    if (!fn || done < next || done >= total) return true;
    next = done + kStep;
    return report(done);
}

bool Progress_report::report(uint64_t done) {
    if (stopped) return false;
    if (!fn) return true;
    done = std::min(std::max(done, reported), total);
    // The last count is told once.
    if (heard_any && done == reported) return true;
    reported = done;
    heard_any = true;
    if (fn(user, done, total) != 0) stopped = true;
    return !stopped;
}

}  // namespace qz::restruct
