// The CSV reader against RFC 4180 and the usual departures from it, the
// value forms import reads, column inference and the progress line.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "csv_reader.h"
#include "csv_types.h"
#include "progress.h"

namespace {

using Rows = std::vector<std::vector<std::string>>;

TEST(CsvReader, Rfc4180Cases) {
    struct Case {
        const char* name;
        std::string text;
        Rows rows;
        const char* error;  // a part of the message, or null
    };
    const std::vector<Case> cases = {
        {"plain", "a,b\n1,2\n", {{"a", "b"}, {"1", "2"}}, nullptr},
        {"crlf", "a,b\r\n1,2\r\n", {{"a", "b"}, {"1", "2"}}, nullptr},
        {"no final newline", "a,b\n1,2", {{"a", "b"}, {"1", "2"}}, nullptr},
        {"empty cells", ",\n,x,\n", {{"", ""}, {"", "x", ""}}, nullptr},
        {"quoted comma", "\"a,b\",c\n", {{"a,b", "c"}}, nullptr},
        {"doubled quotes", "\"say \"\"hi\"\"\",x\n", {{"say \"hi\"", "x"}}, nullptr},
        {"only a doubled quote", "\"\"\"\"\n", {{"\""}}, nullptr},
        {"empty quoted", "\"\",\"\"\n", {{"", ""}}, nullptr},
        {"newline inside quotes",
         "\"two\nlines\",x\r\ny,z\n",
         {{"two\nlines", "x"}, {"y", "z"}},
         nullptr},
        {"crlf inside quotes kept", "\"a\r\nb\"\r\n", {{"a\r\nb"}}, nullptr},
        {"quote inside unquoted cell kept", "ab\"c,d\n", {{"ab\"c", "d"}}, nullptr},
        {"byte order mark skipped", "\xEF\xBB\xBFid,x\n", {{"id", "x"}}, nullptr},
        {"cr alone is text", "a\rb,c\n", {{"a\rb", "c"}}, nullptr},
        {"blank line is one empty cell", "a\n\nb\n", {{"a"}, {""}, {"b"}}, nullptr},
        {"quoted last cell at end of input", "a,\"b\"", {{"a", "b"}}, nullptr},
        {"unclosed quote", "a\n\"open,x\ny\n", {{"a"}}, "line 2: a quoted cell is not closed"},
        {"text after closing quote", "x\n\"a\"b,c\n", {{"x"}}, "line 2: text after the closing"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Rows rows;
        std::string error;
        const bool ok = qzdbf::parse_csv_text(c.text, ',', rows, error);
        EXPECT_EQ(ok, c.error == nullptr) << error;
        if (c.error) {
            EXPECT_NE(error.find(c.error), std::string::npos) << error;
        }
        EXPECT_EQ(rows, c.rows);
    }
}

TEST(CsvReader, OtherDelimitersLineNumbersAndRewind) {
    Rows rows;
    std::string error;
    ASSERT_TRUE(qzdbf::parse_csv_text("a;\"b;c\"\n1;2\n", ';', rows, error));
    EXPECT_EQ(rows, (Rows{{"a", "b;c"}, {"1", "2"}}));
    ASSERT_TRUE(qzdbf::parse_csv_text("a\tb,c\n", '\t', rows, error));
    EXPECT_EQ(rows, (Rows{{"a", "b,c"}}));

    // Records longer than the reader's buffer, quotes across its edge, and
    // the line each record begins on.
    std::string big(3 << 20, 'x');
    std::string text = "h1,h2\n\"" + big + "\"\"q\",\"multi\nline\"\nlast,\"\"\n";
    std::FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    std::fwrite(text.data(), 1, text.size(), f);
    std::rewind(f);
    qzdbf::Csv_reader reader(f);
    for (int pass = 0; pass < 2; ++pass) {
        std::vector<std::string_view> cells;
        ASSERT_TRUE(reader.next(cells));
        EXPECT_EQ(reader.line(), 1u);
        ASSERT_TRUE(reader.next(cells));
        EXPECT_EQ(reader.line(), 2u);
        ASSERT_EQ(cells.size(), 2u);
        EXPECT_EQ(cells[0].size(), big.size() + 2);
        EXPECT_EQ(cells[0].substr(cells[0].size() - 2), "\"q");
        EXPECT_EQ(cells[1], "multi\nline");
        EXPECT_EQ(cells[1].data()[cells[1].size()], '\0');
        ASSERT_TRUE(reader.next(cells));
        EXPECT_EQ(reader.line(), 4u);
        EXPECT_EQ(cells, (std::vector<std::string_view>{"last", ""}));
        EXPECT_FALSE(reader.next(cells));
        EXPECT_TRUE(reader.error().empty());
        EXPECT_EQ(reader.position(), text.size());
        ASSERT_TRUE(reader.rewind());
    }
    std::fclose(f);
}

TEST(CsvTypes, ValueForms) {
    struct Num {
        const char* text;
        bool ok;
        size_t width, decimals;
    };
    for (const Num& n : std::vector<Num>{{"0", true, 1, 0},
                                         {"-12", true, 3, 0},
                                         {"3.250", true, 1, 3},
                                         {"-0.5", true, 2, 1},
                                         {"007", false, 0, 0},
                                         {"-0", false, 0, 0},
                                         {"-0.00", false, 0, 0},
                                         {"1.", false, 0, 0},
                                         {".5", false, 0, 0},
                                         {"+1", false, 0, 0},
                                         {"1e5", false, 0, 0},
                                         {"1,5", false, 0, 0},
                                         {" 1", false, 0, 0},
                                         {"", false, 0, 0}}) {
        SCOPED_TRACE(n.text);
        qzdbf::Number_form f;
        EXPECT_EQ(qzdbf::read_number(n.text, f), n.ok);
        if (n.ok) {
            EXPECT_EQ(f.int_width, n.width);
            EXPECT_EQ(f.decimals, n.decimals);
        }
    }
    char out[9];
    EXPECT_TRUE(qzdbf::read_date("2024-02-29", false, out));
    EXPECT_STREQ(out, "20240229");
    EXPECT_FALSE(qzdbf::read_date("2023-02-29", false, out));
    EXPECT_TRUE(qzdbf::read_date("2000-02-29", false, out));
    EXPECT_FALSE(qzdbf::read_date("1900-02-29", false, out));
    EXPECT_FALSE(qzdbf::read_date("2024-13-01", false, out));
    EXPECT_FALSE(qzdbf::read_date("20240101", false, out));
    EXPECT_TRUE(qzdbf::read_date("20240101", true, out));
    EXPECT_FALSE(qzdbf::read_date("2024-1-01", true, out));
    EXPECT_EQ(qzdbf::read_logical("TRUE", false), 1);
    EXPECT_EQ(qzdbf::read_logical("f", false), 0);
    EXPECT_EQ(qzdbf::read_logical("Y", false), -1);
    EXPECT_EQ(qzdbf::read_logical("Y", true), 1);
    EXPECT_EQ(qzdbf::read_logical("0", true), 0);
    EXPECT_EQ(qzdbf::read_logical("yes", true), -1);
}

TEST(CsvTypes, ByteLengthsInTheTableEncoding) {
    const qzdbf::Text_measure utf8("UTF-8"), cp1251("CP1251"), cp866("CP866"), latin1("ISO-8859-1");
    EXPECT_TRUE(utf8.usable() && cp1251.usable() && cp866.usable() && latin1.usable());
    // Several bytes a character, or no such encoding: not for tables.
    EXPECT_FALSE(qzdbf::Text_measure("GBK").usable());
    EXPECT_FALSE(qzdbf::Text_measure("UTF-16LE").usable());
    EXPECT_FALSE(qzdbf::Text_measure("NO-SUCH-ONE").usable());
    EXPECT_EQ(latin1.bytes("M\xC3\xBCller"), 6);
    EXPECT_EQ(latin1.bytes("\xD0\x81"), -2);
    EXPECT_EQ(utf8.bytes(std::string_view("a\0b", 3)), -1);
    EXPECT_EQ(utf8.bytes("Ёлка"), 8);
    EXPECT_EQ(cp1251.bytes("Ёлка"), 4);
    EXPECT_EQ(cp866.bytes("Ёлка"), 4);
    EXPECT_EQ(cp1251.bytes("\xE2\x82\xAC"), 1);   // the euro sign is in CP1251
    EXPECT_EQ(cp866.bytes("\xE2\x82\xAC"), -2);   // but not in CP866
    EXPECT_EQ(cp1251.bytes("\xE4\xB8\xAD"), -2);  // nor is a CJK character
    EXPECT_EQ(utf8.bytes("\xE4\xB8\xAD"), 3);
    EXPECT_EQ(utf8.bytes("\xF0\x9F\x98\x80"), 4);
    for (const char* bad : {"\xFF", "a\xC3", "\xC0\xAF", "\xED\xA0\x80", "\xE2\x82"}) {
        EXPECT_EQ(utf8.bytes(bad), -1) << bad;
        EXPECT_EQ(cp1251.bytes(bad), -1) << bad;
    }
}

TEST(CsvTypes, ColumnInference) {
    struct Case {
        std::vector<std::string> cells;
        char type;
        unsigned length, decimals;
    };
    const std::vector<Case> cases = {
        {{"1", "-250", "", "33"}, 'N', 4, 0},
        {{"1.5", "-20", "3.125"}, 'N', 7, 3},  // "-20" needs 3 before the point
        {{"2024-01-31", "", "1999-12-01"}, 'D', 8, 0},
        {{"T", "false", "TRUE", ""}, 'L', 1, 0},
        {{"T", "1"}, 'C', 1, 0},                   // a logical and a number: text
        {{"", ""}, 'C', 1, 0},                     // nothing but blanks
        {{"007", "12"}, 'C', 3, 0},                // leading zeros stay text
        {{"1234567890123456", "1"}, 'C', 16, 0},   // 16 digits: text
        {{"123456789012345", "0.5"}, 'N', 17, 1},  // 15 digits still a number
        {{"2024-01-31", "x"}, 'C', 10, 0},
        {{"Ёлка", "ab"}, 'C', 8, 0},  // UTF-8 bytes as measured
    };
    for (const Case& c : cases) {
        qzdbf::Column_guess g;
        const qzdbf::Text_measure m("UTF-8");
        for (const auto& s : c.cells) g.add(s, static_cast<size_t>(m.bytes(s)));
        SCOPED_TRACE(c.cells[0]);
        EXPECT_EQ(g.type(), c.type);
        EXPECT_EQ(g.length(), c.length);
        EXPECT_EQ(g.decimals(), c.decimals);
    }
}

TEST(CsvTypes, ValuesAgainstGivenFields) {
    struct Case {
        const char* cell;
        char type;
        unsigned length, decimals;
        bool fits;
    };
    for (const Case& c : std::vector<Case>{{"12345", 'N', 5, 0, true},
                                           {"123456", 'N', 5, 0, false},
                                           {"1.25", 'N', 6, 2, true},
                                           {"1.255", 'N', 6, 2, false},  // no silent rounding
                                           {"1234", 'N', 6, 2, false},   // 1234.00 is 7
                                           {"x", 'N', 6, 2, false},
                                           {"2147483647", 'I', 4, 0, true},
                                           {"2147483648", 'I', 4, 0, false},
                                           {"20240229", 'D', 8, 0, true},
                                           {"2024-02-30", 'D', 8, 0, false},
                                           {"y", 'L', 1, 0, true},
                                           {"maybe", 'L', 1, 0, false},
                                           {"abc", 'C', 3, 0, true},
                                           {"abcd", 'C', 3, 0, false},
                                           {"", 'N', 1, 0, true}}) {
        std::string why;
        EXPECT_EQ(qzdbf::value_fits(c.cell, std::string(c.cell).size(), c.type, c.length,
                                    c.decimals, why),
                  c.fits)
            << c.cell << " " << c.type;
        EXPECT_EQ(why.empty(), c.fits) << why;
    }
}

TEST(Progress, Line) {
    const std::string line = qzdbf::Progress::render("import", 250000, 1000000, "records", 2.0, 79);
    EXPECT_NE(line.find(" 25%"), std::string::npos) << line;
    EXPECT_NE(line.find("250,000/1,000,000 records, 125,000/s"), std::string::npos) << line;
    // A quarter of the bar is filled.
    const size_t open = line.find('['), close = line.find(']');
    ASSERT_NE(close, std::string::npos) << line;
    const std::string bar = line.substr(open + 1, close - open - 1);
    EXPECT_EQ(bar.find_first_not_of('#'), bar.size() / 4) << line;
    EXPECT_EQ(bar.find_first_not_of('.', bar.size() / 4), std::string::npos) << line;
    EXPECT_LE(line.size(), 79u);
    // Without a total: the count and the rate only.
    EXPECT_EQ(qzdbf::Progress::render("check", 1234, 0, "files", 0.5, 79),
              "check  1,234 files, 2,468/s");
}

}  // namespace
