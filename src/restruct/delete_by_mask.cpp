#include "restruct/delete_by_mask.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "api/table_rw.h"
#include "dbf/basic_table.h"
#include "dbf/disk_table.h"
#include "memory/memory_table.h"
#include "errors/last_error.h"
#include "qzk_basic.h"
#include "restruct/progress_report.h"
#include "support/filesystem.h"
#include "support/fileio.h"
#include "support/safe_replace.h"
#include "support/wait_lock.h"

namespace qz::restruct {

namespace {

constexpr const wchar_t* kTempName = L"temp_minus_dbf.dbf";

// The copy's fields, read from the source through its interface; the type
// letter comes from the type number ("CCNLMDFIBP", 'C' past the end).
std::vector<Tqz_dbf_field> field_list(Tqz_dbf_rw& source, unsigned int nf) {
    static const char letters[] = "CCNLMDFIBP";
    std::vector<Tqz_dbf_field> fields(nf);
    for (unsigned int i = 0; i < nf; ++i) {
        Tqz_dbf_field& f = fields[i];
        std::memset(&f, 0, sizeof f);
        if (const char* name = source.get_field_name(i)) std::strncpy(f.name, name, 10);
        const unsigned type = static_cast<unsigned>(source.get_field_type(i));
        f.type = type < 10 ? letters[type] : 'C';
        f.flen = static_cast<unsigned char>(source.get_field_flen(i));
        f.dlen = static_cast<signed char>(source.get_field_dlen(i));
    }
    return fields;
}

// The records the source really holds: its header's count, less any that a
// short file does not hold whole, so that a header claiming more records
// than the file has costs nothing and makes no larger copy.
unsigned int held_records(Tqz_dbf_rw& source) {
    const unsigned int nr = source.get_nr();
    auto* table = dynamic_cast<Tqz_dbf_basic*>(source.current());
    if (!table || nr == 0 || table->has_record(nr - 1)) return nr;
    unsigned int lo = 0, hi = nr - 1;  // records below lo are held, hi is not
    while (lo < hi) {
        const unsigned int mid = lo + (hi - lo) / 2;
        if (table->has_record(mid))
            lo = mid + 1;
        else
            hi = mid;
    }
    return lo;
}

// Whether the file at `path` holds its header and all `records` records
// its header announces: the copy is put in place only when it is whole.
bool whole_copy(const std::wstring& path, unsigned int records) {
    FILE* f = qz::filesystem::wfopen(path, "rb");
    if (!f) return false;
    unsigned char head[12] = {};
    const bool read = std::fread(head, 1, sizeof head, f) == sizeof head;
    const uint64_t size = qz::filesystem::stream_size(f);
    std::fclose(f);
    if (!read) return false;
    const uint32_t count = head[4] | head[5] << 8 | head[6] << 16 | uint32_t{head[7]} << 24;
    const uint64_t header_length = head[8] | head[9] << 8;
    const uint64_t record_length = head[10] | head[11] << 8;
    return count == records && size >= header_length + record_length * records;
}

// Memo cells keep their block references: the memo file stays as it is, so
// a memo value written as text would lose the memo. Both tables lay their
// fields one after another (the source is checked to), so a cell lies at
// the same offset in both record images.
class Memo_carrier {
  public:
    Memo_carrier(Tqz_dbf_rw& source, Tqz_dbf_rw& copy)
        : from(dynamic_cast<Tqz_dbf_disk*>(source.current())),
          to(dynamic_cast<Tqz_dbf_disk*>(copy.current())) {
        if (!from || !to || from->get_record_size() != to->get_record_size()) return;
        size_t offset = 0;
        for (unsigned int f = 0; f < source.get_nf(); ++f) {
            const size_t len = source.get_field_flen(f);
            if (source.get_field_type(f) == dbf_ft_memo) cells.push_back({offset, len});
            offset += len;
        }
        if (!cells.empty()) {
            source_image.resize(from->get_record_size());
            copy_image.resize(to->get_record_size());
        }
    }
    bool needed() const { return !cells.empty(); }
    // Copies the memo cells of source record `r` into copy record `c`.
    void carry(unsigned int r, unsigned int c) {
        if (cells.empty()) return;
        from->get_record(r, source_image.data());
        to->get_record(c, copy_image.data());
        for (const auto& cell : cells) {
            if (cell.first + cell.second <= source_image.size())
                std::memcpy(copy_image.data() + cell.first, source_image.data() + cell.first,
                            cell.second);
        }
        to->set_record(c, copy_image.data());
    }

  private:
    Tqz_dbf_disk* from;
    Tqz_dbf_disk* to;
    std::vector<std::pair<size_t, size_t>> cells;  // offset and length in the image
    std::vector<unsigned char> source_image, copy_image;
};

// Writes the kept records of `source` to a new table at `temp`: values
// travel as text (memo references as they are), deletion flags are not
// copied. False when the copy failed or `progress` asked to stop.
bool write_copy(Tqz_dbf_rw& source, const std::wstring& temp, void* mask, unsigned int& kept,
                Progress_report& progress) {
    const unsigned int nf = source.get_nf();
    const unsigned int nr = held_records(source);
    const unsigned int gone = qz_bits_get_val_count(mask, 1);
    // Bits past the last record count too, so the copy may be shorter than
    // the kept records; the writes past its end change nothing.
    kept = gone < nr ? nr - gone : 0;
    std::vector<Tqz_dbf_field> fields = field_list(source, nf);
    auto copy = std::make_unique<Tqz_dbf_rw>();
    if (copy->create(temp.c_str(), nf, kept, fields.empty() ? nullptr : fields.data(), false) !=
        0) {
        return false;
    }
    // The text goes back in the encoding it came from (the table's .cpg
    // file stays as it is).
    copy->set_utf8_flag(source.get_utf8_flag());
    copy->set_dos_flag(source.get_dos_flag());
    progress.start(nr);
    unsigned int skipped = 0;
    for (unsigned int r = 0; r < nr; ++r) {
        if (!progress.advance(r)) return false;
        if (qz_bits_get_bit(mask, r)) {
            ++skipped;
            continue;
        }
        if (r - skipped >= kept) continue;
        for (unsigned int f = 0; f < nf; ++f) {
            bool ok = false;
            const char* text = source.get_as_string(f, r, ok);
            copy->set_as_string(f, r - skipped, text ? text : "");
        }
    }
    copy->close();
    // The memo references, once the copy can be read: opened again.
    if (copy->open(temp.c_str(), false, false) != 0) return false;
    Memo_carrier memos(source, *copy);
    if (memos.needed()) {
        skipped = 0;
        for (unsigned int r = 0; r < nr; ++r) {
            if (qz_bits_get_bit(mask, r))
                ++skipped;
            else if (r - skipped < kept)
                memos.carry(r, r - skipped);
        }
    }
    copy->close();
    return whole_copy(temp, kept) && progress.finish();
}

}  // namespace

delete_outcome delete_by_mask(Tqz_dbf_rw& handle, const wchar_t* path, void* mask,
                              Progress_report* progress) {
    Progress_report silent;
    Progress_report& report = progress ? *progress : silent;
    if (!path) return delete_outcome::cannot_open;
    if (handle.open(path, true, false) != 0) {
        handle.close();
        return delete_outcome::cannot_open;
    }
    if (Tqz_dbf_memory* memory = handle.memory_table()) {
        if (!mask) {
            handle.close();
            return delete_outcome::no_mask;
        }
        const bool done = memory->delete_records_by_msk(mask);
        handle.close();
        return done ? delete_outcome::done : delete_outcome::cannot_open;
    }
    if (!mask) {
        handle.close();
        return delete_outcome::no_mask;
    }
    // A file without a single field is no table to rewrite: the copy would
    // only replace whatever it holds by an empty header.
    if (handle.get_nf() == 0) {
        handle.close();
        return delete_outcome::cannot_open;
    }
    // Nor is a file whose fields do not fill its records exactly (a layout
    // read otherwise than it was written, or bytes between the fields): the
    // copy, with the fields one after another, would lose what lies there.
    if (auto* disk = dynamic_cast<Tqz_dbf_disk*>(handle.current())) {
        unsigned long filled = 1;
        for (unsigned int f = 0; f < handle.get_nf(); ++f) filled += handle.get_field_flen(f);
        if (filled != disk->get_record_size()) {
            handle.close();
            return delete_outcome::unknown_layout;
        }
    }
    // The table's writer lock, held until the new table is in place: no
    // other writer changes the old one meanwhile, and none holds it now.
    // The table is read again under the lock, so that what is copied is
    // what no writer can change any more.
    handle.close();
    const std::wstring table_path = path;
    qz::detail::fileio_win lock;
    if (!lock.open(table_path + L".lk", qz::detail::access_write, qz::detail::lock_exclusive))
        return delete_outcome::locked;
    if (handle.open(path, true, false) != 0 || handle.memory_table()) {
        handle.close();
        lock.close_and_remove(table_path + L".lk");
        return delete_outcome::cannot_open;
    }
    const wchar_t* folder = qz_options_get_temp_wpath();
    const std::wstring temp = std::wstring(folder ? folder : L"") + kTempName;
    // The temporary file has one name for every process: a second process
    // deleting by mask waits until the first has put its copy in place.
    qz::filesystem::wait_lock temp_in_use;
    if (!temp_in_use.take(temp + L".busy", 60000)) {
        handle.close();
        lock.close_and_remove(table_path + L".lk");
        return delete_outcome::copy_failed;
    }
    qz::filesystem::remove_file(temp);

    unsigned int kept = 0;
    const bool copied = write_copy(handle, temp, mask, kept, report);
    handle.close();
    delete_outcome outcome = delete_outcome::copy_failed;
    if (report.cancelled()) {
        qz::filesystem::remove_file(temp);
        qz::errors::set(qz::errors::cancelled, table_path, "cancelled; the table is unchanged");
        outcome = delete_outcome::cancelled;
    } else if (copied) {
        outcome = qz::filesystem::replace_by_copy(temp, table_path)
                      ? delete_outcome::done
                      : delete_outcome::replace_failed;
    }
    lock.close_and_remove(table_path + L".lk");
    return outcome;
}

unsigned int classic_result(delete_outcome outcome) {
    switch (outcome) {
        case delete_outcome::done:
        case delete_outcome::copy_failed:
        case delete_outcome::replace_failed:
            return 0;
        default:
            return 1;
    }
}

}  // namespace qz::restruct

unsigned int Tqz_dbf_rw::delete_records_by_msk(const wchar_t* path, void* mask) {
    return qz::restruct::classic_result(qz::restruct::delete_by_mask(*this, path, mask));
}
