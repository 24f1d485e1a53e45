// Real tables written by other software: every table survives every getter,
// and every cell of the tables dbfread reads reads the same here as there.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "qzk_basic.h"
#include "qzk_file_dbf.h"
#include "test_support.h"

namespace {

struct Manifest_row {
    std::string path;     // relative to the corpus folder
    std::string dbfread;  // what dbfread makes of it ("ok 4 records", an error)
};

std::vector<Manifest_row> read_manifest() {
    std::vector<Manifest_row> rows;
    std::ifstream in(std::string(QZ_CORPUS_DIR) + "/MANIFEST.tsv");
    std::string line;
    std::getline(in, line);  // column names
    while (std::getline(in, line)) {
        std::vector<std::string> cols;
        std::stringstream ss(line);
        std::string col;
        while (std::getline(ss, col, '\t')) cols.push_back(col);
        if (cols.size() >= 11) rows.push_back({cols[0], cols[10]});
    }
    return rows;
}

// Backslash, tab and line breaks escaped, as dbfread_peer.py reads them.
std::string escape(const char* text) {
    static const char specials[] = "\\\t\n\r", letters[] = "\\tnr";
    std::string out;
    for (const char* p = text ? text : ""; *p; ++p) {
        const char* special = std::strchr(specials, *p);
        out += special ? std::string("\\") + letters[special - specials] : std::string(1, *p);
    }
    return out;
}

const char* encoding_of(Tqz_dbf_rw* t) {
    if (qz_dbf_get_utf8_flag(t)) return "utf-8";
    return qz_dbf_get_dos_flag(t) ? "cp866" : "cp1251";
}

// Every cell as get_str gives it, with get_bool, get_int and get_dbl for
// the L, I and B fields, in the format the peer script reads.
void dump_table(std::ostream& out, const std::string& rel, Tqz_dbf_rw* t) {
    unsigned nf = qz_dbf_get_nf(t), nr = qz_dbf_get_nr(t);
    out << "T\t" << rel << '\t' << encoding_of(t) << '\t' << nr << '\n';
    std::vector<Tqz_dbf_field_type> types(nf);
    for (unsigned f = 0; f < nf; ++f) {
        types[f] = qz_dbf_get_field_type(t, f);
        char letter =
            types[f] == dbf_ft_unknown ? '?' : static_cast<char>(qz_dbftype2char(types[f]));
        out << "F\t" << escape(qz_dbf_get_field_name(t, f)) << '\t' << letter << '\t'
            << qz_dbf_get_field_flen(t, f) << '\t' << qz_dbf_get_field_dlen(t, f) << '\n';
    }
    for (unsigned r = 0; r < nr; ++r) {
        for (unsigned f = 0; f < nf; ++f) {
            bool ok = false;
            const char* text = qz_dbf_get_str(t, f, r, ok);
            out << "V\t" << r << '\t' << f << '\t' << ok << '\t' << escape(text);
            bool tok = false;
            char typed[64];
            if (types[f] == dbf_ft_logical) {
                bool v = qz_dbf_get_bool(t, f, r, tok);
                out << '\t' << tok << '\t' << v;
            } else if (types[f] == dbf_ft_integer) {
                int v = qz_dbf_get_int(t, f, r, tok);
                out << '\t' << tok << '\t' << v;
            } else if (types[f] == dbf_ft_double) {
                double v = qz_dbf_get_dbl(t, f, r, tok);
                std::snprintf(typed, sizeof typed, "%a", v);
                out << '\t' << tok << '\t' << typed;
            }
            out << '\n';
        }
    }
}

// Every getter on every cell of the first records and the last ones of
// every table that opens, past the last field and record too (neutral
// results; the sanitizer build checks the rest).
void every_getter(Tqz_dbf_rw* t, Iqz_string_adp* adp) {
    unsigned nf = qz_dbf_get_nf(t), nr = qz_dbf_get_nr(t);
    for (uint64_t next = 0; next < uint64_t{nr} + 2;
         next = next == 199 && nr > 202 ? nr - 2 : next + 1) {
        const unsigned r = static_cast<unsigned>(next);
        for (unsigned f = 0; f <= nf; ++f) {
            bool ok = false;
            unsigned len = 0;
            qz_dbf_get_str(t, f, r, ok);
            qz_dbf_get_str_w(t, f, r, adp);
            qz_dbf_get_wstr(t, f, r, len, ok, 0);
            qz_dbf_get_wstr_encoded(t, f, r, len, ok);
            qz_dbf_get_int(t, f, r, ok);
            qz_dbf_get_dbl(t, f, r, ok);
            qz_dbf_get_bool(t, f, r, ok);
            Tqz_any any;
            any_init(&any);
            qz_dbf_get_any(t, f, r, &any);
            any_clear(&any);
        }
    }
    unsigned rec = 0;
    qz_dbf_find_value(t, 0, "x", rec);
    qz_dbf_begin_fast_find(t, 0);
    qz_dbf_find_value_fast(t, "x", rec);
    qz_dbf_end_fast_find(t);
}

// Every table survives every getter; every cell of the tables dbfread reads
// reads the same here as there (dbfread_peer.py compares them).
TEST(Corpus, EveryTableSurvivesAndReadsAsDbfreadReadsIt) {
    qz_options_set_ansi_code_page(65001);
    const std::vector<Manifest_row> rows = read_manifest();
    ASSERT_GT(rows.size(), 200u) << "the corpus is at " << QZ_CORPUS_DIR;
    const bool dbfread = qz_test::have_dbfread();
    if (!dbfread) std::cout << "python3-dbfread is not installed: no comparison\n";
    qz_test::Temp_dir dir;
    std::string dump_path = dir.file("cells.tsv");
    std::ofstream dump(dump_path);
    Iqz_string_adp* adp = qz_string_adp_create(
        nullptr, [](void*, const wchar_t*) {}, nullptr);
    size_t opened = 0, tables = 0;
    for (const Manifest_row& row : rows) {
        std::string path = std::string(QZ_CORPUS_DIR) + "/" + row.path;
        Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), true, false);
        const bool theirs = row.dbfread.rfind("ok", 0) == 0;
        EXPECT_TRUE(t || !theirs) << "dbfread reads " << row.path
                                  << ", the library does not open it";
        if (!t) continue;
        ++opened;
        if (theirs) {
            dump_table(dump, row.path, t);
            ++tables;
        }
        every_getter(t, adp);
        qz_dbf_close(t);
    }
    qz_string_adp_destroy(adp);
    dump.close();
    EXPECT_GT(opened, 200u);
    if (!dbfread) return;

    std::string out;
    int status = qz_test::run("/usr/bin/python3 " QZ_TEST_SCRIPTS "/dbfread_peer.py compare '" +
                                  dump_path + "' '" QZ_CORPUS_DIR "'",
                              &out);
    std::istringstream lines(out);
    std::string line;
    size_t same = 0, listed = 0, diffs = 0, cells = 0;
    std::string listing;
    while (std::getline(lines, line)) {
        std::istringstream cols(line);
        std::string kind, path, count;
        std::getline(cols, kind, '\t');
        std::getline(cols, path, '\t');
        if (kind == "OK" || kind == "LISTED") {
            std::getline(cols, count, '\t');
            cells += std::stoul(count);
        }
        if (kind == "OK") ++same;
        if (kind == "LISTED") {
            ++listed;
            listing += "  " + line.substr(7) + "\n";
        }
        if (kind == "DIFF") {
            ++diffs;
            ADD_FAILURE() << line;
        }
    }
    std::cout << tables << " tables dbfread reads: " << same << " equal in every cell, " << listed
              << " listed (with what was not compared and why); " << cells << " cells compared, "
              << diffs << " differences\n"
              << listing;
    EXPECT_EQ(status, 0) << out;
    EXPECT_EQ(same + listed, tables);
}

}  // namespace
