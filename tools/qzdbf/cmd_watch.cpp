// qzdbf watch PATH: prints the update events of a table until interrupted.
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>

#include "checked_open.h"
#include "cli.h"
#include "command.h"
#include "qzk_file_dbf.h"

namespace qzdbf {

namespace {

volatile std::sig_atomic_t interrupted = 0;

extern "C" void on_signal(int) {
    interrupted = 1;
}

const char* kind_name(int32_t kind) {
    switch (kind) {
        case QZ_EVENT_BEGIN_UPDATE:
            return "begin";
        case QZ_EVENT_UPDATE:
            return "update";
        case QZ_EVENT_END_UPDATE:
            return "end";
        default:
            return "other";
    }
}

// One line per event: local time with milliseconds, the kind, and for an
// update the number of changes it stands for.
extern "C" void print_event(Tqz_table* event, void*) {
    using namespace std::chrono;
    auto now = system_clock::now();
    std::time_t secs = system_clock::to_time_t(now);
    long ms = static_cast<long>(duration_cast<milliseconds>(now.time_since_epoch()).count() % 1000);
    std::tm local{};
    localtime_r(&secs, &local);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
    int32_t kind = qz_event_kind(event);
    std::string line = std::string(stamp) + "." + (ms < 100 ? (ms < 10 ? "00" : "0") : "") +
                       std::to_string(ms) + "  " + kind_name(kind);
    const Tqz_any* count = table_get(event, "count");
    if (kind == QZ_EVENT_UPDATE && count && any_get_type(count) == QZ_ANY_INTEGER)
        line += "  count=" + std::to_string(any_get_integer(count));
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

int run_watch(const std::string& path, bool force) {
    // A table may be watched before it exists; what exists must be one.
    std::error_code exists_ec;
    if (std::filesystem::exists(path, exists_ec)) {
        int status = kOk;
        Tqz_dbf_rw* t = open_table(path, Access::read, force, status);
        if (!t) return status;
        qz_dbf_close(t);
    }
    std::wstring wpath;
    if (!path.empty()) {
        int n = qz_code_page_to_wide(0, path.data(), static_cast<int>(path.size()), nullptr, 0);
        wpath.resize(n > 0 ? static_cast<size_t>(n) : 0);
        if (n > 0)
            qz_code_page_to_wide(0, path.data(), static_cast<int>(path.size()), wpath.data(), n);
    }
    if (wpath.empty()) return fail(kBadUsage, "'" + path + "' is not a path");

    std::error_code ec;
    std::filesystem::path folder = std::filesystem::path(path).parent_path();
    if (folder.empty()) folder = ".";
    if (!std::filesystem::is_directory(folder, ec))
        return fail(kFailed, "cannot watch '" + path + "': no folder '" + folder.string() + "'");

    Tqz_dbf_notifier* notifier = qz_create_dbf_notifier_w(wpath.c_str());
    if (!notifier) return fail(kFailed, "cannot watch '" + path + "'");
    Iqz_event_channel* events = qz_dbf_notifier_get_update_event_channel(notifier);
    qz_event_channel_add_client(events, &print_event, nullptr);

    std::signal(SIGINT, on_signal);
    std::signal(SIGTERM, on_signal);
    std::fprintf(stderr, "qzdbf: watching %s%s (Ctrl-C to stop)\n", path.c_str(),
                 std::filesystem::exists(path, ec) ? "" : ", which does not exist yet");
    while (!interrupted) std::this_thread::sleep_for(std::chrono::milliseconds(50));

    qz_event_channel_del_client(events, &print_event, nullptr);
    qz_destroy_dbf_notifier(notifier);
    return kOk;
}

}  // namespace

Runner setup_watch(CLI::App& cmd) {
    auto path = std::make_shared<std::string>();
    auto force = std::make_shared<bool>(false);
    cmd.add_option("PATH", *path, "the table (it may not exist yet)")->required();
    cmd.add_flag("--force", *force, "watch a file that fails the check anyway");
    return [path, force] { return run_watch(*path, *force); };
}

}  // namespace qzdbf
