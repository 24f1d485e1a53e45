#include "bad_files.h"

#include <sys/stat.h>

#include "qzk_file_dbf_ext.h"

namespace qz_safe {

using qz_test::read_bytes;
using qz_test::write_bytes;

std::string make_good_table(const qz_test::Temp_dir& dir, const std::string& name) {
    Tqz_dbf_field fields[3];
    qz_dbf_field_init(&fields[0], "NAME", dbf_ft_char, 10, 0);
    qz_dbf_field_init(&fields[1], "AMOUNT", dbf_ft_numeric, 8, 2);
    qz_dbf_field_init(&fields[2], "DAY", dbf_ft_date, 8, 0);
    const std::string path = dir.file(name);
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), 3, 3, fields, false);
    qz_dbf_close(t);
    t = qz_dbf_open(path.c_str(), false, false);
    const char* names[] = {"alpha", "beta", "gamma"};
    for (unsigned r = 0; r < 3; ++r) {
        qz_dbf_set_str(t, 0, r, names[r]);
        qz_dbf_set_dbl(t, 1, r, 1.5 * (r + 1));
        qz_dbf_set_str(t, 2, r, "20240131");
    }
    qz_dbf_close(t);
    return path;
}

std::vector<Bad_file> make_bad_files(const qz_test::Temp_dir& dir) {
    std::vector<Bad_file> out;
    auto add = [&](const std::string& name, int sev, const std::string& reason) {
        out.push_back(Bad_file{name, dir.file(name), sev, reason});
    };
    const std::vector<uint8_t> good = read_bytes(make_good_table(dir, "base.dbf"));
    auto variant = [&](const std::string& name, std::vector<uint8_t> bytes, int sev,
                       const std::string& reason) {
        write_bytes(dir.file(name), bytes);
        add(name, sev, reason);
    };
    auto patched = [&](size_t at, std::vector<uint8_t> with) {
        std::vector<uint8_t> b = good;
        for (size_t i = 0; i < with.size(); ++i) b[at + i] = with[i];
        return b;
    };
    const std::string text = "hello,world\nthis is not a table\n";
    variant("text.txt", std::vector<uint8_t>(text.begin(), text.end()), QZ_DBF_SEV_FATAL,
            "not a dBASE table");
    variant("empty.dbf", {}, QZ_DBF_SEV_FATAL, "empty");
    mkdir(dir.file("folder.dbf").c_str(), 0755);
    add("folder.dbf", QZ_DBF_SEV_FATAL, "a folder");
    variant("cut_header.dbf", std::vector<uint8_t>(good.begin(), good.begin() + 20),
            QZ_DBF_SEV_FATAL, "shorter than the 32-byte header");
    variant("cut_descriptors.dbf", std::vector<uint8_t>(good.begin(), good.begin() + 80),
            QZ_DBF_SEV_FATAL, "cut inside the field descriptors");
    variant("cut_record.dbf", std::vector<uint8_t>(good.begin(), good.end() - 6), QZ_DBF_SEV_ERROR,
            "holds 2 whole records");
    variant("header_past_end.dbf", patched(8, {0xF0, 0xFF}), QZ_DBF_SEV_FATAL,
            "reaches past the end");
    variant("count_max.dbf", patched(4, {0xFF, 0xFF, 0xFF, 0xFF}), QZ_DBF_SEV_ERROR,
            "says 4294967295 records");
    variant("record_length.dbf", patched(10, {20, 0}), QZ_DBF_SEV_ERROR,
            "record length 20 is shorter");
    variant("version.dbf", patched(0, {0x47}), QZ_DBF_SEV_FATAL, "unknown version byte 0x47");
    // The DAY field (8 bytes) becomes a memo field; no memo file is beside it.
    variant("memo_missing.dbf", patched(32 * 3 + 11, {'M'}), QZ_DBF_SEV_ERROR, "memo file missing");
    variant("locked.dbf", good, 0, "");
    variant("read_only.dbf", good, 0, "");
    chmod(dir.file("read_only.dbf").c_str(), 0444);
    return out;
}

}  // namespace qz_safe
