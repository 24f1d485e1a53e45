// Reading the editor's command lines: from a terminal with line editing,
// history and completion, or plain lines from a script or a pipe.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace qzdbf {

// What Tab offers for the text before the cursor: the typed word starts at
// byte `start` of that text; `candidates` are the words that may replace it,
// and `space` says whether one finished word is followed by a blank.
struct Completion {
    size_t start = 0;
    std::vector<std::string> candidates;
    bool space = true;
};
using Completer = std::function<Completion(const std::string& before_cursor)>;

class Line_input {
  public:
    virtual ~Line_input() = default;
    // One line without its line break; false at the end of the input or when
    // the read was interrupted by a signal. `remember` puts a line that is not
    // blank into the history.
    virtual bool read(const std::string& prompt, std::string& line, bool remember) = 0;
    // Whether the prompts are shown and the lines edited.
    virtual bool terminal() const = 0;
};

// Plain lines from standard input; prompts are not shown.
std::unique_ptr<Line_input> plain_line_input();

// Line editing on the terminal of standard input and output. The history is
// read from `history_file` at the start and written back when the object goes
// (neither is an error when it fails; an empty name keeps the history in
// memory only). Tab calls `completer`.
std::unique_ptr<Line_input> terminal_line_input(const std::string& history_file,
                                                Completer completer);

// The history file of the editor: $QZDBF_HISTORY when set (empty: none),
// else ~/.qzdbf_history, else none.
std::string history_file_name();

}  // namespace qzdbf
