// qzdbf pack, delete and edit's delmask: what they print, what they leave in
// the file, and what they refuse.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

std::string qzdbf(const std::string& args, int* status = nullptr) {
    std::string out;
    const int rc = qz_test::run("LC_ALL=C.UTF-8 '" QZDBF_EXE "' " + args + " 2>&1", &out);
    if (status) *status = rc;
    return out;
}

class ToolDelete : public ::testing::Test {
  protected:
    void SetUp() override {
        path = dir.file("t.dbf");
        table = "'" + path + "'";
        int rc = -1;
        qzdbf("create " + table + " NAME:C:4 --records 6", &rc);
        ASSERT_EQ(rc, 0);
        for (int i = 0; i < 6; ++i)
            qzdbf("set " + table + " NAME " + std::to_string(i) + " r" + std::to_string(i));
    }
    std::string names() {
        std::string out = qzdbf("dump " + table + " --csv");
        std::string s;
        size_t at = out.find('\n');  // past the header line
        while (at != std::string::npos && at + 1 < out.size()) {
            size_t end = out.find('\n', at + 1);
            std::string line = out.substr(at + 1, end - at - 1);
            if (!line.empty() && line.back() == '\r') line.pop_back();
            line.erase(std::min(line.size(), line.find(',')));  // NAME, before "deleted"
            s += (s.empty() ? "" : ",") + line;
            at = end;
        }
        return s;
    }
    qz_test::Temp_dir dir;
    std::string path, table;
};

TEST_F(ToolDelete, DeleteAndPackSayWhatWentAndWhatIsLeft) {
    int rc = -1;
    EXPECT_EQ(qzdbf("delete " + table + " 4 1", &rc), "removed 2 records, 4 left\n");
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(names(), "r0,r2,r3,r5");
    // Flags set straight in the file: records 0 and 3 (r0, r5).
    std::vector<uint8_t> b = qz_test::read_bytes(path);
    const size_t header = b[8] | b[9] << 8, length = b[10] | b[11] << 8;
    b[header] = '*';
    b[header + 3 * length] = '*';
    qz_test::write_bytes(path, b);
    EXPECT_EQ(qzdbf("pack " + table, &rc), "removed 2 records, 2 left\n");
    EXPECT_EQ(names(), "r2,r3");
    EXPECT_EQ(qzdbf("pack " + table, &rc), "removed 0 records, 2 left\n");
    EXPECT_EQ(rc, 0);
}

TEST_F(ToolDelete, EditDelmaskIsOneUndoableStep) {
    std::string out;
    const int rc = qz_test::run(
        "printf 'delmask 1 3 5\\nundo\\ndelmask 0 5\\nsave\\ndelmask 9\\nquit\\n' | "
        "LC_ALL=C.UTF-8 '" QZDBF_EXE "' edit " +
            table + " 2>&1",
        &out);
    EXPECT_NE(out.find("removed 3 records, 3 left\nundone\nremoved 2 records, 4 left\nsaved 4"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("record 9 is out of range"), std::string::npos) << out;
    EXPECT_NE(rc, 0) << "a failed line makes the exit status 1";
    EXPECT_EQ(names(), "r1,r2,r3,r4");
}

// Packs of different tables at the same time share the one temporary file
// name: each waits for the other, and every table keeps its own records.
TEST(ToolDeleteTogether, PacksAtTheSameTimeKeepTheirOwnRecords) {
    qz_test::Temp_dir dir;
    const int tables = 4, records = 3000;
    std::string script;
    for (int t = 0; t < tables; ++t) {
        const std::string path = dir.file("t" + std::to_string(t) + ".dbf");
        Tqz_dbf_field f;
        qz_dbf_field_init(&f, "NAME", dbf_ft_char, 12, 0);
        Tqz_dbf_rw* h = qz_dbf_create(path.c_str(), 1, records, &f, false);
        ASSERT_NE(h, nullptr);
        for (int r = 0; r < records; ++r) {
            qz_dbf_set_str(h, 0, r, (std::to_string(t) + "-" + std::to_string(r)).c_str());
            if (r % 2) qz_dbf_set_deleted(h, r, true);
        }
        qz_dbf_close(h);
        script += "'" QZDBF_EXE "' pack '" + path + "' >/dev/null 2>&1 & ";
    }
    ASSERT_EQ(qz_test::run(script + "wait"), 0);
    for (int t = 0; t < tables; ++t) {
        Tqz_dbf_rw* h =
            qz_dbf_open(dir.file("t" + std::to_string(t) + ".dbf").c_str(), true, false);
        ASSERT_NE(h, nullptr);
        ASSERT_EQ(qz_dbf_get_nr(h), static_cast<unsigned>(records / 2)) << t;
        bool ok = false;
        for (int k = 0; k < records / 2; ++k) {
            std::string got = qz_dbf_get_str(h, 0, k, ok);
            got.erase(got.find_last_not_of(' ') + 1);
            ASSERT_EQ(got, std::to_string(t) + "-" + std::to_string(2 * k)) << t << " " << k;
        }
        qz_dbf_close(h);
    }
}

}  // namespace
