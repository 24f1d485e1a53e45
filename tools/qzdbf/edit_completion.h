// What Tab completes in qzdbf edit: command names at the start of a line,
// field names where a command takes one, and options.
#pragma once

#include <string>
#include <vector>

#include "line_input.h"

namespace qzdbf {

// The editor's command names, in the order help lists them.
const std::vector<std::string>& edit_commands();

// The words of `candidates` that begin with `prefix`, ASCII letters in any
// case, in their order.
std::vector<std::string> matching(const std::vector<std::string>& candidates,
                                  const std::string& prefix);

// The longest beginning that all `words` share, ASCII letters in any case,
// as the first word has it; never half a character.
std::string common_prefix(const std::vector<std::string>& words);

// The completion of the word before the cursor of an edit command line,
// `fields` being the table's field names.
Completion complete_edit_line(const std::string& before_cursor,
                              const std::vector<std::string>& fields);

}  // namespace qzdbf
