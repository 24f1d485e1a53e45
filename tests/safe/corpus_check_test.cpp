// The file check over every table of the corpus: no crash, and every table
// that another reader refuses for its structure or values has an error.
#include <gtest/gtest.h>

#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

struct Entry {
    std::string path;
    std::string dbfread;  // what python3-dbfread made of it
};

std::vector<Entry> manifest() {
    std::vector<Entry> out;
    std::ifstream in(QZ_CORPUS_DIR "/MANIFEST.tsv");
    std::string line;
    std::getline(in, line);  // the column names
    while (std::getline(in, line)) {
        std::vector<std::string> cols;
        std::istringstream s(line);
        for (std::string c; std::getline(s, c, '\t');) cols.push_back(c);
        if (cols.size() > 10) out.push_back(Entry{cols[0], cols[10]});
    }
    return out;
}

TEST(CorpusCheck, RefusedTablesHaveErrorFindings) {
    const std::vector<Entry> tables = manifest();
    if (tables.empty()) GTEST_SKIP() << "no corpus at " QZ_CORPUS_DIR;
    std::map<std::string, int> per_kind;
    std::map<int, int> per_worst;
    std::string all_paths;
    int refused = 0, refused_found = 0;
    for (const Entry& e : tables) {
        const std::string path = QZ_CORPUS_DIR "/" + e.path;
        all_paths += " '" + path + "'";
        Tqz_dbf_check_result* r = qz_dbf_check_file(path.c_str(), QZ_DBF_CHECK_VALUES);
        ASSERT_NE(r, nullptr) << e.path;
        const int worst = qz_dbf_check_worst(r);
        ++per_worst[worst];
        for (unsigned i = 0; i < qz_dbf_check_count(r); ++i)
            ++per_kind[std::to_string(qz_dbf_check_kind(r, i)) + "/" +
                       std::to_string(qz_dbf_check_severity(r, i))];
        qz_dbf_check_free(r);
        // Refusals for the text's encoding are a matter of the code page
        // the reader was given, not of the file.
        const bool refused_here = e.dbfread.rfind("ok", 0) != 0 &&
                                  e.dbfread.find("UnicodeDecodeError") == std::string::npos;
        if (refused_here) {
            ++refused;
            refused_found += worst >= QZ_DBF_SEV_ERROR;
            EXPECT_GE(worst, QZ_DBF_SEV_ERROR) << e.path << ": " << e.dbfread;
        }
    }
    // The tool over all of them at once: findings (1), never a crash.
    std::string out;
    EXPECT_EQ(qz_test::run("'" QZDBF_EXE "' check" + all_paths + " >/dev/null 2>&1", &out), 1);
    std::cout << tables.size()
              << " tables; worst severity (0 clean, 1 warning, 2 error, 3 not a table):";
    for (const auto& [w, n] : per_worst) std::cout << " " << w << ":" << n;
    std::cout << "\nfindings per kind/severity:";
    for (const auto& [k, n] : per_kind) std::cout << " " << k << "=" << n;
    std::cout << "\n"
              << refused_found << " of " << refused
              << " tables python3-dbfread refuses (not for encoding) have an error finding\n";
}

}  // namespace
