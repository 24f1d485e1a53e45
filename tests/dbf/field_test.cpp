// Field types, their letters and descriptor initialisation.
#include <gtest/gtest.h>

#include <cstring>

#include "qzk_file_dbf.h"

namespace {

TEST(FieldType, LettersAndTypesConvertBothWays) {
    const char letters[] = "CCNLMDFIBP";
    for (int t = 0; t <= 9; ++t)
        EXPECT_EQ(qz_dbftype2char(static_cast<Tqz_dbf_field_type>(t)), letters[t]) << t;
    // Out of range, including negative values, writes 'C'.
    EXPECT_EQ(qz_dbftype2char(static_cast<Tqz_dbf_field_type>(10)), 'C');
    EXPECT_EQ(qz_dbftype2char(static_cast<Tqz_dbf_field_type>(-1)), 'C');
    // Round trip is the identity for 1..9 and maps 0 to 1.
    for (int t = 1; t <= 9; ++t) {
        auto type = static_cast<Tqz_dbf_field_type>(t);
        EXPECT_EQ(qz_char2dbftype(static_cast<char>(qz_dbftype2char(type))), type);
    }
    EXPECT_EQ(qz_char2dbftype(static_cast<char>(qz_dbftype2char(dbf_ft_unknown))), dbf_ft_char);
    // Lower case, gaps in 'B'..'P' and letters outside it are unknown.
    for (char c : {'c', 'n', 'A', 'Q', 'E', 'G', 'H', 'J', 'K', 'O', '\0', '\xFF'})
        EXPECT_EQ(qz_char2dbftype(c), dbf_ft_unknown) << int(c);
}

TEST(FieldInit, NameIsCutAndTerminatedAndNothingIsValidated) {
    Tqz_dbf_field f;
    std::memset(&f, 0x7F, sizeof f);
    qz_dbf_field_init(&f, "ABCDEFGHIJK", static_cast<Tqz_dbf_field_type>(12), 200, -1);
    EXPECT_EQ(std::string(f.name), "ABCDEFGHIJ");
    EXPECT_EQ(f.name[10], 0);
    EXPECT_EQ(f.type, 'C');
    EXPECT_EQ(f.flen, 200);
    EXPECT_EQ(f.dlen, -1);

    qz_dbf_field_init(&f, "ID", dbf_ft_numeric, 5, 2);
    const char expected_name[11] = {'I', 'D', 0, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(std::memcmp(f.name, expected_name, 11), 0) << "shorter names are NUL-padded";
    EXPECT_EQ(f.type, 'N');
    EXPECT_EQ(sizeof(Tqz_dbf_field), 14u);
}

}  // namespace
