// qzdbf watch: a second process changes the table while the tool watches.
#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

using qz_test::Temp_dir;

std::string slurp(const std::string& path) {
    auto bytes = qz_test::read_bytes(path);
    return std::string(bytes.begin(), bytes.end());
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

TEST(WatchCommand, PrintsTheEventsOfAChangeUntilInterrupted) {
    Temp_dir dir;
    const std::string exe = QZDBF_EXE, table = dir.file("w.dbf");
    ASSERT_EQ(qz_test::run(exe + " create '" + table + "' ID:N:5"), 0);
    // The tool runs in the background; once it says it is watching, another
    // process rewrites the table, and the tool is stopped with SIGINT.
    const std::string script = "'" + exe + "' watch '" + table + "' >'" + dir.file("out") +
                               "' 2>'" + dir.file("err") +
                               "' & pid=$!\n"
                               "for i in $(seq 200); do grep -q watching '" +
                               dir.file("err") +
                               "' && break; sleep 0.05; done\n"
                               "'" +
                               exe + "' create --overwrite '" + table +
                               "' ID:N:6 NAME:C:4 >/dev/null\n"
                               "for i in $(seq 40); do grep -q end '" +
                               dir.file("out") +
                               "' && break; sleep 0.05; done\n"
                               "kill -INT $pid; wait $pid; echo $?\n";
    qz_test::write_bytes(dir.file("script"), std::vector<uint8_t>(script.begin(), script.end()));
    std::string status;
    ASSERT_EQ(qz_test::run("sh '" + dir.file("script") + "'", &status), 0);
    EXPECT_EQ(status, "0\n");  // the tool ended cleanly on SIGINT

    EXPECT_NE(slurp(dir.file("err")).find("watching " + table), std::string::npos);
    auto lines = lines_of(slurp(dir.file("out")));
    ASSERT_EQ(lines.size(), 3u) << slurp(dir.file("out"));
    const std::string stamp = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}  )";
    EXPECT_TRUE(std::regex_match(lines[0], std::regex(stamp + "begin"))) << lines[0];
    EXPECT_TRUE(std::regex_match(lines[1], std::regex(stamp + "update  count=1"))) << lines[1];
    EXPECT_TRUE(std::regex_match(lines[2], std::regex(stamp + "end"))) << lines[2];
}

}  // namespace
