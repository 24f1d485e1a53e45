// qzdbf get PATH FIELD RECORD
// qzdbf set PATH FIELD RECORD VALUE
//
// One cell as text. Numbers are checked character by character before they
// are written (a decimal comma becomes a point), dates may be given as
// YYYY-MM-DD; when the table keeps the value in another form (cut to the
// field's length, rounded), that form is reported.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <string>

#include "cli.h"

namespace qzdbf {

namespace {

// Whether two texts are the same number (to the 11 digits cells show).
bool same_number(const std::string& a, const std::string& b) {
    auto number = [](std::string s, double& v) {
        s = trim_blanks(s);
        if (!s.empty() && s[0] == '+') s.erase(0, 1);
        auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
        return ec == std::errc() && end == s.data() + s.size();
    };
    double x = 0, y = 0;
    if (!number(a, x) || !number(b, y)) return a == b;
    return x == y || std::fabs(x - y) <= 1e-10 * std::max(std::fabs(x), std::fabs(y));
}

}  // namespace

int cmd_get(const Args& args) {
    if (args.size() != 3) return fail(kBadUsage, "get needs PATH FIELD RECORD");
    Tqz_dbf_rw* t = qz_dbf_open(args[0].c_str(), true, false);
    if (!t) return fail(kFailed, "cannot open '" + args[0] + "' as a table");
    unsigned int field = 0, record = 0;
    std::string error;
    if (!resolve_field(t, args[1], field, error) || !resolve_record(t, args[2], record, error)) {
        qz_dbf_close(t);
        return fail(kBadUsage, error);
    }
    bool ok = false;
    std::string text = cell_text(t, field, record, &ok);
    qz_dbf_close(t);
    if (!ok) return fail(kFailed, "the cell holds no value");
    std::printf("%s\n", text.c_str());
    return kOk;
}

int cmd_set(const Args& args) {
    if (args.size() != 4) return fail(kBadUsage, "set needs PATH FIELD RECORD VALUE");
    Tqz_dbf_rw* t = open_for_writing(args[0]);
    if (!t)
        return fail(kFailed, "cannot open '" + args[0] +
                                 "' for writing (missing, or open for writing elsewhere)");
    unsigned int field = 0, record = 0;
    std::string error, value;
    if (!resolve_field(t, args[1], field, error) || !resolve_record(t, args[2], record, error)) {
        qz_dbf_close(t);
        return fail(kBadUsage, error);
    }
    if (!prepare_value(t, field, args[3], value, error)) {
        qz_dbf_close(t);
        return fail(kBadUsage, error);
    }
    if (!qz_dbf_set_str(t, field, record, value.c_str())) {
        qz_dbf_close(t);
        return fail(kFailed, "the field cannot hold '" + args[3] + "'");
    }
    // Say so when the table keeps something else than was given: a number
    // too long for its field (kept empty) or rounded, text cut at the
    // field's length.
    bool ok = false;
    std::string stored = cell_text(t, field, record, &ok);
    bool numeric = numeric_field(t, field);
    qz_dbf_close(t);
    if (numeric && !ok) {
        std::fprintf(stderr, "qzdbf: %s does not fit the field: the cell is empty now\n",
                     args[3].c_str());
    } else if (numeric ? !same_number(stored, value) : stored != trim_blanks(value)) {
        std::fprintf(stderr, "qzdbf: stored as '%s'\n", stored.c_str());
    }
    return kOk;
}

}  // namespace qzdbf
