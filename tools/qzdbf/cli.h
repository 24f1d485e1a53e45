// Shared pieces of the qzdbf commands.
#pragma once

#include <string>
#include <vector>

namespace qzdbf {

// Exit statuses.
constexpr int kOk = 0;
constexpr int kFailed = 1;    // the table could not be opened, read or written
constexpr int kBadUsage = 2;  // the command line is wrong

using Args = std::vector<std::string>;

int cmd_create(const Args& args);
int cmd_info(const Args& args);
int cmd_watch(const Args& args);

// Prints "qzdbf: <message>" to standard error and returns `status`.
int fail(int status, const std::string& message);

// Parses a whole unsigned decimal number; false for anything else.
bool parse_count(const std::string& text, unsigned long long max, unsigned long long& out);

}  // namespace qzdbf
