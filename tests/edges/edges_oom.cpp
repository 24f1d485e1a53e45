// An allocation that fails inside a change of a memory table never ends the
// process: the call either completes or fails whole with the memory error,
// and the flag is then the one the table had before the call.
#include <gtest/gtest.h>

#include <cstdlib>
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
void* operator new(std::size_t n, const std::nothrow_t&) noexcept {
    return allocate(n, false);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}

TEST(EdgesOom, DeletionFlagsChangeWholeOrNotAtAllWhenMemoryRunsOut) {
    qz_test::Temp_dir dir;
    qz_test::write_bytes(dir.file("t.dbf"),
                         qz_test::dbf_bytes(0x03, {{"C", 'C', 4}}, {{"ab"}, {"cd"}}));
    Tqz_dbf_memory* m = qz_dbf_mem_load(dir.file("t.dbf").c_str());  // null fails below
    bool completed = false;
    for (long k = 0; !completed && k < 500; ++k) {
        const int before = qz_dbf_mem_get_deleted(m, 1);
        failed = false;
        allowed = k;
        const bool ok = qz_dbf_mem_set_deleted(m, 1, before == 0);
        allowed = -1;
        completed = !failed;
        // Only a failed allocation fails the call, and the error says so.
        EXPECT_TRUE(ok || (failed && qz_dbf_last_error() == QZ_DBF_ERR_MEMORY)) << k;
        EXPECT_EQ(qz_dbf_mem_get_deleted(m, 1), ok ? 1 - before : before) << k;
    }
    EXPECT_TRUE(completed);
    qz_dbf_mem_free(m);
}
