// qzdbf create PATH FIELD:TYPE:LEN[:DEC]... [--records N] [--dos|--utf8] [--fix-names]
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cli.h"
#include "field_names.h"
#include "qzk_file_dbf.h"

namespace qzdbf {

namespace {

// The descriptor without its name, which `name` receives: names are checked
// as a list once every field is read.
bool parse_field(const std::string& text, Tqz_dbf_field& f, std::string& name, std::string& error) {
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

}  // namespace

int cmd_create(const Args& args) {
    std::string path;
    std::vector<Tqz_dbf_field> fields;
    unsigned long long records = 0;
    std::vector<std::string> names;
    bool dos = false, utf8 = false, fix = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--records") {
            if (i + 1 >= args.size() || !parse_count(args[i + 1], 0xFFFFFFFFull, records))
                return fail(kBadUsage, "--records needs a whole number of records");
            ++i;
        } else if (a == "--dos") {
            dos = true;
        } else if (a == "--utf8") {
            utf8 = true;
        } else if (a == "--fix-names") {
            fix = true;
        } else if (a.size() > 1 && a[0] == '-') {
            return fail(kBadUsage, "unknown option '" + a + "'");
        } else if (path.empty()) {
            path = a;
        } else {
            Tqz_dbf_field f;
            std::string name, error;
            if (!parse_field(a, f, name, error)) return fail(kBadUsage, error);
            fields.push_back(f);
            names.push_back(name);
        }
    }
    if (path.empty()) return fail(kBadUsage, "create needs a PATH and at least one field");
    if (fields.empty()) return fail(kBadUsage, "create needs at least one FIELD:TYPE:LEN");
    if (dos && utf8) return fail(kBadUsage, "--dos and --utf8 exclude each other");
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
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), static_cast<unsigned int>(fields.size()),
                                  static_cast<unsigned int>(records), fields.data(), dos);
    if (!t)
        return fail(kFailed, "cannot create '" + path +
                                 "' (folder missing, or the table is "
                                 "open for writing elsewhere)");
    if (utf8) qz_dbf_set_utf8_flag(t, true);
    qz_dbf_close(t);
    return kOk;
}

}  // namespace qzdbf
