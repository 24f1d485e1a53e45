#include "restruct/rstrct.h"

#include <cstring>

#include "api/table_rw.h"
#include "dbf/basic_table.h"

namespace qz::restruct {

Tqz_dbf_field make_field(const char* name, char type, unsigned char flen, signed char dlen) {
    Tqz_dbf_field f;
    std::memset(&f, 0, sizeof f);
    size_t n = name ? strnlen(name, 10) : 0;
    // A name longer than 10 bytes in UTF-8 system text is cut before the
    // character that does not fit whole.
    if (n == 10 && name[10] != 0 && qz_options_get_ansi_code_page() == 65001)
        while (n > 0 && (static_cast<unsigned char>(name[n]) & 0xC0) == 0x80) --n;
    if (n > 0) std::memcpy(f.name, name, n);
    f.type = type;
    f.flen = flen;
    f.dlen = dlen;
    return f;
}

}  // namespace qz::restruct

namespace {

// The table at `path`, opened read-only without the DOS flag, for the length
// of a scope.
class Read_table {
  public:
    explicit Read_table(const std::wstring& path) : h(qz_dbf_open_w(path.c_str(), true, false)) {}
    ~Read_table() {
        if (h) qz_dbf_close(h);
    }
    Read_table(const Read_table&) = delete;
    Read_table& operator=(const Read_table&) = delete;
    Tqz_dbf_rw* get() const { return h; }

  private:
    Tqz_dbf_rw* h;
};

bool same_name(const Tqz_dbf_field& a, const Tqz_dbf_field& b) {
    return std::strncmp(a.name, b.name, sizeof a.name) == 0;
}

}  // namespace

Tqz_fld_meta::Tqz_fld_meta(const Tqz_dbf_field& f, int status, int old_number)
    : field(f), old_field(f), old_no(status == dbf_fld_same ? old_number : -1) {
    // Names are read as zero-terminated text: the last byte ends them.
    field.name[10] = 0;
    old_field.name[10] = 0;
}

std::string Tqz_fld_meta::get_name() const {
    return std::string(field.name, strnlen(field.name, sizeof field.name));
}

void Tqz_fld_meta::set_name(const std::string& name) {
    std::memset(field.name, 0, sizeof field.name);
    std::memcpy(field.name, name.data(), std::min<size_t>(name.size(), 10));
}

Tdbf_fld_status Tqz_fld_meta::get_status() const {
    if (old_no == -1) return dbf_fld_new;
    if (!same_name(field, old_field) || field.type != old_field.type ||
        field.flen != old_field.flen || field.dlen != old_field.dlen)
        return dbf_fld_changed;
    return dbf_fld_same;
}

void Tqz_fld_meta::set_field(const Tqz_dbf_field& f) {
    field = f;
    field.name[10] = 0;
}

Tqz_dbf_rstrct::Tqz_dbf_rstrct(const std::wstring& table_path, bool load) : path(table_path) {
    if (load) add_fields(path, dbf_fld_same);
}

void Tqz_dbf_rstrct::add_fields(const std::wstring& table_path, int status) {
    Read_table t(table_path);
    if (!t.get()) return;
    const unsigned int nf = qz_dbf_get_nf(t.get());
    auto* dbf = dynamic_cast<Tqz_dbf_basic*>(t.get()->current());
    for (unsigned int i = 0; i < nf; ++i) {
        // The letter of the field's type; a letter no type stands for (such
        // as a currency or date-time field) is kept as it is rather than
        // made a C field.
        char letter = static_cast<char>(qz_dbftype2char(qz_dbf_get_field_type(t.get(), i)));
        if (dbf && qz_char2dbftype(dbf->get_field_letter(i)) == dbf_ft_unknown &&
            dbf->get_field_letter(i) != 0)
            letter = dbf->get_field_letter(i);
        Tqz_dbf_field f =
            qz::restruct::make_field(qz_dbf_get_field_name(t.get(), i), letter,
                                     static_cast<unsigned char>(qz_dbf_get_field_flen(t.get(), i)),
                                     static_cast<signed char>(qz_dbf_get_field_dlen(t.get(), i)));
        fields.emplace_back(f, status, static_cast<int>(i));
    }
}

int Tqz_dbf_rstrct::add_field(const Tqz_dbf_field& f, int status, int old_number) {
    fields.emplace_back(f, status, old_number);
    return count() - 1;
}

int Tqz_dbf_rstrct::add_field(const std::string& name, Tqz_dbf_field_type type, unsigned char flen,
                              signed char dlen) {
    return add_field(qz::restruct::make_field(name.c_str(),
                                              static_cast<char>(qz_dbftype2char(type)), flen, dlen),
                     dbf_fld_new, -1);
}

void Tqz_dbf_rstrct::add_fields(const Tqz_dbf_field* array, int n) {
    if (!array) return;
    for (int i = 0; i < n; ++i) add_field(array[i], dbf_fld_new, -1);
}

bool Tqz_dbf_rstrct::insert_field(int idx, const Tqz_dbf_field& f, int status, int old_number) {
    if (idx < 0 || idx > count()) return false;
    fields.insert(fields.begin() + idx, Tqz_fld_meta(f, status, old_number));
    return true;
}

bool Tqz_dbf_rstrct::insert_field(int idx, const std::string& name, Tqz_dbf_field_type type,
                                  unsigned char flen, signed char dlen) {
    return insert_field(idx,
                        qz::restruct::make_field(
                            name.c_str(), static_cast<char>(qz_dbftype2char(type)), flen, dlen),
                        dbf_fld_new, -1);
}

void Tqz_dbf_rstrct::remove_field(int idx) {
    if (valid(idx)) fields.erase(fields.begin() + idx);
}

void Tqz_dbf_rstrct::remove_field(const Tqz_dbf_field& f) {
    remove_field(std::string(f.name, strnlen(f.name, sizeof f.name)));
}

void Tqz_dbf_rstrct::remove_field(const std::string& name) {
    for (size_t i = 0; i < fields.size(); ++i)
        if (fields[i].get_name() == name) {
            fields.erase(fields.begin() + static_cast<std::ptrdiff_t>(i));
            return;
        }
}

void Tqz_dbf_rstrct::move_field(int from, int to) {
    if (!valid(from) || !valid(to) || from == to) return;
    Tqz_fld_meta moved = fields[static_cast<size_t>(from)];
    if (from < to) {
        fields.insert(fields.begin() + to + 1, moved);
        fields.erase(fields.begin() + from);
    } else {
        fields.insert(fields.begin() + to, moved);
        fields.erase(fields.begin() + from + 1);
    }
}

Tqz_dbf_field* Tqz_dbf_rstrct::get_field(int idx) {
    return valid(idx) ? &fields[static_cast<size_t>(idx)].get_field() : nullptr;
}

void Tqz_dbf_rstrct::set_field(int idx, const Tqz_dbf_field& f) {
    if (valid(idx)) fields[static_cast<size_t>(idx)].set_field(f);
}

Tdbf_fld_status Tqz_dbf_rstrct::get_field_status(int idx) const {
    return valid(idx) ? fields[static_cast<size_t>(idx)].get_status() : dbf_fld_new;
}

int Tqz_dbf_rstrct::get_field_old_no(int idx) const {
    return valid(idx) ? fields[static_cast<size_t>(idx)].get_old_no() : -1;
}

Tqz_dbf_field_type Tqz_dbf_rstrct::get_old_type(int idx) const {
    const int o = get_field_old_no(idx);
    if (o < 0) return dbf_ft_unknown;
    Read_table t(path);
    return t.get() ? qz_dbf_get_field_type(t.get(), static_cast<unsigned int>(o)) : dbf_ft_unknown;
}

unsigned int Tqz_dbf_rstrct::get_old_flen(int idx) const {
    const int o = get_field_old_no(idx);
    if (o < 0) return 0;
    Read_table t(path);
    return t.get() ? qz_dbf_get_field_flen(t.get(), static_cast<unsigned int>(o)) : 0;
}

void Tqz_dbf_rstrct::get_old_name(int idx, Iqz_string_adp* out) const {
    const int o = get_field_old_no(idx);
    if (o < 0 || !out) return;
    Read_table t(path);
    if (t.get()) qz_dbf_get_field_name_w(t.get(), static_cast<unsigned int>(o), out);
}

bool Tqz_dbf_rstrct::is_dbf_writeble() const {
    Read_table t(path);
    return t.get() != nullptr;
}
