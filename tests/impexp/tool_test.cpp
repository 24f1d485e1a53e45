// qzdbf import, export and stats end to end: the tables import makes (types,
// bytes, encoding), what it refuses and leaves behind, the CSV dump of an
// imported table, exports read back through OGR's C interface, and stats
// against another reader's values of a real table.
#include <gtest/gtest.h>

#include <gdal.h>
#include <ogr_api.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "cli_run.h"

namespace {

using namespace qz_cli;
using Names = std::vector<std::string>;

// A CSV of every inferred type, with the awkward cells RFC 4180 allows.
const char kMixed[] =
    "id,Имя,price,ok,day,note,zip\r\n"
    "1,Ёлкин Пётр,12.50,T,2024-02-29,\"a, b\",007\r\n"
    "-20,\"Smith, \"\"Jr\"\"\",0.25,F,,\"two\nlines\",12345\r\n"
    "300,,,,1999-12-31,,\r\n";

class Impexp : public ::testing::Test {
  protected:
    qz_test::Temp_dir dir;
    std::string file(const std::string& name) const { return dir.file(name); }
    // qzdbf run in the test's folder, so that its arguments name files there.
    Outcome run(const std::string& args) const {
        return qzdbf(args, "cd " + quoted(dir.path()) + " &&");
    }
};

// The first layer of `path` read through OGR: its field names, then each
// feature's cells, joined by '|' (an unset cell empty).
Names read_back(const std::string& path) {
    Names rows;
    GDALAllRegister();
    GDALDatasetH ds = GDALOpenEx(path.c_str(), GDAL_OF_VECTOR, nullptr, nullptr, nullptr);
    if (!ds) return rows;
    OGRLayerH layer = GDALDatasetGetLayer(ds, 0);
    OGRFeatureDefnH defn = OGR_L_GetLayerDefn(layer);
    rows.emplace_back();
    for (int i = 0; i < OGR_FD_GetFieldCount(defn); ++i)
        rows[0] += (i ? "|" : "") + std::string(OGR_Fld_GetNameRef(OGR_FD_GetFieldDefn(defn, i)));
    while (OGRFeatureH f = OGR_L_GetNextFeature(layer)) {
        rows.emplace_back();
        for (int i = 0; i < OGR_F_GetFieldCount(f); ++i)
            rows.back() += std::string(i ? "|" : "") +
                           (OGR_F_IsFieldSetAndNotNull(f, i) ? OGR_F_GetFieldAsString(f, i) : "");
        OGR_F_Destroy(f);
    }
    GDALClose(ds);
    return rows;
}

// A row's cells as what they mean: numbers by their value, dates with '-'
// (some drivers give '/'), text as it is.
std::string norm_row(const std::string& row) {
    std::string out;
    for (size_t from = 0, bar = 0; bar != std::string::npos; from = bar + 1) {
        std::string cell = row.substr(from, (bar = row.find('|', from)) - from);
        char* end = nullptr;
        const double v = std::strtod(cell.c_str(), &end);
        out += (from ? "|" : "") + (!cell.empty() && !*end ? std::to_string(v) : cell);
    }
    std::replace(out.begin(), out.end(), '/', '-');
    return out;
}

// Import infers the fields of every type, dump gives the cells back as
// typed values, export writes them in other formats (read back through OGR).
TEST_F(Impexp, ImportInfersFieldsDumpAndExportGiveTheCellsBack) {
    write_text(file("in.csv"), std::string(kMixed) + "4,deleted one,1.00,T,2000-01-01,x,1\r\n");
    const Outcome r = run("import in.csv t.dbf");
    // The header's Cyrillic name goes through the library's repair.
    ASSERT_TRUE(r.status == 0 && r.out.find("'Имя' -> 'IMA'") != std::string::npos) << r.out;
    EXPECT_EQ(layout_of(file("t.dbf")),
              "ID:N:3:0 IMA:C:19:0 PRICE:N:5:2 OK:L:1:0 DAY:D:8:0 NOTE:C:9:0 ZIP:C:5:0");
    EXPECT_EQ(read_text(file("t.cpg")).substr(0, 5), "UTF-8");
    // Only the table and its .cpg are left: no lock file, no temporary.
    EXPECT_EQ(folder_names(dir.path()), (Names{"in.csv", "t.cpg", "t.dbf"}));
    Tqz_dbf_rw* t = qz_dbf_open(file("t.dbf").c_str(), false, false);
    ASSERT_TRUE(t && qz_dbf_set_deleted(t, 3, true));
    qz_dbf_close(t);
    // The dump: typed values (dates YYYY-MM-DD, logicals true/false), and
    // the deletion column.
    EXPECT_EQ(run("dump --csv t.dbf").out,
              "ID,IMA,PRICE,OK,DAY,NOTE,ZIP,deleted\r\n"
              "1,Ёлкин Пётр,12.50,true,2024-02-29,\"a, b\",007,false\r\n"
              "-20,\"Smith, \"\"Jr\"\"\",0.25,false,,\"two\nlines\",12345,false\r\n"
              "300,,,,1999-12-31,,,false\r\n4,deleted one,1.00,true,2000-01-01,x,1,true\r\n");
    // Logicals come back as 1/0 (booleans), the rest as written; the
    // deleted record stays out; an empty text cell may come back null.
    const Names want = {"ID|IMA|PRICE|OK|DAY|NOTE|ZIP", "1|Ёлкин Пётр|12.5|1|2024-02-29|a, b|007",
                        "-20|Smith, \"Jr\"|0.25|0||two\nlines|12345", "300||||1999-12-31||"};
    for (const char* ext : {"gpkg", "csv", "geojson", "xlsx"}) {
        SCOPED_TRACE(ext);
        const std::string dest = std::string("out.") + ext;
        ASSERT_EQ(run("export t.dbf " + dest).status, 0);
        Names got = read_back(file(dest)), normal = want;
        for (Names* rows : {&got, &normal})
            for (std::string& row : *rows) row = norm_row(row);
        EXPECT_EQ(got, normal);
        // An existing file is replaced only with --overwrite.
        EXPECT_EQ(run("export t.dbf " + dest).status, 2);
    }
    // --format wins over the extension; --with-deleted keeps every record.
    ASSERT_EQ(run("export --with-deleted --format GeoJSON t.dbf all.txt").status, 0);
    EXPECT_EQ(read_back(file("all.txt")).size(), 5u);
    // FlatGeobuf: every record or, where GDAL's driver keeps no feature
    // without geometry, a refusal and no file.
    const Outcome fgb = run("export t.dbf t.fgb");
    EXPECT_TRUE(fgb.status == 0 ? read_back(file("t.fgb")).size() == 4u
                                : fgb.status == 3 && !qz_test::exists(file("t.fgb")) &&
                                      fgb.out.find("wrote 0 of 3 records") != std::string::npos)
        << fgb.out;
    EXPECT_TRUE(run("export t.dbf x.nosuch").status == 2 && !qz_test::exists(file("x.nosuch")));
}

TEST_F(Impexp, GivenFieldsEncodingAndDelimiter) {
    write_text(file("in.csv"), "name;sum;when;flag\nЁж;1.5;20240101;y\n\"a;b\";-3;;N\n");
    const Outcome r = run(
        "import --delimiter ';' --encoding CP1251 --fields NAME:C:4,SUM:N:6:2,WHEN:D:8,FLAG:L:1 "
        "in.csv t.dbf");
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(layout_of(file("t.dbf")), "NAME:C:4:0 SUM:N:6:2 WHEN:D:8:0 FLAG:L:1:0");
    EXPECT_EQ(read_text(file("t.cpg")).substr(0, 6), "CP1251");
    // The records' bytes: CP1251 text, numbers right-aligned with their
    // decimals, dates YYYYMMDD, logicals T/F.
    EXPECT_EQ(qz_test::raw_cell(qz_test::read_bytes(file("t.dbf")), 0, 0, 40),
              " \xA8\xE6    1.5020240101T a;b  -3.00        F");
    // Any single-byte encoding: six characters are six bytes in ISO-8859-2,
    // read back through the .cpg; encodings of several bytes a character
    // (other than UTF-8) are refused.
    const std::string lodz = "\xC5\x81\xC3\xB3\x64\xC5\xBA";  // 4 characters, 7 bytes
    write_text(file("in.csv"), "name\nM\xC3\xBCller\n" + lodz + "\n");
    ASSERT_EQ(run("import --quiet --encoding ISO-8859-2 in.csv l2.dbf").status, 0);
    EXPECT_EQ(read_text(file("l2.cpg")) + layout_of(file("l2.dbf")), "ISO-8859-2\nNAME:C:6:0");
    ASSERT_EQ(run("export l2.dbf l2.csv").status, 0);
    EXPECT_EQ(read_back(file("l2.csv")), (Names{"NAME", "M\xC3\xBCller", lodz}));
    const Outcome gbk = run("import --encoding GBK in.csv g.dbf");
    EXPECT_TRUE(gbk.status == 2 && gbk.out.find("single-byte") != std::string::npos) << gbk.out;
}

TEST_F(Impexp, BadInputStopsWithTheLineAndLeavesNothing) {
    // clang-format off
    const struct { const char* name; std::string csv, options; const char* message; } cases[] = {
        {"ragged row after a quoted line break", "a,b\n\"x\ny\",1\n2,3\n4\n5,6\n", "", "line 5: 1 cells, the header has 2"},
        {"too many cells", "a,b\n1,2,3\n", "", "line 2: 3 cells"},
        {"value too long for a given field", "a\nabc\nabcdef\n", "--fields A:C:4", "line 3, column 1 (a): 'abcdef': 6 bytes do not fit in 4"},
        {"text longer than 254 bytes", "t\nx\n" + std::string(255, 'y') + "\n", "", "line 3, column 1 (t): 255 bytes"},
        {"not UTF-8", "t\nok\n\xFF\xFE\n", "", "line 3, column 1 (t): the text is not UTF-8"},
        {"a character the encoding lacks", "t\n\xE2\x82\xAC\n", "--encoding CP866", "line 2, column 1 (t): a character CP866 cannot hold"},
        {"quote not closed", "t\nok\n\"open\n", "", "line 3: a quoted cell is not closed"},
        {"wrong field count", "a,b\n1,2\n", "--fields A:N:1", "--fields gives 1 fields"},
    };
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        write_text(file("in.csv"), c.csv);
        const Outcome r = run("import " + c.options + " in.csv out.dbf");
        EXPECT_TRUE(r.status == 2 && r.out.find(c.message) != std::string::npos) << r.out;
        EXPECT_EQ(folder_names(dir.path()), Names{"in.csv"});
    }
    // An existing table is kept unless --overwrite.
    write_text(file("in.csv"), "a\n1\n");
    write_text(file("out.dbf"), "not mine");
    const Outcome kept = run("import in.csv out.dbf");
    EXPECT_TRUE(kept.status == 2 && kept.out.find("already exists") != std::string::npos &&
                read_text(file("out.dbf")) == "not mine");
    EXPECT_EQ(run("import --overwrite in.csv out.dbf").status, 0);
    EXPECT_EQ(layout_of(file("out.dbf")), "A:N:1:0");
    // A failed import over an existing table leaves it as it was.
    const std::string before = read_text(file("out.dbf"));
    write_text(file("bad.csv"), "a\n1\n2,3\n");
    EXPECT_TRUE(run("import --overwrite bad.csv out.dbf").status == 2 &&
                read_text(file("out.dbf")) == before);
}

TEST_F(Impexp, InterruptedImportLeavesNothing) {
    std::string csv = "id,name,amount\n";
    for (int i = 0; i < 200000; ++i)
        csv += std::to_string(i) + ",name " + std::to_string(i % 977) + "," +
               std::to_string(i % 1000) + ".25\n";
    write_text(file("in.csv"), csv);
    for (const char* sig : {"INT", "TERM"}) {
        SCOPED_TRACE(sig);
        std::string out;
        // The signal comes while the table is being written (or after the
        // import ended).
        ASSERT_EQ(qz_test::run("cd '" + dir.path() +
                                   "' || exit 1; (LC_ALL=C.UTF-8 exec '" QZDBF_EXE
                                   "' import --quiet in.csv out.dbf) & pid=$!; "
                                   "for i in $(seq 400); do ls -a | grep -q '^[.]out[.]import' && "
                                   "break; sleep 0.05; done; kill -" +
                                   std::string(sig) + " $pid; wait $pid; echo $?",
                               &out),
                  0);
        EXPECT_TRUE(out == "0\n" || out == "130\n" || out == "143\n") << out;
        EXPECT_EQ(folder_names(dir.path()),
                  (out == "0\n" ? Names{"in.csv", "out.cpg", "out.dbf"} : Names{"in.csv"}))
            << out;
        for (const char* made : {"out.dbf", "out.cpg"}) std::remove(file(made).c_str());
    }
}

TEST_F(Impexp, StatsAgreeWithAnotherReader) {
    const std::string src = QZ_CORPUS_DIR "/ruby-dbf/dbase_03.dbf";
    const Outcome stats = qzdbf("stats --json " + quoted(src));
    // dbfread's view of the same fields, printed as stats must print it.
    write_text(file("ref.py"), R"(import dbfread, sys
t = list(dbfread.DBF(sys.argv[1]))
n = [r['Max_PDOP'] for r in t if r['Max_PDOP'] is not None]
d = [r['Date_Visit'] for r in t if r['Date_Visit']]
print('{"name": "Max_PDOP", "type": "N", "length": 5, "decimals": 1, "count": %d, "blank": %d, '
      '"min": %.1f, "max": %.1f, "distinct": %d,' % (len(n), len(t) - len(n), min(n), max(n), len(set(n))))
print('"min": "%s", "max": "%s", "distinct": %d,' % (min(d), max(d), len(set(d)))))");
    std::string py, ref = "/usr/bin/python3 " + quoted(file("ref.py")) + " " + quoted(src);
    ASSERT_TRUE(qz_test::run(ref, &py) == 0 && stats.status == 0 && lines_of(py).size() == 2u)
        << py;
    for (const std::string& fragment : lines_of(py))
        EXPECT_NE(stats.out.find(fragment), std::string::npos) << stats.out << "\n" << fragment;
}

}  // namespace
