// delete_mask_bench [FOLDER] [RECORDS]: deleting half the records of a table
// of RECORDS records (1,000,000 unless given) by mask, against writing the
// same table cell by cell with qz_dbf_set_str:
//  - on disk (the kept records copied to a new table that takes the old
//    one's place): at most 2 times the writing time;
//  - in memory (the table loaded, the records removed as one undoable
//    step): at most 0.2 times the writing time.
// Prints the times and ratios; the exit status is 1 when a ratio exceeds
// its bound.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "qzk_basic.h"
#include "qzk_file_dbf.h"

namespace {

double seconds_since(std::chrono::steady_clock::time_point t0) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

std::wstring wide(const std::string& s) {
    return std::wstring(s.begin(), s.end());
}

// Writes the table: five fields of the common types, every cell as text.
double write_table(const std::string& path, unsigned int records) {
    Tqz_dbf_field fields[5];
    qz_dbf_field_init(&fields[0], "NAME", dbf_ft_char, 24, 0);
    qz_dbf_field_init(&fields[1], "CODE", dbf_ft_numeric, 10, 0);
    qz_dbf_field_init(&fields[2], "PRICE", dbf_ft_numeric, 12, 2);
    qz_dbf_field_init(&fields[3], "DAY", dbf_ft_date, 8, 0);
    qz_dbf_field_init(&fields[4], "OK", dbf_ft_logical, 1, 0);
    const auto t0 = std::chrono::steady_clock::now();
    Tqz_dbf_rw* h = qz_dbf_create(path.c_str(), 5, records, fields, false);
    if (!h) return -1;
    char text[64];
    for (unsigned int r = 0; r < records; ++r) {
        std::snprintf(text, sizeof text, "customer %u", r);
        qz_dbf_set_str(h, 0, r, text);
        std::snprintf(text, sizeof text, "%u", r * 7u);
        qz_dbf_set_str(h, 1, r, text);
        std::snprintf(text, sizeof text, "%u.%02u", r % 100000, r % 100);
        qz_dbf_set_str(h, 2, r, text);
        std::snprintf(text, sizeof text, "2024%02u%02u", 1 + r % 12, 1 + r % 28);
        qz_dbf_set_str(h, 3, r, text);
        qz_dbf_set_str(h, 4, r, r % 3 ? "T" : "F");
    }
    qz_dbf_close(h);
    return seconds_since(t0);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string folder = argc > 1 ? argv[1] : std::filesystem::temp_directory_path().string();
    const unsigned int records = argc > 2 ? static_cast<unsigned int>(std::atoi(argv[2])) : 1000000;
    const std::string path = folder + "/delete_mask_bench.dbf";
    const std::string saved = folder + "/delete_mask_bench_saved.dbf";
    qz_options_set_temp_wpath(wide(folder + "/").c_str());

    const double write = write_table(path, records);
    if (write <= 0) {
        std::fprintf(stderr, "cannot write %s\n", path.c_str());
        return 2;
    }
    std::filesystem::copy_file(path, saved, std::filesystem::copy_options::overwrite_existing);

    void* mask = qz_bits_create();
    for (unsigned int r = 0; r < records; r += 2) qz_bits_set_bit(mask, r, 1);

    auto t0 = std::chrono::steady_clock::now();
    const unsigned int disk_result = qz_dbf_del_records_by_msk_and_fn(wide(path).c_str(), mask);
    const double disk = seconds_since(t0);
    Tqz_dbf_rw* h = qz_dbf_open(path.c_str(), true, false);
    const unsigned int disk_left = h ? qz_dbf_get_nr(h) : 0;
    if (h) qz_dbf_close(h);

    std::filesystem::copy_file(saved, path, std::filesystem::copy_options::overwrite_existing);
    Tqz_dbf_memory* m = qz_dbf_mem_load_w(wide(path).c_str());
    if (!m) {
        std::fprintf(stderr, "cannot load %s\n", path.c_str());
        return 2;
    }
    t0 = std::chrono::steady_clock::now();
    const unsigned int mem_result = qz_dbf_del_records_by_msk_and_fn(wide(path).c_str(), mask);
    const double memory = seconds_since(t0);
    const unsigned int mem_left = qz_dbf_mem_get_nr(m);
    qz_dbf_mem_free(m);
    qz_bits_destroy(mask);
    std::filesystem::remove(path);
    std::filesystem::remove(saved);
    std::filesystem::remove(folder + "/temp_minus_dbf.dbf");

    const double disk_ratio = disk / write, memory_ratio = memory / write;
    std::printf("delete_mask_bench: %u records, half of them deleted by mask\n", records);
    std::printf("  write with qz_dbf_set_str  %8.3f s\n", write);
    std::printf(
        "  delete on disk             %8.3f s  ratio %.3f (bound 2)    result %u, %u left\n", disk,
        disk_ratio, disk_result, disk_left);
    std::printf(
        "  delete in memory           %8.3f s  ratio %.4f (bound 0.2)  result %u, %u left\n",
        memory, memory_ratio, mem_result, mem_left);
    // The even records go: half of them, rounded down, stay.
    const bool ok = disk_result == 0 && mem_result == 0 && disk_left == records / 2 &&
                    mem_left == records / 2 && disk_ratio <= 2.0 && memory_ratio <= 0.2;
    return ok ? 0 : 1;
}
