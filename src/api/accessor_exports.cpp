// Exports that read and change a table's properties through its handle.
// Each calls the current table directly and answers with the neutral result
// when the handle has no table.
#include <cstring>

#include "api/guard.h"
#include "api/table_rw.h"
#include "dbf/basic_table.h"
#include "qzk_file_dbf.h"

using qz::api::guarded;

namespace {

template <class R, class F>
R on_table(Tqz_dbf_rw* h, R neutral, F&& call) {
    return guarded(neutral, [&] {
        Tqz_dbf_ibasic* t = h ? h->current() : nullptr;
        return t ? call(t) : neutral;
    });
}

template <class F>
void on_table(Tqz_dbf_rw* h, F&& call) {
    guarded([&] {
        if (Tqz_dbf_ibasic* t = h ? h->current() : nullptr) call(t);
    });
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
    return on_table(h, static_cast<const char*>(nullptr),
                    [&](Tqz_dbf_ibasic* t) { return t->get_field_name(field); });
}

QZ_DBF_API void qz_dbf_get_field_name_w(Tqz_dbf_rw* h, unsigned int field, Iqz_string_adp* adp) {
    on_table(h, [&](Tqz_dbf_ibasic* t) { t->get_field_name(field, adp); });
}

QZ_DBF_API Tqz_dbf_field_type qz_dbf_get_field_type(Tqz_dbf_rw* h, unsigned int field) {
    return on_table(h, dbf_ft_unknown, [&](Tqz_dbf_ibasic* t) { return t->get_field_type(field); });
}

QZ_DBF_API unsigned int qz_dbf_get_field_flen(Tqz_dbf_rw* h, unsigned int field) {
    return on_table(h, 0u, [&](Tqz_dbf_ibasic* t) {
        return static_cast<unsigned int>(static_cast<unsigned char>(t->get_field_flen(field)));
    });
}

QZ_DBF_API int qz_dbf_get_field_dlen(Tqz_dbf_rw* h, unsigned int field) {
    return on_table(h, 0, [&](Tqz_dbf_ibasic* t) {
        return static_cast<int>(static_cast<signed char>(t->get_field_dlen(field)));
    });
}

QZ_DBF_API unsigned int qz_dbf_find_field_index_w(Tqz_dbf_rw* h, const wchar_t* name) {
    return on_table(h, 0xFFFFFFFFu, [&](Tqz_dbf_ibasic* t) { return t->find_field_index(name); });
}

QZ_DBF_API bool qz_dbf_get_header(Tqz_dbf_rw* h, unsigned char header[32]) {
    return on_table(h, false, [&](Tqz_dbf_ibasic* t) {
        auto* basic = dynamic_cast<Tqz_dbf_basic*>(t);
        if (!basic || !header) return false;
        std::memcpy(header, basic->get_header(), 32);
        return true;
    });
}

}  // extern "C"
