// Broken and awkward table files, made fresh in a folder, for the tests of
// the file check, the checked open and the tool.
#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace qz_safe {

struct Bad_file {
    std::string name;  // the case, also the file's name
    std::string path;
    int severity;        // the worst finding a check makes
    std::string reason;  // a part of its text
};

// A good table "NAME C10, AMOUNT N8.2, DAY D8" with three records.
inline std::string make_good_table(const qz_test::Temp_dir& dir, const std::string& name) {
    Tqz_dbf_field fields[3];
    qz_dbf_field_init(&fields[0], "NAME", dbf_ft_char, 10, 0);
    qz_dbf_field_init(&fields[1], "AMOUNT", dbf_ft_numeric, 8, 2);
    qz_dbf_field_init(&fields[2], "DAY", dbf_ft_date, 8, 0);
    Tqz_dbf_rw* t = qz_dbf_create(dir.file(name).c_str(), 3, 3, fields, false);
    const char* names[] = {"alpha", "beta", "gamma"};
    for (unsigned r = 0; r < 3; ++r) {
        qz_dbf_set_str(t, 0, r, names[r]);
        qz_dbf_set_dbl(t, 1, r, 1.5 * (r + 1));
        qz_dbf_set_str(t, 2, r, "20240131");
    }
    qz_dbf_close(t);
    return dir.file(name);
}

// Every bad file, each in `dir`. The "locked" table is good on disk (the
// caller holds its lock); the "read_only" table has mode 0444.
inline std::vector<Bad_file> make_bad_files(const qz_test::Temp_dir& dir) {
    const std::vector<uint8_t> good = qz_test::read_bytes(make_good_table(dir, "base.dbf"));
    std::vector<Bad_file> out;
    auto variant = [&](const std::string& name, std::vector<uint8_t> bytes, int sev,
                       const std::string& reason) {
        if (name != "folder.dbf") qz_test::write_bytes(dir.file(name), bytes);
        out.push_back(Bad_file{name, dir.file(name), sev, reason});
    };
    auto patched = [&](size_t at, std::vector<uint8_t> with) {
        std::vector<uint8_t> b = good;
        std::copy(with.begin(), with.end(), b.begin() + at);
        return b;
    };
    const std::string text = "hello,world\nthis is not a table\n";
    const int fatal = QZ_DBF_SEV_FATAL, error = QZ_DBF_SEV_ERROR;
    variant("text.txt", std::vector<uint8_t>(text.begin(), text.end()), fatal, "not a dBASE table");
    variant("empty.dbf", {}, fatal, "empty");
    mkdir(dir.file("folder.dbf").c_str(), 0755);
    variant("folder.dbf", {}, fatal, "a folder");
    variant("cut_header.dbf", {good.begin(), good.begin() + 20}, fatal,
            "shorter than the 32-byte header");
    variant("cut_descriptors.dbf", {good.begin(), good.begin() + 80}, fatal,
            "cut inside the field descriptors");
    variant("cut_record.dbf", {good.begin(), good.end() - 6}, error, "holds 2 whole records");
    variant("header_past_end.dbf", patched(8, {0xF0, 0xFF}), fatal, "reaches past the end");
    variant("count_max.dbf", patched(4, {0xFF, 0xFF, 0xFF, 0xFF}), error,
            "says 4294967295 records");
    variant("record_length.dbf", patched(10, {20, 0}), error, "record length 20 is shorter");
    variant("version.dbf", patched(0, {0x47}), fatal, "unknown version byte 0x47");
    // The DAY field (8 bytes) becomes a memo field; no memo file is beside it.
    variant("memo_missing.dbf", patched(32 * 3 + 11, {'M'}), error, "memo file missing");
    variant("locked.dbf", good, 0, "");
    variant("read_only.dbf", good, 0, "");
    chmod(dir.file("read_only.dbf").c_str(), 0444);
    return out;
}

}  // namespace qz_safe
