// qzdbf create PATH FIELD:TYPE:LEN[:DEC]... [--records N] [--dos|--utf8|--encoding NAME]
//              [--overwrite] [--fix-names]
//
// The layout is checked whole first; a table with memo fields gets its
// empty memo file. An existing file is replaced only with --overwrite.
// --encoding gives the table the language driver of its code page (header
// byte 29, when there is one) and a .cpg file naming it, so that other
// readers and every later command read its text in it.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <sys/stat.h>

#include <cstdio>

#include "cli.h"
#include "command.h"
#include "field_names.h"
#include "qzk_file_dbf_ext.h"

namespace qzdbf {

// The descriptor without its name, which `name` receives: names are checked
// as a list once every field is read.
static bool parse_field(const std::string& text, Tqz_dbf_field& f, std::string& name,
                        std::string& error) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t colon; (colon = text.find(':', start)) != std::string::npos; start = colon + 1)
        parts.push_back(text.substr(start, colon - start));
    parts.push_back(text.substr(start));
    if (parts.size() < 3 || parts.size() > 4) {
        error = "field '" + text + "' is not NAME:TYPE:LEN[:DEC]";
        return false;
    }
    name = parts[0];
    if (parts[1].size() != 1 || !std::strchr("CNFLDIBMP", parts[1][0])) {
        error = "field '" + name + "': type '" + parts[1] + "' is not one of C N F L D I B M P";
        return false;
    }
    unsigned long long len = 0, dec = 0;
    if (!parse_count(parts[2], 255, len) || len == 0) {
        error = "field '" + name + "': length '" + parts[2] + "' is not a number from 1 to 255";
        return false;
    }
    if (parts.size() == 4 && !parse_count(parts[3], 127, dec)) {
        error = "field '" + name + "': decimals '" + parts[3] + "' is not a number from 0 to 127";
        return false;
    }
    qz_dbf_field_init(&f, "", qz_char2dbftype(parts[1][0]), static_cast<unsigned char>(len),
                      static_cast<char>(dec));
    return true;
}

bool parse_field(const std::string& text, Tqz_dbf_field& f, std::string& error) {
    std::string name;
    if (!parse_field(text, f, name, error)) return false;
    if (name.empty() || name.size() > 10) {
        error = "field name '" + name + "' must have 1 to 10 bytes";
        return false;
    }
    std::memcpy(f.name, name.data(), name.size());
    return true;
}

namespace {

bool name_char(unsigned char c, bool first) {
    if (c >= 0x80 || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')) return true;
    return !first && ((c >= '0' && c <= '9') || c == '_');
}

// The layout other readers accept: names that are unique without regard to
// letter case and made of letters, digits and '_' (a letter first); for
// each type the lengths and decimals it is read with.
bool check_layout(const std::vector<Tqz_dbf_field>& fields, std::string& error) {
    unsigned long record_length = 1;
    for (size_t i = 0; i < fields.size(); ++i) {
        const Tqz_dbf_field& f = fields[i];
        const std::string name = f.name;
        const std::string at = "field '" + name + "': ";
        for (size_t k = 0; k < name.size(); ++k)
            if (!name_char(static_cast<unsigned char>(name[k]), k == 0)) {
                error = at + "a name is letters, digits and '_', beginning with a letter";
                return false;
            }
        for (size_t j = 0; j < i; ++j)
            if (qz_text_icompare(fields[j].name, f.name) == 0) {
                error = at + "the name is already used by field '" + fields[j].name + "'";
                return false;
            }
        const unsigned len = f.flen;
        const int dec = f.dlen;
        auto need = [&](unsigned want) {
            if (len == want) return true;
            error =
                at + "a " + std::string(1, f.type) + " field has length " + std::to_string(want);
            return false;
        };
        switch (f.type) {
            case 'C':
                if (len > 254) {
                    error = at + "a C field is 1 to 254 bytes long";
                    return false;
                }
                break;
            case 'N':
            case 'F':
                if (len > 20) {
                    error = at + "an N or F field is 1 to 20 characters long";
                    return false;
                }
                if (dec > 0 && static_cast<unsigned>(dec) + 2 > len) {
                    error = at + std::to_string(dec) + " decimals need a length of at least " +
                            std::to_string(dec + 2);
                    return false;
                }
                break;
            case 'D':
                if (!need(8)) return false;
                break;
            case 'L':
                if (!need(1)) return false;
                break;
            case 'I':
                if (!need(4)) return false;
                break;
            case 'B':
                if (!need(8)) return false;
                break;
            case 'M':
            case 'P':
                if (!need(10)) return false;
                break;
        }
        if (dec != 0 && f.type != 'N' && f.type != 'F') {
            error = at + "only N and F fields have decimals";
            return false;
        }
        record_length += len;
    }
    if (record_length > 65535 || fields.size() > 2046) {
        error = "the fields make a record of " + std::to_string(record_length) +
                " bytes; a record holds at most 65535";
        return false;
    }
    return true;
}

// The empty memo file of a new table: a 512-byte header whose first four
// bytes give the next free block (1), version 3 at byte 16. The table's
// version byte becomes 0x83, which tells readers that a .dbt of this
// layout belongs to it.
bool write_empty_memo(const std::string& table) {
    FILE* t = std::fopen(table.c_str(), "r+b");
    if (!t) return false;
    const bool marked = std::fputc(0x83, t) != EOF;
    if (std::fclose(t) != 0 || !marked) return false;
    std::string memo = table;
    const size_t slash = memo.find_last_of('/');
    const size_t dot = memo.find_last_of('.');
    if (dot != std::string::npos && (slash == std::string::npos || dot > slash)) memo.erase(dot);
    memo += ".dbt";
    std::vector<unsigned char> header(512, 0);
    header[0] = 1;
    header[16] = 3;
    FILE* f = std::fopen(memo.c_str(), "wb");
    if (!f) return false;
    bool ok = std::fwrite(header.data(), 1, header.size(), f) == header.size();
    return std::fclose(f) == 0 && ok;
}

struct Create_options {
    std::string path, records, encoding;
    Args fields;
    bool dos = false, utf8 = false, overwrite = false, fix = false;
};

int run_create(const Create_options& o) {
    const std::string& path = o.path;
    const bool dos = o.dos, utf8 = o.utf8, overwrite = o.overwrite, fix = o.fix;
    std::vector<Tqz_dbf_field> fields;
    unsigned long long records = 0;
    std::vector<std::string> names;
    if (!o.records.empty() && !parse_count(o.records, 0xFFFFFFFFull, records))
        return fail(kBadUsage, "--records needs a whole number of records");
    for (const std::string& a : o.fields) {
        Tqz_dbf_field f;
        std::string name, error;
        if (!parse_field(a, f, name, error)) return fail(kBadUsage, error);
        fields.push_back(f);
        names.push_back(name);
    }
    if (dos && utf8) return fail(kBadUsage, "--dos and --utf8 exclude each other");
    char encoding[64] = "";
    if (!o.encoding.empty()) {
        if (dos || utf8) return fail(kBadUsage, "--encoding excludes --dos and --utf8");
        if (!qz_dbf_encoding_name(o.encoding.c_str(), encoding, sizeof encoding))
            return fail(kBadUsage, "--encoding: no encoding named '" + o.encoding + "'");
    }
    // Field names follow the rules (1 to 10 bytes of A-Z, 0-9, _, a letter
    // first, no two alike in any case): refused with the repair shown, or
    // repaired with --fix-names.
    std::vector<std::string> fixed = names;
    std::vector<Name_repair> repairs = fix_names(fixed);
    if (!repairs.empty() && !fix) {
        for (const Name_repair& r : repairs)
            fail(kBadUsage, "field " + std::to_string(r.index) + ": name " + describe(r));
        return fail(kBadUsage, "field names break the rules; rename them or use --fix-names");
    }
    for (size_t i = 0; i < fixed.size(); ++i)
        if (!name_is_ok(fixed[i]))
            return fail(kBadUsage, "field " + std::to_string(i) + ": name '" + names[i] +
                                       "' cannot be repaired (it would be '" + fixed[i] +
                                       "', with " + name_problem(fixed[i]) +
                                       "); choose another name");
    for (const Name_repair& r : repairs)
        std::fprintf(stderr, "qzdbf: field %zu: name %s\n", r.index, describe(r).c_str());
    for (size_t i = 0; i < fields.size(); ++i) {
        std::memset(fields[i].name, 0, sizeof fields[i].name);
        std::memcpy(fields[i].name, fixed[i].data(), std::min<size_t>(fixed[i].size(), 10));
    }
    std::string error;
    if (!check_layout(fields, error)) return fail(kBadUsage, error);
    struct stat st;
    if (::stat(path.c_str(), &st) == 0) {
        if (!overwrite) return fail(kBadUsage, path + ": already exists (--overwrite replaces it)");
        if (!S_ISREG(st.st_mode)) return fail(kBadUsage, path + ": not a file");
        if (!(st.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)))
            return fail(kIoError, path + ": the file is read-only");
    }
    bool has_memo = false;
    for (const auto& f : fields) has_memo = has_memo || f.type == 'M' || f.type == 'P';
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), static_cast<unsigned int>(fields.size()),
                                  static_cast<unsigned int>(records), fields.data(), dos);
    if (!t)
        return fail(qz_dbf_last_error() == QZ_DBF_ERR_NOT_FOUND ? kBadUsage : kIoError,
                    std::string("cannot create: ") + qz_dbf_last_error_message());
    if (utf8) qz_dbf_set_utf8_flag(t, true);
    if (*encoding && !qz_dbf_set_table_encoding(t, encoding)) {
        const std::string why = qz_dbf_last_error_message();
        qz_dbf_close(t);
        return fail(kIoError, path + ": " + why);
    }
    qz_dbf_close(t);  // writes the .cpg file
    // Readers refuse a table with memo fields and no memo file.
    if (has_memo && !write_empty_memo(path))
        return fail(kIoError, path + ": the memo file could not be written");
    return kOk;
}

}  // namespace

Runner setup_create(CLI::App& cmd) {
    auto o = std::make_shared<Create_options>();
    cmd.add_option("PATH", o->path, "the table to make")->required();
    cmd.add_option("FIELD", o->fields,
                   "NAME:TYPE:LEN[:DEC], TYPE one of C N F L D I B M P (M and P also get an "
                   "empty memo file)")
        ->required();
    cmd.add_option("--records", o->records, "start with N blank records")->type_name("N");
    cmd.add_flag("--dos", o->dos, "text in the DOS code page (CP866)");
    cmd.add_flag("--utf8", o->utf8, "text in UTF-8");
    cmd.add_option("--encoding", o->encoding,
                   "text in this encoding (any name iconv knows: CP1252, ISO-8859-2, KOI8-R, "
                   "UTF-8...): the language driver of its code page and a .cpg file name it")
        ->type_name("NAME");
    cmd.add_flag("--overwrite", o->overwrite, "replace an existing file");
    cmd.add_flag("--fix-names", o->fix, "repair field names that break the rules (see names)");
    return [o] { return run_create(*o); };
}

}  // namespace qzdbf
