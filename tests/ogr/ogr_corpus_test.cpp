// The largest tables of the corpus read through the OGR table: every cell,
// as text, is what ogrinfo prints for it.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "ogr/ogr_table.h"
#include "test_support.h"

namespace {

namespace fs = std::filesystem;

std::vector<std::string> largest_tables(size_t count) {
    std::vector<std::pair<uintmax_t, std::string>> all;
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(QZ_CORPUS_DIR, ec);
         it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (ec) break;
        std::string ext = it->path().extension().string();
        std::transform(ext.begin(), ext.end(), ext.begin(), ::tolower);
        if (ext == ".dbf" && it->is_regular_file(ec))
            all.emplace_back(it->file_size(ec), it->path().string());
    }
    std::sort(all.rbegin(), all.rend());
    std::vector<std::string> paths;
    for (size_t i = 0; i < all.size() && i < count; ++i) paths.push_back(all[i].second);
    return paths;
}

std::string quoted(const std::string& s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

// ogrinfo's features of the table's one layer: per feature, the fields it
// prints in order with their values ("(null)" for a null field; unset fields
// are not printed). A value may span lines, so a line that does not start one of the
// table's fields continues the value before it.
using Printed = std::vector<std::pair<std::string, std::string>>;  // name, value in order

std::vector<Printed> ogrinfo_features(const std::string& path,
                                      const std::vector<std::string>& names) {
    std::string out;
    qz_test::run("ogrinfo -ro -q -al -geom=NO " + quoted(path) + " 2>/dev/null", &out);
    std::vector<std::vector<std::string>> blocks;
    std::istringstream in(out);
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("OGRFeature(", 0) == 0)
            blocks.emplace_back();
        else if (!blocks.empty())
            blocks.back().push_back(line);
    }
    std::vector<Printed> features;
    for (auto& lines : blocks) {
        if (!lines.empty() && lines.back().empty()) lines.pop_back();  // the blank line after
        features.emplace_back();
        std::string* value = nullptr;
        for (const std::string& l : lines) {
            const std::string* starts = nullptr;
            for (const std::string& n : names)
                if (l.rfind("  " + n + " (", 0) == 0 &&
                    l.find(") = ", n.size() + 3) != std::string::npos)
                    starts = &n;
            if (starts) {
                features.back().emplace_back(*starts,
                                             l.substr(l.find(") = ", starts->size() + 3) + 4));
                value = &features.back().back().second;
            } else if (value) {
                *value += "\n" + l;
            }
        }
    }
    return features;
}

TEST(OgrCorpus, EveryCellAsTextIsWhatOgrinfoPrints) {
    const std::vector<std::string> tables = largest_tables(20);
    ASSERT_EQ(tables.size(), 20u) << "corpus at " << QZ_CORPUS_DIR;
    int compared = 0;
    for (const std::string& path : tables) {
        SCOPED_TRACE(path);
        Tqz_dbf_ogr t;
        if (t.open(path.c_str(), true, false) != 0) {
            std::string out;
            qz_test::run("ogrinfo -ro -q -al -geom=NO " + quoted(path) + " 2>/dev/null", &out);
            EXPECT_EQ(out.find("OGRFeature("), std::string::npos) << "ogrinfo reads what we do not";
            continue;
        }
        ASSERT_EQ(t.get_nl(), 1u);
        std::vector<std::string> names;
        for (unsigned f = 0; f < t.get_nf(); ++f) names.push_back(t.get_field_name(f));
        const auto features = ogrinfo_features(path, names);
        // OGR counts a table's deleted records but reads past them, so the
        // count may exceed the features read; those last records read as
        // missing.
        ASSERT_LE(features.size(), t.get_nr());
        for (unsigned r = 0; r < t.get_nr(); ++r) {
            size_t next = 0;  // the next printed field of this feature
            for (unsigned f = 0; f < t.get_nf(); ++f) {
                bool ok = false;
                std::string ours = t.get_as_string(f, r, ok);
                const std::string name = t.get_field_name(f);
                if (r >= features.size()) {
                    EXPECT_FALSE(ok) << "record " << r << " is past the features read";
                    continue;
                }
                const Printed& printed = features[r];
                if (next >= printed.size() || printed[next].first != name) {
                    EXPECT_FALSE(ok) << "record " << r << " field " << f << " is not printed";
                    continue;
                }
                const std::string& theirs = printed[next++].second;
                if (theirs == "(null)") {
                    EXPECT_FALSE(ok) << "record " << r << " field " << f;
                    continue;
                }
                EXPECT_TRUE(ok) << "record " << r << " field " << f;
                EXPECT_EQ(ours, theirs) << "record " << r << " field " << f;
                ++compared;
            }
        }
        EXPECT_EQ(t.seek_count(), 0u) << "one pass in order";
    }
    EXPECT_GT(compared, 10000) << "cells compared";
}

}  // namespace
