// A second process for the coherence tests: works on a table until it is
// killed (or told to stop), reporting its progress through a shared file.
//
//   coherence_child MODE TABLE SHARED
//
// SHARED is a file mapped by both processes: the first 8 bytes are the
// child's progress (written after each step has returned), the next 8 the
// parent's word (non-zero: stop, close and exit).
//   cells   write step g into both fields of record g % records, for ever
//   append  add 1 to 3 records per step, for ever (progress: records added)
//   save    load into memory, and for ever set every record to g and save
//   writer  write "CHANGED" to record 0, then "NEXT" to record 1 (progress 1),
//           wait for the word, close
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <string>

#include "qzk_file_dbf.h"

int main(int argc, char** argv) {
    if (argc != 4) return 1;
    const int fd = ::open(argv[3], O_RDWR | O_CLOEXEC);
    void* p = ::mmap(nullptr, 16, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (fd < 0 || p == MAP_FAILED) return 1;
    std::atomic<uint64_t>* progress = static_cast<std::atomic<uint64_t>*>(p);
    const std::string mode = argv[1];
    if (mode == "save") {
        Tqz_dbf_memory* m = qz_dbf_mem_load(argv[2]);
        for (uint64_t g = 0; m; ++g) {
            for (unsigned r = 0; r < qz_dbf_mem_get_nr(m); ++r)
                qz_dbf_mem_set_str(m, 0, r, std::to_string(g).c_str());
            if (!qz_dbf_mem_save(m)) return 4;
            progress->store(g + 1);
        }
        return 2;
    }
    Tqz_dbf_rw* t = qz_dbf_open(argv[2], false, false);
    if (!t || qz_dbf_get_nr(t) == 0) return 2;
    for (uint64_t g = 0, added = 0; mode == "cells" || mode == "append"; ++g) {
        const std::string v = std::to_string(g);
        const unsigned r = static_cast<unsigned>(g % qz_dbf_get_nr(t));
        if (mode == "append")
            qz_dbf_add_records(t, 1 + g % 3), added += 1 + g % 3;
        else if (!qz_dbf_set_str(t, 0, r, v.c_str()) || !qz_dbf_set_str(t, 1, r, v.c_str()))
            return 4;
        progress->store(mode == "append" ? added : g + 1);
    }
    if (mode != "writer") return 1;
    if (!qz_dbf_set_str(t, 0, 0, "CHANGED") || !qz_dbf_set_str(t, 0, 1, "NEXT")) return 4;
    progress->store(1);
    while (progress[1].load() == 0) ::usleep(1000);
    qz_dbf_close(t);
    return 0;
}
