// The tool over bad files and bad values: exit statuses, reasons, and files
// left byte for byte (and modification time) as they were.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>

#include "bad_files.h"

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

TEST(ToolMatrix, BadFilesAreRefusedWithAReasonAndLeftUntouched) {
    Temp_dir dir;
    std::vector<qz_safe::Bad_file> files = qz_safe::make_bad_files(dir);
    // Another writer holds the "locked" table for the whole run.
    Tqz_dbf_rw* holder = qz_dbf_open(dir.file("locked.dbf").c_str(), false, false);
    ASSERT_NE(holder, nullptr);
    // Command, arguments (PATH replaced), standard input, whether it writes.
    const std::vector<std::tuple<std::string, std::string, std::string, bool>> commands = {
        {"info", "info PATH", "", false},       {"info --force", "info --force PATH", "", false},
        {"dump", "dump PATH", "", false},       {"get", "get PATH 0 0", "", false},
        {"set", "set PATH 0 0 x", "", true},    {"append", "append PATH", "", true},
        {"edit", "edit PATH", "quit\\n", true}, {"watch", "watch PATH", "", false},
        {"check", "check PATH", "", false},     {"create", "create PATH A:C:5", "", true},
    };
    for (const qz_safe::Bad_file& b : files) {
        const bool folder = b.name == "folder.dbf", fatal = b.severity == QZ_DBF_SEV_FATAL;
        const std::vector<uint8_t> bytes = read_bytes(b.path);
        const int64_t mtime = mtime_ns(b.path);
        for (const auto& [name, command, input, writes] : commands) {
            std::string args = command;
            args.replace(args.find("PATH"), 4, quoted(b.path));
            // watch refuses a file that is no table at once, and otherwise
            // runs until it is stopped (its status is then not checked).
            if (name == "watch")
                args = std::string("--help >/dev/null; timeout -s INT ") + (fatal ? "20" : "0.2") +
                       " '" QZDBF_EXE "' " + args;
            const Tool_run r = qzdbf(args, input);
            const std::string where = b.name + " / " + name + ": " + r.out;
            if (name == "info --force") {
                // Read anyway, read-only, the reason as a warning; a folder
                // is still no file.
                EXPECT_EQ(r.status, folder ? 2 : 0) << where;
                if (fatal && !folder) {
                    EXPECT_NE(r.out.find("read anyway (--force)"), std::string::npos) << where;
                }
            } else if (fatal) {
                // Not a table: refused by every command, the reason given.
                EXPECT_EQ(r.status, name == "check" ? 1 : 2) << where;
                EXPECT_NE(r.out.find(name == "create" ? "already exists" : b.reason),
                          std::string::npos)
                    << where;
            } else if (b.name == "locked.dbf" || b.name == "read_only.dbf") {
                // Reading works; writing is an I/O failure (3).
                if (name != "watch") {
                    EXPECT_EQ(r.status, name == "create" ? 2 : writes ? 3 : 0) << where;
                }
            } else if (name != "watch") {
                // Damaged but readable: read with a warning, never written.
                EXPECT_EQ(r.status, writes ? 2 : name == "check" ? 1 : 0) << where;
                if (!writes && name != "check") {
                    EXPECT_NE(r.out.find("warning: "), std::string::npos) << where;
                }
            }
            EXPECT_EQ(read_bytes(b.path), bytes) << where;
            EXPECT_EQ(mtime_ns(b.path), mtime) << where;
            if (b.name != "locked.dbf") {
                EXPECT_FALSE(qz_test::exists(b.path + ".lk")) << where;
            }
        }
    }
    qz_dbf_close(holder);
}

TEST(ToolMatrix, WrongValuesAreRefusedAndTheTableStaysAsItWas) {
    Temp_dir dir;
    const std::string path = dir.file("values.dbf");
    ASSERT_EQ(qzdbf("create " + quoted(path) +
                    " C:C:5 N:N:6:2 F:F:8:3 L:L:1 D:D:8 I:I:4 M:M:10 --records 2")
                  .status,
              0);
    ASSERT_TRUE(qz_test::exists(dir.file("values.dbt")));
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
    for (const auto& [field, values] : wrong) {
        for (const std::string& v : values) {
            Tool_run r = qzdbf("set " + quoted(path) + " " + field + " 1 '" + v + "'");
            EXPECT_EQ(r.status, 2) << field << " " << v << ": " << r.out;
            // The message names field, record, value and reason.
            EXPECT_NE(r.out.find("field " + field + ", record 1: '" + v + "' refused: "),
                      std::string::npos)
                << r.out;
        }
    }
    EXPECT_EQ(read_bytes(path), before);
    EXPECT_EQ(read_bytes(dir.file("values.dbt")), memo_before);
    EXPECT_EQ(mtime_ns(path), mtime);
}

}  // namespace
