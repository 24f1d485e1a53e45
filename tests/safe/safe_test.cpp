// Files that are no good tables and calls that fail: the file check, the
// checked open and the tool over broken and awkward files (exit statuses,
// reasons, files left byte for byte with their modification time), the
// thread's last error (code, file and reason), wrong values refused by the
// tool, deletion flags, a file that cannot grow, and what the shared
// libraries export.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <functional>
#include <thread>

#include "restruct_tables.h"

namespace {

using qz_test::read_bytes;
using qz_test::Temp_dir;
using qz_test::write_bytes;
using restruct_test::qzdbf;

// A good table "NAME C10, AMOUNT N8.2, DAY D8" with three records.
std::string make_good_table(const Temp_dir& dir, const std::string& name) {
    restruct_test::make_table(
        dir.wfile(name), {{"NAME", 'C', 10, 0}, {"AMOUNT", 'N', 8, 2}, {"DAY", 'D', 8, 0}},
        {{"alpha", "1.5", "20240131"}, {"beta", "3", "20240131"}, {"gamma", "4.5", "20240131"}});
    return dir.file(name);
}

// The last error is `code` and its message holds `part`.
void expect_error(int code, const std::string& part) {
    EXPECT_EQ(qz_dbf_last_error(), code) << qz_dbf_last_error_message();
    EXPECT_NE(std::string(qz_dbf_last_error_message()).find(part), std::string::npos)
        << qz_dbf_last_error_message() << " lacks " << part;
}

// The findings of a check as "severity|kind| where: what" lines, and the worst.
std::string check(const std::string& path, int& worst, unsigned flags = QZ_DBF_CHECK_VALUES) {
    std::string text;
    Tqz_dbf_check_result* r = qz_dbf_check_file(path.c_str(), flags);
    worst = qz_dbf_check_worst(r);
    for (unsigned i = 0; i < qz_dbf_check_count(r); ++i)
        text += std::to_string(qz_dbf_check_severity(r, i)) + "|" +
                std::to_string(qz_dbf_check_kind(r, i)) + "| " + qz_dbf_check_where(r, i) + ": " +
                qz_dbf_check_what(r, i) + "\n";
    EXPECT_STREQ(qz_dbf_check_what(r, qz_dbf_check_count(r)), "");
    qz_dbf_check_free(r);
    return text;
}

int64_t mtime_ns(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) != 0 ? -1
                                          : st.st_mtim.tv_sec * 1000000000ll + st.st_mtim.tv_nsec;
}

// Every bad file: the check finds it; the checked open refuses what is no
// table with the reason (read-only and unwritten when forced); every command
// of the tool refuses it with the reason, or reads it with a warning and
// never writes it; a locked or read-only table reads and is not written
// (exit status 3). Nothing changes a byte or the time or leaves a lock file.
TEST(Safe, BadFilesAreFoundRefusedAndLeftAsTheyAreAndFindingsNamed) {
    Temp_dir dir;
    const std::vector<uint8_t> good = read_bytes(make_good_table(dir, "base.dbf"));
    auto patched = [&](size_t at, const std::string& with) {
        std::vector<uint8_t> b = good;
        std::copy(with.begin(), with.end(), b.begin() + at);
        return b;
    };
    auto cut = [&](size_t n) { return std::vector<uint8_t>(good.begin(), good.begin() + n); };
    const std::string text = "hello,world\nthis is not a table\n";
    const int fatal = QZ_DBF_SEV_FATAL, error = QZ_DBF_SEV_ERROR;
    // Name, bytes, the worst finding a check makes, a part of its text. The
    // "locked" table is good on disk (its lock is held here); "read_only"
    // has mode 0444; the DAY field of "memo_missing" is made a memo field.
    const std::vector<std::tuple<std::string, std::vector<uint8_t>, int, std::string>> files = {
        {"text.txt", {text.begin(), text.end()}, fatal, "not a dBASE table"},
        {"empty.dbf", {}, fatal, "empty"},
        {"folder.dbf", {}, fatal, "a folder"},
        {"cut_header.dbf", cut(20), fatal, "shorter than the 32-byte header"},
        {"cut_descriptors.dbf", cut(80), fatal, "cut inside the field descriptors"},
        {"cut_record.dbf", cut(good.size() - 6), error, "holds 2 whole records"},
        {"header_past_end.dbf", patched(8, "\xF0\xFF"), fatal, "reaches past the end"},
        {"count_max.dbf", patched(4, "\xFF\xFF\xFF\xFF"), error, "says 4294967295 records"},
        {"record_length.dbf", patched(10, "\x14"), error, "record length 20 is shorter"},
        {"version.dbf", patched(0, "\x47"), fatal, "unknown version byte 0x47"},
        {"memo_missing.dbf", patched(32 * 3 + 11, "M"), error, "memo file missing"},
        {"locked.dbf", good, 0, ""},
        {"read_only.dbf", good, 0, ""}};
    for (const auto& [name, bytes, severity, reason] : files)
        name == "folder.dbf" ? void(mkdir(dir.file(name).c_str(), 0755))
                             : write_bytes(dir.file(name), bytes);
    chmod(dir.file("read_only.dbf").c_str(), 0444);
    Tqz_dbf_rw* holder = qz_dbf_open(dir.file("locked.dbf").c_str(), false, false);
    // Command, arguments (PATH replaced), standard input, whether it writes.
    const std::vector<std::tuple<std::string, std::string, std::string, bool>> commands = {
        {"info", "info PATH", "", false},       {"info --force", "info --force PATH", "", false},
        {"dump", "dump PATH", "", false},       {"get", "get PATH 0 0", "", false},
        {"set", "set PATH 0 0 x", "", true},    {"append", "append PATH", "", true},
        {"edit", "edit PATH", "quit\\n", true}, {"watch", "watch PATH", "", false},
        {"check", "check PATH", "", false},     {"create", "create PATH A:C:5", "", true},
    };
    for (const auto& [file, bytes, severity, reason] : files) {
        SCOPED_TRACE(file);
        const bool folder = file == "folder.dbf", fatal = severity == QZ_DBF_SEV_FATAL,
                   held = file == "locked.dbf" || file == "read_only.dbf";
        const std::string path = dir.file(file);
        const int64_t mtime = mtime_ns(path);
        int worst = -1;
        const std::string found = check(path, worst);
        EXPECT_EQ(worst, severity) << found;
        EXPECT_NE(found.find(reason), std::string::npos) << found;
        qz_dbf_clear_last_error();
        Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), 0);
        EXPECT_EQ(t != nullptr, !fatal && !held) << qz_dbf_last_error_message();
        if (fatal) expect_error(QZ_DBF_ERR_NOT_A_TABLE, reason);
        if (file == "read_only.dbf") expect_error(QZ_DBF_ERR_PERMISSION, "");
        qz_dbf_close(t);
        t = qz_dbf_open_ex(path.c_str(), fatal ? QZ_DBF_OPEN_FORCE : QZ_DBF_OPEN_READ_ONLY);
        EXPECT_TRUE(t || fatal);
        EXPECT_FALSE(t && fatal && qz_dbf_set_deleted(t, 0, true));  // forced: read-only
        qz_dbf_close(t);
        for (const auto& [name, command, input, writes] : commands) {
            std::string args = command, out;
            args.replace(args.find("PATH"), 4, "'" + path + "'");
            // watch refuses a file that is no table at once, and otherwise
            // runs until it is stopped (its status is then not checked).
            if (name == "watch")
                args = std::string("--help >/dev/null; timeout -s INT ") + (fatal ? "20" : "0.2") +
                       " '" QZDBF_EXE "' " + args;
            const int status = qzdbf(args, &out, input);
            const std::string where = name + ": " + out;
            // info --force reads anyway with the reason as a warning (a folder
            // is no file); what is no table is refused with the reason; a held
            // table reads, and writing it is an I/O failure (3); a damaged one
            // is read with a warning and never written.
            const bool force = name == "info --force", checks = name == "check";
            EXPECT_TRUE((name == "watch" && !fatal) || status == (force   ? (folder ? 2 : 0)
                                                                  : fatal ? (checks ? 1 : 2)
                                                                  : name == "create" ? 2
                                                                  : held   ? (writes ? 3 : 0)
                                                                  : writes ? 2
                                                                           : checks))
                << status << " " << where;
            const std::string says = force   ? (fatal && !folder ? "read anyway (--force)" : "")
                                     : fatal ? (name == "create" ? "already exists" : reason)
                                     : held || writes || checks || name == "watch" ? ""
                                                                                   : "warning: ";
            EXPECT_NE(out.find(says), std::string::npos) << where;
            EXPECT_EQ(read_bytes(path), bytes) << where;
            EXPECT_EQ(mtime_ns(path), mtime) << where;
            EXPECT_EQ(qz_test::exists(path + ".lk"), file == "locked.dbf") << where;
        }
    }
    qz_dbf_close(holder);
    int worst = 0;
    check(dir.file("none.dbf"), worst);
    EXPECT_EQ(worst, QZ_DBF_SEV_FATAL);
    EXPECT_EQ(qz_dbf_check_file(nullptr, 0), nullptr);
    EXPECT_EQ(qz_dbf_check_count(nullptr), 0u);
    EXPECT_EQ(qz_dbf_open_ex(nullptr, 0), nullptr);

    // Descriptor layouts and values other readers refuse, one change of a
    // good table each: severity, kind and text of the finding.
    EXPECT_EQ(check(dir.file("base.dbf"), worst), "");
    EXPECT_EQ(worst, 0);
    const int warning = QZ_DBF_SEV_WARNING, name = QZ_DBF_CHECK_NAME, field = QZ_DBF_CHECK_FIELD;
    struct Case {
        size_t at;  // field 2 (DAY, D8) at 96: type at +11, length +16, decimals +17
        std::string bytes;
        int severity, kind;
        const char* reason;
    } cases[] = {
        {96 + 11, "L", error, field, "L field of length 8"},
        {96 + 11, "S", error, field, "unknown field type 'S'"},
        {64 + 17, "\b", error, field, "8 decimals in length 8"},
        {96 + 16, std::string(1, '\0'), error, field, "field length 0"},
        {128, " ", error, QZ_DBF_CHECK_TERMINATOR, "no terminator"},
        {10, "\x1C", error, QZ_DBF_CHECK_RECORD_LENGTH, "not the fields' lengths plus one (27)"},
        {96, "day", warning, name, "'day' breaks the field-name rules (the repair is 'DAY')"},
        {96, "name", warning, name, "'name' is used by an earlier field too"},
        // a CP1251 byte in a name: findings stay UTF-8, the byte escaped
        {96, "\xC4", warning, name, "field 2 (\\xC4AY)"},
        {130 + 11, "x", error, QZ_DBF_CHECK_VALUE, "not a number, the first \" x"},
        {8, "\xA2", QZ_DBF_SEV_FATAL, QZ_DBF_CHECK_RECORDS, ""}};
    for (const Case& c : cases) {
        std::vector<uint8_t> b = good;
        std::copy(c.bytes.begin(), c.bytes.end(), b.begin() + c.at);
        write_bytes(dir.file("t.dbf"), b);
        const std::string found = check(dir.file("t.dbf"), worst);
        if (c.kind == QZ_DBF_CHECK_RECORDS) continue;  // only that it survives
        EXPECT_EQ(worst, c.severity) << c.reason << "\n" << found;
        EXPECT_NE(found.find("|" + std::to_string(c.kind) + "|"), std::string::npos) << found;
        EXPECT_NE(found.find(c.reason), std::string::npos) << found;
    }

    // Each record: a number, a two-letter text, a date and a logical, as
    // other programs may leave them; bad ones counted per field, the first
    // quoted with every byte outside printable ASCII as \xNN. The text "E5"
    // right after the number must not be read as its exponent.
    const char* numbers[] = {"    1.50", "abc",   "",   "********", "  +5",    "-1.5e+3",
                             "  1,5",    "1.2.3", "1e", "  -",      "       5"};
    const char* dates[] = {"20240229", "\342\202\25412345", "19000229", "20000229",
                           "20230229", "20231301",          "",         "20240100",
                           "20241231", "20240431",          "20240229"};
    std::vector<std::vector<std::string>> records;
    for (int i = 0; i < 11; ++i)
        records.push_back({numbers[i], "E5", dates[i], {"TX?\0FynZTTT"[i]}});
    records[3][3] = "";
    write_bytes(
        dir.file("v.dbf"),
        qz_test::dbf_bytes(0x03, {{"N", 'N', 8, 2}, {"C", 'C', 2}, {"D", 'D', 8}, {"L", 'L', 1}},
                           records));
    const std::string found = check(dir.file("v.dbf"), worst);
    for (const char* want :
         {"field 0 (N): 4 value(s) that are not a number, the first \"abc     \" in record 1",
          "field 2 (D): 6 value(s) that are not a date, the first \"\\xE2\\x82\\xAC12345\" in "
          "record 1",
          "field 3 (L): 2 value(s) that are not a logical value, the first \"X\" in record 1"})
        EXPECT_NE(found.find(want), std::string::npos) << want << "\n" << found;
    // Without the flag, records are not read.
    EXPECT_EQ(
        check(dir.file("v.dbf"), worst, 0).find("|" + std::to_string(QZ_DBF_CHECK_VALUE) + "|"),
        std::string::npos);
}

// The checked open leaves a .cpg as it is, whatever it says, unless asked
// to write the table's encoding as the classic open does; a memory table's
// save writes it unless it is to be kept.
TEST(Safe, CheckedOpenKeepsTheCodePageFileUnlessAsked) {
    Temp_dir dir;
    const std::string path = make_good_table(dir, "cp.dbf"), cpg = dir.file("cp.cpg");
    auto after = [&](const std::string& text, const std::function<void()>& open) {
        write_bytes(cpg, std::vector<uint8_t>(text.begin(), text.end()));
        open();
        const std::vector<uint8_t> b = read_bytes(cpg);
        return std::string(b.begin(), b.end());
    };
    auto change = [&] {
        Tqz_dbf_rw* t = qz_dbf_open_ex(path.c_str(), 0);
        EXPECT_TRUE(qz_dbf_set_str(t, 0, 0, "changed"));
        qz_dbf_close(t);
    };
    for (const char* text : {"ISO-8859-2", "UTF8", "65001", "1252\r\n", "CP866\n"})
        EXPECT_EQ(after(text, change), text);
    EXPECT_EQ(
        after("UTF8", [&] { qz_dbf_close(qz_dbf_open_ex(path.c_str(), QZ_DBF_OPEN_WRITE_CPG)); }),
        "CP1251\n");
    EXPECT_EQ(after("UTF8", [&] { qz_dbf_close(qz_dbf_open(path.c_str(), false, false)); }),
              "CP1251\n");
    EXPECT_FALSE(qz_dbf_mem_keep_cpg(nullptr, true));
    Tqz_dbf_memory* m = qz_dbf_mem_load(path.c_str());
    for (bool keep : {true, false})
        EXPECT_EQ(
            after("UTF8", [&] { EXPECT_TRUE(qz_dbf_mem_keep_cpg(m, keep) && qz_dbf_mem_save(m)); }),
            keep ? "UTF8" : "CP1251\n");
    qz_dbf_mem_free(m);
}

TEST(Safe, LastErrorSaysWhatFailedWhereAndWhy) {
    Temp_dir dir;
    const std::string path = dir.file("t.dbf"), none = dir.file("none.dbf");
    restruct_test::make_table(dir.wfile("t.dbf"),  // no memo file is made
                              {{"NAME", 'C', 10, 0}, {"COUNT", 'N', 5, 0}, {"NOTE", 'M', 10, 0}},
                              restruct_test::Rows(2));
    ASSERT_EQ(::mkdir(dir.file("empty").c_str(), 0700), 0);  // neither a table nor OGR's
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), false, false);
    bool ok = true;
    unsigned len = 0, type = 0;
    // Each call fails (`failed` says so), leaving the code and a message with the part.
    auto fails = [](bool failed, int code, const std::string& part) {
        EXPECT_TRUE(failed) << part;
        expect_error(code, part);
        qz_dbf_clear_last_error();
        EXPECT_STREQ(qz_dbf_last_error_message(), "");
    };
    qz_dbf_clear_last_error();
    fails(!qz_dbf_open(none.c_str(), true, false), QZ_DBF_ERR_NOT_FOUND, "none.dbf: no such file");
    fails(!qz_dbf_open(dir.file("empty").c_str(), true, false), QZ_DBF_ERR_NOT_A_TABLE, "a folder");
    fails(!qz_dbf_create(dir.file("a/b.dbf").c_str(), 0, 0, nullptr, false), QZ_DBF_ERR_NOT_FOUND,
          "");
    fails(!qz_fpt_open(dir.file("none.fpt").c_str(), true), QZ_DBF_ERR_NOT_FOUND, "");
    fails(!qz_dbf_mem_load(none.c_str()), QZ_DBF_ERR_NOT_FOUND, "");
    // A table another writer holds: the classic open reads it through OGR,
    // read-only, and leaves the last error alone; open_ex refuses it.
    Tqz_dbf_rw* second = qz_dbf_open(path.c_str(), false, false);
    fails(qz_dbf_get_storage(second) == qz_dbf_storage_ogr, QZ_DBF_OK, "");
    qz_dbf_close(second);
    fails(!qz_dbf_open_ex(path.c_str(), 0), QZ_DBF_ERR_LOCKED, "t.dbf: locked by another writer");
    fails(!qz_dbf_get_int(t, 7, 0, ok) && !ok, QZ_DBF_ERR_ARGUMENT, "field 7 does not exist");
    fails(!qz_dbf_get_int(t, 1, 9, ok) && !ok, QZ_DBF_ERR_ARGUMENT, "record 9 does not exist");
    fails(!qz_dbf_get_int(t, 1, 0, ok) && !ok, QZ_DBF_ERR_VALUE, "field COUNT, record 0");
    // Not a number for an N field; a successful write does not touch it.
    fails(!qz_dbf_set_str(t, 1, 1, "abc") && qz_dbf_set_str(t, 0, 1, "x"), QZ_DBF_ERR_VALUE,
          "t.dbf: field COUNT, record 1");
    fails(!qz_dbf_get_memo_bytes(t, 2, 0, ok, len, type), QZ_DBF_ERR_MEMO, "memo file missing");
    fails(!qz_dbf_get_field_name(t, 3), QZ_DBF_ERR_ARGUMENT,
          "field 3 does not exist (the table has 3 fields)");
    fails(qz_dbf_find_field_index_w(t, L"NOPE") == 0xFFFFFFFFu, QZ_DBF_ERR_ARGUMENT, "");
    fails(qz_dbf_get_nf(nullptr) == 0, QZ_DBF_ERR_ARGUMENT, "");
    EXPECT_FALSE(qz_dbf_mem_set_int(nullptr, 0, 0, 1));
    qz_dbf_close(t);
    qz_dbf_close(qz_dbf_open(path.c_str(), true, false));  // a success leaves it as it was
    expect_error(QZ_DBF_ERR_ARGUMENT, "not a loaded memory table");
    // Each thread has its own.
    std::thread([] {
        EXPECT_EQ(qz_dbf_open("/nonexistent/x.dbf", true, false), nullptr);
        EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_NOT_FOUND);
    }).join();
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_ARGUMENT);
}

// Per type, values the tool's reading of that type must refuse: status 2, a
// message naming field, record, value and reason, the files as they were.
TEST(Safe, ToolRefusesWrongValuesAndTheTableStaysAsItWas) {
    Temp_dir dir;
    const std::string path = dir.file("values.dbf"), memo = dir.file("values.dbt");
    ASSERT_EQ(
        qzdbf("create '" + path + "' C:C:5 N:N:6:2 F:F:8:3 L:L:1 D:D:8 I:I:4 M:M:10 --records 2"),
        0);
    const std::vector<uint8_t> before = read_bytes(path), memo_before = read_bytes(memo);
    const int64_t mtime = mtime_ns(path);
    for (const std::string fv :
         {"C abcdef", "C 日本", "N abc", "N 1e99", "N 12345", "N 0x10", "F x", "F 1e30", "F nan",
          "L maybe", "L yess", "D 2023-02-30", "D 20231301", "D 31.12.2024", "I 2147483648",
          "I -2147483649", "I 1.5", "M hello", "M 1"}) {
        const std::string field = fv.substr(0, 1), v = fv.substr(2);
        std::string out;
        EXPECT_EQ(qzdbf("set '" + path + "' " + field + " 1 '" + v + "'", &out), 2) << fv << out;
        EXPECT_NE(out.find("field " + field + ", record 1: '" + v + "' refused: "),
                  std::string::npos)
            << out;
    }
    EXPECT_TRUE(read_bytes(path) == before && read_bytes(memo) == memo_before);
    EXPECT_EQ(mtime_ns(path), mtime);
    // What fits goes in, in the field's layout.
    std::string out;
    EXPECT_EQ(qzdbf("set '" + path + "' L 0 yes") + qzdbf("get '" + path + "' L 0", &out), 0);
    EXPECT_EQ(out, "T\n");
}

// A deletion flag is the record's first byte on disk (that nothing else
// changes is checked on a mapped file); in memory it is undone and redone
// and saved.
TEST(Safe, DeletionFlags) {
    Temp_dir dir;
    const std::string path = make_good_table(dir, "d.dbf");
    std::vector<uint8_t> want = read_bytes(path);
    auto flags = [&](auto get, auto* t) {
        std::string s;
        for (unsigned r = 0; r < 4; ++r) s += std::to_string(get(t, r)) + " ";
        return s;
    };
    Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), false, false);
    EXPECT_TRUE(qz_dbf_set_deleted(t, 1, true) && !qz_dbf_set_deleted(t, 3, true));
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_ARGUMENT);
    qz_dbf_close(t);
    EXPECT_EQ(read_bytes(path)[qz_test::u16_at(want, 8) + want[10]], '*');  // record 1's first byte
    // Read-only handles read the flag and refuse to change it.
    t = qz_dbf_open(path.c_str(), true, false);
    EXPECT_FALSE(qz_dbf_set_deleted(t, 1, false));
    EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_PERMISSION);
    EXPECT_EQ(flags(qz_dbf_get_deleted, t), "0 1 0 -1 ");
    qz_dbf_close(t);
    EXPECT_EQ(qz_dbf_get_deleted(nullptr, 0), -1);

    Tqz_dbf_memory* m = qz_dbf_mem_load(path.c_str());
    Iqz_history_manager* history = qz_history_manager_get_instance();
    qz_history_manager_clear(history);
    for (auto [r, on] : {std::pair{2u, true}, {0u, true}, {1u, false}, {5u, true}})
        EXPECT_EQ(qz_dbf_mem_set_deleted(m, r, on), r < 3);
    EXPECT_TRUE(qz_history_manager_undo(history) && qz_history_manager_undo(history));
    EXPECT_EQ(flags(qz_dbf_mem_get_deleted, m), "0 1 1 -1 ");
    EXPECT_TRUE(qz_history_manager_redo(history) && qz_dbf_mem_save(m));
    qz_dbf_mem_free(m);
    t = qz_dbf_open(path.c_str(), true, false);
    EXPECT_EQ(flags(qz_dbf_get_deleted, t), "1 1 1 -1 ");
    qz_dbf_close(t);
}

// A file that cannot grow (disk full, a size limit): appends fail with an
// I/O error and count nothing, cells inside the file still take writes.
TEST(Safe, AppendsThatCannotGrowTheFileCountNothing) {
    Temp_dir dir;
    const std::string path = dir.file("full.dbf");
    ASSERT_TRUE(qz_test::make_char_table(path, {10}, 2));
    const size_t size = read_bytes(path).size();
    for (bool flush : {false, true}) {
        Tqz_dbf_rw* t = qz_dbf_open(path.c_str(), false, false);
        ASSERT_NE(t, nullptr);
        rlimit old{}, lower{};
        getrlimit(RLIMIT_FSIZE, &old);
        lower = {size, old.rlim_max};
        auto handler = signal(SIGXFSZ, SIG_IGN);  // EFBIG instead of the signal
        setrlimit(RLIMIT_FSIZE, &lower);
        qz_dbf_clear_last_error();
        qz_dbf_add_records(t, 3);
        EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_IO) << qz_dbf_last_error_message();
        EXPECT_EQ(qz_dbf_get_nr(t), 2u);
        EXPECT_TRUE(!qz_dbf_set_str(t, 0, 2, "past") && qz_dbf_set_str(t, 0, 1, "inside"));
        setrlimit(RLIMIT_FSIZE, &old);
        signal(SIGXFSZ, handler);
        if (flush) qz_dbf_flush(t);
        qz_dbf_close(t);
        EXPECT_EQ(qz_test::u32_at(read_bytes(path), 4), 2u);
        EXPECT_EQ(qz_test::raw_cell(read_bytes(path), 1, 1, 10), "inside");
    }
}

// Each shared library exports its C interface and nothing else.
TEST(Safe, LibrariesExportOnlyTheCInterface) {
    for (const auto& [lib, pattern] : {std::pair{QZ_LIB_FILE_DBF, "qz_"},
                                       {QZ_LIB_BASIC, "qz_|any_|table_|tuple_"},
                                       {QZ_LIB_PATH, "qz_"}}) {
        std::string all, foreign;
        const std::string nm =
            std::string("nm -D --defined-only '") + lib + "' | awk '{print $NF}'";
        EXPECT_EQ(qz_test::run(nm, &all), 0);
        EXPECT_EQ(qz_test::run(nm + " | grep -Ev '^(" + pattern + ")'", &foreign), 1) << foreign;
        EXPECT_GT(std::count(all.begin(), all.end(), '\n'), 2) << lib;
    }
}

}  // namespace
