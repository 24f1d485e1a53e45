// Conversion between code pages and wide text.
//
// These stand in for the two Windows conversion calls the tables were built
// around: a code page of 0 is the ANSI code page; bytes that are not valid in
// the code page become U+FFFD on the way to wide text; characters the code
// page cannot hold become '?' on the way back. Both directions count first
// when no output buffer is given, so a caller can size its buffer.
#include <cerrno>
#include <cstring>
#include <string>

#include "iconv_cache.h"
#include "qzk_basic.h"

namespace {

struct Code_page_name {
    unsigned int code_page;
    const char* iconv_name;
};

constexpr Code_page_name kCodePages[] = {
    {65001, "UTF-8"},       {1250, "CP1250"},      {1251, "CP1251"},      {1252, "CP1252"},
    {1253, "CP1253"},       {1254, "CP1254"},      {1255, "CP1255"},      {1256, "CP1256"},
    {1257, "CP1257"},       {1258, "CP1258"},      {866, "CP866"},        {20127, "ASCII"},
    {437, "CP437"},         {850, "CP850"},        {852, "CP852"},        {855, "CP855"},
    {857, "CP857"},         {860, "CP860"},        {861, "CP861"},        {862, "CP862"},
    {863, "CP863"},         {864, "CP864"},        {865, "CP865"},        {869, "CP869"},
    {874, "CP874"},         {932, "CP932"},        {936, "CP936"},        {949, "CP949"},
    {950, "CP950"},         {10000, "MACINTOSH"},  {20866, "KOI8-R"},     {21866, "KOI8-U"},
    {28591, "ISO-8859-1"},  {28592, "ISO-8859-2"}, {28595, "ISO-8859-5"}, {28597, "ISO-8859-7"},
    {28605, "ISO-8859-15"},
};

const char* name_of(unsigned int cp) {
    if (cp == 0) cp = qz_options_get_ansi_code_page();
    for (const auto& e : kCodePages)
        if (e.code_page == cp) return e.iconv_name;
    return nullptr;
}

std::wstring to_wide(const char* name, const char* src, size_t len) {
    std::wstring out;
    iconv_t cd = qz::basic::Iconv_cache::get("WCHAR_T", name);
    if (cd == qz::basic::Iconv_cache::invalid()) return out;
    // No code page yields more wide characters than it has bytes.
    out.resize(len);
    char* in = const_cast<char*>(src);
    size_t in_left = len;
    char* o = reinterpret_cast<char*>(out.data());
    size_t o_left = len * sizeof(wchar_t);
    while (in_left > 0) {
        if (iconv(cd, &in, &in_left, &o, &o_left) != static_cast<size_t>(-1)) break;
        if (errno == EILSEQ || errno == EINVAL) {
            // One replacement character for the offending byte, then go on.
            if (o_left < sizeof(wchar_t)) break;
            wchar_t r = 0xFFFD;
            std::memcpy(o, &r, sizeof r);
            o += sizeof r;
            o_left -= sizeof r;
            ++in;
            --in_left;
            iconv(cd, nullptr, nullptr, nullptr, nullptr);
        } else {
            break;
        }
    }
    out.resize(out.size() - o_left / sizeof(wchar_t));
    return out;
}

std::string from_wide(const char* name, const wchar_t* src, size_t len) {
    std::string out;
    iconv_t cd = qz::basic::Iconv_cache::get(name, "WCHAR_T");
    if (cd == qz::basic::Iconv_cache::invalid()) return out;
    out.resize(len * 4 + 8);
    char* in = reinterpret_cast<char*>(const_cast<wchar_t*>(src));
    size_t in_left = len * sizeof(wchar_t);
    size_t used = 0;
    while (in_left > 0) {
        char* o = out.data() + used;
        size_t o_left = out.size() - used;
        size_t r = iconv(cd, &in, &in_left, &o, &o_left);
        used = out.size() - o_left;
        if (r != static_cast<size_t>(-1)) break;
        if (errno == E2BIG) {
            out.resize(out.size() * 2);
        } else if (errno == EILSEQ || errno == EINVAL) {
            // A character the code page cannot hold (or a lone surrogate).
            if (used == out.size()) out.resize(out.size() * 2);
            out[used++] = '?';
            in += sizeof(wchar_t);
            in_left -= sizeof(wchar_t);
            iconv(cd, nullptr, nullptr, nullptr, nullptr);
        } else {
            break;
        }
    }
    // Return to the initial shift state (stateful code pages only).
    char tail[16];
    char* o = tail;
    size_t o_left = sizeof tail;
    if (iconv(cd, nullptr, nullptr, &o, &o_left) != static_cast<size_t>(-1))
        out.replace(used, std::string::npos, tail, sizeof tail - o_left);
    else
        out.resize(used);
    return out;
}

template <class Out>
int deliver(const Out& result, typename Out::value_type* out, int cap) {
    if (result.size() > static_cast<size_t>(INT32_MAX)) return 0;
    int n = static_cast<int>(result.size());
    if (!out) return n;
    if (cap < n) return 0;
    std::memcpy(out, result.data(), result.size() * sizeof(typename Out::value_type));
    return n;
}

}  // namespace

extern "C" {

const char* qz_code_page_iconv_name(unsigned int code_page) {
    return name_of(code_page);
}

int qz_code_page_to_wide(unsigned int code_page, const char* src, int len, wchar_t* out, int cap) {
    const char* name = name_of(code_page);
    if (!name || !src || len <= 0) return 0;
    return deliver(to_wide(name, src, static_cast<size_t>(len)), out, cap);
}

int qz_wide_to_code_page(unsigned int code_page, const wchar_t* src, int len, char* out, int cap) {
    const char* name = name_of(code_page);
    if (!name || !src || len <= 0) return 0;
    return deliver(from_wide(name, src, static_cast<size_t>(len)), out, cap);
}

}  // extern "C"
