#include "structure.h"

#include "errors.h"

#include <qzk_basic.h>
#include <qzk_file_dbf.h>
#include <qzk_file_dbf_ext.h>

#include <cstring>
#include <memory>
#include <vector>

namespace py = pybind11;

namespace qzpy {

namespace {

struct restruct_deleter {
    void operator()(Tqz_dbf_rstrct* d) const { qz_dbf_restruct_destroy(d); }
};
using restruct_ptr = std::unique_ptr<Tqz_dbf_rstrct, restruct_deleter>;

// One field of the wanted layout: its descriptor and the old field its
// values come from (-1: a new field).
struct wanted_field {
    Tqz_dbf_field field;
    int source = -1;
};

int old_index(const std::vector<field_info>& fields, const std::string& name) {
    for (size_t i = 0; i < fields.size(); ++i) {
        if (strcasecmp(fields[i].name.c_str(), name.c_str()) == 0) return static_cast<int>(i);
    }
    return -1;
}

wanted_field parse_entry(const std::vector<field_info>& fields, const py::handle& entry) {
    wanted_field w;
    if (py::isinstance<py::str>(entry)) {
        const std::string name = py::str(entry);
        w.source = old_index(fields, name);
        if (w.source < 0) throw_error(QZ_DBF_ERR_ARGUMENT, "restructure: no field named " + name);
        const field_info& f = fields[static_cast<size_t>(w.source)];
        qz_dbf_field_init(&w.field, f.name.c_str(), qz_char2dbftype(f.type),
                          static_cast<unsigned char>(f.length), static_cast<char>(f.decimals));
        return w;
    }
    py::sequence s = py::reinterpret_borrow<py::sequence>(entry);
    if (py::len(s) != 4 && py::len(s) != 5) {
        throw_error(QZ_DBF_ERR_ARGUMENT,
                    "restructure: a field is a name or (name, type, length, decimals[, from])");
    }
    const std::string name = py::str(s[0]);
    const std::string type = py::str(s[1]);
    const long long length = s[2].cast<long long>();
    const long long decimals = s[3].cast<long long>();
    if (!qz_dbf_field_name_is_ok(name.c_str())) {
        throw_error(QZ_DBF_ERR_ARGUMENT, "restructure: \"" + name + "\" is no field name");
    }
    if (type.size() != 1 || std::strchr("CNLMDFIB", type[0]) == nullptr) {
        throw_error(QZ_DBF_ERR_ARGUMENT, name + ": the type must be one of C N L M D F I B");
    }
    if (length < 1 || length > 254 || decimals < 0 || (decimals > 0 && decimals >= length)) {
        throw_error(QZ_DBF_ERR_ARGUMENT, name + ": length " + std::to_string(length) + " with " +
                                             std::to_string(decimals) + " decimals");
    }
    qz_dbf_field_init(&w.field, name.c_str(), qz_char2dbftype(type[0]),
                      static_cast<unsigned char>(length), static_cast<char>(decimals));
    const std::string from = py::len(s) == 5 ? std::string(py::str(s[4])) : name;
    w.source = old_index(fields, from);
    if (py::len(s) == 5 && w.source < 0) {
        throw_error(QZ_DBF_ERR_ARGUMENT, "restructure: no field named " + from);
    }
    return w;
}

struct collected {
    std::string text;
};

void collect(void* user, const char* text) {
    static_cast<collected*>(user)->text = text ? text : "";
}

}  // namespace

void restructure(table& t, const py::list& layout) {
    Tqz_dbf_rw* h = t.handle();
    if (!t.writable()) throw_error(QZ_DBF_ERR_PERMISSION, t.path() + ": open it with mode \"r+\"");
    const std::vector<field_info> fields = t.field_list();
    std::vector<wanted_field> wanted;
    std::vector<bool> taken(fields.size(), false);
    for (auto entry : layout) {
        wanted.push_back(parse_entry(fields, entry));
        const int src = wanted.back().source;
        if (src >= 0) {
            if (taken[static_cast<size_t>(src)]) {
                throw_error(QZ_DBF_ERR_ARGUMENT, "restructure: field " +
                                                     fields[static_cast<size_t>(src)].name +
                                                     " is the source of two fields");
            }
            taken[static_cast<size_t>(src)] = true;
        }
    }
    if (wanted.empty()) throw_error(QZ_DBF_ERR_ARGUMENT, "restructure: a table needs a field");
    {
        std::vector<Tqz_dbf_field> check;
        for (auto& w : wanted) check.push_back(w.field);
        if (!qz_dbf_fields_duplicates_ic_ok(check.data(), static_cast<unsigned>(check.size()))) {
            throw_error(QZ_DBF_ERR_ARGUMENT, "restructure: two fields have the same name");
        }
    }

    qz_dbf_clear_last_error();
    restruct_ptr d(qz_dbf_restruct_create(t.path().c_str()));
    if (!d || qz_dbf_restruct_count(d.get()) != static_cast<int>(fields.size())) {
        throw_last_error(QZ_DBF_ERR_IO, t.path() + ": the table's fields cannot be read");
    }
    // Entry i of the descriptor becomes wanted field i: an old field's entry
    // is moved there and changed, a new one inserted; the entries left over
    // at the end are the fields that go.
    for (size_t i = 0; i < wanted.size(); ++i) {
        const int at = static_cast<int>(i);
        int found = -1;
        if (wanted[i].source >= 0) {
            for (int j = at; j < qz_dbf_restruct_count(d.get()); ++j) {
                if (qz_dbf_restruct_get_field_old_no(d.get(), j) == wanted[i].source) {
                    found = j;
                    break;
                }
            }
        }
        if (found >= 0) {
            if (found != at) qz_dbf_restruct_move_field(d.get(), found, at);
            qz_dbf_restruct_set_field(d.get(), at, &wanted[i].field);
        } else {
            qz_dbf_restruct_insert_field(d.get(), at, &wanted[i].field);
        }
    }
    while (qz_dbf_restruct_count(d.get()) > static_cast<int>(wanted.size())) {
        qz_dbf_restruct_remove_field_idx(d.get(), qz_dbf_restruct_count(d.get()) - 1);
    }

    qz_dbf_clear_last_error();
    if (qz_dbf_is_buffered(h)) {
        // A memory table changes in place, as one step of its undo history.
        if (!qz_dbf_try_restruct(h, d.get())) {
            throw_last_error(QZ_DBF_ERR_VALUE, t.path() + ": the table was not restructured");
        }
        t.reload_fields();
        return;
    }
    // A table file is rewritten whole; the handle lets go of its writer
    // lock meanwhile and opens the new table afterwards.
    t.close();
    const bool done = qz_dbf_restruct_apply(d.get());
    t.reopen();
    if (!done) throw_last_error(QZ_DBF_ERR_IO, t.path() + ": the table was not restructured");
}

bool field_name_ok(const std::string& name) {
    return qz_dbf_field_name_is_ok(name.c_str());
}

std::string fix_field_name(const std::string& name) {
    collected out;
    std::unique_ptr<Iqz_string_adp, void (*)(Iqz_string_adp*)> adp(
        qz_string_adp_create(&collect, nullptr, &out), qz_string_adp_destroy);
    if (!adp) throw_error(QZ_DBF_ERR_MEMORY, "out of memory");
    qz_dbf_field_name_fix(name.c_str(), adp.get());
    return out.text;
}

py::list fix_field_names(const py::list& names) {
    std::vector<Tqz_dbf_field> fields(names.size());
    for (size_t i = 0; i < names.size(); ++i) {
        const std::string repaired = fix_field_name(py::str(names[i]));
        qz_dbf_field_init(&fields[i], repaired.c_str(), dbf_ft_char, 1, 0);
    }
    qz_dbf_fields_names_fix(fields.data(), static_cast<unsigned>(fields.size()));
    py::list out;
    for (auto& f : fields) out.append(py::str(f.name));
    return out;
}

bool history_undo() {
    return qz_history_manager_undo(qz_history_manager_get_instance());
}
bool history_redo() {
    return qz_history_manager_redo(qz_history_manager_get_instance());
}
bool history_can_undo() {
    return qz_history_manager_can_undo(qz_history_manager_get_instance());
}
bool history_can_redo() {
    return qz_history_manager_can_redo(qz_history_manager_get_instance());
}
void history_clear() {
    qz_history_manager_clear(qz_history_manager_get_instance());
}

}  // namespace qzpy
