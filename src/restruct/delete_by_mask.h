// Removing records from a table by a bit mask: bit r set means record r
// goes. A table loaded in memory loses the records as one undoable step;
// a table on disk is rewritten through a temporary copy holding only the
// kept records, which then takes the table's place whole (a sibling file,
// flushed and renamed over it), so that a process killed at any moment
// leaves either the old table or the new one.
#pragma once

class Tqz_dbf_rw;

namespace qz::restruct {

// Why a deletion by mask ended as it did.
enum class delete_outcome {
    done = 0,            // the records are gone (memory or disk)
    cannot_open = 1,     // the table could not be opened
    locked = 2,          // another writer holds the table: nothing changed
    no_mask = 3,         // the mask is null: nothing changed
    copy_failed = 4,     // the temporary copy could not be made whole
    replace_failed = 5,  // the copy could not be put in place of the table
    unknown_layout = 6,  // the fields do not fill the records exactly
    cancelled = 7,       // the progress callback asked to stop: nothing changed
};

class Progress_report;

// Deletes the records of `path` whose bits are set in `mask`, through
// `handle` (closed again on return). On every outcome but done, the table
// at `path` is as it was. `progress`, when given, hears how many of the
// table's records the copy has been through.
delete_outcome delete_by_mask(Tqz_dbf_rw& handle, const wchar_t* path, void* mask,
                              Progress_report* progress = nullptr);

// The classic result of an outcome: 0 for done and for failures of the
// copy or its putting in place (the table is unchanged then), 1 otherwise.
unsigned int classic_result(delete_outcome outcome);

}  // namespace qz::restruct
