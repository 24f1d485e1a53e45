#include "dbf/disk_table.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "code_page_text.h"
#include "dbf/dbase7_descriptors.h"
#include "dbf/field_widths.h"
#include "errors/last_error.h"
#include "notify/dbf_notifier.h"
#include "support/filesystem.h"

using namespace qz::dbf;

Tqz_dbf_disk::Tqz_dbf_disk() = default;

Tqz_dbf_disk::~Tqz_dbf_disk() {
    close();
    // A lock taken by an open whose table file then failed to open is still
    // held here; its handle closes with lock_file, its ".lk" file stays.
}

bool Tqz_dbf_disk::take_lock(const std::wstring& path, bool no_lock) {
    lock_path = path + L".lk";
    lock_was_refused = false;
    if (no_lock) return true;
    bool taken =
        lock_file.win.open(lock_path, qz::detail::access_write, qz::detail::lock_exclusive);
    // A lock file that exists but cannot be taken is held by another writer;
    // one that could not even be made is a matter of the folder.
    lock_was_refused = !taken && qz::filesystem::path_exist(lock_path);
    return taken;
}

int Tqz_dbf_disk::open(const wchar_t* path_w, bool ro, bool dos, bool no_lock) {
    close();
    lock_was_refused = false;
    std::wstring path = path_w ? path_w : L"";
    if (ro) {
        file = qz::filesystem::wfopen(path, "rb");
    } else if (take_lock(path, no_lock)) {
        file = qz::filesystem::wfopen(path, "rb+");
    }
    dos_flag = dos;
    if (!file) return 1;
    read_only = ro;
    filename = path;
    load_cpg(filename);

    // A short header is not an error: what could not be read stays zero.
    std::memset(header, 0, sizeof header);
    std::rewind(file);
    if (std::fread(header, 1, header_size, file) != header_size) std::clearerr(file);
    read_descriptors();
    notifier = Tqz_dbf_notifier::get_instance(path.c_str());
    attach_window(!ro, ro || no_lock);
    can_read = true;
    count_whole_records();

    // Memo files, whether or not the table has memo fields: FoxPro tables
    // (0xF5) look for their .fpt first, all others for a .dbt.
    if (header[hdr_version] == version_foxpro_memo) {
        if (!open_fpt(filename.c_str(), ro)) open_dbt(filename.c_str(), ro);
    } else {
        if (!open_dbt(filename.c_str(), ro)) open_fpt(filename.c_str(), ro);
    }
    return 0;
}

int Tqz_dbf_disk::open(const char* path, bool ro, bool dos, bool no_lock) {
    std::wstring w = path ? qz::basic::cp_to_wide(0, path, std::strlen(path)) : std::wstring();
    return open(w.c_str(), ro, dos, no_lock);
}

// Descriptors are read from offset 32 until the byte 0x0D, the end of the
// file, or the first descriptor that would not end within the header length
// (that length is taken as the file gives it, kept to 16 bits as stored).
void Tqz_dbf_disk::read_descriptors() {
    const unsigned header_length = get_header_length();
    const uint64_t file_size = qz::filesystem::stream_size(file);

    // Descriptors lie one after another, so one sequential buffered read
    // serves the whole scan.
    std::vector<Tdbf_descriptor> found;
    long_names.clear();
    driver_name.clear();
    if (is_dbase7_version(header[hdr_version])) {
        // 48-byte descriptors: the whole header area is read and parsed.
        const uint64_t n = std::min<uint64_t>(header_length, file_size);
        std::vector<uint8_t> area(static_cast<size_t>(n), 0);
        if (fseeko(file, 0, SEEK_SET) == 0 && n > 0) {
            const size_t got = std::fread(area.data(), 1, area.size(), file);
            area.resize(got);
        }
        parse_dbase7_descriptors(area.data(), area.size(), found, long_names);
        driver_name = language_driver_name(area.data(), area.size());
    } else if (fseeko(file, static_cast<off_t>(header_size), SEEK_SET) == 0) {
        for (uint64_t k = 0;; ++k) {
            uint64_t pos = header_size + descriptor_size * k;
            if (pos >= file_size) break;
            if (((descriptor_size * k + 64) & 0xFFFF) > header_length) break;
            Tdbf_descriptor d;
            std::memset(&d, 0, sizeof d);
            size_t got = std::fread(d.bytes, 1, descriptor_size, file);
            if (got == 0) break;
            if (d.bytes[0] == descriptor_terminator) break;
            found.push_back(d);
        }
    }
    std::clearerr(file);

    if (!set_nf(static_cast<int>(found.size()))) {
        long_names.clear();
        return;
    }
    uint32_t offset = 1;
    for (size_t k = 0; k < found.size(); ++k) {
        descriptors[k] = found[k];
        descriptors[k].set_offset(offset);
        offset += found[k].flen();
    }
}

int Tqz_dbf_disk::create(const wchar_t* path_w, unsigned int n_fields, unsigned int n_records,
                         Tqz_dbf_field* fields, bool dos, bool no_lock) {
    close();
    std::wstring path = path_w ? path_w : L"";
    if (!fields && n_fields > 0) return 1;
    if (!take_lock(path, no_lock)) return 1;
    // The stream can read so that cell writes can go through the window, but
    // the table reads nothing until it is opened again (can_read).
    file = qz::filesystem::wfopen(path, "wb+");
    dos_flag = dos;
    // The notifier is taken even when the file could not be made; the next
    // close gives it back.
    notifier = Tqz_dbf_notifier::get_instance(path.c_str());
    if (!file) return 1;
    read_only = false;
    filename = path;

    if (!lay_out_new(n_fields, n_records, fields)) {
        close();
        return 1;
    }
    std::vector<uint8_t> head(header_size + descriptor_size * n_fields + 1, 0);
    std::memcpy(head.data(), header, header_size);
    for (unsigned int i = 0; i < n_fields; ++i)
        std::memcpy(head.data() + header_size + descriptor_size * i, descriptors[i].bytes,
                    descriptor_size);
    head.back() = descriptor_terminator;
    std::fwrite(head.data(), 1, head.size(), file);

    // Blank records (a live deletion flag and spaces), written in chunks.
    const size_t rl = get_record_length();
    if (rl > 0 && n_records > 0) {
        const size_t per_chunk = std::max<size_t>(1, (1u << 20) / rl);
        std::vector<uint8_t> chunk(rl * std::min<size_t>(per_chunk, n_records), 0x20);
        for (uint64_t left = n_records; left > 0;) {
            size_t n = static_cast<size_t>(std::min<uint64_t>(left, per_chunk));
            std::fwrite(chunk.data(), rl, n, file);
            left -= n;
        }
    }
    std::fputc(end_of_file, file);
    std::fflush(file);
    attach_window(true, no_lock);
    can_read = false;
    count_whole_records();
    return 0;
}

int Tqz_dbf_disk::create(const char* path, unsigned int n_fields, unsigned int n_records,
                         Tqz_dbf_field* fields, bool dos, bool no_lock) {
    std::wstring w = path ? qz::basic::cp_to_wide(0, path, std::strlen(path)) : std::wstring();
    return create(w.c_str(), n_fields, n_records, fields, dos, no_lock);
}

qz::notify::Update_scope Tqz_dbf_disk::update_bracket() {
    if (handle_bracket) return qz::notify::Update_scope(nullptr);
    return qz::notify::Update_scope(notifier);
}

void Tqz_dbf_disk::begin_handle_bracket() {
    if (!notifier || handle_bracket) return;
    notifier->begin_update();
    handle_bracket = true;
}

void Tqz_dbf_disk::end_handle_bracket() {
    if (!notifier || !handle_bracket) return;
    handle_bracket = false;
    notifier->end_update();
}

void Tqz_dbf_disk::attach_window(bool writable, bool follow) {
    // A writer holding the lock is the file's only writer: what its window
    // holds never goes stale. Anyone else follows the file's changes.
    window.attach(fileno(file), writable, notifier ? notifier->change_counter() : nullptr, follow);
    if (notifier) notifier->add_window(&window);
}

void Tqz_dbf_disk::close() {
    // A handle's bracket ends while the window is still on the notifier, so
    // that its bytes reach the file before the notifier's last event.
    end_handle_bracket();
    // The window writes what it holds and lets go of the notifier's counter
    // before the notifier can go.
    if (notifier) notifier->remove_window(&window);
    window.detach();
    if (notifier) {
        Tqz_dbf_notifier* n = notifier;
        notifier = nullptr;
        Tqz_dbf_notifier::release(n);
    }
    close_fpt();
    close_dbt();
    free_descriptors();
    field_index.clear();
    save_cpg(filename, read_only || cpg_kept);
    cpg_kept = false;
    set_cpg_name("");
    read_only = true;
    filename.clear();
    whole_records = 0;
    if (file) {
        std::fclose(file);
        if (lock_file.win.is_open()) lock_file.win.close_and_remove(lock_path);
        file = nullptr;
    }
}

// ---- Record access -------------------------------------------------------------

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "binary cells are read and written in the host's byte order");

bool Tqz_dbf_disk::flush() {
    return window.flush();
}

void Tqz_dbf_disk::count_whole_records() {
    whole_records = 0;
    if (!file) return;
    const uint64_t size = window.size(), hl = get_header_length(), rl = get_record_length();
    uint64_t n = get_nr();
    if (rl > 0)
        n = size < hl ? 0 : std::min<uint64_t>(n, (size - hl) / rl);
    else if (size < hl)
        n = 0;
    whole_records = static_cast<uint32_t>(n);
}

bool Tqz_dbf_disk::has_record(unsigned int record) {
    return record < whole_records;
}

bool Tqz_dbf_disk::cell_position(int field, int record, uint64_t& pos, unsigned& flen) {
    Tdbf_descriptor* d = descriptor(static_cast<unsigned int>(field));
    if (!d || !has_record(static_cast<unsigned int>(record))) return false;
    enter_record(static_cast<unsigned int>(record));
    pos = record_position(static_cast<unsigned int>(record)) + d->offset();
    flen = d->flen();
    return true;
}

const char* Tqz_dbf_disk::get_string(int field, int record) {
    uint64_t pos;
    unsigned flen;
    if (!cell_position(field, record, pos, flen)) {
        raw_buffer[0] = 0;
        return raw_buffer;
    }
    if (can_read)
        window.read(pos, raw_buffer, flen);
    else
        std::memset(raw_buffer, 0, flen);
    raw_buffer[flen] = 0;
    return raw_buffer;
}

template <class T>
T Tqz_dbf_disk::read_value(int field, int record) {
    T value = 0;
    uint64_t pos;
    unsigned flen;
    if (!can_read || !cell_position(field, record, pos, flen)) return value;
    // The value's own size, whatever the field's length; bytes the file does
    // not have read as zero.
    unsigned char bytes[sizeof(T)];
    window.read(pos, bytes, sizeof bytes);
    std::memcpy(&value, bytes, sizeof bytes);
    return value;
}

template <class T>
void Tqz_dbf_disk::write_value(int field, int record, T value) {
    auto bracket = update_bracket();
    uint64_t pos;
    unsigned flen;
    if (!cell_position(field, record, pos, flen)) return;
    unsigned char bytes[sizeof(T)];
    std::memcpy(bytes, &value, sizeof bytes);
    window.write(pos, bytes, sizeof bytes);
}

int Tqz_dbf_disk::get_integer(int field, int record) {
    const int32_t raw = read_value<int32_t>(field, record);
    return is_dbase7_version(header[hdr_version]) ? dbase7_integer(raw) : raw;
}

float Tqz_dbf_disk::get_float(int field, int record) {
    return read_value<float>(field, record);
}

double Tqz_dbf_disk::get_double(int field, int record) {
    return read_value<double>(field, record);
}

void Tqz_dbf_disk::set_string(int field, int record, const char* text) {
    auto bracket = update_bracket();
    uint64_t pos;
    unsigned flen;
    if (!cell_position(field, record, pos, flen)) return;
    // Left-aligned, cut at the field's length, padded with spaces.
    char bytes[256];
    size_t n = text ? strnlen(text, flen) : 0;
    std::memcpy(bytes, text ? text : "", n);
    std::memset(bytes + n, ' ', flen - n);
    window.write(pos, bytes, flen);
}

void Tqz_dbf_disk::set_integer(int field, int record, int value) {
    // dBASE 7 integers are not written (their order-flipped form is read only).
    if (is_dbase7_version(header[hdr_version])) return;
    write_value<int32_t>(field, record, value);
}

void Tqz_dbf_disk::set_float(int field, int record, float value) {
    write_value<float>(field, record, value);
}

void Tqz_dbf_disk::set_double(int field, int record, double value) {
    write_value<double>(field, record, value);
}

void Tqz_dbf_disk::get_record(unsigned int record, unsigned char* buffer) {
    if (!buffer || !can_read || !has_record(record)) return;
    enter_record(record);
    uint32_t first = nf > 0 ? descriptors[0].offset() : 1;
    window.read(record_position(record) + first, buffer, get_record_length());
}

unsigned int Tqz_dbf_disk::get_record_images(unsigned int first, unsigned int count,
                                             unsigned char* buffer) {
    const size_t rl = get_record_length();
    if (!buffer || !can_read || rl == 0 || first >= whole_records) return 0;
    count = std::min(count, whole_records - first);
    // In pieces the window reads at once, so that a long run does not grow
    // the window's buffer past its usual size.
    const unsigned int piece = static_cast<unsigned int>(std::max<size_t>(1, (256u << 10) / rl));
    for (unsigned int done = 0; done < count;) {
        const unsigned int n = std::min(piece, count - done);
        const uint64_t at = record_position(first + done);
        window.enter(at, at + rl * n);
        window.read(at, buffer + rl * done, rl * n);
        done += n;
    }
    return count;
}

bool Tqz_dbf_disk::set_record(unsigned int record, const unsigned char* buffer) {
    auto bracket = update_bracket();
    if (!buffer || !has_record(record)) return false;
    enter_record(record);
    uint32_t first = nf > 0 ? descriptors[0].offset() : 1;
    bool ok = window.write(record_position(record) + first, buffer, get_record_length());
    count_whole_records();
    return ok;
}

void Tqz_dbf_disk::add_records(unsigned int count) {
    if (!file) return;
    const uint32_t nr = get_nr();
    if (count > 0xFFFFFFFFu - nr) count = 0xFFFFFFFFu - nr;  // the count is 32 bits
    const size_t rl = get_record_length();
    uint64_t pos = record_position(nr);
    // Blank records (a live deletion flag and spaces), in pieces of about a
    // megabyte, then the end-of-file byte, and only then the header's new
    // count: a process killed on the way leaves a count no higher than the
    // records in the file.
    // A file that cannot grow (disk full, a size limit) keeps the count of
    // the records it took whole.
    uint32_t added = 0;
    bool grew = true;
    if (rl > 0 && count > 0) {
        const size_t per_chunk = std::max<size_t>(1, (1u << 20) / rl);
        std::vector<uint8_t> chunk(rl * std::min<size_t>(per_chunk, count), 0x20);
        for (uint64_t left = count; left > 0 && grew;) {
            size_t n = static_cast<size_t>(std::min<uint64_t>(left, per_chunk));
            grew = window.write_through(pos, chunk.data(), n * rl);
            if (!grew) break;
            pos += n * rl;
            left -= n;
            added += static_cast<uint32_t>(n);
        }
    } else {
        added = count;
    }
    const uint8_t eof = end_of_file;
    if (grew) window.write_through(pos, &eof, 1);
    put_u32(header + hdr_record_count, nr + added);
    window.write_through(0, header, header_size);
    count_whole_records();
    if (!grew)
        qz::errors::set(qz::errors::io, filename,
                        "the file could not grow: " + std::to_string(added) + " of " +
                            std::to_string(count) + " records added");
}

bool Tqz_dbf_disk::set_language_driver(uint8_t id) {
    if (!file || read_only) return false;
    auto bracket = update_bracket();
    header[hdr_language_driver] = id;
    return window.write_through(hdr_language_driver, header + hdr_language_driver, 1);
}

void Tqz_dbf_disk::set_field_name(unsigned int field, const char* name) {
    auto bracket = update_bracket();
    Tdbf_descriptor* d = descriptor(field);
    // A dBASE 7 descriptor is 48 bytes: the 32-byte form would not go back.
    if (!d || is_dbase7_version(header[hdr_version])) return;
    Tqz_dbf_basic::set_field_name(field, name);
    window.write_through(header_size + descriptor_size * static_cast<uint64_t>(field), d->bytes,
                         descriptor_size);
}

// ---- Deletion flags --------------------------------------------------------------

constexpr uint8_t deleted_mark = '*', live_mark = ' ';

int Tqz_dbf_disk::get_deleted(unsigned int record) {
    if (!has_record(record)) return -1;
    uint8_t flag = live_mark;
    if (can_read && window.read(record_position(record), &flag, 1) != 1) return -1;
    return flag == deleted_mark ? 1 : 0;
}

bool Tqz_dbf_disk::set_deleted(unsigned int record, bool deleted) {
    if (read_only || !has_record(record)) return false;
    auto bracket = update_bracket();
    const uint8_t flag = deleted ? deleted_mark : live_mark;
    return window.write(record_position(record), &flag, 1);
}

bool Tqz_dbf_disk::set_cell_bytes(unsigned int field, unsigned int record, const void* bytes,
                                  size_t n) {
    if (read_only || !bytes) return false;
    auto bracket = update_bracket();
    uint64_t pos;
    unsigned width;
    if (!cell_span(field, record, pos, width)) return false;
    return window.write(pos, bytes, std::min<size_t>(n, width));
}

bool Tqz_dbf_disk::get_cell_bytes(unsigned int field, unsigned int record, std::string& out) {
    out.clear();
    uint64_t pos;
    unsigned width;
    if (!cell_span(field, record, pos, width)) return false;
    out.assign(width, '\0');
    if (can_read && width > 0) window.read(pos, &out[0], width);
    return true;
}

bool Tqz_dbf_disk::cell_span(unsigned int field, unsigned int record, uint64_t& pos,
                             unsigned& width) {
    unsigned flen, offset;
    if (!cell_position(static_cast<int>(field), static_cast<int>(record), pos, flen) ||
        !qz::dbf::field_span(*this, field, offset, width))
        return false;
    pos = record_position(record) + offset;
    return true;
}
