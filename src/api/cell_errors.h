// The reasons the table exports give when a call on a handle fails.
#pragma once

#include "api/table_rw.h"

namespace qz::api {

// The handle is null or has no table open.
void no_table(Tqz_dbf_rw* h);
// A call on a cell failed: names the missing field or record, or else gives
// `what` about the cell (nothing is recorded when `what` is null and the
// cell exists).
void cell_failed(Tqz_dbf_rw* h, Tqz_dbf_ibasic* t, unsigned int field, unsigned int record,
                 const char* what);

}  // namespace qz::api
