#include "restruct/restruct_sink.h"

#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <ctime>
#include <cstdio>

#include "dbf/dbase7_descriptors.h"
#include "dbf/number_text.h"
#include "dbf/typed_cell.h"
#include "errors/last_error.h"
#include "memory/records.h"
#include "restruct/rstrct.h"
#include "support/strutil.h"

using namespace qz::dbf;

namespace {

// (int)floor(v), with the value the processor's conversion gives for what
// an int cannot hold.
int floor_to_int(double v) {
    double f = std::floor(v);
    if (!(f >= -2147483648.0 && f < 2147483648.0)) return INT_MIN;
    return static_cast<int>(f);
}

// The version byte of the new table: the old one when its header has the
// layout the rewrite writes (32-byte descriptors), so that other readers keep
// reading memo and B fields as before; dBASE 7 (48-byte descriptors) and
// dBASE II become dBASE III, with or without memo.
uint8_t new_version(uint8_t v) {
    switch (v) {
        case 0x03:
        case 0x30:
        case 0x31:
        case 0x32:
        case 0x43:
        case 0x63:
        case 0x83:
        case 0x8B:
        case 0xCB:
        case 0xE5:
        case 0xF5:
        case 0xFB:
            return v;
        case 0x8C:
            return 0x8B;  // its .dbt blocks have dBASE IV headers
        default:
            return 0x03;
    }
}

}  // namespace

Tqz_restruct_sink::Tqz_restruct_sink(Tqz_dbf_ibasic& old_table, const Tqz_dbf_rstrct& descriptor,
                                     qz::restruct::Conversion how)
    : old(old_table),
      old_dbf(dynamic_cast<Tqz_dbf_basic*>(&old_table)),
      rstrct(descriptor),
      conversion(how),
      old_core(dynamic_cast<Tqz_dbf_memory_core*>(&old_table)) {}

bool Tqz_restruct_sink::lay_out(unsigned int n_records) {
    const auto& entries = rstrct.entries();
    if (entries.empty()) return false;
    uint64_t record_length = 1;
    std::vector<Tqz_dbf_field> fields;
    fields.reserve(entries.size());
    for (const Tqz_fld_meta& e : entries) {
        fields.push_back(e.get_field());
        record_length += e.get_field().flen;
    }
    if (record_length > 0xFFFF || entries.size() * 32 + 33 > 0xFFFF) return false;

    // The encoding first: names and values are stored in it.
    set_dos_flag(old.get_dos_flag());
    set_utf8_flag(old.get_utf8_flag());
    // The records' bytes are left unset here: fill writes each one whole.
    if (!create_new(static_cast<unsigned int>(fields.size()), 0, fields.data(), false))
        return false;
    try {
        get_records()->set_size(n_records, false);
    } catch (const std::bad_alloc&) {
        return false;
    }
    set_record_count(n_records);
    const unsigned int old_nf = old.get_nf();
    for (size_t j = 0; j < entries.size(); ++j) {
        const Tqz_fld_meta& e = entries[j];
        const int o = e.get_old_no();
        if (o >= 0 && static_cast<unsigned int>(o) < old_nf &&
            std::strncmp(e.get_field().name, e.get_old_field().name, 11) == 0) {
            const char* name = old.get_field_name(static_cast<unsigned int>(o));
            if (name) set_field_name(static_cast<unsigned int>(j), name);
        }
    }
    if (old_dbf) {
        // Version and language driver as the old table had them.
        header[hdr_version] = new_version(old_dbf->get_header()[hdr_version]);
        header[hdr_language_driver] = old_dbf->get_header()[hdr_language_driver];
    }

    // Where the old fields lie in a record (one after another from byte 1):
    // a field a broken header lets run past the record length is not copied
    // as bytes (the table holds only part of it).
    std::vector<size_t> old_offset(old_nf + 1, 1);
    for (unsigned int k = 0; k < old_nf; ++k)
        old_offset[k + 1] = old_offset[k] + old.get_field_flen(k);
    const size_t old_length = old_dbf ? old_dbf->get_record_length() : 0;
    const bool old_dbase7 = old_dbf && is_dbase7_version(old_dbf->get_header()[hdr_version]);

    plans.clear();
    for (size_t j = 0; j < entries.size(); ++j) {
        const Tqz_fld_meta& e = entries[j];
        Plan p;
        p.status = e.get_status();
        p.old_no = e.get_old_no();
        p.new_type = qz_char2dbftype(e.get_field().type);
        p.old_type = p.old_no >= 0 ? old.get_field_type(static_cast<unsigned int>(p.old_no))
                                   : dbf_ft_unknown;
        // Bytes travel unchanged when the field keeps its type letter, length
        // and decimals (a renamed field too): the same encoding on both sides.
        p.bytes =
            p.status != dbf_fld_new && old_dbf && static_cast<unsigned>(p.old_no) < old_nf &&
            old_dbf->get_field_letter(static_cast<unsigned int>(p.old_no)) == e.get_field().type &&
            old.get_field_flen(static_cast<unsigned int>(p.old_no)) == e.get_field().flen &&
            old.get_field_dlen(static_cast<unsigned int>(p.old_no)) == e.get_field().dlen &&
            old_offset[static_cast<size_t>(p.old_no) + 1] <= old_length;
        p.decimals = e.get_field().dlen;
        p.dbase7_letter = 0;
        if (old_dbase7 && p.status != dbf_fld_new && static_cast<unsigned>(p.old_no) < old_nf) {
            const char letter = old_dbf->get_field_letter(static_cast<unsigned int>(p.old_no));
            const unsigned int need = letter == 'I' || letter == '+' ? 4 : 8;
            if (std::strchr("I+O@", letter) &&
                old.get_field_flen(static_cast<unsigned int>(p.old_no)) >= need &&
                old_offset[static_cast<size_t>(p.old_no) + 1] <= old_length) {
                const char to = e.get_field().type;
                const bool number = letter != '@';
                // B only as an 8-byte double: wider, it names a memo block.
                const bool fits = number ? std::strchr("CNFIO+Y", to) != nullptr ||
                                               (to == 'B' && e.get_field().flen == 8)
                                         : std::strchr("CDT", to) != nullptr;
                if (!fits) {
                    qz::errors::set(
                        qz::errors::value,
                        std::string("field ") + e.get_field().name + ": the " + letter +
                            " values of a dBASE 7 table do not go into a field of type " + to);
                    return false;
                }
                p.dbase7_letter = letter;
                p.bytes = false;
            }
        }
        plans.push_back(p);
    }

    // Runs of bytes for a table in memory: the old fields' offsets as the
    // loaded records have them (one after another from byte 1).
    runs.clear();
    if (old_core && old_core->get_records()->get_length() == old_length) {
        size_t to = 1;
        for (size_t j = 0; j < plans.size(); ++j) {
            const size_t flen = entries[j].get_field().flen;
            if (plans[j].bytes) {
                const size_t from = old_offset[static_cast<size_t>(plans[j].old_no)];
                if (!runs.empty() && runs.back().from + runs.back().length == from &&
                    runs.back().to + runs.back().length == to)
                    runs.back().length += flen;
                else
                    runs.push_back({from, to, flen});
                plans[j].bytes = false;
                plans[j].status = dbf_fld_new;  // nothing more to do for it
                plans[j].new_type = dbf_ft_char;
            }
            to += flen;
        }
    }
    return true;
}

void Tqz_restruct_sink::fill(unsigned int first, unsigned int count) {
    Tqz_dbf_records* store = get_records();
    const unsigned int have = std::min(count, store->get_size());
    const size_t length = store->get_length();
    Tqz_dbf_records* old_store = old_core ? old_core->get_records() : nullptr;
    // The fields with work left per record: not the blank new ones, not
    // those the byte runs carry.
    std::vector<int> active;
    for (size_t j = 0; j < plans.size(); ++j)
        if (plans[j].status != dbf_fld_new || plans[j].new_type == dbf_ft_integer ||
            plans[j].new_type == dbf_ft_double)
            active.push_back(static_cast<int>(j));
    // A memory table holds its records below both counts.
    const unsigned int held =
        old_store ? std::min(old.get_nr(), old_store->get_size()) : 0xFFFFFFFFu;
    for (unsigned int k = 0; k < have; ++k) {
        unsigned char* to = store->get_ptr(k);
        std::memset(to, ' ', length);
        const unsigned int r = first + k;
        if (r < first) continue;  // past the last index: blank
        const bool there =
            old_store ? r < held : (old_dbf ? old_dbf->has_record(r) : r < old.get_nr());
        if (!there) continue;
        if (!runs.empty()) {
            const unsigned char* from = old_store->get_ptr(r);
            for (const Run& run : runs) std::memcpy(to + run.to, from + run.from, run.length);
        }
        for (int j : active) convert(j, plans[static_cast<size_t>(j)], k, r);
    }
}

void Tqz_restruct_sink::convert(int j, const Plan& p, unsigned int dst, unsigned int src) {
    const int k = static_cast<int>(dst);
    if (p.status == dbf_fld_new) {
        // The record is blank already; numbers in binary get a zero.
        if (p.new_type == dbf_ft_double) set_as_double(j, dst, 0.0);
        if (p.new_type == dbf_ft_integer) set_as_integer(j, dst, 0);
        return;
    }
    const unsigned int o = static_cast<unsigned int>(p.old_no);
    if (p.dbase7_letter) {
        convert_dbase7(j, p, dst, src);
        return;
    }
    if (p.bytes) {
        size_t avail = 0;
        unsigned char* to = cell(j, k, field_length(j), avail);
        const char* from = old_dbf->get_string(p.old_no, static_cast<int>(src));
        if (to && from) std::memcpy(to, from, avail);
        return;
    }
    // The old text: in the table's encoding when the old table is a DBF
    // table (the same encoding as the sink's, so no byte is lost to a
    // conversion), otherwise as system text.
    bool ok = false;
    const char* got =
        old_dbf ? old_dbf->get_as_string_raw(o, src, ok) : old.get_as_string(o, src, ok);
    std::string s = got ? got : "";
    auto put = [&](const std::string& text) {
        if (old_dbf)
            set_as_string_raw(static_cast<unsigned int>(j), dst, text.c_str());
        else
            set_as_string(static_cast<unsigned int>(j), dst, text.c_str());
    };
    if (p.status == dbf_fld_same) {
        // Kept as it is, but not copyable as bytes (another storage).
        if (p.new_type == dbf_ft_integer)
            set_as_integer(j, dst, old.get_as_integer(o, src, ok));
        else if (p.new_type == dbf_ft_double)
            set_as_double(j, dst, old.get_as_double(o, src, ok));
        else
            put(s);
        return;
    }

    std::string trimmed = qz::strutil::trim(s);
    bool number = false;
    double v;
    if (conversion == qz::restruct::Conversion::file) {
        v = std::atof(s.c_str());
        if (std::fabs(v) == HUGE_VAL) v = 0;
    } else {
        v = qz::strutil::to_numeric_safe(trimmed, &number);
        if (!number) v = 0;
    }
    switch (p.new_type) {
        case dbf_ft_integer:
            set_as_integer(j, dst, floor_to_int(v));
            return;
        case dbf_ft_double:
            set_as_double(j, dst, v);
            return;
        case dbf_ft_numeric:
        case dbf_ft_float: {
            double n = qz::strutil::to_numeric_safe(trimmed, &number);
            if (!number) {
                put("");
                return;
            }
            // "%.<decimals>lf" (the default precision for a negative count),
            // in the classic locale whatever the host's.
            const std::string format =
                p.decimals >= 0 ? "%." + std::to_string(p.decimals) + "lf" : std::string("%lf");
            put(qz::dbf::printf_double(format.c_str(), n));
            return;
        }
        case dbf_ft_char:
            put(p.old_type != dbf_ft_char ? trimmed : s);
            return;
        default:
            put(conversion == qz::restruct::Conversion::memory && p.old_type != dbf_ft_char
                    ? trimmed
                    : s);
            return;
    }
}

void Tqz_restruct_sink::convert_dbase7(int j, const Plan& p, unsigned int dst, unsigned int src) {
    // The old cell's bytes, decoded.
    const char* raw = old_dbf->get_string(p.old_no, static_cast<int>(src));
    if (!raw) return;
    const auto* bytes = reinterpret_cast<const uint8_t*>(raw);
    Tqz_dbf_value v{QZ_DBF_VALUE_NULL, 0, 0.0, nullptr, 0};
    if (p.dbase7_letter == 'O') {
        if (dbase7_double(bytes, v.d)) v.kind = QZ_DBF_VALUE_DOUBLE;
    } else if (p.dbase7_letter == '@') {
        if (int64_t ms; timestamp_ms(bytes, ms)) {
            v.kind = QZ_DBF_VALUE_DATETIME;
            v.i = ms;
        }
    } else {
        int32_t word;
        std::memcpy(&word, bytes, 4);
        if (word != 0) {
            v.kind = QZ_DBF_VALUE_INT;
            v.i = dbase7_integer(word);
        }
    }
    // The new cell's image, as a typed write makes it for the new table's
    // layout; a value the new field cannot hold leaves the cell blank.
    cell_layout layout;
    layout.type = get_field_letter(static_cast<unsigned int>(j));
    layout.length = field_length(j);
    layout.decimals = p.decimals;
    std::string image, why, text;
    if (v.kind == QZ_DBF_VALUE_NULL) {
        image = blank_image(layout);
    } else if (layout.type == 'C') {
        // Text as the typed interface shows the value.
        char buf[40];
        if (v.kind == QZ_DBF_VALUE_INT) {
            text = std::to_string(v.i);
        } else if (v.kind == QZ_DBF_VALUE_DOUBLE) {
            std::snprintf(buf, sizeof buf, "%.15g", v.d);
            if (std::strtod(buf, nullptr) != v.d) std::snprintf(buf, sizeof buf, "%.17g", v.d);
            text = buf;
        } else {
            int64_t days = v.i / 86400000, rest = v.i % 86400000;
            if (rest < 0) {
                rest += 86400000;
                --days;
            }
            int64_t y;
            unsigned m, d;
            civil_from_days(days, y, m, d);
            std::snprintf(buf, sizeof buf, "%04lld-%02u-%02uT%02lld:%02lld:%02lld.%03lld",
                          static_cast<long long>(y), m, d, static_cast<long long>(rest / 3600000),
                          static_cast<long long>(rest / 60000 % 60),
                          static_cast<long long>(rest / 1000 % 60),
                          static_cast<long long>(rest % 1000));
            text = buf;
        }
        Tqz_dbf_value t{QZ_DBF_VALUE_TEXT, 0, 0.0, text.c_str(), text.size()};
        if (!encode_cell(layout, t, text, image, why)) image = blank_image(layout);
    } else {
        if (layout.type == 'D' && v.kind == QZ_DBF_VALUE_DATETIME) {
            int64_t y;
            unsigned m, d;
            int64_t days = v.i / 86400000;
            if (v.i % 86400000 < 0) --days;
            civil_from_days(days, y, m, d);
            v.kind = QZ_DBF_VALUE_DATE;
            v.i = y * 10000 + m * 100 + d;
        }
        if (layout.type == '+') layout.type = 'I';  // the same image: a caller may not write it
        if (!encode_cell(layout, v, "", image, why)) image = blank_image(layout);
    }
    size_t avail = 0;
    unsigned char* to = cell(j, static_cast<int>(dst), field_length(j), avail);
    if (to) std::memcpy(to, image.data(), std::min(avail, image.size()));
}

void Tqz_restruct_sink::set_string(int field, int record, const char* text) {
    size_t n = 0;
    unsigned char* p = cell(field, record, field_length(field), n);
    if (!p) return;
    size_t len = text ? strnlen(text, n) : 0;
    if (len > 0) std::memcpy(p, text, len);
    std::memset(p + len, ' ', n - len);
}

std::vector<unsigned char> Tqz_restruct_sink::file_head(uint32_t n_records) const {
    std::vector<unsigned char> head(header, header + header_size);
    put_u32(head.data() + hdr_record_count, n_records);
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    head[hdr_year] = static_cast<uint8_t>((local.tm_year + 1900) % 100);
    head[hdr_month] = static_cast<uint8_t>(local.tm_mon + 1);
    head[hdr_day] = static_cast<uint8_t>(local.tm_mday);
    // Bytes 12..15 keep the field's offset, as a created table has them.
    for (int32_t i = 0; i < nf; ++i)
        head.insert(head.end(), descriptors[i].bytes, descriptors[i].bytes + descriptor_size);
    head.push_back(descriptor_terminator);
    return head;
}
