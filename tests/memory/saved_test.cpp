// A memory table changed and saved reads back the same through the disk
// table and through dbfread; and while it is loaded, another process can
// neither load it nor open it for writing.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "qzk_file_dbf.h"
#include "test_support.h"

namespace {

using qz_test::Temp_dir;

enum { NAME, QTY, PRICE, OK, DAY, CODE, RATE, FIELDS };

std::string trim(const char* s) {
    std::string t = s ? s : "";
    size_t b = t.find_first_not_of(" \t\r\n");
    if (b == std::string::npos) return "";
    return t.substr(b, t.find_last_not_of(" \t\r\n") + 1 - b);
}

std::vector<std::string> split(const std::string& text, char sep) {
    std::vector<std::string> out;
    std::stringstream ss(text);
    std::string part;
    while (std::getline(ss, part, sep)) out.push_back(part);
    return out;
}

void make_table(const std::string& path) {
    Tqz_dbf_field f[FIELDS];
    qz_dbf_field_init(&f[NAME], "NAME", dbf_ft_char, 30, 0);
    qz_dbf_field_init(&f[QTY], "QTY", dbf_ft_numeric, 8, 0);
    qz_dbf_field_init(&f[PRICE], "PRICE", dbf_ft_numeric, 10, 2);
    qz_dbf_field_init(&f[OK], "OK", dbf_ft_logical, 1, 0);
    qz_dbf_field_init(&f[DAY], "DAY", dbf_ft_date, 8, 0);
    qz_dbf_field_init(&f[CODE], "CODE", dbf_ft_integer, 4, 0);
    qz_dbf_field_init(&f[RATE], "RATE", dbf_ft_double, 8, 0);
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), FIELDS, 4, f, false);
    ASSERT_NE(t, nullptr);
    for (unsigned r = 0; r < 4; ++r) {
        qz_dbf_set_str(t, NAME, r, ("disk row " + std::to_string(r)).c_str());
        qz_dbf_set_int(t, QTY, r, static_cast<int>(r) * 10);
        qz_dbf_set_dbl(t, PRICE, r, r + 0.5);
        qz_dbf_set_bool(t, OK, r, r % 2 != 0);
        qz_dbf_set_str(t, DAY, r, "20240115");
        qz_dbf_set_int(t, CODE, r, -static_cast<int>(r));
        qz_dbf_set_dbl(t, RATE, r, r * 0.25);
    }
    qz_dbf_close(t);
}

// Every cell as the library reads it: trimmed text, and the number (or the
// logical) where there is one.
struct Cell {
    std::string text;
    bool has = false;
    double number = 0;
};
using Rows = std::vector<std::vector<Cell>>;

template <class Str, class Dbl, class Bool>
Rows read_cells(unsigned nr, Str str, Dbl dbl, Bool boolean) {
    Rows rows(nr, std::vector<Cell>(FIELDS));
    for (unsigned r = 0; r < nr; ++r)
        for (unsigned f = 0; f < FIELDS; ++f) {
            Cell& c = rows[r][f];
            bool ok = false;
            c.text = trim(str(f, r, ok));
            bool nok = false;
            c.number = f == OK ? boolean(f, r, nok) : dbl(f, r, nok);
            c.has = f == OK ? nok : ok && !c.text.empty();
        }
    return rows;
}

Rows read_memory(Tqz_dbf_memory* t) {
    return read_cells(
        qz_dbf_mem_get_nr(t),
        [&](unsigned f, unsigned r, bool& ok) { return qz_dbf_mem_get_str(t, f, r, ok); },
        [&](unsigned f, unsigned r, bool& ok) { return qz_dbf_mem_get_dbl(t, f, r, ok); },
        [&](unsigned f, unsigned r, bool& ok) { return qz_dbf_mem_get_bool(t, f, r, ok); });
}

Rows read_disk(const std::string& path) {
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), true, false);
    EXPECT_NE(t, nullptr);
    if (!t) return {};
    EXPECT_FALSE(qz_dbf_is_buffered(t));
    Rows rows = read_cells(
        qz_dbf_get_nr(t),
        [&](unsigned f, unsigned r, bool& ok) { return qz_dbf_get_str(t, f, r, ok); },
        [&](unsigned f, unsigned r, bool& ok) { return qz_dbf_get_dbl(t, f, r, ok); },
        [&](unsigned f, unsigned r, bool& ok) { return qz_dbf_get_bool(t, f, r, ok); });
    qz_dbf_close(t);
    return rows;
}

void expect_same(const Rows& a, const Rows& b) {
    ASSERT_EQ(a.size(), b.size());
    for (size_t r = 0; r < a.size(); ++r)
        for (unsigned f = 0; f < FIELDS; ++f) {
            SCOPED_TRACE("record " + std::to_string(r) + " field " + std::to_string(f));
            EXPECT_EQ(a[r][f].text, b[r][f].text);
            EXPECT_EQ(a[r][f].has, b[r][f].has);
            if (a[r][f].has) {
                EXPECT_EQ(a[r][f].number, b[r][f].number);
            }
        }
}

// dbfread's records of a table against what the library read.
void expect_dbfread_reads(const std::string& path, const Rows& ours) {
    std::string out;
    ASSERT_EQ(qz_test::run("/usr/bin/python3 " QZ_INTEROP_SCRIPTS "/dbfread_peer.py records '" +
                               path + "' cp1251 2>&1",
                           &out),
              0)
        << out;
    std::vector<std::string> lines = split(out, '\n');
    ASSERT_EQ(lines.size(), ours.size()) << out;
    for (size_t r = 0; r < ours.size(); ++r) {
        std::vector<std::string> cells = split(lines[r], '\t');
        ASSERT_EQ(cells.size(), static_cast<size_t>(FIELDS)) << lines[r];
        SCOPED_TRACE("record " + std::to_string(r) + ": " + lines[r]);
        const std::vector<Cell>& o = ours[r];
        EXPECT_EQ(cells[NAME], "s:" + o[NAME].text);
        for (int f : {QTY, PRICE, CODE, RATE}) {
            if (!o[f].has) {
                EXPECT_EQ(cells[f], "z");
                continue;
            }
            ASSERT_GT(cells[f].size(), 2u);
            EXPECT_DOUBLE_EQ(std::strtod(cells[f].c_str() + 2, nullptr), o[f].number);
        }
        EXPECT_EQ(cells[OK], !o[OK].has ? "z" : o[OK].number != 0 ? "b:1" : "b:0");
        EXPECT_EQ(cells[DAY], o[DAY].has ? "d:" + o[DAY].text : "z");
    }
}

class SavedMemoryTable : public ::testing::Test {
  protected:
    void SetUp() override {
        qz_options_set_ansi_code_page(65001);
        path = dir.file("goods.dbf");
        make_table(path);
    }
    void TearDown() override { qz_history_manager_clear(qz_history_manager_get_instance()); }
    Temp_dir dir;
    std::string path;
};

TEST_F(SavedMemoryTable, ReadsTheSameOnDiskAndInDbfread) {
    if (qz_test::run("/usr/bin/python3 -c 'import dbfread' 2>/dev/null") != 0)
        GTEST_SKIP() << "python3-dbfread is not installed";
    Tqz_dbf_memory* t = qz_dbf_mem_load(path.c_str());
    ASSERT_NE(t, nullptr);
    // Changes of every kind: Cyrillic text (system text is UTF-8, the table
    // CP1251), numbers, logicals, dates, binary fields, and records added,
    // inserted and deleted.
    EXPECT_TRUE(qz_dbf_mem_set_str(t, NAME, 0, "Ёлка, \"ель\" и сосна"));
    EXPECT_TRUE(qz_dbf_mem_set_wstr(t, NAME, 1, L"Съешь же ещё этих мягких"));
    EXPECT_TRUE(qz_dbf_mem_set_int(t, QTY, 1, 123456));
    EXPECT_TRUE(qz_dbf_mem_set_dbl(t, PRICE, 2, -1234.5));
    EXPECT_TRUE(qz_dbf_mem_set_bool(t, OK, 0, true));
    EXPECT_TRUE(qz_dbf_mem_set_str(t, DAY, 3, "19991231"));
    EXPECT_TRUE(qz_dbf_mem_set_int(t, CODE, 2, 2147483647));
    EXPECT_TRUE(qz_dbf_mem_set_dbl(t, RATE, 3, -1e-300));
    qz_dbf_mem_ins(t, 1);
    EXPECT_TRUE(qz_dbf_mem_set_str(t, NAME, 1, "inserted"));
    qz_dbf_mem_del(t, 4);
    qz_dbf_mem_add(t);
    EXPECT_TRUE(qz_dbf_mem_set_str(t, NAME, 4, "added"));
    EXPECT_TRUE(qz_dbf_mem_set_dbl(t, RATE, 4, 2.5e10));
    EXPECT_TRUE(qz_dbf_mem_set_int(t, CODE, 4, 7));
    const Rows ours = read_memory(t);
    ASSERT_EQ(ours.size(), 5u);
    EXPECT_EQ(ours[0][NAME].text, "Ёлка, \"ель\" и сосна");
    EXPECT_EQ(ours[4][NAME].text, "added");

    // Saved elsewhere while loaded: that copy opens on disk.
    ASSERT_TRUE(qz_dbf_mem_save_as(t, dir.file("copy.dbf").c_str()));
    expect_same(read_disk(dir.file("copy.dbf")), ours);
    expect_dbfread_reads(dir.file("copy.dbf"), ours);

    // Saved to its own file and let go: the file holds the changes.
    ASSERT_TRUE(qz_dbf_mem_save(t));
    EXPECT_TRUE(qz_dbf_mem_free(t));
    expect_same(read_disk(path), ours);
    expect_dbfread_reads(path, ours);
}

TEST_F(SavedMemoryTable, ALoadedTableIsKeptFromOtherProcesses) {
    Tqz_dbf_memory* t = qz_dbf_mem_load(path.c_str());
    ASSERT_NE(t, nullptr);
    const std::string q = "'" QZDBF_EXE "' ";
    const std::string table = "'" + path + "'";
    std::string out;
    // Another process cannot load the table, nor write to the file (exit
    // status 3: the file is locked).
    EXPECT_EQ(qz_test::run("echo show | " + q + "edit " + table + " 2>&1", &out), 3) << out;
    EXPECT_NE(out.find("locked by another writer"), std::string::npos) << out;
    EXPECT_EQ(qz_test::run(q + "set " + table + " NAME 0 other 2>&1", &out), 3) << out;
    EXPECT_EQ(qz_test::run(q + "append " + table + " 2>&1", &out), 3) << out;
    // Reading needs no lock.
    EXPECT_EQ(qz_test::run(q + "get " + table + " NAME 2 2>&1", &out), 0) << out;
    EXPECT_EQ(out, "disk row 2\n");
    EXPECT_TRUE(qz_dbf_mem_free(t));

    // Let go, the table is free for the other process again.
    EXPECT_EQ(qz_test::run(q + "set " + table + " NAME 0 other 2>&1", &out), 0) << out;
}

}  // namespace
