#include "api/value_read.h"

#include "dbf/dbase7_descriptors.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

#include "api/cell_errors.h"
#include "dbf/basic_table.h"
#include "dbf/disk_table.h"
#include "dbf/field_widths.h"
#include "encoding/encodings.h"
#include "encoding/fast_convert.h"
#include "memo/dbt_rw.h"
#include "memo/fpt_rw.h"
#include "memo/memo_blocks.h"
#include "memory/memory_core.h"

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

// dBASE 7 keeps numbers big-endian with their order bits flipped, so that
// their bytes sort as the numbers do; all zeros is an empty cell.
uint64_t be_uint(const unsigned char* p, unsigned n) {
    uint64_t v = 0;
    for (unsigned k = 0; k < n; ++k) v = v << 8 | p[k];
    return v;
}
bool all_zero(const unsigned char* p, unsigned n) {
    for (unsigned k = 0; k < n; ++k)
        if (p[k]) return false;
    return true;
}
int64_t dbase7_int(const unsigned char* p) {
    return static_cast<int32_t>(static_cast<uint32_t>(be_uint(p, 4) ^ 0x80000000u));
}
// The cell without blanks and NULs around it.
void trim(const unsigned char*& p, unsigned& n) {
    while (n > 0 && (p[n - 1] == ' ' || p[n - 1] == 0)) --n;
    while (n > 0 && (*p == ' ' || *p == 0)) {
        ++p;
        --n;
    }
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
    trim(p, n);
    uint64_t b = 0;
    if (n == 0 || n > 10) return 0;
    for (unsigned k = 0; k < n; ++k) {
        if (p[k] < '0' || p[k] > '9') return 0;
        b = b * 10 + (p[k] - '0');
    }
    return b > 0xFFFFFFFFull ? 0 : static_cast<uint32_t>(b);
}

// A number text: the digits without sign and point give `mantissa` when
// there are at most 18 of them; `scale` digits follow the point.
struct number_parse {
    bool negative = false, plain = false;  // plain: sign, digits, one point, nothing else
    uint64_t mantissa = 0;
    unsigned digits = 0, scale = 0;
};

number_parse parse_number(const char* s, size_t n) {
    number_parse r;
    size_t i = 0;
    if (i < n && (s[i] == '-' || s[i] == '+')) r.negative = s[i++] == '-';
    bool point = false, any = false;
    for (; i < n; ++i) {
        const char c = s[i];
        if (c >= '0' && c <= '9') {
            any = true;
            if (r.digits < 19) r.mantissa = r.mantissa * 10 + static_cast<unsigned>(c - '0');
            if (r.mantissa || r.digits) ++r.digits;  // leading zeros do not count
            if (point) ++r.scale;
        } else if (c == '.' && !point) {
            point = true;
        } else {
            return r;
        }
    }
    r.plain = any && r.digits <= 18;
    return r;
}

// The code page number of an iconv name the table-driven converter takes
// ("CP1251" 1251, "UTF-8" 65001); 0 for other names.
unsigned int code_page_of(const std::string& name) {
    if (name == "UTF-8") return 65001;
    if (name.size() > 7 || name.compare(0, 2, "CP") != 0 ||
        name.find_first_not_of("0123456789", 2) != std::string::npos)
        return 0;
    return static_cast<unsigned int>(std::strtoul(name.c_str() + 2, nullptr, 10));
}

// Whether an encoding leaves ASCII text as it is, asked of iconv once per
// encoding and thread.
bool ascii_transparent(const std::string& name) {
    thread_local std::map<std::string, bool> known;
    auto it = known.find(name);
    if (it != known.end()) return it->second;
    static const char probe[] = " 09AZaz~!\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}";
    // An unknown name converts to "", which is not the probe.
    const std::string back =
        qz::strconv::convert<std::string>(probe, sizeof probe - 1, name.c_str(), "UTF-8", nullptr);
    return known[name] = back == probe;
}

// What the reader depends on besides the table and the encoding: the
// version byte, the record length and the descriptors.
void signature_of(Tqz_dbf_basic* b, std::string& s) {
    const uint8_t* h = b->get_header();
    s.assign(reinterpret_cast<const char*>(h), 12);
    if (b->get_nf())
        s.append(reinterpret_cast<const char*>(b->get_descriptors()),
                 b->get_nf() * sizeof(qz::dbf::Tdbf_descriptor));
}

bool same_signature(Tqz_dbf_basic* b, const std::string& s) {
    const size_t n = b->get_nf() * sizeof(qz::dbf::Tdbf_descriptor);
    const uint8_t* h = b->get_header();
    // The record count (bytes 4..7) may change; the rest of the 12 may not.
    return s.size() == 12 + n && std::memcmp(s.data(), h, 4) == 0 &&
           std::memcmp(s.data() + 8, h + 8, 4) == 0 &&
           (n == 0 || std::memcmp(s.data() + 12, b->get_descriptors(), n) == 0);
}

}  // namespace

cell_reader* cell_reader::of(Tqz_dbf_rw* h) {
    Tqz_dbf_ibasic* t = h ? h->current() : nullptr;
    if (!t) {
        no_table(h);
        return nullptr;
    }
    auto* b = dynamic_cast<Tqz_dbf_basic*>(t);
    if (!b || h->current_storage() == Tqz_dbf_rw::storage::ogr) {
        cell_failed(h, t, 0, 0, "no typed values here");
        return nullptr;
    }
    // The handle's choice, made at the first call.
    if (h->encoding_choice.source == qz::strconv::encoding_source::none) {
        char chosen[64];
        qz_dbf_get_encoding(h, chosen, sizeof chosen);
    }
    const std::string& name = h->encoding_choice.name;
    auto* kept = static_cast<cell_reader*>(h->typed_reader.get());
    if (!kept || kept->table != b || kept->encoding_name != name ||
        !same_signature(b, kept->signature)) {
        h->typed_reader.reset();
        std::string signature;
        signature_of(b, signature);
        auto made = std::shared_ptr<cell_reader>(new cell_reader(h, b, name, signature));
        h->typed_reader = made;
        kept = made.get();
    }
    kept->image_record = ~0u;  // the table may have changed since the last call
    return kept;
}

cell_reader::cell_reader(Tqz_dbf_rw* h, Tqz_dbf_basic* b, const std::string& encoding,
                         std::string sig)
    : handle(h), table(b), encoding_name(encoding), signature(std::move(sig)) {
    utf8 = encoding_name == "UTF-8";
    ascii_same = ascii_transparent(encoding_name);
    code_page = code_page_of(encoding_name);
    const uint8_t version = b->get_header()[0];
    visual_foxpro = version == 0x30 || version == 0x31 || version == 0x32;
    dbase7 = qz::dbf::is_dbase7_version(version);
    nulls.read_layout(*b);
    for (unsigned int f = 0; f < b->get_nf(); ++f) letter.push_back(b->get_field_letter(f));
    qz::dbf::field_widths widths = qz::dbf::widths_of(*b);
    offset = std::move(widths.offset);
    width = std::move(widths.width);
    unsigned long at = 0;
    for (unsigned int w : width) at += w;
    disk = dynamic_cast<Tqz_dbf_disk*>(b);
    core = dynamic_cast<Tqz_dbf_memory_core*>(b);
    use_image = (disk || core) && at + 1 == b->get_record_length();
}

const unsigned char* cell_reader::cell_bytes(unsigned int field, unsigned int record, unsigned& n,
                                             unsigned char* buf) {
    n = width[field];
    if (use_image) {
        if (record != image_record) {
            image.assign(table->get_record_length() + 1u, 0);
            if (disk)
                disk->get_record(record, image.data());
            else
                core->get_record(record, image.data());
            image_record = record;
        }
        return image.data() + offset[field];
    }
    std::memcpy(buf, table->get_string(static_cast<int>(field), static_cast<int>(record)), n);
    return buf;
}

bool cell_reader::is_null(unsigned int field, unsigned int record, const unsigned char* img) {
    const int bit = nulls.null_bit(field);
    if (bit < 0) return false;
    if (!img) return nulls.get(*table, record, bit);
    const unsigned f = nulls.field();
    const unsigned char* p = img + offset[f];
    unsigned blanks = 0;
    while (blanks < width[f] && p[blanks] == ' ') ++blanks;
    return blanks < width[f] && ((p[bit / 8] >> (bit % 8)) & 1);
}

void cell_reader::append_utf8(const char* raw, size_t n, std::string& out) {
    if (n == 0 || utf8 || (ascii_same && all_ascii(raw, n))) {
        out.append(raw, n);
    } else if (code_page) {
        converter.narrow(code_page, 65001, raw, n, false, converted);
        out.append(converted.c_str(), converted.size());
    } else {
        bool ok = true;
        out += qz::strconv::convert<std::string>(raw, n, encoding_name.c_str(), "UTF-8", &ok);
    }
}

std::string cell_reader::from_utf8(const std::string& text, bool& ok) {
    ok = true;
    if (text.empty() || utf8 || (ascii_same && all_ascii(text.data(), text.size()))) return text;
    std::string raw = qz::strconv::convert<std::string>(text.data(), text.size(), "UTF-8",
                                                        encoding_name.c_str(), &ok);
    // A character the encoding lacks is dropped or replaced on the way:
    // the text must come back as it went.
    std::string back;
    append_utf8(raw.data(), raw.size(), back);
    if (ok && back != text) ok = false;
    return raw;
}

bool cell_reader::read(unsigned int field, unsigned int record, Tqz_dbf_value& v,
                       std::string& out) {
    v = Tqz_dbf_value{QZ_DBF_VALUE_NULL, 0, 0.0, "", 0};
    Tqz_dbf_basic* b = table;
    if (field >= b->get_nf() || !b->has_record(record)) {
        cell_failed(handle, b, field, record, nullptr);
        return false;
    }
    const size_t start = out.size();
    unsigned n;
    unsigned char buf[256];
    const unsigned char* p = cell_bytes(field, record, n, buf);
    const char type = letter[field];
    if (nulls.present() && is_null(field, record, use_image ? image.data() : nullptr)) return true;
    switch (type) {
        case 'V':
        case 'C': {
            unsigned e = n;
            if (type == 'V' && nulls.length_bit(field) >= 0 && n > 0 &&
                nulls.get(*b, record, nulls.length_bit(field)))
                e = p[n - 1] < n ? p[n - 1] : n - 1;  // the length in the last byte
            else if (type == 'C')
                while (e > 0 && (p[e - 1] == ' ' || p[e - 1] == 0)) --e;
            append_utf8(reinterpret_cast<const char*>(p), e, out);
            v.kind = QZ_DBF_VALUE_TEXT;
            break;
        }
        case 'N':
        case 'F': {
            trim(p, n);
            unsigned stars = 0;
            while (stars < n && p[stars] == '*') ++stars;
            if (n == 0 || stars == n) break;
            out.append(reinterpret_cast<const char*>(p), n);
            char* s = &out[start];
            // Some writers put the locale's decimal comma.
            if (!std::memchr(s, '.', n)) {
                char* comma = static_cast<char*>(std::memchr(s, ',', n));
                if (comma && !std::memchr(comma + 1, ',', n - (comma + 1 - s))) *comma = '.';
            }
            const number_parse num = parse_number(s, n);
            if (num.plain && num.scale == 0 && type == 'N') {
                v.kind = QZ_DBF_VALUE_INT;
                v.i = num.negative ? -static_cast<int64_t>(num.mantissa)
                                   : static_cast<int64_t>(num.mantissa);
                v.d = static_cast<double>(v.i);
                break;
            }
            if (num.plain && num.mantissa < (1ull << 53) && num.scale <= 22) {
                // Both exact as doubles: one division rounds as strtod does.
                static const double tens[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                              1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                              1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
                const double d = static_cast<double>(num.mantissa) / tens[num.scale];
                v.d = num.negative ? -d : d;
                v.kind = QZ_DBF_VALUE_DOUBLE;
                break;
            }
            char* end = nullptr;
            const double d = std::strtod(s, &end);
            if (end == s || end != s + n) {  // not a number: its text
                v.kind = QZ_DBF_VALUE_TEXT;
                break;
            }
            v.d = d;
            v.kind = QZ_DBF_VALUE_DOUBLE;
            if (type == 'N' && !std::memchr(s, '.', n) && !std::memchr(s, 'e', n) &&
                !std::memchr(s, 'E', n)) {
                errno = 0;
                const long long i = std::strtoll(s, &end, 10);
                if (end == s + n && errno == 0) {
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
            trim(p, n);
            if (n == 0 || (n == 8 && std::memcmp(p, "00000000", 8) == 0)) break;
            bool digits = n == 8;
            long long ymd = 0;
            for (unsigned k = 0; digits && k < 8; ++k) {
                digits = p[k] >= '0' && p[k] <= '9';
                ymd = ymd * 10 + (p[k] - '0');
            }
            const long long m = ymd / 100 % 100, d = ymd % 100;
            if (digits && m >= 1 && m <= 12 && d >= 1 && d <= 31) {
                v.kind = QZ_DBF_VALUE_DATE;
                v.i = ymd;
            } else {
                out.append(reinterpret_cast<const char*>(p), n);
                v.kind = QZ_DBF_VALUE_TEXT;  // not a date: its text
            }
            break;
        }
        case 'I':
        case '+':
            if (dbase7) {
                if (n >= 4 && !all_zero(p, 4)) {
                    v.kind = QZ_DBF_VALUE_INT;
                    v.i = dbase7_int(p);
                }
            } else if (n >= 4) {
                v.kind = QZ_DBF_VALUE_INT;
                v.i = le_int(p, 4);
            }
            break;
        case 'O':
            if (dbase7) {
                if (n >= 8 && qz::dbf::dbase7_double(p, v.d)) v.kind = QZ_DBF_VALUE_DOUBLE;
            } else if (n >= 8) {
                v.kind = QZ_DBF_VALUE_DOUBLE;
                v.d = le_double(p);
            }
            break;
        case 'Y':
            if (n >= 8) {
                const long long units = le_int(p, 8);
                const unsigned long long a =
                    units < 0 ? 0ULL - static_cast<unsigned long long>(units) : units;
                char text[40];
                const int len = std::snprintf(text, sizeof text, "%s%llu.%04llu",
                                              units < 0 ? "-" : "", a / 10000, a % 10000);
                out.append(text, static_cast<size_t>(len));
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
        case '@':
            // Milliseconds as a big-endian double, counted so that day 1 is
            // 0001-01-01 (day 719163 is 1970-01-01). Tables in the wild keep
            // the plain double; one with its top bit set is taken as the
            // order-flipped form of the O fields (a timestamp is positive).
            if (int64_t ms; n >= 8 && qz::dbf::timestamp_ms(p, ms)) {
                v.kind = QZ_DBF_VALUE_DATETIME;
                v.i = ms;
            }
            break;
        case 'B':
            // A double in Visual FoxPro and wherever the field is 8 wide (as
            // this library creates it); a memo block number otherwise.
            if ((visual_foxpro && n >= 8) || n == 8) {
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
                append_utf8(raw.data(), raw.size(), out);
                v.kind = QZ_DBF_VALUE_TEXT;
            } else {
                out += raw;
                v.kind = QZ_DBF_VALUE_BYTES;
            }
            break;
        }
        case 'Q': {
            // Varbinary: with its length flag set, the length in the last byte.
            unsigned e = n;
            if (nulls.length_bit(field) >= 0 && n > 0 &&
                nulls.get(*b, record, nulls.length_bit(field)))
                e = p[n - 1] < n ? p[n - 1] : n - 1;
            out.append(reinterpret_cast<const char*>(p), e);
            v.kind = QZ_DBF_VALUE_BYTES;
            break;
        }
        default:
            out.append(reinterpret_cast<const char*>(p), n);
            v.kind = QZ_DBF_VALUE_BYTES;
            break;
    }
    if (v.kind == QZ_DBF_VALUE_NULL) out.resize(start);
    v.length = out.size() - start;
    return true;
}

}  // namespace qz::api
