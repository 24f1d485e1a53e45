#include "frame.h"

#include "errors.h"
#include "field_bytes.h"
#include "text_cells.h"

#include <pybind11/numpy.h>

#include <qzk_file_dbf_ext.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <algorithm>
#include <limits>
#include <memory>
#include <string_view>

namespace py = pybind11;
using namespace pybind11::literals;

namespace qzpy {

namespace {

// `cell`: a Python object per cell from the typed read (memo text or
// bytes, datetimes, currency and the rarer types).
enum class column_kind { real, integer, date, boolean, text, cell };

// One column being read: typed values with a mask of blanks, or Python
// strings straight into an object array.
struct column {
    unsigned field = 0;
    column_kind kind = column_kind::text;
    // Where the field's bytes lie in a record image, when its cells are read
    // from images (types C, N, F, D, L, I); otherwise the cell getters read it.
    bool from_image = false;
    unsigned offset = 0;
    bool any_real = false;  // an N field without decimals holding a fraction
    // For a `cell` column, what pandas makes of its objects: "datetime"
    // (datetime64), "currency" (float64) or "object".
    const char* cell_as = "object";
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
    std::unique_ptr<text_maker> texts;
};

column_kind kind_of(const field_info& f) {
    switch (f.type) {
        case 'N':
            return f.decimals > 0 ? column_kind::real : column_kind::integer;
        case 'F':
            return column_kind::real;
        case 'B':
            // An 8-byte B holds a double; a wider one a memo's block number.
            return f.length == 8 ? column_kind::real : column_kind::cell;
        case 'I':
            return column_kind::integer;
        case 'D':
            return column_kind::date;
        case 'L':
            return column_kind::boolean;
        case 'C':
            return column_kind::text;
        default:
            return column_kind::cell;
    }
}

bool readable_from_image(const field_info& f) {
    switch (f.type) {
        case 'C':
        case 'N':
        case 'F':
        case 'D':
        case 'L':
            return true;
        case 'I':
            return f.length == 4;
        default:
            return false;
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

// A cell of a typed column through the library's cell getters (no Python
// object, so no GIL needed).
void cell_by_getter(Tqz_dbf_rw* h, const field_info& f, column& col, py::ssize_t i, unsigned r) {
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
        case column_kind::cell:
            break;
    }
}

// A cell of a typed column through the typed read, which places every field
// by its whole width (the classic getters place the fields after a
// character field over 255 bytes by its length byte alone).
void cell_by_value(Tqz_dbf_rw* h, column& col, py::ssize_t i, unsigned r) {
    Tqz_dbf_value v;
    std::memset(&v, 0, sizeof v);
    if (!qz_dbf_get_value(h, col.field, r, &v)) v.kind = QZ_DBF_VALUE_NULL;
    const bool whole = v.kind == QZ_DBF_VALUE_INT;
    const bool real = v.kind == QZ_DBF_VALUE_DOUBLE || v.kind == QZ_DBF_VALUE_DECIMAL;
    const double d = whole ? static_cast<double>(v.i) : real ? v.d : std::nan("");
    switch (col.kind) {
        case column_kind::real:
            col.real_data[i] = d;
            break;
        case column_kind::integer:
            col.int_data[i] = whole ? v.i : 0;
            col.real_data[i] = d;
            col.mask_data[i] = !whole && !real;
            col.any_real = col.any_real || real;
            break;
        case column_kind::date: {
            const bool date = v.kind == QZ_DBF_VALUE_DATE;
            const int y = static_cast<int>(v.i / 10000), m = static_cast<int>(v.i / 100 % 100);
            col.int_data[i] = date ? days_from_civil(y, m, static_cast<int>(v.i % 100)) : 0;
            col.mask_data[i] = !date;
            break;
        }
        case column_kind::boolean:
            col.bool_data[i] = v.kind == QZ_DBF_VALUE_BOOL && v.i != 0;
            col.mask_data[i] = v.kind != QZ_DBF_VALUE_BOOL;
            break;
        case column_kind::text:
        case column_kind::cell:
            break;
    }
}

// A cell of a typed column from the field's bytes in a record image; false
// when the bytes have a shape the getters must read.
bool cell_from_image(const field_info& f, column& col, const unsigned char* image, py::ssize_t i) {
    const unsigned char* p = image + col.offset;
    switch (col.kind) {
        case column_kind::real: {
            number_bytes num;
            const parsed how = parse_number_bytes(p, f.length, f.type == 'N', num);
            // F cells that are blank or a signed zero go to the getter, whose
            // double keeps the zero's sign.
            if (how == parsed::other ||
                (f.type != 'N' && (how == parsed::blank || num.real == 0.0))) {
                return false;
            }
            col.real_data[i] = how == parsed::blank ? std::nan("") : num.real;
            return true;
        }
        case column_kind::integer: {
            if (f.type == 'I') {
                int32_t v;
                std::memcpy(&v, p, 4);
                col.int_data[i] = v;
                col.real_data[i] = v;
                col.mask_data[i] = false;
                return true;
            }
            number_bytes num;
            const parsed how = parse_number_bytes(p, f.length, true, num);
            if (how == parsed::other) return false;
            col.int_data[i] = num.integer;
            col.real_data[i] = how == parsed::blank ? std::nan("") : num.real;
            col.mask_data[i] = how == parsed::blank;
            if (how == parsed::real) col.any_real = true;
            return true;
        }
        case column_kind::date: {
            int64_t days = 0;
            const parsed how = parse_date_bytes(p, f.length, days);
            if (how == parsed::other) return false;
            col.int_data[i] = how == parsed::blank ? 0 : days;
            col.mask_data[i] = how == parsed::blank;
            return true;
        }
        case column_kind::boolean: {
            bool b = false;
            if (parse_logical_byte(p, f.length, b) == parsed::other) return false;
            col.bool_data[i] = b;
            col.mask_data[i] = false;
            return true;
        }
        case column_kind::text:
        case column_kind::cell:
            return false;
    }
    return false;
}

// Marks a table in use while its handle is worked on without the GIL, so a
// close from another thread is refused rather than pulling the handle away.
struct use_scope {
    explicit use_scope(table& t) : t_(t) { t_.enter_use(); }
    ~use_scope() { t_.leave_use(); }
    table& t_;
};

// A date column for pandas: nanoseconds since 1970 with NaT for blanks
// ("datetime64[ns]", converted in place) when every date lies within the
// years that type holds (1677-09-22 to 2262-04-11); otherwise days with
// their mask ("date"), which become datetime.date objects.
py::tuple date_column(const py::str& name, py::array days_array, py::array mask_array) {
    constexpr int64_t first_day = -106751, last_day = 106750;
    constexpr int64_t ns_per_day = 86400LL * 1000000000LL;
    auto days = days_array.cast<py::array_t<int64_t>>();
    auto mask = mask_array.cast<py::array_t<bool>>();
    int64_t* d = days.mutable_data();
    const bool* m = mask.data();
    const py::ssize_t n = days.size();
    for (py::ssize_t i = 0; i < n; ++i) {
        if (!m[i] && (d[i] < first_day || d[i] > last_day)) {
            return py::make_tuple(name, "date", days, mask);
        }
    }
    for (py::ssize_t i = 0; i < n; ++i) {
        d[i] = m[i] ? std::numeric_limits<int64_t>::min() : d[i] * ns_per_day;
    }
    return py::make_tuple(name, "datetime64[ns]", days, py::none());
}

// The field types the descriptors report as C without being text (T, Y,
// G, _NullFlags and the rarer ones) show in the typed read of their cells:
// the first records' values decide whether the column is read cell by cell.
void probe_typed(Tqz_dbf_rw* h, column& col, unsigned total, bool decimals) {
    // Text cells are never null but through _NullFlags, which a C field
    // may have: a null only counts when no text follows.
    Tqz_dbf_value v;
    bool null_seen = false;
    for (unsigned r = 0; r < std::min(total, 64u); ++r) {
        std::memset(&v, 0, sizeof v);
        if (!qz_dbf_get_value(h, col.field, r, &v)) return;
        if (v.kind == QZ_DBF_VALUE_NULL) {
            null_seen = true;
            continue;
        }
        if (v.kind == QZ_DBF_VALUE_TEXT) return;
        col.kind = column_kind::cell;
        if (v.kind == QZ_DBF_VALUE_DATETIME) col.cell_as = "datetime";
        if (v.kind == QZ_DBF_VALUE_DECIMAL && !decimals) col.cell_as = "currency";
        return;
    }
    if (null_seen) col.kind = column_kind::cell;
}

// Blanks the cells the table's _NullFlags mark null, whatever their bytes
// (row i of each column is record records[i]); the `cell` columns have them
// already from the typed read.
void blank_null_cells(Tqz_dbf_rw* h, std::vector<column>& cols,
                      const std::vector<unsigned>& records) {
    Tqz_dbf_value v;
    for (column& col : cols) {
        if (col.kind == column_kind::cell) continue;
        for (size_t i = 0; i < records.size(); ++i) {
            std::memset(&v, 0, sizeof v);
            if (!qz_dbf_get_value(h, col.field, records[i], &v) || v.kind != QZ_DBF_VALUE_NULL) {
                continue;
            }
            // (Default-made arrays are empty but not null: the kind says
            // which buffers the column has.)
            const column_kind k = col.kind;
            if (k == column_kind::real || k == column_kind::integer) {
                col.real_data[i] = std::nan("");
            }
            if (k == column_kind::integer || k == column_kind::date || k == column_kind::boolean) {
                col.mask_data[i] = true;
            }
            if (k == column_kind::text) {
                PyObject* old = col.object_data[i];
                Py_INCREF(Py_None);
                col.object_data[i] = Py_None;
                Py_XDECREF(old);
            }
        }
    }
}

}  // namespace

py::list read_columns(table& t, const py::object& columns, bool skip_deleted, bool by_cells) {
    Tqz_dbf_rw* h = t.handle();
    const auto& fields = t.field_list();
    const std::vector<unsigned> chosen = chosen_fields(t, columns);
    const unsigned total = qz_dbf_get_nr(h);
    const py::ssize_t capacity = static_cast<py::ssize_t>(total);
    // Record images when the table file gives them (not for memory or OGR
    // tables, nor when the caller asks for the getters).
    const unsigned record_size = by_cells ? 0 : qz_dbf_get_record_size(h);
    py::object empty_objects = py::module_::import("numpy").attr("empty");
    const std::string& enc = t.encoding();

    // dBASE 7 tables keep their integers big-endian with the sign bit
    // flipped: those cells go through the getters.
    unsigned char head[32] = {0};
    const bool level7 = qz_dbf_get_header(h, head) && (head[0] == 0x04 || head[0] == 0x8C);

    std::vector<column> cols(chosen.size());
    std::vector<column*> typed, texts;
    for (size_t c = 0; c < chosen.size(); ++c) {
        column& col = cols[c];
        col.field = chosen[c];
        const field_info& f = fields[col.field];
        col.kind = kind_of(f);
        if (f.type == 'C') probe_typed(h, col, total, t.decimals());
        if (record_size > 0 && col.kind != column_kind::cell && readable_from_image(f) &&
            !(level7 && f.type == 'I')) {
            col.offset = qz_dbf_get_field_offset(h, col.field);
            // A damaged header may place a field past the record's end.
            col.from_image = col.offset >= 1 && col.offset + f.length <= record_size;
        }
        switch (col.kind) {
            case column_kind::real:
                col.reals = py::array_t<double>(capacity);
                break;
            case column_kind::integer:
                col.ints = py::array_t<int64_t>(capacity);
                col.reals = py::array_t<double>(capacity);
                col.mask = py::array_t<bool>(capacity);
                break;
            case column_kind::date:
                col.ints = py::array_t<int64_t>(capacity);
                col.mask = py::array_t<bool>(capacity);
                break;
            case column_kind::boolean:
                col.bools = py::array_t<bool>(capacity);
                col.mask = py::array_t<bool>(capacity);
                break;
            case column_kind::text:
            case column_kind::cell:
                // numpy.empty fills an object array with None.
                col.objects = empty_objects(capacity, "dtype"_a = "object");
                if (col.from_image) col.texts = std::make_unique<text_maker>(enc);
                break;
        }
        if (col.reals) col.real_data = col.reals.mutable_data();
        if (col.ints) col.int_data = col.ints.mutable_data();
        if (col.mask) col.mask_data = col.mask.mutable_data();
        if (col.bools) col.bool_data = col.bools.mutable_data();
        if (col.objects) col.object_data = static_cast<PyObject**>(col.objects.mutable_data());
        const bool text = col.kind == column_kind::text || col.kind == column_kind::cell;
        (text ? texts : typed).push_back(&col);
    }

    use_scope in_use(t);
    // The records go in chunks of about a megabyte of images: the typed
    // columns of a chunk are parsed without the GIL, then its text cells
    // become str objects.
    const unsigned chunk = record_size > 0 ? std::max(1u, (1u << 20) / record_size) : 4096u;
    std::vector<unsigned char> buffer(static_cast<size_t>(chunk) * record_size);
    std::vector<unsigned> records;
    std::vector<const unsigned char*> images;
    py::ssize_t row = 0;
    // Tables with a _NullFlags field mark cells null apart from their bytes.
    bool null_flags = false;
    for (const field_info& f : fields) null_flags |= strcasecmp(f.name.c_str(), "_NullFlags") == 0;
    // With a character field over 255 bytes the cells not read from images
    // go through the typed read.
    bool wide = false;
    for (const field_info& f : fields) wide |= f.type == 'C' && f.length > 255;
    std::vector<unsigned> all_records;
    for (unsigned first = 0; first < total;) {
        const unsigned want = std::min(chunk, total - first);
        records.clear();
        images.clear();
        {
            py::gil_scoped_release no_gil;
            const unsigned got = record_size > 0 ? qz_dbf_get_record_images(
                                                       h, first, want, buffer.data(), buffer.size())
                                                 : 0;
            for (unsigned k = 0; k < want; ++k) {
                // Records the file does not hold whole go to the getters.
                const unsigned char* image =
                    k < got ? buffer.data() + static_cast<size_t>(k) * record_size : nullptr;
                const bool deleted =
                    image ? image[0] == '*' : qz_dbf_get_deleted(h, first + k) == 1;
                if (skip_deleted && deleted) continue;
                records.push_back(first + k);
                images.push_back(image);
            }
            for (column* col : typed) {
                const field_info& f = fields[col->field];
                for (size_t j = 0; j < records.size(); ++j) {
                    const py::ssize_t i = row + static_cast<py::ssize_t>(j);
                    if (col->from_image && images[j] != nullptr &&
                        cell_from_image(f, *col, images[j], i)) {
                        continue;
                    }
                    if (wide)
                        cell_by_value(h, *col, i, records[j]);
                    else
                        cell_by_getter(h, f, *col, i, records[j]);
                }
            }
        }
        for (column* col : texts) {
            const field_info& f = fields[col->field];
            for (size_t j = 0; j < records.size(); ++j) {
                PyObject* v;
                if (col->from_image && images[j] != nullptr) {
                    const unsigned char* p = images[j] + col->offset;
                    v = col->texts->make(p, text_length(p, f.length));
                    if (v == nullptr) throw py::error_already_set();
                } else {
                    bool ok = false;
                    py::object o = col->kind == column_kind::cell || wide
                                       ? get_cell(h, f, col->field, records[j], t.decimals())
                                       : text_value(qz_dbf_get_str(h, col->field, records[j], ok));
                    v = o.release().ptr();
                }
                PyObject*& slot = col->object_data[row + static_cast<py::ssize_t>(j)];
                PyObject* old = slot;
                slot = v;
                Py_XDECREF(old);
            }
        }
        if (null_flags) all_records.insert(all_records.end(), records.begin(), records.end());
        row += static_cast<py::ssize_t>(records.size());
        first += want;
    }
    if (null_flags) blank_null_cells(h, cols, all_records);

    // Deleted records left out: the arrays keep only the rows read.
    auto cut = [&](py::array a) -> py::array {
        if (row == capacity) return a;
        return a[py::slice(0, row, 1)].attr("copy")();
    };
    py::list out;
    for (auto& col : cols) {
        const py::str name(fields[col.field].name);
        switch (col.kind) {
            case column_kind::real:
                out.append(py::make_tuple(name, "float", cut(col.reals), py::none()));
                break;
            case column_kind::integer:
                // An N field without decimals that holds a fraction is read
                // as floats, blanks as NaN.
                if (col.any_real) {
                    out.append(py::make_tuple(name, "float", cut(col.reals), py::none()));
                } else {
                    out.append(py::make_tuple(name, "int", cut(col.ints), cut(col.mask)));
                }
                break;
            case column_kind::date:
                out.append(date_column(name, cut(col.ints), cut(col.mask)));
                break;
            case column_kind::boolean:
                out.append(py::make_tuple(name, "bool", cut(col.bools), cut(col.mask)));
                break;
            case column_kind::text:
                out.append(py::make_tuple(name, "str", cut(col.objects), py::none()));
                break;
            case column_kind::cell:
                out.append(py::make_tuple(name, col.cell_as, cut(col.objects), py::none()));
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
                case column_kind::cell: {
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

unsigned long long read_cells_images(table& t) {
    Tqz_dbf_rw* h = t.handle();
    const auto& fields = t.field_list();
    const unsigned total = qz_dbf_get_nr(h);
    const unsigned record_size = qz_dbf_get_record_size(h);
    if (record_size == 0) throw_error(QZ_DBF_ERR_ARGUMENT, t.path() + ": no record images");
    std::vector<unsigned> offsets;
    for (unsigned fi = 0; fi < fields.size(); ++fi) {
        offsets.push_back(qz_dbf_get_field_offset(h, fi));
        if (offsets.back() == 0 || offsets.back() + fields[fi].length > record_size) {
            throw_error(QZ_DBF_ERR_ARGUMENT, t.path() + ": a field lies outside the record");
        }
    }
    const unsigned chunk = std::max(1u, (1u << 20) / record_size);
    std::vector<unsigned char> buffer(static_cast<size_t>(chunk) * record_size);
    unsigned long long cells = 0, sink = 0;
    std::string text;
    py::gil_scoped_release no_gil;
    for (unsigned first = 0; first < total;) {
        const unsigned got =
            qz_dbf_get_record_images(h, first, chunk, buffer.data(), buffer.size());
        if (got == 0) break;
        for (unsigned k = 0; k < got; ++k) {
            const unsigned char* image = buffer.data() + static_cast<size_t>(k) * record_size;
            if (image[0] == '*') continue;
            for (unsigned fi = 0; fi < fields.size(); ++fi) {
                const field_info& f = fields[fi];
                const unsigned char* p = image + offsets[fi];
                switch (f.type) {
                    case 'N':
                    case 'F': {
                        number_bytes num;
                        if (parse_number_bytes(p, f.length, true, num) != parsed::blank) {
                            sink += static_cast<unsigned long long>(num.real) + num.integer;
                        }
                        break;
                    }
                    case 'D': {
                        int64_t days = 0;
                        parse_date_bytes(p, f.length, days);
                        sink += days;
                        break;
                    }
                    case 'L': {
                        bool b = false;
                        parse_logical_byte(p, f.length, b);
                        sink += b;
                        break;
                    }
                    default:
                        text.assign(reinterpret_cast<const char*>(p), text_length(p, f.length));
                        sink += text.size();
                        break;
                }
                ++cells;
            }
        }
        first += got;
    }
    return cells + (sink == 0xFFFFFFFFFFFFFFFFull ? 1 : 0);
}

}  // namespace qzpy
