// The extension module qzdbf._qzdbf: the Table class, column reading and
// writing, create and check. The package's Python code builds the public
// functions (read_dataframe, write_dataframe, ...) on these.
#include "errors.h"
#include "frame.h"
#include "structure.h"
#include "table.h"

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <qzk_file_dbf_ext.h>

#include <cstring>
#include <memory>
#include <vector>

namespace py = pybind11;

namespace {

std::unique_ptr<qzpy::table> create_table(const std::string& path, const py::list& fields,
                                          const std::string& encoding) {
    std::vector<Tqz_dbf_field> descriptors;
    for (auto item : fields) {
        py::sequence f = item.cast<py::sequence>();
        if (py::len(f) != 4) {
            qzpy::throw_error(QZ_DBF_ERR_ARGUMENT, "a field is (name, type, length, decimals)");
        }
        const std::string name = py::str(f[0]);
        const std::string type = py::str(f[1]);
        const long long length = f[2].cast<long long>();
        const long long decimals = f[3].cast<long long>();
        if (!qz_dbf_field_name_is_ok(name.c_str())) {
            qzpy::throw_error(
                QZ_DBF_ERR_ARGUMENT,
                "\"" + name + "\" is no field name: 1 to 10 of A-Z, 0-9, _, a letter first");
        }
        if (type.size() != 1 || std::strchr("CNLMDFIB", type[0]) == nullptr) {
            qzpy::throw_error(QZ_DBF_ERR_ARGUMENT,
                              name + ": the type must be one of C N L M D F I B, not " + type);
        }
        if (length < 1 || length > 254 || decimals < 0 || decimals > 30 ||
            (decimals > 0 && decimals >= length)) {
            qzpy::throw_error(QZ_DBF_ERR_ARGUMENT, name + ": length " + std::to_string(length) +
                                                       " with " + std::to_string(decimals) +
                                                       " decimals cannot be stored");
        }
        Tqz_dbf_field d;
        qz_dbf_field_init(&d, name.c_str(), qz_char2dbftype(type[0]),
                          static_cast<unsigned char>(length), static_cast<unsigned char>(decimals));
        descriptors.push_back(d);
    }
    if (descriptors.empty()) qzpy::throw_error(QZ_DBF_ERR_ARGUMENT, "a table needs a field");
    if (!qz_dbf_fields_duplicates_ic_ok(descriptors.data(),
                                        static_cast<unsigned>(descriptors.size()))) {
        qzpy::throw_error(QZ_DBF_ERR_ARGUMENT, "two fields have the same name");
    }
    const bool dos = encoding == "cp866";
    if (!dos && encoding != "utf-8" && encoding != "cp1251") {
        qzpy::throw_error(
            QZ_DBF_ERR_ARGUMENT,
            "encoding must be \"utf-8\", \"cp1251\" or \"cp866\", not \"" + encoding + "\"");
    }
    qz_dbf_clear_last_error();
    Tqz_dbf_rw* h = qz_dbf_create(path.c_str(), static_cast<unsigned>(descriptors.size()), 0,
                                  descriptors.data(), dos);
    if (h == nullptr) qzpy::throw_last_error(QZ_DBF_ERR_IO, path + ": cannot be created");
    if (encoding == "utf-8") qz_dbf_set_utf8_flag(h, true);
    return std::make_unique<qzpy::table>(h, path);
}

py::list check_file(const std::string& path, bool values) {
    std::unique_ptr<Tqz_dbf_check_result, void (*)(Tqz_dbf_check_result*)> result(
        qz_dbf_check_file(path.c_str(), values ? QZ_DBF_CHECK_VALUES : 0u), qz_dbf_check_free);
    if (!result) qzpy::throw_last_error(QZ_DBF_ERR_MEMORY, path + ": cannot be checked");
    py::object make = py::module_::import("qzdbf").attr("Finding");
    py::list out;
    const unsigned count = qz_dbf_check_count(result.get());
    for (unsigned i = 0; i < count; ++i) {
        out.append(make(qz_dbf_check_severity(result.get(), i), qz_dbf_check_kind(result.get(), i),
                        py::str(qz_dbf_check_what(result.get(), i)),
                        py::str(qz_dbf_check_where(result.get(), i))));
    }
    return out;
}

}  // namespace

PYBIND11_MODULE(_qzdbf, m) {
    m.doc() = "The compiled core of qzdbf; use the qzdbf package instead.";
    // Text crosses the C interface as UTF-8, whatever the process locale.
    qz_options_set_ansi_code_page(65001);
    qzpy::register_error_translator();

    using qzpy::table;
    py::class_<table>(m, "Table")
        .def(py::init<const std::string&, const std::string&, const py::object&, bool, bool>(),
             py::arg("path"), py::arg("mode") = "r", py::arg("encoding") = py::none(),
             py::arg("decimal") = false, py::arg("memory") = false)
        .def("close", &table::close)
        .def_property_readonly("closed", &table::closed)
        .def_property_readonly("fields", &table::fields)
        .def_property_readonly("encoding", &table::encoding)
        .def_property_readonly("path", &table::path)
        .def_property_readonly("writable", &table::writable)
        .def("__len__", &table::size)
        .def("row", &table::row)
        .def("row_dict", &table::row_dict)
        .def("cell", &table::cell)
        .def("set_cell", &table::set_cell)
        .def("append", &table::append)
        .def("deleted", &table::deleted)
        .def("set_deleted", &table::set_deleted, py::arg("record"), py::arg("value") = true)
        .def("pack", &table::pack)
        .def("flush", &table::flush)
        .def("read_columns", &qzpy::read_columns, py::arg("columns") = py::none(),
             py::arg("skip_deleted") = true, py::arg("by_cells") = false)
        .def("write_columns", &qzpy::write_columns)
        .def("_read_cells_c", &qzpy::read_cells_c)
        .def("_read_cells_images", &qzpy::read_cells_images)
        .def_property_readonly("in_memory", &table::in_memory)
        .def("save", &table::save)
        .def("save_as", &table::save_as)
        .def("restructure", &qzpy::restructure);
    m.def("field_name_ok", &qzpy::field_name_ok);
    m.def("fix_field_name", &qzpy::fix_field_name);
    m.def("fix_field_names", &qzpy::fix_field_names);
    m.def("undo", &qzpy::history_undo);
    m.def("redo", &qzpy::history_redo);
    m.def("can_undo", &qzpy::history_can_undo);
    m.def("can_redo", &qzpy::history_can_redo);
    m.def("clear_history", &qzpy::history_clear);
    m.def("create", &create_table, py::arg("path"), py::arg("fields"),
          py::arg("encoding") = "utf-8");
    m.def("check", &check_file, py::arg("path"), py::arg("values") = false);
    m.def("version", [] { return std::string(qz_dbf_version()); });
}
