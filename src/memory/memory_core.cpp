#include "memory/memory_core.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <ctime>
#include <new>
#include <vector>

#include "code_page_text.h"
#include "dbf/dbase7_descriptors.h"
#include "dbf/field_widths.h"
#include "memory/records.h"
#include "notify/dbf_notifier.h"
#include "support/filesystem.h"
#include "support/safe_replace.h"

using namespace qz::dbf;

namespace {

// Visual FoxPro headers end with the 263-byte back link to the database
// container after the descriptors' terminator.
constexpr size_t backlink_size = 263;

bool has_backlink(uint8_t version) {
    return version == 0x30 || version == 0x31 || version == 0x32;
}

void put_today(uint8_t* header) {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    header[hdr_year] = static_cast<uint8_t>((local.tm_year + 1900) % 100);
    header[hdr_month] = static_cast<uint8_t>(local.tm_mon + 1);
    header[hdr_day] = static_cast<uint8_t>(local.tm_mday);
}

// Closes a stream when the scope ends.
struct File_closer {
    FILE* f;
    ~File_closer() {
        if (f) std::fclose(f);
    }
};

}  // namespace

Tqz_dbf_memory_core::Tqz_dbf_memory_core() : records(new Tqz_dbf_records()) {
    try {
        notifier = Tqz_dbf_notifier::get_instance("");
    } catch (...) {
        delete records;
        throw;
    }
}

Tqz_dbf_memory_core::~Tqz_dbf_memory_core() {
    if (notifier) {
        // A last update for whoever listens to the table's name.
        begin_update();
        update();
        end_update();
        Tqz_dbf_notifier::release(notifier);
        notifier = nullptr;
    }
    close();
    delete records;
}

void Tqz_dbf_memory_core::set_filename(const wchar_t* name) {
    Tqz_dbf_notifier* taken = Tqz_dbf_notifier::get_instance(name);
    if (notifier) Tqz_dbf_notifier::release(notifier);
    notifier = taken;
    filename = name ? name : L"";
}

void Tqz_dbf_memory_core::begin_update() {
    if (notifier) notifier->begin_update();
}

void Tqz_dbf_memory_core::end_update() {
    if (notifier) notifier->end_update();
}

void Tqz_dbf_memory_core::update() {
    if (!notifier) return;
    notifier->begin_update();
    try {
        notifier->broadcast_update_event();
    } catch (...) {
        notifier->end_update();
        throw;
    }
    notifier->end_update();
}

void Tqz_dbf_memory_core::set_record_count(uint32_t n) {
    put_u32(header + hdr_record_count, n);
}

bool Tqz_dbf_memory_core::init() {
    Tqz_dbf_field id;
    std::memset(&id, 0, sizeof id);
    std::strcpy(id.name, "ID");
    id.type = 'N';
    id.flen = 10;
    id.dlen = 0;
    return create_new(1, 0, &id, false);
}

bool Tqz_dbf_memory_core::create_new(unsigned int n_fields, unsigned int n_records,
                                     Tqz_dbf_field* fields, bool /*flag*/) {
    records->clear();
    header_tail.clear();
    if (!lay_out_new(n_fields, n_records, fields)) {
        // Nothing usable: an empty table without fields.
        free_descriptors();
        put_u32(header + hdr_record_count, 0);
        put_u16(header + hdr_header_length, static_cast<uint16_t>(header_size + 1));
        put_u16(header + hdr_record_length, 1);
        records->set_length(1);
        return false;
    }
    records->set_length(get_record_length());
    try {
        records->set_size(n_records);
    } catch (const std::bad_alloc&) {
        records->clear();
        set_record_count(0);
        return false;
    }
    return true;
}

bool Tqz_dbf_memory_core::load() {
    close();
    if (filename.empty()) return false;  // no file, and no lock beside it
    lock_path = filename + L".lk";
    if (!lock_file.win.open(lock_path, qz::detail::access_write, qz::detail::lock_exclusive))
        return false;
    load_cpg(filename);
    FILE* file = qz::filesystem::wfopen(filename, "rb");
    if (!file) return false;
    File_closer closer{file};
    if (!read_file(file)) return false;
    // Memo files, whether or not the table has memo fields: version 0xF5
    // looks for its .fpt first, all others for a .dbt.
    if (header[hdr_version] == version_foxpro_memo) {
        if (!open_fpt(filename.c_str(), true)) open_dbt(filename.c_str(), true);
    } else {
        if (!open_dbt(filename.c_str(), true)) open_fpt(filename.c_str(), true);
    }
    return true;
}

// Header, descriptors and records of an open file. A file shorter than its
// header says gives fewer records (the last one completed with spaces); the
// header's record count is set to what was loaded.
bool Tqz_dbf_memory_core::read_file(FILE* file) {
    std::memset(header, 0, sizeof header);
    std::rewind(file);
    if (std::fread(header, 1, header_size, file) != header_size) std::clearerr(file);
    const uint64_t file_size = qz::filesystem::stream_size(file);

    // Descriptors from offset 32 until 0x0D, the end of the file, or the
    // first that would not end within the header length.
    const unsigned header_length = get_header_length();
    std::vector<Tdbf_descriptor> found;
    long_names.clear();
    driver_name.clear();
    if (is_dbase7_version(header[hdr_version])) {
        // 48-byte descriptors: the whole header area is read and parsed.
        std::vector<uint8_t> area(
            static_cast<size_t>(std::min<uint64_t>(header_length, file_size)));
        if (fseeko(file, 0, SEEK_SET) == 0 && !area.empty())
            area.resize(std::fread(area.data(), 1, area.size(), file));
        parse_dbase7_descriptors(area.data(), area.size(), found, long_names);
        driver_name = language_driver_name(area.data(), area.size());
    } else if (fseeko(file, static_cast<off_t>(header_size), SEEK_SET) == 0) {
        for (uint64_t k = 0;; ++k) {
            if (header_size + descriptor_size * k >= file_size) break;
            if (((descriptor_size * k + 64) & 0xFFFF) > header_length) break;
            Tdbf_descriptor d;
            std::memset(&d, 0, sizeof d);
            if (std::fread(d.bytes, 1, descriptor_size, file) == 0) break;
            if (d.bytes[0] == descriptor_terminator) break;
            found.push_back(d);
        }
    }
    std::clearerr(file);
    // What the header holds after the terminator (a Visual FoxPro back link,
    // or padding): kept for the save.
    header_tail.clear();
    const uint64_t tail_at = header_size + descriptor_size * found.size() + 1;
    const uint64_t tail_end = std::min<uint64_t>(header_length, file_size);
    if (!is_dbase7_version(header[hdr_version]) && tail_end > tail_at &&
        fseeko(file, static_cast<off_t>(tail_at), SEEK_SET) == 0) {
        header_tail.resize(static_cast<size_t>(tail_end - tail_at));
        header_tail.resize(std::fread(header_tail.data(), 1, header_tail.size(), file));
    }
    std::clearerr(file);
    if (!set_nf(static_cast<int>(found.size()))) return false;
    uint32_t offset = 1;
    for (size_t k = 0; k < found.size(); ++k) {
        descriptors[k] = found[k];
        descriptors[k].set_offset(offset);
        offset += found[k].flen();
    }

    const unsigned record_length = get_record_length();
    uint64_t n = get_nr();
    const uint64_t data = file_size > header_length ? file_size - header_length : 0;
    n = record_length == 0 ? 0 : std::min<uint64_t>(n, (data + record_length - 1) / record_length);
    try {
        records->clear();
        records->set_length(record_length);
        records->set_size(static_cast<unsigned int>(n), false);
    } catch (const std::bad_alloc&) {
        records->clear();
        set_record_count(0);
        return false;
    }
    set_record_count(static_cast<uint32_t>(n));

    // The records lie one after another in the file and (after a fresh
    // set_size) in memory, so they are read in runs as long as memory has
    // them together.
    bool short_read = fseeko(file, static_cast<off_t>(header_length), SEEK_SET) != 0;
    for (unsigned int i = 0; i < n;) {
        unsigned int run = static_cast<unsigned int>(n) - i;
        unsigned char* bytes = records->get_block(i, run);
        if (!bytes) break;
        const size_t want = static_cast<size_t>(run) * record_length;
        const size_t got = short_read ? 0 : std::fread(bytes, 1, want, file);
        if (got < want) {
            std::memset(bytes + got, ' ', want - got);
            short_read = true;
        }
        i += run;
    }
    return true;
}

bool Tqz_dbf_memory_core::save() {
    return save(get_filename());
}

bool Tqz_dbf_memory_core::save(const wchar_t* path_w) {
    std::wstring path = path_w ? path_w : L"";
    if (path.empty()) return false;
    // dBASE 7 tables are read, not written: their 48-byte descriptors and
    // big-endian numbers would not come back as they were.
    if (is_dbase7_version(header[hdr_version])) return false;
    // The new table goes to a sibling and is renamed over the file: a
    // process killed at any moment leaves the old table or the new one,
    // whole, never an empty or cut one.
    // The header as written: its length (bytes 8-9) says where the records
    // start, so it counts the bytes kept after the terminator, and a Visual
    // FoxPro table's back link (zeros when none was read).
    std::vector<uint8_t> tail = header_tail;
    if (has_backlink(header[hdr_version]) && tail.size() < backlink_size)
        tail.resize(backlink_size, 0);
    const size_t head_length =
        header_size + descriptor_size * static_cast<size_t>(nf) + 1 + tail.size();
    if (head_length > 0xFFFF) return false;  // more than a header length can say
    put_u16(header + hdr_header_length, static_cast<uint16_t>(head_length));
    bool ok = qz::filesystem::replace_with(path, [this, &tail](int fd) {
        put_today(header);
        std::vector<uint8_t> head(header, header + header_size);
        for (int32_t k = 0; k < nf; ++k)
            head.insert(head.end(), descriptors[k].bytes, descriptors[k].bytes + descriptor_size);
        head.push_back(descriptor_terminator);
        head.insert(head.end(), tail.begin(), tail.end());
        if (!qz::filesystem::write_all(fd, head.data(), head.size())) return false;
        const unsigned int count = records->get_size();
        const size_t length = records->get_length();
        for (unsigned int i = 0; i < count && length > 0;) {
            unsigned int run = count - i;
            unsigned char* bytes = records->get_block(i, run);
            if (!bytes || run == 0) break;
            if (!qz::filesystem::write_all(fd, bytes, length * run)) return false;
            i += run;
        }
        const uint8_t eof = end_of_file;
        return qz::filesystem::write_all(fd, &eof, 1);
    });
    if (!ok) return false;
    save_cpg(path, cpg_kept);
    return true;
}

bool Tqz_dbf_memory_core::save(const char* path) {
    std::wstring w = path ? qz::basic::cp_to_wide(0, path, std::strlen(path)) : std::wstring();
    return save(w.c_str());
}

void Tqz_dbf_memory_core::close() {
    // Only the holder of the lock removes its file: a load that did not get
    // the lock leaves another holder's ".lk" alone.
    if (lock_file.win.is_open()) lock_file.win.close_and_remove(lock_path);
}

void Tqz_dbf_memory_core::add_records(unsigned int n) {
    begin_update();
    for (unsigned int i = 0; i < n; ++i) add();
    update();
    end_update();
}

unsigned int Tqz_dbf_memory_core::field_length(int field) {
    return field >= 0 && field < nf ? descriptors[field].flen() : 0;
}

unsigned char* Tqz_dbf_memory_core::cell(int field, int record, size_t want, size_t& avail) {
    avail = 0;
    if (field < 0 || field >= nf || record < 0 ||
        static_cast<unsigned int>(record) >= records->get_size())
        return nullptr;
    unsigned char* bytes = records->get_ptr(static_cast<unsigned int>(record));
    const size_t length = records->get_length();
    const size_t offset = descriptors[field].offset();
    if (!bytes || offset >= length) return nullptr;
    avail = std::min(want, length - offset);
    return bytes + offset;
}

bool Tqz_dbf_memory_core::has_record(unsigned int record) {
    return record < get_nr() && record < records->get_size();
}

const char* Tqz_dbf_memory_core::get_string(int field, int record) {
    size_t n = 0;
    const unsigned char* p = cell(field, record, field_length(field), n);
    if (p) std::memcpy(raw_buffer, p, n);
    raw_buffer[n] = 0;
    return raw_buffer;
}

// A binary value at the field's position; bytes past the record read as 0.
template <class T>
T Tqz_dbf_memory_core::read_value(int field, int record) {
    T value = 0;
    size_t n = 0;
    const unsigned char* p = cell(field, record, sizeof value, n);
    if (p) std::memcpy(&value, p, n);
    return value;
}

int Tqz_dbf_memory_core::get_integer(int field, int record) {
    const int32_t raw = read_value<int32_t>(field, record);
    return is_dbase7_version(header[hdr_version]) ? dbase7_integer(raw) : raw;
}

float Tqz_dbf_memory_core::get_float(int field, int record) {
    return read_value<float>(field, record);
}

double Tqz_dbf_memory_core::get_double(int field, int record) {
    return read_value<double>(field, record);
}

void Tqz_dbf_memory_core::set_string(int field, int record, const char* text) {
    begin_update();
    size_t n = 0;
    unsigned char* p = cell(field, record, field_length(field), n);
    if (p) {
        // As strncpy over the field: the text, then zero bytes.
        size_t len = text ? strnlen(text, n) : 0;
        if (len > 0) std::memcpy(p, text, len);
        std::memset(p + len, 0, n - len);
    }
    update();
    end_update();
}

void Tqz_dbf_memory_core::set_integer(int field, int record, int value) {
    // dBASE 7 integers are not written (their order-flipped form is read only).
    if (is_dbase7_version(header[hdr_version])) return;
    begin_update();
    update();
    // The field's length in bytes of the value, at most all four of them.
    size_t n = 0;
    unsigned char* p = cell(field, record, std::min<size_t>(field_length(field), sizeof value), n);
    if (p) std::memcpy(p, &value, n);
    update();
    end_update();
}

// A binary value at the field's position, cut at the end of the record;
// one bracket on the notifier.
template <class T>
void Tqz_dbf_memory_core::write_value(int field, int record, T value) {
    begin_update();
    size_t n = 0;
    unsigned char* p = cell(field, record, sizeof value, n);
    if (p) std::memcpy(p, &value, n);
    update();
    end_update();
}

void Tqz_dbf_memory_core::set_float(int field, int record, float value) {
    write_value<float>(field, record, value);
}

void Tqz_dbf_memory_core::set_double(int field, int record, double value) {
    write_value<double>(field, record, value);
}

bool Tqz_dbf_memory_core::add() {
    begin_update();
    records->add();
    set_record_count(get_nr() - 1);
    update();
    end_update();
    return true;
}

bool Tqz_dbf_memory_core::ins(unsigned int i) {
    begin_update();
    if (records->ins(i)) set_record_count(get_nr() + 1);
    update();
    end_update();
    return true;
}

bool Tqz_dbf_memory_core::del(unsigned int i) {
    begin_update();
    if (records->del(i)) set_record_count(get_nr() - 1);
    update();
    end_update();
    return true;
}

unsigned int Tqz_dbf_memory_core::get_record_size() {
    return get_record_length();
}

void Tqz_dbf_memory_core::get_record(unsigned int record, unsigned char* dst) {
    const size_t size = get_record_size();
    if (!dst || size == 0) return;
    std::memset(dst, 0, size);
    if (record >= records->get_size()) return;
    const size_t length = records->get_length();
    const size_t offset = nf > 0 ? descriptors[0].offset() : 1;
    const unsigned char* bytes = records->get_ptr(record);
    size_t n = 0;
    if (bytes && offset < length) {
        n = std::min(size, length - offset);
        std::memcpy(dst, bytes + offset, n);
    }
    if (n < size) {
        const unsigned char* next =
            record + 1 < records->get_size() ? records->get_ptr(record + 1) : nullptr;
        dst[n] = next && length > 0 ? next[0] : end_of_file;
    }
}

bool Tqz_dbf_memory_core::set_record(unsigned int record, unsigned char* src) {
    if (!src || record >= records->get_size()) return false;
    begin_update();
    update();
    const size_t length = records->get_length();
    const size_t offset = nf > 0 ? descriptors[0].offset() : 1;
    unsigned char* bytes = records->get_ptr(record);
    if (bytes && offset < length)
        std::memcpy(bytes + offset, src, std::min<size_t>(get_record_size(), length - offset));
    end_update();
    return true;
}

void Tqz_dbf_memory_core::swap_structure(Tqz_dbf_memory_core* other) {
    if (!other || other == this) return;
    uint8_t image[header_size];
    std::memcpy(image, header, header_size);
    std::memcpy(header, other->header, header_size);
    std::memcpy(other->header, image, header_size);
    std::swap(nf, other->nf);
    std::swap(descriptors, other->descriptors);
    std::swap(field_index, other->field_index);
    std::swap(records, other->records);
}

int Tqz_dbf_memory_core::get_deleted(unsigned int record) {
    if (!has_record(record)) return -1;
    const unsigned char* bytes = records->get_ptr(record);
    return bytes && records->get_length() > 0 && bytes[0] == '*' ? 1 : 0;
}

bool Tqz_dbf_memory_core::set_deleted(unsigned int record, bool deleted) {
    if (!has_record(record)) return false;
    unsigned char* bytes = records->get_ptr(record);
    if (!bytes || records->get_length() == 0) return false;
    bytes[0] = deleted ? '*' : ' ';
    return true;
}

bool Tqz_dbf_memory_core::set_cell_bytes(unsigned int field, unsigned int record, const void* bytes,
                                         size_t n) {
    if (!bytes) return false;
    size_t avail = 0;
    unsigned char* p = cell_span(field, record, avail);
    if (!p) return false;
    std::memcpy(p, bytes, std::min(n, avail));
    return true;
}

bool Tqz_dbf_memory_core::get_cell_bytes(unsigned int field, unsigned int record,
                                         std::string& out) {
    out.clear();
    size_t avail = 0;
    const unsigned char* p = cell_span(field, record, avail);
    if (!p) return false;
    out.assign(reinterpret_cast<const char*>(p), avail);
    return true;
}

unsigned char* Tqz_dbf_memory_core::cell_span(unsigned int field, unsigned int record,
                                              size_t& avail) {
    avail = 0;
    unsigned int offset = 0, width = 0;
    if (!has_record(record) || !qz::dbf::field_span(*this, field, offset, width)) return nullptr;
    unsigned char* bytes = records->get_ptr(record);
    const size_t length = records->get_length();
    if (!bytes || offset >= length) return nullptr;
    avail = std::min<size_t>(width, length - offset);
    return bytes + offset;
}
