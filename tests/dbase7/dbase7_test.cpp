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

#include "dbf/dbase7_descriptors.h"
#include "dbf/disk_table.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

struct cell {
    unsigned field, record;
    const char* shown;  // kind:value as shown() gives it
};
struct table_case {
    const char* path;
    unsigned fields, records;
    const char* encoding;                 // from the language-driver name at bytes 32..63
    std::vector<const char*> long_names;  // the first fields' full names
    std::vector<cell> cells;
};

std::string shown(const Tqz_dbf_value& v) {
    char buf[64];
    switch (v.kind) {
        case QZ_DBF_VALUE_NULL:
            return "null";
        case QZ_DBF_VALUE_INT:
            std::snprintf(buf, sizeof buf, "int:%lld", v.i);
            return buf;
        case QZ_DBF_VALUE_DATE:
            std::snprintf(buf, sizeof buf, "date:%lld", v.i);
            return buf;
        case QZ_DBF_VALUE_DATETIME:
            std::snprintf(buf, sizeof buf, "ms:%lld", v.i);
            return buf;
        case QZ_DBF_VALUE_DOUBLE:
            std::snprintf(buf, sizeof buf, "d:%.10g", v.d);
            return buf;
        case QZ_DBF_VALUE_BOOL:
            return v.i ? "true" : "false";
        case QZ_DBF_VALUE_TEXT:
            return "text:" + std::string(v.text, v.length);
        default:
            return std::to_string(v.kind) + ":" + std::string(v.text, v.length);
    }
}

const std::vector<table_case>& cases() {
    // clang-format off
    static const std::vector<table_case> all = {
        {"php-xbase/dBase/dBaseVII_int.dbf", 1, 6, "CP866", {"INT"},
         {{0, 0, "int:1"}, {0, 1, "int:-1"}, {0, 3, "int:-5000000"}, {0, 4, "int:2147483647"},
          {0, 5, "int:-2147483647"}}},
        {"php-xbase/dBase/dBaseVII_double.dbf", 1, 5, "CP1252", {"double"},
         {{0, 0, "d:-199.99"}, {0, 2, "d:43.65"}, {0, 3, "d:150.48"}, {0, 4, "d:0"}}},
        {"php-xbase/dBase/dBaseVII_ts.dbf", 1, 15, "CP866", {"TS"},
         {{0, 0, "ms:-11644473600000"}, {0, 3, "ms:0"}, {0, 9, "ms:946684800000"}}},
        {"php-xbase/dBase/dBaseVII.dbf", 12, 3, "CP866",
         {"NAME", "BIRTHDAY", "IS_MAN", "BIO", "MONEY", "IMAGE", "AUTO_INC", "INTEGER",
          "LARGE_INT", "DATETIME"},
         {{0, 0, "text:Groot"}, {1, 0, "date:19601101"}, {2, 2, "true"}, {6, 0, "int:0"},
          {7, 2, "int:3"}, {9, 0, "ms:-5364658739000"}, {9, 2, "ms:1582230020000"}}},
        {"javadbf/inventory.dbf", 6, 12, "CP437", {"Item ID", "Supplier ID", "Description", "Qty"},
         {{0, 0, "int:1"}, {2, 0, "text:Dartboard"}, {3, 0, "int:53"}, {3, 1, "int:69"}}},
        {"ruby-dbf/dbase_8c.dbf", 6, 10, "CP437",
         {"ID", "Name", "Species", "Length CM", "Description", "OLE Graphic"},
         {{0, 1, "int:2"}, {1, 0, "text:Clown Triggerfish"}, {3, 1, "d:228"}}},
        {"javadbf/fixtures/dbase_7.dbf", 4, 3, "CP1252", {"ACTION", "DATE", "USER", "ID"},
         {{1, 0, "date:20150223"}, {2, 0, "text:DFG"}}},
        {"javadbf/test_delete.dbf", 1, 3, "CP1251", {"FNAME"}, {{0, 1, "text:michael"}}},
        {"javadbf/bug-102/bug102.dbf", 103, 18, "CP1252", {"DataNumber", "Index1"},
         {{0, 0, "d:193786"}, {1, 0, "text:WT-05561 GULF POWER CO."}}},
    };
    // clang-format on
    return all;
}

TEST(Dbase7, CorpusTablesReadFieldByFieldAndValueByValue) {
    for (const table_case& c : cases()) {
        SCOPED_TRACE(c.path);
        const std::string path = std::string(QZ_CORPUS_DIR) + "/" + c.path;
        Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
        ASSERT_NE(t, nullptr);
        EXPECT_EQ(qz_dbf_get_nf(t), c.fields);
        EXPECT_EQ(qz_dbf_get_nr(t), c.records);
        char encoding[32] = "";
        qz_dbf_get_encoding(t, encoding, sizeof encoding);
        EXPECT_STREQ(encoding, c.encoding);
        for (size_t f = 0; f < c.long_names.size(); ++f) {
            // The classic interface gives the first 10 bytes of the name.
            const std::string full = c.long_names[f];
            const char* classic = qz_dbf_get_field_name(t, static_cast<unsigned>(f));
            ASSERT_NE(classic, nullptr);
            EXPECT_EQ(std::string(classic), full.substr(0, 10));
            const char* whole = qz_dbf_get_field_long_name(t, static_cast<unsigned>(f));
            EXPECT_STREQ(whole ? whole : "(null)", c.long_names[f]);
        }
        if (std::strcmp(c.path, "php-xbase/dBase/dBaseVII.dbf") == 0) {
            // The letters as written, also those no classic type stands for.
            std::string letters;
            for (unsigned f = 0; f < c.fields; ++f) letters += qz_dbf_get_field_letter(t, f);
            EXPECT_EQ(letters, "CDLMNM+IN@BG");
            EXPECT_EQ(qz_dbf_get_field_letter(t, c.fields), '\0');
        }
        for (const cell& x : c.cells) {
            // Integers read the same through the classic interface.
            if (std::strncmp(x.shown, "int:", 4) == 0 &&
                qz_dbf_get_field_type(t, x.field) == dbf_ft_integer) {
                bool ok = false;
                EXPECT_STREQ(qz_dbf_get_str(t, x.field, x.record, ok), x.shown + 4);
            }
            Tqz_dbf_value v;
            ASSERT_TRUE(qz_dbf_get_value(t, x.field, x.record, &v));
            EXPECT_EQ(shown(v), x.shown) << "field " << x.field << " record " << x.record;
        }
        qz_dbf_close(t);

        // The full names, kept beside the cut ones.
        Tqz_dbf_disk disk;
        ASSERT_EQ(disk.open(path.c_str(), true, false, true), 0);
        for (size_t f = 0; f < c.long_names.size(); ++f) {
            const char* full = disk.get_long_field_name(static_cast<unsigned>(f));
            ASSERT_NE(full, nullptr);
            EXPECT_STREQ(full, c.long_names[f]);
        }
        disk.close();
    }
}

// A table of one C field named with 31 characters, one record "hello".
std::vector<uint8_t> hand_made(const std::string& name) {
    std::vector<uint8_t> b(68 + 48 + 1, 0);
    b[0] = 0x04;
    b[4] = 1;                                   // one record
    b[8] = static_cast<uint8_t>(b.size());      // header length
    b[10] = 9;                                  // record length: flag + 8
    std::memcpy(b.data() + 32, "DBWINUS0", 8);  // language driver name
    std::memcpy(b.data() + 68, name.data(), std::min<size_t>(name.size(), 32));
    b[68 + 32] = 'C';
    b[68 + 33] = 8;
    b[68 + 48] = 0x0D;
    for (char ch : std::string(" hello   ")) b.push_back(static_cast<uint8_t>(ch));
    b.push_back(0x1A);
    return b;
}

// The language-driver name at bytes 32..63 is read in dBASE 7 headers only:
// elsewhere those bytes are the first field's name.
TEST(Dbase7, DriverNamesCountOnlyInDbase7Headers) {
    qz_test::Temp_dir dir;
    const std::string path = dir.file("driver.dbf");
    char name[32] = "";
    qz_test::write_bytes(path, hand_made("NAME"));
    EXPECT_EQ(qz_dbf_detect_encoding(path.c_str(), nullptr, 0, name, sizeof name),
              QZ_DBF_ENC_LANGUAGE_DRIVER);
    EXPECT_STREQ(name, "CP1252");
    for (uint8_t version : {0x03, 0x83, 0x30}) {
        qz_test::write_bytes(path, qz_test::dbf_bytes(version, {{"DB866RU0", 'C', 8}}, {{"x"}}));
        EXPECT_EQ(qz_dbf_detect_encoding(path.c_str(), nullptr, 0, name, sizeof name),
                  QZ_DBF_ENC_DEFAULT)
            << int(version);
        EXPECT_STREQ(name, "CP1251");
    }
}

TEST(Dbase7, LongNamesAndDamagedHeadersAreSurvived) {
    qz_test::Temp_dir dir;
    const std::string name31 = "A_FIELD_NAME_OF_31_CHARACTERS_X";
    ASSERT_EQ(name31.size(), 31u);
    const std::string path = dir.file("long.dbf");
    qz_test::write_bytes(path, hand_made(name31));

    Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
    ASSERT_NE(t, nullptr);
    ASSERT_EQ(qz_dbf_get_nf(t), 1u);
    EXPECT_STREQ(qz_dbf_get_field_name(t, 0), "A_FIELD_NA");
    bool ok = false;
    EXPECT_STREQ(qz_dbf_get_str(t, 0, 0, ok), "hello   ");
    EXPECT_TRUE(ok);
    qz_dbf_close(t);

    Tqz_dbf_disk disk;
    ASSERT_EQ(disk.open(path.c_str(), true, false, true), 0);
    EXPECT_STREQ(disk.get_long_field_name(0), name31.c_str());
    disk.close();

    // A name filling all 32 bytes without NUL is cut at 31.
    std::vector<qz::dbf::Tdbf_descriptor> found;
    std::vector<std::string> names;
    std::vector<uint8_t> full = hand_made(std::string(32, 'Z'));
    qz::dbf::parse_dbase7_descriptors(full.data(), 68 + 49, found, names);
    ASSERT_EQ(names.size(), 1u);
    EXPECT_EQ(names[0], std::string(31, 'Z'));
    EXPECT_EQ(found[0].type(), 'C');
    EXPECT_EQ(found[0].flen(), 8);

    // Areas cut anywhere: a descriptor cut short is no descriptor.
    for (size_t size = 0; size <= full.size(); ++size) {
        qz::dbf::parse_dbase7_descriptors(full.data(), size, found, names);
        EXPECT_EQ(found.size(), size >= 68 + 48 ? 1u : 0u) << size;
        EXPECT_EQ(names.size(), found.size());
    }

    // Whole files cut anywhere, and header lengths that do not fit the
    // descriptors, open or are refused without harm.
    for (size_t size = 0; size <= full.size() + 10; size += 3) {
        std::vector<uint8_t> cut = hand_made(name31);
        cut.resize(std::min(size, cut.size()));
        qz_test::write_bytes(path, cut);
        if (Tqz_dbf_rw* h = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY)) {
            for (unsigned f = 0; f < qz_dbf_get_nf(h); ++f) {
                Tqz_dbf_value v;
                qz_dbf_get_value(h, f, 0, &v);
            }
            qz_dbf_close(h);
        }
        for (unsigned length : {0u, 40u, 100u, 116u, 200u, 65535u}) {
            std::vector<uint8_t> odd = hand_made(name31);
            odd[8] = static_cast<uint8_t>(length);
            odd[9] = static_cast<uint8_t>(length >> 8);
            odd.resize(std::min(size + 68, odd.size()));
            qz_test::write_bytes(path, odd);
            Tqz_dbf_disk d;
            if (d.open(path.c_str(), true, false, true) == 0) {
                for (unsigned f = 0; f < d.get_nf(); ++f) d.get_string(static_cast<int>(f), 0);
                d.close();
            }
        }
    }
}

TEST(Dbase7, TypedWritesToBigEndianFieldsKeepTheirByteOrder) {
    qz_test::Temp_dir dir;
    const std::string path = qz_test::copy_with_companions(
        std::string(QZ_CORPUS_DIR) + "/php-xbase/dBase/dBaseVII_int.dbf", dir.path());
    Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), 0);
    ASSERT_NE(t, nullptr);
    Tqz_dbf_value v{QZ_DBF_VALUE_INT, 7, 0.0, nullptr, 0};
    EXPECT_TRUE(qz_dbf_set_value(t, 0, 0, &v)) << qz_dbf_last_error_message();
    Tqz_dbf_value back;
    ASSERT_TRUE(qz_dbf_get_value(t, 0, 0, &back));
    EXPECT_EQ(shown(back), "int:7");
    qz_dbf_close(t);
    const std::vector<uint8_t> after = qz_test::read_bytes(path);
    const size_t at = after[8] | after[9] << 8;  // the first record
    EXPECT_EQ(std::vector<uint8_t>(after.begin() + at + 1, after.begin() + at + 5),
              (std::vector<uint8_t>{0x80, 0, 0, 7}));
}

// A memory table loads the same fields and cells, and does not save a
// dBASE 7 table (its descriptors and numbers would not come back).
TEST(Dbase7, MemoryTablesLoadButDoNotSave) {
    qz_test::Temp_dir dir;
    const std::string path = qz_test::copy_with_companions(
        std::string(QZ_CORPUS_DIR) + "/javadbf/inventory.dbf", dir.path());
    const std::vector<uint8_t> before = qz_test::read_bytes(path);
    Tqz_dbf_memory* m = qz_dbf_mem_load(path.c_str());
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(qz_dbf_mem_get_nf(m), 6u);
    EXPECT_EQ(qz_dbf_mem_get_nr(m), 12u);
    EXPECT_STREQ(qz_dbf_mem_get_field_name(m, 1), "Supplier I");
    EXPECT_EQ(qz_dbf_mem_get_field_flen(m, 2), 40u);
    EXPECT_FALSE(qz_dbf_mem_save(m));
    qz_dbf_mem_free(m);
    EXPECT_EQ(qz_test::read_bytes(path), before);
}

}  // namespace
