// restruct_bench [FOLDER] [RECORDS]: restructures a table of RECORDS records
// (1,000,000 unless given) by adding one field,
//  - on disk (the rewrite through the backup), against ogr2ogr copying the
//    same table to an ESRI Shapefile .dbf;
//  - in memory (one undoable step on the loaded table), against loading it.
// Best of several runs each, the file in the page cache. Prints both ratios;
// the exit status is 1 when the disk ratio exceeds 3 or the memory ratio 1.5.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "qzk_basic.h"
#include "qzk_file_dbf.h"

namespace {

using clock_type = std::chrono::steady_clock;

double since(clock_type::time_point t0) {
    return std::chrono::duration<double>(clock_type::now() - t0).count();
}

void put16(unsigned char* p, unsigned v) {
    p[0] = static_cast<unsigned char>(v);
    p[1] = static_cast<unsigned char>(v >> 8);
}

void put32(unsigned char* p, unsigned v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}

// A dBASE III table: ID N(10), NAME C(30), PRICE N(12,2), BORN D(8), FLAG L(1).
bool write_table(const std::string& path, unsigned records) {
    struct F {
        const char* name;
        char type;
        unsigned char len, dec;
    } fields[] = {{"ID", 'N', 10, 0},
                  {"NAME", 'C', 30, 0},
                  {"PRICE", 'N', 12, 2},
                  {"BORN", 'D', 8, 0},
                  {"FLAG", 'L', 1, 0}};
    const unsigned nf = 5, header_length = 32 + 32 * nf + 1,
                   record_length = 1 + 10 + 30 + 12 + 8 + 1;
    std::vector<unsigned char> head(header_length, 0);
    head[0] = 3, head[1] = 124, head[2] = 1, head[3] = 1;
    put32(&head[4], records);
    put16(&head[8], header_length);
    put16(&head[10], record_length);
    for (unsigned k = 0; k < nf; ++k) {
        std::memcpy(&head[32 + 32 * k], fields[k].name, std::strlen(fields[k].name));
        head[32 + 32 * k + 11] = static_cast<unsigned char>(fields[k].type);
        head[32 + 32 * k + 16] = fields[k].len;
        head[32 + 32 * k + 17] = fields[k].dec;
    }
    head.back() = 0x0D;
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    std::fwrite(head.data(), 1, head.size(), f);
    std::vector<char> rec(record_length + 1);
    for (unsigned r = 0; r < records; ++r) {
        std::snprintf(rec.data(), rec.size(), " %10u%-30s%12.2f%04u%02u%02u%c", r + 1,
                      ("Name " + std::to_string(r % 9973)).c_str(), (r % 100000) / 7.0,
                      1950 + r % 60, 1 + r % 12, 1 + r % 28, r % 2 ? 'T' : 'F');
        std::fwrite(rec.data(), 1, record_length, f);
    }
    std::fputc(0x1A, f);
    return std::fclose(f) == 0;
}

bool copy(const std::string& from, const std::string& to) {
    return std::system(("cp '" + from + "' '" + to + "'").c_str()) == 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string folder = argc > 1 ? argv[1] : "/tmp";
    const unsigned records =
        argc > 2 ? static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10)) : 1000000u;
    const std::string base = folder + "/restruct_bench_" + std::to_string(getpid());
    const std::string source = base + "_src.dbf", work = base + "_work.dbf",
                      ogr_out = base + "_ogr";
    if (!write_table(source, records)) {
        std::fprintf(stderr, "cannot write %s\n", source.c_str());
        return 2;
    }
    const int runs = 3;

    // ogr2ogr: the same table copied to an ESRI Shapefile .dbf.
    double ogr = 1e9;
    for (int i = 0; i < runs; ++i) {
        std::system(("rm -rf '" + ogr_out + "'").c_str());
        auto t0 = clock_type::now();
        int rc = std::system(
            ("ogr2ogr -f \"ESRI Shapefile\" '" + ogr_out + "' '" + source + "' >/dev/null 2>&1")
                .c_str());
        double t = since(t0);
        if (rc != 0) {
            std::fprintf(stderr, "ogr2ogr failed (%d)\n", rc);
            return 2;
        }
        ogr = std::min(ogr, t);
    }

    // On disk: one field added, the file rewritten.
    double disk = 1e9;
    for (int i = 0; i < runs; ++i) {
        copy(source, work);
        auto t0 = clock_type::now();
        Tqz_dbf_rstrct* d = qz_dbf_restruct_create(work.c_str());
        Tqz_dbf_field f;
        qz_dbf_field_init(&f, "EXTRA", dbf_ft_numeric, 10, 2);
        qz_dbf_restruct_add_field(d, &f);
        bool ok = qz_dbf_restruct_apply(d);
        qz_dbf_restruct_destroy(d);
        double t = since(t0);
        if (!ok) {
            std::fprintf(stderr, "the rewrite failed\n");
            return 2;
        }
        disk = std::min(disk, t);
    }

    // In memory: loading, and one field added to the loaded table.
    double load = 1e9, memory = 1e9;
    Iqz_history_manager* history = qz_history_manager_get_instance();
    for (int i = 0; i < runs; ++i) {
        auto t0 = clock_type::now();
        Tqz_dbf_memory* m = qz_dbf_mem_load(source.c_str());
        load = std::min(load, since(t0));
        if (!m) {
            std::fprintf(stderr, "cannot load %s\n", source.c_str());
            return 2;
        }
        Tqz_dbf_rstrct* d = qz_dbf_restruct_create(source.c_str());
        Tqz_dbf_field f;
        qz_dbf_field_init(&f, "EXTRA", dbf_ft_numeric, 10, 2);
        qz_dbf_restruct_add_field(d, &f);
        t0 = clock_type::now();
        bool ok = qz_dbf_mem_restruct(m, d);
        double t = since(t0);
        qz_dbf_restruct_destroy(d);
        if (!ok || qz_dbf_mem_get_nf(m) != 6 || qz_dbf_mem_get_nr(m) != records) {
            std::fprintf(stderr, "the memory restructure failed\n");
            return 2;
        }
        memory = std::min(memory, t);
        qz_history_manager_clear(history);
        qz_dbf_mem_free(m);
    }

    std::remove(source.c_str());
    std::remove(work.c_str());
    std::system(("rm -rf '" + ogr_out + "'").c_str());

    const double disk_ratio = disk / ogr, memory_ratio = memory / load;
    std::printf("restructure (add one field) of %u records, best of %d\n", records, runs);
    std::printf("  disk:   %.3f s   ogr2ogr copy %.3f s   ratio %.2f (at most 3)\n", disk, ogr,
                disk_ratio);
    std::printf("  memory: %.3f s   load         %.3f s   ratio %.2f (at most 1.5)\n", memory, load,
                memory_ratio);
    return disk_ratio <= 3.0 && memory_ratio <= 1.5 ? 0 : 1;
}
