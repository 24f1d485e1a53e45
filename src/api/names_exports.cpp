// Exports of the field-name rules, unique names and numeric endings.
//
// Array exports copy the caller's descriptors (14 bytes each) into a vector,
// work on the copy and, for the repairs, write every descriptor back. A null
// pointer is answered like an empty name or an empty list.
#include <cstring>
#include <string>
#include <vector>

#include "api/guard.h"
#include "api/table_rw.h"
#include "names/correct_names.h"
#include "names/field_utils.h"
#include "names/name_text.h"
#include "qzk_file_dbf.h"

using qz::api::guarded;
using U = Tqz_dbf_field_utils;

namespace {

std::string narrow(const char* name) {
    return name ? std::string(name) : std::string();
}

void feed(Iqz_string_adp* out, const std::string& text) {
    qz_string_adp_feed_c(out, text.c_str());
}

U::fields_t copy_in(const Tqz_dbf_field* fields, unsigned int count) {
    if (!fields || count == 0) return {};
    return U::fields_t(fields, fields + count);
}

void copy_out(const U::fields_t& list, Tqz_dbf_field* fields) {
    if (!list.empty()) std::memcpy(fields, list.data(), list.size() * sizeof(Tqz_dbf_field));
}

}  // namespace

extern "C" {

/* ---- Rules of one name ---- */

QZ_DBF_API bool qz_dbf_field_name_size_ok(const char* name) {
    return guarded(false, [&] { return U::size_ok(narrow(name)); });
}

QZ_DBF_API void qz_dbf_field_name_size_fix(const char* name, Iqz_string_adp* out) {
    guarded([&] { feed(out, U::size_fix(narrow(name))); });
}

QZ_DBF_API bool qz_dbf_field_symbols_ok(const char* name) {
    return guarded(false, [&] { return U::symbols_ok(narrow(name)); });
}

QZ_DBF_API bool qz_dbf_field_symbols_ok_w(const wchar_t* name) {
    return guarded(false, [&] { return U::symbols_ok(qz::names::from_wide(name)); });
}

QZ_DBF_API void qz_dbf_field_symbols_fix(const char* name, Iqz_string_adp* out) {
    guarded([&] { feed(out, U::symbols_fix(narrow(name))); });
}

QZ_DBF_API void qz_dbf_field_symbols_fix_w(const wchar_t* name, Iqz_string_adp* out) {
    guarded([&] { feed(out, U::symbols_fix(qz::names::from_wide(name))); });
}

QZ_DBF_API bool qz_dbf_field_first_symb_ok(const char* name) {
    return guarded(false, [&] { return U::first_symb_ok(narrow(name)); });
}

QZ_DBF_API void qz_dbf_field_first_symb_fix(const char* name, Iqz_string_adp* out) {
    guarded([&] { feed(out, U::first_symb_fix(narrow(name))); });
}

QZ_DBF_API bool qz_dbf_field_name_is_ok(const char* name) {
    return guarded(false, [&] { return U::name_is_ok(narrow(name)); });
}

QZ_DBF_API bool qz_dbf_field_name_is_ok_w(const wchar_t* name) {
    return guarded(false, [&] { return U::name_is_ok(qz::names::from_wide(name)); });
}

QZ_DBF_API void qz_dbf_field_name_fix(const char* name, Iqz_string_adp* out) {
    guarded([&] { feed(out, U::name_fix(narrow(name))); });
}

QZ_DBF_API void qz_dbf_field_name_fix_w(const wchar_t* name, Iqz_string_adp* out) {
    guarded([&] { feed(out, U::name_fix(qz::names::from_wide(name))); });
}

/* ---- Rules of a field list ---- */

QZ_DBF_API bool qz_dbf_fields_duplicates_ic_ok(const Tqz_dbf_field* fields, unsigned int count) {
    if (!fields && count > 0) return false;
    return guarded(false, [&] { return U::duplicates_ic_ok(copy_in(fields, count)); });
}

QZ_DBF_API void qz_dbf_fields_duplicates_ic_fix(Tqz_dbf_field* fields, unsigned int count) {
    if (!fields) return;
    guarded([&] {
        U::fields_t list = copy_in(fields, count);
        U::duplicates_ic_fix(list);
        copy_out(list, fields);
    });
}

QZ_DBF_API bool qz_dbf_fields_names_ok(const Tqz_dbf_field* fields, unsigned int count) {
    if (!fields && count > 0) return false;
    return guarded(false, [&] { return U::names_ok(copy_in(fields, count)); });
}

QZ_DBF_API void qz_dbf_fields_names_fix(Tqz_dbf_field* fields, unsigned int count) {
    if (!fields) return;
    guarded([&] {
        U::fields_t list = copy_in(fields, count);
        U::names_fix(list);
        copy_out(list, fields);
    });
}

/* ---- Numeric endings and unique names ---- */

QZ_DBF_API void qz_dbf_field_name_add_num_ending(const char* name, unsigned int n,
                                                 Iqz_string_adp* out, const char* separator) {
    guarded([&] { feed(out, U::add_num_ending(narrow(name), n, narrow(separator))); });
}

QZ_DBF_API void qz_dbf_field_name_add_num_ending_w(const wchar_t* name, unsigned int n,
                                                   Iqz_string_adp* out, const wchar_t* separator) {
    guarded([&] {
        feed(out,
             U::add_num_ending(qz::names::from_wide(name), n, qz::names::from_wide(separator)));
    });
}

QZ_DBF_API void qz_dbf_fields_unique_name(const Tqz_dbf_field* fields, unsigned int count,
                                          const char* name, Iqz_string_adp* out) {
    guarded([&] { U::unique_name(fields, fields ? count : 0, name, out); });
}

QZ_DBF_API void qz_dbf_fields_unique_name_old(const Tqz_dbf_field* fields, unsigned int count,
                                              const char* name, Iqz_string_adp* out) {
    guarded([&] { U::unique_name_old(fields, fields ? count : 0, name, out); });
}

QZ_DBF_API const char* qz_dbf_generate_unin_name(Tqz_dbf_rw* handle, const char* name) {
    if (!handle) return nullptr;
    return guarded(static_cast<const char*>(nullptr),
                   [&] { return handle->generate_unin_name(name); });
}

QZ_DBF_API const char* qz_dbf_generate_unin_name_old(Tqz_dbf_rw* handle, const char* name) {
    if (!handle) return nullptr;
    return guarded(static_cast<const char*>(nullptr),
                   [&] { return handle->generate_unin_name_old(name); });
}

QZ_DBF_API void qz_dbf_generate_unin_name_w(Tqz_dbf_rw* handle, const wchar_t* name,
                                            Iqz_string_adp* out) {
    if (!handle) return;
    guarded([&] {
        std::string ansi = qz::names::from_wide(name);
        qz_string_adp_feed_c(out, handle->generate_unin_name(ansi.c_str()));
    });
}

QZ_DBF_API bool qz_dbf_make_correct_names(Tqz_dbf_field* fields, int count) {
    return guarded(false, [&] { return make_correct_names(fields, count); });
}

}  // extern "C"
