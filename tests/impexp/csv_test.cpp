// The CSV reader against RFC 4180 and the usual departures from it, the
// value forms import reads, column inference and the progress line.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "csv_reader.h"
#include "csv_types.h"

namespace {

using Rows = std::vector<std::vector<std::string>>;

TEST(CsvReader, Rfc4180Cases) {
    // Name, text, rows, a part of the error message (or null).
    // clang-format off
    struct Case { const char* name; std::string text; Rows rows; const char* error; };
    const std::vector<Case> cases = {
        {"plain", "a,b\n1,2\n", {{"a", "b"}, {"1", "2"}}, nullptr},
        {"crlf", "a,b\r\n1,2\r\n", {{"a", "b"}, {"1", "2"}}, nullptr},
        {"no final newline", "a,b\n1,2", {{"a", "b"}, {"1", "2"}}, nullptr},
        {"empty cells", ",\n,x,\n", {{"", ""}, {"", "x", ""}}, nullptr},
        {"quoted comma", "\"a,b\",c\n", {{"a,b", "c"}}, nullptr},
        {"doubled quotes", "\"say \"\"hi\"\"\",x\n", {{"say \"hi\"", "x"}}, nullptr},
        {"only a doubled quote", "\"\"\"\"\n", {{"\""}}, nullptr},
        {"empty quoted", "\"\",\"\"\n", {{"", ""}}, nullptr},
        {"newline inside quotes", "\"two\nlines\",x\r\ny,z\n", {{"two\nlines", "x"}, {"y", "z"}}, nullptr},
        {"crlf inside quotes kept", "\"a\r\nb\"\r\n", {{"a\r\nb"}}, nullptr},
        {"quote inside unquoted cell kept", "ab\"c,d\n", {{"ab\"c", "d"}}, nullptr},
        {"byte order mark skipped", "\xEF\xBB\xBFid,x\n", {{"id", "x"}}, nullptr},
        {"cr alone is text", "a\rb,c\n", {{"a\rb", "c"}}, nullptr},
        {"blank line is one empty cell", "a\n\nb\n", {{"a"}, {""}, {"b"}}, nullptr},
        {"quoted last cell at end of input", "a,\"b\"", {{"a", "b"}}, nullptr},
        {"unclosed quote", "a\n\"open,x\ny\n", {{"a"}}, "line 2: a quoted cell is not closed"},
        {"text after closing quote", "x\n\"a\"b,c\n", {{"x"}}, "line 2: text after the closing"},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Rows rows;
        std::string error;
        EXPECT_EQ(qzdbf::parse_csv_text(c.text, ',', rows, error), c.error == nullptr) << error;
        EXPECT_TRUE(!c.error || error.find(c.error) != std::string::npos) << error;
        EXPECT_EQ(rows, c.rows);
    }
}

TEST(CsvReader, LongRecordsLineNumbersAndRewind) {
    // Records longer than the reader's buffer, quotes across its edge, and
    // the line each record begins on.
    std::string big(3 << 20, 'x');
    std::string text = "h1,h2\n\"" + big + "\"\"q\",\"multi\nline\"\nlast,\"\"\n";
    std::FILE* f = std::tmpfile();
    ASSERT_TRUE(f && std::fwrite(text.data(), 1, text.size(), f) == text.size());
    std::rewind(f);
    qzdbf::Csv_reader reader(f);
    for (int pass = 0; pass < 2; ++pass) {
        std::vector<std::string_view> cells;
        ASSERT_TRUE(reader.next(cells) && reader.line() == 1u);
        ASSERT_TRUE(reader.next(cells) && reader.line() == 2u && cells.size() == 2u);
        EXPECT_TRUE(cells[0].size() == big.size() + 2 && cells[0].substr(big.size()) == "\"q");
        EXPECT_TRUE(cells[1] == "multi\nline" && cells[1].data()[cells[1].size()] == '\0');
        ASSERT_TRUE(reader.next(cells) && reader.line() == 4u);
        EXPECT_EQ(cells, (std::vector<std::string_view>{"last", ""}));
        EXPECT_TRUE(!reader.next(cells) && reader.error().empty() &&
                    reader.position() == text.size());
        ASSERT_TRUE(reader.rewind());
    }
    std::fclose(f);
}

TEST(CsvTypes, ColumnInferenceAndGivenFields) {
    // clang-format off
    struct Guess { std::vector<std::string> cells; char type; unsigned length, decimals; };
    const std::vector<Guess> guesses = {
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
        {{"-0", "1"}, 'C', 2, 0},     // "-0" is no number a table would give back
        {{"1.", "2"}, 'C', 2, 0},
        {{"TRUE", "y"}, 'C', 4, 0},  // Y/N only where given fields say L
    };
    // clang-format on
    for (const Guess& c : guesses) {
        qzdbf::Column_guess g;
        const qzdbf::Text_measure m("UTF-8");
        for (const auto& s : c.cells) g.add(s, static_cast<size_t>(m.bytes(s)));
        SCOPED_TRACE(c.cells[0]);
        EXPECT_EQ(std::tuple(g.type(), g.length(), g.decimals()),
                  std::tuple(c.type, c.length, c.decimals));
    }
    // Values against given fields: whether they fit, and why not.
    // clang-format off
    struct Case { const char* cell; char type; unsigned length, decimals; bool fits; };
    for (const Case& c : std::vector<Case>{
             {"12345", 'N', 5, 0, true},       {"123456", 'N', 5, 0, false},
             {"1.25", 'N', 6, 2, true},        {"1.255", 'N', 6, 2, false},  // no silent rounding
             {"1234", 'N', 6, 2, false},                                     // 1234.00 is 7
             {"x", 'N', 6, 2, false},          {"2147483647", 'I', 4, 0, true},
             {"2147483648", 'I', 4, 0, false}, {"20240229", 'D', 8, 0, true},
             {"2024-02-30", 'D', 8, 0, false}, {"2000-02-29", 'D', 8, 0, true},
             {"1900-02-29", 'D', 8, 0, false}, {"2024-13-01", 'D', 8, 0, false},
             {"-0.5", 'N', 4, 1, true},        {"+1", 'N', 4, 0, false},
             {"1e5", 'N', 4, 0, false},        {"y", 'L', 1, 0, true},
             {"maybe", 'L', 1, 0, false},      {"abc", 'C', 3, 0, true},
             {"abcd", 'C', 3, 0, false},       {"", 'N', 1, 0, true}}) {
        // clang-format on
        std::string why;
        EXPECT_EQ(qzdbf::value_fits(c.cell, std::strlen(c.cell), c.type, c.length, c.decimals, why),
                  c.fits)
            << c.cell << " " << c.type;
        EXPECT_EQ(why.empty(), c.fits) << why;
    }
}

}  // namespace
