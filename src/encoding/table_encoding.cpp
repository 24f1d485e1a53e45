// Choosing a table's text encoding: caller, .cpg file, language driver,
// flags.
#include "encoding/table_encoding.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>

#include "iconv_cache.h"
#include "support/filesystem.h"

namespace qz::strconv {

namespace {

struct driver_row {
    uint8_t id;
    uint16_t code_page;
};

// dBASE, FoxPro and Visual FoxPro language drivers with the code page of
// their text. Drivers of code pages iconv does not know (Kamenicky 895,
// Mazovia 620, Macintosh Greek) are left out: their tables fall through to
// the next rule.
constexpr driver_row driver_table[] = {
    {0x01, 437},  {0x02, 850},  {0x03, 1252}, {0x04, 10000}, {0x08, 865},   {0x09, 437},
    {0x0A, 850},  {0x0B, 437},  {0x0D, 437},  {0x0E, 850},   {0x0F, 437},   {0x10, 850},
    {0x11, 437},  {0x12, 850},  {0x13, 932},  {0x14, 850},   {0x15, 437},   {0x16, 850},
    {0x17, 865},  {0x18, 437},  {0x19, 437},  {0x1A, 850},   {0x1B, 437},   {0x1C, 863},
    {0x1D, 850},  {0x1F, 852},  {0x22, 852},  {0x23, 852},   {0x24, 860},   {0x25, 850},
    {0x26, 866},  {0x37, 850},  {0x40, 852},  {0x4D, 936},   {0x4E, 949},   {0x4F, 950},
    {0x50, 874},  {0x57, 1252}, {0x58, 1252}, {0x59, 1252},  {0x64, 852},   {0x65, 866},
    {0x66, 865},  {0x67, 861},  {0x6A, 737},  {0x6B, 857},   {0x6C, 863},   {0x78, 950},
    {0x79, 949},  {0x7A, 936},  {0x7B, 932},  {0x7C, 874},   {0x7D, 1255},  {0x7E, 1256},
    {0x86, 737},  {0x87, 852},  {0x88, 857},  {0x96, 10007}, {0x97, 10029}, {0xC8, 1250},
    {0xC9, 1251}, {0xCA, 1254}, {0xCB, 1253}, {0xCC, 1257},
};

std::string upper(const std::string& s) {
    std::string r = s;
    for (char& c : r) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return r;
}

bool starts_with(const std::string& s, const char* prefix, std::string& rest) {
    const std::string p(prefix);
    if (s.compare(0, p.size(), p) != 0) return false;
    rest = s.substr(p.size());
    return true;
}

// Drops blanks, '-' and '_' : "8859_1", "ISO-8859-1" and "88591" meet.
std::string squeeze(const std::string& s) {
    std::string r;
    for (char c : s)
        if (c != ' ' && c != '-' && c != '_' && c != '\t') r += c;
    return r;
}

bool all_digits(const std::string& s) {
    if (s.empty() || s.size() > 9) return false;
    for (char c : s)
        if (!std::isdigit(static_cast<unsigned char>(c))) return false;
    return true;
}

// ISO-8859 part numbers: "88592" -> 2; 0 when `digits` is no such name.
int iso8859_part(const std::string& digits) {
    if (digits.size() < 5 || digits.compare(0, 4, "8859") != 0) return 0;
    const int part = std::atoi(digits.c_str() + 4);
    return part >= 1 && part <= 16 && part != 12 ? part : 0;
}

std::string known(const std::string& name) {
    return iconv_knows(name) ? name : std::string();
}

}  // namespace

bool iconv_knows(const std::string& name) {
    // iconv drops what is not a letter or digit from a name, and an empty
    // name stands for the locale's encoding: "??" would "work". Only plain
    // names count (no "//TRANSLIT" either).
    bool alnum = false;
    for (char c : name) {
        if (std::isalnum(static_cast<unsigned char>(c)))
            alnum = true;
        else if (c != '-' && c != '_' && c != '.' && c != ':')
            return false;
    }
    if (!alnum) return false;
    return qz::basic::Iconv_cache::get("UTF-8", name.c_str()) != qz::basic::Iconv_cache::invalid();
}

std::string code_page_to_iconv(uint32_t code_page) {
    switch (code_page) {
        case 0:
            return "";
        case 65001:
            return "UTF-8";
        case 1200:
            return "UTF-16LE";
        case 1201:
            return "UTF-16BE";
        case 20866:
            return "KOI8-R";
        case 21866:
            return "KOI8-U";
        case 10000:
            return known("MACINTOSH");
        case 10007:
            return known("MAC-CYRILLIC");
        case 10029:
            return known("MAC-CENTRALEUROPE");
        case 20127:
            return "ASCII";
        default:
            break;
    }
    if (code_page >= 28591 && code_page <= 28606)
        return known("ISO-8859-" + std::to_string(code_page - 28590));
    return known("CP" + std::to_string(code_page));
}

std::string normalize_encoding_name(const std::string& text) {
    // The first line, without blanks (and NULs) around it.
    std::string line = text.substr(0, text.find_first_of("\r\n"));
    const size_t first = line.find_first_not_of(" \t\v\f", 0);
    if (first == std::string::npos) return "";
    const size_t last = line.find_last_not_of(std::string(" \t\v\f\0", 5));
    line = line.substr(first, last - first + 1);
    if (line.size() > 64 || line.find('\0') != std::string::npos) return "";

    const std::string u = upper(line);
    const std::string s = squeeze(u);
    if (s == "UTF8") return "UTF-8";
    if (s == "UTF16" || s == "UTF16LE") return "UTF-16LE";
    if (s == "UTF16BE") return "UTF-16BE";
    if (s == "KOI8R") return "KOI8-R";
    if (s == "KOI8U") return "KOI8-U";
    if (s == "ASCII" || s == "USASCII") return "ASCII";
    // East Asian names in their several spellings ("Big-5", "shiftjis").
    if (s == "BIG5") return "BIG5";
    if (s == "SHIFTJIS" || s == "SJIS") return "SHIFT_JIS";
    if (s == "EUCKR") return "EUC-KR";
    if (s == "EUCJP") return "EUC-JP";
    if (s == "EUCCN" || s == "GB2312") return known("GB2312");

    std::string rest;
    if (starts_with(s, "LATIN", rest) && all_digits(rest)) {
        static const int parts[] = {0, 1, 2, 3, 4, 9, 10, 13, 14, 15, 16};
        const int n = std::atoi(rest.c_str());
        if (n >= 1 && n <= 10) return known("ISO-8859-" + std::to_string(parts[n]));
        return "";
    }
    if (starts_with(s, "ISO", rest) && iso8859_part(rest))
        return known("ISO-8859-" + std::to_string(iso8859_part(rest)));
    if (iso8859_part(s)) return known("ISO-8859-" + std::to_string(iso8859_part(s)));

    // Code page numbers, bare or after a word: "1252", "CP1252",
    // "ANSI 1251", "OEM 866", "Windows-1250", "IBM437", "MS936".
    for (const char* prefix : {"", "CP", "ANSI", "OEM", "WINDOWS", "WIN", "IBM", "MS", "DOS"}) {
        if (starts_with(s, prefix, rest) && all_digits(rest)) {
            const unsigned long n = std::strtoul(rest.c_str(), nullptr, 10);
            return code_page_to_iconv(static_cast<uint32_t>(n));
        }
    }
    // Any other name iconv knows ("BIG5", "GBK", "SHIFT_JIS", "EUC-KR").
    return known(u);
}

uint32_t language_driver_code_page(uint8_t id) {
    for (const driver_row& row : driver_table)
        if (row.id == id) return code_page_to_iconv(row.code_page).empty() ? 0 : row.code_page;
    return 0;
}

uint8_t language_driver_for(const std::string& iconv_name) {
    static constexpr uint8_t preferred[] = {
        0x03, 0xC8, 0xC9, 0xCA, 0xCB, 0xCC, 0x7D, 0x7E, 0x7B, 0x7A, 0x79, 0x78, 0x7C,
        0x01, 0x02, 0x64, 0x65, 0x66, 0x67, 0x6A, 0x6B, 0x1C, 0x24, 0x04, 0x96, 0x97,
    };
    if (iconv_name.empty()) return 0;
    for (const uint8_t id : preferred) {
        const uint32_t cp = language_driver_code_page(id);
        if (cp != 0 && code_page_to_iconv(cp) == iconv_name) return id;
    }
    return 0;
}

uint32_t driver_name_code_page(const std::string& name) {
    auto digit = [&](size_t k) { return std::isdigit(static_cast<unsigned char>(name[k])) != 0; };
    if (name.size() >= 5 && name.compare(0, 2, "DB") == 0 && digit(2) && digit(3) && digit(4)) {
        const uint32_t cp = static_cast<uint32_t>(std::atoi(name.substr(2, 3).c_str()));
        return code_page_to_iconv(cp).empty() ? 0 : cp;
    }
    if (name.compare(0, 5, "DBWIN") == 0) return 1252;
    return 0;
}

void apply_driver_name(table_encoding& choice, const std::string& driver_name) {
    if (choice.source != encoding_source::fallback) return;
    if (const uint32_t cp = driver_name_code_page(driver_name)) {
        choice.name = code_page_to_iconv(cp);
        choice.source = encoding_source::language_driver;
    }
}

bool read_cpg_text(const std::wstring& table_path, std::string& text) {
    const std::wstring cpg =
        qz::filesystem::find_companion(qz::filesystem::change_extension(table_path, L".cpg"));
    FILE* f = qz::filesystem::wfopen(cpg, "rb");
    if (!f) return false;
    char buffer[128];
    const size_t n = std::fread(buffer, 1, sizeof buffer, f);
    std::fclose(f);
    text.assign(buffer, n);
    // A byte-order mark some editors put before the name.
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) text.erase(0, 3);
    return true;
}

table_encoding choose_encoding(const char* caller, const std::string* cpg_text, uint8_t driver,
                               const std::string& fallback) {
    table_encoding r;
    if (caller && *caller) {
        r.name = normalize_encoding_name(caller);
        r.source = r.name.empty() ? encoding_source::none : encoding_source::caller;
        return r;
    }
    if (cpg_text) {
        r.name = normalize_encoding_name(*cpg_text);
        if (!r.name.empty()) {
            r.source = encoding_source::cpg;
            return r;
        }
    }
    if (const uint32_t cp = language_driver_code_page(driver)) {
        r.name = code_page_to_iconv(cp);
        r.source = encoding_source::language_driver;
        return r;
    }
    r.name = fallback;
    r.source = encoding_source::fallback;
    return r;
}

table_encoding detect_table_encoding(const std::wstring& table_path, const char* caller,
                                     const std::string& fallback) {
    FILE* f = qz::filesystem::wfopen(table_path, "rb");
    if (!f) return {};
    unsigned char header[64] = {0};
    const size_t n = std::fread(header, 1, sizeof header, f);
    std::fclose(f);
    if (n < 32) return {};
    std::string cpg;
    const bool has_cpg = read_cpg_text(table_path, cpg);
    table_encoding r = choose_encoding(caller, has_cpg ? &cpg : nullptr, header[29], fallback);
    if ((header[0] == 0x04 || header[0] == 0x8C) && n == sizeof header)
        apply_driver_name(r, std::string(reinterpret_cast<const char*>(header + 32), 32).c_str());
    return r;
}

}  // namespace qz::strconv
