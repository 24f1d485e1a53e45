// Running qzdbf from the tool's suites, and reading what it leaves behind.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace qz_cli {

struct Outcome {
    int status = -1;
    std::string out;  // standard output and error
};

// qzdbf with `args` as a shell would split them, in a UTF-8 locale.
inline Outcome qzdbf(const std::string& args, const std::string& env = "") {
    Outcome r;
    r.status = qz_test::run(env + " LC_ALL=C.UTF-8 '" QZDBF_EXE "' " + args + " 2>&1", &r.out);
    return r;
}

inline std::string quoted(const std::string& path) {
    return "'" + path + "'";
}

inline std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
}

inline void write_text(const std::string& path, const std::string& text) {
    qz_test::write_bytes(path, std::vector<uint8_t>(text.begin(), text.end()));
}

inline std::string read_text(const std::string& path) {
    const std::vector<uint8_t> b = qz_test::read_bytes(path);
    return std::string(b.begin(), b.end());
}

// The names in a folder, sorted, without "." and "..".
inline std::vector<std::string> folder_names(const std::string& dir) {
    std::string out;
    qz_test::run("LC_ALL=C ls -A " + quoted(dir), &out);
    return lines_of(out);
}

// A table's fields as "NAME:C:4:0 SUM:N:6:2" (`sep` between them); closes `t`.
inline std::string layout_of(Tqz_dbf_rw* t, const char* sep = " ") {
    std::string out;
    for (unsigned f = 0; t && f < qz_dbf_get_nf(t); ++f)
        out += (f ? sep : "") + std::string(qz_dbf_get_field_name(t, f)) + ":" +
               static_cast<char>(qz_dbftype2char(qz_dbf_get_field_type(t, f))) + ":" +
               std::to_string(qz_dbf_get_field_flen(t, f)) + ":" +
               std::to_string(qz_dbf_get_field_dlen(t, f));
    qz_dbf_close(t);
    return out;
}

// The layout of the table at `path`, read through the library's checked open.
inline std::string layout_of(const std::string& path) {
    Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
    return t ? layout_of(t) : "(cannot open)";
}

}  // namespace qz_cli
