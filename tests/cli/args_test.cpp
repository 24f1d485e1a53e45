// qzdbf's command line: help of every command, the version, and errors
// that name the wrong argument with exit status 2.
#include <gtest/gtest.h>

#include "cli_run.h"

namespace {

using namespace qz_cli;

// Each command a person needs is listed and has its own help, which tells
// the exit statuses; the version is the library's.
TEST(CliArgs, EveryCommandHasHelpWithItsOptions) {
    const Outcome top = qzdbf("--help");
    ASSERT_EQ(top.status, 0) << top.out;
    for (const std::string command : {"create", "info", "dump", "get", "set", "append", "edit",
                                      "alter", "pack", "delete", "names", "watch", "check"}) {
        EXPECT_NE(top.out.find("\n  " + command + " "), std::string::npos) << command;
        const Outcome r = qzdbf(command + " --help");
        EXPECT_EQ(r.status, 0) << command << ": " << r.out;
        EXPECT_NE(r.out.find("Usage: qzdbf " + command), std::string::npos) << r.out;
        EXPECT_NE(r.out.find("Exit status"), std::string::npos) << command;
    }
    EXPECT_NE(qzdbf("dump --help").out.find("--skip-deleted"), std::string::npos);
    for (const char* flag : {"--version", "-V"})
        EXPECT_EQ(qzdbf(flag).out, std::string("qzdbf ") + qz_dbf_version() + "\n");
}

TEST(CliArgs, WrongArgumentsAreNamedWithStatus2) {
    qz_test::Temp_dir dir;
    const std::string t = quoted(dir.file("t.dbf"));
    ASSERT_EQ(qzdbf("create " + t + " NAME:C:10 AGE:N:3 --records 2").status, 0);
    // The command line and what the message must name.
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", "Usage: qzdbf"},
        {"frobnicate " + t, "'frobnicate'"},
        {"dump", "PATH"},
        {"dump " + t + " --bogus", "--bogus"},
        {"dump " + t + " --limit many", "--limit"},
        {"dump " + t + " --from -3", "--from"},
        {"dump " + t + " --count", "--count"},
        {"dump " + t + " --csv --json", "--json"},
        {"dump " + t + " --fields NAME,NOPE", "NOPE"},
        {"dump " + t + " --where NOPE=1", "NOPE"},
        {"dump " + t + " --where NAME", "--where 'NAME'"},
        {"dump " + t + " --where 'AGE<old'", "'old' is not a number"},
        {"get " + t + " --where 'NAME!x'", "'!' must be followed by '='"},
        {"get " + t + " NAME", "get needs PATH FIELD RECORD"},
        {"set " + t + " NAME 0", "VALUE"},
        {"create " + t, "FIELD"},
        {"append " + t + " 1 2", "2"},
        {"alter " + t, "no alteration"},
        {"check", "PATH"},
        {"delete " + t, "RECORD"},
    };
    for (const auto& [args, named] : cases) {
        const Outcome r = qzdbf(args);
        EXPECT_EQ(r.status, 2) << args << ": " << r.out;
        EXPECT_NE(r.out.find(named), std::string::npos) << args << ": " << r.out;
    }
}

TEST(CliSet, ValuesAreConvertedReportedOrRefused) {
    qz_test::Temp_dir dir;
    const std::string t = "'" + dir.file("p.dbf") + "'";
    ASSERT_EQ(qzdbf("create " + t + " NAME:C:20 AGE:N:3 PAY:N:8:2 DAY:D:8 --records 2").status, 0);
    ASSERT_EQ(qzdbf("set " + t + " PAY 0 7").status, 0);
    // set's arguments, its status and output, and what get then reads
    // (PAY 0 keeps 7.00 through every refusal).
    struct Case {
        std::string set;
        int status;
        std::string out, get;
    };
    const Case cases[] = {
        {"NAME 0 'Ёлкин Пётр'", 0, "", "name 0|Ёлкин Пётр"},  // any letter case
        {"0 1 'Ёж'", 0, "", "NAME 1|Ёж"},                     // or the field's index
        {"PAY 1 1234,5", 0, "", "PAY 1|1234.50"},             // a decimal comma is taken
        {"PAY 1 1.005", 0, "qzdbf: stored as '1.00'", "PAY 1|1.00"},
        {"AGE 1 12345", 2, "does not fit", "AGE 1|"},
        {"PAY 0 12x", 2, "'x' cannot be part of a number", "PAY 0|7.00"},
        {"DAY 0 2024-02-29", 0, "", "DAY 0|20240229"},
        {"DAY 0 31.12.2024", 2, "YYYYMMDD", "DAY 0|20240229"},
        {"NAME 1 'Абвгдеёжзийклмнопрстуф'", 2, "--truncate", "NAME 1|Ёж"},
        {"--truncate NAME 1 'Абвгдеёжзийклмнопрстуф'", 0, "qzdbf: cut to 20 of 22 characters",
         "NAME 1|Абвгдеёжзийклмнопрст"},
        {"NOPE 0 1", 2, "no field named 'NOPE'", "PAY 0|7.00"},
        {"NAME 2 x", 2, "the table has 2 records", "PAY 0|7.00"},
    };
    for (const Case& c : cases) {
        const Outcome r = qzdbf("set " + t + " " + c.set);
        EXPECT_EQ(r.status, c.status) << c.set << ": " << r.out;
        if (c.out.empty()) {
            EXPECT_EQ(r.out, "") << c.set;
        }
        EXPECT_NE(r.out.find(c.out), std::string::npos) << c.set << ": " << r.out;
        // A blank cell has no value: status 1.
        const size_t bar = c.get.find('|');
        const std::string value = c.get.substr(bar + 1);
        const Outcome g = qzdbf("get " + t + " " + c.get.substr(0, bar));
        EXPECT_EQ(g.status, value.empty() ? 1 : 0) << c.set;
        if (!value.empty()) {
            EXPECT_EQ(g.out, value + "\n") << c.set;
        }
    }
    // Options go anywhere; a negative number is a value; -- ends the
    // options, so that a value may start with a dash.
    for (const char* set : {"AGE 0 -5", "NAME 0 -- -a"})
        EXPECT_EQ(qzdbf("set " + t + " " + set).status, 0);
    EXPECT_EQ(qzdbf("get --fields AGE,NAME " + t + " 0").out, "-5\t-a\n");
    // append adds blank records.
    EXPECT_EQ(qzdbf("append " + t + " 3").out, "added 3 blank records: records 2 to 4\n");
    EXPECT_EQ(qzdbf("append " + t).out, "added 1 blank record: records 5 to 5\n");
    const std::string info = qzdbf("info " + t).out;
    EXPECT_NE(info.find("records   6"), std::string::npos) << info;
    EXPECT_NE(info.find("dialect   dBASE III"), std::string::npos) << info;
}

}  // namespace
