// Reading every cell of a million-record table as typed values, against
// reading it as text through qz_dbf_get_str and against shapelib's
// DBFReadStringAttribute loop over the same file; prints the times and the
// ratios.
//
//   typed_bench [FOLDER] [RECORDS]
//
// The table (C, C, N, F, L, D, I, B; CP1251 text, Cyrillic and Latin) is
// written through qz_dbf_set_value into FOLDER (default: the temporary
// folder) and removed at the end. Every figure is the CPU time of the best
// of three runs over the file in the page cache, the measures taking turns.
#include <shapefil.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "qzk_basic.h"
#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"

namespace {

constexpr unsigned kFields = 8;
constexpr int kRuns = 3;

double cpu_now() {
    timespec ts;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return ts.tv_sec + ts.tv_nsec * 1e-9;
}

void die(const std::string& what) {
    std::fprintf(stderr, "typed_bench: %s\n", what.c_str());
    std::exit(1);
}

const char* const kWords[] = {"Иванов", "Petrov", "Сидоров", "Kuznetsov", "Смирнов",
                              "Popov",  "Волков", "Sokolov", "Лебедев",   "Novikov"};

void fill(const std::string& path, unsigned records) {
    Tqz_dbf_field f[kFields];
    qz_dbf_field_init(&f[0], "NAME", dbf_ft_char, 30, 0);
    qz_dbf_field_init(&f[1], "CODE", dbf_ft_char, 12, 0);
    qz_dbf_field_init(&f[2], "AMOUNT", dbf_ft_numeric, 12, 2);
    qz_dbf_field_init(&f[3], "RATE", dbf_ft_float, 12, 4);
    qz_dbf_field_init(&f[4], "ACTIVE", dbf_ft_logical, 1, 0);
    qz_dbf_field_init(&f[5], "BORN", dbf_ft_date, 8, 0);
    qz_dbf_field_init(&f[6], "COUNT", dbf_ft_integer, 4, 0);
    qz_dbf_field_init(&f[7], "VALUE", dbf_ft_double, 8, 0);
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), kFields, records, f, false);
    if (!t) die("cannot create " + path);
    qz_dbf_close(t);
    t = qz_dbf_open_ex(path.c_str(), 0);
    if (!t) die(qz_dbf_last_error_message());
    char name[64], code[16], amount[32];
    for (unsigned r = 0; r < records; ++r) {
        std::snprintf(name, sizeof name, "%s %s %u", kWords[r % 10], kWords[(r / 10) % 10],
                      r % 1000);
        std::snprintf(code, sizeof code, "K%07u", r);
        std::snprintf(amount, sizeof amount, "%u.%02u", r % 100000, r % 100);
        const Tqz_dbf_value v[kFields] = {
            {QZ_DBF_VALUE_TEXT, 0, 0.0, name, std::strlen(name)},
            {QZ_DBF_VALUE_TEXT, 0, 0.0, code, std::strlen(code)},
            {QZ_DBF_VALUE_DECIMAL, 0, 0.0, amount, std::strlen(amount)},
            {QZ_DBF_VALUE_DOUBLE, 0, (r % 10000) / 7.0, nullptr, 0},
            {QZ_DBF_VALUE_BOOL, r % 3 == 0, 0.0, nullptr, 0},
            {QZ_DBF_VALUE_DATE, 19500101 + (r % 50) * 10000 + (r % 12) * 100 + r % 28, 0.0, nullptr,
             0},
            {QZ_DBF_VALUE_INT, static_cast<long long>(r) * 7 - 3000000, 0.0, nullptr, 0},
            {QZ_DBF_VALUE_DOUBLE, 0, r * 0.001, nullptr, 0},
        };
        for (unsigned k = 0; k < kFields; ++k)
            if (!qz_dbf_set_value(t, k, r, &v[k])) die(qz_dbf_last_error_message());
    }
    qz_dbf_close(t);
}

// Each reader returns a sum over what it read, so that nothing is skipped.
size_t read_text(const std::string& path) {
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), true, false);
    if (!t) die("cannot open " + path);
    const unsigned nr = qz_dbf_get_nr(t), nf = qz_dbf_get_nf(t);
    size_t sum = 0;
    for (unsigned r = 0; r < nr; ++r)
        for (unsigned f = 0; f < nf; ++f) {
            bool ok = false;
            sum += std::strlen(qz_dbf_get_str(t, f, r, ok));
        }
    qz_dbf_close(t);
    return sum;
}

size_t value_sum(const Tqz_dbf_value& v) {
    return v.length + static_cast<size_t>(v.i) + static_cast<size_t>(v.d) + v.kind;
}

size_t read_typed_records(const std::string& path) {
    Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
    if (!t) die(qz_dbf_last_error_message());
    const unsigned nr = qz_dbf_get_nr(t);
    Tqz_dbf_value v[kFields];
    size_t sum = 0;
    for (unsigned r = 0; r < nr; ++r) {
        if (qz_dbf_get_record_values(t, r, v, kFields) != kFields) die("record read failed");
        for (const Tqz_dbf_value& x : v) sum += value_sum(x);
    }
    qz_dbf_close(t);
    return sum;
}

size_t read_typed_cells(const std::string& path) {
    Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_READ_ONLY);
    if (!t) die(qz_dbf_last_error_message());
    const unsigned nr = qz_dbf_get_nr(t), nf = qz_dbf_get_nf(t);
    size_t sum = 0;
    Tqz_dbf_value v;
    for (unsigned r = 0; r < nr; ++r)
        for (unsigned f = 0; f < nf; ++f) {
            if (!qz_dbf_get_value(t, f, r, &v)) die("cell read failed");
            sum += value_sum(v);
        }
    qz_dbf_close(t);
    return sum;
}

size_t read_shapelib(const std::string& path) {
    DBFHandle h = DBFOpen(path.c_str(), "rb");
    if (!h) die("shapelib cannot open " + path);
    const int nr = DBFGetRecordCount(h), nf = DBFGetFieldCount(h);
    size_t sum = 0;
    for (int r = 0; r < nr; ++r)
        for (int f = 0; f < nf; ++f) sum += std::strlen(DBFReadStringAttribute(h, r, f));
    DBFClose(h);
    return sum;
}

}  // namespace

int main(int argc, char** argv) {
    std::string dir = argc > 1 ? argv[1] : std::filesystem::temp_directory_path().string();
    const unsigned records =
        argc > 2 ? static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10)) : 1000000;
    dir += "/qz_typed_bench_" + std::to_string(::getpid());
    std::filesystem::create_directories(dir);
    const std::string path = dir + "/typed.dbf";
    qz_options_set_ansi_code_page(65001);  // system text is UTF-8

    double t0 = cpu_now();
    fill(path, records);
    std::printf("%u records of C, C, N, F, L, D, I, B written through qz_dbf_set_value: %.2f s\n",
                records, cpu_now() - t0);

    struct measure {
        const char* name;
        std::function<size_t()> run;
        double best = 1e30;
        size_t sum = 0;
    } m[] = {
        {"typed, qz_dbf_get_record_values", [&] { return read_typed_records(path); }},
        {"typed, qz_dbf_get_value per cell", [&] { return read_typed_cells(path); }},
        {"text, qz_dbf_get_str per cell", [&] { return read_text(path); }},
        {"shapelib DBFReadStringAttribute", [&] { return read_shapelib(path); }},
    };
    for (auto& x : m) x.sum = x.run();  // warm the page cache and the code
    for (int i = 0; i < kRuns; ++i)
        for (auto& x : m) {
            const double a = cpu_now();
            x.sum = x.run();
            x.best = std::min(x.best, cpu_now() - a);
        }
    for (auto& x : m) std::printf("  %-36s %7.3f s   (check %zu)\n", x.name, x.best, x.sum);
    const double typed = m[0].best, per_cell = m[1].best, text = m[2].best, peer = m[3].best;
    std::printf("typed (record calls) / text  = %.2f   (target <= 1.2)%s\n", typed / text,
                typed / text <= 1.2 ? "" : "   MISSED");
    std::printf("typed (record calls) / shapelib = %.2f   (target <= 0.8)%s\n", typed / peer,
                typed / peer <= 0.8 ? "" : "   MISSED");
    std::printf("typed (cell calls) / text = %.2f, / shapelib = %.2f\n", per_cell / text,
                per_cell / peer);
    if (!std::getenv("QZ_KEEP_BENCH_TABLE")) std::filesystem::remove_all(dir);
    return 0;
}
