// Text lines written to a stream in a chosen encoding.
#pragma once

#include <cstdio>
#include <string>

#include "encoding/encodings.h"

namespace qz {

namespace detail {

class textio_std {
  public:
    textio_std(FILE* stream, strconv::encodings e) : stream_(stream), encoding_(e) {}
    // Writes `text` in the writer's encoding; false when the stream refuses.
    bool write(const std::wstring& text) const;

  private:
    FILE* stream_;
    strconv::encodings encoding_;
};

}  // namespace detail

class textio {
  public:
    textio(FILE* stream, strconv::encodings e) : out_(stream, e) {}
    // Writes `line` and a line end.
    bool writeln(const std::wstring& line) const { return out_.write(line + L"\n"); }

  private:
    detail::textio_std out_;
};

}  // namespace qz
