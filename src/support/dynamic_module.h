// Shared modules loaded at run time: parts of the library and the tool that
// bring in large dependencies (GDAL and its libraries) live in modules of
// their own, loaded on first use, so that a process which never needs them
// never pays for loading them.
#pragma once

#include <string>
#include <vector>

namespace qz::support {

// The folder of the shared object (library or executable) that holds the
// code at `address`, or "" when the loader does not know it.
std::string folder_of_code(const void* address);

// The folder of the running executable, or "" when it cannot be read.
std::string folder_of_executable();

// Loads the first of `candidates` (full paths) that the dynamic loader
// accepts and returns its symbol `entry`, or null when none loads or none
// has it. A loaded module stays loaded for the life of the process (GDAL
// does not survive being unloaded). `error` receives the loader's last
// message when nothing was found.
void* load_module_entry(const std::vector<std::string>& candidates, const char* entry,
                        std::string& error);

}  // namespace qz::support
