// qzdbf alter, delete, pack, and edit's alter and delmask, step by step on
// one table each: the exit status, a part of what they print, and the table
// after it (refused changes leave it byte for byte; edit's changes are
// steps that undo takes back).
#include <gtest/gtest.h>

#include <filesystem>

#include "restruct_tables.h"

using namespace restruct_test;

namespace {

struct Step {
    std::string args, input;  // "T" in args is the table
    int status;
    std::string out, after;  // `after` as `now` tells it; "" for the bytes as they were
};

void run_steps(const std::string& file, const std::vector<Step>& steps,
               const std::function<std::string()>& now) {
    for (const Step& s : steps) {
        const auto bytes = qz_test::read_bytes(file);
        std::string args = s.args, out;
        args.replace(args.find('T'), 1, "'" + file + "'");
        EXPECT_EQ(qzdbf(args, &out, s.input), s.status) << s.args << "\n" << out;
        EXPECT_NE(out.find(s.out), std::string::npos) << s.args << "\n" << out;
        EXPECT_TRUE(s.after.empty() ? qz_test::read_bytes(file) == bytes : now() == s.after)
            << s.args << (s.after.empty() ? "" : " gives " + now());
    }
}

TEST(Tool, AlterAndEditsAlter) {
    qz_test::Temp_dir dir;
    copy_sample(dir.file("t"));
    const std::string file = dir.file("t.dbf");
    const std::wstring path = dir.wfile("t.dbf");
    const Rows before = cells(path);
    auto now = [&] {
        return layout(path) + " " + cells(path, true)[0][7] + " " + cells(path, true)[1][7];
    };
    const std::string original = now();
    // Refused: unknown names and types, clashes, bad places, no field left,
    // a missing table.
    std::vector<Step> steps;
    for (std::string bad : {"--drop NOPE", "--add 1BAD:C:5", "--add X:Q:5", "--rename CITY=NAME",
                            "--move NAME=9", "--drop A",
                            "--drop NAME --drop CITY --drop BORN "
                            "--drop SALARY --drop RATE --drop ACTIVE --drop KIDS --drop NOTES"})
        steps.push_back({(bad == "--drop A" ? "alter T.dbf " : "alter T ") + bad, "", 2, "", ""});
    steps.insert(steps.end(),
                 {{"edit T", "alter --drop Q\\n", 1, "", ""},
                  {"edit T",
                   "alter --drop KIDS --add Z:I:4 --rename NAME=WHO\\nset Z 0 12\\nundo\\nundo\\n"
                   "save\\nredo\\nquit\\n",
                   0, "new layout", original},  // saved after both undos
                  {"edit T", "alter --drop KIDS --add Z:I:4\\nset Z 1 7\\nsave\\nquit\\n", 0, "",
                   "NAME:C:30:0,CITY:C:20:0,BORN:D:8:0,SALARY:N:12:2,RATE:F:10:4,ACTIVE:L:1:0,"
                   "NOTES:M:10:0,Z:I:4:0 0 7"}});
    run_steps(file, steps, now);

    // Held by another writer: exit status 3, nothing changed, no backup.
    Tqz_dbf_rw* writer = qz_dbf_open_w(path.c_str(), false, false);
    run_steps(file, {{"alter T --drop RATE", "", 3, "", ""}}, nullptr);
    qz_dbf_close(writer);
    EXPECT_FALSE(std::filesystem::exists(file + ".bak.dbf"));

    // Several changes in one rewrite, the layouts printed; the memo field's
    // block numbers move with it, its memo file stays as it was.
    const auto memo = qz_test::read_bytes(dir.file("t.dbt"));
    std::filesystem::copy_file(QZ_EXAMPLES_DIR "/sample.dbf", file,
                               std::filesystem::copy_options::overwrite_existing);
    run_steps(file,
              {{"alter T --add EXTRA:N:8:2 --drop RATE --rename CITY=TOWN --retype NAME:C:40"
                " --move NOTES=0 --rename extra=MORE",
                "", 0, "old layout",
                "NOTES:M:10:0,NAME:C:40:0,TOWN:C:20:0,BORN:D:8:0,SALARY:N:12:2,ACTIVE:L:1:0,"
                "KIDS:I:4:0,MORE:N:8:2"}},
              [&] { return layout(path); });
    EXPECT_EQ(qz_test::read_bytes(dir.file("t.dbt")), memo);
    const Rows after = cells(path);
    ASSERT_EQ(after.size(), before.size());
    for (size_t r = 0; r < after.size(); ++r) {
        const auto& b = before[r];
        EXPECT_EQ(after[r], (std::vector<std::string>{b[7], b[0] + std::string(10, ' '), b[1], b[2],
                                                      b[3], b[5], b[6], after[r][7]}));
    }
}

TEST(Tool, DeletePackAndDelmaskSayWhatWentAndWhatIsLeft) {
    qz_test::Temp_dir dir;
    const std::string file = dir.file("d.dbf");
    ASSERT_TRUE(make_table(dir.wfile("d.dbf"), {{"NAME", 'C', 4, 0}},
                           {{"r0"}, {"r1"}, {"r2"}, {"r3"}, {"r4"}, {"r5"}}));
    auto names = [&] {
        std::string s;
        for (const auto& row : cells(dir.wfile("d.dbf"), true)) s += row[0] + ",";
        return s;
    };
    run_steps(
        file,
        {// a failed line makes the exit status 1
         {"edit T", "delmask 1 3 5\\nundo\\ndelmask 0 5\\nsave\\ndelmask 9\\nquit\\n", 1,
          "removed 3 records, 3 left\nundone\nremoved 2 records, 4 left\nsaved 4", "r1,r2,r3,r4,"},
         {"edit T", "delmask 9\\nquit\\n", 1, "record 9 is out of range", ""},
         {"delete T 3 0", "", 0, "removed 2 records, 2 left\n", "r2,r3,"}},
        names);
    // A flag set straight in the file: pack removes its record.
    std::vector<uint8_t> b = qz_test::read_bytes(file);
    b[qz_test::u16_at(b, 8)] = '*';
    qz_test::write_bytes(file, b);
    run_steps(file,
              {{"pack T", "", 0, "removed 1 record, 1 left\n", "r3,"},
               {"pack T", "", 0, "removed 0 records, 1 left\n", "r3,"}},
              names);
}

}  // namespace
