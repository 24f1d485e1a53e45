// Shared pieces of the qzdbf commands.
#pragma once

#include <string>
#include <vector>

#include "qzk_file_dbf.h"

namespace qzdbf {

// Exit statuses.
constexpr int kOk = 0;
constexpr int kFailed = 1;    // the table could not be opened, read or written
constexpr int kBadUsage = 2;  // the command line, the file or a value is wrong
constexpr int kIoError = 3;   // the file is locked, read-only or cannot be read or written

using Args = std::vector<std::string>;

// dump with its command-line arguments (without "dump"), as edit's show
// runs it.
int cmd_dump(const Args& args);

// A path argument (system text) as wide text.
std::wstring widen_path(const std::string& path);
// Removes the records set in `mask` from the table at `path` and prints how
// many went and how many are left; an exit status. A progress bar named
// `what` shows on a terminal while the table is rewritten.
int remove_by_mask(const std::string& path, void* mask, const char* what = "delete");
// edit's delmask: removes the named records of the loaded table at `path`
// (seen through `view`) as one undoable step; false with a message.
bool edit_delmask(Tqz_dbf_rw* view, const std::string& path, const Args& records,
                  std::string& error);
// A field written NAME:TYPE:LEN[:DEC]; false with a message in `error`.
bool parse_field(const std::string& text, Tqz_dbf_field& f, std::string& error);

// Changes of a table's layout, each an option and its argument:
// --add NAME:TYPE:LEN[:DEC], --drop NAME, --rename OLD=NEW,
// --retype NAME:TYPE:LEN[:DEC], --move NAME=INDEX.
using Alterations = std::vector<std::pair<std::string, std::string>>;
// Reads alterations from `args` (from index `first` on); false with a message.
bool parse_alterations(const Args& args, size_t first, Alterations& out, std::string& error);
// Applies them in order to a restructure descriptor; false with a message
// (the descriptor is then half changed and must not be applied).
bool alter_descriptor(Tqz_dbf_rstrct* d, const Alterations& changes, std::string& error);
// Prints the fields of a table (index, name, type, length, decimals).
void print_layout(Tqz_dbf_rw* table, const char* title);

// Prints "qzdbf: <message>" to standard error and returns `status`.
int fail(int status, const std::string& message);

// Parses a whole unsigned decimal number; false for anything else.
bool parse_count(const std::string& text, unsigned long long max, unsigned long long& out);

// The field a command-line argument names: its exact name, else its index,
// else its name in any letter case. False (with a message in `error`) when
// no field matches.
// A field's name as UTF-8 text, decoded in the table's encoding (the one
// --encoding names, else the .cpg file, the language driver, the flags).
std::string field_name(Tqz_dbf_rw* table, unsigned int field);

bool resolve_field(Tqz_dbf_rw* table, const std::string& arg, unsigned int& field,
                   std::string& error);

// A record index below the table's record count; false with a message.
bool resolve_record(Tqz_dbf_rw* table, const std::string& arg, unsigned int& record,
                    std::string& error);

// The value as the field should receive it: numbers checked character by
// character (a decimal comma becomes a point), dates as YYYYMMDD or
// YYYY-MM-DD. False with a message in `error`.
bool prepare_value(Tqz_dbf_rw* table, unsigned int field, const std::string& value,
                   std::string& out, std::string& error);

// Whether the field holds a number (N, F, I, B): shown right-aligned.
bool numeric_field(Tqz_dbf_rw* table, unsigned int field);

// `text` without the blanks (" \t\n\r\v\f") around it.
std::string trim_blanks(const std::string& text);

// A cell as system text without the blanks around it; empty when it has no
// value.
std::string cell_text(Tqz_dbf_rw* table, unsigned int field, unsigned int record, bool* ok);

// The memo an M cell points to, as system text; "<binary, N bytes>" for a
// picture or object memo. False (and "") when the cell leads to no memo.
bool memo_text(Tqz_dbf_rw* table, unsigned int field, unsigned int record, std::string& text);

// Which storage serves the table: "DBF file", "memory" or "OGR (<driver>)".
std::string storage_text(Tqz_dbf_rw* table);
// The name of one of the source's layers ("" for a table file's one layer).
std::string layer_name(Tqz_dbf_rw* table, unsigned int layer);
// Makes the layer `arg` (an index) current; false with a message.
bool select_layer(Tqz_dbf_rw* table, const std::string& arg, std::string& error);

}  // namespace qzdbf
