// The qzdbf commands over the library: dump, get, set and append, with
// Cyrillic text in the terminal's encoding (UTF-8 here).
#include <gtest/gtest.h>

#include <algorithm>

#include <string>

#include "test_support.h"

namespace {

std::string qzdbf(const std::string& args, int* status = nullptr) {
    std::string out;
    int rc = qz_test::run("LC_ALL=C.UTF-8 '" QZDBF_EXE "' " + args + " 2>&1", &out);
    if (status) *status = rc;
    return out;
}

class Qzdbf : public ::testing::Test {
  protected:
    void SetUp() override {
        table = "'" + dir.file("people.dbf") + "'";
        int rc = -1;
        qzdbf("create " + table + " NAME:C:20 AGE:N:3 PAY:N:8:2 OK:L:1 DAY:D:8 --records 2", &rc);
        ASSERT_EQ(rc, 0);
    }
    qz_test::Temp_dir dir;
    std::string table;
};

TEST_F(Qzdbf, SetAndGetByNameOrIndex) {
    int rc = -1;
    EXPECT_EQ(qzdbf("set " + table + " NAME 0 'Ёлкин Пётр'", &rc), "");
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(qzdbf("get " + table + " name 0"), "Ёлкин Пётр\n");  // any letter case
    EXPECT_EQ(qzdbf("get " + table + " 0 0"), "Ёлкин Пётр\n");     // or the index
    // Numbers: a decimal comma is taken; the stored form is reported when it
    // differs from what was given.
    EXPECT_EQ(qzdbf("set " + table + " PAY 1 1234,5", &rc), "");
    EXPECT_EQ(qzdbf("get " + table + " PAY 1"), "1234.50\n");
    EXPECT_EQ(qzdbf("set " + table + " PAY 1 1.005", &rc), "qzdbf: stored as '1.00'\n");
    EXPECT_NE(qzdbf("set " + table + " AGE 1 12345", &rc).find("does not fit"), std::string::npos);
    // Dates as YYYY-MM-DD too.
    qzdbf("set " + table + " DAY 0 2024-02-29", &rc);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(qzdbf("get " + table + " DAY 0"), "20240229\n");
    // Text longer than the field is refused; --truncate cuts it.
    EXPECT_NE(qzdbf("set " + table + " NAME 1 'Абвгдеёжзийклмнопрстуф'", &rc).find("--truncate"),
              std::string::npos);
    EXPECT_EQ(rc, 2);
    EXPECT_EQ(qzdbf("set --truncate " + table + " NAME 1 'Абвгдеёжзийклмнопрстуф'", &rc),
              "qzdbf: cut to 20 of 22 characters\n");
    EXPECT_EQ(qzdbf("get " + table + " NAME 1"), "Абвгдеёжзийклмнопрст\n");
}

TEST_F(Qzdbf, RefusesWhatCannotBeRight) {
    int rc = -1;
    qzdbf("set " + table + " PAY 0 7", &rc);
    // A letter in a number: refused, and the cell keeps its value.
    EXPECT_NE(qzdbf("set " + table + " PAY 0 12x", &rc).find("'x' cannot be part of a number"),
              std::string::npos);
    EXPECT_EQ(rc, 2);
    EXPECT_EQ(qzdbf("get " + table + " PAY 0"), "7.00\n");
    EXPECT_NE(qzdbf("set " + table + " DAY 0 31.12.2024", &rc).find("YYYYMMDD"), std::string::npos);
    EXPECT_EQ(rc, 2);
    EXPECT_NE(qzdbf("get " + table + " NOPE 0", &rc).find("no field named 'NOPE'"),
              std::string::npos);
    EXPECT_EQ(rc, 2);
    EXPECT_NE(qzdbf("get " + table + " 9 0", &rc).find("out of range"), std::string::npos);
    EXPECT_NE(qzdbf("get " + table + " NAME 2", &rc).find("the table has 2 records"),
              std::string::npos);
    EXPECT_EQ(rc, 2);
    EXPECT_NE(qzdbf("get " + table + " AGE 0", &rc).find("no value"), std::string::npos);
    EXPECT_EQ(rc, 1);
    qzdbf("get '" + dir.file("missing.dbf") + "' A 0", &rc);
    EXPECT_EQ(rc, 2);
}

TEST_F(Qzdbf, DumpAsColumnsAndAsCsv) {
    qzdbf("set " + table + " NAME 0 'Щука, \"зубастая\"'");
    qzdbf("set " + table + " AGE 0 7");
    qzdbf("set " + table + " OK 0 T");
    qzdbf("set " + table + " NAME 1 Ёж");
    qzdbf("set " + table + " PAY 1 12.5");
    EXPECT_EQ(qzdbf("dump " + table),
              "  #  NAME                  AGE       PAY  OK  DAY\n"
              "  -  --------------------  ---  --------  --  ----------\n"
              "  0  Щука, \"зубастая\"        7            T\n"
              "  1  Ёж                            12.50\n");
    EXPECT_EQ(qzdbf("dump " + table + " --csv"),
              "NAME,AGE,PAY,OK,DAY,deleted\r\n"
              "\"Щука, \"\"зубастая\"\"\",7,,true,,false\r\n"
              "Ёж,,12.50,,,false\r\n");
    EXPECT_EQ(qzdbf("dump " + table + " --csv --from 1 --count 5"),
              "NAME,AGE,PAY,OK,DAY,deleted\r\nЁж,,12.50,,,false\r\n");
    EXPECT_EQ(qzdbf("dump " + table + " --csv --from 2"), "NAME,AGE,PAY,OK,DAY,deleted\r\n");
    int rc = -1;
    qzdbf("dump " + table + " --count", &rc);
    EXPECT_EQ(rc, 2);
}

TEST_F(Qzdbf, AppendAddsBlankRecords) {
    EXPECT_EQ(qzdbf("append " + table + " 3"), "added 3 blank records: records 2 to 4\n");
    EXPECT_EQ(qzdbf("append " + table), "added 1 blank record: records 5 to 5\n");
    qzdbf("set " + table + " NAME 5 last");
    EXPECT_EQ(qzdbf("get " + table + " NAME 5"), "last\n");
    EXPECT_NE(qzdbf("info " + table).find("records   6"), std::string::npos);
}

TEST(QzdbfSample, TheShippedSampleReads) {
    std::string sample = "'" QZ_EXAMPLES_DIR "/sample.dbf'";
    std::string info = qzdbf("info " + sample);
    EXPECT_NE(info.find("encoding  CP1251"), std::string::npos) << info;
    for (const char* type : {"  C ", "  N ", "  F ", "  L ", "  D ", "  I ", "  M "})
        EXPECT_NE(info.find(type), std::string::npos) << type;
    std::string csv = qzdbf("dump " + sample + " --csv");
    // Memo text comes from sample.dbt, converted from CP1251, whole and quoted
    // (it holds a line break) in CSV.
    EXPECT_NE(csv.find("Иванов Иван Иванович,Москва,1980-05-17,123456.78,0.125,true,2,"
                       "\"Руководитель отдела продаж.\nЛюбит шахматы и длинные прогулки.\","
                       "false\r\n"),
              std::string::npos)
        << csv;
    EXPECT_NE(csv.find("\"Smith, John \"\"Jack\"\"\",London"), std::string::npos) << csv;
    EXPECT_NE(csv.find(",true,1,,false\r\n"), std::string::npos) << "record 3 has no memo: " << csv;

    // The aligned view keeps a record on one line and cuts long memos.
    std::string rows = qzdbf("dump " + sample + " --count 1");
    EXPECT_NE(rows.find("Руководитель отдела продаж. Любит шахма…\n"), std::string::npos) << rows;
    EXPECT_EQ(std::count(rows.begin(), rows.end(), '\n'), 3) << rows;

    // --raw shows the block numbers the memo cells hold.
    std::string raw = qzdbf("dump " + sample + " --csv --raw --count 3");
    EXPECT_NE(raw.find(",true,2,1,false\r\n"), std::string::npos) << raw;
    EXPECT_NE(raw.find(",false,0,2,false\r\n"), std::string::npos) << raw;
}

}  // namespace
