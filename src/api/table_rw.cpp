#include "api/table_rw.h"

#include <cstring>
#include <cwchar>
#include <memory>
#include <string>

#include "code_page_text.h"
#include "dbf/disk_table.h"
#include "errors/last_error.h"
#include "memory/memory_list.h"
#include "memory/memory_table.h"
#include "notify/dbf_notifier.h"
#include "ogr/dbf_signature.h"
#include "ogr/ogr_module.h"
#include "support/filesystem.h"

namespace {

// A narrow path is system text; one that does not convert whole becomes
// the empty path, which no storage opens.
std::wstring widen_path(const char* path) {
    if (!path) return std::wstring();
    return qz::basic::cp_to_wide(0, path, std::strlen(path));
}

// The loaded memory table of `path` with one more holder, or null.
Tqz_dbf_memory* hold_memory_table(const wchar_t* path) {
    Tqz_dbf_memory_list* list = Tqz_dbf_rw::get_mem_list();
    Tqz_dbf_memory* m = list ? list->find(path) : nullptr;
    if (m) m->add_reference();
    return m;
}

}  // namespace

Tqz_dbf_rw::Tqz_dbf_rw() {
    disk = new Tqz_dbf_disk();
}

Tqz_dbf_ogr_source* Tqz_dbf_rw::ogr_table() {
    if (!ogr) {
        if (const qz_ogr_module_entry* m = qz::ogr::module()) ogr = m->make_table();
    }
    return ogr;
}

Tqz_dbf_rw::~Tqz_dbf_rw() {
    close();
    delete disk;
    delete ogr;
}

int Tqz_dbf_rw::open(const wchar_t* path, bool ro, bool dos_flag) {
    close();
    this->path = path ? path : L"";
    read_only = ro;
    int result = 0;
    // A path loaded in memory is served from there, whatever the flags.
    memory = hold_memory_table(path);
    if (memory) {
        table = memory;
    } else {
        // A source that is plainly another format (a GeoPackage, a GeoJSON
        // or CSV file, ...) goes to OGR alone: the disk table would read any
        // file as a table, its bytes as a header, and so serve a damaged
        // GeoPackage as garbage.
        const std::string utf8 =
            qz::basic::wide_to_cp(65001, path ? path : L"", path ? std::wcslen(path) : 0);
        // Only a path that may be such a source loads the OGR module.
        const qz_ogr_module_entry* m =
            qz::ogr::may_be_other_vector_source(this->path, utf8) ? qz::ogr::module() : nullptr;
        if (m && m->is_other_vector_source(utf8.c_str()) && ogr_table()) {
            result = ogr->open(utf8.c_str(), ro, dos_flag);
            if (result == 0) table = ogr;
        } else if ((result = disk->open(path, ro, dos_flag, false)) == 0) {
            table = disk;
        } else {
            // What the disk table cannot open, OGR may. A table whose writer
            // lock another handle holds is opened through OGR read-only, so
            // this handle never writes beside that writer. The disk table's
            // reason becomes the last error when OGR cannot open it either;
            // when OGR can, the last error stays as it was.
            const bool lock_refused = disk->lock_refused();
            const int code_before = qz::errors::last_code();
            const std::string message_before = qz::errors::last_message();
            qz::errors::set_open_failure(this->path, !ro, lock_refused);
            if (ogr_fallback && ogr_table()) {
                result = ogr->open(path, ro || lock_refused, dos_flag);
                if (result == 0) {
                    table = ogr;
                    qz::errors::set(code_before, message_before);
                }
            }
        }
        own_table = table != nullptr;
    }
    begin_write_bracket();
    return result;
}

int Tqz_dbf_rw::open(const char* path, bool ro, bool dos_flag) {
    return open(widen_path(path).c_str(), ro, dos_flag);
}

int Tqz_dbf_rw::create(const wchar_t* path, unsigned int nf, unsigned int nr, Tqz_dbf_field* fields,
                       bool dos_flag) {
    close();
    this->path = path ? path : L"";
    read_only = false;
    int result = 0;
    memory = hold_memory_table(path);
    if (memory) {
        // Re-created in memory; the DOS flag is not handed on.
        memory->create_new(nf, nr, fields, false);
        table = memory;
    } else {
        result = disk->create(path, nf, nr, fields, dos_flag, false);
        if (result == 0) {
            table = disk;
            own_table = true;
        } else if (disk->lock_refused()) {
            qz::errors::set(qz::errors::locked, this->path, "locked by another writer");
        } else if (!fields && nf > 0) {
            qz::errors::set(qz::errors::argument, this->path, "no field descriptors given");
        } else {
            qz::errors::set_open_failure(this->path, true, false);
            if (qz::errors::last_code() == qz::errors::not_found)
                qz::errors::set(qz::errors::not_found, this->path, "the folder does not exist");
        }
    }
    begin_write_bracket();
    return result;
}

int Tqz_dbf_rw::create(const char* path, unsigned int nf, unsigned int nr, Tqz_dbf_field* fields,
                       bool dos_flag) {
    return create(widen_path(path).c_str(), nf, nr, fields, dos_flag);
}

// Also after a failed open or create: the disk table holds a notifier
// whenever its open or create got that far, and close ends the bracket.
void Tqz_dbf_rw::begin_write_bracket() {
    if (read_only) return;
    if (memory && memory->get_notifier()) memory->get_notifier()->begin_update();
    disk->begin_handle_bracket();
}

void Tqz_dbf_rw::close() {
    if (memory) {
        if (!read_only && memory->get_notifier()) memory->get_notifier()->end_update();
        Tqz_dbf_memory* held = memory;
        memory = nullptr;
        dbf_free_mem_by_ptr(held);
    }
    if (!read_only) disk->end_handle_bracket();
    if (own_table && table) table->close();
    own_table = false;
    table = nullptr;
    read_only = false;
    encoding_choice = {};
    typed_reader.reset();
}

bool Tqz_dbf_rw::flush() {
    return own_table && table == disk ? disk->flush() : true;
}

void Tqz_dbf_rw::keep_cpg() {
    if (own_table && table == disk) disk->keep_cpg(true);
}

Tqz_dbf_rw::storage Tqz_dbf_rw::current_storage() const {
    if (!table) return storage::none;
    if (memory) return storage::memory;
    return table == ogr ? storage::ogr : storage::disk;
}

const char* Tqz_dbf_rw::ogr_driver_name() const {
    return table && table == ogr ? ogr->driver_name() : "";
}

bool Tqz_dbf_rw::delete_files(const wchar_t* path_w) {
    std::wstring path = path_w ? path_w : L"";
    if (!qz::filesystem::path_exist(path)) return false;
    std::wstring cpg =
        qz::filesystem::find_companion(qz::filesystem::change_extension(path, L".cpg"));
    qz::filesystem::remove_file(path);
    qz::filesystem::remove_file(cpg);
    return true;
}
