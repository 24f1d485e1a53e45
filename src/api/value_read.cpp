#include "api/value_read.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "api/cell_errors.h"
#include "dbf/basic_table.h"
#include "dbf/disk_table.h"
#include "memory/memory_core.h"
#include "dbf/typed_cell.h"
#include "encoding/encodings.h"
#include "memo/dbt_rw.h"
#include "memo/fpt_rw.h"
#include "memo/memo_blocks.h"

namespace qz::api {

namespace {

int64_t le_int(const unsigned char* p, unsigned n) {
    uint64_t v = 0;
    for (unsigned k = 0; k < n; ++k) v |= static_cast<uint64_t>(p[k]) << (8 * k);
    if (n < 8 && (v >> (8 * n - 1)) & 1) v |= ~uint64_t(0) << (8 * n);  // sign
    return static_cast<int64_t>(v);
}

double le_double(const unsigned char* p) {
    double d;
    std::memcpy(&d, p, 8);
    return d;
}

void trimmed(const unsigned char* p, unsigned n, std::string& out) {
    unsigned a = 0, b = n;
    while (a < b && (p[a] == ' ' || p[a] == 0)) ++a;
    while (b > a && (p[b - 1] == ' ' || p[b - 1] == 0)) --b;
    out.assign(reinterpret_cast<const char*>(p) + a, b - a);
}

bool all_ascii(const char* p, size_t n) {
    for (size_t k = 0; k < n; ++k)
        if (static_cast<unsigned char>(p[k]) >= 0x80) return false;
    return true;
}

// The number of the block a memo cell names: 4 bytes little-endian, else
// the digits of the field (0 for a blank or unreadable one).
uint32_t memo_block(const unsigned char* p, unsigned n) {
    if (n == 4) return static_cast<uint32_t>(le_int(p, 4));
    std::string digits;
    trimmed(p, n, digits);
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos) return 0;
    errno = 0;
    const unsigned long long b = std::strtoull(digits.c_str(), nullptr, 10);
    return errno || b > 0xFFFFFFFFull ? 0 : static_cast<uint32_t>(b);
}

}  // namespace

cell_reader::cell_reader(Tqz_dbf_rw* h) : handle(h) {
    Tqz_dbf_ibasic* t = h ? h->current() : nullptr;
    if (!t) {
        no_table(h);
        return;
    }
    auto* b = dynamic_cast<Tqz_dbf_basic*>(t);
    if (!b || h->current_storage() == Tqz_dbf_rw::storage::ogr) {
        cell_failed(h, t, 0, 0, "no typed values here");
        return;
    }
    table = b;
    char name[64];
    qz_dbf_get_encoding(h, name, sizeof name);
    encoding_name = name;
    utf8 = encoding_name == "UTF-8";
    // ASCII-compatible encodings leave ASCII text as it is.
    static const char probe[] = " 09AZaz~!\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}";
    bool same = false;
    const std::string back =
        qz::strconv::convert<std::string>(probe, sizeof probe - 1, name, "UTF-8", &same);
    ascii_same = same && back == probe;
    const uint8_t version = b->get_header()[0];
    visual_foxpro = version == 0x30 || version == 0x31 || version == 0x32;
    nulls.read_layout(*b);
    bool any_wide = false;
    unsigned int offset = 0;
    for (unsigned int f = 0; f < b->get_nf(); ++f) {
        unsigned int width = b->get_field_flen(f);
        const auto high = static_cast<unsigned char>(b->get_field_dlen(f));
        if (b->get_field_letter(f) == 'C' && high != 0 && !visual_foxpro) {
            width += 256u * high;
            any_wide = true;
        }
        wide_offset.push_back(offset);
        wide_width.push_back(width);
        offset += width;
    }
    if (!any_wide || offset + 1 != b->get_record_length() ||
        (!dynamic_cast<Tqz_dbf_disk*>(b) && !dynamic_cast<Tqz_dbf_memory_core*>(b))) {
        wide_offset.clear();
        wide_width.clear();
    }
}

bool cell_reader::read_wide_cell(unsigned int field, unsigned int record, std::string& cell) {
    if (record != image_record) {
        record_image.assign(table->get_record_length() + 1u, 0);
        if (auto* disk = dynamic_cast<Tqz_dbf_disk*>(table))
            disk->get_record(record, record_image.data());
        else if (auto* core = dynamic_cast<Tqz_dbf_memory_core*>(table))
            core->get_record(record, record_image.data());
        image_record = record;
    }
    cell.assign(reinterpret_cast<const char*>(record_image.data()) + wide_offset[field],
                wide_width[field]);
    return true;
}

std::string cell_reader::to_utf8(const char* raw, size_t n) {
    if (n == 0 || utf8 || (ascii_same && all_ascii(raw, n))) return std::string(raw, n);
    bool ok = true;
    return qz::strconv::convert<std::string>(raw, n, encoding_name.c_str(), "UTF-8", &ok);
}

std::string cell_reader::from_utf8(const std::string& text, bool& ok) {
    ok = true;
    if (text.empty() || utf8 || (ascii_same && all_ascii(text.data(), text.size()))) return text;
    std::string raw = qz::strconv::convert<std::string>(text.data(), text.size(), "UTF-8",
                                                        encoding_name.c_str(), &ok);
    // A character the encoding lacks is dropped or replaced on the way:
    // the text must come back as it went.
    if (ok && to_utf8(raw.data(), raw.size()) != text) ok = false;
    return raw;
}

bool cell_reader::read(unsigned int field, unsigned int record, Tqz_dbf_value& v,
                       std::string& text) {
    v = Tqz_dbf_value{QZ_DBF_VALUE_NULL, 0, 0.0, "", 0};
    text.clear();
    Tqz_dbf_basic* b = table;
    if (!b) return false;
    if (field >= b->get_nf() || !b->has_record(record)) {
        cell_failed(handle, b, field, record, nullptr);
        return false;
    }
    // The field's bytes, kept here: the flags and memo reads reuse the
    // table's buffer.
    unsigned n = b->get_field_flen(field);
    unsigned char cell[256];
    std::string wide;
    const unsigned char* p = cell;
    if (!wide_width.empty() && read_wide_cell(field, record, wide)) {
        n = static_cast<unsigned>(wide.size());
        p = reinterpret_cast<const unsigned char*>(wide.data());
    } else {
        std::memcpy(cell, b->get_string(static_cast<int>(field), static_cast<int>(record)), n);
    }
    const char type = b->get_field_letter(field);
    if (nulls.present() && nulls.get(*b, record, nulls.null_bit(field))) return true;
    switch (type) {
        case 'V':
        case 'C': {
            unsigned e = n;
            if (type == 'V' && nulls.length_bit(field) >= 0 &&
                nulls.get(*b, record, nulls.length_bit(field)) && n > 0)
                e = p[n - 1] < n ? p[n - 1] : n - 1;  // the length in the last byte
            else if (type == 'C')
                while (e > 0 && (p[e - 1] == ' ' || p[e - 1] == 0)) --e;
            text = to_utf8(reinterpret_cast<const char*>(p), e);
            v.kind = QZ_DBF_VALUE_TEXT;
            break;
        }
        case 'N':
        case 'F': {
            trimmed(p, n, text);
            if (text.empty() || text.find_first_not_of('*') == std::string::npos) {
                text.clear();
                break;
            }
            // Some writers put the locale's decimal comma.
            if (text.find('.') == std::string::npos) {
                const size_t comma = text.find(',');
                if (comma != std::string::npos && text.find(',', comma + 1) == std::string::npos)
                    text[comma] = '.';
            }
            char* end = nullptr;
            const double d = std::strtod(text.c_str(), &end);
            if (end == text.c_str() || *end) {  // not a number: its text
                v.kind = QZ_DBF_VALUE_TEXT;
                break;
            }
            v.d = d;
            v.kind = QZ_DBF_VALUE_DOUBLE;
            if (type == 'N' && text.find_first_of(".eE") == std::string::npos) {
                errno = 0;
                const long long i = std::strtoll(text.c_str(), &end, 10);
                if (!*end && errno == 0) {
                    v.i = i;
                    v.kind = QZ_DBF_VALUE_INT;
                }
            }
            break;
        }
        case 'L': {
            const char c = n ? static_cast<char>(p[0]) : ' ';
            if (c && std::strchr("TtYy", c)) {
                v.kind = QZ_DBF_VALUE_BOOL;
                v.i = 1;
            } else if (c && std::strchr("FfNn", c)) {
                v.kind = QZ_DBF_VALUE_BOOL;
                v.i = 0;
            }
            break;
        }
        case 'D': {
            trimmed(p, n, text);
            if (text.empty() || text == "00000000") {
                text.clear();
                break;
            }
            unsigned y, m, d;
            if (text.size() == 8 && text.find_first_not_of("0123456789") == std::string::npos &&
                std::sscanf(text.c_str(), "%4u%2u%2u", &y, &m, &d) == 3 && m >= 1 && m <= 12 &&
                d >= 1 && d <= 31) {
                v.kind = QZ_DBF_VALUE_DATE;
                v.i = y * 10000LL + m * 100 + d;
                text.clear();
            } else {
                v.kind = QZ_DBF_VALUE_TEXT;  // not a date: its text
            }
            break;
        }
        case 'I':
        case '+':
            if (n >= 4) {
                v.kind = QZ_DBF_VALUE_INT;
                v.i = le_int(p, 4);
            }
            break;
        case 'O':
            if (n >= 8) {
                v.kind = QZ_DBF_VALUE_DOUBLE;
                v.d = le_double(p);
            }
            break;
        case 'Y':
            if (n >= 8) {
                const long long units = le_int(p, 8);
                const unsigned long long a =
                    units < 0 ? 0ULL - static_cast<unsigned long long>(units) : units;
                char buf[40];
                std::snprintf(buf, sizeof buf, "%s%llu.%04llu", units < 0 ? "-" : "", a / 10000,
                              a % 10000);
                text = buf;
                v.kind = QZ_DBF_VALUE_DECIMAL;
                v.d = static_cast<double>(units) / 10000.0;
            }
            break;
        case 'T':
            if (n >= 8) {
                const int64_t jd = le_int(p, 4), ms = le_int(p + 4, 4);
                if (jd == 0 && ms == 0) break;
                // Julian day 2440588 is 1970-01-01.
                v.kind = QZ_DBF_VALUE_DATETIME;
                v.i = (jd - 2440588) * 86400000LL + ms;
            }
            break;
        case 'B':
            if (visual_foxpro && n >= 8) {
                v.kind = QZ_DBF_VALUE_DOUBLE;
                v.d = le_double(p);
                break;
            }
            [[fallthrough]];
        case 'M':
        case 'G':
        case 'P':
        case 'W': {
            const uint32_t block = memo_block(p, n);
            if (block == 0) break;  // no memo: null
            std::string raw;
            uint32_t memo_type = 0;
            bool found = false;
            if (Tqz_fpt_rw* fpt = b->get_fpt())
                found = qz::memo::read_memo(*fpt, qz::memo::layout::fpt, block, raw, memo_type);
            else if (Tqz_dbt_rw* dbt = b->get_dbt())
                found = qz::memo::read_memo(*dbt, qz::memo::dbt_layout_of(b->get_header()[0]),
                                            block, raw, memo_type);
            if (!found) break;  // no memo: null
            if (type == 'M' && memo_type != qz::memo::fpt_picture &&
                !(b->get_field_flags(field) & 0x04)) {
                text = to_utf8(raw.data(), raw.size());
                v.kind = QZ_DBF_VALUE_TEXT;
            } else {
                text.swap(raw);
                v.kind = QZ_DBF_VALUE_BYTES;
            }
            break;
        }
        default:
            text.assign(reinterpret_cast<const char*>(p), n);
            v.kind = QZ_DBF_VALUE_BYTES;
            break;
    }
    v.length = text.size();
    return true;
}

}  // namespace qz::api
