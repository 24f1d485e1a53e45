// Line input for the editor. A terminal gets the line editor of libedit
// (emacs keys, arrows, history, Tab); anything else is read line by line
// with no prompt, so that scripts see exactly what they wrote.
#include "line_input.h"

#include <histedit.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "edit_completion.h"

namespace qzdbf {

namespace {

class Plain_input : public Line_input {
  public:
    bool read(const std::string&, std::string& line, bool) override {
        return static_cast<bool>(std::getline(std::cin, line));
    }
    bool terminal() const override { return false; }
};

// Characters of UTF-8 text (the editor deletes characters, not bytes).
int characters(const std::string& text) {
    int n = 0;
    for (unsigned char c : text)
        if ((c & 0xC0) != 0x80) ++n;
    return n;
}

// Prints the candidates in columns under the line being typed.
void list_candidates(const std::vector<std::string>& words) {
    size_t widest = 0;
    for (const std::string& w : words) widest = std::max(widest, w.size());
    const size_t column = widest + 2;
    const size_t per_line = column < 80 ? 80 / column : 1;
    std::string out = "\n";
    for (size_t k = 0; k < words.size(); ++k) {
        out += words[k];
        const bool last_in_line = (k + 1) % per_line == 0 || k + 1 == words.size();
        out += last_in_line ? "\n" : std::string(column - words[k].size(), ' ');
    }
    std::fputs(out.c_str(), stdout);
    std::fflush(stdout);
}

// Set when the terminal changes its size; the editor learns the new size
// before the next line.
std::atomic<bool> resized{false};

extern "C" void on_resize(int) {
    resized = true;
}

class Terminal_input : public Line_input {
  public:
    Terminal_input(const std::string& history_file, Completer completer)
        : file(history_file), completer(std::move(completer)) {
        hist = history_init();
        HistEvent ev;
        history(hist, &ev, H_SETSIZE, 1000);
        history(hist, &ev, H_SETUNIQUE, 1);
        if (!file.empty()) history(hist, &ev, H_LOAD, file.c_str());  // none yet is fine
        el = el_init("qzdbf", stdin, stdout, stderr);
        el_set(el, EL_CLIENTDATA, static_cast<void*>(this));
        el_set(el, EL_EDITOR, "emacs");
        el_set(el, EL_HIST, history, hist);
        el_set(el, EL_PROMPT, &Terminal_input::prompt_of);
        // The wide call keeps our names as they are; the narrow one copies
        // them and never frees the copies.
        el_wset(el, EL_ADDFN, L"qz-complete", L"complete a command or field name",
                &Terminal_input::complete);
        // The user's ~/.editrc may choose vi keys or bind others; Tab is
        // bound after it so that it completes in either.
        el_source(el, nullptr);
        el_set(el, EL_BIND, "^I", "qz-complete", nullptr);
        struct sigaction sa {};
        sa.sa_handler = on_resize;
        sigemptyset(&sa.sa_mask);
        sa.sa_flags = SA_RESTART;  // a read goes on; the line is redrawn later
        sigaction(SIGWINCH, &sa, &previous_winch);
    }

    ~Terminal_input() override {
        HistEvent ev;
        // A history that cannot be written is lost quietly: it is a comfort,
        // and the table matters more than the reason it could not be saved.
        if (!file.empty()) history(hist, &ev, H_SAVE, file.c_str());
        sigaction(SIGWINCH, &previous_winch, nullptr);
        el_end(el);  // gives the terminal back its settings
        history_end(hist);
    }

    bool read(const std::string& prompt, std::string& line, bool remember) override {
        shown_prompt = prompt;
        if (resized.exchange(false)) el_resize(el);
        int count = 0;
        const char* got = el_gets(el, &count);
        if (!got || count <= 0) return false;
        line.assign(got, static_cast<size_t>(count));
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
        if (remember && line.find_first_not_of(" \t") != std::string::npos) {
            HistEvent ev;
            history(hist, &ev, H_ENTER, line.c_str());
        }
        return true;
    }
    bool terminal() const override { return true; }

  private:
    static Terminal_input* self(EditLine* e) {
        void* data = nullptr;
        el_get(e, EL_CLIENTDATA, &data);
        return static_cast<Terminal_input*>(data);
    }
    static char* prompt_of(EditLine* e) { return self(e)->shown_prompt.data(); }

    // Tab: one candidate replaces the typed word; several extend it as far
    // as they agree, and are listed when they do not extend it.
    static unsigned char complete(EditLine* e, int) {
        Terminal_input* in = self(e);
        const LineInfo* li = el_line(e);
        const std::string before(li->buffer, static_cast<size_t>(li->cursor - li->buffer));
        Completion c = in->completer ? in->completer(before) : Completion{};
        if (c.candidates.empty() || c.start > before.size()) return CC_REFRESH_BEEP;
        const std::string typed = before.substr(c.start);
        std::string replacement =
            c.candidates.size() == 1 ? c.candidates[0] : common_prefix(c.candidates);
        if (c.candidates.size() == 1 && c.space) replacement += ' ';
        if (replacement.size() < typed.size()) replacement = typed;
        if (replacement != typed) {
            el_deletestr(e, characters(typed));
            el_insertstr(e, replacement.c_str());
            if (c.candidates.size() == 1 || replacement.size() > typed.size()) return CC_REFRESH;
        }
        if (c.candidates.size() == 1) return CC_REFRESH;
        list_candidates(c.candidates);
        return CC_REDISPLAY;
    }

    const std::string file;
    const Completer completer;
    std::string shown_prompt;
    History* hist = nullptr;
    EditLine* el = nullptr;
    struct sigaction previous_winch {};
};

}  // namespace

std::unique_ptr<Line_input> plain_line_input() {
    return std::make_unique<Plain_input>();
}

std::unique_ptr<Line_input> terminal_line_input(const std::string& history_file,
                                                Completer completer) {
    return std::make_unique<Terminal_input>(history_file, std::move(completer));
}

std::string history_file_name() {
    if (const char* named = std::getenv("QZDBF_HISTORY")) return named;
    const char* home = std::getenv("HOME");
    if (!home || !*home) return std::string();
    return std::string(home) + "/.qzdbf_history";
}

}  // namespace qzdbf
