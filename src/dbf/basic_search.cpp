// Value search of Tqz_dbf_basic: a scan of one field comparing without
// regard to letter case, and the fast-find index of one field.
//
// Both compare the cells as get_as_string gives them (system text), trimmed.
// The scan stops at the first match; the index keeps, for each text, the
// last record that holds it and compares case-sensitively.
#include <cstring>
#include <string>

#include "dbf/basic_table.h"
#include "qzk_basic.h"

namespace {

bool is_ws(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// The trimmed part of `text`: its start and length.
const char* trimmed(const char* text, size_t& len) {
    while (is_ws(*text)) ++text;
    const char* end = text + std::strlen(text);
    while (end > text && is_ws(end[-1])) --end;
    len = static_cast<size_t>(end - text);
    return text;
}

}  // namespace

bool Tqz_dbf_basic::find_value(unsigned int field, const char* value, unsigned int& record) {
    if (!value) return false;
    size_t len;
    const char* v = trimmed(value, len);
    const unsigned int nr = get_nr();
    if (nr == 0 || field >= get_nf()) return false;
    // The value and each cell are compared as characters of the system code
    // page, case folded by Unicode rules, so Cyrillic letters match whatever
    // the table's encoding.
    std::wstring wanted, cell;
    converter.to_wide(0, v, len, wanted);
    // When all records read alike, the first one answers for all of them.
    const unsigned int scan = records_alike() ? 1 : nr;
    for (unsigned int r = 0; r < scan; ++r) {
        if (!has_record(r)) break;  // nor any record after it
        bool ok = false;
        const char* text = get_as_string(field, r, ok);
        if (!ok) continue;
        size_t n;
        const char* t = trimmed(text, n);
        converter.to_wide(0, t, n, cell);
        if (qz_text_icompare_w(cell.c_str(), wanted.c_str()) == 0) {
            record = r;
            return true;
        }
    }
    return false;
}

void Tqz_dbf_basic::begin_fast_find(unsigned int field) {
    fast_index.clear();
    const unsigned int nr = get_nr();
    if (field >= get_nf()) return;
    // When all records read alike, the last one holds the one text and
    // wins over all the others.
    const unsigned int first = records_alike() && nr > 0 ? nr - 1 : 0;
    // The count is the header's claim: reserve for a modest table only and
    // let the index grow with the records the storage really holds.
    fast_index.reserve(nr - first < (1u << 16) ? nr - first : (1u << 16));
    for (unsigned int r = first; r < nr; ++r) {
        if (!has_record(r)) break;
        bool ok = false;
        const char* text = get_as_string(field, r, ok);
        if (!ok) continue;
        size_t n;
        const char* t = trimmed(text, n);
        fast_index.add(t, n, r);
    }
    fast_index.build();
}

bool Tqz_dbf_basic::find_value_fast(const char* value, unsigned int& record) {
    if (!value) return false;
    size_t len;
    const char* v = trimmed(value, len);
    uint32_t r;
    if (!fast_index.find(v, len, r)) return false;
    record = r;
    return true;
}

void Tqz_dbf_basic::end_fast_find() {
    fast_index.clear();
}
