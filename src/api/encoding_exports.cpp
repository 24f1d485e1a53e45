// Exports of the table encodings of every code page, and cells read as
// UTF-8 text in them.
#include <cstring>
#include <string>

#include "api/cell_errors.h"
#include "api/guard.h"
#include "api/table_rw.h"
#include "dbf/basic_table.h"
#include "dbf/disk_table.h"
#include "dbf/field_widths.h"
#include "encoding/encodings.h"
#include "encoding/table_encoding.h"
#include "errors/last_error.h"
#include "qzk_file_dbf_ext.h"
#include "support/filesystem.h"

using qz::api::guarded;
using qz::strconv::encoding_source;
using qz::strconv::table_encoding;

namespace {

// Copies `text` into a caller buffer of `size` bytes, cut and closed by a NUL.
void put_text(const std::string& text, char* buffer, size_t size) {
    if (!buffer || size == 0) return;
    const size_t n = text.size() < size - 1 ? text.size() : size - 1;
    std::memcpy(buffer, text.data(), n);
    buffer[n] = '\0';
}

// The iconv name of an encoding as callers spell it; false, with the last
// error naming it, for one iconv does not know.
bool known_encoding(const char* encoding, std::string& name) {
    name = encoding ? qz::strconv::normalize_encoding_name(encoding) : "";
    if (!name.empty()) return true;
    qz::errors::set(qz::errors::argument,
                    std::string("unknown encoding \"") + (encoding ? encoding : "") + "\"");
    return false;
}

// The handle's open table, or null with the last error saying why.
Tqz_dbf_ibasic* open_table(Tqz_dbf_rw* h) {
    Tqz_dbf_ibasic* t = h ? h->current() : nullptr;
    if (!t) qz::api::no_table(h);
    return t;
}

int answer(const table_encoding& e, char* name, size_t size) {
    put_text(e.name, name, size);
    return static_cast<int>(e.source);
}

// The classic default: the flags' encoding.
std::string flags_encoding(bool utf8, bool dos) {
    return utf8 ? "UTF-8" : dos ? "CP866" : "CP1251";
}

// The encoding of the handle's open table, chosen once per open.
const table_encoding& handle_encoding(Tqz_dbf_rw* h) {
    if (h->encoding_choice.source != encoding_source::none) return h->encoding_choice;
    const std::string fallback = flags_encoding(h->get_utf8_flag(), h->get_dos_flag());
    auto* basic = dynamic_cast<Tqz_dbf_basic*>(h->current());
    if (basic && h->current_storage() != Tqz_dbf_rw::storage::ogr) {
        std::string cpg;
        const bool has_cpg = qz::strconv::read_cpg_text(h->get_path(), cpg);
        h->encoding_choice =
            qz::strconv::choose_encoding(h->encoding_request.c_str(), has_cpg ? &cpg : nullptr,
                                         basic->get_header()[29], fallback);
        qz::strconv::apply_driver_name(h->encoding_choice, basic->get_language_driver_name());
    } else {
        // Other storages hand over text already decoded.
        h->encoding_choice = {"UTF-8", encoding_source::fallback};
    }
    return h->encoding_choice;
}

std::string trim_right(const char* p, size_t n) {
    while (n > 0 && (p[n - 1] == ' ' || p[n - 1] == '\0')) --n;
    return std::string(p, n);
}

std::string to_utf8(const std::string& raw, const std::string& from) {
    if (raw.empty() || from == "UTF-8") return raw;
    bool ok = true;
    return qz::strconv::convert<std::string>(raw.data(), raw.size(), from.c_str(), "UTF-8", &ok);
}

}  // namespace

extern "C" {

QZ_DBF_API int qz_dbf_detect_encoding(const char* path, const char* encoding, unsigned int options,
                                      char* name, size_t size) {
    return guarded(0, [&] {
        put_text("", name, size);
        if (!path) {
            qz::errors::set(qz::errors::argument, "no path");
            return 0;
        }
        const std::wstring wpath = qz::filesystem::from_native(path);
        // The classic open reads "UTF-8" from the .cpg into its flag.
        std::string cpg;
        const bool utf8 =
            qz::strconv::read_cpg_text(wpath, cpg) && cpg.find("UTF-8") != std::string::npos;
        const bool dos = (options & QZ_DBF_OPEN_DOS) != 0;
        const table_encoding e =
            qz::strconv::detect_table_encoding(wpath, encoding, flags_encoding(utf8, dos));
        if (e.source == encoding_source::none) {
            if (encoding && *encoding && qz::filesystem::path_exist(wpath))
                qz::errors::set(qz::errors::argument,
                                std::string("unknown encoding \"") + encoding + "\"");
            else
                qz::errors::set(qz::errors::not_a_table, wpath, "no table header to read");
        }
        return answer(e, name, size);
    });
}

QZ_DBF_API bool qz_dbf_set_encoding(Tqz_dbf_rw* h, const char* encoding) {
    return guarded(false, [&] {
        if (!h) {
            qz::errors::set(qz::errors::argument, "no handle");
            return false;
        }
        std::string request;
        if (encoding && *encoding) {
            request = qz::strconv::normalize_encoding_name(encoding);
            if (request.empty()) {
                qz::errors::set(qz::errors::argument,
                                std::string("unknown encoding \"") + encoding + "\"");
                return false;
            }
        }
        h->encoding_request = request;
        h->encoding_choice = {};
        return true;
    });
}

QZ_DBF_API bool qz_dbf_encoding_name(const char* encoding, char* name, size_t size) {
    return guarded(false, [&] {
        put_text("", name, size);
        std::string known;
        if (!known_encoding(encoding, known)) return false;
        put_text(known, name, size);
        return true;
    });
}

QZ_DBF_API bool qz_dbf_set_table_encoding(Tqz_dbf_rw* h, const char* encoding) {
    return guarded(false, [&] {
        Tqz_dbf_disk* d = h ? h->file_table() : nullptr;
        if (!d || d->is_read_only()) {
            qz::errors::set(qz::errors::argument, "not a table file open for writing");
            return false;
        }
        std::string name;
        if (!known_encoding(encoding, name)) return false;
        if (!d->set_language_driver(qz::strconv::language_driver_for(name))) {
            qz::errors::set(qz::errors::io, d->get_filename(), "the header could not be written");
            return false;
        }
        // The classic calls keep to the flags: they follow where they can.
        d->set_utf8_flag(name == "UTF-8");
        d->set_dos_flag(name == "CP866");
        d->set_cpg_name(name);
        d->keep_cpg(false);
        // For this open only: a request of qz_dbf_set_encoding outlives it.
        h->encoding_choice = {name, encoding_source::caller};
        return true;
    });
}

QZ_DBF_API int qz_dbf_get_encoding(Tqz_dbf_rw* h, char* name, size_t size) {
    return guarded(0, [&] {
        put_text("", name, size);
        if (!h || !h->current()) {
            qz::api::no_table(h);
            return 0;
        }
        return answer(handle_encoding(h), name, size);
    });
}

QZ_DBF_API long qz_dbf_get_cell_utf8(Tqz_dbf_rw* h, unsigned int field, unsigned int record,
                                     char* buffer, size_t size) {
    return guarded(-1L, [&] {
        put_text("", buffer, size);
        Tqz_dbf_ibasic* t = open_table(h);
        if (!t) return -1L;
        auto* basic = dynamic_cast<Tqz_dbf_basic*>(t);
        std::string text;
        if (!basic || h->current_storage() == Tqz_dbf_rw::storage::ogr) {
            bool ok = false;
            const char* s = t->get_as_string(field, record, ok);
            if (!ok || !s) {
                qz::api::cell_failed(h, t, field, record, "the cell cannot be read");
                return -1L;
            }
            text = s;
        } else {
            if (field >= basic->get_nf() || !basic->has_record(record)) {
                qz::api::cell_failed(h, t, field, record, nullptr);
                return -1L;
            }
            const std::string& from = handle_encoding(h).name;
            const char letter = basic->get_field_letter(field);
            if (letter == 'C') {
                // The cell by its whole width (a field over 255 bytes, and
                // the fields after it, lie past where the length bytes say),
                // up to its first NUL.
                std::string raw;
                if (!basic->get_cell_bytes(field, record, raw)) {
                    const char* s =
                        basic->get_string(static_cast<int>(field), static_cast<int>(record));
                    raw = s ? s : "";
                }
                raw.resize(std::strlen(raw.c_str()));
                text = to_utf8(trim_right(raw.data(), raw.size()), from);
            } else if (letter == 'M') {
                bool ok = false;
                unsigned int len = 0, type = 0;
                const unsigned char* bytes = t->get_memo_bytes(field, record, ok, len, type);
                if (ok && bytes)
                    text = to_utf8(trim_right(reinterpret_cast<const char*>(bytes), len), from);
            } else {
                bool ok = false;
                const char* raw = basic->get_as_string_raw(field, record, ok);
                const std::string classic =
                    flags_encoding(basic->get_utf8_flag(), basic->get_dos_flag());
                if (raw) text = to_utf8(trim_right(raw, std::strlen(raw)), classic);
            }
        }
        put_text(text, buffer, size);
        return static_cast<long>(text.size());
    });
}

QZ_DBF_API long qz_dbf_get_field_name_utf8(Tqz_dbf_rw* h, unsigned int field, char* buffer,
                                           size_t size) {
    return guarded(-1L, [&] {
        put_text("", buffer, size);
        Tqz_dbf_ibasic* t = open_table(h);
        if (!t) return -1L;
        if (field >= t->get_nf()) {
            qz::errors::set(qz::errors::argument, "no field " + std::to_string(field));
            return -1L;
        }
        std::string name;
        Tqz_dbf_basic* basic = t->as_basic();
        if (basic && h->current_storage() != Tqz_dbf_rw::storage::ogr) {
            // The bytes as the descriptor holds them (a dBASE 7 table's full
            // name), in the table's encoding.
            const char* raw = basic->get_long_field_name(field);
            std::string bytes;
            if (raw) {
                bytes = raw;
            } else {
                const uint8_t* d = basic->get_descriptors()[field].bytes;
                bytes.assign(reinterpret_cast<const char*>(d), 11);
                bytes.resize(std::strlen(bytes.c_str()));
            }
            name = to_utf8(trim_right(bytes.data(), bytes.size()), handle_encoding(h).name);
        } else {
            const char* s = t->get_field_name(field);
            name = s ? s : "";
        }
        put_text(name, buffer, size);
        return static_cast<long>(name.size());
    });
}

QZ_DBF_API bool qz_dbf_set_cell_utf8(Tqz_dbf_rw* h, unsigned int field, unsigned int record,
                                     const char* text, size_t length) {
    return guarded(false, [&] {
        Tqz_dbf_ibasic* t = open_table(h);
        if (!t) return false;
        if (!text && length > 0) {
            qz::errors::set(qz::errors::argument, "no text");
            return false;
        }
        const std::string utf8(text ? text : "", text ? length : 0);
        // Table files and memory tables hold the bytes themselves; a memory
        // table's set_string is one step of its history.
        auto* basic = dynamic_cast<Tqz_dbf_basic*>(t);
        const bool own_bytes = basic && h->current_storage() != Tqz_dbf_rw::storage::ogr;
        if (own_bytes && (field >= basic->get_nf() || !basic->has_record(record))) {
            qz::api::cell_failed(h, t, field, record, nullptr);
            return false;
        }
        // The text must come back from its conversion as it went in: not
        // UTF-8, a NUL or a character the encoding lacks is refused.
        auto encode = [&](const std::string& to, std::string& out) {
            out = to == "UTF-8" ? utf8
                                : qz::strconv::convert<std::string>(utf8.data(), utf8.size(),
                                                                    "UTF-8", to.c_str(), nullptr);
            const std::string back = qz::strconv::convert<std::string>(
                out.data(), out.size(), to.c_str(), "UTF-8", nullptr);
            if (back == utf8 && utf8.find('\0') == std::string::npos) return true;
            qz::api::cell_failed(h, t, field, record,
                                 "the text is not UTF-8 or holds a character the table's "
                                 "encoding cannot");
            return false;
        };
        std::string raw;
        if (own_bytes && basic->get_field_letter(field) == 'C') {
            if (!encode(handle_encoding(h).name, raw)) return false;
            unsigned int offset = 0, width = 0;
            qz::dbf::field_span(*basic, field, offset, width);
            if (raw.size() > width) {
                qz::errors::set(qz::errors::value, "the text takes " + std::to_string(raw.size()) +
                                                       " bytes, the field holds " +
                                                       std::to_string(width));
                return false;
            }
            if (width == basic->get_field_flen(field) &&
                offset == basic->get_descriptors()[field].offset()) {
                basic->set_string(static_cast<int>(field), static_cast<int>(record), raw.c_str());
                return true;
            }
            // A field over 255 bytes, or one after it: where the reads find
            // it, padded with spaces.
            raw.resize(width, ' ');
            if (basic->set_cell_bytes(field, record, raw.data(), raw.size())) return true;
            qz::api::cell_failed(h, t, field, record, "the cell could not be written");
            return false;
        }
        // Other fields (numbers, dates, logicals) and other storages take the
        // classic text.
        if (!encode(qz::strconv::encoding_to_iconv(qz::strconv::encodings::system), raw))
            return false;
        if (t->set_as_string(field, record, raw.c_str())) return true;
        qz::api::cell_failed(h, t, field, record, "the value was refused");
        return false;
    });
}

}  // extern "C"
