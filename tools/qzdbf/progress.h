// A progress bar on standard error for work over many records:
//
//     Progress bar("import", records);   // total 0 when unknown
//     for (...) { ...; bar.step(); }      // or bar.set(done)
//     bar.finish();
//
// It shows itself only when standard error is a terminal and the work has
// run for more than a second, redraws a few times a second, and clears its
// line at the end. Any command (pack, alter, check) may use it.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace qzdbf {

class Progress {
  public:
    Progress(std::string what, uint64_t total, const char* unit = "records");
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void step() { set(done_ + 1); }
    void set(uint64_t done) {
        done_ = done;
        if (enabled_ && (done_ & 1023) == 0) tick();
    }
    // `done` as heard from the library's progress callback, at any step.
    void report(uint64_t done) {
        done_ = done;
        if (enabled_) tick();
    }
    // Takes the bar off its line (if shown) so that other output can go to
    // the terminal; the next tick draws it again.
    void clear_line();
    // A callback for the library's progress exports (Tqz_dbf_progress_fn),
    // `user` being a Progress: reports `done` and never asks to stop.
    static int library_callback(void* user, unsigned long long done, unsigned long long total);
    // A new phase of the same work, counted again from 0.
    void restart(std::string what, uint64_t total, const char* unit);
    // Clears the bar (if shown); nothing more is drawn.
    void finish();
    // Forces the terminal check's answer (tests, --quiet).
    void set_enabled(bool on) { enabled_ = on; }
    // The line as drawn for `done` of `total` after `seconds`, `width` columns.
    static std::string render(const std::string& what, uint64_t done, uint64_t total,
                              const char* unit, double seconds, unsigned width);

  private:
    void tick();
    std::string what_;
    uint64_t total_, done_ = 0;
    const char* unit_;
    bool enabled_, shown_ = false;
    // start_: when the work began (the bar waits a second from it);
    // phase_: when the counting began (the rate counts from it).
    std::chrono::steady_clock::time_point start_, phase_, last_;
};

}  // namespace qzdbf
