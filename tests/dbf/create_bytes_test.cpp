// Tables we create, byte for byte: header, descriptors with offsets, the
// terminator, blank records, the end marker, and the .cpg written at close.
#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <vector>

#include "qzk_file_dbf.h"
#include "test_support.h"

namespace {

using qz_test::read_bytes;
using qz_test::Temp_dir;

uint32_t u32(const std::vector<uint8_t>& b, size_t at) {
    return b[at] | b[at + 1] << 8 | b[at + 2] << 16 | static_cast<uint32_t>(b[at + 3]) << 24;
}
uint16_t u16(const std::vector<uint8_t>& b, size_t at) {
    return static_cast<uint16_t>(b[at] | b[at + 1] << 8);
}

std::vector<Tqz_dbf_field> sample_fields() {
    std::vector<Tqz_dbf_field> f(5);
    qz_dbf_field_init(&f[0], "NAME", dbf_ft_char, 20, 0);
    qz_dbf_field_init(&f[1], "PRICE", dbf_ft_numeric, 10, 2);
    qz_dbf_field_init(&f[2], "OK", dbf_ft_logical, 1, 0);
    qz_dbf_field_init(&f[3], "BORN", dbf_ft_date, 8, 0);
    qz_dbf_field_init(&f[4], "COUNT", dbf_ft_integer, 4, 0);
    return f;
}

TEST(CreateBytes, HeaderDescriptorsRecordsAndEndMarker) {
    Temp_dir dir;
    auto fields = sample_fields();
    std::string path = dir.file("t.dbf");
    std::time_t now = std::time(nullptr);
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), 5, 3, fields.data(), false);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(qz_dbf_get_nf(t), 5u);
    EXPECT_EQ(qz_dbf_get_nr(t), 3u);
    EXPECT_TRUE(qz_test::exists(path + ".lk")) << "a writer holds the lock while open";
    qz_dbf_close(t);
    EXPECT_FALSE(qz_test::exists(path + ".lk")) << "the lock file goes with the writer";

    auto b = read_bytes(path);
    const uint32_t header_length = 5 * 32 + 33, record_length = 1 + 20 + 10 + 1 + 8 + 4;
    ASSERT_EQ(b.size(), header_length + 3 * record_length + 1);

    // Header.
    std::tm local{};
    localtime_r(&now, &local);
    EXPECT_EQ(b[0], 3);
    EXPECT_EQ(b[1], (local.tm_year + 1900) % 100);
    EXPECT_EQ(b[2], local.tm_mon + 1);
    EXPECT_EQ(b[3], local.tm_mday);
    EXPECT_EQ(u32(b, 4), 3u);
    EXPECT_EQ(u16(b, 8), header_length);
    EXPECT_EQ(u16(b, 10), record_length);
    for (int i = 12; i < 32; ++i) EXPECT_EQ(b[i], 0) << "reserved header byte " << i;

    // Descriptors: NUL-padded name, letter, running offset, length, decimals, zeros.
    uint32_t offset = 1;
    for (size_t k = 0; k < fields.size(); ++k) {
        size_t d = 32 + 32 * k;
        std::string name(reinterpret_cast<const char*>(&b[d]), 11);
        EXPECT_EQ(name, std::string(fields[k].name, 11)) << k;
        EXPECT_EQ(b[d + 11], static_cast<uint8_t>(fields[k].type)) << k;
        EXPECT_EQ(u32(b, d + 12), offset) << k;
        EXPECT_EQ(b[d + 16], fields[k].flen) << k;
        EXPECT_EQ(b[d + 17], static_cast<uint8_t>(fields[k].dlen)) << k;
        for (size_t i = 18; i < 32; ++i) EXPECT_EQ(b[d + i], 0) << k << ":" << i;
        offset += fields[k].flen;
    }
    EXPECT_EQ(b[header_length - 1], 0x0D);

    // Blank records are spaces, deletion flag included; then 0x1A.
    for (size_t i = header_length; i < b.size() - 1; ++i) ASSERT_EQ(b[i], 0x20) << i;
    EXPECT_EQ(b.back(), 0x1A);

    // The .cpg is written at close: no flag means CP1251.
    EXPECT_EQ(qz_test::read_bytes(dir.file("t.cpg")),
              std::vector<uint8_t>({'C', 'P', '1', '2', '5', '1', '\n'}));
}

TEST(CreateBytes, ZeroFieldsAndZeroRecords) {
    Temp_dir dir;
    std::string path = dir.file("empty.dbf");
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), 0, 0, nullptr, false);
    ASSERT_NE(t, nullptr);
    qz_dbf_close(t);
    auto b = read_bytes(path);
    ASSERT_EQ(b.size(), 32u + 1 + 1);
    EXPECT_EQ(u16(b, 8), 33);
    EXPECT_EQ(u16(b, 10), 1);
    EXPECT_EQ(b[32], 0x0D);
    EXPECT_EQ(b[33], 0x1A);

    t = qz_dbf_open(path.c_str(), true, false);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(qz_dbf_get_nf(t), 0u);
    EXPECT_EQ(qz_dbf_get_nr(t), 0u);
    EXPECT_EQ(qz_dbf_get_field_name(t, 0), nullptr);
    EXPECT_EQ(qz_dbf_find_field_index_w(t, L"X"), 0xFFFFFFFFu);
    qz_dbf_close(t);
}

TEST(CreateBytes, CodePageFileFollowsTheFlagsAtClose) {
    Temp_dir dir;
    auto fields = sample_fields();
    struct Case {
        bool dos, utf8;
        const char* text;
    } cases[] = {{false, false, "CP1251\n"}, {true, false, "CP866\n"}, {false, true, "UTF-8\n"}};
    for (const auto& c : cases) {
        std::string path = dir.file("cp.dbf");
        Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), 1, 0, fields.data(), c.dos);
        ASSERT_NE(t, nullptr);
        EXPECT_EQ(qz_dbf_get_dos_flag(t), c.dos);
        if (c.utf8) qz_dbf_set_utf8_flag(t, true);
        qz_dbf_close(t);
        auto cpg = read_bytes(dir.file("cp.cpg"));
        EXPECT_EQ(std::string(cpg.begin(), cpg.end()), c.text);

        // Reopened without a DOS flag, the .cpg decides.
        t = qz_dbf_open(path.c_str(), true, false);
        ASSERT_NE(t, nullptr);
        EXPECT_EQ(qz_dbf_get_dos_flag(t), c.dos) << c.text;
        EXPECT_EQ(qz_dbf_get_utf8_flag(t), c.utf8) << c.text;
        qz_dbf_close(t);
    }
}

TEST(CreateBytes, FieldNamesAreStoredInTheTableEncoding) {
    Temp_dir dir;
    qz_options_set_ansi_code_page(65001);  // callers speak UTF-8
    Tqz_dbf_field f[2];
    qz_dbf_field_init(&f[0], "ИМЯ", dbf_ft_char, 10, 0);  // 6 bytes of UTF-8
    qz_dbf_field_init(&f[1], "ГОД", dbf_ft_numeric, 4, 0);
    for (bool dos : {false, true}) {
        std::string path = dir.file(dos ? "dos.dbf" : "win.dbf");
        Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), 2, 1, f, dos);
        ASSERT_NE(t, nullptr);
        qz_dbf_close(t);
        auto b = read_bytes(path);
        // "ИМЯ": CP1251 C8 CC DF, CP866 88 8C 9F.
        std::vector<uint8_t> want =
            dos ? std::vector<uint8_t>{0x88, 0x8C, 0x9F} : std::vector<uint8_t>{0xC8, 0xCC, 0xDF};
        EXPECT_EQ(std::vector<uint8_t>(b.begin() + 32, b.begin() + 35), want) << dos;
        EXPECT_EQ(b[35], 0);

        t = qz_dbf_open(path.c_str(), true, false);
        ASSERT_NE(t, nullptr);
        EXPECT_STREQ(qz_dbf_get_field_name(t, 0), "ИМЯ");
        EXPECT_STREQ(qz_dbf_get_field_name(t, 1), "ГОД");
        // Stored names are matched as ANSI text, not through the table's
        // encoding: with a CP1251 table they are found when callers speak CP1251.
        qz_options_set_ansi_code_page(1251);
        EXPECT_EQ(qz_dbf_find_field_index_w(t, L"ГОД"), dos ? 0xFFFFFFFFu : 1u);
        EXPECT_EQ(qz_dbf_find_field_index_w(t, L"год"), 0xFFFFFFFFu) << "exact match only";
        qz_options_set_ansi_code_page(65001);
        qz_dbf_close(t);
    }
    qz_options_set_ansi_code_page(0);
}

}  // namespace
