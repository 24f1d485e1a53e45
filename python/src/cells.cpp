#include "cells.h"

#include "errors.h"

#include <qzk_file_dbf_ext.h>

#include <datetime.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace py = pybind11;

namespace qzpy {

std::vector<field_info> read_fields(Tqz_dbf_rw* table) {
    std::vector<field_info> fields;
    const unsigned count = qz_dbf_get_nf(table);
    fields.reserve(count);
    for (unsigned i = 0; i < count; ++i) {
        field_info f;
        const char* name = qz_dbf_get_field_name(table, i);
        f.name = name ? name : "";
        const int letter = qz_dbftype2char(qz_dbf_get_field_type(table, i));
        f.type = letter > 0 ? static_cast<char>(letter) : 'C';
        f.length = qz_dbf_get_field_flen(table, i);
        f.decimals = qz_dbf_get_field_dlen(table, i);
        // A character field over 255 bytes keeps the length's high byte in
        // the decimals byte: its whole width, and no decimals.
        const unsigned width = qz_dbf_get_field_width(table, i);
        if (width > f.length) {
            f.length = width;
            f.decimals = 0;
        }
        fields.push_back(std::move(f));
    }
    return fields;
}

std::string table_encoding(Tqz_dbf_rw* table) {
    if (qz_dbf_get_utf8_flag(table)) return "utf-8";
    if (qz_dbf_get_dos_flag(table)) return "cp866";
    return "cp1251";
}

number parse_number(const char* text) {
    number n;
    if (text == nullptr) return n;
    while (*text == ' ') ++text;
    size_t len = std::strlen(text);
    while (len > 0 && (text[len - 1] == ' ' || text[len - 1] == '\0')) --len;
    if (len == 0 || len > 64) return n;
    char buf[72];
    std::memcpy(buf, text, len);
    buf[len] = '\0';
    for (size_t i = 0; i < len; ++i) {
        if (buf[i] == ',') buf[i] = '.';
    }
    char* end = nullptr;
    errno = 0;
    const long long i = std::strtoll(buf, &end, 10);
    if (errno == 0 && end == buf + len) {
        n.kind = number_kind::integer;
        n.integer = i;
        n.real = static_cast<double>(i);
        return n;
    }
    errno = 0;
    const double d = std::strtod(buf, &end);
    if (end == buf + len && std::isfinite(d)) {
        n.kind = number_kind::real;
        n.real = d;
    }
    return n;
}

int64_t days_from_civil(int y, int m, int d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

void civil_from_days(int64_t z, int& year, int& month, int& day) {
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    year = static_cast<int>(static_cast<int64_t>(yoe) + era * 400 + (month <= 2));
}

bool parse_date(const char* text, int64_t& days) {
    if (text == nullptr) return false;
    int v[8];
    for (int i = 0; i < 8; ++i) {
        if (text[i] < '0' || text[i] > '9') return false;
        v[i] = text[i] - '0';
    }
    const int year = v[0] * 1000 + v[1] * 100 + v[2] * 10 + v[3];
    const int month = v[4] * 10 + v[5];
    const int day = v[6] * 10 + v[7];
    if (year < 1 || month < 1 || month > 12 || day < 1) return false;
    static const int month_days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    const int last = month_days[month - 1] + (month == 2 && leap ? 1 : 0);
    if (day > last) return false;
    days = days_from_civil(year, month, day);
    return true;
}

py::str text_value(const char* text) {
    if (text == nullptr) return py::str("");
    size_t len = std::strlen(text);
    while (len > 0 && text[len - 1] == ' ') --len;
    PyObject* s = PyUnicode_DecodeUTF8(text, static_cast<Py_ssize_t>(len), "replace");
    if (s == nullptr) throw py::error_already_set();
    return py::reinterpret_steal<py::str>(s);
}

py::object memo_value(Tqz_dbf_rw* table, unsigned field, unsigned record,
                      const std::string& encoding) {
    bool ok = false;
    unsigned length = 0, type = 0;
    const unsigned char* bytes = qz_dbf_get_memo_bytes(table, field, record, ok, length, type);
    if (!ok || bytes == nullptr) return py::none();
    PyObject* s = PyUnicode_Decode(reinterpret_cast<const char*>(bytes),
                                   static_cast<Py_ssize_t>(length), encoding.c_str(), "replace");
    if (s == nullptr) throw py::error_already_set();
    return py::reinterpret_steal<py::object>(s);
}

static void need_datetime_api() {
    if (!PyDateTimeAPI) PyDateTime_IMPORT;
    if (!PyDateTimeAPI) throw py::error_already_set();
}

static py::object steal(PyObject* o) {
    if (o == nullptr) throw py::error_already_set();
    return py::reinterpret_steal<py::object>(o);
}

static py::object decimal_of(const char* digits, size_t length) {
    static PyObject* decimal_type = nullptr;
    if (decimal_type == nullptr) {
        py::object t = py::module_::import("decimal").attr("Decimal");
        decimal_type = t.release().ptr();  // kept for the life of the process
    }
    py::object text = steal(PyUnicode_FromStringAndSize(digits, static_cast<Py_ssize_t>(length)));
    return steal(PyObject_CallOneArg(decimal_type, text.ptr()));
}

py::object get_cell(Tqz_dbf_rw* table, const field_info& field, unsigned index, unsigned record,
                    bool decimals) {
    need_datetime_api();
    if (field.type == 'B' && field.length == 8) {
        // 8-byte B fields hold doubles as this library writes them, in any
        // table (the typed read takes B as a binary memo outside Visual
        // FoxPro tables); wider ones hold a memo's block number.
        bool ok = false;
        const double d = qz_dbf_get_dbl(table, index, record, ok);
        if (!ok) return py::none();
        return py::float_(d);
    }
    Tqz_dbf_value v;
    std::memset(&v, 0, sizeof v);
    if (!qz_dbf_get_value(table, index, record, &v)) return py::none();
    const bool numeric_text = v.text != nullptr && (field.type == 'N' || field.type == 'F');
    switch (v.kind) {
        case QZ_DBF_VALUE_BOOL:
            return py::bool_(v.i != 0);
        case QZ_DBF_VALUE_INT:
            // A whole number in a field with decimals stays a number with
            // decimals (float, or Decimal when asked).
            if (field.decimals > 0 && (field.type == 'N' || field.type == 'F')) {
                if (decimals && numeric_text) return decimal_of(v.text, v.length);
                return py::float_(static_cast<double>(v.i));
            }
            return steal(PyLong_FromLongLong(v.i));
        case QZ_DBF_VALUE_DOUBLE:
            if (decimals && numeric_text) return decimal_of(v.text, v.length);
            return py::float_(v.d);
        case QZ_DBF_VALUE_DECIMAL:
            if (decimals && v.text != nullptr) return decimal_of(v.text, v.length);
            return py::float_(v.d);
        case QZ_DBF_VALUE_DATE: {
            const int y = static_cast<int>(v.i / 10000), m = static_cast<int>(v.i / 100 % 100),
                      d = static_cast<int>(v.i % 100);
            return steal(PyDate_FromDate(y, m, d));
        }
        case QZ_DBF_VALUE_DATETIME: {
            // Milliseconds since 1970-01-01, as a naive datetime.
            int64_t ms = v.i;
            int64_t days = ms >= 0 ? ms / 86400000 : -((-ms + 86399999) / 86400000);
            int64_t rest = ms - days * 86400000;
            int y, mo, d;
            civil_from_days(days, y, mo, d);
            if (y < 1 || y > 9999) return py::none();
            return steal(PyDateTime_FromDateAndTime(
                y, mo, d, static_cast<int>(rest / 3600000), static_cast<int>(rest / 60000 % 60),
                static_cast<int>(rest / 1000 % 60), static_cast<int>(rest % 1000) * 1000));
        }
        case QZ_DBF_VALUE_TEXT: {
            // Trailing blanks pad a field; a memo's are its own.
            size_t len = v.text ? v.length : 0;
            while (field.type != 'M' && len > 0 && v.text[len - 1] == ' ') --len;
            return steal(PyUnicode_DecodeUTF8(v.text ? v.text : "", static_cast<Py_ssize_t>(len),
                                              "replace"));
        }
        case QZ_DBF_VALUE_BYTES:
            return steal(PyBytes_FromStringAndSize(v.text ? v.text : "",
                                                   static_cast<Py_ssize_t>(v.text ? v.length : 0)));
        default:
            return py::none();
    }
}

[[noreturn]] static void bad_value(const field_info& field, const std::string& why) {
    throw_error(QZ_DBF_ERR_VALUE, field.name + ": " + why);
}

static std::string type_name(const py::handle& value) {
    return py::str(py::type::handle_of(value).attr("__name__"));
}

static void set_text(Tqz_dbf_rw* table, const field_info& field, unsigned index, unsigned record,
                     const std::string& text) {
    qz_dbf_clear_last_error();
    if (!qz_dbf_set_str(table, index, record, text.c_str())) {
        throw_last_error(QZ_DBF_ERR_VALUE, field.name + ": the value could not be written");
    }
}

// Writes a typed value through qz_dbf_set_value.
static void store(Tqz_dbf_rw* table, const field_info& field, unsigned index, unsigned record,
                  const Tqz_dbf_value& v) {
    qz_dbf_clear_last_error();
    if (!qz_dbf_set_value(table, index, record, &v)) {
        throw_last_error(QZ_DBF_ERR_VALUE, field.name + ": the value could not be written");
    }
}

static bool is_decimal(const py::handle& value) {
    static PyObject* decimal_type = nullptr;
    if (decimal_type == nullptr) {
        py::object t = py::module_::import("decimal").attr("Decimal");
        decimal_type = t.release().ptr();  // kept for the life of the process
    }
    return PyObject_IsInstance(value.ptr(), decimal_type) == 1;
}

// The values only the typed write stores: memo text and bytes, bytes in
// other fields, Decimal numbers, datetimes (T fields), dates for D. True
// when the value was one of them (and was written).
static bool set_typed(Tqz_dbf_rw* table, const field_info& field, unsigned index, unsigned record,
                      const py::handle& value) {
    Tqz_dbf_value v;
    std::memset(&v, 0, sizeof v);
    std::string text;
    PyObject* o = value.ptr();
    if (o == Py_None) {
        if (field.type != 'M') return false;
        v.kind = QZ_DBF_VALUE_NULL;
    } else if (PyBytes_Check(o)) {
        v.kind = QZ_DBF_VALUE_BYTES;
        text.assign(PyBytes_AS_STRING(o), static_cast<size_t>(PyBytes_GET_SIZE(o)));
    } else if (field.type == 'M' && PyUnicode_Check(o)) {
        Py_ssize_t size = 0;
        const char* utf8 = PyUnicode_AsUTF8AndSize(o, &size);
        if (utf8 == nullptr) throw py::error_already_set();
        v.kind = QZ_DBF_VALUE_TEXT;
        text.assign(utf8, static_cast<size_t>(size));
    } else if (is_decimal(value) && field.type != 'D' && field.type != 'L') {
        if (!py::bool_(value.attr("is_finite")())) bad_value(field, "the number is not finite");
        v.kind = QZ_DBF_VALUE_DECIMAL;
        text = py::str(value);
        v.d = std::strtod(text.c_str(), nullptr);
    } else if (PyDateTime_Check(o) && field.type != 'D') {
        // A naive datetime, taken as UTC.
        const int64_t days =
            days_from_civil(PyDateTime_GET_YEAR(o), PyDateTime_GET_MONTH(o), PyDateTime_GET_DAY(o));
        v.kind = QZ_DBF_VALUE_DATETIME;
        v.i = days * 86400000LL + PyDateTime_DATE_GET_HOUR(o) * 3600000LL +
              PyDateTime_DATE_GET_MINUTE(o) * 60000LL + PyDateTime_DATE_GET_SECOND(o) * 1000LL +
              PyDateTime_DATE_GET_MICROSECOND(o) / 1000;
    } else if (PyDate_Check(o) && field.type == 'D') {
        v.kind = QZ_DBF_VALUE_DATE;
        v.i = PyDateTime_GET_YEAR(o) * 10000LL + PyDateTime_GET_MONTH(o) * 100LL +
              PyDateTime_GET_DAY(o);
    } else if (field.type == 'M') {
        bad_value(field, "a str or bytes is needed, not " + type_name(value));
    } else {
        return false;
    }
    v.text = text.c_str();
    v.length = text.size();
    store(table, field, index, record, v);
    return true;
}

void set_cell(Tqz_dbf_rw* table, const field_info& field, unsigned index, unsigned record,
              const py::handle& value, const std::string& encoding) {
    need_datetime_api();
    if (set_typed(table, field, index, record, value)) return;
    if (value.is_none()) {
        // Binary fields have no blank: None is stored as 0 there.
        if (field.type == 'I') {
            if (!qz_dbf_set_int(table, index, record, 0)) {
                throw_last_error(QZ_DBF_ERR_VALUE, field.name + ": not written");
            }
            return;
        }
        if (field.type == 'B') {
            if (!qz_dbf_set_dbl(table, index, record, 0.0)) {
                throw_last_error(QZ_DBF_ERR_VALUE, field.name + ": not written");
            }
            return;
        }
        // Empty text empties an N or F cell, though the call answers false
        // there (it is no number).
        qz_dbf_clear_last_error();
        if (!qz_dbf_set_str(table, index, record, "") && field.type != 'N' && field.type != 'F') {
            throw_last_error(QZ_DBF_ERR_VALUE, field.name + ": the cell could not be blanked");
        }
        return;
    }
    const bool is_bool = PyBool_Check(value.ptr());
    switch (field.type) {
        case 'N':
        case 'F':
        case 'B': {
            std::string text;
            if (!is_bool && PyLong_Check(value.ptr())) {
                int overflow = 0;
                const long long v = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
                if (overflow != 0) bad_value(field, "integer out of range");
                if (field.type == 'B') {
                    if (!qz_dbf_set_dbl(table, index, record, static_cast<double>(v))) {
                        throw_last_error(QZ_DBF_ERR_VALUE, field.name + ": not written");
                    }
                    return;
                }
                text = std::to_string(v);
                if (field.decimals > 0) text += "." + std::string(field.decimals, '0');
            } else if (!is_bool && PyFloat_Check(value.ptr())) {
                const double v = PyFloat_AS_DOUBLE(value.ptr());
                if (std::isnan(v)) {
                    set_text(table, field, index, record, "");
                    return;
                }
                if (!std::isfinite(v)) bad_value(field, "infinity cannot be stored");
                if (field.type == 'B') {
                    if (!qz_dbf_set_dbl(table, index, record, v)) {
                        throw_last_error(QZ_DBF_ERR_VALUE, field.name + ": not written");
                    }
                    return;
                }
                char buf[400];
                std::snprintf(buf, sizeof buf, "%.*f", field.decimals, v);
                text = buf;
            } else {
                bad_value(field, "a number is needed, not " + type_name(value));
            }
            if (text.size() > field.length) {
                bad_value(field, text + " does not fit in " + std::to_string(field.length) +
                                     " characters");
            }
            set_text(table, field, index, record, text);
            return;
        }
        case 'I': {
            if (is_bool || !PyLong_Check(value.ptr())) {
                bad_value(field, "an int is needed, not " + type_name(value));
            }
            int overflow = 0;
            const long long v = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
            if (overflow != 0 || v < INT32_MIN || v > INT32_MAX) {
                bad_value(field, "out of the 32-bit range");
            }
            if (!qz_dbf_set_int(table, index, record, static_cast<int>(v))) {
                throw_last_error(QZ_DBF_ERR_VALUE, field.name + ": not written");
            }
            return;
        }
        case 'L': {
            if (!is_bool) bad_value(field, "a bool is needed, not " + type_name(value));
            if (!qz_dbf_set_bool(table, index, record, value.ptr() == Py_True)) {
                throw_last_error(QZ_DBF_ERR_VALUE, field.name + ": not written");
            }
            return;
        }
        case 'D': {
            if (!PyDate_Check(value.ptr())) {
                bad_value(field, "a datetime.date is needed, not " + type_name(value));
            }
            const int y = PyDateTime_GET_YEAR(value.ptr());
            char buf[16];
            std::snprintf(buf, sizeof buf, "%04d%02d%02d", y, PyDateTime_GET_MONTH(value.ptr()),
                          PyDateTime_GET_DAY(value.ptr()));
            set_text(table, field, index, record, buf);
            return;
        }
        default: {
            if (!PyUnicode_Check(value.ptr())) {
                bad_value(field, "a str is needed, not " + type_name(value));
            }
            // The stored length is that of the table's encoding.
            PyObject* stored = PyUnicode_AsEncodedString(value.ptr(), encoding.c_str(), "strict");
            if (stored == nullptr) {
                PyErr_Clear();
                bad_value(field, "the text cannot be written in " + encoding);
            }
            const Py_ssize_t stored_len = PyBytes_GET_SIZE(stored);
            Py_DECREF(stored);
            if (static_cast<size_t>(stored_len) > field.length) {
                bad_value(field, "the text has " + std::to_string(stored_len) +
                                     " bytes, the field holds " + std::to_string(field.length));
            }
            Py_ssize_t size = 0;
            const char* utf8 = PyUnicode_AsUTF8AndSize(value.ptr(), &size);
            if (utf8 == nullptr) throw py::error_already_set();
            if (std::memchr(utf8, '\0', static_cast<size_t>(size)) != nullptr) {
                bad_value(field, "the text holds a NUL character");
            }
            if (field.type == 'C') {
                // Character text goes where the reads find it, also past a
                // field over 255 bytes, in the handle's encoding.
                Tqz_dbf_value v;
                std::memset(&v, 0, sizeof v);
                v.kind = QZ_DBF_VALUE_TEXT;
                v.text = utf8;
                v.length = static_cast<size_t>(size);
                store(table, field, index, record, v);
                return;
            }
            set_text(table, field, index, record, std::string(utf8, static_cast<size_t>(size)));
            return;
        }
    }
}

}  // namespace qzpy
