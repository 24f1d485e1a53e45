// The encoding chosen for every table of the corpus against the one
// python3-dbfread chooses; every difference must have a known reason (the
// script prints them).
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace fs = std::filesystem;

TEST(EncodingCorpus, ChoicesAgainstDbfread) {
    if (!qz_test::have_dbfread()) GTEST_SKIP() << "python3-dbfread is not installed";
    qz_test::Temp_dir dir;
    const std::string ours = dir.file("ours.tsv");
    std::ofstream out(ours);
    int tables = 0;
    for (const auto& entry : fs::recursive_directory_iterator(QZ_CORPUS_DIR)) {
        std::string ext = entry.path().extension().string();
        for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        if (!entry.is_regular_file() || ext != ".dbf") continue;
        char name[64];
        const int source =
            qz_dbf_detect_encoding(entry.path().c_str(), nullptr, 0, name, sizeof name);
        // Every file of the corpus with a header gets an encoding.
        if (fs::file_size(entry.path()) >= 32) {
            EXPECT_NE(source, QZ_DBF_ENC_NONE) << entry.path();
        }
        out << fs::relative(entry.path(), QZ_CORPUS_DIR).string() << '\t' << name << '\t' << source
            << '\n';
        ++tables;
    }
    out.close();
    ASSERT_GT(tables, 0);
    std::string report;
    const int status = qz_test::run(std::string("/usr/bin/python3 ") + QZ_COMPARE_SCRIPT + " '" +
                                        QZ_CORPUS_DIR + "' '" + ours + "' 2>&1",
                                    &report);
    std::printf("%s", report.c_str());
    EXPECT_EQ(status, 0) << report;
}
