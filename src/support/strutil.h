// String helpers used across the tables: trimming, case-insensitive search
// and ordering, checked number parsing.
#pragma once

#include <string>

namespace qz::strutil {

// The whitespace every trim of the tables removes.
inline constexpr const char* whitespace = " \t\n\r\v\f";
inline constexpr const wchar_t* wwhitespace = L" \t\n\r\v\f";

std::string trim(const std::string& s, const char* chars = whitespace);
std::wstring trim(const std::wstring& s, const wchar_t* chars = wwhitespace);
std::string trim_left(const std::string& s, const char* chars = whitespace);
std::wstring trim_left(const std::wstring& s, const wchar_t* chars = wwhitespace);
void trim_inplace(std::string& s, const char* chars = whitespace);
void trim_inplace(std::wstring& s, const wchar_t* chars = wwhitespace);

// Position of `needle` in `haystack` ignoring letter case (system text,
// Unicode case rules); std::string::npos when absent.
size_t find_ic(const std::string& haystack, const std::string& needle);
size_t find_ic(const std::wstring& haystack, const std::wstring& needle);

// Parses a number; the first comma counts as a decimal point. `ok` (when
// given) tells whether the whole text was a number in range. The parsed
// value is returned in every case (0 when nothing was parsed).
double to_numeric_safe(const std::string& text, bool* ok);
double to_numeric_safe(const std::wstring& text, bool* ok);

// Ordering without regard to letter case (Unicode rules).
struct icase_less {
    bool operator()(const std::string& a, const std::string& b) const;
    bool operator()(const std::wstring& a, const std::wstring& b) const;
};

}  // namespace qz::strutil
