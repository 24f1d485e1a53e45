#include "encoding/encodings.h"

#include <cerrno>
#include <cstring>

#include "code_page_text.h"
#include "iconv_cache.h"
#include "qzk_basic.h"

namespace qz::strconv {

// Rows 5 and 6 carry crossed alternative names; they are data only.
const encoding_row encoding_table[encoding_count] = {
    {"UTF-8", "UTF-8", 65001},
    {"UTF-16", "UTF-16", 0},
    {"UTF-16LE", "UTF-16LE", 0},
    {"UTF-16BE", "UTF-16BE", 0},
    {"UTF-32", "UTF-32", 0},
    {"UTF-32LE", "UTF-32BE", 0},
    {"UTF-32BE", "UTF-32LE", 0},
    {"CP1250", "Windows-1250", 1250},
    {"CP1251", "Windows-1251", 1251},
    {"CP1252", "Windows-1252", 1252},
    {"CP1253", "Windows-1253", 1253},
    {"CP1254", "Windows-1254", 1254},
    {"CP1255", "Windows-1255", 1255},
    {"CP1256", "Windows-1256", 1256},
    {"CP1257", "Windows-1257", 1257},
    {"CP1258", "Windows-1258", 1258},
    {"CP866", "OEM 866", 866},
    {"ASCII", "US-ASCII", 20127},
    {"SYSTEM", "ANSI", 0},
};

std::string encoding_to_iconv(encodings e) {
    if (e == system) {
        const char* name = qz_code_page_iconv_name(0);
        return name ? name : "UTF-8";
    }
    return encoding_table[e].iconv_name;
}

encodings encoding_for_code_page(uint32_t code_page) {
    for (int i = 0; i < encoding_count; ++i)
        if (encoding_table[i].code_page == code_page) return static_cast<encodings>(i);
    return system;
}

namespace {

// Encodings in which every ASCII byte stands for itself, so pure ASCII text
// converts to itself between any two of them.
bool ascii_compatible(const char* name) {
    return std::strncmp(name, "UTF-16", 6) != 0 && std::strncmp(name, "UTF-32", 6) != 0 &&
           std::strncmp(name, "UCS", 3) != 0;
}

bool all_ascii(const char* s, size_t len) {
    for (size_t i = 0; i < len; ++i)
        if (static_cast<unsigned char>(s[i]) >= 0x80) return false;
    return true;
}

}  // namespace

template <>
std::string convert<std::string>(const char* src, size_t len, const char* from_name,
                                 const char* to_name, bool* /*ok*/) {
    std::string out;
    if (!src) return out;
    iconv_t cd = qz::basic::Iconv_cache::get(to_name, from_name);
    if (cd == qz::basic::Iconv_cache::invalid()) return out;
    if (ascii_compatible(from_name) && ascii_compatible(to_name) && all_ascii(src, len))
        return std::string(src, len);

    // Four output bytes per input byte hold any conversion between the 8-bit
    // code pages and UTF-8; wider targets grow the buffer by half.
    out.resize(4 * len);
    char* in = const_cast<char*>(src);
    size_t in_left = len;
    size_t used = 0;
    while (in_left > 0) {
        char* o = out.data() + used;
        size_t o_left = out.size() - used;
        size_t r = iconv(cd, &in, &in_left, &o, &o_left);
        used = out.size() - o_left;
        if (r != static_cast<size_t>(-1)) continue;
        if (errno == EILSEQ) {
            ++in;  // an invalid or unconvertible byte is dropped
            --in_left;
        } else if (errno == E2BIG) {
            out.resize(static_cast<size_t>(static_cast<double>(out.size()) * 1.5) + 4);
        } else {
            break;  // a truncated sequence at the end: keep what converted
        }
    }
    out.resize(used);
    return out;
}

std::string convert(const std::string& s, encodings from, encodings to, bool* ok) {
    return convert<std::string>(s.data(), s.size(), encoding_to_iconv(from).c_str(),
                                encoding_to_iconv(to).c_str(), ok);
}

std::wstring from_system(const std::string& s) {
    return qz::basic::cp_to_wide(0, s);
}

}  // namespace qz::strconv
