// Every table of the corpus that opens for writing, rewritten on a copy:
// a field added, one dropped, one C field made longer. The kept cells must
// read the same before and after, through this library and through dbfread.
// Prints the tables that could not be rewritten or compared, and why.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "qzk_file_dbf.h"
#include "restruct_tables.h"
#include "test_support.h"

using namespace restruct_test;
namespace fs = std::filesystem;

namespace {

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// The table and its companions (same stem in any letter case) copied to `to`.
void copy_with_companions(const fs::path& table, const fs::path& to) {
    fs::create_directories(to);
    const std::string stem = lower(table.stem().string());
    for (auto& e : fs::directory_iterator(table.parent_path()))
        if (e.is_regular_file() && lower(e.path().stem().string()) == stem)
            fs::copy_file(e.path(), to / e.path().filename());
}

TEST(CorpusRewrite, KeptCellsReadTheSame) {
    std::vector<fs::path> tables;
    for (auto& e : fs::recursive_directory_iterator(QZ_CORPUS_DIR))
        if (e.is_regular_file() && lower(e.path().extension().string()) == ".dbf")
            tables.push_back(e.path());
    std::sort(tables.begin(), tables.end());
    ASSERT_GT(tables.size(), 200u) << "the corpus is at " << QZ_CORPUS_DIR;

    qz_test::Temp_dir dir;
    std::ofstream list(dir.file("list.tsv"));
    int rewritten = 0, cells_compared = 0;
    std::vector<std::string> not_rewritten;
    for (size_t i = 0; i < tables.size(); ++i) {
        const std::string name = fs::relative(tables[i], QZ_CORPUS_DIR).string();
        const fs::path before = fs::path(dir.path()) / std::to_string(i) / "before";
        const fs::path after = fs::path(dir.path()) / std::to_string(i) / "after";
        copy_with_companions(tables[i], before);
        copy_with_companions(tables[i], after);
        const std::wstring path = qz_test::widen((after / tables[i].filename()).string());
        const auto started = std::chrono::steady_clock::now();

        Tqz_dbf_rw* w = qz_dbf_open_w(path.c_str(), false, false);
        if (!w) {
            not_rewritten.push_back(name + ": does not open for writing");
            continue;
        }
        const unsigned nf = qz_dbf_get_nf(w);
        // The records the file holds whole (a header may claim more).
        unsigned char h[32] = {0};
        qz_dbf_get_header(w, h);
        const uint64_t header_length = h[8] | h[9] << 8, record_length = h[10] | h[11] << 8;
        const uint64_t size = fs::file_size(tables[i]);
        const unsigned held = static_cast<unsigned>(
            std::min<uint64_t>(qz_dbf_get_nr(w), record_length == 0 || size < header_length
                                                     ? 0
                                                     : (size - header_length) / record_length));
        qz_dbf_close(w);
        auto old_cells = cells(path, held);
        Tqz_dbf_rstrct* d = qz_dbf_restruct_create_w(path.c_str());
        // Drop the last field (unless it is the only one); make the first C
        // field (if any) 5 bytes longer.
        const int drop = nf >= 2 ? static_cast<int>(nf) - 1 : static_cast<int>(nf);
        int longer = -1;
        Tqz_dbf_rw* r = qz_dbf_open_w(path.c_str(), true, false);
        for (int k = 0; k < drop && longer < 0; ++k)
            if (qz_dbf_get_field_type(r, static_cast<unsigned>(k)) == dbf_ft_char &&
                qz_dbf_restruct_get_field(d, k)->flen <= 250)
                longer = k;
        qz_dbf_close(r);
        std::vector<std::string> kept;
        for (int k = 0; k < drop; ++k) kept.push_back(qz_dbf_restruct_get_field(d, k)->name);
        if (longer >= 0) qz_dbf_restruct_get_field(d, longer)->flen += 5;
        if (drop < static_cast<int>(nf)) qz_dbf_restruct_remove_field_idx(d, drop);
        Tqz_dbf_field added;
        qz_dbf_field_init(&added, "QZ_ADDED", dbf_ft_numeric, 10, 2);
        qz_dbf_restruct_add_field(d, &added);
        const bool applied = qz_dbf_restruct_apply(d);
        qz_dbf_restruct_destroy(d);
        if (!applied) {
            not_rewritten.push_back(name + ": the rewrite refused the layout");
            continue;
        }
        ++rewritten;
        EXPECT_FALSE(fs::exists(after / (tables[i].filename().string() + ".bak.dbf"))) << name;

        auto new_cells = cells(path, held + 1);
        ASSERT_EQ(new_cells.size(), old_cells.size()) << name << ": every record kept";
        for (size_t r = 0; r < old_cells.size(); ++r) {
            ASSERT_EQ(new_cells[r].size(), static_cast<size_t>(drop) + 1) << name;
            for (int k = 0; k < drop; ++k) {
                std::string want = old_cells[r][static_cast<size_t>(k)];
                std::string got = new_cells[r][static_cast<size_t>(k)];
                // The longer C field went through its text: zero bytes after
                // the text became blanks, and there are 5 more of them.
                if (k == longer) {
                    want.erase(want.find_last_not_of(' ') + 1);
                    got.erase(got.find_last_not_of(' ') + 1);
                }
                EXPECT_EQ(got, want) << name << " record " << r << " field " << k;
                ++cells_compared;
            }
            const std::string& added_cell = new_cells[r][static_cast<size_t>(drop)];
            EXPECT_EQ(added_cell.find_first_not_of(' '), std::string::npos) << name;
        }
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        if (seconds > 2) std::printf("slow: %s %.1f s\n", name.c_str(), seconds);
        if (std::getenv("QZ_PROGRESS")) std::printf("%s %.2f s\n", name.c_str(), seconds);
        std::string kept_list;
        for (const auto& k : kept) kept_list += (kept_list.empty() ? "" : ",") + k;
        list << (before / tables[i].filename()).string() << '\t'
             << (after / tables[i].filename()).string() << '\t' << kept_list << '\t'
             << (longer >= 0 ? kept[static_cast<size_t>(longer)] : std::string()) << '\n';
    }
    list.close();

    std::string out;
    int status = qz_test::run(
        "/usr/bin/python3 '" QZ_RESTRUCT_SCRIPTS "/dbfread_kept.py' '" + dir.file("list.tsv") + "'",
        &out);
    int ok = 0, skipped = 0;
    std::string skips, diffs;
    for (size_t at = 0, nl; (nl = out.find('\n', at)) != std::string::npos; at = nl + 1) {
        std::string line = out.substr(at, nl - at);
        if (line.rfind("OK ", 0) == 0) ++ok;
        if (line.rfind("SKIP ", 0) == 0) ++skipped, skips += "  " + line + "\n";
        if (line.rfind("DIFF ", 0) == 0) diffs += "  " + line + "\n";
    }
    std::printf("corpus: %zu tables, %d rewritten, %d kept cells equal through the library\n",
                tables.size(), rewritten, cells_compared);
    std::printf("dbfread: %d tables equal, %d not readable by dbfread before the rewrite\n", ok,
                skipped);
    std::printf("not rewritten:\n");
    for (const auto& n : not_rewritten) std::printf("  %s\n", n.c_str());
    std::printf("not compared by dbfread:\n%s", skips.c_str());
    EXPECT_EQ(status, 0) << diffs;
    EXPECT_EQ(diffs, "");
}

}  // namespace
