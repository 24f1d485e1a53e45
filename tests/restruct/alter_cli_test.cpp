// qzdbf alter: several changes in one rewrite, the layouts printed, wrong
// changes refused before anything is written, a table held by another writer
// left alone; qzdbf edit's alter as one step that undo takes back.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "qzk_file_dbf.h"
#include "restruct_tables.h"
#include "test_support.h"

using namespace restruct_test;
namespace fs = std::filesystem;

namespace {

class AlterCli : public ::testing::Test {
  protected:
    void SetUp() override {
        for (const char* ext : {".dbf", ".dbt", ".cpg"})
            fs::copy_file(std::string(QZ_EXAMPLES_DIR "/sample") + ext, dir.file("t") + ext);
    }
    int qzdbf(const std::string& args, std::string* out = nullptr) {
        return qz_test::run("LC_ALL=C.UTF-8 " QZDBF_EXE " " + args + " 2>&1", out);
    }
    qz_test::Temp_dir dir;
    std::string file = dir.file("t.dbf");
    std::wstring path = dir.wfile("t.dbf");
};

TEST_F(AlterCli, SeveralChangesInOneRewrite) {
    const auto before = cells(path);
    std::string out;
    ASSERT_EQ(qzdbf("alter " + file +
                        " --add EXTRA:N:8:2 --drop RATE --rename CITY=TOWN --retype NAME:C:40"
                        " --move NOTES=0 --rename extra=MORE",
                    &out),
              0)
        << out;
    EXPECT_NE(out.find("old layout"), std::string::npos);
    EXPECT_NE(out.find("new layout"), std::string::npos);
    EXPECT_NE(out.find("CITY"), std::string::npos);
    EXPECT_NE(out.find("TOWN"), std::string::npos);
    EXPECT_EQ(layout(path),
              "NOTES:M:10:0,NAME:C:40:0,TOWN:C:20:0,BORN:D:8:0,SALARY:N:12:2,ACTIVE:L:1:0,"
              "KIDS:I:4:0,MORE:N:8:2");
    auto after = cells(path);
    ASSERT_EQ(after.size(), before.size());
    for (size_t r = 0; r < after.size(); ++r) {
        EXPECT_EQ(after[r][0], before[r][7]);
        EXPECT_EQ(after[r][1], before[r][0] + std::string(10, ' ')) << "longer C: blanks added";
        for (size_t k = 1; k < 4; ++k) EXPECT_EQ(after[r][k + 1], before[r][k]);
        for (size_t k = 5; k < 7; ++k) EXPECT_EQ(after[r][k], before[r][k]);
    }
}

TEST_F(AlterCli, RefusedChangesLeaveTheTableAlone) {
    const auto bytes = qz_test::read_bytes(file);
    for (const char* args :
         {"--drop NOPE", "--add 1BAD:C:5", "--add X:Q:5", "--rename CITY=NAME", "--move NAME=9"}) {
        std::string out;
        EXPECT_EQ(qzdbf("alter " + file + " " + args, &out), 2) << args << "\n" << out;
        EXPECT_EQ(qz_test::read_bytes(file), bytes) << args;
    }
    // Every field dropped: no table can be left without fields.
    std::string all = "alter " + file;
    for (const char* f : {"NAME", "CITY", "BORN", "SALARY", "RATE", "ACTIVE", "KIDS", "NOTES"})
        all += std::string(" --drop ") + f;
    EXPECT_EQ(qzdbf(all), 2);
    EXPECT_EQ(qzdbf("alter " + dir.file("missing.dbf") + " --drop A"), 2);

    // Held by another writer: exit status 3, nothing changed, no backup.
    Tqz_dbf_rw* writer = qz_dbf_open_w(path.c_str(), false, false);
    ASSERT_NE(writer, nullptr);
    std::string out;
    EXPECT_EQ(qzdbf("alter " + file + " --drop RATE", &out), 3) << out;
    qz_dbf_close(writer);
    EXPECT_EQ(qz_test::read_bytes(file), bytes);
    EXPECT_FALSE(fs::exists(file + ".bak.dbf"));
}

TEST_F(AlterCli, EditAltersAsOneUndoableStep) {
    const std::string original = layout(path);
    const std::string script = dir.file("script.txt");
    const std::string text =
        "alter --drop KIDS --add Z:I:4 --rename NAME=WHO\n"
        "set Z 0 12\n"
        "undo\n"
        "undo\n"
        "save\n"
        "redo\n"
        "quit\n";
    qz_test::write_bytes(script, std::vector<uint8_t>(text.begin(), text.end()));
    std::string out;
    ASSERT_EQ(qzdbf("edit " + file + " < " + script, &out), 0) << out;
    EXPECT_NE(out.find("new layout"), std::string::npos) << out;
    EXPECT_EQ(layout(path), original) << "saved after both undos";

    const std::string text2 = "alter --drop KIDS --add Z:I:4\nset Z 1 7\nsave\nquit\n";
    qz_test::write_bytes(script, std::vector<uint8_t>(text2.begin(), text2.end()));
    ASSERT_EQ(qzdbf("edit " + file + " < " + script, &out), 0) << out;
    EXPECT_EQ(layout(path),
              "NAME:C:30:0,CITY:C:20:0,BORN:D:8:0,SALARY:N:12:2,RATE:F:10:4,ACTIVE:L:1:0,"
              "NOTES:M:10:0,Z:I:4:0");
    Tqz_dbf_rw* t = qz_dbf_open_w(path.c_str(), true, false);
    bool ok = false;
    EXPECT_EQ(qz_dbf_get_int(t, 7, 1, ok), 7);
    EXPECT_EQ(qz_dbf_get_int(t, 7, 0, ok), 0);
    qz_dbf_close(t);

    qz_test::write_bytes(
        script, {'a', 'l', 't', 'e', 'r', ' ', '-', '-', 'd', 'r', 'o', 'p', ' ', 'Q', '\n'});
    EXPECT_EQ(qzdbf("edit " + file + " < " + script, &out), 1) << out;
}

}  // namespace
