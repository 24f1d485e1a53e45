// One encoding for a table's text everywhere in qzdbf: what set writes is
// what get, dump and export read, in the encoding --encoding names, else the
// .cpg file's, else the language driver's; info says which and from where.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

using qz_test::Temp_dir;

// qzdbf's standard output (standard error too with `with_errors`) and exit status.
std::string qzdbf(const std::string& args, int* status = nullptr, bool with_errors = false) {
    std::string out;
    const int rc = qz_test::run(
        "LC_ALL=C.UTF-8 " QZDBF_EXE " " + args + (with_errors ? " 2>&1" : " 2>/dev/null"), &out);
    if (status) *status = rc;
    return out;
}

// The bytes of the one 10-byte C cell of record 0.
std::vector<uint8_t> cell_bytes(const std::string& path) {
    std::vector<uint8_t> b = qz_test::read_bytes(path);
    const size_t header = b[8] | b[9] << 8;
    return std::vector<uint8_t>(b.begin() + header + 1, b.begin() + header + 11);
}

std::vector<uint8_t> padded(std::vector<uint8_t> v) {
    v.resize(10, ' ');
    return v;
}

TEST(CliEncoding, SetGetDumpAndInfoAgreeOnTheChosenEncoding) {
    Temp_dir dir;
    const std::string t = dir.file("t.dbf");
    int status = -1;
    qzdbf("create " + t + " NAME:C:10 --records 1", &status);
    ASSERT_EQ(status, 0);
    qz_test::write_bytes(dir.file("t.cpg"), {'1', '2', '5', '2'});  // CP1252 in one spelling

    // The .cpg file's encoding, for writing and reading alike.
    qzdbf("set " + t + " NAME 0 café", &status);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(cell_bytes(t), padded({'c', 'a', 'f', 0xE9}));
    EXPECT_EQ(qzdbf("get " + t + " NAME 0"), "café\n");
    EXPECT_NE(qzdbf("dump --csv " + t).find("café,"), std::string::npos);
    const std::string info = qzdbf("info " + t);
    EXPECT_NE(info.find("encoding  CP1252 (from the .cpg file)"), std::string::npos) << info;

    // A character the encoding lacks, or too many bytes: refused, nothing written.
    const std::string refused = qzdbf("set " + t + " NAME 0 Жук", &status, true);
    EXPECT_EQ(status, 2);
    EXPECT_NE(refused.find("CP1252"), std::string::npos) << refused;
    qzdbf("set " + t + " NAME 0 cafécaféca", &status);  // 10 characters, 10 bytes
    EXPECT_EQ(status, 0);
    qzdbf("set " + t + " NAME 0 cafécaféca+", &status);
    EXPECT_EQ(status, 2);
    EXPECT_EQ(qzdbf("get " + t + " NAME 0"), "cafécaféca\n");

    // --encoding wins over the .cpg file, on every command, the same way.
    qzdbf("set --encoding ISO-8859-2 " + t + " NAME 0 łódź", &status);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(cell_bytes(t), padded({0xB3, 0xF3, 'd', 0xBC}));
    EXPECT_EQ(qzdbf("get --encoding ISO-8859-2 " + t + " NAME 0"), "łódź\n");
    EXPECT_NE(qzdbf("dump --csv --encoding ISO-8859-2 " + t).find("łódź,"), std::string::npos);
    EXPECT_NE(qzdbf("stats --json --encoding ISO-8859-2 " + t).find("łódź"), std::string::npos);
    const std::string csv = dir.file("out.csv");
    qzdbf("export --quiet --encoding ISO-8859-2 " + t + " " + csv, &status);
    EXPECT_EQ(status, 0);
    const std::vector<uint8_t> exported = qz_test::read_bytes(csv);
    EXPECT_NE(std::string(exported.begin(), exported.end()).find("łódź"), std::string::npos);
    const std::string named = qzdbf("info --encoding ISO-8859-2 " + t);
    EXPECT_NE(named.find("encoding  ISO-8859-2 (named by the caller)"), std::string::npos) << named;
    // Read without it, the same bytes are CP1252 text, as the .cpg says.
    EXPECT_EQ(qzdbf("get " + t + " NAME 0"), "³ód¼\n");

    // An unknown name is bad usage on every command, before anything is done.
    for (const std::string& cmd :
         {"get " + t + " NAME 0", "set " + t + " NAME 0 x", "dump " + t, "info " + t, "stats " + t,
          "export " + t + " " + dir.file("x.csv")}) {
        const std::string out = qzdbf(cmd + " --encoding NO-SUCH-CODE", &status, true);
        EXPECT_EQ(status, 2) << cmd;
        EXPECT_NE(out.find("--encoding"), std::string::npos) << cmd << ": " << out;
    }
    EXPECT_EQ(cell_bytes(t), padded({0xB3, 0xF3, 'd', 0xBC}));
    EXPECT_FALSE(qz_test::exists(dir.file("x.csv")));
}

// create --encoding: the language driver of the code page (where there is
// one) and a .cpg file name it; info, set and get follow it; import makes
// its tables the same way. An unknown name leaves no file.
TEST(CliEncoding, CreateNamesTheEncodingInByte29AndTheCpgFile) {
    const struct {
        std::string given, name, text;
        uint8_t driver;
        std::vector<uint8_t> bytes;
    } cases[] = {{"1251", "CP1251", "Жук", 0xC9, {0xC6, 0xF3, 0xEA}},
                 {"'OEM 866'", "CP866", "Жук", 0x65, {0x86, 0xE3, 0xAA}},
                 {"KOI8-R", "KOI8-R", "Жук", 0x00, {0xF6, 0xD5, 0xCB}},
                 {"latin2", "ISO-8859-2", "łódź", 0x00, {0xB3, 0xF3, 'd', 0xBC}},
                 {"utf8", "UTF-8", "łó", 0x00, {0xC5, 0x82, 0xC3, 0xB3}}};
    for (const auto& c : cases) {
        Temp_dir dir;
        const std::string t = dir.file("t.dbf");
        int status = -1;
        qzdbf("create " + t + " NAME:C:10 --records 1 --encoding " + c.given, &status);
        ASSERT_EQ(status, 0) << c.given;
        EXPECT_EQ(qz_test::read_bytes(t)[29], c.driver) << c.given;
        const std::vector<uint8_t> cpg = qz_test::read_bytes(dir.file("t.cpg"));
        EXPECT_EQ(std::string(cpg.begin(), cpg.end()), c.name + "\n");
        EXPECT_NE(qzdbf("info " + t).find("encoding  " + c.name + " (from the .cpg file)"),
                  std::string::npos)
            << c.given;
        qzdbf("set " + t + " NAME 0 " + c.text, &status);
        EXPECT_EQ(status, 0) << c.given;
        EXPECT_EQ(cell_bytes(t), padded(c.bytes)) << c.given;
        EXPECT_EQ(qzdbf("get " + t + " NAME 0"), c.text + "\n");
    }
    Temp_dir dir;
    int status = -1;
    const std::string out =
        qzdbf("create " + dir.file("t.dbf") + " A:C:1 --encoding NO-SUCH-CODE", &status, true);
    EXPECT_EQ(status, 2);
    EXPECT_NE(out.find("NO-SUCH-CODE"), std::string::npos) << out;
    EXPECT_FALSE(qz_test::exists(dir.file("t.dbf")) || qz_test::exists(dir.file("t.cpg")));
    qz_test::write_bytes(dir.file("in.csv"), {'A', '\n', 'x', '\n'});
    qzdbf("import --quiet --encoding CP1252 " + dir.file("in.csv") + " " + dir.file("t.dbf"),
          &status);
    ASSERT_EQ(status, 0);
    EXPECT_EQ(qz_test::read_bytes(dir.file("t.dbf"))[29], 0x03);
}

// dBASE 7 names are up to 31 characters; the classic name is their first 10.
TEST(CliEncoding, Dbase7LongNamesReachTheExport) {
    const std::string table = std::string(QZ_CORPUS_DIR) + "/javadbf/inventory.dbf";
    if (!qz_test::exists(table)) GTEST_SKIP() << "no corpus";
    Tqz_dbf_rw* t = qz_dbf_open(table.c_str(), true, false);
    ASSERT_NE(t, nullptr);
    std::vector<std::string> names;
    for (unsigned int f = 0; f < qz_dbf_get_nf(t); ++f) {
        const char* full = qz_dbf_get_field_long_name(t, f);
        ASSERT_NE(full, nullptr);
        names.push_back(full);
        EXPECT_EQ(std::string(qz_dbf_get_field_name(t, f)), names.back().substr(0, 10));
    }
    EXPECT_EQ(qz_dbf_get_field_long_name(t, qz_dbf_get_nf(t)), nullptr);
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_ARGUMENT);
    qz_dbf_close(t);
    ASSERT_GE(names.size(), 3u);
    EXPECT_EQ(names[1], "Supplier ID");
    EXPECT_EQ(names[2], "Description");

    Temp_dir dir;
    const std::string csv = dir.file("inventory.csv");
    int status = -1;
    qzdbf("export --quiet " + table + " " + csv, &status);
    ASSERT_EQ(status, 0);
    const std::vector<uint8_t> bytes = qz_test::read_bytes(csv);
    const std::string text(bytes.begin(), bytes.end());
    std::string header;
    for (size_t i = 0; i < names.size(); ++i) header += (i ? "," : "") + names[i];
    EXPECT_EQ(text.substr(0, text.find('\n')), header);

    // A table of another dialect answers its classic names.
    Tqz_dbf_field f;
    qz_dbf_field_init(&f, "SHORT", dbf_ft_char, 4, 0);
    Tqz_dbf_rw* plain = qz_dbf_create(dir.file("p.dbf").c_str(), 1, 0, &f, false);
    ASSERT_NE(plain, nullptr);
    EXPECT_STREQ(qz_dbf_get_field_long_name(plain, 0), "SHORT");
    qz_dbf_close(plain);
}

}  // namespace
