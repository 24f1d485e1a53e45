// Cells read as typed values, by field type, with text in the table's
// chosen encoding converted to UTF-8: one cell, a record, a column.
#include <string>
#include <vector>

#include "api/cell_errors.h"
#include "api/guard.h"
#include "api/table_rw.h"
#include "api/value_read.h"
#include "dbf/basic_table.h"
#include "errors/last_error.h"
#include "qzk_file_dbf_ext.h"

using qz::api::guarded;

namespace {

// Reads the cells of `count` (field, record) pairs into `values`, their
// texts one after another in the handle's text store, each closed by a NUL.
template <class Cell>
long read_cells(Tqz_dbf_rw* h, Tqz_dbf_value* values, unsigned int count, Cell&& cell_of) {
    qz::api::cell_reader* reader = qz::api::cell_reader::of(h);
    if (!reader) return -1;
    if (!values && count > 0) {
        qz::errors::set(qz::errors::argument, "no array for the values");
        return -1;
    }
    std::string& store = h->values_text;
    store.clear();
    std::vector<size_t>& at = reader->text_at;
    at.resize(count);
    for (unsigned int k = 0; k < count; ++k) {
        unsigned int field, record;
        cell_of(k, field, record);
        at[k] = store.size();
        if (!reader->read(field, record, values[k], store)) {
            // Every value asked for is null, not only those read so far.
            for (unsigned int j = 0; j < count; ++j) values[j] = Tqz_dbf_value{0, 0, 0.0, "", 0};
            return -1;
        }
        store.push_back('\0');
    }
    for (unsigned int k = 0; k < count; ++k) values[k].text = store.data() + at[k];
    return count;
}

}  // namespace

extern "C" {

QZ_DBF_API bool qz_dbf_get_value(Tqz_dbf_rw* h, unsigned int field, unsigned int record,
                                 Tqz_dbf_value* v) {
    return guarded(false, [&] {
        if (v) *v = Tqz_dbf_value{QZ_DBF_VALUE_NULL, 0, 0.0, "", 0};
        if (!v) {
            qz::api::no_table(h);
            return false;
        }
        qz::api::cell_reader* reader = qz::api::cell_reader::of(h);
        if (!reader) return false;
        h->value_text.clear();
        if (!reader->read(field, record, *v, h->value_text)) return false;
        v->text = h->value_text.c_str();
        return true;
    });
}

QZ_DBF_API long qz_dbf_get_record_values(Tqz_dbf_rw* h, unsigned int record, Tqz_dbf_value* values,
                                         unsigned int count) {
    return guarded(-1L, [&]() -> long {
        const unsigned int nf = h ? h->get_nf() : 0;
        if (count > nf) count = nf;
        return read_cells(h, values, count, [&](unsigned int k, unsigned int& f, unsigned int& r) {
            f = k;
            r = record;
        });
    });
}

QZ_DBF_API long qz_dbf_get_column_values(Tqz_dbf_rw* h, unsigned int field,
                                         unsigned int first_record, unsigned int count,
                                         Tqz_dbf_value* values) {
    return guarded(-1L, [&]() -> long {
        const unsigned int nr = h ? h->get_nr() : 0;
        if (h && h->current() && first_record < nr && count > nr - first_record)
            count = nr - first_record;
        return read_cells(h, values, count, [&](unsigned int k, unsigned int& f, unsigned int& r) {
            f = field;
            r = first_record + k;
        });
    });
}

}  // extern "C"
