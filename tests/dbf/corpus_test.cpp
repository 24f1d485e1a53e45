// Every table of the sample corpus opens without a crash, and where it has a
// whole 32-byte header, the field and record counts are those its header
// and descriptors give: the record count from the header; the fields
// counted from offset 32 up to 0x0D, the end of the file, or the first
// descriptor that would not end within the header length.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "qzk_file_dbf.h"
#include "test_support.h"

namespace {

namespace fs = std::filesystem;

std::vector<std::string> corpus_tables() {
    std::vector<std::string> out;
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(QZ_CORPUS_DIR, ec);
         !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (!it->is_regular_file()) continue;
        std::string ext = it->path().extension().string();
        std::transform(ext.begin(), ext.end(), ext.begin(), ::tolower);
        if (ext == ".dbf") out.push_back(it->path().string());
    }
    std::sort(out.begin(), out.end());
    return out;
}

struct Expected {
    uint32_t records;
    uint32_t fields;
};

Expected counts_from_bytes(const std::vector<uint8_t>& b) {
    Expected e{0, 0};
    e.records = b[4] | b[5] << 8 | b[6] << 16 | static_cast<uint32_t>(b[7]) << 24;
    unsigned header_length = b[8] | b[9] << 8;
    for (uint64_t k = 0;; ++k) {
        uint64_t pos = 32 + 32 * k;
        if (pos >= b.size()) break;
        if (((32 * k + 64) & 0xFFFF) > header_length) break;
        if (b[pos] == 0x0D) break;
        ++e.fields;
    }
    return e;
}

TEST(Corpus, EveryTableOpensWithTheCountsOfItsHeader) {
    auto tables = corpus_tables();
    ASSERT_GT(tables.size(), 200u) << "corpus not found at " << QZ_CORPUS_DIR;
    int checked = 0, short_files = 0;
    for (const auto& path : tables) {
        SCOPED_TRACE(path);
        auto bytes = qz_test::read_bytes(path);
        Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), true, false);
        if (bytes.size() < 32) {
            // A file shorter than a header still opens; only what was read counts.
            ++short_files;
            if (t) qz_dbf_close(t);
            continue;
        }
        ASSERT_NE(t, nullptr);
        Expected want = counts_from_bytes(bytes);
        EXPECT_EQ(qz_dbf_get_nr(t), want.records);
        ASSERT_EQ(qz_dbf_get_nf(t), want.fields);
        // Every field answers; names are at most 10 characters of text.
        for (unsigned i = 0; i < want.fields; ++i) {
            const char* name = qz_dbf_get_field_name(t, i);
            ASSERT_NE(name, nullptr);
            EXPECT_LE(qz_dbf_get_field_flen(t, i), 255u);
        }
        EXPECT_EQ(qz_dbf_get_field_name(t, want.fields), nullptr);
        qz_dbf_close(t);
        ++checked;
    }
    EXPECT_GT(checked, 200);
    RecordProperty("tables_checked", checked);
    RecordProperty("short_files", short_files);
}

// The corpus files are read-only to us: a writable open must not change a
// byte of a copy, and it must write the .cpg beside the copy.
TEST(Corpus, WritableOpenAndCloseChangesNoTableByte) {
    qz_test::Temp_dir dir;
    int n = 0;
    for (const auto& path : corpus_tables()) {
        if (++n % 10) continue;  // a sample keeps the test quick
        SCOPED_TRACE(path);
        auto bytes = qz_test::read_bytes(path);
        std::string copy = dir.file("copy.dbf");
        qz_test::write_bytes(copy, bytes);
        std::remove(dir.file("copy.cpg").c_str());
        Tqz_dbf_rw* t = qz_dbf_open(copy.c_str(), false, false);
        ASSERT_NE(t, nullptr);
        qz_dbf_close(t);
        EXPECT_EQ(qz_test::read_bytes(copy), bytes);
        EXPECT_TRUE(qz_test::exists(dir.file("copy.cpg")));
    }
}

}  // namespace
