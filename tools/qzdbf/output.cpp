// Output of dump and get, with the pager.
#include "output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "cli.h"

namespace qzdbf {

namespace {

unsigned long long screen_lines() {
    struct winsize size {};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0) return size.ws_row;
    return 24;
}

}  // namespace

Output::Output(unsigned long long lines, bool page) {
    // A closed pipe ends the writing through EPIPE, not through the signal.
    std::signal(SIGPIPE, SIG_IGN);
    buffer_.reserve(kBlock + 4096);
    if (!page || !::isatty(STDOUT_FILENO) || lines < screen_lines()) return;
    const char* pager = std::getenv("PAGER");
    std::string command = pager ? pager : "less -S";
    if (trim_blanks(command).empty() || trim_blanks(command) == "cat") return;
    // less quits by itself on text that fits the screen and keeps colours.
    ::setenv("LESS", "FRX", 0);
    std::fflush(stdout);
    FILE* p = ::popen(command.c_str(), "w");
    if (!p) return;
    out_ = p;
    pager_ = true;
}

Output::~Output() {
    finish();
}

bool Output::flush() {
    if (!open()) {
        buffer_.clear();
        return false;
    }
    if (!buffer_.empty()) {
        errno = 0;
        const size_t n = std::fwrite(buffer_.data(), 1, buffer_.size(), out_);
        if (n == buffer_.size()) std::fflush(out_);
        if (n != buffer_.size() || std::ferror(out_)) {
            (errno == EPIPE ? gone_ : failed_) = true;
        }
        buffer_.clear();
    }
    return open();
}

int Output::finish() {
    if (finished_) return failed_ ? kIoError : kOk;
    flush();
    finished_ = true;
    if (pager_) {
        ::pclose(out_);
        out_ = stdout;
    } else if (!gone_ && !failed_ && std::fflush(stdout) != 0) {
        (errno == EPIPE ? gone_ : failed_) = true;
    }
    if (failed_) fail(kIoError, "cannot write the output");
    return failed_ ? kIoError : kOk;
}

}  // namespace qzdbf
