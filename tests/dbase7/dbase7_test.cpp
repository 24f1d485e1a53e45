// dBASE 7 tables: the corpus tables of versions 0x04 and 0x8C read through
// the classic and the typed interface, and hand-made headers. The expected
// values were decoded by hand from the files' bytes (GDAL does not read
// these tables): I and + are big-endian with the sign bit flipped
// (80 00 00 01 is 1, 7F FF FF FF is -1), O is a big-endian double with its
// order bits flipped, @ a plain big-endian double of milliseconds where day 1
// is 0001-01-01 (the php-xbase tables hold round test dates such as
// 1601-01-01, 1970-01-01 and 2020-02-20 20:20:20 that way).
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "../typed/table_builder.h"
#include "dbf/dbase7_descriptors.h"
#include "dbf/disk_table.h"

namespace {

// typed_test::shown, doubles to 10 digits.
std::string shown(const Tqz_dbf_value& v) {
    char buf[40];
    std::snprintf(buf, sizeof buf, "d:%.10g", v.d);
    return v.kind == QZ_DBF_VALUE_DOUBLE ? buf : typed_test::shown(v);
}

TEST(Dbase7, CorpusTablesReadValueByValueAndWrittenBackUnchanged) {
    // The path, field and record counts, the encoding named by the language
    // driver at bytes 32..63, the first fields' full names, cells as
    // field:record=shown.
    // clang-format off
    const struct { const char* path; unsigned fields, records; const char* encoding;
        std::vector<const char*> long_names; std::vector<std::string> cells; } cases[] = {
        {"php-xbase/dBase/dBaseVII_int.dbf", 1, 6, "CP866", {"INT"},
         {"0:0=2:1", "0:1=2:-1", "0:3=2:-5000000", "0:4=2:2147483647", "0:5=2:-2147483647"}},
        {"php-xbase/dBase/dBaseVII_double.dbf", 1, 5, "CP1252", {"double"},
         {"0:0=d:-199.99", "0:2=d:43.65", "0:3=d:150.48", "0:4=d:0"}},
        {"php-xbase/dBase/dBaseVII_ts.dbf", 1, 15, "CP866", {"TS"},
         {"0:0=6:-11644473600000", "0:3=6:0", "0:9=6:946684800000"}},
        {"php-xbase/dBase/dBaseVII.dbf", 12, 3, "CP866",
         {"NAME", "BIRTHDAY", "IS_MAN", "BIO", "MONEY", "IMAGE", "AUTO_INC", "INTEGER", "LARGE_INT", "DATETIME"},
         {"0:0=7:Groot", "1:0=5:19601101", "2:2=true", "6:0=2:0", "7:2=2:3", "9:0=6:-5364658739000", "9:2=6:1582230020000"}},
        {"javadbf/inventory.dbf", 6, 12, "CP437", {"Item ID", "Supplier ID", "Description", "Qty"},
         {"0:0=2:1", "2:0=7:Dartboard", "3:0=2:53", "3:1=2:69"}},
        {"ruby-dbf/dbase_8c.dbf", 6, 10, "CP437", {"ID", "Name", "Species", "Length CM", "Description", "OLE Graphic"},
         {"0:1=2:2", "1:0=7:Clown Triggerfish", "3:1=d:228"}},
        {"javadbf/fixtures/dbase_7.dbf", 4, 3, "CP1252", {"ACTION", "DATE", "USER", "ID"}, {"1:0=5:20150223", "2:0=7:DFG"}},
        {"javadbf/test_delete.dbf", 1, 3, "CP1251", {"FNAME"}, {"0:1=7:michael"}},
        {"javadbf/bug-102/bug102.dbf", 103, 18, "CP1252", {"DataNumber", "Index1"},
         {"0:0=d:193786", "1:0=7:WT-05561 GULF POWER CO."}},
        // clang-format on
    };
    unsigned written = 0, nulls = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        qz_test::Temp_dir dir;
        const std::string path =
            qz_test::copy_with_companions(std::string(QZ_CORPUS_DIR) + "/" + c.path, dir.path());
        const std::vector<uint8_t> before = qz_test::read_bytes(path);
        Tqz_dbf_rw* t = typed_test::open_ex(path, 0);
        EXPECT_EQ(qz_dbf_get_nf(t) * 1000 + qz_dbf_get_nr(t), c.fields * 1000 + c.records);
        char encoding[32] = "";
        qz_dbf_get_encoding(t, encoding, sizeof encoding);
        EXPECT_STREQ(encoding, c.encoding);
        // The classic interface gives the first 10 bytes of a name, the
        // long-name getter the whole of it.
        for (unsigned f = 0; f < c.long_names.size(); ++f) {
            EXPECT_EQ(std::string(qz_dbf_get_field_name(t, f)),
                      std::string(c.long_names[f]).substr(0, 10));
            EXPECT_STREQ(qz_dbf_get_field_long_name(t, f), c.long_names[f]);
        }
        std::string letters;  // the letters as written, also those no classic type stands for
        for (unsigned f = 0; f <= c.fields; ++f) letters += qz_dbf_get_field_letter(t, f);
        EXPECT_EQ(letters, c.fields == 12 ? std::string("CDLMNM+IN@BG", 13) : letters);
        for (const std::string& cell : c.cells) {
            unsigned f = 0, r = 0;
            ASSERT_EQ(std::sscanf(cell.c_str(), "%u:%u=", &f, &r), 2);
            const std::string want = cell.substr(cell.find('=') + 1);
            Tqz_dbf_value v;
            ASSERT_TRUE(qz_dbf_get_value(t, f, r, &v));
            EXPECT_EQ(shown(v), want) << cell;
            bool ok = false;  // integers read the same through the classic interface
            if (want.rfind("2:", 0) == 0 && qz_dbf_get_field_type(t, f) == dbf_ft_integer) {
                EXPECT_EQ(qz_dbf_get_str(t, f, r, ok), want.substr(2)) << cell;
            }
        }
        // Every I, O and @ cell written back with the value read from it
        // (nulls as null) leaves the file as it was.
        for (unsigned f = 0; f < c.fields; ++f)
            for (unsigned r = 0; r < c.records && std::strchr("IO@", letters[f]); ++r, ++written) {
                Tqz_dbf_value v;
                ASSERT_TRUE(qz_dbf_get_value(t, f, r, &v));
                EXPECT_TRUE(qz_dbf_set_value(t, f, r, &v)) << f << " " << r;
                nulls += v.kind == QZ_DBF_VALUE_NULL;
            }
        qz_dbf_close(t);
        // A memory table loads the same fields, and does not save a dBASE 7
        // table (its descriptors and numbers would not come back).
        Tqz_dbf_memory* m = qz_dbf_mem_load(path.c_str());
        EXPECT_EQ(qz_dbf_mem_get_nf(m) * 1000 + qz_dbf_mem_get_nr(m), c.fields * 1000 + c.records);
        EXPECT_STREQ(qz_dbf_mem_get_field_name(m, 0),
                     std::string(c.long_names[0]).substr(0, 10).c_str());
        EXPECT_EQ(qz_dbf_mem_get_field_flen(m, 0), before[68 + 33]);  // its length byte
        EXPECT_FALSE(qz_dbf_mem_save(m));
        qz_dbf_mem_free(m);
        EXPECT_TRUE(qz_test::read_bytes(path) == before);
    }
    EXPECT_GT(written, 100u);
    EXPECT_GT(nulls, 0u);  // the empty cells (zeros) are among them
}

// A table of one C field with the given name, one record "hello".
std::vector<uint8_t> hand_made(const std::string& name) {
    std::vector<uint8_t> b(68 + 48 + 1, 0);
    b[0] = 0x04, b[4] = 1, b[8] = static_cast<uint8_t>(b.size()), b[10] = 9;  // 1 record of 1 + 8
    std::memcpy(b.data() + 32, "DBWINUS0", 8);                                // language driver
    std::memcpy(b.data() + 68, name.data(), std::min<size_t>(name.size(), 32));
    b[68 + 32] = 'C', b[68 + 33] = 8, b[68 + 48] = 0x0D;
    for (char ch : std::string(" hello   \x1A")) b.push_back(static_cast<uint8_t>(ch));
    return b;
}

// Names of 31 characters; 32 without a NUL are cut at 31; descriptor areas,
// whole files and header lengths cut anywhere are survived. The
// language-driver name at bytes 32..63 is read in dBASE 7 headers only:
// elsewhere those bytes are the first field's name.
TEST(Dbase7, HandMadeHeadersNamesDriversAndDamage) {
    qz_test::Temp_dir dir;
    const std::string name31 = "A_FIELD_NAME_OF_31_CHARACTERS_X", path = dir.file("long.dbf");
    char name[32] = "";
    for (uint8_t version : {0x04, 0x03, 0x83, 0x30}) {
        qz_test::write_bytes(
            path, version == 0x04 ? hand_made(name31)
                                  : qz_test::dbf_bytes(version, {{"DB866RU0", 'C', 8}}, {{"x"}}));
        EXPECT_EQ(qz_dbf_detect_encoding(path.c_str(), nullptr, 0, name, sizeof name),
                  version == 0x04 ? QZ_DBF_ENC_LANGUAGE_DRIVER : QZ_DBF_ENC_DEFAULT);
        EXPECT_STREQ(name, version == 0x04 ? "CP1252" : "CP1251") << int(version);
    }
    qz_test::write_bytes(path, hand_made(name31));
    Tqz_dbf_rw* t = typed_test::open_ex(path, QZ_DBF_OPEN_READ_ONLY);
    ASSERT_EQ(qz_dbf_get_nf(t), 1u);
    EXPECT_STREQ(qz_dbf_get_field_name(t, 0), "A_FIELD_NA");
    EXPECT_STREQ(qz_dbf_get_field_long_name(t, 0), name31.c_str());
    bool ok = false;
    EXPECT_STREQ(qz_dbf_get_str(t, 0, 0, ok), "hello   ");
    qz_dbf_close(t);

    std::vector<qz::dbf::Tdbf_descriptor> found;
    std::vector<std::string> names;
    const std::vector<uint8_t> full = hand_made(std::string(32, 'Z'));
    qz::dbf::parse_dbase7_descriptors(full.data(), 68 + 49, found, names);
    ASSERT_EQ(names.size(), 1u);
    EXPECT_EQ(names[0], std::string(31, 'Z'));
    EXPECT_EQ(found[0].type(), 'C');
    EXPECT_EQ(found[0].flen(), 8);
    for (size_t size = 0; size <= full.size(); ++size) {  // a descriptor cut short is none
        qz::dbf::parse_dbase7_descriptors(full.data(), size, found, names);
        EXPECT_EQ(found.size(), size >= 68 + 48 ? 1u : 0u) << size;
        EXPECT_EQ(names.size(), found.size());
    }
    // Files cut anywhere, with any header length, open (forced) or not, and
    // every cell they give reads, through the exports and the table class.
    for (size_t size = 0; size <= full.size() + 10; size += 3)
        for (unsigned length : {117u, 0u, 40u, 100u, 116u, 200u, 65535u}) {
            std::vector<uint8_t> odd = hand_made(name31);
            odd[8] = static_cast<uint8_t>(length), odd[9] = static_cast<uint8_t>(length >> 8);
            odd.resize(std::min(size, odd.size()));
            qz_test::write_bytes(path, odd);
            t = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY | QZ_DBF_OPEN_FORCE);
            for (unsigned f = 0; f < qz_dbf_get_nf(t); ++f)
                typed_test::read_shown(t, f, 0), qz_dbf_get_str(t, f, 0, ok);
            qz_dbf_close(t);
            Tqz_dbf_disk d;  // and below the exports, which check the cell first
            const unsigned nf = d.open(path.c_str(), true, false, true) == 0 ? d.get_nf() : 0;
            for (unsigned f = 0; f < nf; ++f) d.get_string(static_cast<int>(f), 0);
        }
}

}  // namespace
