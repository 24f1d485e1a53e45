// A second process for the coherence tests: works on a table until it is
// killed (or told to stop), reporting its progress through a shared file.
//
//   coherence_child MODE TABLE SHARED
//
// SHARED is a file of at least 16 bytes mapped by both processes: the first
// 8 bytes are the child's progress (written after each step has returned),
// the next 8 the parent's word (non-zero: stop, close and exit).
//   cells   write step g into both fields of record g % records, for ever
//   append  add 1 to 3 records per step, for ever (progress: records added)
//   save    load into memory, and for ever set every record to g and save
//   writer  write "CHANGED" to record 0, then "NEXT" to record 1 (progress 1),
//           wait for the word, close
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "qzk_file_dbf.h"

namespace {

struct Shared {
    std::atomic<uint64_t> progress;
    std::atomic<uint64_t> word;
};

Shared* map_shared(const char* path) {
    int fd = ::open(path, O_RDWR | O_CLOEXEC);
    if (fd < 0) return nullptr;
    void* p = ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ::close(fd);
    return p == MAP_FAILED ? nullptr : static_cast<Shared*>(p);
}

int cells(const char* path, Shared* s) {
    Tqz_dbf_rw* t = qz_dbf_open(path, false, false);
    if (!t) return 2;
    const unsigned nr = qz_dbf_get_nr(t);
    if (nr == 0) return 3;
    for (uint64_t g = 0;; ++g) {
        std::string v = std::to_string(g);
        unsigned r = static_cast<unsigned>(g % nr);
        if (!qz_dbf_set_str(t, 0, r, v.c_str()) || !qz_dbf_set_str(t, 1, r, v.c_str())) return 4;
        s->progress.store(g + 1);
    }
}

int append(const char* path, Shared* s) {
    Tqz_dbf_rw* t = qz_dbf_open(path, false, false);
    if (!t) return 2;
    uint64_t added = 0;
    for (unsigned g = 0;; ++g) {
        unsigned n = 1 + g % 3;
        qz_dbf_add_records(t, n);
        added += n;
        s->progress.store(added);
    }
}

int save(const char* path, Shared* s) {
    Tqz_dbf_memory* m = qz_dbf_mem_load(path);
    if (!m) return 2;
    const unsigned nr = qz_dbf_mem_get_nr(m);
    for (uint64_t g = 0;; ++g) {
        std::string v = std::to_string(g);
        for (unsigned r = 0; r < nr; ++r) qz_dbf_mem_set_str(m, 0, r, v.c_str());
        if (!qz_dbf_mem_save(m)) return 4;
        s->progress.store(g + 1);
    }
}

int writer(const char* path, Shared* s) {
    Tqz_dbf_rw* t = qz_dbf_open(path, false, false);
    if (!t) return 2;
    if (!qz_dbf_set_str(t, 0, 0, "CHANGED") || !qz_dbf_set_str(t, 0, 1, "NEXT")) return 4;
    s->progress.store(1);
    while (s->word.load() == 0) ::usleep(1000);
    qz_dbf_close(t);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) return 1;
    Shared* s = map_shared(argv[3]);
    if (!s) return 1;
    const std::string mode = argv[1];
    if (mode == "cells") return cells(argv[2], s);
    if (mode == "append") return append(argv[2], s);
    if (mode == "save") return save(argv[2], s);
    if (mode == "writer") return writer(argv[2], s);
    return 1;
}
