// GDAL as this library uses it: drivers registered once per process, and
// GDAL's messages kept off the host's stderr.
#pragma once

#include <string>

namespace qz::ogr {

// Registers GDAL's drivers on first use; safe from any thread, any number of
// times.
void ensure_registered();

// While alive, GDAL errors and debug messages raised on this thread go to a
// quiet handler instead of stderr. The handler is pushed on the calling
// thread's handler stack only, so a host that installs its own GDAL handler
// keeps it for its own calls and on other threads.
class Quiet_scope {
  public:
    Quiet_scope();
    ~Quiet_scope();
    Quiet_scope(const Quiet_scope&) = delete;
    Quiet_scope& operator=(const Quiet_scope&) = delete;

  private:
    // The thread's last GDAL error as it stood before, given back at the end
    // so that a host polling it does not see ours.
    int last_class;
    int last_number;
    std::string last_message;
};

}  // namespace qz::ogr
