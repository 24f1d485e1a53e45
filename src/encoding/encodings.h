// The encodings the tables know, their names and code pages, and conversion
// of 8-bit text between them.
#pragma once

#include <cstdint>
#include <string>

namespace qz::strconv {

enum encodings : int {
    utf8 = 0,
    utf16,
    utf16le,
    utf16be,
    utf32,
    utf32le,
    utf32be,
    cp1250,
    cp1251,
    cp1252,
    cp1253,
    cp1254,
    cp1255,
    cp1256,
    cp1257,
    cp1258,
    cp866,
    ascii,
    system,
};

struct encoding_row {
    const char* iconv_name;
    const char* alt_name;
    uint32_t code_page;  // 0: the ANSI code page
};

constexpr int encoding_count = 19;
extern const encoding_row encoding_table[encoding_count];

// The iconv name of `e`; for `system`, that of the configured ANSI code page.
std::string encoding_to_iconv(encodings e);

// The first encoding whose code page is `code_page`; `system` when none is.
encodings encoding_for_code_page(uint32_t code_page);

// Converts `len` bytes from one iconv encoding to another. Invalid or
// unconvertible input bytes are dropped one at a time; conversion stops at a
// truncated sequence, keeping what was converted. Unknown names give "".
// `ok` is accepted for symmetry and never written.
template <class R>
R convert(const char* src, size_t len, const char* from_name, const char* to_name, bool* ok);

template <>
std::string convert<std::string>(const char* src, size_t len, const char* from_name,
                                 const char* to_name, bool* ok);

std::string convert(const std::string& s, encodings from, encodings to, bool* ok);

// System text (the ANSI code page) as wide text; "" when it cannot convert.
std::wstring from_system(const std::string& s);

}  // namespace qz::strconv
