#include "check/table_check.h"
#include "names/field_utils.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include "dbf/dbase7_descriptors.h"
#include "dbf/dbf_format.h"
#include "support/filesystem.h"

namespace qz::check {

using namespace qz::dbf;

int result::worst() const {
    int w = 0;
    for (const finding& f : findings) w = std::max(w, f.severity);
    return w;
}

const finding* result::first_worst() const {
    const int w = worst();
    for (const finding& f : findings)
        if (f.severity == w) return &f;
    return nullptr;
}

namespace {

struct file_closer {
    void operator()(FILE* f) const { std::fclose(f); }
};
using file_ptr = std::unique_ptr<FILE, file_closer>;

// The version bytes written by the dBASE family, FoxPro and their kin.
bool known_version(uint8_t v) {
    switch (v) {
        case 0x03:
        case 0x04:
        case 0x05:
        case 0x07:
        case 0x13:
        case 0x23:
        case 0x30:
        case 0x31:
        case 0x32:
        case 0x33:
        case 0x43:
        case 0x63:
        case 0x7B:
        case 0x83:
        case 0x87:
        case 0x8B:
        case 0x8C:
        case 0x8E:
        case 0xB3:
        case 0xCB:
        case 0xE5:
        case 0xF5:
        case 0xFB:
            return true;
        default:
            return false;
    }
}

// Field types some reader of dBASE tables understands.
bool known_type(char t) {
    return t != 0 && std::strchr("BCDFGILMNOPTVY0@+", t) != nullptr;
}

// Versions whose tables end their header with a 263-byte back link.
bool has_backlink(uint8_t v) {
    return v == 0x30 || v == 0x31 || v == 0x32;
}

std::string field_where(size_t index, const Tdbf_descriptor& d) {
    char name[12] = {0};
    std::memcpy(name, d.bytes, 11);
    return "field " + std::to_string(index) + " (" + name + ")";
}

std::string printable(const uint8_t* bytes, size_t n) {
    std::string out;
    for (size_t i = 0; i < n; ++i) {
        uint8_t c = bytes[i];
        if (c >= 0x20 && c < 0x7F) {
            out += static_cast<char>(c);
        } else {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02X", c);
            out += hex;
        }
    }
    return out;
}

// Findings are UTF-8: names and values come in the table's own bytes, so
// what is not valid UTF-8 is written as \xNN.
std::string utf8_text(const std::string& text) {
    std::string out;
    const auto* p = reinterpret_cast<const uint8_t*>(text.data());
    const size_t n = text.size();
    for (size_t i = 0; i < n;) {
        const uint8_t c = p[i];
        size_t len = c < 0x80             ? 1
                     : (c & 0xE0) == 0xC0 ? 2
                     : (c & 0xF0) == 0xE0 ? 3
                     : (c & 0xF8) == 0xF0 ? 4
                                          : 0;
        bool ok = len > 0 && i + len <= n && !(len == 2 && c < 0xC2) && !(len == 4 && c > 0xF4);
        for (size_t k = 1; ok && k < len; ++k) ok = (p[i + k] & 0xC0) == 0x80;
        if (ok && len == 3) {
            const uint32_t cp = (c & 0x0Fu) << 12 | (p[i + 1] & 0x3Fu) << 6 | (p[i + 2] & 0x3Fu);
            ok = cp >= 0x800 && (cp < 0xD800 || cp > 0xDFFF);
        }
        if (ok && len == 4) {
            const uint32_t cp = (c & 0x07u) << 18 | (p[i + 1] & 0x3Fu) << 12;
            ok = cp >= 0x10000 && cp <= 0x10FFFF;
        }
        if (ok) {
            out.append(text, i, len);
            i += len;
        } else {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02X", c);
            out += hex;
            ++i;
        }
    }
    return out;
}

bool blank(const uint8_t* p, size_t n) {
    for (size_t i = 0; i < n; ++i)
        if (p[i] != ' ') return false;
    return true;
}

// A number as other readers parse it: blanks around it, an optional sign,
// digits with at most one decimal point (or comma), an optional exponent.
bool number_ok(const uint8_t* p, size_t n) {
    size_t i = 0;
    while (i < n && p[i] == ' ') ++i;
    while (n > i && p[n - 1] == ' ') --n;
    if (i == n) return true;  // blank: no value
    bool stars = true;        // a value too wide for the field, written as asterisks
    for (size_t k = i; k < n; ++k) stars = stars && p[k] == '*';
    if (stars) return true;
    if (p[i] == '+' || p[i] == '-') ++i;
    bool digits = false, point = false;
    for (; i < n; ++i) {
        if (p[i] >= '0' && p[i] <= '9') {
            digits = true;
        } else if ((p[i] == '.' || p[i] == ',') && !point) {
            point = true;
        } else {
            break;
        }
    }
    if (!digits) return false;
    if (i < n && (p[i] == 'e' || p[i] == 'E')) {
        ++i;
        if (i < n && (p[i] == '+' || p[i] == '-')) ++i;
        bool exp_digits = false;
        for (; i < n && p[i] >= '0' && p[i] <= '9'; ++i) exp_digits = true;
        if (!exp_digits) return false;
    }
    return i == n;
}

bool date_ok(const uint8_t* p, size_t n) {
    if (blank(p, n)) return true;
    if (n != 8) return false;
    int v[8];
    for (size_t i = 0; i < 8; ++i) {
        if (p[i] < '0' || p[i] > '9') return false;
        v[i] = p[i] - '0';
    }
    int year = v[0] * 1000 + v[1] * 100 + v[2] * 10 + v[3];
    int month = v[4] * 10 + v[5], day = v[6] * 10 + v[7];
    if (year < 1 || month < 1 || month > 12 || day < 1) return false;
    static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return day <= days[month - 1] + (month == 2 && leap ? 1 : 0);
}

bool logical_ok(const uint8_t* p, size_t n) {
    return n >= 1 && std::strchr("TtYyFfNn? ", p[0]) != nullptr && p[0] != 0;
}

class checker {
  public:
    checker(const std::wstring& path, unsigned flags) : path(path), flags(flags) {}

    result run() {
        const qz::filesystem::path_info info = qz::filesystem::stat_path(path);
        if (info.kind == qz::filesystem::path_kind::missing)
            return only(fatal, k_file, "no such file", "file");
        if (info.kind == qz::filesystem::path_kind::folder)
            return only(fatal, k_file, "not a dBASE table: a folder", "file");
        if (info.kind != qz::filesystem::path_kind::file)
            return only(fatal, k_file, "not a dBASE table: not a regular file", "file");
        size = info.size;
        file.reset(qz::filesystem::wfopen(path, "rb"));
        if (!file) return only(fatal, k_file, "cannot be read", "file");
        if (size == 0) return only(fatal, k_header, "not a dBASE table: the file is empty", "file");
        if (size < header_size)
            return only(fatal, k_header,
                        "not a dBASE table: " + std::to_string(size) +
                            " bytes, shorter than the 32-byte header",
                        "header");
        if (std::fread(header, 1, header_size, file.get()) != header_size)
            return only(fatal, k_file, "cannot be read", "header");
        check_header();
        if (out.not_a_table()) return out;
        check_descriptors();
        if (out.not_a_table()) return out;
        check_records();
        check_memo();
        if ((flags & check_values) && !out.not_a_table()) check_values_of_records();
        return out;
    }

  private:
    result only(int sev, int k, const std::string& what, const std::string& where) {
        add(sev, k, what, where);
        return out;
    }
    void add(int sev, int k, const std::string& what, const std::string& where) {
        out.findings.push_back(finding{sev, k, utf8_text(what), utf8_text(where)});
    }

    void check_header() {
        const uint8_t v = header[hdr_version];
        char hex[8];
        std::snprintf(hex, sizeof hex, "0x%02X", v);
        if (v == 0x02) {
            add(fatal, k_version,
                "not a dBASE table this library reads: version 0x02 (dBASE II layout)",
                "header byte 0");
        } else if (!known_version(v)) {
            add(fatal, k_version, std::string("not a dBASE table: unknown version byte ") + hex,
                "header byte 0");
        } else if ((v & 0x07) == 0x04 && !is_dbase7_version(v)) {
            add(fatal, k_version,
                std::string("not a dBASE table this library reads: version ") + hex +
                    " (level 7, 48-byte field descriptors)",
                "header byte 0");
        }
        header_length = get_u16(header + hdr_header_length);
        record_length = get_u16(header + hdr_record_length);
        record_count = get_u32(header + hdr_record_count);
        if (header_length < header_size + 1) {
            add(fatal, k_header_length,
                "not a dBASE table: header length " + std::to_string(header_length) +
                    " is shorter than the header",
                "header bytes 8-9");
        }
        if (record_length == 0)
            add(fatal, k_record_length, "not a dBASE table: record length 0", "header bytes 10-11");
        const int month = header[hdr_month], day = header[hdr_day];
        if (month > 12 || day > 31)
            add(warning, k_header,
                "last-update date " + std::to_string(month) + "/" + std::to_string(day) +
                    " is not a date",
                "header bytes 1-3");
    }

    // dBASE 7: 48-byte descriptors from byte 68 on, ended by 0x0D and
    // followed by the field-properties structure within the header length.
    void check_dbase7_descriptors() {
        const uint64_t span = std::min<uint64_t>(header_length, size);
        std::vector<uint8_t> area(static_cast<size_t>(span), 0);
        std::memcpy(area.data(), header, std::min<size_t>(header_size, area.size()));
        size_t got = header_size;
        if (area.size() > header_size)
            got += std::fread(area.data() + header_size, 1, area.size() - header_size, file.get());
        area.resize(got);
        std::vector<std::string> names;
        parse_dbase7_descriptors(area.data(), area.size(), fields, names);
        const size_t end = dbase7_descriptors_at + dbase7_descriptor_size * fields.size();
        if (end >= area.size() || area[end] != descriptor_terminator)
            descriptors_unended(end, header_length > size);
        if (out.not_a_table()) return;
        if (fields.empty()) {
            add(fatal, k_header, "not a dBASE table: no field descriptors", "header byte 68");
            return;
        }
        check_field_list();
    }

    // No terminator where the descriptors should end, at header byte `at`:
    // the file is cut there, or the header length leaves it out.
    void descriptors_unended(size_t at, bool file_ends_first) {
        const std::string where = "header byte " + std::to_string(at);
        if (file_ends_first)
            add(fatal, k_header,
                "not a dBASE table: cut inside the field descriptors (the file has " +
                    std::to_string(size) + " bytes)",
                where);
        else
            add(error, k_terminator,
                "no terminator (0x0D) after the field descriptors within the header length", where);
    }

    void check_descriptors() {
        if (is_dbase7_version(header[hdr_version])) {
            check_dbase7_descriptors();
            return;
        }
        // Descriptors from byte 32 on, ended by 0x0D, within the header
        // length and the file.
        const uint64_t span = std::min<uint64_t>(header_length, size) - header_size;
        std::vector<uint8_t> head(static_cast<size_t>(span), 0);
        const size_t got = std::fread(head.data(), 1, head.size(), file.get());
        const bool file_ends_first = header_length > size || got < head.size();
        bool terminated = false;
        size_t terminator_at = 0;
        for (size_t pos = 0;; pos += descriptor_size) {
            if (pos < got && head[pos] == descriptor_terminator) {
                terminated = true;
                terminator_at = header_size + pos;
                break;
            }
            // Some old writers ended the descriptors with a line feed.
            if (pos < got && head[pos] == 0x0A && pos + descriptor_size > got) {
                add(warning, k_terminator, "the descriptors end with 0x0A instead of 0x0D",
                    "header byte " + std::to_string(header_size + pos));
                terminated = true;
                terminator_at = header_size + pos;
                break;
            }
            if (pos + descriptor_size > got) {
                descriptors_unended(header_size + pos, file_ends_first);
                break;
            }
            Tdbf_descriptor d;
            std::memcpy(d.bytes, head.data() + pos, descriptor_size);
            fields.push_back(d);
        }
        if (terminated && header_length > size)
            add(fatal, k_header_length,
                "not a dBASE table: header length " + std::to_string(header_length) +
                    " reaches past the end of the file (" + std::to_string(size) + " bytes)",
                "header bytes 8-9");
        if (out.not_a_table()) return;
        if (fields.empty()) {
            add(fatal, k_header, "not a dBASE table: no field descriptors", "header byte 32");
            return;
        }
        if (terminated) {
            const size_t expected = terminator_at + 1 + (has_backlink(header[0]) ? 263 : 0);
            if (header_length < expected)
                add(error, k_header_length,
                    "header length " + std::to_string(header_length) + " does not match " +
                        std::to_string(fields.size()) + " field descriptors (" +
                        std::to_string(expected) + " expected)",
                    "header bytes 8-9");
            else if (header_length > expected && !has_backlink(header[0]))
                add(warning, k_header_length,
                    "header length " + std::to_string(header_length) + " is longer than " +
                        std::to_string(fields.size()) + " field descriptors need (" +
                        std::to_string(expected) + ")",
                    "header bytes 8-9");
        }
        check_field_list();
    }

    // The fields one by one, their names, and the record length they need.
    void check_field_list() {
        uint32_t sum = 1;
        for (size_t i = 0; i < fields.size(); ++i) {
            const Tdbf_descriptor& d = fields[i];
            sum += d.flen();
            check_field(i, d);
        }
        check_names(fields);
        if (record_length < sum)
            add(error, k_record_length,
                "record length " + std::to_string(record_length) +
                    " is shorter than the fields need (their lengths plus one: " +
                    std::to_string(sum) + ")",
                "header bytes 10-11");
        else if (record_length > sum)
            add(warning, k_record_length,
                "record length " + std::to_string(record_length) +
                    " is not the fields' lengths plus one (" + std::to_string(sum) + ")",
                "header bytes 10-11");
    }

    // Names against the field-name rules (1 to 10 of A-Z, 0-9 and _, a
    // letter first, no two alike in any letter case), with the repair each
    // would get. Other readers read such tables, so these are warnings.
    void check_names(const std::vector<Tdbf_descriptor>& fields) {
        Tqz_dbf_field_utils::fields_t named;
        for (size_t i = 0; i < fields.size(); ++i) {
            char text[12] = {0};
            std::memcpy(text, fields[i].bytes, 11);
            const std::string name = text;
            if (name.empty()) continue;  // reported as a field without a name
            if (!Tqz_dbf_field_utils::name_is_ok(name))
                add(warning, k_name,
                    "the name '" + printable(fields[i].bytes, name.size()) +
                        "' breaks the field-name rules (the repair is '" +
                        Tqz_dbf_field_utils::name_fix(name) + "')",
                    field_where(i, fields[i]));
            Tqz_dbf_field f;
            std::memset(&f, 0, sizeof f);
            std::memcpy(f.name, text, 11);
            for (const Tqz_dbf_field& earlier : named) {
                Tqz_dbf_field_utils::fields_t pair{earlier, f};
                if (!Tqz_dbf_field_utils::duplicates_ic_ok(pair)) {
                    add(warning, k_name,
                        "the name '" + printable(fields[i].bytes, name.size()) +
                            "' is used by an earlier field too (letter case aside)",
                        field_where(i, fields[i]));
                    break;
                }
            }
            named.push_back(f);
        }
    }

    void check_field(size_t i, const Tdbf_descriptor& d) {
        const std::string where = field_where(i, d);
        const char t = d.type();
        const unsigned len = d.flen();
        const int dec = d.bytes[fld_decimals];
        if (d.bytes[0] == 0) add(warning, k_field, "the field has no name", where);
        if (!known_type(t)) {
            add(error, k_field, "unknown field type '" + printable(d.bytes + fld_type, 1) + "'",
                where);
            return;
        }
        auto bad = [&](const std::string& what) { add(error, k_field, what, where); };
        if (len == 0 && t != '0') bad("field length 0");
        if (t == 'C' && dec != 0)
            bad("C field with decimal count " + std::to_string(dec) + " (read by some as " +
                std::to_string(len + 256 * dec) + " bytes long, by others as " +
                std::to_string(len) + ")");
        if (t == 'D' && len != 8) bad("D field of length " + std::to_string(len) + " (8 expected)");
        if (t == 'L' && len != 1) bad("L field of length " + std::to_string(len) + " (1 expected)");
        if (t == 'N' || t == 'F') {
            if (len > 20)
                bad(std::string(1, t) + " field of length " + std::to_string(len) +
                    " (at most 20)");
            if (dec > 0 && dec >= static_cast<int>(len))
                bad(std::string(1, t) + " field with " + std::to_string(dec) +
                    " decimals in length " + std::to_string(len) +
                    " (decimals must be below the length)");
        }
        if (t == 'M' || t == 'G' || t == 'P' || (t == 'B' && len == 10)) has_memo_field = true;
    }

    void check_records() {
        if (record_length == 0) return;
        const uint64_t body = size > header_length ? size - header_length : 0;
        whole_records = std::min<uint64_t>(record_count, body / record_length);
        if (whole_records < record_count) {
            const bool cut_inside = body / record_length == whole_records &&
                                    body % record_length != 0 &&
                                    body % record_length != 1;  // a lone 0x1A is no record
            add(error, k_records,
                "the header says " + std::to_string(record_count) + " records, the file holds " +
                    std::to_string(whole_records) + " whole records" +
                    (cut_inside ? " (cut inside record " + std::to_string(whole_records) + ")"
                                : ""),
                "header bytes 4-7");
        }
    }

    void check_memo() {
        if (!has_memo_field) return;
        for (const wchar_t* ext : {L".dbt", L".fpt"}) {
            std::wstring memo =
                qz::filesystem::find_companion(qz::filesystem::change_extension(path, ext));
            if (qz::filesystem::stat_path(memo).kind == qz::filesystem::path_kind::file) return;
        }
        add(error, k_memo, "memo file missing (no .dbt or .fpt beside the table)", "file");
    }

    // Every whole record: N and F as numbers, D as dates, L as logical
    // letters; one finding per field with the first bad value and the count.
    void check_values_of_records() {
        struct field_state {
            uint32_t offset = 0, length = 0;
            char type = 0;
            uint64_t bad = 0, first = 0;
            std::string first_value;
        };
        std::vector<field_state> state;
        uint32_t offset = 1;
        for (const Tdbf_descriptor& d : fields) {
            field_state s;
            s.offset = offset;
            s.length = d.flen();
            s.type = d.type();
            offset += d.flen();
            state.push_back(s);
        }
        if (fseeko(file.get(), static_cast<off_t>(header_length), SEEK_SET) != 0) return;
        const size_t per_chunk = std::max<size_t>(1, (1u << 20) / record_length);
        std::vector<uint8_t> chunk(per_chunk * record_length);
        for (uint64_t r = 0; r < whole_records;) {
            const size_t want =
                static_cast<size_t>(std::min<uint64_t>(per_chunk, whole_records - r));
            const size_t got = std::fread(chunk.data(), record_length, want, file.get());
            if (got == 0) break;
            for (size_t k = 0; k < got; ++k, ++r) {
                const uint8_t* rec = chunk.data() + k * record_length;
                for (field_state& s : state) {
                    if (s.offset + s.length > record_length) continue;
                    const uint8_t* p = rec + s.offset;
                    bool ok = true;
                    if (s.type == 'N' || s.type == 'F')
                        ok = number_ok(p, s.length);
                    else if (s.type == 'D')
                        ok = date_ok(p, s.length);
                    else if (s.type == 'L')
                        ok = logical_ok(p, s.length);
                    if (!ok && s.bad++ == 0) {
                        s.first = r;
                        s.first_value = printable(p, s.length);
                    }
                }
            }
        }
        for (size_t i = 0; i < state.size(); ++i) {
            const field_state& s = state[i];
            if (s.bad == 0) continue;
            const char* kind_name = s.type == 'D'   ? "date"
                                    : s.type == 'L' ? "logical value"
                                                    : "number";
            add(error, k_value,
                std::to_string(s.bad) + " value(s) that are not a " + kind_name + ", the first \"" +
                    s.first_value + "\" in record " + std::to_string(s.first),
                field_where(i, fields[i]));
        }
    }

    std::wstring path;
    unsigned flags;
    result out;
    file_ptr file;
    uint64_t size = 0;
    uint8_t header[header_size] = {0};
    uint32_t header_length = 0, record_length = 0, record_count = 0;
    uint64_t whole_records = 0;
    std::vector<Tdbf_descriptor> fields;
    bool has_memo_field = false;
};

}  // namespace

result check_file(const std::wstring& path, unsigned flags) {
    return checker(path, flags).run();
}

}  // namespace qz::check
