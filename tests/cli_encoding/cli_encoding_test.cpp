// One encoding for a table's text everywhere in qzdbf: what set writes is
// what get, dump and export read, in the encoding --encoding names, else the
// .cpg file's, else the language driver's; info says which and from where.
#include <gtest/gtest.h>

#include "cli_run.h"

namespace {

using namespace qz_cli;

// The bytes of the one 10-byte C cell of record 0, without the spaces that
// pad it.
std::string cell_bytes(const std::string& path) {
    return qz_test::raw_cell(qz_test::read_bytes(path), 0, 1, 10);
}

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST(CliEncoding, SetGetDumpAndInfoAgreeOnTheChosenEncoding) {
    qz_test::Temp_dir dir;
    const std::string t = quoted(dir.file("t.dbf")), csv = dir.file("out.csv");
    ASSERT_EQ(qzdbf("create " + t + " NAME:C:10 --records 1").status, 0);
    write_text(dir.file("t.cpg"), "1252");  // CP1252 in one spelling

    // The .cpg file's encoding, for writing and reading alike.
    EXPECT_EQ(qzdbf("set " + t + " NAME 0 café").status, 0);
    EXPECT_EQ(cell_bytes(dir.file("t.dbf")), "caf\xE9");
    EXPECT_EQ(qzdbf("get " + t + " NAME 0").out, "café\n");
    EXPECT_TRUE(has(qzdbf("dump --csv " + t).out, "café,"));
    EXPECT_TRUE(has(qzdbf("info " + t).out, "encoding  CP1252 (from the .cpg file)"));

    // A character the encoding lacks, or too many bytes: refused, nothing written.
    const Outcome refused = qzdbf("set " + t + " NAME 0 Жук");
    EXPECT_TRUE(refused.status == 2 && has(refused.out, "CP1252")) << refused.out;
    EXPECT_EQ(qzdbf("set " + t + " NAME 0 cafécaféca").status, 0);  // 10 characters, 10 bytes
    EXPECT_EQ(qzdbf("set " + t + " NAME 0 cafécaféca+").status, 2);
    EXPECT_EQ(qzdbf("get " + t + " NAME 0").out, "cafécaféca\n");

    // --encoding wins over the .cpg file, on every command, the same way.
    const std::string l2 = " --encoding ISO-8859-2 ";
    EXPECT_EQ(qzdbf("set" + l2 + t + " NAME 0 łódź").status, 0);
    EXPECT_EQ(cell_bytes(dir.file("t.dbf")), "\xB3\xF3\x64\xBC");
    EXPECT_EQ(qzdbf("get" + l2 + t + " NAME 0").out, "łódź\n");
    EXPECT_TRUE(has(qzdbf("dump --csv" + l2 + t).out, "łódź,"));
    EXPECT_TRUE(has(qzdbf("stats --json" + l2 + t).out, "łódź"));
    EXPECT_TRUE(qzdbf("export --quiet" + l2 + t + " " + quoted(csv)).status == 0 &&
                has(read_text(csv), "łódź"));
    EXPECT_TRUE(has(qzdbf("info" + l2 + t).out, "encoding  ISO-8859-2 (named by the caller)"));
    // Read without it, the same bytes are CP1252 text, as the .cpg says.
    EXPECT_EQ(qzdbf("get " + t + " NAME 0").out, "³ód¼\n");

    // An unknown name is bad usage on every command, before anything is done.
    for (const std::string& cmd : {"get " + t + " NAME 0", "set " + t + " NAME 0 x", "dump " + t,
                                   "info " + t, "stats " + t, "export " + t + " x.csv"}) {
        const Outcome r =
            qzdbf(cmd + " --encoding NO-SUCH-CODE", "cd " + quoted(dir.path()) + " &&");
        EXPECT_TRUE(r.status == 2 && has(r.out, "--encoding")) << cmd << ": " << r.out;
    }
    EXPECT_EQ(cell_bytes(dir.file("t.dbf")), "\xB3\xF3\x64\xBC");
    EXPECT_FALSE(qz_test::exists(dir.file("x.csv")));

    // Field names are decoded, shown and named in the same encoding (a
    // table whose names are UTF-8 bytes, without a .cpg or driver byte).
    const std::string u = " --encoding UTF-8 '" QZ_CORPUS_DIR "/ruby-dbf/dbase_03_cyrillic.dbf' ";
    EXPECT_EQ(qzdbf("get" + u + "ШАР 0").out, "Номер\n");
    EXPECT_EQ(lines_of(qzdbf("dump --csv --fields ПЛОЩА" + u).out)[0], "ПЛОЩА,deleted\r");
    EXPECT_TRUE(has(qzdbf("info" + u).out, "  0  ШАР            C   25")) << qzdbf("info" + u).out;
}

// create --encoding: the language driver of the code page (where there is
// one) and a .cpg file name it; info, set and get follow it; import makes
// its tables the same way. An unknown name leaves no file.
TEST(CliEncoding, CreateNamesTheEncodingAndDbase7NamesReachTheExport) {
    const struct {
        std::string given, name, text;
        uint8_t driver;
        std::string bytes;
    } cases[] = {{"1251", "CP1251", "Жук", 0xC9, "\xC6\xF3\xEA"},
                 {"'OEM 866'", "CP866", "Жук", 0x65, "\x86\xE3\xAA"},
                 {"KOI8-R", "KOI8-R", "Жук", 0x00, "\xF6\xD5\xCB"},
                 {"latin2", "ISO-8859-2", "łódź", 0x00, "\xB3\xF3\x64\xBC"},
                 {"utf8", "UTF-8", "łó", 0x00, "\xC5\x82\xC3\xB3"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.given);
        qz_test::Temp_dir dir;
        const std::string path = dir.file("t.dbf"), t = quoted(path);
        ASSERT_EQ(qzdbf("create " + t + " NAME:C:10 --records 1 --encoding " + c.given).status, 0);
        EXPECT_EQ(qz_test::read_bytes(path)[29], c.driver);
        EXPECT_EQ(read_text(dir.file("t.cpg")), c.name + "\n");
        EXPECT_TRUE(has(qzdbf("info " + t).out, "encoding  " + c.name + " (from the .cpg file)"));
        EXPECT_TRUE(qzdbf("set " + t + " NAME 0 " + c.text).status == 0 &&
                    cell_bytes(path) == c.bytes);
        EXPECT_EQ(qzdbf("get " + t + " NAME 0").out, c.text + "\n");
    }
    qz_test::Temp_dir dir;
    const Outcome r =
        qzdbf("create " + quoted(dir.file("t.dbf")) + " A:C:1 --encoding NO-SUCH-CODE");
    EXPECT_TRUE(r.status == 2 && has(r.out, "NO-SUCH-CODE")) << r.out;
    EXPECT_EQ(folder_names(dir.path()), std::vector<std::string>{});
    write_text(dir.file("in.csv"), "A\nx\n");
    const std::string here = "cd " + quoted(dir.path()) + " &&";
    ASSERT_EQ(qzdbf("import --quiet --encoding CP1252 in.csv t.dbf", here).status, 0);
    EXPECT_EQ(qz_test::read_bytes(dir.file("t.dbf"))[29], 0x03);
    // dBASE 7 names are up to 31 characters: export's header carries them whole.
    const std::string csv = dir.file("inventory.csv");
    ASSERT_EQ(
        qzdbf("export --quiet '" QZ_CORPUS_DIR "/javadbf/inventory.dbf' " + quoted(csv)).status, 0);
    EXPECT_EQ(read_text(csv).rfind("Item ID,Supplier ID,Description,", 0), 0u) << read_text(csv);
}

}  // namespace
