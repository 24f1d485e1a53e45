// The memo files of a table: Tqz_dbf_basic's FPT and DBT readers and the
// memo of a cell.
#include <cstring>
#include <string>

#include "code_page_text.h"
#include "dbf/basic_table.h"
#include "memo/dbt_rw.h"
#include "memo/fpt_rw.h"
#include "support/filesystem.h"

namespace {

// Opens a reader of kind R on the table's companion file with extension
// `ext`; null when there is no such file or it cannot be opened.
template <class R>
R* open_reader(const wchar_t* table_path, const wchar_t* ext, bool read_only) {
    std::wstring path = table_path ? table_path : L"";
    if (path.empty()) return nullptr;
    std::wstring name = qz::filesystem::find_companion(qz::filesystem::change_extension(path, ext));
    R* reader = new R();
    if (reader->open(name.c_str(), read_only) != 0) {
        delete reader;
        return nullptr;
    }
    return reader;
}

std::wstring from_ansi(const char* path) {
    return path ? qz::basic::cp_to_wide(0, path, std::strlen(path)) : std::wstring();
}

}  // namespace

bool Tqz_dbf_basic::open_fpt(const wchar_t* table_path, bool read_only) {
    close_fpt();
    fpt = open_reader<Tqz_fpt_rw>(table_path, L".fpt", read_only);
    return fpt != nullptr;
}

bool Tqz_dbf_basic::open_fpt(const char* table_path, bool read_only) {
    return open_fpt(from_ansi(table_path).c_str(), read_only);
}

bool Tqz_dbf_basic::open_dbt(const wchar_t* table_path, bool read_only) {
    close_dbt();
    dbt = open_reader<Tqz_dbt_rw>(table_path, L".dbt", read_only);
    return dbt != nullptr;
}

bool Tqz_dbf_basic::open_dbt(const char* table_path, bool read_only) {
    return open_dbt(from_ansi(table_path).c_str(), read_only);
}

void Tqz_dbf_basic::close_fpt() {
    delete fpt;
    fpt = nullptr;
}

void Tqz_dbf_basic::close_dbt() {
    delete dbt;
    dbt = nullptr;
}

const unsigned char* Tqz_dbf_basic::get_memo_bytes(unsigned int field, unsigned int record,
                                                   bool& ok, unsigned int& len,
                                                   unsigned int& type) {
    ok = true;
    if (!fpt && !dbt) {
        ok = false;
        return nullptr;
    }
    // The cell holds the block number as text; the value layer reads it.
    const int block = get_as_integer(field, record, ok);
    if (!ok) return nullptr;
    const char* memo = fpt ? fpt->get_memo(static_cast<unsigned int>(block), len, type)
                           : dbt->get_memo(static_cast<unsigned int>(block), len, type);
    ok = memo != nullptr;
    return reinterpret_cast<const unsigned char*>(memo);
}
