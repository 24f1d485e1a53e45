// Exports that read and change a table's properties through its handle.
// Each calls the current table directly and answers with the neutral result
// when the handle has no table.
#include <cstring>
#include <string>

#include "api/guard.h"
#include "api/table_rw.h"
#include "api/cell_errors.h"
#include "errors/last_error.h"
#include "dbf/basic_table.h"
#include "qzk_file_dbf.h"

using qz::api::cell_failed;
using qz::api::guarded;
using qz::api::no_table;

namespace {

template <class R, class F>
R on_table(Tqz_dbf_rw* h, R neutral, F&& call) {
    return guarded(neutral, [&] {
        Tqz_dbf_ibasic* t = h ? h->current() : nullptr;
        if (!t) no_table(h);
        return t ? call(t) : neutral;
    });
}

template <class F>
void on_table(Tqz_dbf_rw* h, F&& call) {
    guarded([&] {
        if (Tqz_dbf_ibasic* t = h ? h->current() : nullptr)
            call(t);
        else
            no_table(h);
    });
}

// A call on one cell: when `failed` says the result is a failure, the last
// error tells why (no such field or record, or the value).
template <class R, class F, class Failed>
R on_cell(Tqz_dbf_rw* h, unsigned int field, unsigned int record, R neutral, const char* what,
          F&& call, Failed&& failed) {
    return on_table(h, neutral, [&](Tqz_dbf_ibasic* t) {
        R result = call(t);
        if (failed(result)) cell_failed(h, t, field, record, what);
        return result;
    });
}

const auto is_false = [](bool r) { return !r; };

// Records why a call on a field that does not exist does nothing.
void no_field(Tqz_dbf_rw* h, Tqz_dbf_ibasic* t, unsigned int field) {
    if (field >= t->get_nf()) cell_failed(h, t, field, 0, nullptr);
}

}  // namespace

extern "C" {

QZ_DBF_API bool qz_dbf_get_dos_flag(Tqz_dbf_rw* h) {
    return on_table(h, false, [](Tqz_dbf_ibasic* t) { return t->get_dos_flag(); });
}

QZ_DBF_API void qz_dbf_set_dos_flag(Tqz_dbf_rw* h, bool on) {
    on_table(h, [&](Tqz_dbf_ibasic* t) { t->set_dos_flag(on); });
}

QZ_DBF_API bool qz_dbf_get_utf8_flag(Tqz_dbf_rw* h) {
    return on_table(h, false, [](Tqz_dbf_ibasic* t) { return t->get_utf8_flag(); });
}

QZ_DBF_API void qz_dbf_set_utf8_flag(Tqz_dbf_rw* h, bool on) {
    on_table(h, [&](Tqz_dbf_ibasic* t) { t->set_utf8_flag(on); });
}

QZ_DBF_API unsigned int qz_dbf_get_nl(Tqz_dbf_rw* h) {
    return on_table(h, 0u, [](Tqz_dbf_ibasic* t) { return t->get_nl(); });
}

QZ_DBF_API unsigned int qz_dbf_get_nf(Tqz_dbf_rw* h) {
    return on_table(h, 0u, [](Tqz_dbf_ibasic* t) { return t->get_nf(); });
}

QZ_DBF_API unsigned int qz_dbf_get_nr(Tqz_dbf_rw* h) {
    return on_table(h, 0u, [](Tqz_dbf_ibasic* t) { return t->get_nr(); });
}

QZ_DBF_API const char* qz_dbf_get_field_name(Tqz_dbf_rw* h, unsigned int field) {
    return on_table(h, static_cast<const char*>(nullptr), [&](Tqz_dbf_ibasic* t) {
        no_field(h, t, field);
        return t->get_field_name(field);
    });
}

QZ_DBF_API void qz_dbf_get_field_name_w(Tqz_dbf_rw* h, unsigned int field, Iqz_string_adp* adp) {
    on_table(h, [&](Tqz_dbf_ibasic* t) {
        no_field(h, t, field);
        t->get_field_name(field, adp);
    });
}

QZ_DBF_API Tqz_dbf_field_type qz_dbf_get_field_type(Tqz_dbf_rw* h, unsigned int field) {
    return on_table(h, dbf_ft_unknown, [&](Tqz_dbf_ibasic* t) {
        no_field(h, t, field);
        return t->get_field_type(field);
    });
}

QZ_DBF_API unsigned int qz_dbf_get_field_flen(Tqz_dbf_rw* h, unsigned int field) {
    return on_table(h, 0u, [&](Tqz_dbf_ibasic* t) {
        no_field(h, t, field);
        return static_cast<unsigned int>(static_cast<unsigned char>(t->get_field_flen(field)));
    });
}

QZ_DBF_API int qz_dbf_get_field_dlen(Tqz_dbf_rw* h, unsigned int field) {
    return on_table(h, 0, [&](Tqz_dbf_ibasic* t) {
        no_field(h, t, field);
        return static_cast<int>(static_cast<signed char>(t->get_field_dlen(field)));
    });
}

QZ_DBF_API unsigned int qz_dbf_find_field_index_w(Tqz_dbf_rw* h, const wchar_t* name) {
    return on_table(h, 0xFFFFFFFFu, [&](Tqz_dbf_ibasic* t) {
        const unsigned int index = t->find_field_index(name);
        if (index == 0xFFFFFFFFu)
            qz::errors::set(qz::errors::argument, h->get_path(), "no field of that name");
        return index;
    });
}

QZ_DBF_API unsigned int qz_dbf_get_layer(Tqz_dbf_rw* h) {
    return on_table(h, 0u, [](Tqz_dbf_ibasic* t) { return t->get_layer(); });
}

QZ_DBF_API bool qz_dbf_set_layer(Tqz_dbf_rw* h, unsigned int layer) {
    return on_table(h, false, [&](Tqz_dbf_ibasic* t) { return t->set_layer(layer); });
}

QZ_DBF_API void qz_dbf_get_layer_name(Tqz_dbf_rw* h, unsigned int layer, Iqz_string_adp* adp) {
    on_table(h, [&](Tqz_dbf_ibasic* t) { t->get_layer_name(layer, adp); });
}

QZ_DBF_API void qz_dbf_set_field_name(Tqz_dbf_rw* h, unsigned int field, const char* name) {
    on_table(h, [&](Tqz_dbf_ibasic* t) {
        no_field(h, t, field);
        t->set_field_name(field, name);
    });
}

QZ_DBF_API void qz_dbf_set_field_name_w(Tqz_dbf_rw* h, unsigned int field, const wchar_t* name) {
    on_table(h, [&](Tqz_dbf_ibasic* t) {
        no_field(h, t, field);
        t->set_field_name(field, name);
    });
}

// ---- Values ------------------------------------------------------------------

QZ_DBF_API const char* qz_dbf_get_str(Tqz_dbf_rw* h, unsigned int field, unsigned int record,
                                      bool& ok) {
    return on_cell(
        h, field, record, static_cast<const char*>(nullptr), nullptr,
        [&](Tqz_dbf_ibasic* t) { return t->get_as_string(field, record, ok); },
        // Text that is not empty comes from a cell that is there; for empty
        // text cell_failed records a reason only if the cell is missing.
        [](const char* text) { return !text || !*text; });
}

QZ_DBF_API bool qz_dbf_get_str_w(Tqz_dbf_rw* h, unsigned int field, unsigned int record,
                                 Iqz_string_adp* adp) {
    return on_table(h, false, [&](Tqz_dbf_ibasic* t) {
        unsigned int length = 0;
        bool ok = false;
        const wchar_t* text = t->get_as_wstring(field, record, length, ok, 0);
        if (!ok) return false;  // the adapter keeps what it had
        qz_string_adp_feed(adp, text ? text : L"");
        return true;
    });
}

QZ_DBF_API const wchar_t* qz_dbf_get_wstr(Tqz_dbf_rw* h, unsigned int field, unsigned int record,
                                          unsigned int& length, bool& ok, int mode) {
    return on_table(h, static_cast<const wchar_t*>(nullptr), [&](Tqz_dbf_ibasic* t) {
        return t->get_as_wstring(field, record, length, ok, mode);
    });
}

QZ_DBF_API const wchar_t* qz_dbf_get_wstr_encoded(Tqz_dbf_rw* h, unsigned int field,
                                                  unsigned int record, unsigned int& length,
                                                  bool& ok) {
    return on_table(h, static_cast<const wchar_t*>(nullptr), [&](Tqz_dbf_ibasic* t) {
        return t->get_as_wchar_t(field, record, length, ok);
    });
}

QZ_DBF_API void qz_dbf_get_wstr_encoded_adpt(Tqz_dbf_rw* h, unsigned int field, unsigned int record,
                                             unsigned int& length, bool& ok, Iqz_string_adp* adp) {
    on_table(h, [&](Tqz_dbf_ibasic* t) {
        // The text is handed on whether or not it could be decoded; a cell
        // without one gives the empty text.
        const wchar_t* text = t->get_as_wchar_t(field, record, length, ok);
        std::wstring copy = text ? text : L"";
        qz_string_adp_feed(adp, copy.c_str());
    });
}

QZ_DBF_API int qz_dbf_get_int(Tqz_dbf_rw* h, unsigned int field, unsigned int record, bool& ok) {
    return on_cell(
        h, field, record, 0, "the cell holds no such value",
        [&](Tqz_dbf_ibasic* t) { return t->get_as_integer(field, record, ok); },
        [&](auto) { return !ok; });
}

QZ_DBF_API double qz_dbf_get_dbl(Tqz_dbf_rw* h, unsigned int field, unsigned int record, bool& ok) {
    return on_cell(
        h, field, record, 0.0, "the cell holds no such value",
        [&](Tqz_dbf_ibasic* t) { return t->get_as_double(field, record, ok); },
        [&](auto) { return !ok; });
}

QZ_DBF_API bool qz_dbf_get_bool(Tqz_dbf_rw* h, unsigned int field, unsigned int record, bool& ok) {
    return on_cell(
        h, field, record, false, "the cell holds no such value",
        [&](Tqz_dbf_ibasic* t) { return t->get_as_bool(field, record, ok); },
        [&](auto) { return !ok; });
}

QZ_DBF_API bool qz_dbf_get_any(Tqz_dbf_rw* h, unsigned int field, unsigned int record,
                               Tqz_any* value) {
    return on_cell(
        h, field, record, false, "the cell holds no value",
        [&](Tqz_dbf_ibasic* t) { return t->get_as_any(field, record, value); }, is_false);
}

QZ_DBF_API bool qz_dbf_set_str(Tqz_dbf_rw* h, unsigned int field, unsigned int record,
                               const char* value) {
    return on_cell(
        h, static_cast<unsigned>(field), static_cast<unsigned>(record), false,
        "the value was refused",
        [&](Tqz_dbf_ibasic* t) { return t->set_as_string(field, record, value); }, is_false);
}

QZ_DBF_API bool qz_dbf_set_str_w(Tqz_dbf_rw* h, int field, int record, const wchar_t* value) {
    return on_cell(
        h, static_cast<unsigned>(field), static_cast<unsigned>(record), false,
        "the value was refused",
        [&](Tqz_dbf_ibasic* t) { return t->set_as_wstring(field, record, value); }, is_false);
}

QZ_DBF_API bool qz_dbf_set_wstr_encoded(Tqz_dbf_rw* h, int field, int record, const wchar_t* value,
                                        unsigned int length) {
    return on_cell(
        h, static_cast<unsigned>(field), static_cast<unsigned>(record), false,
        "the value was refused",
        [&](Tqz_dbf_ibasic* t) { return t->set_as_wchar_t(field, record, value, length); },
        is_false);
}

QZ_DBF_API bool qz_dbf_set_int(Tqz_dbf_rw* h, unsigned int field, unsigned int record, int value) {
    return on_cell(
        h, static_cast<unsigned>(field), static_cast<unsigned>(record), false,
        "the value was refused",
        [&](Tqz_dbf_ibasic* t) { return t->set_as_integer(field, record, value); }, is_false);
}

QZ_DBF_API bool qz_dbf_set_dbl(Tqz_dbf_rw* h, unsigned int field, unsigned int record,
                               double value) {
    return on_cell(
        h, static_cast<unsigned>(field), static_cast<unsigned>(record), false,
        "the value was refused",
        [&](Tqz_dbf_ibasic* t) { return t->set_as_double(field, record, value); }, is_false);
}

QZ_DBF_API bool qz_dbf_set_bool(Tqz_dbf_rw* h, unsigned int field, unsigned int record,
                                bool value) {
    return on_cell(
        h, static_cast<unsigned>(field), static_cast<unsigned>(record), false,
        "the value was refused",
        [&](Tqz_dbf_ibasic* t) { return t->set_as_bool(field, record, value); }, is_false);
}

QZ_DBF_API bool qz_dbf_set_any(Tqz_dbf_rw* h, unsigned int field, unsigned int record,
                               Tqz_any* value) {
    return on_cell(
        h, static_cast<unsigned>(field), static_cast<unsigned>(record), false,
        "the value was refused",
        [&](Tqz_dbf_ibasic* t) { return t->set_as_any(field, record, value); }, is_false);
}

// ---- Search and records ----------------------------------------------------------

QZ_DBF_API bool qz_dbf_find_value(Tqz_dbf_rw* h, unsigned int field, const char* value,
                                  unsigned int& record) {
    return on_table(h, false,
                    [&](Tqz_dbf_ibasic* t) { return t->find_value(field, value, record); });
}

QZ_DBF_API void qz_dbf_begin_fast_find(Tqz_dbf_rw* h, unsigned int field) {
    on_table(h, [&](Tqz_dbf_ibasic* t) {
        no_field(h, t, field);
        t->begin_fast_find(field);
    });
}

QZ_DBF_API bool qz_dbf_find_value_fast(Tqz_dbf_rw* h, const char* value, unsigned int& record) {
    return on_table(h, false, [&](Tqz_dbf_ibasic* t) { return t->find_value_fast(value, record); });
}

QZ_DBF_API void qz_dbf_end_fast_find(Tqz_dbf_rw* h) {
    on_table(h, [](Tqz_dbf_ibasic* t) { t->end_fast_find(); });
}

QZ_DBF_API void qz_dbf_add_records(Tqz_dbf_rw* h, unsigned int count) {
    on_table(h, [&](Tqz_dbf_ibasic* t) { t->add_records(count); });
}

QZ_DBF_API bool qz_dbf_get_header(Tqz_dbf_rw* h, unsigned char header[32]) {
    return on_table(h, false, [&](Tqz_dbf_ibasic* t) {
        Tqz_dbf_basic* basic = t->as_basic();
        if (!basic || !header) return false;
        std::memcpy(header, basic->get_header(), 32);
        return true;
    });
}

}  // extern "C"
