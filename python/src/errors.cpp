#include "errors.h"

#include <qzk_file_dbf_ext.h>

namespace py = pybind11;

namespace qzpy {

void throw_last_error(int fallback_code, const std::string& fallback_message) {
    const int code = qz_dbf_last_error();
    const char* message = qz_dbf_last_error_message();
    if (code == QZ_DBF_OK || message == nullptr || *message == '\0') {
        throw library_error(fallback_code, fallback_message);
    }
    throw library_error(code, message);
}

void throw_error(int code, const std::string& message) {
    throw library_error(code, message);
}

void register_error_translator() {
    py::register_exception_translator([](std::exception_ptr p) {
        try {
            if (p) std::rethrow_exception(p);
        } catch (const library_error& e) {
            // The classes live in the package's Python code, which maps a
            // code to its class (qzdbf.Error for an unknown one).
            py::object cls = py::module_::import("qzdbf._errors").attr("error_class")(e.code());
            py::object exc = cls(e.what());
            exc.attr("code") = e.code();
            PyErr_SetObject(cls.ptr(), exc.ptr());
        }
    });
}

}  // namespace qzpy
