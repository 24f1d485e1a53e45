// Typed values through qz_dbf_set_value / qz_dbf_get_value: random values of
// every field type of each dialect round-trip through the typed and the text
// setters and getters, on disk and through a memory table; values a field
// cannot hold are refused with the cell unchanged; the bytes the writes
// leave in the table and memo files; null flags; UTF-8 text into cells.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "qzk_basic.h"
#include "table_builder.h"

using namespace typed_test;

namespace {

const std::vector<tfield> vfp_fields = {
    {"NAME", 'C', 10, 0, 0x02}, {"PRICE", 'N', 8, 2, 0x02},     {"RATE", 'F', 10, 3, 0},
    {"OK", 'L', 1, 0, 0},       {"DAY", 'D', 8, 0, 0},          {"ID", 'I', 4, 0, 0x02},
    {"REAL", 'B', 8, 2, 0},     {"CASH", 'Y', 8, 4, 0},         {"WHEN", 'T', 8, 0, 0x02},
    {"NOTE", 'M', 4, 0, 0},     {"PIC", 'P', 4, 0, 0},          {"SEQ", 'I', 4, 0, 0x0C},
    {"AUTO", '+', 4, 0, 0},     {"_NullFlags", '0', 1, 0, 0x05}};
const std::vector<tfield> dbase_fields = {{"NAME", 'C', 10, 0, 0}, {"PRICE", 'N', 8, 2, 0},
                                          {"RATE", 'F', 10, 3, 0}, {"OK", 'L', 1, 0, 0},
                                          {"DAY", 'D', 8, 0, 0},   {"NOTE", 'M', 10, 0, 0}};

// A value to write, the text qz_dbf_set_str takes and qz_dbf_get_str gives
// ("" when not looked at), and what qz_dbf_get_value gives back as shown()
// ("": the value itself).
struct cell {
    int kind;
    long long i = 0;
    double d = 0;
    std::string data = "", text = "", want = "";
    Tqz_dbf_value value() const { return Tqz_dbf_value{kind, i, d, data.c_str(), data.size()}; }
    std::string expected() const { return want.empty() ? shown(value()) : want; }
};

std::string fixed(unsigned long long units, bool negative, int decimals) {
    const unsigned long long scale = decimals == 2 ? 100 : decimals == 3 ? 1000 : 10000;
    char buf[48];
    std::snprintf(buf, sizeof buf, "%s%llu.%0*llu", negative ? "-" : "", units / scale, decimals,
                  units % scale);
    return buf;
}

std::string printed(const char* format, double v) {
    char buf[64];
    std::snprintf(buf, sizeof buf, format, v);
    return buf;
}

cell random_cell(std::mt19937_64& rng, const tfield& f) {
    const bool neg = rng() & 1;
    const uint64_t bits = rng();
    if (((f.flags & 0x02) || std::strchr("NFDL", f.type)) && bits % 8 == 0)
        return cell{QZ_DBF_VALUE_NULL};
    double v = (neg ? -1 : 1) * double(bits % 100000000) / 1000;
    switch (f.type) {
        case 'C':
        case 'M': {
            std::string w(bits % (f.type == 'C' ? 11 : 1500), ' ');
            for (char& c : w) c = "abcXYZ 019.,\r\n"[rng() % (f.type == 'C' ? 12 : 14)];
            if (f.type == 'C') w.erase(w.find_last_not_of(' ') + 1);
            return cell{QZ_DBF_VALUE_TEXT, 0, 0, w,
                        f.type == 'C' ? w + std::string(10 - w.size(), ' ') : ""};
        }
        case 'N': {  // read back as the double nearest the decimal text
            const std::string t = fixed(bits % 1000000, neg, 2),
                              back = printed("d:%.17g", std::strtod(t.c_str(), nullptr));
            return cell{QZ_DBF_VALUE_DECIMAL, 0, 0, t, t, back};
        }
        case 'F':
            return cell{QZ_DBF_VALUE_DOUBLE, 0, v, "", printed("%19.11g", v)};
        case 'L':
            return cell{QZ_DBF_VALUE_BOOL, neg, 0, "", neg ? "T" : "F"};
        case 'D': {
            const long long ymd =
                (1 + bits % 9999) * 10000 + (1 + rng() % 12) * 100 + 1 + rng() % 28;
            return cell{QZ_DBF_VALUE_DATE, ymd, 0, "", printed("%08.0f", double(ymd))};
        }
        case 'I':
            return cell{QZ_DBF_VALUE_INT, int32_t(bits), 0, "", std::to_string(int32_t(bits))};
        case 'B':  // any finite bit pattern
            std::memcpy(&v, &bits, sizeof v);
            if (!std::isfinite(v)) v = 0.5;
            return cell{QZ_DBF_VALUE_DOUBLE, 0, v, "", printed("%19.11g", v)};
        case 'Y':
            return cell{QZ_DBF_VALUE_DECIMAL, 0, 0,
                        fixed(bits % 9223372036854775807ull, neg && bits, 4)};
        default:  // T: 0001-01-01 to 1970, 1970 to 9999-12-31
            return cell{QZ_DBF_VALUE_DATETIME,
                        neg ? -static_cast<long long>(bits % 62135596800000ull)
                            : static_cast<long long>(bits % 253402300800000ull)};
    }
}

// Every cell, record and column read gives the values written; with `text`,
// qz_dbf_get_str gives their text too.
void expect_cells(Tqz_dbf_rw* t, const std::vector<std::vector<cell>>& cells, bool text) {
    const unsigned nr = static_cast<unsigned>(cells.size()),
                   nf = static_cast<unsigned>(cells[0].size());
    std::vector<Tqz_dbf_value> values(20);
    for (unsigned r = 0; r < nr; ++r) {
        ASSERT_GE(qz_dbf_get_record_values(t, r, values.data(), 20), long(nf));
        for (unsigned f = 0; f < nf; ++f) {
            const cell& c = cells[r][f];
            EXPECT_EQ(read_shown(t, f, r), c.expected()) << "field " << f << " record " << r;
            EXPECT_EQ(shown(values[f]), c.expected()) << "field " << f << " record " << r;
            bool ok = false;
            const std::string got = text && !c.text.empty() ? qz_dbf_get_str(t, f, r, ok) : c.text;
            EXPECT_EQ(got, c.text) << f << " " << r;
        }
    }
    EXPECT_EQ(qz_dbf_get_column_values(t, 0, 1, 99, values.data()), long(nr) - 1);  // cut at end
    for (unsigned f = 0; f < nf; ++f) {
        ASSERT_EQ(qz_dbf_get_column_values(t, f, 0, nr, values.data()), long(nr));
        for (unsigned r = 0; r < nr; ++r)
            EXPECT_EQ(shown(values[r]), cells[r][f].expected()) << f << " " << r;
    }
}

// The tables written are read back by python3-dbfread and GDAL too: every
// cell must come back the same.
TEST(TypedValues, RandomValuesOfEveryTypeRoundTripOnDiskInMemoryAndInPeers) {
    // writable the fields qz_dbf_set_value writes
    // clang-format off
    const struct { uint8_t version; memo_kind memo;
        const std::vector<tfield>& fields; unsigned writable; } dialects[] = {
            {0x30, memo_kind::fpt, vfp_fields, 10}, {0x83, memo_kind::dbt3, dbase_fields, 6},
            {0x8B, memo_kind::dbt4, dbase_fields, 6}, {0xF5, memo_kind::fpt, dbase_fields, 6}};
    // clang-format on
    std::mt19937_64 rng(7);
    qz_test::Temp_dir dir;
    std::string expected;  // the cells, for the peers
    for (const auto& d : dialects)
        for (bool memory : {false, true}) {
            const std::string name = std::to_string(d.version) + (memory ? "memory" : "disk");
            SCOPED_TRACE(name);
            const unsigned nr = 12;
            const std::string path = make_table(dir, name, d.version, d.fields, nr, d.memo, 0x03);
            Tqz_dbf_memory* m = memory ? qz_dbf_mem_load(path.c_str()) : nullptr;
            Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), false, false);
            ASSERT_NE(t, nullptr);
            ASSERT_EQ(qz_dbf_get_storage(t), memory ? qz_dbf_storage_memory : qz_dbf_storage_file);
            std::vector<std::vector<cell>> cells(nr);
            for (unsigned r = 0; r < nr; ++r)
                for (unsigned f = 0; f < d.writable; ++f) {
                    cells[r].push_back(random_cell(rng, d.fields[f]));
                    const cell& c = cells[r].back();
                    // Odd records go through the text setter where a text is known.
                    if (r % 2 && c.kind != QZ_DBF_VALUE_NULL && !c.text.empty() &&
                        d.fields[f].type != 'B') {
                        EXPECT_TRUE(qz_dbf_set_str(t, f, r, c.text.c_str())) << f << " " << r;
                    } else {
                        const Tqz_dbf_value v = c.value();
                        EXPECT_TRUE(qz_dbf_set_value(t, f, r, &v))
                            << f << ": " << qz_dbf_last_error_message();
                    }
                    char line[96];
                    std::snprintf(line, sizeof line, "\t%c\t%u\t%d\t%lld\t%.17g\t",
                                  d.fields[f].type, r, c.kind, c.i, c.d);
                    expected += path + "\t" + d.fields[f].name + line;
                    for (unsigned char ch : c.data)
                        expected += {"0123456789abcdef"[ch >> 4], "0123456789abcdef"[ch & 15]};
                    expected += "\n";
                }
            expect_cells(t, cells, false);
            qz_dbf_close(t);
            if (m) {
                ASSERT_TRUE(qz_dbf_mem_save(m)) << qz_dbf_last_error_message();
                qz_dbf_mem_free(m);
            }
            t = open_ex(path, QZ_DBF_OPEN_READ_ONLY);
            expect_cells(t, cells, true);
            qz_dbf_close(t);
        }
    if (!qz_test::have_dbfread()) GTEST_SKIP() << "python3-dbfread is not installed";
    std::ofstream(dir.file("expected.tsv")) << expected;
    std::string report;
    const int status = qz_test::run(std::string("/usr/bin/python3 ") + QZ_PEERS_SCRIPT + " '" +
                                        dir.file("expected.tsv") + "' 2>&1",
                                    &report);
    std::printf("%s", report.c_str());
    EXPECT_EQ(status, 0) << report;
}

// Refused values leave the cell and say why; bad arguments and read-only
// handles are refused too.
TEST(TypedValues, RefusalsLeaveTheCellAndSayWhy) {
    qz_test::Temp_dir dir;
    const std::string path = make_table(dir, "vfp", 0x30, vfp_fields, 2, memo_kind::none, 0x03);
    Tqz_dbf_rw* t = open_ex(path, 0);
    const Tqz_dbf_value seven = value(QZ_DBF_VALUE_INT, 7), one = value(QZ_DBF_VALUE_INT, 1);
    ASSERT_TRUE(qz_dbf_set_value(t, 1, 0, &seven));
    const std::string eleven = "eleven char", chinese = "\xE4\xB8\xAD", wide = "123456.7",
                      no_number = "12a", cash = "922337203685478", memo = "memo", zero(1, '\0');
    // Refused, in order: text longer than C(10), text not in CP1252, an
    // integer into C; into N(8,2) a wider decimal, a NaN, text with no number;
    // an integer into L; a day that does not exist; past 32 bits and not
    // whole into I; null into B (no null flag); past the currency range; a
    // memo without a memo file; autoincrement; the null flags themselves; a
    // kind that does not exist; a field that does not exist.
    // clang-format off
    const struct { unsigned field; Tqz_dbf_value value; int code = QZ_DBF_ERR_VALUE; }
        refusals[] = {
        {0, value(QZ_DBF_VALUE_TEXT, 0, 0, &eleven)}, {0, value(QZ_DBF_VALUE_TEXT, 0, 0, &chinese)},
        {0, value(QZ_DBF_VALUE_INT, 5)}, {1, value(QZ_DBF_VALUE_DECIMAL, 0, 0, &wide)},
        {1, value(QZ_DBF_VALUE_DOUBLE, 0, NAN)}, {1, value(QZ_DBF_VALUE_TEXT, 0, 0, &no_number)},
        {3, value(QZ_DBF_VALUE_INT, 1)}, {4, value(QZ_DBF_VALUE_DATE, 20230229)},
        {5, value(QZ_DBF_VALUE_INT, 2147483648LL)}, {5, value(QZ_DBF_VALUE_DOUBLE, 0, 1.5)},
        {6, value(QZ_DBF_VALUE_NULL)}, {7, value(QZ_DBF_VALUE_DECIMAL, 0, 0, &cash)},
        {9, value(QZ_DBF_VALUE_TEXT, 0, 0, &memo), QZ_DBF_ERR_MEMO},
        {12, value(QZ_DBF_VALUE_INT, 3)}, {13, value(QZ_DBF_VALUE_BYTES, 0, 0, &zero)},
        {1, value(42), QZ_DBF_ERR_ARGUMENT}, {99, value(QZ_DBF_VALUE_INT, 1), QZ_DBF_ERR_ARGUMENT}};
    // clang-format on
    for (const auto& c : refusals) {
        const std::string before = read_shown(t, c.field, 0);
        qz_dbf_clear_last_error();
        EXPECT_FALSE(qz_dbf_set_value(t, c.field, 0, &c.value)) << c.field;
        EXPECT_EQ(qz_dbf_last_error(), c.code) << c.field << ": " << qz_dbf_last_error_message();
        EXPECT_NE(std::string(qz_dbf_last_error_message()).find("field "), std::string::npos);
        EXPECT_EQ(read_shown(t, c.field, 0), before) << c.field;
    }
    EXPECT_FALSE(qz_dbf_set_value(t, 1, 2, &one));
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_ARGUMENT);
    EXPECT_FALSE(qz_dbf_set_value(t, 1, 0, nullptr) || qz_dbf_set_value(nullptr, 1, 0, &one));
    std::vector<Tqz_dbf_value> col(2);
    for (long got : {qz_dbf_get_column_values(t, 0, 2, 1, col.data()),
                     qz_dbf_get_column_values(t, 99, 0, 1, col.data()),
                     qz_dbf_get_column_values(t, 0, 0, 1, nullptr),
                     qz_dbf_get_record_values(nullptr, 0, col.data(), 1),
                     qz_dbf_get_record_values(t, 9, col.data(), 1)})
        EXPECT_EQ(got, -1);
    // Numbers given as decimal text or text go into integer and double fields.
    const std::string n42 = "42", half = "-2.5";
    const Tqz_dbf_value as_decimal = value(QZ_DBF_VALUE_DECIMAL, 0, 0, &n42),
                        as_text = value(QZ_DBF_VALUE_TEXT, 0, 0, &half);
    EXPECT_TRUE(qz_dbf_set_value(t, 5, 1, &as_decimal));
    EXPECT_TRUE(qz_dbf_set_value(t, 6, 1, &as_text));
    EXPECT_EQ(read_shown(t, 5, 1) + " " + read_shown(t, 6, 1), "2:42 d:-2.5");
    // A failed read leaves every value asked for null.
    std::vector<Tqz_dbf_value> row(3, value(QZ_DBF_VALUE_INT, 5));
    EXPECT_EQ(qz_dbf_get_record_values(t, 9, row.data(), 3), -1);
    for (const Tqz_dbf_value& v : row) EXPECT_EQ(shown(v), "null");
    qz_dbf_close(t);
    t = open_ex(path, QZ_DBF_OPEN_READ_ONLY);
    EXPECT_FALSE(qz_dbf_set_value(t, 1, 0, &one));
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_PERMISSION);
    EXPECT_EQ(read_shown(t, 1, 0), "d:7");
    qz_dbf_close(t);
}

// The bytes the writes leave: text in the table's CP1252, numbers
// right-aligned and rounded half up, the null flags of the nullable fields
// in order (NAME bit 0, PRICE 1, ID 2, WHEN 3), memo blocks of each layout.
TEST(TypedValues, BytesInTheTableAndMemoFiles) {
    qz_test::Temp_dir dir;
    const std::string path = make_table(dir, "vfp", 0x30, vfp_fields, 2, memo_kind::fpt, 0x03);
    Tqz_dbf_rw* t = open_ex(path, 0);
    const std::string cafe = "Caf\xC3\xA9", price = "1234.565", note = "x", pic("\x89PNG\0\x01", 6);
    // clang-format off
    const struct { unsigned field; Tqz_dbf_value value; } writes[] = {
        {0, value(QZ_DBF_VALUE_NULL)}, {0, value(QZ_DBF_VALUE_TEXT, 0, 0, &cafe)},
        {1, value(QZ_DBF_VALUE_DECIMAL, 0, 0, &price)}, {2, value(QZ_DBF_VALUE_NULL)},
        {2, value(QZ_DBF_VALUE_DOUBLE, 0, -2.5)}, {4, value(QZ_DBF_VALUE_DATE, 20240229)},
        {5, value(QZ_DBF_VALUE_NULL)}, {5, value(QZ_DBF_VALUE_INT, 5)},
        {8, value(QZ_DBF_VALUE_NULL)}, {9, value(QZ_DBF_VALUE_TEXT, 0, 0, &note)},
        {10, value(QZ_DBF_VALUE_BYTES, 0, 0, &pic)}};
    // clang-format on
    for (const auto& w : writes) EXPECT_TRUE(qz_dbf_set_value(t, w.field, 0, &w.value)) << w.field;
    EXPECT_EQ(read_shown(t, 10, 0), "8:" + pic);
    const Tqz_dbf_value null = value(QZ_DBF_VALUE_NULL);
    EXPECT_TRUE(qz_dbf_set_value(t, 1, 1, &null));
    qz_dbf_close(t);
    const std::vector<uint8_t> file = qz_test::read_bytes(path);
    const size_t rec = qz_test::u16_at(file, 8);
    EXPECT_EQ(std::string(file.begin() + rec + 1, file.begin() + rec + 38),
              "Caf\xE9       1234.57    -2.500 20240229");
    EXPECT_EQ(file[rec + qz_test::u16_at(file, 10) - 1], 0x08);      // WHEN null
    EXPECT_EQ(file[rec + 2 * qz_test::u16_at(file, 10) - 1], 0x02);  // PRICE of record 1
    const std::vector<uint8_t> fpt = qz_test::read_bytes(dir.file("vfp.fpt"));
    ASSERT_GE(fpt.size(), 512u + 64u);
    EXPECT_EQ(fpt[512 + 3], 1);  // a text block, then a picture block
    EXPECT_EQ(fpt[576 + 3], 0);
    EXPECT_EQ(fpt.size() % 64, 0u);

    for (memo_kind kind : {memo_kind::dbt3, memo_kind::dbt4}) {
        const bool iv = kind == memo_kind::dbt4;
        t = open_ex(make_table(dir, "memo", iv ? 0x8B : 0x83, {{"NOTE", 'M', 10, 0, 0}}, 2, kind),
                    0);
        const std::string first = "first", eof = std::string("a\x1A") + "b";
        const Tqz_dbf_value a = value(QZ_DBF_VALUE_TEXT, 0, 0, &first),
                            e = value(QZ_DBF_VALUE_BYTES, 0, 0, &eof);
        ASSERT_TRUE(qz_dbf_set_value(t, 0, 0, &a)) << qz_dbf_last_error_message();
        // dBASE III memos end at 0x1A: one inside cannot be kept.
        EXPECT_EQ(qz_dbf_set_value(t, 0, 1, &e), iv);
        EXPECT_EQ(read_shown(t, 0, 1), iv ? "7:" + eof : "null");
        qz_dbf_close(t);
        const std::vector<uint8_t> dbt = qz_test::read_bytes(dir.file("memo.dbt"));
        EXPECT_EQ(
            std::string(dbt.begin() + 512, dbt.begin() + 520),
            iv ? std::string("\xFF\xFF\x08\x00\x0D\0\0\0", 8) : std::string("first\x1A\x1A\0", 8));
        // Whole blocks; the header's next free block is past the last memo.
        EXPECT_EQ(qz_test::u16_at(dbt, 0) * 512, dbt.size());
    }
}

TEST(TypedValues, NullFlagsEncodingsNumberTextsAndFieldNames) {
    // Some writers blank the flags field with the rest of a new record: a
    // byte 0x20 would otherwise make the sixth nullable field null.
    qz_test::Temp_dir dir;
    std::vector<tfield> fields;
    for (const char* n : {"A", "B", "C", "D", "E", "F"}) fields.push_back({n, 'C', 2, 0, 0x02});
    fields.push_back({"_NullFlags", '0', 1, 0, 0x05});
    const std::string path = make_table(dir, "blank", 0x30, fields, 2, memo_kind::none, 0x03);
    std::vector<uint8_t> b = qz_test::read_bytes(path);
    const size_t first = qz_test::u16_at(b, 8);
    b[first + 11] = 'x', b[first + 13] = ' ';             // F of record 0; its flags blank
    b[first + 14 + 11] = 'y', b[first + 14 + 13] = 0x21;  // record 1: F and A flagged null
    b[first + 14 + 1] = b[first + 14 + 3] = 0xE9;         // A and B: é in CP1252, й in CP1251
    qz_test::write_bytes(path, b);
    Tqz_dbf_rw* t = open_ex(path, QZ_DBF_OPEN_READ_ONLY);
    EXPECT_EQ(read_shown(t, 5, 0) + " " + read_shown(t, 5, 1) + " " + read_shown(t, 0, 1) + " " +
                  read_shown(t, 1, 1),
              "7:x null null 7:\xC3\xA9");
    // The encoding set on the handle decides the text of later reads.
    ASSERT_TRUE(qz_dbf_set_encoding(t, "CP1251"));
    EXPECT_EQ(read_shown(t, 1, 1), "7:\xD0\xB9");
    Tqz_dbf_value v[8];
    EXPECT_EQ(qz_dbf_get_record_values(t, 1, v, 8), 7);
    EXPECT_EQ(std::string(v[1].text), "\xD0\xB9");
    qz_dbf_close(t);

    // Number texts read as other readers read them: integers as long as they
    // fit 64 bits exactly, longer digit runs as the nearest double, decimal
    // commas and leading zeros as written.
    const std::string cases[][2] = {
        {"12345678901234567890", printed("d:%.17g", 12345678901234567890.0)},
        {"-9223372036854775807", "2:-9223372036854775807"},
        {"000000000000000012", "2:12"},
        {"1234567890.12345678", printed("d:%.17g", 1234567890.12345678)},
        {"68,5", printed("d:%.17g", 68.5)},
        {"1.2.3", "7:1.2.3"},
        {"-", "7:-"},
        {".", "7:."}};
    std::vector<std::vector<std::string>> rows;
    for (const auto& c : cases) rows.push_back({std::string(20 - c[0].size(), ' ') + c[0]});
    qz_test::write_bytes(dir.file("n.dbf"), qz_test::dbf_bytes(0x03, {{"N", 'N', 20, 0}}, rows));
    t = open_ex(dir.file("n.dbf"), QZ_DBF_OPEN_READ_ONLY);
    for (unsigned r = 0; r < rows.size(); ++r) EXPECT_EQ(read_shown(t, 0, r), cases[r][1]) << r;
    qz_dbf_close(t);

    // Field names in the encoding the handle reads text in: a table whose
    // names are UTF-8 bytes, without a .cpg or a driver byte.
    qz_options_set_ansi_code_page(65001);  // the classic calls' system text: UTF-8
    t = open_ex(QZ_CORPUS_DIR "/ruby-dbf/dbase_03_cyrillic.dbf", QZ_DBF_OPEN_READ_ONLY);
    char name[32];
    // The CP1251 default, as the classic call decodes it.
    EXPECT_EQ(qz_dbf_get_field_name_utf8(t, 1, name, sizeof name), 21);
    EXPECT_STREQ(name, qz_dbf_get_field_name(t, 1));
    ASSERT_TRUE(qz_dbf_set_encoding(t, "UTF-8"));
    EXPECT_EQ(qz_dbf_get_field_name_utf8(t, 0, nullptr, 0), 6);
    EXPECT_EQ(qz_dbf_get_field_name_utf8(t, 1, name, 7), 10);  // cut between whole bytes
    EXPECT_STREQ(name, "\xD0\x9F\xD0\x9B\xD0\x9E");
    EXPECT_EQ(qz_dbf_get_field_name_utf8(t, 1, name, sizeof name), 10);
    EXPECT_STREQ(name, "\xD0\x9F\xD0\x9B\xD0\x9E\xD0\xA9\xD0\x90");  // ПЛОЩА
    EXPECT_EQ(qz_dbf_get_field_name_utf8(t, 2, name, sizeof name), -1);
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_ARGUMENT);
    EXPECT_STREQ(name, "");
    qz_dbf_close(t);
    qz_options_set_ansi_code_page(0);
}

// qz_dbf_set_cell_utf8: UTF-8 text into a cell in the table's encoding,
// whatever code page it is, never cut and never with a stand-in character.
// A fresh table of NAME C(6) and SUM N(5,1) whose one record's NAME is
// "old", open for writing with the encoding `enc` ("" the flags' own, "flag"
// the UTF-8 flag).
Tqz_dbf_rw* fresh(const std::string& path, const std::string& enc) {
    std::remove((path.substr(0, path.size() - 3) + "cpg").c_str());
    Tqz_dbf_field f[2];
    qz_dbf_field_init(&f[0], "NAME", dbf_ft_char, 6, 0);
    qz_dbf_field_init(&f[1], "SUM", dbf_ft_numeric, 5, 1);
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), 2, 1, f, false);
    if (t && enc == "flag") qz_dbf_set_utf8_flag(t, true);
    const bool named = enc.empty() || enc == "flag" || qz_dbf_set_encoding(t, enc.c_str());
    if (t && qz_dbf_set_str(t, 0, 0, "old") && named) return t;
    qz_dbf_close(t);
    return nullptr;
}

TEST(CellUtf8, TextInTheTableEncodingOrRefusedWhole) {
    const std::string muller = "M\xC3\xBCller";  // 7 bytes of UTF-8, 6 characters
    // Encoding ("" the flags' own, "flag" the UTF-8 flag), field, text, accepted,
    // the cell's bytes afterwards (its padding aside).
    // clang-format off
    const struct { const char* encoding; unsigned field; std::string text; bool ok; std::string bytes; } cases[] = {
        {"CP1252", 0, muller, true, "M\xFCller"},
        {"ISO-8859-2", 0, "\xC5\x81\xC3\xB3" "d\xC5\xBA", true, "\xA3\xF3" "d\xBC"},
        {"CP1252", 0, "\xE2\x82\xAC", true, "\x80"},    // the euro sign
        {"ISO-8859-1", 0, "\xE2\x82\xAC", false, "old"},  // not in Latin-1
        {"CP1252", 0, muller + "s", false, "old"},        // 7 bytes: never cut
        {"flag", 0, muller, false, "old"},                // UTF-8 table: 7 bytes
        {"flag", 0, "\xD0\x81\xD0\xB6", true, "\xD0\x81\xD0\xB6"},
        {"", 0, "\xD0\x81\xD0\xB6", true, "\xA8\xE6"},    // the classic CP1251
        {"CP1252", 0, "\xFF" "a", false, "old"},          // not UTF-8
        {"CP1252", 0, std::string("a\0b", 3), false, "old"},
        {"CP1252", 0, "", true, ""},
        {"CP1252", 1, "12.5", true, " 12.5"},
        {"CP1252", 1, "x", false, ""},
    };
    // clang-format on
    qz_test::Temp_dir dir;
    const std::string path = dir.file("t.dbf");
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.encoding) + " " + c.text);
        Tqz_dbf_rw* t = fresh(path, c.encoding);
        ASSERT_NE(t, nullptr);
        qz_dbf_clear_last_error();
        EXPECT_EQ(qz_dbf_set_cell_utf8(t, c.field, 0, c.text.data(), c.text.size()), c.ok);
        EXPECT_EQ(qz_dbf_last_error() == QZ_DBF_OK, c.ok);
        qz_dbf_close(t);
        EXPECT_EQ(qz_test::raw_cell(qz_test::read_bytes(path), 0, c.field ? 7 : 1, c.field ? 5 : 6),
                  c.bytes);
    }
    // Cells that are not there; and the text read back through the same encoding.
    Tqz_dbf_rw* t = fresh(path, "CP1252");
    ASSERT_NE(t, nullptr);
    EXPECT_FALSE(qz_dbf_set_cell_utf8(t, 0, 1, "a", 1));  // no record 1
    EXPECT_FALSE(qz_dbf_set_cell_utf8(t, 2, 0, "a", 1));  // no field 2
    EXPECT_FALSE(qz_dbf_set_cell_utf8(t, 0, 0, nullptr, 1));
    EXPECT_FALSE(qz_dbf_set_cell_utf8(nullptr, 0, 0, "a", 1));
    ASSERT_TRUE(qz_dbf_set_cell_utf8(t, 0, 0, "\xC3\xA9t\xC3\xA9", 5));
    qz_dbf_close(t);
    t = qz_dbf_open(path.c_str(), true, false);
    ASSERT_TRUE(qz_dbf_set_encoding(t, "CP1252"));
    char buf[32];
    EXPECT_EQ(qz_dbf_get_cell_utf8(t, 0, 0, buf, sizeof buf), 5);
    EXPECT_STREQ(buf, "\xC3\xA9t\xC3\xA9");
    qz_dbf_close(t);
}

}  // namespace
