// A table file that cannot grow (a full disk, a file size limit): appends
// and writes past the end fail with an I/O error, and the header never
// counts records the file does not hold.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <string>

#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "test_support.h"

namespace {

// Files of this process may not grow past `size` bytes while it lives.
struct Size_limit {
    explicit Size_limit(rlim_t size) {
        old_handler = signal(SIGXFSZ, SIG_IGN);  // EFBIG instead of the signal
        getrlimit(RLIMIT_FSIZE, &old);
        rlimit lower = old;
        lower.rlim_cur = size;
        setrlimit(RLIMIT_FSIZE, &lower);
    }
    ~Size_limit() {
        setrlimit(RLIMIT_FSIZE, &old);
        signal(SIGXFSZ, old_handler);
    }
    rlimit old{};
    void (*old_handler)(int);
};

TEST(FileLimit, AppendsThatCannotGrowTheFileCountNothing) {
    qz_test::Temp_dir dir;
    const std::string path = dir.file("full.dbf");
    Tqz_dbf_field f;
    qz_dbf_field_init(&f, "NAME", dbf_ft_char, 10, 0);
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), 1, 2, &f, false);
    ASSERT_NE(t, nullptr);
    qz_dbf_close(t);
    const size_t before = qz_test::read_bytes(path).size();

    for (bool read_back : {false, true}) {
        t = qz_dbf_open(path.c_str(), false, false);
        ASSERT_NE(t, nullptr);
        {
            Size_limit limit(before);
            qz_dbf_clear_last_error();
            qz_dbf_add_records(t, 3);
            EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_IO) << qz_dbf_last_error_message();
            EXPECT_EQ(qz_dbf_get_nr(t), 2u);
            EXPECT_FALSE(qz_dbf_set_str(t, 0, 2, "past"));
            EXPECT_TRUE(
                qz_dbf_set_str(t, 0, 1, "inside"));  // the file's own bytes still take writes
        }
        if (read_back) qz_dbf_flush(t);
        qz_dbf_close(t);
        t = qz_dbf_open(path.c_str(), true, false);
        ASSERT_NE(t, nullptr);
        EXPECT_EQ(qz_dbf_get_nr(t), 2u);
        bool ok = false;
        EXPECT_STREQ(qz_dbf_get_str(t, 0, 1, ok), "inside    ");
        qz_dbf_close(t);
    }
}

}  // namespace
