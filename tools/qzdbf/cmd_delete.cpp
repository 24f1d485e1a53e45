// qzdbf delete PATH RECORD...
//
// Removes the named records from the table for good (not by their deletion
// flags): the kept records are copied to a new table that takes the old
// one's place whole. Shared with pack and with edit's delmask.
#include <cstdio>
#include <string>
#include <vector>

#include "checked_open.h"
#include "cli.h"
#include "command.h"
#include "progress.h"
#include "qzk_basic.h"
#include "qzk_file_dbf_ext.h"

namespace qzdbf {

namespace {

// Why a deletion by mask failed, for a person.
std::string reason_text(int reason, const std::string& path) {
    switch (reason) {
        case QZ_DBF_DELMASK_CANNOT_OPEN:
            return "cannot open '" + path + "' (missing or not a table)";
        case QZ_DBF_DELMASK_LOCKED:
            return "'" + path + "' is open for writing elsewhere; nothing changed";
        case QZ_DBF_DELMASK_COPY_FAILED:
            return "cannot write the temporary copy in the temporary folder; nothing changed";
        case QZ_DBF_DELMASK_UNKNOWN_LAYOUT:
            return "the fields of '" + path +
                   "' do not fill its records exactly; a copy would lose bytes, nothing changed";
        case QZ_DBF_DELMASK_REPLACE_FAILED:
            return "cannot put the new table in place of '" + path + "'; nothing changed";
        default:
            return "cannot delete records of '" + path + "'";
    }
}

// The records a mask of `args` (record indexes of `table`) names; false
// with a message for a bad or repeated index.
bool mask_from_records(Tqz_dbf_rw* table, const Args& args, void* mask, std::string& error) {
    for (const std::string& arg : args) {
        unsigned int record = 0;
        if (!resolve_record(table, arg, record, error)) return false;
        if (qz_bits_get_bit(mask, record)) {
            error = "record " + arg + " is named twice";
            return false;
        }
        qz_bits_set_bit(mask, record, 1);
    }
    return true;
}

}  // namespace

std::wstring widen_path(const std::string& path) {
    const int n = qz_code_page_to_wide(0, path.data(), static_cast<int>(path.size()), nullptr, 0);
    std::wstring wide(static_cast<size_t>(n > 0 ? n : 0), L'\0');
    if (n > 0) qz_code_page_to_wide(0, path.data(), static_cast<int>(path.size()), &wide[0], n);
    return wide;
}

int remove_by_mask(const std::string& path, void* mask, const char* what) {
    Tqz_dbf_rw* table = qz_dbf_open(path.c_str(), true, false);
    const unsigned int before = table ? qz_dbf_get_nr(table) : 0;
    if (table) qz_dbf_close(table);
    Progress bar(what, before);
    const int reason = qz_dbf_del_records_by_msk_progress_w(widen_path(path).c_str(), mask,
                                                            Progress::library_callback, &bar);
    bar.finish();
    if (reason != QZ_DBF_DELMASK_DONE)
        return fail(reason == QZ_DBF_DELMASK_LOCKED ? kIoError : kFailed,
                    reason_text(reason, path));
    table = qz_dbf_open(path.c_str(), true, false);
    if (!table) return fail(kFailed, "cannot open '" + path + "' after the deletion");
    const unsigned int after = qz_dbf_get_nr(table);
    qz_dbf_close(table);
    const unsigned int gone = before > after ? before - after : 0;
    std::printf("removed %u record%s, %u left\n", gone, gone == 1 ? "" : "s", after);
    return kOk;
}

Runner setup_delete(CLI::App& cmd) {
    auto path = std::make_shared<std::string>();
    auto records = std::make_shared<Args>();
    cmd.add_option("PATH", *path, "the table (rewritten without the records)")->required();
    cmd.add_option("RECORD", *records, "record indexes, counted from 0")->required();
    return [path, records] {
        int status = kOk;
        Tqz_dbf_rw* table = open_table(*path, Access::write, false, status);
        if (!table) return status;
        void* mask = qz_bits_create();
        std::string error;
        const bool named = mask_from_records(table, *records, mask, error);
        qz_dbf_close(table);
        status = named ? remove_by_mask(*path, mask) : fail(kBadUsage, error);
        qz_bits_destroy(mask);
        return status;
    };
}

bool edit_delmask(Tqz_dbf_rw* view, const std::string& path, const Args& records,
                  std::string& error) {
    if (records.empty()) {
        error = "delmask needs RECORD...";
        return false;
    }
    void* mask = qz_bits_create();
    const unsigned int before = qz_dbf_get_nr(view);
    bool done = mask_from_records(view, records, mask, error);
    if (done) {
        // The path is loaded in memory: the export removes the records there,
        // as one step that undo takes back.
        const int reason = qz_dbf_del_records_by_msk_why_w(widen_path(path).c_str(), mask);
        done = reason == QZ_DBF_DELMASK_DONE;
        if (!done) error = reason_text(reason, path);
    }
    qz_bits_destroy(mask);
    if (done) {
        const unsigned int after = qz_dbf_get_nr(view);
        std::printf("removed %u record%s, %u left\n", before - after,
                    before - after == 1 ? "" : "s", after);
    }
    return done;
}

}  // namespace qzdbf
