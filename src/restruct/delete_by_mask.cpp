#include "restruct/delete_by_mask.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "api/table_rw.h"
#include "memory/memory_table.h"
#include "qzk_basic.h"
#include "support/filesystem.h"
#include "support/fileio.h"
#include "support/safe_replace.h"

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

// Writes the kept records of `source` to a new table at `temp`: values
// travel as text, deletion flags are not copied.
bool write_copy(Tqz_dbf_rw& source, const std::wstring& temp, void* mask, unsigned int& kept) {
    const unsigned int nf = source.get_nf();
    const unsigned int nr = source.get_nr();
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
    unsigned int skipped = 0;
    for (unsigned int r = 0; r < nr; ++r) {
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
    return whole_copy(temp, kept);
}

}  // namespace

delete_outcome delete_by_mask(Tqz_dbf_rw& handle, const wchar_t* path, void* mask) {
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
    // The table's writer lock, held until the new table is in place: no
    // other writer changes the old one meanwhile, and none holds it now.
    const std::wstring table_path = path;
    qz::detail::fileio_win lock;
    if (!lock.open(table_path + L".lk", qz::detail::access_write, qz::detail::lock_exclusive)) {
        handle.close();
        return delete_outcome::locked;
    }
    const wchar_t* folder = qz_options_get_temp_wpath();
    const std::wstring temp = std::wstring(folder ? folder : L"") + kTempName;
    qz::filesystem::remove_file(temp);

    unsigned int kept = 0;
    const bool copied = write_copy(handle, temp, mask, kept);
    handle.close();
    delete_outcome outcome = delete_outcome::copy_failed;
    if (copied) {
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
