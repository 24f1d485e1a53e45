// Empty tables of any dialect laid out byte by byte for the typed-value
// tests: a header of the given version, the descriptors, blank records and
// an empty memo file of the given layout; and typed values shown as text.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace typed_test {

struct tfield {
    std::string name;
    char type;
    uint8_t length, decimals, flags;  // Visual FoxPro: 0x02 nullable, 0x04 binary
};

enum class memo_kind { none, fpt, dbt3, dbt4 };

// Writes <dir>/<name>.dbf (and its memo file) and gives its path.
inline std::string make_table(const qz_test::Temp_dir& dir, const std::string& name,
                              uint8_t version, const std::vector<tfield>& fields, unsigned records,
                              memo_kind memo, uint8_t driver = 0) {
    const bool vfp = version >= 0x30 && version <= 0x32;
    std::vector<qz_test::Field_def> defs;
    std::vector<std::string> blank;
    for (const tfield& f : fields) {
        defs.push_back({f.name, f.type, f.length, f.decimals});
        const bool zeros =
            std::strchr("IOYT@+0Q", f.type) || (vfp && (f.type == 'B' || f.length == 4));
        blank.push_back(std::string(f.length, zeros ? '\0' : ' '));
    }
    std::vector<uint8_t> b =
        qz_test::dbf_bytes(version, defs, std::vector<std::vector<std::string>>(records, blank),
                           driver, vfp ? 263 : 0);
    for (size_t k = 0, offset = 1; k < fields.size(); offset += fields[k++].length) {
        b[32 + 32 * k + 18] = fields[k].flags;
        for (int i = 0; i < 4; ++i) b[32 + 32 * k + 12 + i] = vfp ? uint8_t(offset >> (8 * i)) : 0;
    }
    const std::string path = dir.file(name + ".dbf");
    qz_test::write_bytes(path, b);
    std::vector<uint8_t> m(512, 0);
    if (memo == memo_kind::fpt) m[3] = 8, m[7] = 64;  // next free block, 64-byte blocks
    if (memo == memo_kind::dbt3) m[0] = 1, m[16] = 0x03;
    if (memo == memo_kind::dbt4) m[0] = 1, m[21] = 0x02;  // 512-byte blocks
    if (memo != memo_kind::none)
        qz_test::write_bytes(dir.file(name + (memo == memo_kind::fpt ? ".fpt" : ".dbt")), m);
    return path;
}

// qz_dbf_open_ex; a failure fails the test with its reason (the calls after
// it get no handle and answer neutrally).
inline Tqz_dbf_rw* open_ex(const std::string& path, unsigned flags) {
    Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), flags);
    EXPECT_NE(t, nullptr) << path << ": " << qz_dbf_last_error_message();
    return t;
}

inline Tqz_dbf_value value(int kind, long long i = 0, double d = 0,
                           const std::string* t = nullptr) {
    return Tqz_dbf_value{kind, i, d, t ? t->c_str() : nullptr, t ? t->size() : 0};
}

// What a read gives, as one comparable text.
inline std::string shown(const Tqz_dbf_value& v) {
    char buf[64];
    const int k = v.kind;
    if (k == QZ_DBF_VALUE_NULL || k == QZ_DBF_VALUE_BOOL)
        return k ? v.i ? "true" : "false" : "null";
    if (k == QZ_DBF_VALUE_DOUBLE)
        std::snprintf(buf, sizeof buf, "d:%.17g", v.d);
    else if (k == QZ_DBF_VALUE_INT || k == QZ_DBF_VALUE_DATE || k == QZ_DBF_VALUE_DATETIME)
        std::snprintf(buf, sizeof buf, "%d:%lld", k, v.i);
    else
        return std::to_string(k) + ":" + std::string(v.text, v.length);
    return buf;
}

inline std::string read_shown(Tqz_dbf_rw* t, unsigned f, unsigned r) {
    Tqz_dbf_value v;
    return qz_dbf_get_value(t, f, r, &v) ? shown(v) : "<fail>";
}

}  // namespace typed_test
