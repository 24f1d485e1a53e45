// Tables of each dialect written through qz_dbf_set_value, read back by
// python3-dbfread and GDAL: every written cell must come back the same.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "qzk_file_dbf_ext.h"
#include "table_builder.h"
#include "test_support.h"

using namespace typed_test;

namespace {

// A value to write and the JSON the peers' reading must equal.
struct cell {
    Tqz_dbf_value value;
    std::string json;
};

cell text(const char* t, const std::string& json) {
    return {{QZ_DBF_VALUE_TEXT, 0, 0.0, t, std::strlen(t)}, json};
}
cell dec(const char* t, const std::string& json) {
    return {{QZ_DBF_VALUE_DECIMAL, 0, 0.0, t, std::strlen(t)}, json};
}
cell num(double d, const std::string& json) {
    return {{QZ_DBF_VALUE_DOUBLE, 0, d, nullptr, 0}, json};
}
cell integer(long long i) {
    return {{QZ_DBF_VALUE_INT, i, 0.0, nullptr, 0}, std::to_string(i)};
}
cell boolean(bool b) {
    return {{QZ_DBF_VALUE_BOOL, b, 0.0, nullptr, 0}, b ? "true" : "false"};
}
cell date(long long ymd, const std::string& json) {
    return {{QZ_DBF_VALUE_DATE, ymd, 0.0, nullptr, 0}, json};
}
cell datetime(long long ms, const std::string& json) {
    return {{QZ_DBF_VALUE_DATETIME, ms, 0.0, nullptr, 0}, json};
}
cell null(const std::string& json = "null") {
    return {{QZ_DBF_VALUE_NULL, 0, 0.0, nullptr, 0}, json};
}

struct dialect {
    std::string name;
    uint8_t version;
    memo_kind memo;
    std::vector<tfield> fields;
    std::vector<std::vector<cell>> records;
};

const std::string long_text(1500, 'x');

std::vector<std::vector<cell>> dbase_records() {
    return {
        {text("Caf\xC3\xA9", "\"Caf\\u00e9\""), dec("1234.5", "1234.5"), num(-2.5, "-2.5"),
         boolean(true), date(20240229, "\"2024-02-29\""),
         text("line1\r\nline2 \xC3\xA9", "\"line1\\r\\nline2 \\u00e9\"")},
        {text("", "\"\""), dec("-0.01", "-0.01"), num(0.125, "0.125"), boolean(false),
         date(19991231, "\"1999-12-31\""), text(long_text.c_str(), "\"" + long_text + "\"")},
        {null("\"\""), null(), null(), null(), null(), null()},
    };
}

std::vector<tfield> dbase_fields() {
    return {{"NAME", 'C', 10, 0, 0}, {"PRICE", 'N', 9, 2, 0}, {"RATE", 'F', 10, 3, 0},
            {"OK", 'L', 1, 0, 0},    {"DAY", 'D', 8, 0, 0},   {"NOTE", 'M', 10, 0, 0}};
}

}  // namespace

TEST(TypedPeers, EveryDialectReadBackByDbfreadAndGdal) {
    if (qz_test::run("/usr/bin/python3 -c 'import dbfread' 2>/dev/null") != 0)
        GTEST_SKIP() << "python3-dbfread is not installed";
    const std::vector<dialect> dialects = {
        {"dBASE III + .dbt", 0x83, memo_kind::dbt3, dbase_fields(), dbase_records()},
        {"dBASE IV + .dbt", 0x8B, memo_kind::dbt4, dbase_fields(), dbase_records()},
        {"FoxPro 2 + .fpt", 0xF5, memo_kind::fpt, dbase_fields(), dbase_records()},
        {"Visual FoxPro + .fpt",
         0x30,
         memo_kind::fpt,
         {{"NAME", 'C', 10, 0, 0x02},
          {"PRICE", 'N', 9, 2, 0},
          {"OK", 'L', 1, 0, 0},
          {"DAY", 'D', 8, 0, 0},
          {"COUNT", 'I', 4, 0, 0x02},
          {"REAL", 'B', 8, 2, 0},
          {"CASH", 'Y', 8, 4, 0},
          {"WHEN", 'T', 8, 0, 0x02},
          {"NOTE", 'M', 4, 0, 0},
          {"_NullFlags", '0', 1, 0, 0x05}},
         {{text("Stra\xC3\x9F"
                "e",
                "\"Stra\\u00dfe\""),
           dec("99999.99", "99999.99"), boolean(true), date(10101, "\"0001-01-01\""),
           integer(2147483647), num(0.1, "0.1"),
           dec("922337203685477.5807", "\"922337203685477.5807\""),
           datetime(946728000000LL, "\"2000-01-01T12:00:00.000\""),
           text("memo \xE2\x82\xAC", "\"memo \\u20ac\"")},
          {text("x", "\"x\""), integer(-5), boolean(false), date(99991231, "\"9999-12-31\""),
           integer(-5), num(-1e300, "-1e300"), dec("-1.2345", "\"-1.2345\""),
           datetime(1, "\"1970-01-01T00:00:00.001\""), null()},
          {null(), null(), null(), null(), null(), num(0, "0.0"), integer(0),  // Y 0 is "0"
           null(), text("", "\"\"")}}},
    };
    qz_test::Temp_dir dir;
    std::string json = "[";
    int n = 0;
    for (const dialect& d : dialects) {
        const std::string name = "t" + std::to_string(n++);
        const bool vfp = d.version == 0x30;
        const std::string path = make_table(dir, name, d.version, d.fields,
                                            static_cast<unsigned>(d.records.size()), d.memo, 0x03);
        Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), 0);
        ASSERT_NE(t, nullptr) << qz_dbf_last_error_message();
        json += std::string(n > 1 ? "," : "") + "{\"path\":\"" + path + "\",\"dialect\":\"" +
                d.name + "\",\"encoding\":\"cp1252\",\"null_flags\":" + (vfp ? "true" : "false") +
                ",\"dbt4\":" + (d.memo == memo_kind::dbt4 ? "true" : "false") + ",\"fields\":[";
        for (size_t f = 0; f + (vfp ? 1 : 0) < d.fields.size(); ++f)
            json += std::string(f ? "," : "") + "[\"" + d.fields[f].name + "\",\"" +
                    d.fields[f].type + "\"]";
        json += "],\"records\":[";
        for (unsigned r = 0; r < d.records.size(); ++r) {
            json += std::string(r ? "," : "") + "[";
            for (unsigned f = 0; f < d.records[r].size(); ++f) {
                const cell& c = d.records[r][f];
                EXPECT_TRUE(qz_dbf_set_value(t, f, r, &c.value))
                    << d.name << " " << f << ": " << qz_dbf_last_error_message();
                json += std::string(f ? "," : "") + c.json;
            }
            json += "]";
        }
        json += "]}";
        qz_dbf_close(t);
    }
    json += "]";
    const std::string expected = dir.file("expected.json");
    std::ofstream(expected) << json;
    std::string report;
    const int status = qz_test::run(
        std::string("/usr/bin/python3 ") + QZ_PEERS_SCRIPT + " '" + expected + "' 2>&1", &report);
    std::printf("%s", report.c_str());
    EXPECT_EQ(status, 0) << report;
}
