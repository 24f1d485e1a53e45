// Reads, writes and searches a table of a million records through the
// exported interface, and does the same reads and writes with shapelib on
// the same files, then prints the times and their ratios.
//
//   dbf_bench [FOLDER] [RECORDS] [reads|writes]
//
// With "reads", only the read measures are made (the tables are still
// written by the library, untimed); with "writes", only the writes (text
// and typed setters).
//
// The tables (about 90 MB each) are written to FOLDER (default: the
// temporary folder) and removed at the end. Every figure is the CPU time of
// the best of five runs over a file already in the page cache, the two
// sides of a comparison taking turns.
#include <iconv.h>
#include <shapefil.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "qzk_basic.h"
#include "qzk_file_dbf.h"

namespace {

constexpr unsigned kFields = 8;
constexpr int kRuns = 5;

// Every cell of the table as text, in one block: cell (r, f) is
// text[offset[r * kFields + f] .. offset[r * kFields + f + 1]).
struct Cells {
    std::string text;
    std::vector<uint32_t> offset{0};
    void add(const std::string& s) {
        text += s;
        offset.push_back(static_cast<uint32_t>(text.size()));
    }
    const char* at(size_t i, std::string& buf) const {
        buf.assign(text, offset[i], offset[i + 1] - offset[i]);
        return buf.c_str();
    }
};

const char* const kSurnames[] = {"Иванов",  "Петров",   "Сидоров", "Кузнецов", "Смирнов",
                                 "Попов",   "Васильев", "Соколов", "Михайлов", "Новиков",
                                 "Фёдоров", "Морозов",  "Волков",  "Алексеев", "Лебедев",
                                 "Семёнов", "Егоров",   "Павлов",  "Козлов",   "Степанов"};
const char* const kNames[] = {"Анна",  "Борис",   "Вера",  "Глеб",   "Дарья", "Егор",
                              "Жанна", "Зиновий", "Ирина", "Кирилл", "Лидия", "Максим"};

const char* const kLatin[] = {"Ivanov",  "Petrov",   "Sidorov", "Kuznetsov", "Smirnov",
                              "Popov",   "Vasiliev", "Sokolov", "Mikhailov", "Novikov",
                              "Fedorov", "Morozov",  "Volkov",  "Alekseev",  "Lebedev",
                              "Semenov", "Egorov",   "Pavlov",  "Kozlov",    "Stepanov"};

// The text of cell (r, f) as a person would type it (UTF-8); `ascii` spells
// the texts in Latin letters.
std::string cell_value(unsigned r, unsigned f, bool ascii = false) {
    char buf[64];
    if (ascii && f == 0) {
        std::snprintf(buf, sizeof buf, "%s %s %u", kLatin[r % 20], kLatin[(r / 20) % 20], r % 1000);
        return buf;
    }
    if (ascii && f == 1) {
        std::snprintf(buf, sizeof buf, "KOD%07u", r);
        return buf;
    }
    switch (f) {
        case 0:  // NAME C(30)
            std::snprintf(buf, sizeof buf, "%s %s %u", kSurnames[r % 20], kNames[(r / 20) % 12],
                          r % 1000);
            return buf;
        case 1:  // CODE C(12): unique
            std::snprintf(buf, sizeof buf, "КОД%07u", r);
            return buf;
        case 2:  // AMOUNT N(12,2)
            std::snprintf(buf, sizeof buf, "%u.%02u", (r * 7919u) % 1000000u, r % 100);
            return buf;
        case 3:  // RATE F(12,4)
            std::snprintf(buf, sizeof buf, "%.4f", (r % 100000) / 997.0);
            return buf;
        case 4:  // ACTIVE L(1)
            return r % 3 ? "T" : "F";
        case 5:  // BORN D(8)
            std::snprintf(buf, sizeof buf, "%04u%02u%02u", 1940 + r % 70, 1 + r % 12, 1 + r % 28);
            return buf;
        case 6:  // COUNT I(4)
            std::snprintf(buf, sizeof buf, "%d", static_cast<int>(r % 200000) - 100000);
            return buf;
        default:  // VALUE B(8)
            std::snprintf(buf, sizeof buf, "%.6g", r * 0.37 - 1000.0);
            return buf;
    }
}

std::string to_cp1251(const std::string& utf8) {
    iconv_t cd = iconv_open("CP1251", "UTF-8");
    std::string out(utf8.size(), '\0');
    char* in = const_cast<char*>(utf8.data());
    size_t in_left = utf8.size(), out_left = out.size();
    char* o = out.data();
    iconv(cd, &in, &in_left, &o, &out_left);
    iconv_close(cd);
    out.resize(out.size() - out_left);
    return out;
}

// CPU time of this thread (user and system), which other work on the
// machine disturbs far less than the wall clock.
double cpu_now() {
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + ts.tv_nsec * 1e-9;
}

double timed(const std::function<void()>& body) {
    double t0 = cpu_now();
    body();
    return cpu_now() - t0;
}

// The best time of each of two measures, run by turns so that both see the
// same machine.
std::pair<double, double> best_of(const std::function<void()>& a, const std::function<void()>& b,
                                  const std::function<void()>& setup_a = {},
                                  const std::function<void()>& setup_b = {}) {
    double ta = 1e30, tb = 1e30;
    for (int i = 0; i < kRuns; ++i) {
        if (setup_a) setup_a();
        ta = std::min(ta, timed(a));
        if (setup_b) setup_b();
        tb = std::min(tb, timed(b));
    }
    return {ta, tb};
}

void die(const std::string& what) {
    std::fprintf(stderr, "dbf_bench: %s\n", what.c_str());
    std::exit(1);
}

// A blank table of the benchmark's layout, written by the library.
void create_blank(const std::string& path, unsigned records, bool utf8) {
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
    if (utf8) qz_dbf_set_utf8_flag(t, true);
    qz_dbf_close(t);
}

// Reads every cell as text; the sum of the lengths keeps the work honest.
size_t read_ours(const std::string& path) {
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), true, false);
    if (!t) die("cannot open " + path);
    unsigned nr = qz_dbf_get_nr(t), nf = qz_dbf_get_nf(t);
    size_t sum = 0;
    for (unsigned r = 0; r < nr; ++r)
        for (unsigned f = 0; f < nf; ++f) {
            bool ok = false;
            const char* s = qz_dbf_get_str(t, f, r, ok);
            sum += std::strlen(s);
        }
    qz_dbf_close(t);
    return sum;
}

// Reads every cell as text; with `cd`, the text of character cells is
// converted by iconv as a program would to show it (the sum then counts the
// converted bytes).
size_t read_shapelib(const std::string& path, iconv_t cd = nullptr) {
    DBFHandle h = DBFOpen(path.c_str(), "rb");
    if (!h) die("shapelib cannot open " + path);
    int nr = DBFGetRecordCount(h), nf = DBFGetFieldCount(h);
    std::vector<bool> text(static_cast<size_t>(nf));
    for (int f = 0; f < nf; ++f) text[f] = cd && DBFGetNativeFieldType(h, f) == 'C';
    char converted[1024];
    size_t sum = 0;
    for (int r = 0; r < nr; ++r)
        for (int f = 0; f < nf; ++f) {
            const char* s = DBFReadStringAttribute(h, r, f);
            if (!text[f]) {
                sum += std::strlen(s);
                continue;
            }
            char* in = const_cast<char*>(s);
            size_t in_left = std::strlen(s), out_left = sizeof converted - 1;
            char* out = converted;
            iconv(cd, &in, &in_left, &out, &out_left);
            *out = 0;
            sum += std::strlen(converted);
        }
    DBFClose(h);
    return sum;
}

void write_ours(const std::string& path, const Cells& cells, unsigned records) {
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), false, false);
    if (!t) die("cannot open " + path + " for writing");
    std::string buf;
    for (unsigned r = 0; r < records; ++r)
        for (unsigned f = 0; f < kFields; ++f)
            if (!qz_dbf_set_str(t, f, r, cells.at(size_t(r) * kFields + f, buf)))
                die("set_str refused a value");
    qz_dbf_close(t);
}

void write_shapelib(const std::string& path, const Cells& cells, unsigned records) {
    DBFHandle h = DBFOpen(path.c_str(), "r+b");
    if (!h) die("shapelib cannot open " + path + " for writing");
    std::string buf;
    for (unsigned r = 0; r < records; ++r)
        for (unsigned f = 0; f < kFields; ++f)
            DBFWriteStringAttribute(h, static_cast<int>(r), static_cast<int>(f),
                                    cells.at(size_t(r) * kFields + f, buf));
    DBFClose(h);
}

// Reads the numeric cells (AMOUNT N, RATE F) as doubles.
double numbers_ours(const std::string& path) {
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), true, false);
    if (!t) die("cannot open " + path);
    unsigned nr = qz_dbf_get_nr(t);
    double sum = 0;
    for (unsigned r = 0; r < nr; ++r)
        for (unsigned f = 2; f <= 3; ++f) {
            bool ok = false;
            sum += qz_dbf_get_dbl(t, f, r, ok);
        }
    qz_dbf_close(t);
    return sum;
}

double numbers_shapelib(const std::string& path) {
    DBFHandle h = DBFOpen(path.c_str(), "rb");
    if (!h) die("shapelib cannot open " + path);
    int nr = DBFGetRecordCount(h);
    double sum = 0;
    for (int r = 0; r < nr; ++r)
        for (int f = 2; f <= 3; ++f) sum += DBFReadDoubleAttribute(h, r, f);
    DBFClose(h);
    return sum;
}

// The typed value of every cell, as a program holding them would pass them.
struct Typed {
    std::vector<double> amount, rate, value;
    std::vector<int> count;
    std::vector<bool> active;
};

Typed typed_values(unsigned records) {
    Typed v;
    for (unsigned r = 0; r < records; ++r) {
        v.amount.push_back(std::strtod(cell_value(r, 2).c_str(), nullptr));
        v.rate.push_back(std::strtod(cell_value(r, 3).c_str(), nullptr));
        v.active.push_back(cell_value(r, 4) == "T");
        v.count.push_back(std::atoi(cell_value(r, 6).c_str()));
        v.value.push_back(std::strtod(cell_value(r, 7).c_str(), nullptr));
    }
    return v;
}

// Every cell with the setter of its type (text for C and D).
void typed_ours(const std::string& path, const Cells& cells, const Typed& v, unsigned records) {
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), false, false);
    if (!t) die("cannot open " + path + " for writing");
    std::string buf;
    for (unsigned r = 0; r < records; ++r) {
        const size_t i = size_t(r) * kFields;
        bool ok = qz_dbf_set_str(t, 0, r, cells.at(i, buf)) &&
                  qz_dbf_set_str(t, 1, r, cells.at(i + 1, buf)) &&
                  qz_dbf_set_dbl(t, 2, r, v.amount[r]) && qz_dbf_set_dbl(t, 3, r, v.rate[r]) &&
                  qz_dbf_set_bool(t, 4, r, v.active[r]) &&
                  qz_dbf_set_str(t, 5, r, cells.at(i + 5, buf)) &&
                  qz_dbf_set_int(t, 6, r, v.count[r]) && qz_dbf_set_dbl(t, 7, r, v.value[r]);
        if (!ok) die("a typed setter refused a value");
    }
    qz_dbf_close(t);
}

void typed_shapelib(const std::string& path, const Cells& cells, const Typed& v, unsigned records) {
    DBFHandle h = DBFOpen(path.c_str(), "r+b");
    if (!h) die("shapelib cannot open " + path + " for writing");
    std::string buf;
    for (unsigned r = 0; r < records; ++r) {
        const size_t i = size_t(r) * kFields;
        const int ri = static_cast<int>(r);
        DBFWriteStringAttribute(h, ri, 0, cells.at(i, buf));
        DBFWriteStringAttribute(h, ri, 1, cells.at(i + 1, buf));
        DBFWriteDoubleAttribute(h, ri, 2, v.amount[r]);
        DBFWriteDoubleAttribute(h, ri, 3, v.rate[r]);
        DBFWriteLogicalAttribute(h, ri, 4, v.active[r] ? 'T' : 'F');
        DBFWriteStringAttribute(h, ri, 5, cells.at(i + 5, buf));
        DBFWriteIntegerAttribute(h, ri, 6, v.count[r]);
        DBFWriteDoubleAttribute(h, ri, 7, v.value[r]);
    }
    DBFClose(h);
}

// The floor of any reader: read() over the whole file, touching every byte.
volatile size_t touched_sum;

size_t touch_bytes(const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) die("cannot open " + path);
    int fd = fileno(f);
    static char buf[1 << 16];
    size_t sum = 0, total = 0;
    for (ssize_t n; (n = ::read(fd, buf, sizeof buf)) > 0;) {
        total += static_cast<size_t>(n);
        for (ssize_t i = 0; i < n; ++i) sum += static_cast<unsigned char>(buf[i]);
    }
    std::fclose(f);
    if (total != std::filesystem::file_size(path)) die("read() did not read all of " + path);
    touched_sum = sum;
    return total;
}

void copy(const std::string& from, const std::string& to) {
    std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing);
    std::string cf = from.substr(0, from.size() - 4) + ".cpg";
    std::string ct = to.substr(0, to.size() - 4) + ".cpg";
    if (std::filesystem::exists(cf))
        std::filesystem::copy_file(cf, ct, std::filesystem::copy_options::overwrite_existing);
}

struct Row {
    std::string what;
    double ours, peer;
    std::string limit;
    bool pass;
};

// The write measures and the fast find, which a run of the reads alone
// leaves out.
void write_and_find(std::vector<Row>& rows, const std::string& blank, const std::string& cp,
                    const Cells& utf8, const Cells& cp1251, const Typed& typed, unsigned records,
                    bool find);

}  // namespace

int main(int argc, char** argv) {
    std::string dir = argc > 1 ? argv[1] : std::filesystem::temp_directory_path().string();
    unsigned records =
        argc > 2 ? static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10)) : 1000000;
    const bool reads_only = argc > 3 && std::strcmp(argv[3], "reads") == 0;
    const bool writes_only = argc > 3 && std::strcmp(argv[3], "writes") == 0;
    dir += "/qz_bench_" + std::to_string(::getpid());
    std::filesystem::create_directories(dir);
    const std::string blank = dir + "/blank.dbf", cp = dir + "/cp1251.dbf",
                      peer = dir + "/cp1251_shapelib.dbf", blank8 = dir + "/blank_utf8.dbf",
                      u8 = dir + "/utf8.dbf";

    // System text is UTF-8, as on any Linux desktop.
    qz_options_set_ansi_code_page(65001);

    std::printf("preparing %u records of %u fields (C, C, N, F, L, D, I, B) in %s\n", records,
                kFields, dir.c_str());
    Cells utf8, cp1251, ascii;
    for (unsigned r = 0; r < records; ++r)
        for (unsigned f = 0; f < kFields; ++f) {
            std::string v = cell_value(r, f);
            utf8.add(v);
            cp1251.add(to_cp1251(v));
            ascii.add(cell_value(r, f, true));
        }
    const Typed typed = typed_values(records);
    const std::string asc = dir + "/ascii.dbf";
    create_blank(blank, records, false);
    create_blank(blank8, records, true);

    std::vector<Row> rows;

    // Writing every cell as text: the library converts UTF-8 to the table's
    // CP1251 and formats numbers; shapelib is given the CP1251 bytes.
    if (reads_only) {
        copy(blank, cp);
        write_ours(cp, utf8, records);
    } else {
        auto [w_ours, w_peer] = best_of([&] { write_ours(cp, utf8, records); },
                                        [&] { write_shapelib(peer, cp1251, records); },
                                        [&] { copy(blank, cp); }, [&] { copy(blank, peer); });
        rows.push_back({"write every cell as text (CP1251 table)", w_ours, w_peer, "<= 0.3",
                        w_ours / w_peer <= 0.3});
    }

    size_t sum_ours = 0, sum_peer = 0, sum8 = 0, sum8_peer = 0;
    if (!writes_only) {
        // Reading every cell of the same file as text; both sides give the
        // character cells as UTF-8, shapelib through iconv.
        iconv_t to_utf8 = iconv_open("UTF-8", "CP1251");
        if (to_utf8 == reinterpret_cast<iconv_t>(-1)) die("iconv has no CP1251");
        read_ours(cp);
        read_shapelib(cp, to_utf8);
        auto [r_ours, r_peer] = best_of([&] { sum_ours = read_ours(cp); },
                                        [&] { sum_peer = read_shapelib(cp, to_utf8); });
        iconv_close(to_utf8);
        rows.push_back({"read every cell as text (CP1251 table)", r_ours, r_peer, "<= 0.8",
                        r_ours / r_peer <= 0.8});

        // The same with a UTF-8 table and UTF-8 system text.
        copy(blank8, u8);
        write_ours(u8, utf8, records);
        read_ours(u8);
        read_shapelib(u8);
        auto [r8_ours, r8_peer] =
            best_of([&] { sum8 = read_ours(u8); }, [&] { sum8_peer = read_shapelib(u8); });
        rows.push_back({"read every cell as text (UTF-8 table)", r8_ours, r8_peer, "<= 0.8",
                        r8_ours / r8_peer <= 0.8});

        // Plain ASCII text: no conversion is needed on either side.
        copy(blank, asc);
        write_ours(asc, ascii, records);
        read_ours(asc);
        read_shapelib(asc);
        auto [ra_ours, ra_peer] = best_of([&] { read_ours(asc); }, [&] { read_shapelib(asc); });
        rows.push_back({"read every cell as text (ASCII table)", ra_ours, ra_peer, "<= 0.7",
                        ra_ours / ra_peer <= 0.7});
        auto [floor_ours, floor] = best_of([&] { read_ours(asc); }, [&] { touch_bytes(asc); });
        rows.push_back(
            {"read as text (ASCII) vs read() touching bytes", floor_ours, floor, "-", true});

        // Numbers as double.
        auto [n_ours, n_peer] = best_of([&] { numbers_ours(cp); }, [&] { numbers_shapelib(cp); });
        rows.push_back(
            {"numeric cells (N, F) as double", n_ours, n_peer, "<= 0.25", n_ours / n_peer <= 0.25});
    }

    if (!reads_only) write_and_find(rows, blank, cp, utf8, cp1251, typed, records, !writes_only);

    std::printf("\nCPU seconds of this thread, best of %d runs, the two sides taking turns\n",
                kRuns);
    std::printf("%-42s %12s %12s %8s %8s %5s\n", "measure", "library", "shapelib", "ratio",
                "target", "");
    bool all = true;
    for (const Row& row : rows) {
        std::printf("%-42s %11.3fs %11.3fs %8.2f %8s %5s\n", row.what.c_str(), row.ours, row.peer,
                    row.ours / row.peer, row.limit.c_str(), row.pass ? "ok" : "SLOW");
        all = all && row.pass;
    }
    std::printf(
        "\nratio = library / shapelib; in the read() row the second column is a loop\n"
        "reading the ASCII table's file and adding up its bytes (the floor of any reader);\n"
        "shapelib reads UTF-8 cells as bytes and CP1251 character cells through iconv\n"
        "to UTF-8, the text the library gives; in the begin_fast_find row the second\n"
        "column is filling a std::map<std::string, unsigned> with the same %u strings.\n"
        "Bytes of text read: %zu / %zu (CP1251 table), %zu / %zu (UTF-8 table);\n"
        "the library gives C cells with their padding and F and B cells in 19 columns.\n",
        records, sum_ours, sum_peer, sum8, sum8_peer);

    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
    return all ? 0 : 1;
}

namespace {

void write_and_find(std::vector<Row>& rows, const std::string& blank, const std::string& cp,
                    const Cells& utf8, const Cells& cp1251, const Typed& typed, unsigned records,
                    bool find) {
    const std::string dir = blank.substr(0, blank.rfind('/'));
    const std::string typed_path = dir + "/typed.dbf", typed_peer = dir + "/typed_shapelib.dbf";
    // Every cell with the setter of its type.
    auto [t_ours, t_peer] =
        best_of([&] { typed_ours(typed_path, utf8, typed, records); },
                [&] { typed_shapelib(typed_peer, cp1251, typed, records); },
                [&] { copy(blank, typed_path); }, [&] { copy(blank, typed_peer); });
    rows.push_back(
        {"write with typed setters", t_ours, t_peer, "<= 0.25", t_ours / t_peer <= 0.25});

    if (!find) return;

    // Fast find on the unique CODE field against a std::map of the same
    // strings (as the library gives them: trimmed system text).
    Tqz_dbf_rw* t = qz_dbf_open(cp.c_str(), true, false);
    if (!t) die("cannot open " + cp);
    std::vector<std::string> keys(records);
    for (unsigned r = 0; r < records; ++r) {
        bool ok = false;
        std::string s = qz_dbf_get_str(t, 1, r, ok);
        s.erase(s.find_last_not_of(' ') + 1);
        keys[r] = s;
    }
    auto [build, map_fill] = best_of([&] { qz_dbf_begin_fast_find(t, 1); },
                                     [&] {
                                         std::map<std::string, unsigned> m;
                                         for (unsigned r = 0; r < records; ++r) m[keys[r]] = r;
                                     });
    rows.push_back(
        {"begin_fast_find vs filling a std::map", build, map_fill, "<= 1.0", build <= map_fill});
    std::vector<unsigned> order(records);
    for (unsigned r = 0; r < records; ++r) order[r] = r;
    std::shuffle(order.begin(), order.end(), std::mt19937(42));
    unsigned found = 0;
    double lookups = 1e30;
    for (int i = 0; i < kRuns; ++i)
        lookups = std::min(lookups, timed([&] {
                               found = 0;
                               for (unsigned r : order) {
                                   unsigned rec = 0;
                                   if (qz_dbf_find_value_fast(t, keys[r].c_str(), rec) && rec == r)
                                       ++found;
                               }
                           }));
    qz_dbf_end_fast_find(t);
    qz_dbf_close(t);
    if (found != records) die("find_value_fast missed records");
    // Seconds per million lookups against the one second a rate of a
    // million a second allows.
    const double per_million = lookups * 1e6 / records;
    rows.push_back(
        {"find_value_fast: 1e6 lookups vs 1 s", per_million, 1.0, "<= 1.0", per_million <= 1.0});
}

}  // namespace
