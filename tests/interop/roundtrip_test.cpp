// Random rows written through the exports, in each of the three encodings,
// read back as written here, through dbfread;
// written through a memory table, the records are the same bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "qzk_basic.h"
#include "qzk_file_dbf.h"
#include "test_support.h"

namespace {

enum { NAME, AMOUNT, RATE, ACTIVE, BORN, COUNT, VALUE, FIELDS };

struct Row {
    std::string name;  // UTF-8, written as system text
    double amount;     // a whole number of hundredths
    double rate;       // a whole number of millionths
    bool active;
    std::string born;  // YYYYMMDD
    int count;
    double value;
};

// Random rows, the same for every run: text of characters every one of the
// three encodings holds (Cyrillic with Ё and ё, ASCII, a comma, quotes),
// numbers that fit their fields at their decimal counts, any valid date,
// any 32-bit integer and any double bit pattern.
std::vector<Row> random_rows(unsigned n) {
    static const std::vector<std::string> chars = [] {
        std::vector<std::string> c = {"Ё", "ё", " ", ",", "\"", "'", "-"};
        for (char a = '0'; a <= 'z'; ++a)
            if (std::isalnum(static_cast<unsigned char>(a))) c.push_back(std::string(1, a));
        for (const char* cyr : {"А", "Я", "а", "я", "Ж", "щ", "Ъ", "э", "Ю", "п"}) c.push_back(cyr);
        return c;
    }();
    std::mt19937_64 rng(20240229);
    std::vector<Row> rows;
    for (unsigned i = 0; i < n; ++i) {
        Row r;
        for (size_t k = rng() % 31; k > 0; --k) r.name += chars[rng() % chars.size()];
        r.name.erase(r.name.find_last_not_of(' ') + 1);  // blanks at the ends are padding
        r.name.erase(0, r.name.find_first_not_of(' ') == std::string::npos
                            ? r.name.size()
                            : r.name.find_first_not_of(' '));
        r.amount =
            static_cast<double>(static_cast<int64_t>(rng() % 19999999999ull) - 9999999999) / 100;
        r.rate =
            static_cast<double>(static_cast<int64_t>(rng() % 1999999999999ull) - 999999999999) /
            1e6;
        r.active = rng() % 2;
        const int year = 1900 + rng() % 200, month = 1 + rng() % 12;
        const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
        const int days[] = {31, leap ? 29 : 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
        char date[32];
        std::snprintf(date, sizeof date, "%04d%02d%02d", year, month,
                      1 + int(rng() % days[month - 1]));
        r.born = date;
        r.count = static_cast<int>(static_cast<uint32_t>(rng()));
        const uint64_t bits =
            i < 4 ? std::vector<uint64_t>{0, 1ull << 63, 0x7FF0000000000000ull, 1}[i] : rng();
        std::memcpy(&r.value, &bits, sizeof bits);
        rows.push_back(r);
    }
    return rows;
}

const std::vector<Row>& rows() {
    static const std::vector<Row> r = random_rows(60);
    return r;
}
const unsigned kSet = 60;
constexpr unsigned kRecords = 61;  // the last record stays blank

struct Encoding {
    const char* label;  // as dbfread names it
    bool dos, utf8;     // how the table is made
    const char* cpg;    // what its .cpg file says
};
void PrintTo(const Encoding& e, std::ostream* os) {
    *os << e.cpg;
}

const Encoding encodings[] = {
    {"cp1251", false, false, "CP1251"},
    {"cp866", true, false, "CP866"},
    {"utf-8", false, true, "UTF-8"},
};

// Writes rows() through the setters of a disk or a memory table.
template <class H>
void write_rows(H* h, bool (*set_str)(H*, unsigned, unsigned, const char*),
                bool (*set_dbl)(H*, unsigned, unsigned, double),
                bool (*set_bool)(H*, unsigned, unsigned, bool),
                bool (*set_int)(H*, unsigned, unsigned, int)) {
    for (unsigned r = 0; r < kSet; ++r) {
        const Row& row = rows()[r];
        EXPECT_TRUE(set_str(h, NAME, r, row.name.c_str()));
        EXPECT_TRUE(set_dbl(h, AMOUNT, r, row.amount));
        EXPECT_TRUE(set_dbl(h, RATE, r, row.rate));
        EXPECT_TRUE(set_bool(h, ACTIVE, r, row.active));
        EXPECT_TRUE(set_str(h, BORN, r, row.born.c_str()));
        EXPECT_TRUE(set_int(h, COUNT, r, row.count));
        EXPECT_TRUE(set_dbl(h, VALUE, r, row.value));
    }
}

// Writes rows() through a disk table, or through the memory table of the
// blank table.
std::string write_table(const qz_test::Temp_dir& dir, const Encoding& e, bool memory = false) {
    std::string path = dir.file(std::string(memory ? "mem_" : "round_") + e.cpg + ".dbf");
    Tqz_dbf_field f[FIELDS];
    qz_dbf_field_init(&f[NAME], "NAME", dbf_ft_char, 60, 0);
    qz_dbf_field_init(&f[AMOUNT], "AMOUNT", dbf_ft_numeric, 12, 2);
    qz_dbf_field_init(&f[RATE], "RATE", dbf_ft_float, 14, 6);
    qz_dbf_field_init(&f[ACTIVE], "ACTIVE", dbf_ft_logical, 1, 0);
    qz_dbf_field_init(&f[BORN], "BORN", dbf_ft_date, 8, 0);
    qz_dbf_field_init(&f[COUNT], "COUNT", dbf_ft_integer, 4, 0);
    qz_dbf_field_init(&f[VALUE], "VALUE", dbf_ft_double, 8, 0);
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), FIELDS, kRecords, f, e.dos);
    EXPECT_NE(t, nullptr);
    if (!t) return path;
    if (e.utf8) qz_dbf_set_utf8_flag(t, true);
    if (!memory) write_rows(t, qz_dbf_set_str, qz_dbf_set_dbl, qz_dbf_set_bool, qz_dbf_set_int);
    qz_dbf_close(t);
    if (memory) {
        Tqz_dbf_memory* m = qz_dbf_mem_load(path.c_str());
        EXPECT_NE(m, nullptr);
        if (!m) return path;
        write_rows(m, qz_dbf_mem_set_str, qz_dbf_mem_set_dbl, qz_dbf_mem_set_bool,
                   qz_dbf_mem_set_int);
        EXPECT_TRUE(qz_dbf_mem_save(m));
        qz_dbf_mem_free(m);
    }
    return path;
}

std::vector<std::string> split(const std::string& line, char sep) {
    std::vector<std::string> out;
    std::stringstream ss(line);
    std::string part;
    while (std::getline(ss, part, sep)) out.push_back(part);
    return out;
}

std::string trim(const std::string& s) {
    size_t b = s.find_first_not_of(" \t\r\n");
    if (b == std::string::npos) return "";
    return s.substr(b, s.find_last_not_of(" \t\r\n") + 1 - b);
}

// What the library itself reads back from the table: every cell by its type.
struct Ours {
    std::string text[FIELDS];
    bool has[FIELDS];
    double number[FIELDS];
};

std::vector<Ours> read_ours(const std::string& path) {
    std::vector<Ours> out;
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), true, false);
    EXPECT_NE(t, nullptr);
    if (!t) return out;
    for (unsigned r = 0; r < qz_dbf_get_nr(t); ++r) {
        Ours o;
        for (unsigned f = 0; f < FIELDS; ++f) {
            bool ok = false;
            o.text[f] = trim(qz_dbf_get_str(t, f, r, ok));
            o.has[f] = ok && !o.text[f].empty();
            bool nok = false;
            o.number[f] =
                f == ACTIVE ? qz_dbf_get_bool(t, f, r, nok) : qz_dbf_get_dbl(t, f, r, nok);
            if (f == ACTIVE) o.has[f] = nok;
        }
        out.push_back(o);
    }
    qz_dbf_close(t);
    return out;
}

class Round_trip : public ::testing::TestWithParam<Encoding> {
  protected:
    void SetUp() override { qz_options_set_ansi_code_page(65001); }
    qz_test::Temp_dir dir;
};

TEST_P(Round_trip, WhatWeWriteReadsBackHereAndInDbfread) {
    if (!qz_test::have_dbfread()) GTEST_SKIP() << "python3-dbfread is not installed";
    const Encoding& e = GetParam();
    std::string path = write_table(dir, e);
    std::vector<uint8_t> cpg =
        qz_test::read_bytes(dir.file(std::string("round_") + e.cpg + ".cpg"));
    EXPECT_EQ(trim(std::string(cpg.begin(), cpg.end())), e.cpg);

    std::vector<Ours> ours = read_ours(path);
    ASSERT_EQ(ours.size(), kRecords);
    for (unsigned r = 0; r < kSet; ++r) {
        const Row& row = rows()[r];
        SCOPED_TRACE("record " + std::to_string(r));
        EXPECT_EQ(ours[r].text[NAME], row.name);
        EXPECT_DOUBLE_EQ(ours[r].number[AMOUNT], row.amount);
        EXPECT_DOUBLE_EQ(ours[r].number[RATE], row.rate);
        EXPECT_EQ(ours[r].number[ACTIVE] != 0, row.active);
        EXPECT_EQ(ours[r].text[BORN], row.born);
        EXPECT_EQ(ours[r].number[COUNT], row.count);
        EXPECT_TRUE(ours[r].number[VALUE] == row.value ||
                    (std::isnan(row.value) && std::isnan(ours[r].number[VALUE])));
    }
    // The memory table writes the same records, byte for byte.
    std::vector<uint8_t> disk = qz_test::read_bytes(path);
    std::vector<uint8_t> memory = qz_test::read_bytes(write_table(dir, e, true));
    ASSERT_GT(disk.size(), 32u);
    const size_t header = disk[8] | disk[9] << 8;
    ASSERT_EQ(memory.size(), disk.size());
    EXPECT_TRUE(std::equal(disk.begin() + header, disk.end(), memory.begin() + header));

    std::string out;
    ASSERT_EQ(qz_test::run("/usr/bin/python3 " QZ_TEST_SCRIPTS "/dbfread_peer.py records '" + path +
                               "' " + e.label,
                           &out),
              0)
        << out;
    std::vector<std::string> lines = split(out, '\n');
    ASSERT_EQ(lines.size(), kRecords);
    for (unsigned r = 0; r < kRecords; ++r) {
        std::vector<std::string> cells = split(lines[r], '\t');
        ASSERT_EQ(cells.size(), static_cast<size_t>(FIELDS)) << lines[r];
        const Ours& o = ours[r];
        SCOPED_TRACE("record " + std::to_string(r) + ": " + lines[r]);
        // C: the same text (dbfread drops the padding, an empty cell is "").
        EXPECT_EQ(cells[NAME], "s:" + o.text[NAME]);
        // N and F: the same number, or no value in both.
        for (int f : {AMOUNT, RATE}) {
            if (!o.has[f]) {
                EXPECT_EQ(cells[f], "z");
            } else {
                ASSERT_GT(cells[f].size(), 2u);
                EXPECT_DOUBLE_EQ(std::strtod(cells[f].c_str() + 2, nullptr), o.number[f]);
            }
        }
        EXPECT_EQ(cells[ACTIVE], !o.has[ACTIVE] ? "z" : o.number[ACTIVE] ? "b:1" : "b:0");
        EXPECT_EQ(cells[BORN], o.has[BORN] ? "d:" + o.text[BORN] : "z");
        EXPECT_EQ(cells[COUNT], "i:" + std::to_string(static_cast<int>(o.number[COUNT])));
        ASSERT_GT(cells[VALUE].size(), 2u);
        double theirs = std::strtod(cells[VALUE].c_str() + 2, nullptr);
        EXPECT_TRUE(theirs == o.number[VALUE] ||
                    (std::isnan(theirs) && std::isnan(o.number[VALUE])))
            << cells[VALUE];
    }
}

INSTANTIATE_TEST_SUITE_P(Encodings, Round_trip, ::testing::ValuesIn(encodings),
                         [](const auto& info) {
                             return std::string(info.param.cpg).substr(0, 2) == "UT"
                                        ? std::string("UTF8")
                                        : std::string(info.param.cpg);
                         });

}  // namespace
