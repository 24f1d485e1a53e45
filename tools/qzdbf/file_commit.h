// New files made beside their final place and moved there whole: the files
// are synced, then renamed over the destination, so that the destination
// is either its old self or the whole new file. Until then they are
// "pending": removed when the process ends by an interrupt (Ctrl-C,
// SIGTERM, SIGHUP) or when the Pending_files object goes away unkept.
#pragma once

#include <string>
#include <vector>

namespace qzdbf {

class Pending_files {
  public:
    Pending_files();
    ~Pending_files();  // removes every file still pending
    Pending_files(const Pending_files&) = delete;
    Pending_files& operator=(const Pending_files&) = delete;

    // Registers a file to remove unless it is committed.
    void add(const std::string& path);
    // Syncs each (temporary, final) pair's file, renames it into place (in
    // order) and syncs the folder; false with a message when a step fails.
    bool commit(const std::vector<std::pair<std::string, std::string>>& moves, std::string& error);
    // Removes every pending file now.
    void discard();

  private:
    std::vector<std::string> paths_;
};

// A sibling of `path` for a file being made: ".<name>.<tag>-<pid><ext>" in
// the same folder, `ext` being path's extension (".dbf").
std::string sibling_path(const std::string& path, const std::string& tag);
// `path` with its extension replaced (or `ext` added when it has none).
std::string with_extension(const std::string& path, const std::string& ext);

}  // namespace qzdbf
