#include "edit_completion.h"

#include <cctype>

namespace qzdbf {

namespace {

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

// The words before the cursor and where the last (maybe empty) one starts.
std::vector<std::string> words_of(const std::string& text, size_t& last_start) {
    std::vector<std::string> words;
    size_t at = 0;
    last_start = text.size();
    while (at < text.size()) {
        while (at < text.size() && is_blank(text[at])) ++at;
        if (at == text.size()) break;
        const size_t start = at;
        while (at < text.size() && !is_blank(text[at])) ++at;
        words.push_back(text.substr(start, at - start));
        last_start = start;
    }
    // A blank before the cursor starts a new, empty word.
    if (text.empty() || is_blank(text.back())) {
        words.emplace_back();
        last_start = text.size();
    }
    return words;
}

const std::vector<std::string> kShowOptions = {"--vertical", "--fields"};
const std::vector<std::string> kAlterOptions = {"--add", "--drop", "--rename", "--retype",
                                                "--move"};

}  // namespace

const std::vector<std::string>& edit_commands() {
    static const std::vector<std::string> names = {"set",   "add",  "ins",  "del",  "delmask",
                                                   "undo",  "redo", "save", "show", "find",
                                                   "alter", "help", "quit", "exit"};
    return names;
}

std::vector<std::string> matching(const std::vector<std::string>& candidates,
                                  const std::string& prefix) {
    std::vector<std::string> out;
    for (const std::string& c : candidates) {
        if (c.size() < prefix.size()) continue;
        size_t k = 0;
        while (k < prefix.size() && std::tolower(static_cast<unsigned char>(c[k])) ==
                                        std::tolower(static_cast<unsigned char>(prefix[k])))
            ++k;
        if (k == prefix.size()) out.push_back(c);
    }
    return out;
}

std::string common_prefix(const std::vector<std::string>& words) {
    if (words.empty()) return std::string();
    size_t n = words[0].size();
    for (const std::string& w : words) {
        size_t k = 0;
        while (k < n && k < w.size() &&
               std::tolower(static_cast<unsigned char>(w[k])) ==
                   std::tolower(static_cast<unsigned char>(words[0][k])))
            ++k;
        n = k;
    }
    // Never half a character.
    while (n > 0 && n < words[0].size() && (words[0][n] & 0xC0) == 0x80) --n;
    return words[0].substr(0, n);
}

Completion complete_edit_line(const std::string& before, const std::vector<std::string>& fields) {
    Completion c;
    size_t start = 0;
    const std::vector<std::string> w = words_of(before, start);
    const std::string& word = w.back();
    c.start = start;
    if (w.size() == 1) {
        c.candidates = matching(edit_commands(), word);
        return c;
    }
    const std::string& cmd = w[0];
    const std::string& previous = w[w.size() - 2];
    if ((cmd == "set" || cmd == "find") && w.size() == 2) {
        c.candidates = matching(fields, word);
    } else if (cmd == "show" && previous == "--fields") {
        // A list A,B,C: the name after the last comma, and no blank after it
        // (another comma may follow).
        const size_t comma = word.rfind(',');
        const size_t from = comma == std::string::npos ? 0 : comma + 1;
        c.start = start + from;
        c.candidates = matching(fields, word.substr(from));
        c.space = false;
    } else if (cmd == "show" && !word.empty() && word[0] == '-') {
        c.candidates = matching(kShowOptions, word);
    } else if (cmd == "alter" && !word.empty() && word[0] == '-') {
        c.candidates = matching(kAlterOptions, word);
    } else if (cmd == "alter" && (previous == "--drop" || previous == "--rename" ||
                                  previous == "--retype" || previous == "--move")) {
        // NAME, or the NAME of NAME=... and NAME:...: what follows is typed.
        if (word.find_first_of("=:") == std::string::npos) {
            c.candidates = matching(fields, word);
            c.space = previous == "--drop";
        }
    }
    return c;
}

}  // namespace qzdbf
