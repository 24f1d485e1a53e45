// The text encoding of a table for the typed interface: one the caller
// names, else the one the table's .cpg file names (in any spelling the
// usual writers use), else the one its language-driver byte stands for,
// else the classic choice of the table's flags (UTF-8, CP866 or CP1251).
// Encodings are iconv names; any encoding iconv knows can be one.
#pragma once

#include <cstdint>
#include <string>

namespace qz::strconv {

// Where a table's encoding came from (the values of the exported enum).
enum class encoding_source : int {
    none = 0,  // no encoding: an unknown name, no table
    caller = 1,
    cpg = 2,
    language_driver = 3,
    fallback = 4,
};

struct table_encoding {
    std::string name;  // iconv name, "" with source none
    encoding_source source = encoding_source::none;
};

// Whether iconv converts between `name` and UTF-8.
bool iconv_knows(const std::string& name);

// The iconv name of a Windows/DOS code page number (1252 -> "CP1252",
// 65001 -> "UTF-8", 28592 -> "ISO-8859-2", 20866 -> "KOI8-R"); "" when
// iconv knows none for it.
std::string code_page_to_iconv(uint32_t code_page);

// The iconv name an encoding text stands for, as .cpg files and callers
// spell it: "UTF-8", "UTF8", "65001", "CP1252", "1252", "ANSI 1251",
// "OEM 866", "88591", "8859_1", "ISO-8859-2", "ISO88592", "latin2",
// "KOI8-R", "cp437", "Windows-1250", any other name iconv knows. Only the
// first line counts; blanks around it are ignored. "" when unknown.
std::string normalize_encoding_name(const std::string& text);

// The code page of a dBASE / FoxPro language-driver id (header byte 29);
// 0 for 0 (no driver named) and for ids without a code page iconv knows.
uint32_t language_driver_code_page(uint8_t id);

// The language-driver id a new table gets for text in `iconv_name` (a name
// as normalize_encoding_name gives it): the Windows id of a Windows code
// page, else the usual DOS one, each read back as that code page here and
// by other readers; 0 when no driver stands for it (UTF-8, ISO-8859-x,
// KOI8-R, ...).
uint8_t language_driver_for(const std::string& iconv_name);

// The code page a dBASE 7 language-driver name stands for (header bytes
// 32..63, as "DB437US0", "DB866RU0", "DBWINUS0"): "DB" and three digits is
// that OEM code page, "DBWIN" the Windows Latin page 1252; 0 for other names.
uint32_t driver_name_code_page(const std::string& name);

// A choice that fell back to the default takes the code page of the dBASE 7
// driver name instead, when it names one (as header byte 29 would).
void apply_driver_name(table_encoding& choice, const std::string& driver_name);

// The first line of the .cpg companion of the table at `table_path` (found
// without regard to letter case); false when there is no readable file.
bool read_cpg_text(const std::wstring& table_path, std::string& text);

// Chooses by precedence. `caller` may be null or empty (no choice);
// `cpg_text` null when the table has no .cpg file; `driver` the header's
// byte 29; `fallback` the iconv name of the flags' encoding. A caller name
// iconv does not know gives source none (the caller's mistake is not
// covered up); an unknown .cpg text or driver id passes to the next rule.
table_encoding choose_encoding(const char* caller, const std::string* cpg_text, uint8_t driver,
                               const std::string& fallback);

// The same for a table file: reads its .cpg and its header byte 29. Source
// none when `caller` is unknown or the file holds no header.
table_encoding detect_table_encoding(const std::wstring& table_path, const char* caller,
                                     const std::string& fallback);

}  // namespace qz::strconv
