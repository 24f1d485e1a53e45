#include "table.h"

#include "errors.h"

#include <qzk_file_dbf_ext.h>

#include <memory>

namespace py = pybind11;

namespace qzpy {

namespace {

// A bit set of qzk_basic, given back however the scope is left.
struct bits_deleter {
    void operator()(void* bits) const { qz_bits_destroy(bits); }
};
using bits_ptr = std::unique_ptr<void, bits_deleter>;

}  // namespace

table::table(const std::string& path, const std::string& mode, const py::object& encoding,
             bool decimals, bool memory)
    : path_(path), decimals_(decimals) {
    if (mode == "r") {
        options_ = QZ_DBF_OPEN_READ_ONLY;
    } else if (mode == "w" || mode == "r+" || mode == "a") {
        writable_ = true;
    } else {
        throw_error(QZ_DBF_ERR_ARGUMENT,
                    "mode must be \"r\", \"r+\", \"w\" or \"a\", not \"" + mode + "\"");
    }
    if (!encoding.is_none()) {
        std::string e = py::str(encoding);
        for (auto& c : e) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        if (e == "utf8" || e == "utf-8") {
            forced_encoding_ = "utf-8";
        } else if (e == "cp866" || e == "866") {
            forced_encoding_ = "cp866";
            options_ |= QZ_DBF_OPEN_DOS;
        } else if (e == "cp1251" || e == "1251" || e == "windows-1251") {
            forced_encoding_ = "cp1251";
        } else {
            throw_error(QZ_DBF_ERR_ARGUMENT,
                        "encoding must be \"utf-8\", \"cp1251\" or \"cp866\", not \"" + e + "\"");
        }
    }
    if (memory) {
        if (!writable_) throw_error(QZ_DBF_ERR_ARGUMENT, path_ + ": a memory table is writable");
        qz_dbf_clear_last_error();
        memory_ = qz_dbf_mem_load(path_.c_str());
        if (memory_ == nullptr) throw_last_error(QZ_DBF_ERR_IO, path_ + ": cannot be loaded");
        try {
            // Opening the path while it is loaded serves the memory table.
            open_handle(options_);
            if (!qz_dbf_is_buffered(handle_)) {
                throw_error(QZ_DBF_ERR_INTERNAL, path_ + ": the memory table is not served");
            }
        } catch (...) {
            close();
            throw;
        }
        return;
    }
    open_handle(options_);
}

table::table(Tqz_dbf_rw* created, const std::string& path)
    : handle_(created), path_(path), writable_(true) {
    encoding_ = table_encoding(handle_);
    qz_dbf_set_encoding(handle_, encoding_.c_str());
    fields_ = read_fields(handle_);
}

table::~table() {
    if (handle_ != nullptr) qz_dbf_close(handle_);
    if (memory_ != nullptr) qz_dbf_mem_free(memory_);
}

void table::open_handle(unsigned options) {
    qz_dbf_clear_last_error();
    handle_ = qz_dbf_open_ex(path_.c_str(), options);
    if (handle_ == nullptr) throw_last_error(QZ_DBF_ERR_INTERNAL, path_ + ": cannot be opened");
    if (forced_encoding_ == "utf-8") {
        qz_dbf_set_utf8_flag(handle_, true);
    } else if (forced_encoding_ == "cp1251") {
        qz_dbf_set_utf8_flag(handle_, false);
        qz_dbf_set_dos_flag(handle_, false);
    } else if (forced_encoding_ == "cp866") {
        qz_dbf_set_utf8_flag(handle_, false);
        qz_dbf_set_dos_flag(handle_, true);
    }
    encoding_ = table_encoding(handle_);
    // The typed reads decode text as the column reads do.
    qz_dbf_set_encoding(handle_, encoding_.c_str());
    fields_ = read_fields(handle_);
}

void table::close() {
    if (in_use_ > 0) {
        throw_error(QZ_DBF_ERR_ARGUMENT, path_ + ": the table is being read by another thread");
    }
    if (handle_ != nullptr) {
        qz_dbf_close(handle_);
        handle_ = nullptr;
    }
    if (memory_ != nullptr) {
        qz_dbf_mem_free(memory_);
        memory_ = nullptr;
    }
}

void table::save() {
    handle();
    if (memory_ == nullptr) throw_error(QZ_DBF_ERR_ARGUMENT, path_ + ": not a memory table");
    qz_dbf_clear_last_error();
    if (!qz_dbf_mem_save(memory_)) throw_last_error(QZ_DBF_ERR_IO, path_ + ": not saved");
}

void table::save_as(const std::string& path) {
    handle();
    if (memory_ == nullptr) throw_error(QZ_DBF_ERR_ARGUMENT, path_ + ": not a memory table");
    qz_dbf_clear_last_error();
    if (!qz_dbf_mem_save_as(memory_, path.c_str())) {
        throw_last_error(QZ_DBF_ERR_IO, path + ": not saved");
    }
}

Tqz_dbf_rw* table::handle() {
    if (handle_ == nullptr) throw_error(QZ_DBF_ERR_ARGUMENT, path_ + ": the table is closed");
    // A memory table's fields change under it with undo and redo of a
    // restructure: they are read again at every access.
    if (memory_ != nullptr) fields_ = read_fields(handle_);
    return handle_;
}

size_t table::size() {
    return qz_dbf_get_nr(handle());
}

py::list table::fields() {
    handle();
    py::object make = py::module_::import("qzdbf").attr("Field");
    py::list out;
    for (const auto& f : fields_) {
        out.append(make(f.name, std::string(1, f.type), f.length, f.decimals));
    }
    return out;
}

unsigned table::record_index(long long record) {
    const long long n = static_cast<long long>(qz_dbf_get_nr(handle()));
    if (record < 0) record += n;
    if (record < 0 || record >= n) throw py::index_error("record index out of range");
    return static_cast<unsigned>(record);
}

unsigned table::field_index(const py::object& field) {
    handle();
    if (py::isinstance<py::str>(field)) {
        const std::string name = py::str(field);
        for (size_t i = 0; i < fields_.size(); ++i) {
            if (fields_[i].name.size() == name.size() &&
                strncasecmp(fields_[i].name.c_str(), name.c_str(), name.size()) == 0) {
                return static_cast<unsigned>(i);
            }
        }
        throw py::key_error("no field named " + name);
    }
    long long i = field.cast<long long>();
    const long long n = static_cast<long long>(fields_.size());
    if (i < 0) i += n;
    if (i < 0 || i >= n) throw py::index_error("field index out of range");
    return static_cast<unsigned>(i);
}

void table::need_writable() {
    handle();
    if (!writable_) throw_error(QZ_DBF_ERR_PERMISSION, path_ + ": the table is open read-only");
}

py::tuple table::row(long long record) {
    const unsigned r = record_index(record);
    py::tuple out(fields_.size());
    for (size_t i = 0; i < fields_.size(); ++i) {
        out[i] = get_cell(handle_, fields_[i], static_cast<unsigned>(i), r, decimals_);
    }
    return out;
}

py::dict table::row_dict(long long record) {
    const unsigned r = record_index(record);
    py::dict out;
    for (size_t i = 0; i < fields_.size(); ++i) {
        out[py::str(fields_[i].name)] =
            get_cell(handle_, fields_[i], static_cast<unsigned>(i), r, decimals_);
    }
    return out;
}

py::object table::cell(long long record, const py::object& field) {
    const unsigned r = record_index(record);
    const unsigned f = field_index(field);
    return get_cell(handle_, fields_[f], f, r, decimals_);
}

void table::set_cell(long long record, const py::object& field, const py::object& value) {
    need_writable();
    const unsigned r = record_index(record);
    const unsigned f = field_index(field);
    qzpy::set_cell(handle_, fields_[f], f, r, value, encoding_);
}

long long table::append(const py::object& values) {
    need_writable();
    // Every value is matched to its field before the record is added, so a
    // wrong name or count adds nothing.
    std::vector<std::pair<unsigned, py::object>> cells;
    if (py::isinstance<py::dict>(values)) {
        for (auto item : values.cast<py::dict>()) {
            cells.emplace_back(field_index(py::reinterpret_borrow<py::object>(item.first)),
                               py::reinterpret_borrow<py::object>(item.second));
        }
    } else {
        py::tuple t = py::tuple(values);
        if (t.size() > fields_.size()) {
            throw_error(QZ_DBF_ERR_ARGUMENT, "append: " + std::to_string(t.size()) +
                                                 " values for " + std::to_string(fields_.size()) +
                                                 " fields");
        }
        for (size_t i = 0; i < t.size(); ++i) cells.emplace_back(static_cast<unsigned>(i), t[i]);
    }
    const unsigned before = qz_dbf_get_nr(handle_);
    qz_dbf_clear_last_error();
    qz_dbf_add_records(handle_, 1);
    if (qz_dbf_get_nr(handle_) != before + 1) {
        throw_last_error(QZ_DBF_ERR_IO, path_ + ": the record could not be added");
    }
    try {
        // A new record is blank, which binary (I, B) fields cannot be: they
        // start at 0.
        for (unsigned i = 0; i < fields_.size(); ++i) {
            if (fields_[i].type == 'I' || fields_[i].type == 'B') {
                qzpy::set_cell(handle_, fields_[i], i, before, py::none(), encoding_);
            }
        }
        for (auto& c : cells) {
            qzpy::set_cell(handle_, fields_[c.first], c.first, before, c.second, encoding_);
        }
    } catch (...) {
        // A value the field refuses leaves the new record marked deleted, so
        // readers skip it and pack() removes it.
        qz_dbf_set_deleted(handle_, before, true);
        throw;
    }
    return before;
}

bool table::deleted(long long record) {
    const unsigned r = record_index(record);
    qz_dbf_clear_last_error();
    const int d = qz_dbf_get_deleted(handle_, r);
    if (d < 0) throw_last_error(QZ_DBF_ERR_IO, path_ + ": the deletion flag cannot be read");
    return d == 1;
}

void table::set_deleted(long long record, bool value) {
    need_writable();
    const unsigned r = record_index(record);
    qz_dbf_clear_last_error();
    if (!qz_dbf_set_deleted(handle_, r, value)) {
        throw_last_error(QZ_DBF_ERR_IO, path_ + ": the deletion flag cannot be written");
    }
}

void table::flush() {
    qz_dbf_clear_last_error();
    if (!qz_dbf_flush(handle())) throw_last_error(QZ_DBF_ERR_IO, path_ + ": flush failed");
}

unsigned table::pack() {
    need_writable();
    if (memory_ != nullptr) {
        throw_error(QZ_DBF_ERR_ARGUMENT, path_ + ": a memory table is not packed; save it first");
    }
    const unsigned n = qz_dbf_get_nr(handle_);
    bits_ptr mask(qz_bits_create());
    if (!mask) throw_error(QZ_DBF_ERR_MEMORY, "out of memory");
    unsigned marked = 0;
    for (unsigned r = 0; r < n; ++r) {
        if (qz_dbf_get_deleted(handle_, r) == 1) {
            qz_bits_set_bit(mask.get(), r, 1);
            ++marked;
        }
    }
    if (marked == 0) return 0;
    // The records go through the path: the table is closed (releasing its
    // lock), the file replaced whole, and the table opened again.
    close();
    const std::wstring wpath = py::str(path_).cast<std::wstring>();
    qz_dbf_clear_last_error();
    const int why = qz_dbf_del_records_by_msk_why_w(wpath.c_str(), mask.get());
    open_handle(options_);
    if (why != QZ_DBF_DELMASK_DONE) {
        throw_last_error(why == QZ_DBF_DELMASK_LOCKED ? QZ_DBF_ERR_LOCKED : QZ_DBF_ERR_IO,
                         path_ + ": the deleted records could not be removed");
    }
    return marked;
}

}  // namespace qzpy
