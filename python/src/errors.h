// Errors of the library as Python exceptions: a C++ exception carrying the
// library's error code and message, translated into the matching subclass
// of qzdbf.Error when it reaches Python.
#pragma once

#include <pybind11/pybind11.h>

#include <stdexcept>
#include <string>

namespace qzpy {

class library_error : public std::runtime_error {
  public:
    library_error(int code, const std::string& message)
        : std::runtime_error(message), code_(code) {}
    int code() const { return code_; }

  private:
    int code_;
};

// Throws the thread's last library error; `fallback_code` and
// `fallback_message` stand in when the failing call recorded none.
[[noreturn]] void throw_last_error(int fallback_code, const std::string& fallback_message);

// Throws an error of `code` (a Tqz_dbf_error value) with `message`.
[[noreturn]] void throw_error(int code, const std::string& message);

void register_error_translator();

}  // namespace qzpy
