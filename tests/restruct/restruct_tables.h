// Small tables for the restructuring and deletion tests, made and read
// through the C interface, and a runner of the tool.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "qzk_basic.h"
#include "qzk_file_dbf.h"
#include "cli_run.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace restruct_test {

struct Column {
    const char* name;
    char type;
    unsigned char flen;
    signed char dlen;
};
using Rows = std::vector<std::vector<std::string>>;

#ifdef QZ_EXAMPLES_DIR
// The example table with its memo and code-page files copied to `stem`.dbf.
inline void copy_sample(const std::string& stem) {
    for (const char* ext : {".dbf", ".dbt", ".cpg"})
        std::filesystem::copy_file(std::string(QZ_EXAMPLES_DIR "/sample") + ext, stem + ext);
}
#endif

inline Tqz_dbf_field field(const Column& c) {
    Tqz_dbf_field f;
    qz_dbf_field_init(&f, c.name, qz_char2dbftype(c.type), c.flen, c.dlen);
    return f;
}

enum class Encoding { cp1251, cp866, utf8 };

// A table of `columns` holding `rows` (system text through qz_dbf_set_str;
// a missing cell stays blank), in the given encoding. True when made.
inline bool make_table(const std::wstring& path, const std::vector<Column>& columns,
                       const Rows& rows, Encoding enc = Encoding::cp1251) {
    std::vector<Tqz_dbf_field> fields;
    for (const Column& c : columns) fields.push_back(field(c));
    Tqz_dbf_rw* t =
        qz_dbf_create_w(path.c_str(), static_cast<unsigned>(fields.size()),
                        static_cast<unsigned>(rows.size()), fields.data(), enc == Encoding::cp866);
    if (!t) return false;
    if (enc == Encoding::utf8) qz_dbf_set_utf8_flag(t, true);
    for (unsigned r = 0; r < rows.size(); ++r)
        for (unsigned k = 0; k < rows[r].size() && k < columns.size(); ++k)
            if (!rows[r][k].empty()) qz_dbf_set_str(t, k, r, rows[r][k].c_str());
    qz_dbf_close(t);
    return true;
}

// A cell's text (empty for no text), its trailing blanks dropped if `trim`.
inline std::string cell(Tqz_dbf_rw* t, unsigned field, unsigned record, bool trim = false) {
    bool ok = false;
    const char* s = qz_dbf_get_str(t, field, record, ok);
    std::string v = s ? s : "";
    return trim ? v.erase(v.find_last_not_of(' ') + 1) : v;
}

// Every cell of the table at `path` as text, record by record; empty when
// it does not open.
inline Rows cells(const std::wstring& path, bool trim = false) {
    Rows out;
    Tqz_dbf_rw* t = qz_dbf_open_w(path.c_str(), true, false);
    for (unsigned r = 0; t && r < qz_dbf_get_nr(t); ++r)
        for (unsigned f = 0; f < qz_dbf_get_nf(t); ++f)
            (f ? out.back() : out.emplace_back()).push_back(cell(t, f, r, trim));
    qz_dbf_close(t);
    return out;
}

// The layout "NAME:T:LEN:DEC,..." of the table at `path` (a loaded memory
// table's if there is one).
inline std::string layout(const std::wstring& path) {
    return qz_cli::layout_of(qz_dbf_open_w(path.c_str(), true, false), ",");
}

// The tool run with `args` (and standard input from `input`, if any): its
// exit status, with standard output and error in `out`.
inline int qzdbf(const std::string& args, std::string* out = nullptr,
                 const std::string& input = "") {
    std::string command = "LC_ALL=C.UTF-8 '" QZDBF_EXE "' " + args + " 2>&1";
    if (!input.empty()) command = "printf '" + input + "' | " + command;
    return qz_test::run(command, out);
}

// The library's temporary folder set to `to` while the object lives.
struct Temp_folder {
    std::wstring saved = qz_options_get_temp_wpath();
    explicit Temp_folder(const std::string& to) {
        qz_options_set_temp_wpath(qz_test::widen(to + "/").c_str());
    }
    ~Temp_folder() { qz_options_set_temp_wpath(saved.c_str()); }
};

// A mask with the given bits set; the caller destroys it.
inline void* mask_of(const std::vector<unsigned>& bits) {
    void* m = qz_bits_create();
    for (unsigned b : bits) qz_bits_set_bit(m, b, 1);
    return m;
}

}  // namespace restruct_test
