// qzdbf import of a 1,000,000-line CSV (10 columns of every inferred type)
// against ogr2ogr making a .dbf from the same file, and the round trip:
// the table's `qzdbf dump --csv` compared byte for byte (cmp) with what the
// CSV says, in the forms the table keeps.
//
//   import_bench [FOLDER] [LINES]
//
// Each command runs three times by turns; the figure is the best CPU time
// (user + system) of the command and its children, which other work on the
// machine disturbs less than the wall clock (shown too).
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

const char* const kNames[] = {"Ivanov",     "Петров", "O'Brien", "Smith, Jr", "Sidorov \"Sid\"",
                              "Kuznetsova", "Ёлкин",  "Müller",  "Nguyen",    "Lee"};

struct Timing {
    double cpu = 1e30, wall = 1e30;
};

double children_cpu() {
    rusage ru;
    getrusage(RUSAGE_CHILDREN, &ru);
    return ru.ru_utime.tv_sec + ru.ru_utime.tv_usec * 1e-6 + ru.ru_stime.tv_sec +
           ru.ru_stime.tv_usec * 1e-6;
}

void run(const std::string& command, Timing& t) {
    std::fflush(stdout);
    const double c0 = children_cpu();
    const auto w0 = std::chrono::steady_clock::now();
    const int rc = std::system(command.c_str());
    const double wall =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - w0).count();
    if (rc != 0) {
        std::fprintf(stderr, "import_bench: failed (%d): %s\n", rc, command.c_str());
        std::exit(1);
    }
    t.cpu = std::min(t.cpu, children_cpu() - c0);
    t.wall = std::min(t.wall, wall);
}

// A cell as the CSV holds it: quoted when it has a comma, a quote or a line
// break (as `dump --csv` writes it too).
std::string csv_cell(const std::string& s) {
    if (s.find_first_of(",\"\r\n") == std::string::npos) return s;
    std::string out = "\"";
    for (char c : s) {
        if (c == '"') out += '"';
        out += c;
    }
    return out + "\"";
}

}  // namespace

int main(int argc, char** argv) {
    std::string dir = argc > 1 ? argv[1] : std::filesystem::temp_directory_path().string();
    const unsigned lines =
        argc > 2 ? static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10)) : 1000000;
    dir += "/qz_import_bench_" + std::to_string(::getpid());
    std::filesystem::create_directories(dir);
    const std::string csv = dir + "/in.csv", expect = dir + "/expect.csv", ours = dir + "/ours.dbf",
                      peer = dir + "/peer.dbf", peer_typed = dir + "/peer_typed.dbf",
                      dump = dir + "/dump.csv";

    // The CSV, and the dump the table must give back: the same cells and a
    // `deleted` column.
    std::FILE* in = std::fopen(csv.c_str(), "wb");
    std::FILE* ex = std::fopen(expect.c_str(), "wb");
    if (!in || !ex) return 1;
    std::fputs("id,name,code,amount,rate,active,born,count,note,city\r\n", in);
    std::fputs("ID,NAME,CODE,AMOUNT,RATE,ACTIVE,BORN,COUNT,NOTE,CITY,deleted\r\n", ex);
    char buf[64];
    for (unsigned r = 0; r < lines; ++r) {
        std::string cells[10], kept[10];
        cells[0] = std::to_string(r + 1);
        cells[1] = std::string(kNames[r % 10]) + " " + std::to_string(r % 997);
        std::snprintf(buf, sizeof buf, "K%07u", (r * 7919u) % 10000000u);  // text: a letter first
        cells[2] = buf;
        std::snprintf(buf, sizeof buf, "%d.%02u", static_cast<int>((r * 31u) % 200000u) - 100000,
                      r % 100);
        cells[3] = buf;
        std::snprintf(buf, sizeof buf, "%u.%04u", r % 50, (r * 13u) % 10000u);
        cells[4] = buf;
        cells[5] = r % 3 ? "true" : "false";
        std::snprintf(buf, sizeof buf, "%04u-%02u-%02u", 1940 + r % 70, 1 + r % 12, 1 + r % 28);
        cells[6] = buf;
        cells[7] = r % 10 == 0 ? "" : std::to_string(static_cast<int>(r % 2000) - 1000);
        cells[8] = r % 5 == 0 ? "line one\nline two" : r % 7 == 0 ? "" : "plain note";
        cells[9] = r % 2 ? "Москва" : "Berlin, DE";
        std::string line_in, line_ex;
        for (int c = 0; c < 10; ++c) {
            kept[c] = cells[c];
            line_in += (c ? "," : "") + csv_cell(cells[c]);
            line_ex += (c ? "," : "") + csv_cell(kept[c]);
        }
        std::fputs((line_in + "\r\n").c_str(), in);
        std::fputs((line_ex + ",false\r\n").c_str(), ex);
    }
    std::fclose(in);
    std::fclose(ex);
    std::printf("%u lines, %ju bytes of CSV in %s\n", lines,
                static_cast<uintmax_t>(std::filesystem::file_size(csv)), dir.c_str());

    const std::string q = "'" QZDBF_EXE "'";
    const std::string import = q + " import --quiet --overwrite '" + csv + "' '" + ours + "'";
    const std::string ogr =
        "ogr2ogr -overwrite -f 'ESRI Shapefile' -lco ENCODING=UTF-8 '" + peer + "' '" + csv + "'";
    const std::string ogr_typed =
        "ogr2ogr -overwrite -f 'ESRI Shapefile' -lco ENCODING=UTF-8 "
        "-oo AUTODETECT_TYPE=YES "
        "-oo AUTODETECT_WIDTH=YES -oo AUTODETECT_SIZE_LIMIT=0 '" +
        peer_typed + "' '" + csv + "'";
    Timing t_ours, t_ogr, t_typed;
    for (int i = 0; i < 3; ++i) {
        run(import, t_ours);
        run(ogr, t_ogr);
        run(ogr_typed, t_typed);
    }
    std::printf("\ncommands (each the best of three runs):\n  %s\n  %s\n  %s\n", import.c_str(),
                ogr.c_str(), ogr_typed.c_str());
    std::printf("\n%-58s %9s %9s %9s\n", "", "cpu s", "wall s", "size MB");
    auto row = [](const char* what, const Timing& t, const std::string& file) {
        std::printf("%-58s %9.2f %9.2f %9.1f\n", what, t.cpu, t.wall,
                    std::filesystem::file_size(file) / 1e6);
    };
    row("qzdbf import (types inferred, UTF-8 table)", t_ours, ours);
    row("ogr2ogr -f 'ESRI Shapefile' (every column text)", t_ogr, peer);
    row("ogr2ogr ... -oo AUTODETECT_TYPE/WIDTH=YES (typed)", t_typed, peer_typed);
    std::printf("\nratio import / ogr2ogr:         cpu %.2f  wall %.2f   (limit <= 1.0: %s)\n",
                t_ours.cpu / t_ogr.cpu, t_ours.wall / t_ogr.wall,
                t_ours.cpu <= t_ogr.cpu ? "PASS" : "FAIL");
    std::printf("ratio import / ogr2ogr (typed): cpu %.2f  wall %.2f   (limit <= 1.0: %s)\n",
                t_ours.cpu / t_typed.cpu, t_ours.wall / t_typed.wall,
                t_ours.cpu <= t_typed.cpu ? "PASS" : "FAIL");

    // Round trip.
    const std::string info = q + " info '" + ours + "'";
    std::printf("\nfields of the imported table:\n");
    std::fflush(stdout);
    std::system(info.c_str());
    Timing t_dump;
    run(q + " dump --csv '" + ours + "' > '" + dump + "'", t_dump);
    std::fflush(stdout);
    const int same = std::system(("cmp '" + dump + "' '" + expect + "'").c_str());
    std::printf("\nimport then dump --csv (%.2f s) against the CSV in the table's forms: %s\n",
                t_dump.wall, same == 0 ? "identical (cmp)" : "DIFFERENT");
    std::filesystem::remove_all(dir);
    return same == 0 ? 0 : 1;
}
