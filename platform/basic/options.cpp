// Process-wide options: the temporary folder and the ANSI code page.
#include <langinfo.h>
#include <strings.h>

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <string>

#include "code_page_text.h"
#include "qzk_basic.h"

namespace {

std::mutex temp_mutex;
std::wstring temp_path;  // guarded by temp_mutex; empty until first asked for

std::wstring with_slash(std::wstring p) {
    if (p.empty() || p.back() != L'/') p += L'/';
    return p;
}

std::wstring default_temp_path() {
    const char* env = std::getenv("TMPDIR");
    std::string dir = env && *env ? env : "/tmp";
    // The folder name is a file system name: UTF-8 bytes.
    std::wstring w = qz::basic::cp_to_wide(65001, dir);
    return with_slash(w.empty() ? L"/tmp" : w);
}

std::atomic<unsigned int> ansi_code_page{0};  // 0: follow the locale

unsigned int parse_codeset(const char* cs) {
    if (!strcasecmp(cs, "UTF-8") || !strcasecmp(cs, "UTF8")) return 65001;
    if (!strcasecmp(cs, "CP866") || !strcasecmp(cs, "IBM866")) return 866;
    for (unsigned int cp = 1250; cp <= 1258; ++cp) {
        std::string cpn = "CP" + std::to_string(cp);
        std::string win = "WINDOWS-" + std::to_string(cp);
        if (!strcasecmp(cs, cpn.c_str()) || !strcasecmp(cs, win.c_str())) return cp;
    }
    return 65001;
}

// Every conversion asks for the ANSI code page, so the answer for the
// current codeset is remembered (per thread: threads may run in different
// locales). The C library hands out the codeset of a loaded locale at one
// place for as long as the process runs, so the same pointer means the same
// codeset and the name is compared only when the pointer changes. Kept out
// of line, so that the common case of a code page set by the options is a
// load and a return, without this function's frame.
__attribute__((noinline)) unsigned int code_page_of_locale() {
    const char* cs = nl_langinfo(CODESET);
    if (!cs) return 65001;
    thread_local const char* last_pointer = nullptr;
    thread_local std::string last_codeset;
    thread_local unsigned int last_code_page = 0;
    if (cs == last_pointer && last_code_page != 0) return last_code_page;
    if (last_code_page == 0 || last_codeset != cs) {
        last_codeset = cs;
        last_code_page = parse_codeset(cs);
    }
    last_pointer = cs;
    return last_code_page;
}

}  // namespace

extern "C" {

const wchar_t* qz_options_get_temp_wpath(void) {
    std::lock_guard<std::mutex> lock(temp_mutex);
    if (temp_path.empty()) temp_path = default_temp_path();
    return temp_path.c_str();
}

void qz_options_set_temp_wpath(const wchar_t* folder) {
    std::lock_guard<std::mutex> lock(temp_mutex);
    temp_path = folder && *folder ? with_slash(folder) : default_temp_path();
}

unsigned int qz_options_get_ansi_code_page(void) {
    unsigned int cp = ansi_code_page.load(std::memory_order_relaxed);
    return cp ? cp : code_page_of_locale();
}

void qz_options_set_ansi_code_page(unsigned int code_page) {
    // Only code pages that can be converted are accepted; 0 means the default.
    if (code_page && !qz_code_page_iconv_name(code_page)) return;
    ansi_code_page.store(code_page, std::memory_order_relaxed);
}

}  // extern "C"
