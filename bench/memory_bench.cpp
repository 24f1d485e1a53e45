// memory_bench [FOLDER] [MEGABYTES]: loads a table of about MEGABYTES (200
// unless given) of records into memory and reports
//  - the heap the loaded table holds, against the bytes of its records,
//    counted two ways: by this program's own malloc (every allocation of
//    the process passes through it, the library's included) and by glibc's
//    mallinfo2 (in-use bytes plus mmap'd blocks);
//  - the time of the load, against reading the same file into one buffer
//    with fread (best of several runs each, the file in the page cache).
// It also times undo and redo of a batch of changes on the loaded table.
// The exit status is 1 when the heap ratio exceeds 1.5 or the time ratio 2.
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "qzk_file_dbf.h"

// ---- A counting allocator: glibc's allocator underneath, the bytes it
// hands out (as malloc_usable_size sees them) counted on the way.

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
void __libc_free(void*);
}

namespace {

std::atomic<long long> heap_now{0};
std::atomic<long long> heap_peak{0};

void count(long long delta) {
    long long now = heap_now.fetch_add(delta) + delta;
    long long peak = heap_peak.load();
    while (now > peak && !heap_peak.compare_exchange_weak(peak, now)) {
    }
}

}  // namespace

extern "C" {

void* malloc(size_t n) {
    void* p = __libc_malloc(n);
    if (p) count(static_cast<long long>(malloc_usable_size(p)));
    return p;
}

void* calloc(size_t n, size_t size) {
    void* p = __libc_calloc(n, size);
    if (p) count(static_cast<long long>(malloc_usable_size(p)));
    return p;
}

void* realloc(void* old, size_t n) {
    long long before = old ? static_cast<long long>(malloc_usable_size(old)) : 0;
    void* p = __libc_realloc(old, n);
    if (p)
        count(static_cast<long long>(malloc_usable_size(p)) - before);
    else if (n == 0)
        count(-before);
    return p;
}

void free(void* p) {
    if (p) count(-static_cast<long long>(malloc_usable_size(p)));
    __libc_free(p);
}

void* memalign(size_t align, size_t n) {
    void* p = __libc_memalign(align, n);
    if (p) count(static_cast<long long>(malloc_usable_size(p)));
    return p;
}

void* aligned_alloc(size_t align, size_t n) {
    return memalign(align, n);
}

int posix_memalign(void** out, size_t align, size_t n) {
    void* p = memalign(align, n);
    if (!p) return ENOMEM;
    *out = p;
    return 0;
}

}  // extern "C"

namespace {

using Clock = std::chrono::steady_clock;

double ms_since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

long long mallinfo_bytes() {
    struct mallinfo2 mi = mallinfo2();
    return static_cast<long long>(mi.uordblks + mi.hblkhd);
}

// A table of `records` records of names, towns, numbers, dates and flags:
// the structure made by the library, the records written here in bulk.
bool make_table(const std::string& path, unsigned int records, unsigned int& record_length) {
    Tqz_dbf_field f[6];
    qz_dbf_field_init(&f[0], "NAME", dbf_ft_char, 40, 0);
    qz_dbf_field_init(&f[1], "TOWN", dbf_ft_char, 30, 0);
    qz_dbf_field_init(&f[2], "QTY", dbf_ft_numeric, 10, 0);
    qz_dbf_field_init(&f[3], "PRICE", dbf_ft_numeric, 12, 2);
    qz_dbf_field_init(&f[4], "DAY", dbf_ft_date, 8, 0);
    qz_dbf_field_init(&f[5], "OK", dbf_ft_logical, 1, 0);
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), 6, 0, f, false);
    if (!t) return false;
    qz_dbf_close(t);
    record_length = 1 + 40 + 30 + 10 + 12 + 8 + 1;

    FILE* file = std::fopen(path.c_str(), "r+b");
    if (!file) return false;
    unsigned char header[32];
    if (std::fread(header, 1, 32, file) != 32) return false;
    for (int i = 0; i < 4; ++i) header[4 + i] = static_cast<unsigned char>(records >> (8 * i));
    std::rewind(file);
    std::fwrite(header, 1, 32, file);
    std::fseek(file, 32 + 6 * 32 + 1, SEEK_SET);
    static const char* towns[] = {"Tver", "Omsk", "Kazan", "Perm", "Samara", "Ufa", "Tula"};
    std::vector<char> chunk;
    char rec[128];
    for (unsigned int r = 0; r < records; ++r) {
        std::snprintf(rec, sizeof rec, " %-40.40s%-30.30s%10u%12.2f%08u%c",
                      ("customer number " + std::to_string(r)).c_str(), towns[r % 7], r % 100000,
                      (r % 977) * 3.25, 20240101 + r % 28, r % 3 ? 'T' : 'F');
        chunk.insert(chunk.end(), rec, rec + record_length);
        if (chunk.size() > (1u << 22)) {
            std::fwrite(chunk.data(), 1, chunk.size(), file);
            chunk.clear();
        }
    }
    chunk.push_back(0x1A);
    std::fwrite(chunk.data(), 1, chunk.size(), file);
    return std::fclose(file) == 0;
}

}  // namespace

int main(int argc, char** argv) {
    const char* tmp = std::getenv("TMPDIR");
    std::string folder = argc > 1 ? argv[1] : (tmp && *tmp ? tmp : "/tmp");
    const double megabytes = argc > 2 ? std::atof(argv[2]) : 200.0;
    const std::string path = folder + "/qz_memory_bench_" + std::to_string(getpid()) + ".dbf";
    const std::string cpg = path.substr(0, path.size() - 4) + ".cpg";

    unsigned int record_length = 0;
    const unsigned int records = static_cast<unsigned int>(megabytes * 1e6 / 102);
    std::printf("making %s: %u records\n", path.c_str(), records);
    if (!make_table(path, records, record_length)) {
        std::fprintf(stderr, "memory_bench: cannot write %s\n", path.c_str());
        return 2;
    }
    const double record_bytes = static_cast<double>(records) * record_length;
    std::printf("records: %u x %u bytes = %.1f MB\n", records, record_length, record_bytes / 1e6);

    // The baseline: the whole file into one buffer.
    FILE* probe = std::fopen(path.c_str(), "rb");
    std::fseek(probe, 0, SEEK_END);
    const size_t file_size = static_cast<size_t>(std::ftell(probe));
    std::fclose(probe);
    const int runs = 5;
    double fread_ms = 1e30, load_ms = 1e30;
    long long held_counted = 0, held_mallinfo = 0, peak_counted = 0;
    for (int run = 0; run < runs; ++run) {
        auto start = Clock::now();
        FILE* f = std::fopen(path.c_str(), "rb");
        char* buffer = static_cast<char*>(std::malloc(file_size));
        size_t got = std::fread(buffer, 1, file_size, f);
        std::fclose(f);
        double ms = ms_since(start);
        if (got != file_size) {
            std::fprintf(stderr, "memory_bench: short read\n");
            return 2;
        }
        // Touch the buffer so the read cannot be optimised away.
        volatile char sink = buffer[file_size / 2];
        (void)sink;
        std::free(buffer);
        fread_ms = std::min(fread_ms, ms);

        const long long counted_before = heap_now.load();
        const long long mallinfo_before = mallinfo_bytes();
        heap_peak.store(counted_before);
        start = Clock::now();
        Tqz_dbf_memory* t = qz_dbf_mem_load(path.c_str());
        ms = ms_since(start);
        if (!t || qz_dbf_mem_get_nr(t) != records) {
            std::fprintf(stderr, "memory_bench: the load failed\n");
            return 2;
        }
        held_counted = heap_now.load() - counted_before;
        held_mallinfo = mallinfo_bytes() - mallinfo_before;
        peak_counted = heap_peak.load() - counted_before;
        load_ms = std::min(load_ms, ms);

        if (run == runs - 1) {
            // Undo and redo of a batch of changes on the loaded table.
            Iqz_history_manager* m = qz_history_manager_get_instance();
            qz_history_manager_set_limit(m, 200000);
            const unsigned int changes = 100000;
            start = Clock::now();
            for (unsigned int k = 0; k < changes; ++k) {
                unsigned int r = (k * 7919u) % records;
                if (k % 10 == 0)
                    qz_dbf_mem_del(t, r);
                else
                    qz_dbf_mem_set_str(t, 0, r, "changed");
            }
            double change_ms = ms_since(start);
            start = Clock::now();
            while (qz_history_manager_undo(m)) {
            }
            double undo_ms = ms_since(start);
            start = Clock::now();
            while (qz_history_manager_redo(m)) {
            }
            double redo_ms = ms_since(start);
            std::printf(
                "%u changes (a tenth of them deletes): %.0f ms; undo all %.0f ms, redo "
                "all %.0f ms\n",
                changes, change_ms, undo_ms, redo_ms);
            qz_history_manager_clear(m);
        }
        qz_dbf_mem_free(t);
    }

    const double heap_ratio = static_cast<double>(held_counted) / record_bytes;
    const double time_ratio = load_ms / fread_ms;
    std::printf(
        "heap held by the loaded table: %.1f MB counted (%.1f MB by mallinfo2), "
        "peak during the load %.1f MB\n",
        held_counted / 1e6, held_mallinfo / 1e6, peak_counted / 1e6);
    std::printf("heap ratio (held / record bytes): %.3f (limit 1.5)\n", heap_ratio);
    std::printf("load %.1f ms, fread of the file %.1f ms (best of %d)\n", load_ms, fread_ms, runs);
    std::printf("time ratio (load / fread): %.2f (limit 2)\n", time_ratio);

    std::remove(path.c_str());
    std::remove(cpg.c_str());
    return heap_ratio <= 1.5 && time_ratio <= 2.0 ? 0 : 1;
}
