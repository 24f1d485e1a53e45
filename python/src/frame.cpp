#include "frame.h"

#include "errors.h"

#include <pybind11/numpy.h>

#include <qzk_file_dbf_ext.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string_view>
#include <unordered_map>

namespace py = pybind11;
using namespace pybind11::literals;

namespace qzpy {

namespace {

enum class column_kind { real, integer, date, boolean, text, memo };

// One column being read: typed values with a mask of blanks, or Python
// strings straight into an object array.
struct column {
    unsigned field = 0;
    column_kind kind = column_kind::text;
    bool any_real = false;  // an N field without decimals holding a fraction
    py::array_t<double> reals;
    py::array_t<int64_t> ints;
    py::array_t<bool> mask;
    py::array_t<bool> bools;
    py::array objects;
    // The arrays' buffers, taken once before the records are read.
    double* real_data = nullptr;
    int64_t* int_data = nullptr;
    bool* mask_data = nullptr;
    bool* bool_data = nullptr;
    PyObject** object_data = nullptr;
    // Texts already made into str objects: a column of few distinct values
    // shares one object per value instead of decoding each cell again.
    std::unordered_map<std::string, py::object> seen;
    std::string key;
};

// At most this many distinct texts are kept per column.
constexpr size_t kSeenLimit = 4096;

py::object shared_text(column& col, const char* text) {
    if (text == nullptr) text = "";
    size_t len = std::strlen(text);
    while (len > 0 && text[len - 1] == ' ') --len;
    // The key is built in a buffer kept per column, so a lookup allocates
    // nothing once the buffer has grown.
    col.key.assign(text, len);
    auto it = col.seen.find(col.key);
    if (it != col.seen.end()) return it->second;
    py::object v = text_value(text);
    if (col.seen.size() < kSeenLimit) col.seen.emplace(col.key, v);
    return v;
}

column_kind kind_of(const field_info& f) {
    switch (f.type) {
        case 'N':
            return f.decimals > 0 ? column_kind::real : column_kind::integer;
        case 'F':
        case 'B':
            return column_kind::real;
        case 'I':
            return column_kind::integer;
        case 'D':
            return column_kind::date;
        case 'L':
            return column_kind::boolean;
        case 'M':
            return column_kind::memo;
        default:
            return column_kind::text;
    }
}

std::vector<unsigned> chosen_fields(table& t, const py::object& columns) {
    const auto& fields = t.field_list();
    std::vector<unsigned> out;
    if (columns.is_none()) {
        for (unsigned i = 0; i < fields.size(); ++i) out.push_back(i);
        return out;
    }
    for (auto c : columns) {
        const std::string name = py::str(c);
        bool found = false;
        for (unsigned i = 0; i < fields.size(); ++i) {
            if (strcasecmp(fields[i].name.c_str(), name.c_str()) == 0) {
                out.push_back(i);
                found = true;
                break;
            }
        }
        if (!found) throw_error(QZ_DBF_ERR_ARGUMENT, t.path() + ": no field named " + name);
    }
    return out;
}

}  // namespace

py::list read_columns(table& t, const py::object& columns, bool skip_deleted) {
    Tqz_dbf_rw* h = t.handle();
    const auto& fields = t.field_list();
    const std::vector<unsigned> chosen = chosen_fields(t, columns);
    const unsigned total = qz_dbf_get_nr(h);
    std::vector<unsigned> records;
    records.reserve(total);
    for (unsigned r = 0; r < total; ++r) {
        if (skip_deleted && qz_dbf_get_deleted(h, r) == 1) continue;
        records.push_back(r);
    }
    const py::ssize_t n = static_cast<py::ssize_t>(records.size());
    py::object empty_objects = py::module_::import("numpy").attr("empty");

    std::vector<column> cols(chosen.size());
    for (size_t c = 0; c < chosen.size(); ++c) {
        column& col = cols[c];
        col.field = chosen[c];
        col.kind = kind_of(fields[col.field]);
        switch (col.kind) {
            case column_kind::real:
                col.reals = py::array_t<double>(n);
                break;
            case column_kind::integer:
                col.ints = py::array_t<int64_t>(n);
                col.reals = py::array_t<double>(n);
                col.mask = py::array_t<bool>(n);
                break;
            case column_kind::date:
                col.ints = py::array_t<int64_t>(n);
                col.mask = py::array_t<bool>(n);
                break;
            case column_kind::boolean:
                col.bools = py::array_t<bool>(n);
                col.mask = py::array_t<bool>(n);
                break;
            case column_kind::text:
            case column_kind::memo:
                // numpy.empty fills an object array with None.
                col.objects = empty_objects(n, "dtype"_a = "object");
                break;
        }
    }

    for (auto& col : cols) {
        if (col.reals) col.real_data = col.reals.mutable_data();
        if (col.ints) col.int_data = col.ints.mutable_data();
        if (col.mask) col.mask_data = col.mask.mutable_data();
        if (col.bools) col.bool_data = col.bools.mutable_data();
        if (col.objects) col.object_data = static_cast<PyObject**>(col.objects.mutable_data());
    }

    const std::string& enc = t.encoding();
    // Record by record, so each record is fetched once; each cell goes into
    // its column's array.
    for (py::ssize_t i = 0; i < n; ++i) {
        const unsigned r = records[static_cast<size_t>(i)];
        for (auto& col : cols) {
            const field_info& f = fields[col.field];
            const unsigned fi = col.field;
            bool ok = false;
            switch (col.kind) {
                case column_kind::real: {
                    if (f.type == 'N') {
                        const number num = parse_number(qz_dbf_get_str(h, fi, r, ok));
                        col.real_data[i] = num.kind == number_kind::blank ? std::nan("") : num.real;
                        break;
                    }
                    const double d = qz_dbf_get_dbl(h, fi, r, ok);
                    col.real_data[i] = ok ? d : std::nan("");
                    break;
                }
                case column_kind::integer: {
                    if (f.type == 'I') {
                        const int v = qz_dbf_get_int(h, fi, r, ok);
                        col.int_data[i] = v;
                        col.real_data[i] = v;
                        col.mask_data[i] = !ok;
                        break;
                    }
                    const number num = parse_number(qz_dbf_get_str(h, fi, r, ok));
                    col.int_data[i] = num.integer;
                    col.real_data[i] = num.kind == number_kind::blank ? std::nan("") : num.real;
                    col.mask_data[i] = num.kind == number_kind::blank;
                    if (num.kind == number_kind::real) col.any_real = true;
                    break;
                }
                case column_kind::date: {
                    int64_t days = 0;
                    const bool good = parse_date(qz_dbf_get_str(h, fi, r, ok), days);
                    col.int_data[i] = good ? days : 0;
                    col.mask_data[i] = !good;
                    break;
                }
                case column_kind::boolean: {
                    const bool b = qz_dbf_get_bool(h, fi, r, ok);
                    col.bool_data[i] = ok && b;
                    col.mask_data[i] = !ok;
                    break;
                }
                case column_kind::text:
                case column_kind::memo: {
                    py::object v = col.kind == column_kind::memo
                                       ? memo_value(h, fi, r, enc)
                                       : shared_text(col, qz_dbf_get_str(h, fi, r, ok));
                    PyObject* old = col.object_data[i];
                    col.object_data[i] = v.release().ptr();
                    Py_XDECREF(old);
                    break;
                }
            }
        }
    }

    py::list out;
    for (auto& col : cols) {
        const py::str name(fields[col.field].name);
        switch (col.kind) {
            case column_kind::real:
                out.append(py::make_tuple(name, "float", col.reals, py::none()));
                break;
            case column_kind::integer:
                // An N field without decimals that holds a fraction is read
                // as floats, blanks as NaN.
                if (col.any_real) {
                    out.append(py::make_tuple(name, "float", col.reals, py::none()));
                } else {
                    out.append(py::make_tuple(name, "int", col.ints, col.mask));
                }
                break;
            case column_kind::date:
                out.append(py::make_tuple(name, "date", col.ints, col.mask));
                break;
            case column_kind::boolean:
                out.append(py::make_tuple(name, "bool", col.bools, col.mask));
                break;
            case column_kind::text:
            case column_kind::memo:
                out.append(py::make_tuple(name, "str", col.objects, py::none()));
                break;
        }
    }
    return out;
}

void write_columns(table& t, const py::list& columns) {
    Tqz_dbf_rw* h = t.handle();
    const auto& fields = t.field_list();
    if (columns.size() != fields.size()) {
        throw_error(QZ_DBF_ERR_ARGUMENT, "write_columns: one column per field is needed");
    }
    py::ssize_t n = -1;
    for (auto c : columns) {
        const py::ssize_t len = py::len(c.cast<py::tuple>()[1]);
        if (n >= 0 && len != n) throw_error(QZ_DBF_ERR_ARGUMENT, "columns differ in length");
        n = len;
    }
    if (n <= 0) return;
    if (n > static_cast<py::ssize_t>(std::numeric_limits<unsigned>::max() / 2)) {
        throw_error(QZ_DBF_ERR_ARGUMENT, "too many records");
    }
    const unsigned base = qz_dbf_get_nr(h);
    qz_dbf_clear_last_error();
    qz_dbf_add_records(h, static_cast<unsigned>(n));
    if (qz_dbf_get_nr(h) != base + static_cast<unsigned>(n)) {
        throw_last_error(QZ_DBF_ERR_IO, t.path() + ": the records could not be added");
    }
    for (unsigned fi = 0; fi < fields.size(); ++fi) {
        const field_info& f = fields[fi];
        py::tuple column_info = columns[fi].cast<py::tuple>();
        const std::string kind = column_info[0].cast<std::string>();
        char buf[400];
        auto put = [&](unsigned r, const char* text) {
            if (!qz_dbf_set_str(h, fi, r, text)) {
                throw_last_error(QZ_DBF_ERR_VALUE, f.name + ": " + text + " could not be written");
            }
        };
        if (kind == "int" || kind == "date") {
            auto values = column_info[1].cast<py::array_t<int64_t, py::array::c_style>>();
            auto mask = column_info[2].cast<py::array_t<bool, py::array::c_style>>();
            const int64_t* v = values.data();
            const bool* m = mask.data();
            for (py::ssize_t i = 0; i < n; ++i) {
                const unsigned r = base + static_cast<unsigned>(i);
                if (m[i]) continue;
                if (kind == "int") {
                    std::snprintf(buf, sizeof buf, "%lld", static_cast<long long>(v[i]));
                } else {
                    int y, mo, d;
                    civil_from_days(v[i], y, mo, d);
                    if (y < 1 || y > 9999) {
                        throw_error(QZ_DBF_ERR_VALUE, f.name + ": a date outside years 1..9999");
                    }
                    std::snprintf(buf, sizeof buf, "%04d%02d%02d", y, mo, d);
                }
                if (std::strlen(buf) > f.length) {
                    throw_error(QZ_DBF_ERR_VALUE, f.name + ": " + buf + " does not fit");
                }
                put(r, buf);
            }
        } else if (kind == "float") {
            auto values = column_info[1].cast<py::array_t<double, py::array::c_style>>();
            const double* v = values.data();
            for (py::ssize_t i = 0; i < n; ++i) {
                const unsigned r = base + static_cast<unsigned>(i);
                if (std::isnan(v[i])) continue;
                if (!std::isfinite(v[i])) {
                    throw_error(QZ_DBF_ERR_VALUE, f.name + ": infinity cannot be stored");
                }
                std::snprintf(buf, sizeof buf, "%.*f", f.decimals, v[i]);
                if (std::strlen(buf) > f.length) {
                    throw_error(QZ_DBF_ERR_VALUE, f.name + ": " + buf + " does not fit");
                }
                put(r, buf);
            }
        } else if (kind == "bool") {
            auto values = column_info[1].cast<py::array_t<int8_t, py::array::c_style>>();
            const int8_t* v = values.data();
            for (py::ssize_t i = 0; i < n; ++i) {
                if (v[i] < 0) continue;
                put(base + static_cast<unsigned>(i), v[i] ? "T" : "F");
            }
        } else if (kind == "str") {
            py::sequence values = column_info[1].cast<py::sequence>();
            for (py::ssize_t i = 0; i < n; ++i) {
                py::object v = values[static_cast<size_t>(i)];
                if (v.is_none()) continue;
                set_cell(h, f, fi, base + static_cast<unsigned>(i), v, t.encoding());
            }
        } else {
            throw_error(QZ_DBF_ERR_ARGUMENT, "unknown column kind " + kind);
        }
    }
}

unsigned long long read_cells_c(table& t) {
    Tqz_dbf_rw* h = t.handle();
    const auto& fields = t.field_list();
    const unsigned total = qz_dbf_get_nr(h);
    unsigned long long cells = 0, sink = 0;
    std::string text;
    for (unsigned r = 0; r < total; ++r) {
        if (qz_dbf_get_deleted(h, r) == 1) continue;
        for (unsigned fi = 0; fi < fields.size(); ++fi) {
            bool ok = false;
            switch (kind_of(fields[fi])) {
                case column_kind::real:
                    sink += static_cast<unsigned long long>(qz_dbf_get_dbl(h, fi, r, ok));
                    break;
                case column_kind::integer:
                case column_kind::date:
                case column_kind::text: {
                    const char* s = qz_dbf_get_str(h, fi, r, ok);
                    text.assign(s ? s : "");
                    sink += text.size();
                    break;
                }
                case column_kind::boolean:
                    sink += qz_dbf_get_bool(h, fi, r, ok);
                    break;
                case column_kind::memo: {
                    unsigned length = 0, type = 0;
                    qz_dbf_get_memo_bytes(h, fi, r, ok, length, type);
                    sink += length;
                    break;
                }
            }
            ++cells;
        }
    }
    return cells + (sink == 0xFFFFFFFFFFFFFFFFull ? 1 : 0);
}

}  // namespace qzpy
