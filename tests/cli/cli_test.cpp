// qzdbf's command line: help, version and usage errors (exit status 2);
// set and get; dump and get: record choice (--where, --limit), field choice
// (--fields), the forms (columns, --vertical, --csv, --json), streaming into
// a pipe that closes early, the pager, and every corpus table as JSON Lines.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>

#ifdef QZ_HAVE_JSON
#include <nlohmann/json.hpp>
#endif

#include "cli_run.h"

namespace {

using namespace qz_cli;

// Each command a person needs is listed and has its own help, which tells
// the exit statuses; the version is the library's.
TEST(CliArgs, HelpForEveryCommandAndWrongArgumentsNamed) {
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
    // Wrong arguments are named, with exit status 2.
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
        EXPECT_TRUE(c.out.empty() ? r.out.empty() : r.out.find(c.out) != std::string::npos)
            << c.set << ": " << r.out;
        // A blank cell has no value: status 1.
        const size_t bar = c.get.find('|');
        const std::string value = c.get.substr(bar + 1);
        const Outcome g = qzdbf("get " + t + " " + c.get.substr(0, bar));
        EXPECT_EQ(g.status, value.empty() ? 1 : 0) << c.set;
        EXPECT_EQ(g.out, value.empty() ? "qzdbf: the cell holds no value\n" : value + "\n")
            << c.set;
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

// NAME C12, AGE N4, PAY N8.2, DAY D, OK L; record 3 is marked deleted and
// record 2 has only a name and an age.
class People : public ::testing::Test {
  protected:
    void SetUp() override {
        path = dir.file("people.dbf");
        q = qz_cli::quoted(path);
        write_text(
            dir.file("p.csv"),
            "NAME,AGE,PAY,DAY,OK\nAnna,30,1500.50,20200115,T\nbob,7,12,19991231,F\n"
            "Ёжик,120,,,\nAnna Maria,45,99.99,20210601,T\n\"zed, \"\"z\"\"\",9,3.5,20200115,F\n");
        const std::string fields = "NAME:C:12,AGE:N:4,PAY:N:8:2,DAY:D:8,OK:L:1 ";
        ASSERT_EQ(
            qzdbf("import --quiet --fields " + fields + quoted(dir.file("p.csv")) + " " + q).status,
            0);
        Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), false, false);
        ASSERT_TRUE(t && qz_dbf_set_deleted(t, 3, true));
        qz_dbf_close(t);
    }
    qz_test::Temp_dir dir;
    std::string path, q;
};

TEST_F(People, WhereComparesByTheFieldsType) {
    // Condition(s) and the names of the records that meet them, in order.
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"--where NAME=Anna", "Anna"},
        {"--where NAME=anna", ""},
        {"-i --where NAME=anna", "Anna"},
        {"--where NAME!=Anna", "bob,Ёжик,Anna Maria,zed, \"z\""},
        {"--where NAME~Ann", "Anna,Anna Maria"},
        {"--where NAME~ЁЖ", ""},
        {"-i --where NAME~ЁЖ", "Ёжик"},
        {"--where 'NAME>b'", "bob,Ёжик,zed, \"z\""},  // in Unicode's order
        // Numbers as numbers: as text "120" < "30" and "7" > "45".
        {"--where 'AGE<10'", "bob,zed, \"z\""},
        {"--where 'AGE>=45'", "Ёжик,Anna Maria"},
        {"--where AGE=7.0", "bob"},
        {"--where 'PAY>12'", "Anna,Anna Maria"},
        {"--where PAY=", "Ёжик"},
        // Dates as dates, in either spelling; a blank date meets no order.
        {"--where 'DAY<2020-02-01'", "Anna,bob,zed, \"z\""},
        {"--where DAY=20200115", "Anna,zed, \"z\""},
        {"--where DAY!=2020-01-15", "bob,Ёжик,Anna Maria"},
        {"--where OK=T", "Anna,Anna Maria"},
        {"--where OK=false", "bob,zed, \"z\""},
        {"--where NAME~a --where 'AGE>10'", "Anna,Anna Maria"},
        {"--where 'AGE>0' --limit 2", "Anna,bob"},
    };
    for (const auto& [where, names] : cases) {
        const Outcome r = qzdbf("get " + q + " NAME " + where);
        std::string got = std::to_string(r.status);
        for (const std::string& line : lines_of(r.out)) got += (got.size() > 1 ? "," : "") + line;
        EXPECT_EQ(got, "0" + names) << where;
        // dump picks the same records.
        const Outcome d = qzdbf("dump --csv --fields NAME " + q + " " + where);
        EXPECT_EQ(lines_of(d.out).size(), 1 + lines_of(r.out).size()) << where << d.out;
    }
    EXPECT_EQ(qzdbf("dump --csv --skip-deleted --fields 0 " + q + " --where NAME~Anna").out,
              "NAME,deleted\r\nAnna,false\r\n");
}

// Every form carries typed values: blanks empty or null, the deletion mark
// as a column, a key or a star; columns take their widths from the fields,
// whatever the data; --fields picks and orders.
TEST_F(People, FormsCarryTypedValuesAndMemoText) {
    EXPECT_EQ(qzdbf("dump --csv --from 2 --limit 2 " + q).out,
              "NAME,AGE,PAY,DAY,OK,deleted\r\nЁжик,120,,,,false\r\n"
              "Anna Maria,45,99.99,2021-06-01,true,true\r\n");
    EXPECT_EQ(qzdbf("dump --csv --fields AGE,name --limit 1 " + q).out,
              "AGE,NAME,deleted\r\n30,Anna,false\r\n");
    EXPECT_EQ(qzdbf("dump --vertical --fields NAME,DAY,OK --from 1 --limit 2 " + q).out,
              "NAME: bob\nDAY: 1999-12-31\nOK: F\n\nNAME: Ёжик\nDAY: \nOK: \n");
    EXPECT_EQ(qzdbf("get --vertical --fields NAME,AGE,PAY,DAY,OK " + q + " 4").out,
              "NAME: zed, \"z\"\nAGE: 9\nPAY: 3.50\nDAY: 2020-01-15\nOK: F\n");
    EXPECT_EQ(qzdbf("dump " + q + " --limit 3").out,
              "  #  NAME           AGE       PAY  DAY         OK\n"
              "  -  ------------  ----  --------  ----------  --\n"
              "  0  Anna            30   1500.50  2020-01-15  T\n"
              "  1  bob              7     12.00  1999-12-31  F\n"
              "  2  Ёжик           120\n");
    EXPECT_NE(qzdbf("dump " + q).out.find("* 3  Anna Maria"), std::string::npos);
    // JSON Lines: numbers as the field shows them, the keys in the fields'
    // order (or --fields' order).
    EXPECT_EQ(
        qzdbf("dump --json " + q).out,
        "{\"NAME\": \"Anna\", \"AGE\": 30, \"PAY\": 1500.50, \"DAY\": \"2020-01-15\", "
        "\"OK\": true}\n"
        "{\"NAME\": \"bob\", \"AGE\": 7, \"PAY\": 12.00, \"DAY\": \"1999-12-31\", \"OK\": false}\n"
        "{\"NAME\": \"Ёжик\", \"AGE\": 120, \"PAY\": null, \"DAY\": null, \"OK\": null}\n"
        "{\"NAME\": \"Anna Maria\", \"AGE\": 45, \"PAY\": 99.99, \"DAY\": \"2021-06-01\", "
        "\"OK\": true, \"_deleted\": true}\n"
        "{\"NAME\": \"zed, \\\"z\\\"\", \"AGE\": 9, \"PAY\": 3.50, \"DAY\": \"2020-01-15\", "
        "\"OK\": false}\n");
    EXPECT_EQ(lines_of(qzdbf("dump --json --fields OK,NAME " + q).out)[0],
              "{\"OK\": true, \"NAME\": \"Anna\"}");
    // Memo text in every form.
    const std::string sample = "'" QZ_EXAMPLES_DIR "/sample.dbf'";
    EXPECT_EQ(qzdbf("dump --csv --fields NAME,NOTES --limit 1 " + sample).out,
              "NAME,NOTES,deleted\r\nИванов Иван Иванович,\"Руководитель отдела продаж.\n"
              "Любит шахматы и длинные прогулки.\",false\r\n");
    EXPECT_EQ(qzdbf("dump --json --fields NOTES --from 2 --count 2 " + sample).out,
              "{\"NOTES\": \"Ведущий инженер; отвечает за склад, логистику, закупки и "
              "отчётность.\"}\n{\"NOTES\": null}\n");
    EXPECT_EQ(qzdbf("dump --json --raw --fields NOTES --limit 1 " + sample).out,
              "{\"NOTES\": 1}\n");
    // The aligned view keeps a record on one line and cuts long memos.
    const std::string rows = qzdbf("dump " + sample + " --count 1").out;
    EXPECT_NE(rows.find("Руководитель отдела продаж. Любит шахма…\n"), std::string::npos) << rows;
    EXPECT_EQ(std::count(rows.begin(), rows.end(), '\n'), 3) << rows;
}

// The processor time `dump | head -3` may take beyond what starting the
// tool takes (processor time, not wall time: the machine may be busy).
#ifdef QZ_SANITIZED
constexpr double kHeadMs = 250;  // the sanitizers check every access
#else
constexpr double kHeadMs = 50;
#endif

// The least processor time of two runs of a shell command, in milliseconds.
double best_ms(const std::string& command, std::string* out, int* status) {
    const auto ms = [](const rusage& u) {
        return (u.ru_utime.tv_sec + u.ru_stime.tv_sec) * 1e3 +
               (u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e3;
    };
    double best = 1e9;
    for (int i = 0; i < 2; ++i) {
        rusage a{}, b{};
        getrusage(RUSAGE_CHILDREN, &a);
        *status = qz_test::run(command, out);
        getrusage(RUSAGE_CHILDREN, &b);
        best = std::min(best, ms(b) - ms(a));
    }
    return best;
}

TEST(Big, OutputStreamsAndAClosedPipeEndsQuietly) {
    // 1,000,000 records (ID N8, NAME C20, DAY D8): their bytes appended to
    // the header of an empty table.
    qz_test::Temp_dir dir;
    const std::string path = dir.file("big.dbf");
    ASSERT_EQ(qzdbf("create " + quoted(path) + " ID:N:8 NAME:C:20 DAY:D:8").status, 0);
    std::vector<uint8_t> b = qz_test::read_bytes(path);
    if (b.back() == 0x1A) b.pop_back();
    for (int k = 0; k < 4; ++k) b[4 + k] = 1000000 >> 8 * k & 0xFF;
    char rec[64];
    for (unsigned r = 0; r < 1000000; ++r) {
        std::snprintf(rec, sizeof rec, " %8u%-20s%04u%02u%02u", r,
                      ("name " + std::to_string(r % 1000)).c_str(), 1990 + r % 30, 1 + r % 12,
                      1 + r % 28);
        b.insert(b.end(), rec, rec + 37);
    }
    b.push_back(0x1A);
    qz_test::write_bytes(path, b);
    // The command (PATH stands for the table) and how its output starts.
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"dump PATH", "       #        ID  NAME"},
        {"dump --csv PATH", "ID,NAME,DAY,deleted"},
        {"dump --json PATH", "{\"ID\": 0, \"NAME\": \"name 0\", \"DAY\": \"1990-01-01\"}"},
        {"get PATH NAME --where 'ID>=0'", "name 0"},
    };
    // What starting the tool costs (its libraries, the sanitizers) is not
    // the dump's.
    std::string ignored;
    int status = -1;
    const double start_ms =
        best_ms("LC_ALL=C.UTF-8 '" QZDBF_EXE "' --version | head -3", &ignored, &status);
    for (const auto& [command, first] : cases) {
        std::string args = command, out;
        args.replace(args.find("PATH"), 4, "'" + path + "'");
        // pipefail: the status is qzdbf's, and its messages come along. Not
        // a terminal: never the pager.
        const double ms = best_ms(
            "bash -c \"set -o pipefail; PAGER='sed s/^/paged:/' "
            "LC_ALL=C.UTF-8 '" QZDBF_EXE "' " +
                args + " 2>&1 | head -3\"",
            &out, &status);
        EXPECT_EQ(status, 0) << command << ": " << out;
        EXPECT_EQ(lines_of(out).size(), 3u) << command << ": " << out;
        EXPECT_EQ(out.rfind(first, 0), 0u) << command << ": " << out;
        EXPECT_EQ(out.find("qzdbf:"), std::string::npos) << out;
        EXPECT_LT(ms - start_ms, kHeadMs) << command << ": " << ms << " ms, start " << start_ms;
    }
    // The end of the table comes too, in order.
    EXPECT_EQ(qzdbf("dump --csv --from 999998 " + qz_cli::quoted(path)).out,
              "ID,NAME,DAY,deleted\r\n999998,name 998,1998-03-07,false\r\n"
              "999999,name 999,1999-04-08,false\r\n");
    // On a terminal (script's), long output goes through $PAGER, short does not.
    for (const int limit : {100, 3}) {
        if (qz_test::run("command -v script >/dev/null") != 0) break;
        std::string out;
        qz_test::run("script -qec \"PAGER='sed s/^/paged:/' LC_ALL=C.UTF-8 '" QZDBF_EXE
                     "' dump --limit " +
                         std::to_string(limit) + " '" + path + "'\" /dev/null",
                     &out);
        EXPECT_EQ(out.find(limit == 100 ? "paged:       #" : "paged:") != std::string::npos,
                  limit == 100)
            << out.substr(0, 200);
        EXPECT_NE(out.find("name 2"), std::string::npos) << out.substr(0, 200);
    }
}

// Every corpus table that other readers read gives JSON Lines: one object a
// record the library reads, the records not deleted as many as python's
// dbfread counts (where its count is not thrown off by odd deletion flags).
TEST(CliCorpus, JsonLinesOfEveryReadableTable) {
    std::ifstream manifest(QZ_CORPUS_DIR "/MANIFEST.tsv");
    if (!manifest) GTEST_SKIP() << "no corpus";
    std::string line;
    int tables = 0;
    for (std::getline(manifest, line); std::getline(manifest, line);) {
        std::vector<std::string> col;
        std::istringstream in(line);
        for (std::string c; std::getline(in, c, '\t');) col.push_back(c);
        if (col.size() < 12 || col[10].rfind("ok ", 0) != 0) continue;
        const std::string table = QZ_CORPUS_DIR "/" + col[0];
        Outcome r;  // standard output only
        r.status = qz_test::run(
            "LC_ALL=C.UTF-8 '" QZDBF_EXE "' dump --json '" + table + "' 2>/dev/null", &r.out);
        if (r.status == 2) continue;  // refused by the check (e.g. a table without fields)
        EXPECT_EQ(r.status, 0) << col[0];
        unsigned long held = 0, live = 0;
        Tqz_dbf_rw* t = qz_dbf_open(table.c_str(), true, false);
        ASSERT_NE(t, nullptr) << col[0];
        while (held < qz_dbf_get_nr(t) && qz_dbf_get_deleted(t, static_cast<unsigned>(held)) >= 0)
            ++held;
        qz_dbf_close(t);
        const std::vector<std::string> lines = lines_of(r.out);
        for (const std::string& l : lines) {
            live += l.find("\"_deleted\": true}") == std::string::npos;
#ifdef QZ_HAVE_JSON
            EXPECT_TRUE(nlohmann::json::accept(l)) << col[0] << ": " << l;
#endif
        }
        EXPECT_EQ(lines.size(), held) << col[0];
        if (col[11].find("delet") == std::string::npos) {
            EXPECT_EQ(live, std::stoul(col[10].substr(3))) << col[0];
        }
        ++tables;
    }
    EXPECT_GT(tables, 20);
}

}  // namespace
