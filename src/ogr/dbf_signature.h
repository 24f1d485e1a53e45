// What marks a file as a dBASE table without asking GDAL: its name or its
// first bytes.
#pragma once

#include <cstddef>
#include <string>

namespace qz::ogr {

// Whether the path ends in ".dbf", in any letter case.
bool has_dbf_extension(const std::string& path);

// Whether the first `n` bytes of a file are a dBASE header's start: a
// version byte dBASE, FoxPro and their kin write, then a plausible date of
// last change (month 1..12, day 1..31).
bool looks_like_dbf_header(const unsigned char* head, size_t n);

// Whether the file at `path` may be a source for OGR rather than a table,
// answered without GDAL: false for a path named ".dbf" and for a readable
// file starting like a dBASE header, true otherwise (the module then asks
// GDAL).
bool may_be_other_vector_source(const std::wstring& path, const std::string& utf8_path);

}  // namespace qz::ogr
