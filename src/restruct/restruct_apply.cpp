// Applying a descriptor to its table file.
//
// A table held as a memory table is restructured in place (one undoable
// step). A table file is rewritten:
//  1. the table must open; it is offered to an in-place restructure first;
//  2. its writer lock is taken (a table another writer holds is left alone);
//  3. the table is copied to "<path>.bak.dbf" (with its .cpg beside it),
//     written to a sibling and renamed, so the backup is whole once it
//     exists;
//  4. the new table is written from the backup to a sibling of the table,
//     a window of records at a time, synced and renamed over the table;
//  5. the backup files are removed.
// A process killed at any moment leaves a whole table at the path (the old
// one, or the new one with the whole backup beside it). The memo file is
// not rewritten: memo fields keep their block numbers.
#include <algorithm>
#include <memory>

#include "api/table_rw.h"
#include "errors/last_error.h"
#include "memory/records.h"
#include "restruct/progress_report.h"
#include "restruct/restruct_sink.h"
#include "restruct/rstrct.h"
#include "support/filesystem.h"
#include "support/fileio.h"
#include "support/safe_replace.h"

namespace {

// The records a table really holds: its header's count, cut to the records
// that its storage has (a broken header may claim more than the file holds).
unsigned int held_records(Tqz_dbf_ibasic& table) {
    unsigned int nr = table.get_nr();
    auto* dbf = dynamic_cast<Tqz_dbf_basic*>(&table);
    if (!dbf || nr == 0 || dbf->has_record(nr - 1)) return nr;
    unsigned int lo = 0, hi = nr - 1;  // has_record(hi) is false
    while (lo < hi) {
        unsigned int mid = lo + (hi - lo) / 2;
        if (dbf->has_record(mid))
            lo = mid + 1;
        else
            hi = mid;
    }
    return lo;
}

// Writes the new table, laid out in `sink`, from `old` to `fd`. False when
// a write fails or `progress` asks to stop.
bool write_table(int fd, Tqz_dbf_ibasic& old, Tqz_restruct_sink& sink,
                 qz::restruct::Progress_report& progress) {
    const unsigned int nr = held_records(old);
    progress.start(nr);
    std::vector<unsigned char> head = sink.file_head(nr);
    if (!qz::filesystem::write_all(fd, head.data(), head.size())) return false;
    const size_t length = sink.get_records()->get_length();
    const unsigned int window = sink.get_records()->get_size();
    for (unsigned int first = 0; first < nr; first += window) {
        const unsigned int count = std::min(window, nr - first);
        sink.fill(first, count);
        for (unsigned int i = 0; i < count;) {
            unsigned int run = count - i;
            unsigned char* bytes = sink.get_records()->get_block(i, run);
            if (!bytes || !qz::filesystem::write_all(fd, bytes, length * run)) return false;
            i += run;
        }
        if (!progress.advance(uint64_t{first} + count)) return false;
    }
    const unsigned char eof = qz::dbf::end_of_file;
    return qz::filesystem::write_all(fd, &eof, 1) && progress.finish();
}

}  // namespace

bool Tqz_dbf_rstrct::apply_restruct(qz::restruct::Progress_report* progress) {
    qz::restruct::Progress_report silent;
    qz::restruct::Progress_report& report = progress ? *progress : silent;
    // 1. The table must open; nothing is touched otherwise.
    Tqz_dbf_rw* probe = qz_dbf_open_w(path.c_str(), true, false);
    if (!probe) return false;
    qz_dbf_close(probe);

    // 2. A table that can restructure itself (a memory table) does so.
    Tqz_dbf_rw* table = qz_dbf_open_w(path.c_str(), true, false);
    if (!table) return false;
    const bool in_place = qz_dbf_try_restruct(table, this);
    qz_dbf_close(table);
    if (in_place) return true;

    // The rewrite replaces the file: no other writer may hold it meanwhile.
    const std::wstring lock_path = path + L".lk";
    qz::detail::fileio_win lock;
    if (!lock.open(lock_path, qz::detail::access_write, qz::detail::lock_exclusive)) return false;
    struct Unlock {
        qz::detail::fileio_win& lock;
        const std::wstring& path;
        ~Unlock() { lock.close_and_remove(path); }
    } unlock{lock, lock_path};
    // Siblings a killed rewrite left behind (ours are made under this lock).
    const std::wstring backup = path + L".bak.dbf";
    qz::filesystem::remove_stale_siblings(path);
    qz::filesystem::remove_stale_siblings(backup);

    // 3. The backup, whole or not at all, and its code-page file.
    if (!qz::filesystem::replace_by_copy(path, backup)) return false;
    const std::wstring cpg =
        qz::filesystem::find_companion(qz::filesystem::change_extension(path, L".cpg"));
    const std::wstring backup_cpg = qz::filesystem::change_extension(backup, L".cpg");
    if (qz::filesystem::path_exist(cpg)) qz::filesystem::copy_file(cpg, backup_cpg, true);

    // 4. The new table from the backup, put in place by a rename.
    bool made = false;
    {
        Tqz_dbf_rw old_rw;
        if (old_rw.open(backup.c_str(), true, false) == 0 && old_rw.current()) {
            Tqz_dbf_ibasic& old = *old_rw.current();
            auto sink =
                std::make_unique<Tqz_restruct_sink>(old, *this, qz::restruct::Conversion::file);
            const size_t length = 1 + [&] {
                size_t n = 0;
                for (const Tqz_fld_meta& e : fields) n += e.get_field().flen;
                return n;
            }();
            const unsigned int window = static_cast<unsigned int>(
                std::max<size_t>(1, std::min<size_t>((8u << 20) / length, held_records(old))));
            if (sink->lay_out(window)) {
                made = qz::filesystem::replace_with(
                    path, [&](int fd) { return write_table(fd, old, *sink, report); });
                // The code-page file says the table's encoding, as a table
                // file's close writes it.
                if (made) sink->save_cpg(path, false);
            }
        }
        old_rw.close();
    }

    // 5. Either way the table at the path is whole: the backup goes.
    qz::filesystem::remove_file(backup);
    qz::filesystem::remove_file(backup_cpg);
    if (report.cancelled())
        qz::errors::set(qz::errors::cancelled, path, "cancelled; the table is unchanged");
    return made;
}
