// A writable open of the corpus tables changes no byte of them.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "qzk_file_dbf.h"
#include "test_support.h"

namespace {

// The corpus files are read-only to us: a writable open must not change a
// byte of a copy, and it must write the .cpg beside the copy.
TEST(Corpus, WritableOpenAndCloseChangesNoTableByte) {
    qz_test::Temp_dir dir;
    int n = 0;
    for (const auto& path : qz_test::corpus_tables()) {
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
