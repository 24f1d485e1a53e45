// An allocation that fails inside a deletion-flag export never ends the
// process: the call either completes or fails whole, and the flag is then
// the one the table had before the call.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <new>

#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

// How many more allocations this thread may make before one fails (-1: any
// number), and whether one did. Only the first fails: what handles it may
// allocate too. The non-throwing forms never fail: their callers cope.
thread_local long allowed = -1;
thread_local bool failed = false;

void* allocate(std::size_t n, bool may_fail) {
    if (may_fail && allowed == 0) {
        allowed = -1;
        failed = true;
        throw std::bad_alloc();
    }
    if (may_fail && allowed > 0) --allowed;
    return std::malloc(n ? n : 1);
}

}  // namespace

void* operator new(std::size_t n) {
    return allocate(n, true);
}
void* operator new[](std::size_t n) {
    return allocate(n, true);
}
void* operator new(std::size_t n, const std::nothrow_t&) noexcept {
    return allocate(n, false);
}
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept {
    return allocate(n, false);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}

TEST(EdgesOom, DeletionFlagsChangeWholeOrNotAtAllWhenMemoryRunsOut) {
    qz_test::Temp_dir dir;
    for (const char* name : {"disk.dbf", "memory.dbf"})
        qz_test::write_bytes(dir.file(name),
                             qz_test::dbf_bytes(0x03, {{"C", 'C', 4}}, {{"ab"}, {"cd"}}));
    Tqz_dbf_rw* h = qz_dbf_open(dir.file("disk.dbf").c_str(), false, false);
    Tqz_dbf_memory* m = qz_dbf_mem_load(dir.file("memory.dbf").c_str());
    ASSERT_TRUE(h && m);
    const std::function<bool(unsigned, bool)> set[] = {
        [&](unsigned r, bool d) { return qz_dbf_set_deleted(h, r, d); },
        [&](unsigned r, bool d) { return qz_dbf_mem_set_deleted(m, r, d); }};
    const std::function<int()> flag[] = {[&] { return qz_dbf_get_deleted(h, 1); },
                                         [&] { return qz_dbf_mem_get_deleted(m, 1); }};
    for (int t = 0; t < 2; ++t)
        for (unsigned record : {1u, 9u}) {  // a record, and one the table lacks
            bool completed = false;
            for (long k = 0; !completed && k < 500; ++k) {
                const int before = flag[t]();
                failed = false;
                allowed = k;
                const bool ok = set[t](record, before == 0);
                allowed = -1;
                completed = !failed;
                if (completed || record != 1) {
                    EXPECT_EQ(ok, record == 1) << t << " " << k;
                }
                EXPECT_EQ(flag[t](), ok ? 1 - before : before) << t << " " << k;
            }
            EXPECT_TRUE(completed) << t;
        }
    qz_dbf_close(h);
    qz_dbf_mem_free(m);
}
