// ogr_bench [FOLDER] [RECORDS]: reads every cell of a shapefile attribute
// table of RECORDS records (1,000,000 unless given) as text, once through
// the OGR-backed table and once through a plain loop over OGR's C API
// (OGR_L_GetNextFeature, OGR_F_GetFieldAsString), and prints the time of each
// (best of several runs, alternating, the file in the page cache) and their
// ratio. The exit status is 1 when the table costs more than 1.2 times the
// plain loop, or when the two did not read the same text.
#include <gdal.h>
#include <ogr_api.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ogr/ogr_table.h"

namespace {

struct Field {
    const char* name;
    char type;
    uint8_t len, dec;
};
const Field fields[] = {{"ID", 'N', 9, 0},   {"NAME", 'C', 24, 0}, {"PRICE", 'N', 12, 3},
                        {"WHEN", 'D', 8, 0}, {"CODE", 'C', 6, 0},  {"COUNT", 'N', 6, 0}};
constexpr int nfields = sizeof fields / sizeof fields[0];

// A dBASE III table written byte by byte: header, descriptors, records.
bool write_table(const std::string& path, uint32_t records) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    uint16_t record_len = 1;
    for (const Field& fd : fields) record_len += fd.len;
    const uint16_t header_len = 32 + 32 * nfields + 1;
    unsigned char h[32] = {0x03, 126, 1, 1};
    std::memcpy(h + 4, &records, 4);
    std::memcpy(h + 8, &header_len, 2);
    std::memcpy(h + 10, &record_len, 2);
    std::fwrite(h, 1, 32, f);
    for (const Field& fd : fields) {
        unsigned char d[32] = {0};
        std::strncpy(reinterpret_cast<char*>(d), fd.name, 10);
        d[11] = static_cast<unsigned char>(fd.type);
        d[16] = fd.len;
        d[17] = fd.dec;
        std::fwrite(d, 1, 32, f);
    }
    std::fputc(0x0D, f);
    std::vector<char> rec(record_len + 1);
    for (uint32_t r = 0; r < records; ++r) {
        std::snprintf(rec.data(), rec.size(), " %9u%-24s%12.3f%04u%02u%02u%-6s%6u", r,
                      ("name " + std::to_string(r * 7919u % 100000u)).c_str(), r * 0.125,
                      1990 + r % 30, 1 + r % 12, 1 + r % 28, r % 3 ? "AB" : "XYZ", r % 1000);
        std::fwrite(rec.data(), 1, record_len, f);
    }
    std::fputc(0x1A, f);
    return std::fclose(f) == 0;
}

double seconds_since(std::chrono::steady_clock::time_point t0) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// Every cell through the OGR-backed table; the total length of the text.
uint64_t read_through_table(const std::string& path, double& secs) {
    auto t0 = std::chrono::steady_clock::now();
    Tqz_dbf_ogr t;
    uint64_t total = 0;
    if (t.open(path.c_str(), true, false) == 0) {
        const unsigned nr = t.get_nr(), nf = t.get_nf();
        for (unsigned r = 0; r < nr; ++r)
            for (unsigned f = 0; f < nf; ++f) {
                bool ok = false;
                total += std::strlen(t.get_as_string(f, r, ok));
            }
    }
    t.close();
    secs = seconds_since(t0);
    return total;
}

// The same through the plain C API.
uint64_t read_plain(const std::string& path, double& secs) {
    auto t0 = std::chrono::steady_clock::now();
    uint64_t total = 0;
    OGRDataSourceH ds = OGROpen(path.c_str(), 0, nullptr);
    if (ds) {
        OGRLayerH layer = OGR_DS_GetLayer(ds, 0);
        const int nf = OGR_FD_GetFieldCount(OGR_L_GetLayerDefn(layer));
        OGR_L_ResetReading(layer);
        while (OGRFeatureH feat = OGR_L_GetNextFeature(layer)) {
            for (int f = 0; f < nf; ++f) total += std::strlen(OGR_F_GetFieldAsString(feat, f));
            OGR_F_Destroy(feat);
        }
        OGRReleaseDataSource(ds);
    }
    secs = seconds_since(t0);
    return total;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string folder = argc > 1 ? argv[1] : "/tmp";
    const uint32_t records =
        argc > 2 ? static_cast<uint32_t>(std::strtoul(argv[2], nullptr, 10)) : 1000000u;
    const std::string path = folder + "/qz_ogr_bench_" + std::to_string(getpid()) + ".dbf";
    if (!write_table(path, records)) {
        std::fprintf(stderr, "cannot write %s\n", path.c_str());
        return 2;
    }
    GDALAllRegister();
    double best_table = 1e9, best_plain = 1e9, s = 0;
    uint64_t text_table = 0, text_plain = 0;
    for (int run = 0; run < 5; ++run) {
        text_plain = read_plain(path, s);
        if (s < best_plain) best_plain = s;
        text_table = read_through_table(path, s);
        if (s < best_table) best_table = s;
    }
    std::remove(path.c_str());
    const double ratio = best_table / best_plain;
    std::printf("OGR read of every cell as text, %u records x %d fields (best of 5)\n", records,
                nfields);
    std::printf("  plain OGR C API loop   %8.3f s\n", best_plain);
    std::printf("  OGR-backed table       %8.3f s\n", best_table);
    std::printf("  ratio                  %8.3f  (limit 1.2)\n", ratio);
    if (text_table != text_plain || text_plain == 0) {
        std::printf("  the two read different text (%llu and %llu bytes)\n",
                    static_cast<unsigned long long>(text_table),
                    static_cast<unsigned long long>(text_plain));
        return 1;
    }
    return ratio <= 1.2 ? 0 : 1;
}
