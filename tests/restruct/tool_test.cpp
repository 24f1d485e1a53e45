// qzdbf alter, delete, pack, and edit's alter and delmask: what they print,
// what they leave in the file, what they refuse (with which exit status),
// and edit's changes as steps that undo takes back.
#include <gtest/gtest.h>

#include <filesystem>

#include "restruct_tables.h"

using namespace restruct_test;
namespace fs = std::filesystem;

namespace {

class Tool : public ::testing::Test {
  protected:
    void SetUp() override {
        for (const char* ext : {".dbf", ".dbt", ".cpg"})
            fs::copy_file(std::string(QZ_EXAMPLES_DIR "/sample") + ext, dir.file("t") + ext);
    }
    qz_test::Temp_dir dir;
    std::string file = dir.file("t.dbf");
    std::wstring path = dir.wfile("t.dbf");
};

TEST_F(Tool, AlterMakesSeveralChangesInOneRewrite) {
    const Rows before = cells(path);
    std::string out;
    ASSERT_EQ(qzdbf("alter " + file +
                        " --add EXTRA:N:8:2 --drop RATE --rename CITY=TOWN --retype NAME:C:40"
                        " --move NOTES=0 --rename extra=MORE",
                    &out),
              0)
        << out;
    for (const char* part : {"old layout", "new layout", "CITY", "TOWN"})
        EXPECT_NE(out.find(part), std::string::npos) << part;
    EXPECT_EQ(layout(path),
              "NOTES:M:10:0,NAME:C:40:0,TOWN:C:20:0,BORN:D:8:0,SALARY:N:12:2,ACTIVE:L:1:0,"
              "KIDS:I:4:0,MORE:N:8:2");
    const Rows after = cells(path);
    ASSERT_EQ(after.size(), before.size());
    for (size_t r = 0; r < after.size(); ++r) {
        const auto& b = before[r];
        EXPECT_EQ(after[r], (std::vector<std::string>{b[7], b[0] + std::string(10, ' '), b[1], b[2],
                                                      b[3], b[5], b[6], after[r][7]}));
    }
}

TEST_F(Tool, AlterRefusesBeforeWritingAnything) {
    const auto bytes = qz_test::read_bytes(file);
    std::string all =
        " --drop NAME --drop CITY --drop BORN --drop SALARY --drop RATE"
        " --drop ACTIVE --drop KIDS --drop NOTES";  // no table without fields
    for (const std::string& args :
         {std::string("--drop NOPE"), std::string("--add 1BAD:C:5"), std::string("--add X:Q:5"),
          std::string("--rename CITY=NAME"), std::string("--move NAME=9"), all}) {
        EXPECT_EQ(qzdbf("alter " + file + " " + args), 2) << args;
        EXPECT_EQ(qz_test::read_bytes(file), bytes) << args;
    }
    EXPECT_EQ(qzdbf("alter " + dir.file("missing.dbf") + " --drop A"), 2);
    // Held by another writer: exit status 3, nothing changed, no backup.
    Tqz_dbf_rw* writer = qz_dbf_open_w(path.c_str(), false, false);
    ASSERT_NE(writer, nullptr);
    EXPECT_EQ(qzdbf("alter " + file + " --drop RATE"), 3);
    qz_dbf_close(writer);
    EXPECT_EQ(qz_test::read_bytes(file), bytes);
    EXPECT_FALSE(fs::exists(file + ".bak.dbf"));
}

TEST_F(Tool, EditAltersAsOneUndoableStep) {
    const std::string original = layout(path);
    std::string out;
    ASSERT_EQ(qzdbf("edit " + file, &out,
                    "alter --drop KIDS --add Z:I:4 --rename NAME=WHO\\nset Z 0 12\\nundo\\nundo\\n"
                    "save\\nredo\\nquit\\n"),
              0)
        << out;
    EXPECT_NE(out.find("new layout"), std::string::npos) << out;
    EXPECT_EQ(layout(path), original) << "saved after both undos";

    ASSERT_EQ(
        qzdbf("edit " + file, &out, "alter --drop KIDS --add Z:I:4\\nset Z 1 7\\nsave\\nquit\\n"),
        0)
        << out;
    EXPECT_EQ(layout(path),
              "NAME:C:30:0,CITY:C:20:0,BORN:D:8:0,SALARY:N:12:2,RATE:F:10:4,ACTIVE:L:1:0,"
              "NOTES:M:10:0,Z:I:4:0");
    EXPECT_EQ(cells(path, true)[1][7], "7");
    EXPECT_EQ(cells(path, true)[0][7], "0");
    EXPECT_EQ(qzdbf("edit " + file, &out, "alter --drop Q\\n"), 1) << out;
}

TEST_F(Tool, DeletePackAndDelmaskSayWhatWentAndWhatIsLeft) {
    const std::string t = "'" + dir.file("d.dbf") + "'";
    ASSERT_TRUE(make_table(dir.wfile("d.dbf"), {{"NAME", 'C', 4, 0}},
                           {{"r0"}, {"r1"}, {"r2"}, {"r3"}, {"r4"}, {"r5"}}));
    auto names = [&] {
        std::string s;
        for (const auto& row : cells(dir.wfile("d.dbf"), true)) s += row[0] + ",";
        return s;
    };
    std::string out;
    EXPECT_EQ(
        qzdbf("edit " + t, &out, "delmask 1 3 5\\nundo\\ndelmask 0 5\\nsave\\ndelmask 9\\nquit\\n"),
        1)
        << "a failed line makes the exit status 1";
    EXPECT_NE(out.find("removed 3 records, 3 left\nundone\nremoved 2 records, 4 left\nsaved 4"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("record 9 is out of range"), std::string::npos) << out;
    EXPECT_EQ(names(), "r1,r2,r3,r4,");

    EXPECT_EQ(qzdbf("delete " + t + " 3 0", &out), 0);
    EXPECT_EQ(out, "removed 2 records, 2 left\n");
    EXPECT_EQ(names(), "r2,r3,");
    // A flag set straight in the file: pack removes its record.
    std::vector<uint8_t> b = qz_test::read_bytes(dir.file("d.dbf"));
    b[qz_test::u16_at(b, 8)] = '*';
    qz_test::write_bytes(dir.file("d.dbf"), b);
    EXPECT_EQ(qzdbf("pack " + t, &out), 0);
    EXPECT_EQ(out, "removed 1 record, 1 left\n");
    EXPECT_EQ(qzdbf("pack " + t, &out), 0);
    EXPECT_EQ(out, "removed 0 records, 1 left\n");
    EXPECT_EQ(names(), "r3,");
}

}  // namespace
