// The tool over bad files and bad values: exit statuses, reasons, and files
// left byte for byte (and modification time) as they were.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <iostream>
#include <map>
#include <sstream>
#include <string>

#include "bad_files.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

using qz_test::read_bytes;
using qz_test::Temp_dir;
using qz_test::write_bytes;

struct Tool_run {
    int status;
    std::string out;  // standard output and error
};

Tool_run qzdbf(const std::string& args, const std::string& input = "") {
    Tool_run r;
    std::string command = "LC_ALL=C.UTF-8 '" QZDBF_EXE "' " + args + " 2>&1";
    if (!input.empty()) command = "printf '" + input + "' | " + command;
    r.status = qz_test::run(command, &r.out);
    return r;
}

int64_t mtime_ns(const std::string& path) {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) return -1;
    return static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
}

std::string quoted(const std::string& path) {
    return "'" + path + "'";
}

// The first line of the output that is a message of the tool.
std::string reason(const std::string& out) {
    std::istringstream lines(out);
    std::string line;
    while (std::getline(lines, line))
        if (line.rfind("qzdbf: ", 0) == 0) return line.substr(7);
    return "";
}

TEST(ToolMatrix, BadFilesAreRefusedWithAReasonAndLeftUntouched) {
    Temp_dir dir;
    std::vector<qz_safe::Bad_file> files = qz_safe::make_bad_files(dir);
    // Another writer holds the "locked" table for the whole run.
    Tqz_dbf_rw* holder = qz_dbf_open(dir.file("locked.dbf").c_str(), false, false);
    ASSERT_NE(holder, nullptr);

    struct Command {
        const char* name;
        std::string args;  // PATH is replaced
        std::string input;
        bool writes;
    };
    const std::vector<Command> commands = {
        {"info", "info PATH", "", false},       {"info --force", "info --force PATH", "", false},
        {"dump", "dump PATH", "", false},       {"get", "get PATH 0 0", "", false},
        {"set", "set PATH 0 0 x", "", true},    {"append", "append PATH", "", true},
        {"edit", "edit PATH", "quit\\n", true}, {"watch", "watch PATH", "", false},
        {"check", "check PATH", "", false},     {"create", "create PATH A:C:5", "", true},
    };
    std::ostringstream matrix;
    matrix << "file                 | ";
    for (const Command& c : commands) matrix << c.name << " | ";
    matrix << "\n";
    std::map<std::string, std::string> reasons;
    for (const qz_safe::Bad_file& b : files) {
        const bool folder = b.name == "folder.dbf";
        const std::vector<uint8_t> bytes = folder ? std::vector<uint8_t>() : read_bytes(b.path);
        const int64_t mtime = mtime_ns(b.path);
        matrix << b.name << std::string(20 - std::min<size_t>(20, b.name.size()), ' ') << " | ";
        for (const Command& c : commands) {
            std::string args = c.args;
            args.replace(args.find("PATH"), 4, quoted(b.path));
            // watch refuses a file that is no table at once, and otherwise
            // runs until it is stopped (its status is then not checked).
            if (std::string(c.name) == "watch")
                args = std::string("--help >/dev/null; timeout -s INT ") +
                       (b.severity == QZ_DBF_SEV_FATAL ? "20" : "0.2") + " '" QZDBF_EXE "' " + args;
            Tool_run r = qzdbf(args, c.input);
            matrix << r.status << " | ";
            const std::string why = reason(r.out);
            if (!why.empty() && r.status != 0) reasons[b.name + " / " + c.name] = why;
            const std::string where = b.name + " / " + c.name + ": " + r.out;
            if (std::string(c.name) == "info --force") {
                // Read anyway, read-only, with the reason as a warning; a
                // folder is still no file.
                EXPECT_EQ(r.status, folder ? 2 : 0) << where;
                if (b.severity == QZ_DBF_SEV_FATAL && !folder) {
                    EXPECT_NE(r.out.find("read anyway (--force)"), std::string::npos) << where;
                }
            } else if (b.severity == QZ_DBF_SEV_FATAL) {
                // Not a table: refused by every command, the reason given;
                // check reports it.
                EXPECT_EQ(r.status, std::string(c.name) == "check" ? 1 : 2) << where;
                EXPECT_NE(r.out.find(std::string(c.name) == "create" ? "already exists" : b.reason),
                          std::string::npos)
                    << where;
            } else if (b.name == "locked.dbf" || b.name == "read_only.dbf") {
                // Reading works; writing is an I/O failure (3).
                if (std::string(c.name) != "watch") {
                    const int expected = std::string(c.name) == "create" ? 2 : c.writes ? 3 : 0;
                    EXPECT_EQ(r.status, expected) << where;
                }
            } else {
                // Damaged but readable: read with a warning, never written.
                if (c.writes) {
                    EXPECT_EQ(r.status, 2) << where;
                } else if (std::string(c.name) == "check") {
                    EXPECT_EQ(r.status, 1) << where;
                } else if (std::string(c.name) != "watch") {
                    EXPECT_EQ(r.status, 0) << where;
                    EXPECT_NE(r.out.find("warning: "), std::string::npos) << where;
                }
            }
            if (!folder) {
                EXPECT_EQ(read_bytes(b.path), bytes) << where;
            }
            EXPECT_EQ(mtime_ns(b.path), mtime) << where;
            if (b.name != "locked.dbf") {
                EXPECT_FALSE(qz_test::exists(b.path + ".lk")) << where;
            }
        }
        matrix << "\n";
    }
    qz_dbf_close(holder);
    std::cout << matrix.str();
    for (const auto& [k, v] : reasons) std::cout << k << ": " << v << "\n";
}

TEST(ToolMatrix, WrongValuesAreRefusedAndTheTableStaysAsItWas) {
    Temp_dir dir;
    const std::string path = dir.file("values.dbf");
    ASSERT_EQ(qzdbf("create " + quoted(path) +
                    " C:C:5 N:N:6:2 F:F:8:3 L:L:1 D:D:8 I:I:4 M:M:10 --records 2")
                  .status,
              0);
    ASSERT_TRUE(qz_test::exists(dir.file("values.dbt")));
    ASSERT_EQ(qzdbf("set " + quoted(path) + " C 0 abc").status, 0);
    // Per type, values the tool's reading of that type must refuse.
    const std::map<std::string, std::vector<std::string>> wrong = {
        {"C", {"abcdef", "日本"}},
        {"N", {"abc", "1e99", "12345", "0x10"}},
        {"F", {"x", "1e30", "nan"}},
        {"L", {"maybe", "yess"}},
        {"D", {"2023-02-30", "20231301", "31.12.2024"}},
        {"I", {"2147483648", "-2147483649", "1.5"}},
        {"M", {"hello", "1"}},
    };
    const std::vector<uint8_t> before = read_bytes(path);
    const std::vector<uint8_t> memo_before = read_bytes(dir.file("values.dbt"));
    const int64_t mtime = mtime_ns(path);
    int refused = 0;
    for (const auto& [field, values] : wrong) {
        for (const std::string& v : values) {
            Tool_run r = qzdbf("set " + quoted(path) + " " + field + " 1 '" + v + "'");
            EXPECT_EQ(r.status, 2) << field << " " << v << ": " << r.out;
            // The message names field, record, value and reason.
            EXPECT_NE(r.out.find("field " + field + ", record 1: '" + v + "' refused: "),
                      std::string::npos)
                << r.out;
            refused += r.status == 2;
        }
    }
    EXPECT_EQ(read_bytes(path), before);
    EXPECT_EQ(read_bytes(dir.file("values.dbt")), memo_before);
    EXPECT_EQ(mtime_ns(path), mtime);
    std::cout << refused << " wrong values refused, table byte-identical\n";

    // What fits goes in, in the field's layout.
    for (const auto& [field, value, stored] :
         std::vector<std::tuple<std::string, std::string, std::string>>{
             {"N", "-12,5", "-12.50"},
             {"L", "yes", "T"},
             {"D", "2024-02-29", "20240229"},
             {"I", "-2147483648", "-2147483648"},
             {"C", "Щука", "Щука"}}) {
        EXPECT_EQ(qzdbf("set " + quoted(path) + " " + field + " 0 '" + value + "'").status, 0);
        EXPECT_EQ(qzdbf("get " + quoted(path) + " " + field + " 0").out, stored + "\n") << field;
    }
    // --truncate cuts between characters: "Ёжик" is 4 bytes in CP1251.
    EXPECT_EQ(qzdbf("set --truncate " + quoted(path) + " C 1 'Ёжики-ёжики'").status, 0);
    EXPECT_EQ(qzdbf("get " + quoted(path) + " C 1").out, "Ёжики\n");
}

}  // namespace

namespace {}  // namespace
