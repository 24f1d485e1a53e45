// Each shared library exports its C interface and nothing else.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "test_support.h"

namespace {

// The defined dynamic symbols of a library that do not start with one of
// `prefixes`.
std::string foreign_symbols(const std::string& library, std::initializer_list<const char*> prefixes,
                            int& count) {
    std::string out;
    EXPECT_EQ(qz_test::run("nm -D --defined-only '" + library + "'", &out), 0) << library;
    std::istringstream lines(out);
    std::string line, foreign;
    count = 0;
    while (std::getline(lines, line)) {
        std::string name = line.substr(line.rfind(' ') + 1);
        ++count;
        bool ours = false;
        for (const char* p : prefixes) ours = ours || name.rfind(p, 0) == 0;
        if (!ours) foreign += name + "\n";
    }
    return foreign;
}

TEST(Exports, OnlyTheCInterface) {
    int count = 0;
    EXPECT_EQ(foreign_symbols(QZ_LIB_FILE_DBF, {"qz_"}, count), "");
    EXPECT_GT(count, 100);
    EXPECT_EQ(foreign_symbols(QZ_LIB_BASIC, {"qz_", "any_", "table_", "tuple_"}, count), "");
    EXPECT_GT(count, 50);
    EXPECT_EQ(foreign_symbols(QZ_LIB_PATH, {"qz_"}, count), "");
    EXPECT_GT(count, 2);
}

}  // namespace
