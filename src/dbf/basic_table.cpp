#include "dbf/basic_table.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <cwchar>

#include "code_page_text.h"
#include "dbf/field.h"
#include "support/fileio.h"
#include "support/filesystem.h"
#include "support/strutil.h"
#include "support/textio.h"

using namespace qz::dbf;
namespace strconv = qz::strconv;

Tqz_dbf_basic::Tqz_dbf_basic() {
    std::memset(header, 0, sizeof header);
    format_buffer[0] = 0;
    std::memset(raw_buffer, 0, sizeof raw_buffer);
    std::memset(value_buffer, 0, sizeof value_buffer);
}

Tqz_dbf_basic::~Tqz_dbf_basic() {
    close_fpt();
    close_dbt();
    free_descriptors();
}

void Tqz_dbf_basic::set_dos_flag(bool on) {
    dos_flag = on;
    if (on) utf8_flag = false;
}

void Tqz_dbf_basic::set_utf8_flag(bool on) {
    utf8_flag = on;
    if (on) dos_flag = false;
}

// The conversions are built in a spare string and swapped in, so a text that
// points into the scratch string (the result of the previous conversion) can
// be converted again.
const char* Tqz_dbf_basic::str_from_raw(const char* raw) {
    if (!raw) raw = "";
    converter.narrow(table_code_page(), 0, raw, std::strlen(raw), false, narrow_spare);
    narrow_scratch.swap(narrow_spare);
    return narrow_scratch.c_str();
}

const char* Tqz_dbf_basic::raw_to_system(const char* raw) {
    // The table's own buffers are read whole and the conversion stops at the
    // terminator, which saves measuring the text first. Text the conversion
    // would not change is handed out where it is (it stays valid as long).
    static_assert(sizeof raw_buffer == sizeof value_buffer, "both buffers are read whole");
    const unsigned int cp = table_code_page();
    if (raw == raw_buffer || raw == value_buffer) {
        const char* text = converter.narrow_view(cp, 0, raw, sizeof raw_buffer, narrow_spare);
        if (text == raw) return raw;
    } else {
        converter.narrow(cp, 0, raw, std::strlen(raw), false, narrow_spare);
    }
    narrow_scratch.swap(narrow_spare);
    return narrow_scratch.c_str();
}

const char* Tqz_dbf_basic::str_to_raw(const char* text) {
    if (!text) text = "";
    converter.narrow(0, table_code_page(), text, std::strlen(text), false, narrow_spare);
    narrow_scratch.swap(narrow_spare);
    return narrow_scratch.c_str();
}

const wchar_t* Tqz_dbf_basic::str_from_raw_w(const char* raw) {
    if (raw)
        converter.to_wide(table_code_page(), raw, std::strlen(raw), wide_scratch);
    else
        wide_scratch.clear();
    return wide_scratch.c_str();
}

const char* Tqz_dbf_basic::str_to_raw_w(const wchar_t* text) {
    std::string raw;
    if (text) converter.from_wide(table_code_page(), text, std::wcslen(text), raw);
    narrow_spare.assign(raw.data(), raw.size());
    narrow_scratch.swap(narrow_spare);
    return narrow_scratch.c_str();
}

unsigned int Tqz_dbf_basic::get_nr() {
    return get_u32(header + hdr_record_count);
}

void Tqz_dbf_basic::get_layer_name(unsigned int, Iqz_string_adp* adp) {
    qz_string_adp_feed(adp, L"");
}

const char* Tqz_dbf_basic::get_field_name(unsigned int field) {
    Tdbf_descriptor* d = descriptor(field);
    if (!d) return nullptr;
    d->name()[10] = 0;  // a name that filled all 11 bytes is cut to 10
    return str_from_raw(d->name());
}

void Tqz_dbf_basic::get_field_name(unsigned int field, Iqz_string_adp* adp) {
    const char* name = get_field_name(field);
    if (!name) return;
    std::wstring wide = qz::basic::cp_to_wide(0, name, std::strlen(name));
    qz_string_adp_feed(adp, wide.c_str());
}

void Tqz_dbf_basic::set_field_name(unsigned int field, const char* name) {
    Tdbf_descriptor* d = descriptor(field);
    if (!d) return;
    std::memset(d->name(), 0, fld_name_size);
    std::strncpy(d->name(), str_to_raw(name), 10);
}

void Tqz_dbf_basic::set_field_name(unsigned int field, const wchar_t* name) {
    std::string ansi = name ? qz::basic::wide_to_cp(0, name, std::wcslen(name)) : std::string();
    set_field_name(field, ansi.c_str());
}

unsigned char Tqz_dbf_basic::get_field_flen(unsigned int field) {
    Tdbf_descriptor* d = descriptor(field);
    return d ? d->flen() : 0;
}

char Tqz_dbf_basic::get_field_dlen(unsigned int field) {
    Tdbf_descriptor* d = descriptor(field);
    return d ? static_cast<char>(d->dlen()) : 0;
}

unsigned int Tqz_dbf_basic::find_field_index(const wchar_t* name) {
    if (nf <= 0 || !name) return 0xFFFFFFFF;
    for (int32_t i = 0; i < nf; ++i) {
        // Stored names are compared as ANSI text, exactly and case-sensitively.
        const char* stored = descriptors[i].name();
        std::wstring wide = qz::basic::cp_to_wide(0, stored, strnlen(stored, fld_name_size));
        if (wide == name) return static_cast<unsigned int>(i);
    }
    return 0xFFFFFFFF;
}

const char* Tqz_dbf_basic::get_format(unsigned int field) {
    Tdbf_descriptor* d = descriptor(field);
    if (!d) return nullptr;
    if (d->type() == 'F')
        std::snprintf(format_buffer, sizeof format_buffer, "%%%d.%dg", d->flen(), d->flen());
    else
        std::snprintf(format_buffer, sizeof format_buffer, "%%%d.%dlf", d->flen(), d->dlen());
    return format_buffer;
}

bool Tqz_dbf_basic::lay_out_new(unsigned int n_fields, unsigned int n_records,
                                const Tqz_dbf_field* fields) {
    uint32_t record_length = 1;
    if (fields)
        for (unsigned int i = 0; i < n_fields; ++i) record_length += fields[i].flen;
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::memset(header, 0, sizeof header);
    header[hdr_version] = version_created;
    header[hdr_year] = static_cast<uint8_t>((local.tm_year + 1900) % 100);
    header[hdr_month] = static_cast<uint8_t>(local.tm_mon + 1);
    header[hdr_day] = static_cast<uint8_t>(local.tm_mday);
    put_u32(header + hdr_record_count, n_records);
    put_u16(header + hdr_header_length, static_cast<uint16_t>(n_fields * 32u + 33u));
    put_u16(header + hdr_record_length, static_cast<uint16_t>(record_length));

    long_names.clear();
    if ((!fields && n_fields > 0) || n_fields > 0x7FFFFFFFu / descriptor_size ||
        !set_nf(static_cast<int>(n_fields)))
        return false;
    uint32_t offset = 1;
    for (unsigned int i = 0; i < n_fields; ++i) {
        Tdbf_descriptor& d = descriptors[i];
        std::memset(d.bytes, 0, descriptor_size);
        char name[fld_name_size] = {0};
        std::memcpy(name, fields[i].name, sizeof name - 1);  // at most 10 significant
        std::strncpy(d.name(), str_to_raw(name), 10);
        d.bytes[fld_type] = static_cast<uint8_t>(fields[i].type);
        d.set_offset(offset);
        d.bytes[fld_length] = fields[i].flen;
        d.bytes[fld_decimals] = static_cast<uint8_t>(fields[i].dlen);
        offset += fields[i].flen;
    }
    return true;
}

bool Tqz_dbf_basic::set_nf(int n) {
    if (n < 0) n = 0;
    if (n > 0) {
        void* grown = std::realloc(descriptors, static_cast<size_t>(n) * sizeof(Tdbf_descriptor));
        if (!grown) return false;
        descriptors = static_cast<Tdbf_descriptor*>(grown);
        // New entries start zeroed rather than with whatever the heap held.
        if (n > nf)
            std::memset(descriptors + nf, 0, static_cast<size_t>(n - nf) * sizeof(Tdbf_descriptor));
    } else {
        std::free(descriptors);
        descriptors = nullptr;
    }
    nf = n;
    if (long_names.size() > static_cast<size_t>(n)) long_names.resize(static_cast<size_t>(n));
    return true;
}

void Tqz_dbf_basic::free_descriptors() {
    std::free(descriptors);
    descriptors = nullptr;
    nf = 0;
    long_names.clear();
    driver_name.clear();
}

void Tqz_dbf_basic::load_cpg(const std::wstring& table_path) {
    std::wstring name =
        qz::filesystem::find_companion(qz::filesystem::change_extension(table_path, L".cpg"));
    qz::detail::fileio_std file;
    if (!file.open(name, qz::detail::access_read, qz::detail::lock_none)) return;
    char line[20] = {0};
    if (!std::fgets(line, sizeof line, file.stream()) && std::ferror(file.stream())) return;
    std::string text = qz::strutil::trim(line);
    // Later marks win: "CP1251" ends with both flags clear.
    if (qz::strutil::find_ic(text, "UTF-8") != std::string::npos) set_utf8_flag(true);
    if (qz::strutil::find_ic(text, "866") != std::string::npos) set_dos_flag(true);
    if (qz::strutil::find_ic(text, "1251") != std::string::npos) {
        set_utf8_flag(false);
        set_dos_flag(false);
    }
}

void Tqz_dbf_basic::save_cpg(const std::wstring& table_path, bool skip) {
    if (skip) return;
    std::wstring text = L"CP1251";
    if (get_dos_flag()) text = L"CP866";
    if (get_utf8_flag()) text = L"UTF-8";
    if (!cpg_name.empty()) text.assign(cpg_name.begin(), cpg_name.end());  // an ASCII name
    std::wstring name =
        qz::filesystem::find_companion(qz::filesystem::change_extension(table_path, L".cpg"));
    qz::detail::fileio_std file;
    if (!file.open(name, qz::detail::access_write, qz::detail::lock_none)) return;
    qz::textio(file.stream(), strconv::utf8).writeln(text);
}
