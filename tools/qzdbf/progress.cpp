#include "progress.h"

#include <unistd.h>

#include <cstdio>

namespace qzdbf {

namespace {

using Clock = std::chrono::steady_clock;

// "1,234,567"
std::string grouped(uint64_t n) {
    std::string digits = std::to_string(n), out;
    for (size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0) out += ',';
        out += digits[i];
    }
    return out;
}

}  // namespace

Progress::Progress(std::string what, uint64_t total, const char* unit)
    : what_(std::move(what)),
      total_(total),
      unit_(unit),
      enabled_(::isatty(STDERR_FILENO) == 1),
      start_(Clock::now()),
      phase_(start_),
      last_(start_) {}

Progress::~Progress() {
    finish();
}

void Progress::restart(std::string what, uint64_t total, const char* unit) {
    what_ = std::move(what);
    total_ = total;
    unit_ = unit;
    done_ = 0;
    phase_ = Clock::now();
}

std::string Progress::render(const std::string& what, uint64_t done, uint64_t total,
                             const char* unit, double seconds, unsigned width) {
    const double rate = seconds > 0 ? done / seconds : 0;
    std::string tail = " " + grouped(done);
    if (total > 0) tail += "/" + grouped(total);
    tail += std::string(" ") + unit + ", " + grouped(static_cast<uint64_t>(rate)) + "/s";
    std::string line = what + " ";
    if (total > 0) {
        const uint64_t shown = done < total ? done : total;
        const unsigned percent = static_cast<unsigned>(shown * 100 / total);
        const size_t room =
            width > line.size() + tail.size() + 8 ? width - line.size() - tail.size() - 8 : 0;
        const size_t bar = room < 40 ? room : 40;
        const size_t full = static_cast<size_t>(bar * shown / total);
        if (bar > 0) line += "[" + std::string(full, '#') + std::string(bar - full, '.') + "]";
        char pct[8];
        std::snprintf(pct, sizeof pct, " %3u%%", percent);
        line += pct;
    }
    line += tail;
    if (line.size() > width && width > 0) line.resize(width);
    return line;
}

void Progress::tick() {
    const auto now = Clock::now();
    if (now - start_ < std::chrono::seconds(1)) return;
    if (shown_ && now - last_ < std::chrono::milliseconds(200)) return;
    last_ = now;
    shown_ = true;
    const double seconds = std::chrono::duration<double>(now - phase_).count();
    std::string line = render(what_, done_, total_, unit_, seconds, 79);
    std::fprintf(stderr, "\r%s\033[K", line.c_str());
    std::fflush(stderr);
}

void Progress::clear_line() {
    if (shown_) {
        std::fputs("\r\033[K", stderr);
        std::fflush(stderr);
    }
    shown_ = false;
}

void Progress::finish() {
    clear_line();
    enabled_ = false;
}

int Progress::library_callback(void* user, unsigned long long done, unsigned long long total) {
    auto* bar = static_cast<Progress*>(user);
    if (bar) {
        bar->total_ = total;
        bar->report(done);
    }
    return 0;
}

}  // namespace qzdbf
