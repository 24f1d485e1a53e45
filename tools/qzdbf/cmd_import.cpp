// qzdbf import SRC.csv DEST.dbf [--fields NAME:TYPE:LEN[:DEC],...] [--encoding NAME]
//              [--delimiter C] [--overwrite] [--quiet]
//
// Two passes over the CSV file: the first checks every record and infers
// the fields (csv_types.h says how), the second writes the records into a
// table made with all of them blank, cell by cell through qz_dbf_set_str.
// The table is made as a hidden sibling of DEST and renamed into place at
// the end: a failed or interrupted import leaves no table, no .cpg and no
// lock file behind.
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <sys/stat.h>

#include "cli.h"
#include "csv_reader.h"
#include "csv_types.h"
#include "field_names.h"
#include "file_commit.h"
#include "import_export.h"
#include "progress.h"
#include "qzk_file_dbf_ext.h"

namespace qzdbf {

namespace {

// The code page of the table encodings import writes; 0 for others.
unsigned table_code_page(const std::string& name) {
    std::string n;
    for (char c : name)
        if (c != '-' && c != '_' && c != ' ') n += static_cast<char>(std::toupper(c));
    if (n == "UTF8" || n == "65001") return 65001;
    if (n == "CP1251" || n == "1251" || n == "WINDOWS1251" || n == "ANSI1251") return 1251;
    if (n == "CP866" || n == "866" || n == "IBM866" || n == "OEM866") return 866;
    return 0;
}

// Names from the header row made valid field names: the library's repair,
// then what it leaves (blanks, '-') made '_', then duplicates numbered.
std::vector<std::string> field_names_from(const std::vector<std::string>& header, bool quiet) {
    std::vector<std::string> names = header;
    std::vector<Name_repair> repairs = fix_names(names);
    bool again = false;
    for (size_t i = 0; i < names.size(); ++i) {
        if (name_is_ok(names[i])) continue;
        std::string n;
        for (char c : names[i]) {
            const bool ok = (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
            n += ok ? c : '_';
        }
        while (!n.empty() && !(n[0] >= 'A' && n[0] <= 'Z')) n.erase(0, 1);
        if (n.empty()) n = "FIELD" + std::to_string(i + 1);
        names[i] = n.substr(0, 10);
        again = true;
    }
    if (again) fix_names(names);  // numbers the duplicates the last step made
    if (!quiet)
        for (size_t i = 0; i < names.size(); ++i)
            if (names[i] != header[i])
                std::fprintf(stderr, "qzdbf: column %zu: name '%s' -> '%s'\n", i + 1,
                             header[i].c_str(), names[i].c_str());
    (void)repairs;
    return names;
}

bool parse_field_list(const std::string& text, std::vector<Tqz_dbf_field>& fields,
                      std::string& error) {
    size_t start = 0;
    for (;;) {
        const size_t comma = text.find(',', start);
        const std::string one = text.substr(start, comma - start);
        Tqz_dbf_field f;
        if (!parse_field(one, f, error)) return false;
        if (!std::strchr("CNFLDI", f.type)) {
            error = "field '" + one + "': import writes C, N, F, L, D and I fields";
            return false;
        }
        fields.push_back(f);
        if (comma == std::string::npos) return true;
        start = comma + 1;
    }
}

struct Column {
    char type;
    unsigned length, decimals;
};

}  // namespace

int run_import(const Import_options& o) {
    // CSV text is UTF-8, and so is every text handed to the library here.
    qz_options_set_ansi_code_page(65001);
    // UTF-8, CP1251 and CP866 are the classic encodings, written by the
    // table's flags; any other goes through the handle's encoding.
    const unsigned cp = table_code_page(o.encoding);
    const Text_measure measure(o.encoding);
    if (!measure.usable())
        return fail(kBadUsage, "--encoding '" + o.encoding +
                                   "': import writes UTF-8 or a single-byte encoding iconv "
                                   "knows (CP1252, ISO-8859-2, KOI8-R, ...)");
    struct stat st;
    if (::stat(o.destination.c_str(), &st) == 0) {
        if (!o.overwrite)
            return fail(kBadUsage, o.destination + ": already exists (--overwrite replaces it)");
        if (!S_ISREG(st.st_mode)) return fail(kBadUsage, o.destination + ": not a file");
    }
    std::FILE* in = std::fopen(o.source.c_str(), "rb");
    if (!in) return fail(kIoError, o.source + ": " + std::strerror(errno));
    struct File_closer {
        std::FILE* f;
        ~File_closer() { std::fclose(f); }
    } closer{in};
    uint64_t file_size = 0;
    if (::fstat(fileno(in), &st) == 0) file_size = static_cast<uint64_t>(st.st_size);

    Csv_reader csv(in, o.delimiter);
    std::vector<std::string_view> cells;
    if (!csv.next(cells)) {
        if (!csv.error().empty()) return fail(kBadUsage, o.source + ": " + csv.error());
        return fail(kBadUsage, o.source + ": empty; the first line must name the columns");
    }
    const std::vector<std::string> header(cells.begin(), cells.end());
    const size_t ncols = header.size();
    std::vector<Tqz_dbf_field> given;
    if (!o.fields.empty()) {
        std::string error;
        if (!parse_field_list(o.fields, given, error)) return fail(kBadUsage, "--fields: " + error);
        if (given.size() != ncols)
            return fail(kBadUsage, "--fields gives " + std::to_string(given.size()) +
                                       " fields, the header has " + std::to_string(ncols) +
                                       " columns");
        std::vector<std::string> names;
        for (const auto& f : given) names.push_back(f.name);
        for (size_t i = 0; i < names.size(); ++i)
            if (!name_is_ok(names[i]))
                return fail(kBadUsage,
                            "--fields: name '" + names[i] + "': " + name_problem(names[i]));
        if (!duplicates_ic_ok(names))
            return fail(kBadUsage, "--fields: two fields have the same name");
    }

    // Pass 1: every record checked, the fields inferred.
    std::vector<Column_guess> guesses(ncols);
    uint64_t records = 0;
    Progress bar("import: reading", file_size, "bytes");
    if (o.quiet) bar.set_enabled(false);
    auto where = [&](size_t col) {
        return o.source + ": line " + std::to_string(csv.line()) + ", column " +
               std::to_string(col + 1) + " (" + header[col] + "): ";
    };
    while (csv.next(cells)) {
        if (cells.size() == 1 && cells[0].empty() && ncols > 1) continue;  // an empty line
        if (cells.size() != ncols)
            return fail(kBadUsage, o.source + ": line " + std::to_string(csv.line()) + ": " +
                                       std::to_string(cells.size()) + " cells, the header has " +
                                       std::to_string(ncols));
        for (size_t c = 0; c < ncols; ++c) {
            const std::string_view cell = cells[c];
            if (cell.empty()) continue;
            const long bytes = measure.bytes(cell);
            if (bytes == -1)
                return fail(kBadUsage, where(c) + "the text is not UTF-8 (or holds a NUL byte)");
            if (bytes == -2)
                return fail(kBadUsage, where(c) + "a character " + o.encoding + " cannot hold");
            std::string why;
            if (!given.empty()) {
                if (!value_fits(cell, static_cast<size_t>(bytes), given[c].type,
                                static_cast<unsigned char>(given[c].flen),
                                static_cast<unsigned>(given[c].dlen), why))
                    return fail(kBadUsage, where(c) + "'" + std::string(cell) + "': " + why);
            } else {
                if (bytes > 254)
                    return fail(kBadUsage, where(c) + std::to_string(bytes) +
                                               " bytes; a text field holds at most 254");
                guesses[c].add(cell, static_cast<size_t>(bytes));
            }
        }
        if (++records > 0xFFFFFFFFull)
            return fail(kBadUsage, o.source + ": more records than a table holds");
        bar.set(csv.position());
    }
    if (!csv.error().empty()) return fail(kBadUsage, o.source + ": " + csv.error());
    if (std::ferror(in)) return fail(kIoError, o.source + ": read error");

    std::vector<Tqz_dbf_field> fields = given;
    if (fields.empty()) {
        const std::vector<std::string> names = field_names_from(header, o.quiet);
        fields.resize(ncols);
        for (size_t c = 0; c < ncols; ++c)
            qz_dbf_field_init(&fields[c], names[c].c_str(), qz_char2dbftype(guesses[c].type()),
                              static_cast<unsigned char>(guesses[c].length()),
                              static_cast<char>(guesses[c].decimals()));
    }
    std::vector<Column> cols(ncols);
    unsigned long record_length = 1;
    for (size_t c = 0; c < ncols; ++c) {
        cols[c] = {fields[c].type, static_cast<unsigned char>(fields[c].flen),
                   static_cast<unsigned>(fields[c].dlen)};
        record_length += cols[c].length;
    }
    if (ncols > 2046 || record_length > 65535)
        return fail(kBadUsage, o.source + ": the columns make a record of " +
                                   std::to_string(record_length) + " bytes in " +
                                   std::to_string(ncols) +
                                   " fields; a table holds at most 65535 bytes in 2046");

    // Pass 2: the table, made beside DEST.
    Pending_files pending;
    const std::string temp = sibling_path(o.destination, "import");
    const std::string temp_cpg = with_extension(temp, ".cpg");
    pending.add(temp);
    pending.add(temp_cpg);
    pending.add(temp + ".lk");
    Tqz_dbf_rw* t = qz_dbf_create(temp.c_str(), static_cast<unsigned int>(ncols),
                                  static_cast<unsigned int>(records), fields.data(), cp == 866);
    if (!t) return fail(kIoError, std::string("cannot create: ") + qz_dbf_last_error_message());
    // The language driver of the encoding's code page (header byte 29), the
    // flags, and the .cpg file that close writes name it.
    if (!qz_dbf_set_table_encoding(t, o.encoding.c_str())) {
        qz_dbf_close(t);
        return fail(kBadUsage, "--encoding '" + o.encoding + "': " + qz_dbf_last_error_message());
    }
    if (!csv.rewind() || !csv.next(cells)) {
        qz_dbf_close(t);
        return fail(kIoError, o.source + ": cannot be read again");
    }
    bar.restart("import: writing", records, "records");
    unsigned int r = 0;
    char date[9];
    while (r < records && csv.next(cells)) {
        if (cells.size() == 1 && cells[0].empty() && ncols > 1) continue;
        if (cells.size() != ncols) break;  // the file changed under us
        for (unsigned int c = 0; c < ncols; ++c) {
            if (cells[c].empty()) continue;
            const char* text = cells[c].data();  // the reader ends each cell with a NUL
            bool ok = true;
            switch (cols[c].type) {
                case 'D':
                    ok = read_date(cells[c], true, date) && qz_dbf_set_str(t, c, r, date);
                    break;
                case 'L':
                    ok = qz_dbf_set_str(t, c, r, read_logical(cells[c], true) ? "T" : "F");
                    break;
                case 'I':
                    ok = qz_dbf_set_int(t, c, r, std::atoi(text));
                    break;
                case 'C':
                    ok = cp != 0 ? qz_dbf_set_str(t, c, r, text)
                                 : qz_dbf_set_cell_utf8(t, c, r, text, cells[c].size());
                    break;
                default:
                    ok = qz_dbf_set_str(t, c, r, text);
                    break;
            }
            if (!ok) {
                const std::string message =
                    where(c) + "'" + std::string(cells[c]) +
                    "' could not be written: " + qz_dbf_last_error_message();
                qz_dbf_close(t);
                return fail(kBadUsage, message);
            }
        }
        ++r;
        bar.step();
    }
    const bool flushed = qz_dbf_flush(t);
    qz_dbf_close(t);  // writes the .cpg, removes the lock file
    bar.finish();
    if (r != records || !csv.error().empty())
        return fail(kIoError, o.source + ": changed while it was imported");
    if (!flushed) return fail(kIoError, o.destination + ": write error");

    // An existing DEST is replaced only while its writer lock is ours.
    Tqz_dbf_rw* old = nullptr;
    if (::stat(o.destination.c_str(), &st) == 0) {
        old = qz_dbf_open_ex(o.destination.c_str(), 0);
        if (!old && qz_dbf_last_error() == QZ_DBF_ERR_LOCKED)
            return fail(kIoError, o.destination + ": locked by another writer");
    }
    std::string error;
    const bool moved = pending.commit(
        {{temp_cpg, with_extension(o.destination, ".cpg")}, {temp, o.destination}}, error);
    if (old) qz_dbf_close(old);
    if (!moved) return fail(kIoError, error);
    if (!o.quiet && ::isatty(2)) std::fprintf(stderr, "qzdbf: %u records, %zu fields\n", r, ncols);
    return kOk;
}

}  // namespace qzdbf
