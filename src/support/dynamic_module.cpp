#include "support/dynamic_module.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>

namespace qz::support {

namespace {

std::string folder_of(const std::string& file) {
    const size_t slash = file.find_last_of('/');
    return slash == std::string::npos ? std::string() : file.substr(0, slash);
}

}  // namespace

std::string folder_of_code(const void* address) {
    Dl_info info{};
    if (!address || dladdr(address, &info) == 0 || !info.dli_fname) return std::string();
    std::string file = info.dli_fname;
    // A name without a folder, or a relative one, is made whole through
    // realpath; the main program may be reported that way.
    char resolved[PATH_MAX];
    if (realpath(file.c_str(), resolved)) file = resolved;
    return file.find('/') == 0 ? folder_of(file) : std::string();
}

std::string folder_of_executable() {
    char buffer[PATH_MAX];
    const ssize_t n = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (n <= 0) return std::string();
    return folder_of(std::string(buffer, static_cast<size_t>(n)));
}

void* load_module_entry(const std::vector<std::string>& candidates, const char* entry,
                        std::string& error) {
    error.clear();
    for (const std::string& path : candidates) {
        if (path.empty() || ::access(path.c_str(), R_OK) != 0) continue;
        void* handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
        if (!handle) {
            const char* why = ::dlerror();
            error = why ? why : path + ": cannot be loaded";
            continue;
        }
        if (void* symbol = ::dlsym(handle, entry)) return symbol;
        error = path + ": has no " + entry;
    }
    if (error.empty()) error = "no module found";
    return nullptr;
}

}  // namespace qz::support
