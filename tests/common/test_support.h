// Helpers shared by the test suites: temporary folders and file bytes.
#pragma once

#include <clocale>
#include <cstdint>
#include <string>
#include <vector>

#include "qzk_basic.h"

namespace qz_test {

// UTF-8 text (a path) as wide characters.
std::wstring widen(const std::string& utf8);

// A fresh folder under the temporary folder, removed with its contents when
// the object goes away.
class Temp_dir {
  public:
    Temp_dir();
    ~Temp_dir();
    Temp_dir(const Temp_dir&) = delete;
    Temp_dir& operator=(const Temp_dir&) = delete;
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    std::wstring wfile(const std::string& name) const { return widen(file(name)); }

  private:
    std::string path_;
};

std::vector<uint8_t> read_bytes(const std::string& path);
void write_bytes(const std::string& path, const std::vector<uint8_t>& bytes);
bool exists(const std::string& path);

// Runs a shell command; its exit status (or -1), with standard output in `out`.
int run(const std::string& command, std::string* out = nullptr);

// Every .dbf file of the sample corpus (any letter case), sorted; empty
// when there is no corpus.
std::vector<std::string> corpus_tables();

// Copies `table` and every file of the same stem beside it (memo, code
// page; any letter case) into the folder `to`, writable; the table's copy.
std::string copy_with_companions(const std::string& table, const std::string& to);

// True when /usr/bin/python3 imports dbfread.
bool have_dbfread();

// A table file's bytes, laid out by hand: its fields, and its records given
// as their cells' bytes in field order, each cut or padded with spaces to
// its field's length (a deletion flag ' ' goes before each record). The
// header holds `driver` as language driver and `backlink` zero bytes after
// the field descriptors.
struct Field_def {
    std::string name;
    char type;
    uint8_t length, decimals = 0;
};
std::vector<uint8_t> dbf_bytes(uint8_t version, const std::vector<Field_def>& fields,
                               const std::vector<std::vector<std::string>>& records,
                               uint8_t driver = 0, size_t backlink = 0);

// Makes a table of `records` blank records with character fields F0, F1...
// of the given lengths; false when it cannot.
bool make_char_table(const std::string& path, const std::vector<unsigned>& lengths,
                     unsigned records);

// Little-endian numbers of a file's bytes (0 past the end).
uint32_t u32_at(const std::vector<uint8_t>& b, size_t at);
unsigned u16_at(const std::vector<uint8_t>& b, size_t at);

// The bytes at `offset` (1 is the first field) of `length` of a record as
// the file's bytes hold them, trailing spaces dropped; "<missing>" past the end.
std::string raw_cell(const std::vector<uint8_t>& b, unsigned record, unsigned offset,
                     unsigned length);

// Takes what an export hands to a string adapter: pass `adp`; the last text
// handed is in `wide` or `narrow` (as the export gives it), "(null)" for a
// null text, and each keeps its value when nothing comes.
struct Fed {
    std::wstring wide = L"untouched";
    std::string narrow = "untouched";
    Iqz_string_adp* adp;
    Fed();
    ~Fed();
    Fed(const Fed&) = delete;
    Fed& operator=(const Fed&) = delete;
};

// The classic locale for this thread while it lives (sprintf's decimal
// point), whatever the process locale is.
struct C_locale {
    locale_t loc = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    locale_t old = uselocale(loc);
    C_locale() = default;
    ~C_locale() {
        uselocale(old);
        freelocale(loc);
    }
    C_locale(const C_locale&) = delete;
    C_locale& operator=(const C_locale&) = delete;
};

}  // namespace qz_test
