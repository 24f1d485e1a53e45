// qzdbf import, export and stats end to end: the tables import makes (types,
// bytes, encoding), what it refuses and leaves behind, the CSV dump of an
// imported table, exports read back through OGR's C interface, and stats
// against another reader's values of a real table.
#include <gtest/gtest.h>

#include <gdal.h>
#include <ogr_api.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <string>
#include <vector>

#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

std::string qzdbf(const std::string& args, int* status = nullptr) {
    std::string out;
    int rc = qz_test::run("LC_ALL=C.UTF-8 '" QZDBF_EXE "' " + args + " 2>&1", &out);
    if (status) *status = rc;
    return out;
}

std::string quoted(const std::string& path) {
    return "'" + path + "'";
}

void write_text(const std::string& path, const std::string& text) {
    qz_test::write_bytes(path, std::vector<uint8_t>(text.begin(), text.end()));
}

std::string read_text(const std::string& path) {
    std::vector<uint8_t> b = qz_test::read_bytes(path);
    return std::string(b.begin(), b.end());
}

std::vector<std::string> folder_names(const std::string& dir) {
    std::vector<std::string> names;
    if (DIR* d = ::opendir(dir.c_str())) {
        while (dirent* e = ::readdir(d))
            if (std::string(e->d_name) != "." && std::string(e->d_name) != "..")
                names.push_back(e->d_name);
        ::closedir(d);
    }
    std::sort(names.begin(), names.end());
    return names;
}

struct Layout {
    std::string name;
    char type;
    unsigned length;
    int decimals;
};

std::vector<Layout> layout_of(const std::string& path) {
    std::vector<Layout> out;
    Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
    if (!t) return out;
    for (unsigned f = 0; f < qz_dbf_get_nf(t); ++f)
        out.push_back({qz_dbf_get_field_name(t, f),
                       static_cast<char>(qz_dbftype2char(qz_dbf_get_field_type(t, f))),
                       qz_dbf_get_field_flen(t, f), qz_dbf_get_field_dlen(t, f)});
    qz_dbf_close(t);
    return out;
}

bool operator==(const Layout& a, const Layout& b) {
    return a.name == b.name && a.type == b.type && a.length == b.length && a.decimals == b.decimals;
}
std::ostream& operator<<(std::ostream& os, const Layout& l) {
    return os << l.name << ":" << l.type << ":" << l.length << ":" << l.decimals;
}

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
};

TEST_F(Impexp, ImportInfersFieldsAndDumpGivesTheCsvBack) {
    write_text(file("in.csv"), kMixed);
    int rc = -1;
    const std::string out =
        qzdbf("import " + quoted(file("in.csv")) + " " + quoted(file("out.dbf")), &rc);
    ASSERT_EQ(rc, 0) << out;
    // The header's Cyrillic name goes through the library's repair.
    EXPECT_NE(out.find("'Имя' -> 'IMA'"), std::string::npos) << out;
    const std::vector<Layout> expect = {
        {"ID", 'N', 3, 0},  {"IMA", 'C', 19, 0}, {"PRICE", 'N', 5, 2}, {"OK", 'L', 1, 0},
        {"DAY", 'D', 8, 0}, {"NOTE", 'C', 9, 0}, {"ZIP", 'C', 5, 0}};
    EXPECT_EQ(layout_of(file("out.dbf")), expect);
    EXPECT_EQ(read_text(file("out.cpg")).substr(0, 5), "UTF-8");
    // Only the table and its .cpg are left: no lock file, no temporary.
    EXPECT_EQ(folder_names(dir.path()), (std::vector<std::string>{"in.csv", "out.cpg", "out.dbf"}));
    // The dump: the same cells as typed values (dates YYYY-MM-DD, logicals
    // true/false), and the deletion column.
    EXPECT_EQ(qzdbf("dump --csv " + quoted(file("out.dbf")), &rc),
              "ID,IMA,PRICE,OK,DAY,NOTE,ZIP,deleted\r\n"
              "1,Ёлкин Пётр,12.50,true,2024-02-29,\"a, b\",007,false\r\n"
              "-20,\"Smith, \"\"Jr\"\"\",0.25,false,,\"two\nlines\",12345,false\r\n"
              "300,,,,1999-12-31,,,false\r\n");
}

TEST_F(Impexp, GivenFieldsEncodingAndDelimiter) {
    write_text(file("in.csv"), "name;sum;when;flag\nЁж;1.5;20240101;y\n\"a;b\";-3;;N\n");
    int rc = -1;
    const std::string out = qzdbf(
        "import --delimiter ';' --encoding CP1251 --fields "
        "NAME:C:4,SUM:N:6:2,WHEN:D:8,FLAG:L:1 " +
            quoted(file("in.csv")) + " " + quoted(file("t.dbf")),
        &rc);
    ASSERT_EQ(rc, 0) << out;
    const std::vector<Layout> expect = {
        {"NAME", 'C', 4, 0}, {"SUM", 'N', 6, 2}, {"WHEN", 'D', 8, 0}, {"FLAG", 'L', 1, 0}};
    EXPECT_EQ(layout_of(file("t.dbf")), expect);
    EXPECT_EQ(read_text(file("t.cpg")).substr(0, 6), "CP1251");
    // The records' bytes: CP1251 text, numbers right-aligned with their
    // decimals, dates YYYYMMDD, logicals T/F.
    std::vector<uint8_t> bytes = qz_test::read_bytes(file("t.dbf"));
    const size_t header = bytes[8] | (bytes[9] << 8);
    ASSERT_GE(bytes.size(), header + 2 * 20);
    EXPECT_EQ(std::string(bytes.begin() + header, bytes.begin() + header + 20),
              " \xA8\xE6    1.5020240101T");
    EXPECT_EQ(std::string(bytes.begin() + header + 20, bytes.begin() + header + 40),
              " a;b  -3.00        F");
}

std::vector<std::vector<std::string>> read_back(const std::string& path,
                                                std::vector<std::string>* names = nullptr);

TEST_F(Impexp, AnySingleByteEncodingMeasuresAndReadsBack) {
    write_text(file("in.csv"),
               "name\nM\xC3\xBCller\n\xC5\x81\xC3\xB3"
               "d\xC5\xBA\n");
    int rc = -1;
    const std::string out = qzdbf("import --quiet --encoding ISO-8859-2 " + quoted(file("in.csv")) +
                                      " " + quoted(file("t.dbf")),
                                  &rc);
    ASSERT_EQ(rc, 0) << out;
    EXPECT_EQ(read_text(file("t.cpg")), "ISO-8859-2\n");
    // Six characters, six bytes in ISO-8859-2; read back through the .cpg.
    EXPECT_EQ(layout_of(file("t.dbf")), (std::vector<Layout>{{"NAME", 'C', 6, 0}}));
    qzdbf("export " + quoted(file("t.dbf")) + " " + quoted(file("t.csv")), &rc);
    ASSERT_EQ(rc, 0);
    EXPECT_EQ(read_back(file("t.csv")), (std::vector<std::vector<std::string>>{{"M\xC3\xBCller"},
                                                                               {"\xC5\x81\xC3\xB3"
                                                                                "d\xC5\xBA"}}));
    // Encodings of several bytes a character (other than UTF-8) are refused.
    EXPECT_NE(
        qzdbf("import --encoding GBK " + quoted(file("in.csv")) + " " + quoted(file("g.dbf")), &rc)
            .find("single-byte"),
        std::string::npos);
    EXPECT_EQ(rc, 2);
}

TEST_F(Impexp, BadInputStopsWithTheLineAndLeavesNothing) {
    struct Case {
        const char* name;
        std::string csv;
        std::string options;
        const char* message;
    };
    const std::vector<Case> cases = {
        {"ragged row after a quoted line break", "a,b\n\"x\ny\",1\n2,3\n4\n5,6\n", "",
         "line 5: 1 cells, the header has 2"},
        {"too many cells", "a,b\n1,2,3\n", "", "line 2: 3 cells"},
        {"value too long for a given field", "a\nabc\nabcdef\n", "--fields A:C:4",
         "line 3, column 1 (a): 'abcdef': 6 bytes do not fit in 4"},
        {"too many decimals", "a\n1.5\n1.25\n", "--fields A:N:5:1", "line 3"},
        {"not a date", "d\n2024-02-30\n", "--fields D:D:8", "line 2"},
        {"text longer than 254 bytes", "t\nx\n" + std::string(255, 'y') + "\n", "",
         "line 3, column 1 (t): 255 bytes"},
        {"not UTF-8", "t\nok\n\xFF\xFE\n", "", "line 3, column 1 (t): the text is not UTF-8"},
        {"a character the encoding lacks", "t\n\xE2\x82\xAC\n", "--encoding CP866",
         "line 2, column 1 (t): a character CP866 cannot hold"},
        {"quote not closed", "t\nok\n\"open\n", "", "line 3: a quoted cell is not closed"},
        {"wrong field count", "a,b\n1,2\n", "--fields A:N:1", "--fields gives 1 fields"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qz_test::Temp_dir d;
        write_text(d.file("in.csv"), c.csv);
        int rc = -1;
        const std::string out = qzdbf("import " + c.options + " " + quoted(d.file("in.csv")) + " " +
                                          quoted(d.file("out.dbf")),
                                      &rc);
        EXPECT_EQ(rc, 2) << out;
        EXPECT_NE(out.find(c.message), std::string::npos) << out;
        EXPECT_EQ(folder_names(d.path()), std::vector<std::string>{"in.csv"});
    }
    // An existing table is kept unless --overwrite.
    write_text(file("in.csv"), "a\n1\n");
    write_text(file("out.dbf"), "not mine");
    int rc = -1;
    EXPECT_NE(qzdbf("import " + quoted(file("in.csv")) + " " + quoted(file("out.dbf")), &rc)
                  .find("already exists"),
              std::string::npos);
    EXPECT_EQ(rc, 2);
    EXPECT_EQ(read_text(file("out.dbf")), "not mine");
    qzdbf("import --overwrite " + quoted(file("in.csv")) + " " + quoted(file("out.dbf")), &rc);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(layout_of(file("out.dbf")).size(), 1u);
    // A failed import over an existing table leaves it as it was.
    const std::vector<uint8_t> before = qz_test::read_bytes(file("out.dbf"));
    write_text(file("bad.csv"), "a\n1\n2,3\n");
    qzdbf("import --overwrite " + quoted(file("bad.csv")) + " " + quoted(file("out.dbf")), &rc);
    EXPECT_EQ(rc, 2);
    EXPECT_EQ(qz_test::read_bytes(file("out.dbf")), before);
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
        const auto names = folder_names(dir.path());
        if (out == "0\n") {
            EXPECT_EQ(names, (std::vector<std::string>{"in.csv", "out.cpg", "out.dbf"}));
            std::remove(file("out.dbf").c_str());
            std::remove(file("out.cpg").c_str());
        } else {
            EXPECT_TRUE(out == "130\n" || out == "143\n") << out;
            EXPECT_EQ(names, std::vector<std::string>{"in.csv"}) << out;
        }
    }
}

// Reads every feature of the first layer of `path` as strings.
std::vector<std::vector<std::string>> read_back(const std::string& path,
                                                std::vector<std::string>* names) {
    std::vector<std::vector<std::string>> rows;
    GDALAllRegister();
    GDALDatasetH ds = GDALOpenEx(path.c_str(), GDAL_OF_VECTOR, nullptr, nullptr, nullptr);
    if (!ds) return rows;
    OGRLayerH layer = GDALDatasetGetLayer(ds, 0);
    OGRFeatureDefnH defn = OGR_L_GetLayerDefn(layer);
    if (names)
        for (int i = 0; i < OGR_FD_GetFieldCount(defn); ++i)
            names->push_back(OGR_Fld_GetNameRef(OGR_FD_GetFieldDefn(defn, i)));
    OGR_L_ResetReading(layer);
    while (OGRFeatureH f = OGR_L_GetNextFeature(layer)) {
        std::vector<std::string> row;
        for (int i = 0; i < OGR_F_GetFieldCount(f); ++i)
            row.push_back(OGR_F_IsFieldSetAndNotNull(f, i) ? OGR_F_GetFieldAsString(f, i) : "");
        rows.push_back(row);
        OGR_F_Destroy(f);
    }
    GDALClose(ds);
    return rows;
}

// Cells compared as what they mean: numbers by value, dates without
// their separators, text exactly.
bool same_value(const std::string& want, const std::string& got) {
    char* end = nullptr;
    const double w = std::strtod(want.c_str(), &end);
    if (!want.empty() && *end == '\0') {
        char* end2 = nullptr;
        const double g = std::strtod(got.c_str(), &end2);
        return !got.empty() && *end2 == '\0' && std::fabs(w - g) < 1e-9;
    }
    if (want.size() == 10 && want[4] == '-' && want[7] == '-') {
        std::string g = got;
        for (char& c : g)
            if (c == '/') c = '-';
        return g == want;
    }
    return want == got;
}

TEST_F(Impexp, ExportReadsBackEqualThroughOgr) {
    write_text(file("in.csv"), std::string(kMixed) + "4,deleted one,1.00,T,2000-01-01,x,1\r\n");
    int rc = -1;
    qzdbf("import --quiet " + quoted(file("in.csv")) + " " + quoted(file("t.dbf")), &rc);
    ASSERT_EQ(rc, 0);
    Tqz_dbf_rw* t = qz_dbf_open(file("t.dbf").c_str(), false, false);
    ASSERT_NE(t, nullptr);
    ASSERT_TRUE(qz_dbf_set_deleted(t, 3, true));
    qz_dbf_close(t);
    // Logicals come back as 1/0 (booleans), the rest as written.
    const std::vector<std::vector<std::string>> want = {
        {"1", "Ёлкин Пётр", "12.5", "1", "2024-02-29", "a, b", "007"},
        {"-20", "Smith, \"Jr\"", "0.25", "0", "", "two\nlines", "12345"},
        {"300", "", "", "", "1999-12-31", "", ""}};
    for (const char* ext : {"gpkg", "csv", "geojson", "xlsx"}) {
        SCOPED_TRACE(ext);
        const std::string dest = file(std::string("out.") + ext);
        const std::string out = qzdbf("export " + quoted(file("t.dbf")) + " " + quoted(dest), &rc);
        ASSERT_EQ(rc, 0) << out;
        std::vector<std::string> names;
        const auto rows = read_back(dest, &names);
        EXPECT_EQ(names,
                  (std::vector<std::string>{"ID", "IMA", "PRICE", "OK", "DAY", "NOTE", "ZIP"}));
        ASSERT_EQ(rows.size(), want.size());  // the deleted record stays out
        for (size_t r = 0; r < rows.size(); ++r) {
            ASSERT_EQ(rows[r].size(), want[r].size());
            for (size_t c = 0; c < want[r].size(); ++c) {
                // An empty text cell may come back empty or null alike.
                EXPECT_TRUE(same_value(want[r][c], rows[r][c]))
                    << "record " << r << " field " << c << ": '" << rows[r][c] << "'";
            }
        }
        // An existing file is replaced only with --overwrite.
        qzdbf("export " + quoted(file("t.dbf")) + " " + quoted(dest), &rc);
        EXPECT_EQ(rc, 2);
    }
    // --format wins over the extension; --with-deleted keeps every record.
    qzdbf("export --with-deleted --format GeoJSON " + quoted(file("t.dbf")) + " " +
              quoted(file("all.txt")),
          &rc);
    ASSERT_EQ(rc, 0);
    EXPECT_EQ(read_back(file("all.txt")).size(), 4u);
    // FlatGeobuf: every record or, where GDAL's driver keeps no feature
    // without geometry, a refusal and no file.
    const std::string fgb =
        qzdbf("export " + quoted(file("t.dbf")) + " " + quoted(file("t.fgb")), &rc);
    if (rc == 0) {
        EXPECT_EQ(read_back(file("t.fgb")).size(), 3u);
    } else {
        EXPECT_EQ(rc, 3);
        EXPECT_NE(fgb.find("wrote 0 of 3 records"), std::string::npos) << fgb;
        EXPECT_FALSE(qz_test::exists(file("t.fgb")));
    }
    qzdbf("export " + quoted(file("t.dbf")) + " " + quoted(file("x.nosuch")), &rc);
    EXPECT_EQ(rc, 2);
    EXPECT_FALSE(qz_test::exists(file("x.nosuch")));
}

TEST_F(Impexp, StatsAgreeWithAnotherReader) {
    const std::string src = QZ_CORPUS_DIR "/ruby-dbf/dbase_03.dbf";
    int rc = -1;
    const std::string json = qzdbf("stats --json " + quoted(src), &rc);
    ASSERT_EQ(rc, 0) << json;
    // dbfread's view of the same fields.
    std::string py;
    ASSERT_EQ(qz_test::run("/usr/bin/python3 -c \"import dbfread\n"
                           "t=dbfread.DBF('" +
                               src +
                               "')\n"
                               "v=[r['Max_PDOP'] for r in t]\n"
                               "n=[x for x in v if x is not None]\n"
                               "d=[r['Date_Visit'] for r in t if r['Date_Visit']]\n"
                               "print(len(n), len(v)-len(n), min(n), max(n), len(set(n)), "
                               "min(d).isoformat(), max(d).isoformat(), len(set(d)))\"",
                           &py),
              0);
    double mn, mx;
    unsigned count, blank, distinct, dcount;
    char dmin[16], dmax[16];
    ASSERT_EQ(std::sscanf(py.c_str(), "%u %u %lf %lf %u %15s %15s %u", &count, &blank, &mn, &mx,
                          &distinct, dmin, dmax, &dcount),
              8)
        << py;
    char expect[256];
    std::snprintf(expect, sizeof expect,
                  "{\"name\": \"Max_PDOP\", \"type\": \"N\", \"length\": 5, \"decimals\": 1, "
                  "\"count\": %u, \"blank\": %u, \"min\": %.1f, \"max\": %.1f, \"distinct\": %u,",
                  count, blank, mn, mx, distinct);
    EXPECT_NE(json.find(expect), std::string::npos) << json << "\n" << expect;
    std::snprintf(expect, sizeof expect, "\"min\": \"%s\", \"max\": \"%s\", \"distinct\": %u,",
                  dmin, dmax, dcount);
    EXPECT_NE(json.find(expect), std::string::npos) << json << "\n" << expect;
}

}  // namespace
