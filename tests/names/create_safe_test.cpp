// qz_dbf_create_safe repairs the caller's names in place before the table is
// made, and another reader opens the table with those names.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "names_support.h"
#include "test_support.h"

using namespace names_test;

TEST(NamesCreateSafe, OtherReadersSeeTheRepairedNames) {
    Code_page utf8(65001);
    qz_test::Temp_dir dir;
    const std::string path = dir.file("safe.dbf");
    const std::vector<std::string> repaired = {"ID", "ID1", "X", "CENA", "A_B"};
    auto f = fields_of({"id", "ID", "1x", "Цена", "a#b"});
    qz_dbf_field_init(&f[0], "id", dbf_ft_numeric, 5, 0);
    qz_dbf_field_init(&f[3], "Цена", dbf_ft_numeric, 10, 2);
    Tqz_dbf_rw* t = qz_dbf_create_safe(dir.wfile("safe.dbf").c_str(), 5, 2, f.data(), false);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(names_of(f.data(), f.size()), repaired);
    for (unsigned i = 0; i < 5; ++i) EXPECT_EQ(qz_dbf_get_field_name(t, i), repaired[i]);
    EXPECT_TRUE(qz_dbf_set_int(t, 0, 0, 7) && qz_dbf_set_str(t, 1, 0, "seven") &&
                qz_dbf_set_dbl(t, 3, 0, 12.5) && qz_dbf_set_str(t, 4, 1, "ab"));
    qz_dbf_close(t);

    ASSERT_TRUE(qz_test::have_dbfread()) << "python3-dbfread is missing";
    std::string out;
    EXPECT_EQ(qz_test::run("/usr/bin/python3 -c \"import sys, dbfread\n"
                           "t = dbfread.DBF(sys.argv[1])\n"
                           "print(','.join(t.field_names))\n"
                           "for r in t: print(r['ID'], r['ID1'], r['CENA'], r['A_B'])\" '" +
                               path + "' 2>&1",
                           &out),
              0);
    EXPECT_EQ(out, "ID,ID1,X,CENA,A_B\n7 seven 12.5 \nNone  None ab\n");
}
