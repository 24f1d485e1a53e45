// qzdbf create PATH FIELD:TYPE:LEN[:DEC]... [--records N] [--dos|--utf8]
#include <cstring>
#include <string>
#include <vector>

#include "cli.h"
#include "qzk_file_dbf.h"

namespace qzdbf {

bool parse_field(const std::string& text, Tqz_dbf_field& f, std::string& error) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t colon; (colon = text.find(':', start)) != std::string::npos; start = colon + 1)
        parts.push_back(text.substr(start, colon - start));
    parts.push_back(text.substr(start));
    if (parts.size() < 3 || parts.size() > 4) {
        error = "field '" + text + "' is not NAME:TYPE:LEN[:DEC]";
        return false;
    }
    const std::string& name = parts[0];
    if (name.empty() || name.size() > 10) {
        error = "field name '" + name + "' must have 1 to 10 bytes";
        return false;
    }
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
    qz_dbf_field_init(&f, name.c_str(), qz_char2dbftype(parts[1][0]),
                      static_cast<unsigned char>(len), static_cast<char>(dec));
    return true;
}

int cmd_create(const Args& args) {
    std::string path;
    std::vector<Tqz_dbf_field> fields;
    unsigned long long records = 0;
    bool dos = false, utf8 = false;
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
        } else if (a.size() > 1 && a[0] == '-') {
            return fail(kBadUsage, "unknown option '" + a + "'");
        } else if (path.empty()) {
            path = a;
        } else {
            Tqz_dbf_field f;
            std::string error;
            if (!parse_field(a, f, error)) return fail(kBadUsage, error);
            fields.push_back(f);
        }
    }
    if (path.empty()) return fail(kBadUsage, "create needs a PATH and at least one field");
    if (fields.empty()) return fail(kBadUsage, "create needs at least one FIELD:TYPE:LEN");
    if (dos && utf8) return fail(kBadUsage, "--dos and --utf8 exclude each other");
    if (utf8) {
        // Names are stored in the table's encoding at create time, before the
        // UTF-8 flag can be set; keep them ASCII so they read the same.
        for (const auto& f : fields)
            for (const char* p = f.name; *p; ++p)
                if (static_cast<unsigned char>(*p) >= 0x80)
                    return fail(kBadUsage,
                                std::string("with --utf8, field names must be ASCII: ") + f.name);
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
