#include "restruct/restruct_sink.h"

#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <ctime>
#include <cstdio>

#include "dbf/number_text.h"
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
            return 0x83;
        default:
            return 0x03;
    }
}

constexpr size_t hdr_language_driver = 29;

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
            old.get_field_dlen(static_cast<unsigned int>(p.old_no)) == e.get_field().dlen;
        p.decimals = e.get_field().dlen;
        plans.push_back(p);
    }

    // Runs of bytes for a table in memory: the old fields' offsets as the
    // loaded records have them (one after another from byte 1).
    runs.clear();
    if (old_core && old_core->get_records()->get_length() == old_dbf->get_record_length()) {
        std::vector<size_t> old_offset(old_nf + 1, 1);
        for (unsigned int k = 0; k < old_nf; ++k)
            old_offset[k + 1] = old_offset[k] + old.get_field_flen(k);
        size_t to = 1;
        for (size_t j = 0; j < plans.size(); ++j) {
            const size_t flen = entries[j].get_field().flen;
            if (plans[j].bytes && old_offset[old_nf] <= old_dbf->get_record_length()) {
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
    for (unsigned int k = 0; k < have; ++k) {
        std::memset(store->get_ptr(k), ' ', length);
        const unsigned int r = first + k;
        if (r < first) continue;  // past the last index: blank
        const bool there = old_dbf ? old_dbf->has_record(r) : r < old.get_nr();
        if (!there) continue;
        if (!runs.empty() && r < old_store->get_size()) {
            const unsigned char* from = old_store->get_ptr(r);
            unsigned char* to = store->get_ptr(k);
            for (const Run& run : runs) std::memcpy(to + run.to, from + run.from, run.length);
        }
        for (size_t j = 0; j < plans.size(); ++j) convert(static_cast<int>(j), plans[j], k, r);
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
