/*
 * qzk_file_dbf: dBASE tables (.dbf with .fpt/.dbt memos and .cpg code pages)
 * through a flat C interface.
 *
 * Conventions
 *  - Every export has C linkage. This header compiles as C99 and as C++.
 *    Out-parameters are references in C++ (`bool& ok`) and pointers in C
 *    (`bool* ok`); the two have the same ABI.
 *  - Handles: a table handle (Tqz_dbf_rw*) comes from qz_dbf_open(_w) or
 *    qz_dbf_create(_w) and is given back with qz_dbf_close. The caller owns
 *    it; it must not be used after close. A handle is not tested for null.
 *  - Indexes: field first, record second, both counted from 0.
 *  - Returned text (const char* / const wchar_t*) is borrowed from the table
 *    and stays valid until the next call on the same handle. Copy it, or use
 *    the forms that feed a string adapter (Iqz_string_adp, see qzk_basic.h).
 *  - Paths: `wchar_t` paths (the _w forms) are encoded to UTF-8 for the
 *    kernel; `char` paths are system text in the ANSI code page.
 *  - Failures are results: open and create give a null handle; other calls
 *    give false, 0, 0.0, a null pointer or empty text. No exception leaves an
 *    export; nothing is logged.
 */
#ifndef QZK_FILE_DBF_H
#define QZK_FILE_DBF_H

#include <stdbool.h>
#include <stdint.h>
#include <wchar.h>

#include "qzk_basic.h"

#if defined(QZK_FILE_DBF_BUILD)
#define QZ_DBF_API __attribute__((visibility("default")))
#else
#define QZ_DBF_API
#endif

#ifdef __cplusplus
#define QZ_OUT(T) T&
#else
#define QZ_OUT(T) T*
#endif

#ifdef __cplusplus
class Tqz_dbf_rw;
class Tqz_dbf_memory;
class Tqz_dbf_notifier;
class Tqz_fpt_rw;
class Tqz_dbt_rw;
class Tqz_dbf_rstrct;
extern "C" {
#else
typedef struct Tqz_dbf_rw Tqz_dbf_rw;
typedef struct Tqz_dbf_memory Tqz_dbf_memory; /* a table held in memory */
typedef struct Tqz_dbf_notifier Tqz_dbf_notifier;
typedef struct Tqz_fpt_rw Tqz_fpt_rw;         /* an open .fpt memo file */
typedef struct Tqz_dbt_rw Tqz_dbt_rw;         /* an open .dbt memo file */
typedef struct Tqz_dbf_rstrct Tqz_dbf_rstrct; /* a restructure descriptor */
#endif

/* ---- Field descriptors ------------------------------------------------------ */

/* Field types, indexing the letters "CCNLMDFIBP". */
typedef enum Tqz_dbf_field_type {
    dbf_ft_unknown = 0, /* written as 'C' */
    dbf_ft_char = 1,    /* C */
    dbf_ft_numeric = 2, /* N */
    dbf_ft_logical = 3, /* L */
    dbf_ft_memo = 4,    /* M */
    dbf_ft_date = 5,    /* D */
    dbf_ft_float = 6,   /* F */
    dbf_ft_integer = 7, /* I */
    dbf_ft_double = 8,  /* B */
    dbf_ft_picture = 9  /* P */
} Tqz_dbf_field_type;

/* One field as passed in arrays to create: exactly 14 bytes. */
#pragma pack(push, 1)
typedef struct Tqz_dbf_field {
    char name[11];      /* NUL-terminated, at most 10 significant bytes */
    char type;          /* the type letter itself, such as 'C' */
    unsigned char flen; /* field length in bytes */
    signed char dlen;   /* decimal count */
} Tqz_dbf_field;
#pragma pack(pop)

#ifdef __cplusplus
static_assert(sizeof(Tqz_dbf_field) == 14, "Tqz_dbf_field is 14 bytes");
#else
typedef char qz_dbf_field_size_check[(sizeof(Tqz_dbf_field) == 14) ? 1 : -1];
#endif

/* The letter of a type: 'C' for anything outside 0..9. */
QZ_DBF_API int qz_dbftype2char(Tqz_dbf_field_type type);
/* The type of a letter ('B','C','D','F','I','L','M','N','P'); 0 otherwise. */
QZ_DBF_API Tqz_dbf_field_type qz_char2dbftype(char c);
/* Fills a descriptor: the first 10 bytes of `name`, the letter of `type`. */
QZ_DBF_API void qz_dbf_field_init(Tqz_dbf_field* f, const char* name, Tqz_dbf_field_type type,
                                  unsigned char flen, char dlen);

/* ---- Field names -------------------------------------------------------------
 *
 * A valid field name has 1 to 10 bytes, only the characters "A-Z a-z _ 0-9",
 * a letter (A-Z, a-z) first, and no lower-case letter. Names are system text
 * (the ANSI code page); a name is never cut inside a multi-byte character.
 * Letter case follows Unicode rules on the decoded text.
 *
 *  - The "ok" calls answer a bool; the "fix" calls feed their result to the
 *    caller's adapter as 8-bit system text (qz_string_adp_feed_c), also from
 *    the _w forms, whose wide names are converted to system text first.
 *  - Repair (name_fix): transliteration into Latin letters ("#" becomes "_"),
 *    leading non-letters dropped ("12AB" -> "AB"; a lone "1" -> "PROP1";
 *    nothing left -> "PROP"), cut to 10 bytes, upper case. Characters the
 *    transliteration leaves outside the permitted set stay, so such a name is
 *    still not valid after repair.
 *  - Field arrays: `count` descriptors of 14 bytes are read; the "fix" calls
 *    write all of them back. A name is read up to its zero or the end of its
 *    11 bytes; every name written has at most 10 bytes and ends with a zero.
 *    Count 0 is valid. A null pointer reads as an empty name or list.
 *  - Duplicates are names equal without regard to letter case; the repair
 *    keeps the first and numbers the later ones ("ID", "ID1", "ID2", ...). */

/* 1 to 10 bytes. */
QZ_DBF_API bool qz_dbf_field_name_size_ok(const char* name);
/* Empty: "PROP"; longer than 10 bytes: cut; otherwise unchanged. */
QZ_DBF_API void qz_dbf_field_name_size_fix(const char* name, Iqz_string_adp* out);
/* Only "A-Z a-z _ 0-9" (true for the empty name). */
QZ_DBF_API bool qz_dbf_field_symbols_ok(const char* name);
QZ_DBF_API bool qz_dbf_field_symbols_ok_w(const wchar_t* name);
/* Transliterated into Latin letters, "#" replaced by "_". */
QZ_DBF_API void qz_dbf_field_symbols_fix(const char* name, Iqz_string_adp* out);
QZ_DBF_API void qz_dbf_field_symbols_fix_w(const wchar_t* name, Iqz_string_adp* out);
/* Not empty and begins with a letter. */
QZ_DBF_API bool qz_dbf_field_first_symb_ok(const char* name);
QZ_DBF_API void qz_dbf_field_first_symb_fix(const char* name, Iqz_string_adp* out);
/* Every rule of a valid name. */
QZ_DBF_API bool qz_dbf_field_name_is_ok(const char* name);
QZ_DBF_API bool qz_dbf_field_name_is_ok_w(const wchar_t* name);
/* The repaired name (see above). */
QZ_DBF_API void qz_dbf_field_name_fix(const char* name, Iqz_string_adp* out);
QZ_DBF_API void qz_dbf_field_name_fix_w(const wchar_t* name, Iqz_string_adp* out);

/* No two names equal without regard to letter case. */
QZ_DBF_API bool qz_dbf_fields_duplicates_ic_ok(const Tqz_dbf_field* fields, unsigned int count);
/* Renames every name that equals an earlier one (any case) by a number. */
QZ_DBF_API void qz_dbf_fields_duplicates_ic_fix(Tqz_dbf_field* fields, unsigned int count);
/* No duplicates and every name valid. */
QZ_DBF_API bool qz_dbf_fields_names_ok(const Tqz_dbf_field* fields, unsigned int count);
/* Repairs every invalid name (valid ones are untouched), then duplicates. */
QZ_DBF_API void qz_dbf_fields_names_fix(Tqz_dbf_field* fields, unsigned int count);

/* `name` (cut to 10 bytes) followed by `separator` and the decimal `n`, cut
 * before the separator so that the whole stays within 10 bytes:
 * ("ABC", 1, "_") -> "ABC_1", ("ABCDEFGHIJ", 1, "_") -> "ABCDEFGH_1". */
QZ_DBF_API void qz_dbf_field_name_add_num_ending(const char* name, unsigned int n,
                                                 Iqz_string_adp* out, const char* separator);
QZ_DBF_API void qz_dbf_field_name_add_num_ending_w(const wchar_t* name, unsigned int n,
                                                   Iqz_string_adp* out,
                                                   const wchar_t* separator);
/* A name no descriptor holds (exact comparison): `name` cut to 10 bytes,
 * else with the ending 0, 1, 2, ... ("NAME0", "NAME1"). The _old form keeps
 * the whole name and appends the number without a cut ("ABCDEFGHIJ0"). */
QZ_DBF_API void qz_dbf_fields_unique_name(const Tqz_dbf_field* fields, unsigned int count,
                                          const char* name, Iqz_string_adp* out);
QZ_DBF_API void qz_dbf_fields_unique_name_old(const Tqz_dbf_field* fields, unsigned int count,
                                              const char* name, Iqz_string_adp* out);
/* A name no field of the handle's table holds (exact comparison): the name
 * cut to 10 bytes, else with the ending 1, 2, ... ("NAME1"). The returned
 * text is static storage, overwritten by the next call of the same function
 * (not for use from two threads at once). The _old form appends the number
 * to the whole name without a cut. The _w form feeds system text to `out`. */
QZ_DBF_API const char* qz_dbf_generate_unin_name(Tqz_dbf_rw* handle, const char* name);
QZ_DBF_API const char* qz_dbf_generate_unin_name_old(Tqz_dbf_rw* handle, const char* name);
QZ_DBF_API void qz_dbf_generate_unin_name_w(Tqz_dbf_rw* handle, const wchar_t* name,
                                            Iqz_string_adp* out);
/* The older whole-list repair: every byte of each name (at most 10) mapped
 * to a capital Latin or Cyrillic letter or digit (a digit may come first),
 * anything else to "_" ("A" first); an empty name becomes "PROP". Then each
 * name that equals an earlier one (blanks around ignored, any case) gets
 * "_1", "_2", ... appended to what it has become. False for count <= 0;
 * otherwise true when a duplicate was renamed or the last field's name was
 * changed. Cyrillic letters are kept under every system code page. */
QZ_DBF_API bool qz_dbf_make_correct_names(Tqz_dbf_field* fields, int count);

/* ---- Table lifecycle ---------------------------------------------------------- */

/* Opens a table. Unless `read_only`, takes the writer lock "<path>.lk" and
 * fails while another writer holds it. `dos_flag` marks the text as CP866
 * unless the table's .cpg file says otherwise. Null on failure. */
QZ_DBF_API Tqz_dbf_rw* qz_dbf_open_w(const wchar_t* path, bool read_only, bool dos_flag);
QZ_DBF_API Tqz_dbf_rw* qz_dbf_open(const char* path, bool read_only, bool dos_flag);

/* Creates (or overwrites) a table with `nf` fields and `nr` blank records and
 * keeps it open for writing. The .cpg file is written when it is closed. */
QZ_DBF_API Tqz_dbf_rw* qz_dbf_create_w(const wchar_t* path, unsigned int nf, unsigned int nr,
                                       Tqz_dbf_field* fields, bool dos_flag);
QZ_DBF_API Tqz_dbf_rw* qz_dbf_create(const char* path, unsigned int nf, unsigned int nr,
                                     Tqz_dbf_field* fields, bool dos_flag);
/* As qz_dbf_create_w, after repairing the field names in the caller's array
 * (qz_dbf_fields_names_fix). */
QZ_DBF_API Tqz_dbf_rw* qz_dbf_create_safe(const wchar_t* path, unsigned int nf, unsigned int nr,
                                          Tqz_dbf_field* fields, bool dos_flag);

/* Gives the table at `new_path` the field layout of the table at
 * `template_path`: an existing table (or memory table) there keeps its record
 * count and gets the layout with blank values; when nothing opens there, a
 * new empty table is made in the template's encoding. */
QZ_DBF_API void qz_dbf_create_dbf_with_struct(const wchar_t* new_path,
                                              const wchar_t* template_path);

/* Closes the table and frees the handle. */
QZ_DBF_API void qz_dbf_close(Tqz_dbf_rw* handle);

/* Removes a table file and its .cpg file (memo and lock files stay).
 * Returns whether something existed at `path`. */
QZ_DBF_API bool qz_dbf_delete(const wchar_t* path);

/* Whether the handle serves a table held in memory. */
QZ_DBF_API bool qz_dbf_is_buffered(Tqz_dbf_rw* handle);

/* The handle's last validation error code. */
QZ_DBF_API void qz_dbf_set_last_valid_error(Tqz_dbf_rw* handle, int code);
QZ_DBF_API int qz_dbf_get_last_valid_error(Tqz_dbf_rw* handle);

/* ---- Deleting records by mask ------------------------------------------------- */

/* Removes the records of the table at `path` whose bits are set in `mask` (a
 * bit set of qzk_basic: bit r set means record r goes). A table loaded in
 * memory loses them as one undoable step and its file is not touched.
 * Otherwise the kept records are copied, values as text, to
 * "temp_minus_dbf.dbf" in qz_options_get_temp_wpath() (left there until the
 * next call), and that copy takes the table's place whole: the record count
 * of the copy is the table's count less qz_bits_get_val_count(mask, 1), bits
 * past the last record included. Memo and code page files stay as they are.
 * 0 on success, and also when the copy cannot be made or put in place (the
 * table is then unchanged); 1 when the table cannot be opened, another
 * writer holds it, its fields do not fill its records exactly, or `mask` is
 * null (nothing changes). */
QZ_DBF_API unsigned int qz_dbf_del_records_by_msk_and_fn(const wchar_t* path, void* mask);

/* ---- Table properties ----------------------------------------------------------- */

/* Each returns its neutral value (false, 0, null) on a handle without a table. */
QZ_DBF_API bool qz_dbf_get_dos_flag(Tqz_dbf_rw* handle);
QZ_DBF_API void qz_dbf_set_dos_flag(Tqz_dbf_rw* handle, bool on);
QZ_DBF_API bool qz_dbf_get_utf8_flag(Tqz_dbf_rw* handle);
QZ_DBF_API void qz_dbf_set_utf8_flag(Tqz_dbf_rw* handle, bool on);
QZ_DBF_API unsigned int qz_dbf_get_nl(Tqz_dbf_rw* handle); /* layers: 1 for a DBF table */
QZ_DBF_API unsigned int qz_dbf_get_nf(Tqz_dbf_rw* handle); /* fields */
QZ_DBF_API unsigned int qz_dbf_get_nr(Tqz_dbf_rw* handle); /* records (the header's count) */

/* The field's name as system text (borrowed). */
QZ_DBF_API const char* qz_dbf_get_field_name(Tqz_dbf_rw* handle, unsigned int field);
/* The field's name as wide text, fed to `adp`. */
QZ_DBF_API void qz_dbf_get_field_name_w(Tqz_dbf_rw* handle, unsigned int field,
                                        Iqz_string_adp* adp);
QZ_DBF_API Tqz_dbf_field_type qz_dbf_get_field_type(Tqz_dbf_rw* handle, unsigned int field);
QZ_DBF_API unsigned int qz_dbf_get_field_flen(Tqz_dbf_rw* handle, unsigned int field);
QZ_DBF_API int qz_dbf_get_field_dlen(Tqz_dbf_rw* handle, unsigned int field);
/* The index of the field named exactly `name`; 0xFFFFFFFF when none is. */
QZ_DBF_API unsigned int qz_dbf_find_field_index_w(Tqz_dbf_rw* handle, const wchar_t* name);

/* Layers: a DBF table has one (index 0, with the empty name) and accepts
 * any index. */
QZ_DBF_API unsigned int qz_dbf_get_layer(Tqz_dbf_rw* handle);
QZ_DBF_API bool qz_dbf_set_layer(Tqz_dbf_rw* handle, unsigned int layer);
QZ_DBF_API void qz_dbf_get_layer_name(Tqz_dbf_rw* handle, unsigned int layer, Iqz_string_adp* adp);

/* Renames a field (at most 10 bytes in the table's encoding are kept). */
QZ_DBF_API void qz_dbf_set_field_name(Tqz_dbf_rw* handle, unsigned int field, const char* name);
QZ_DBF_API void qz_dbf_set_field_name_w(Tqz_dbf_rw* handle, unsigned int field,
                                        const wchar_t* name);

/* ---- Cell values ---------------------------------------------------------------
 *
 * Every getter and setter takes the field index, then the record index. An
 * index out of range (or a record the file does not hold) gives the neutral
 * result: a getter answers 0, 0.0, false or empty text and clears `ok` (the
 * text getters leave `ok` as it was), a setter writes nothing and answers
 * false.
 *
 * As text, by field type: C, L, D, M and others as stored; N with leading
 * blanks removed (`ok` false for a blank cell); F reformatted with 11
 * significant digits in 19 columns; I and B printed. Writing text to an N or
 * F field that is not a number empties the cell and answers false; a number
 * too long for an N or F field is written empty and still answers true. Text
 * values are system text; the _w forms take wide text. */

/* The cell as system text (borrowed). */
QZ_DBF_API const char* qz_dbf_get_str(Tqz_dbf_rw* handle, unsigned int field, unsigned int record,
                                      QZ_OUT(bool) ok);
/* The cell as wide text fed to `adp`; false (and `adp` untouched) when the
 * cell has no value. */
QZ_DBF_API bool qz_dbf_get_str_w(Tqz_dbf_rw* handle, unsigned int field, unsigned int record,
                                 Iqz_string_adp* adp);
/* The cell as wide text (borrowed); `length` is left as it was. */
QZ_DBF_API const wchar_t* qz_dbf_get_wstr(Tqz_dbf_rw* handle, unsigned int field,
                                          unsigned int record, QZ_OUT(unsigned int) length,
                                          QZ_OUT(bool) ok, int mode);
/* Wide text kept in a C field as hexadecimal UTF-16 code units (four
 * upper-case digits each, a surrogate pair for a character above U+FFFF):
 * the decoded text (borrowed) and its length in characters. Null for I and B
 * fields. */
QZ_DBF_API const wchar_t* qz_dbf_get_wstr_encoded(Tqz_dbf_rw* handle, unsigned int field,
                                                  unsigned int record, QZ_OUT(unsigned int) length,
                                                  QZ_OUT(bool) ok);
/* The same, fed to `adp` (the empty text when nothing could be decoded). */
QZ_DBF_API void qz_dbf_get_wstr_encoded_adpt(Tqz_dbf_rw* handle, unsigned int field,
                                             unsigned int record, QZ_OUT(unsigned int) length,
                                             QZ_OUT(bool) ok, Iqz_string_adp* adp);
QZ_DBF_API int qz_dbf_get_int(Tqz_dbf_rw* handle, unsigned int field, unsigned int record,
                              QZ_OUT(bool) ok);
QZ_DBF_API double qz_dbf_get_dbl(Tqz_dbf_rw* handle, unsigned int field, unsigned int record,
                                 QZ_OUT(bool) ok);
/* L fields read "t", "true", "1", "y" and "f", "false", "0", "n" in any case. */
QZ_DBF_API bool qz_dbf_get_bool(Tqz_dbf_rw* handle, unsigned int field, unsigned int record,
                                QZ_OUT(bool) ok);
/* The cell as a variant: N, F, B floating; I integer; L boolean; others
 * string. `value` is assigned only when the result is true. */
QZ_DBF_API bool qz_dbf_get_any(Tqz_dbf_rw* handle, unsigned int field, unsigned int record,
                               Tqz_any* value);

QZ_DBF_API bool qz_dbf_set_str(Tqz_dbf_rw* handle, unsigned int field, unsigned int record,
                               const char* value);
QZ_DBF_API bool qz_dbf_set_str_w(Tqz_dbf_rw* handle, int field, int record, const wchar_t* value);
/* Keeps up to 64 characters of wide text as hexadecimal (see above); false
 * for N, F, I and B fields. */
QZ_DBF_API bool qz_dbf_set_wstr_encoded(Tqz_dbf_rw* handle, int field, int record,
                                        const wchar_t* value, unsigned int length);
QZ_DBF_API bool qz_dbf_set_int(Tqz_dbf_rw* handle, unsigned int field, unsigned int record,
                               int value);
QZ_DBF_API bool qz_dbf_set_dbl(Tqz_dbf_rw* handle, unsigned int field, unsigned int record,
                               double value);
/* I and B fields get 1 or 0; every other field the letter T or F. */
QZ_DBF_API bool qz_dbf_set_bool(Tqz_dbf_rw* handle, unsigned int field, unsigned int record,
                                bool value);
QZ_DBF_API bool qz_dbf_set_any(Tqz_dbf_rw* handle, unsigned int field, unsigned int record,
                               Tqz_any* value);

/* ---- Search and records ---------------------------------------------------------- */

/* The first record whose cell equals `value` (both trimmed, letter case
 * ignored). `record` is set only when one is found. */
QZ_DBF_API bool qz_dbf_find_value(Tqz_dbf_rw* handle, unsigned int field, const char* value,
                                  QZ_OUT(unsigned int) record);
/* Builds the fast-find index of one field (replacing any other). */
QZ_DBF_API void qz_dbf_begin_fast_find(Tqz_dbf_rw* handle, unsigned int field);
/* The last record whose trimmed cell equals the trimmed `value` exactly, as
 * the index saw the table when it was built. */
QZ_DBF_API bool qz_dbf_find_value_fast(Tqz_dbf_rw* handle, const char* value,
                                       QZ_OUT(unsigned int) record);
QZ_DBF_API void qz_dbf_end_fast_find(Tqz_dbf_rw* handle);

/* Appends `count` blank records. */
QZ_DBF_API void qz_dbf_add_records(Tqz_dbf_rw* handle, unsigned int count);

/* ---- Validation of typed characters ------------------------------------------------- */

/* Whether `typed` may be added to `text` in the field: digits, signs, "e"
 * and a decimal separator (a comma becomes a point in `*typed`) for N, F and
 * B; digits and signs for I; anything for other types, except that with
 * `length_limit` a full C field refuses (last error 1). A backspace (8) is
 * always accepted and clears the last error. */
QZ_DBF_API bool qz_dbf_validate_val(Tqz_dbf_rw* handle, unsigned int field, char* typed,
                                    const char* text, bool length_limit);

/* The 32-byte file header of a DBF table (version, date, counts, lengths);
 * false when the handle has no DBF table. */
QZ_DBF_API bool qz_dbf_get_header(Tqz_dbf_rw* handle, unsigned char header[32]);

/* ---- Change notification --------------------------------------------------------- */

/* The notifier of a table file: one per path in the process (paths that
 * differ only in letter case share one), counted. Its update event channel
 * (see qzk_basic.h) tells its clients about changes to the file:
 *  - QZ_EVENT_BEGIN_UPDATE when the outermost update bracket opens,
 *  - QZ_EVENT_UPDATE (with "count", the number of updates it stands for)
 *    when the file's modification time has changed, merged into one event
 *    per bracket and sent just before the bracket's end,
 *  - QZ_EVENT_END_UPDATE when the outermost bracket closes.
 * A table opened for writing holds a bracket open until it is closed, so
 * changes seen meanwhile arrive as one update event at its close. Changes
 * made by any process are seen; their events come on the notifier's own
 * watcher thread. A notifier whose folder cannot be watched still exists and
 * still brackets, but sees no change. */

/* The notifier of `path` with one more reference; null only when out of
 * memory. Give it back with qz_destroy_dbf_notifier. */
QZ_DBF_API Tqz_dbf_notifier* qz_create_dbf_notifier_w(const wchar_t* path);
/* Gives one reference back; the last one destroys the notifier (its watcher
 * thread has ended when this returns, unless it is called from one of that
 * notifier's own callbacks: then the notifier goes when that callback is over). */
QZ_DBF_API void qz_destroy_dbf_notifier(Tqz_dbf_notifier* notifier);
/* The channel to add clients to; it belongs to the notifier. */
QZ_DBF_API Iqz_event_channel* qz_dbf_notifier_get_update_event_channel(Tqz_dbf_notifier* notifier);
/* Open and close an update bracket; each returns the new nesting depth
 * (end_update returns 0 and sends nothing when no bracket is open). */
QZ_DBF_API unsigned int qz_dbf_notifier_begin_update(Tqz_dbf_notifier* notifier);
QZ_DBF_API unsigned int qz_dbf_notifier_end_update(Tqz_dbf_notifier* notifier);

/* ---- Memo files ----------------------------------------------------------------- */

/* The memo of a memo (M) cell, whose text is the memo's block number, read
 * from the table's .fpt file, or else its .dbt file. Null with `ok` false when
 * the table has no memo file, the cell holds no number or there is no memo
 * there; `length` and `type` as for qz_fpt_get_memo / qz_dbt_get_memo. The
 * bytes are borrowed from the table and zero-terminated. */
QZ_DBF_API const unsigned char* qz_dbf_get_memo_bytes(Tqz_dbf_rw* handle, unsigned int field,
                                                      unsigned int record, QZ_OUT(bool) ok,
                                                      QZ_OUT(unsigned int) length,
                                                      QZ_OUT(unsigned int) type);

/* A reader of one .fpt memo file (opened "rb", or "rb+" unless `read_only`);
 * null when the file cannot be opened. Given back with qz_fpt_close, which
 * ignores null. */
QZ_DBF_API Tqz_fpt_rw* qz_fpt_open_w(const wchar_t* path, bool read_only);
QZ_DBF_API Tqz_fpt_rw* qz_fpt_open(const char* path, bool read_only);
QZ_DBF_API void qz_fpt_close(Tqz_fpt_rw* handle);
/* The memo that starts at `block` (offset block x the file's block size):
 * `*length` bytes, zero-terminated, borrowed from the reader until its next
 * call. `*type` is the memo header's type field in host order without
 * swapping: 16777216 (0x01000000) for text, 0 for a picture. A length beyond
 * the end of the file is cut to the bytes there; null when the block header
 * itself lies beyond it. */
QZ_DBF_API const char* qz_fpt_get_memo(Tqz_fpt_rw* handle, unsigned int block, unsigned int* length,
                                       unsigned int* type);

/* A reader of one .dbt memo file; as for the .fpt reader. */
QZ_DBF_API Tqz_dbt_rw* qz_dbt_open_w(const wchar_t* path, bool read_only);
QZ_DBF_API Tqz_dbt_rw* qz_dbt_open(const char* path, bool read_only);
QZ_DBF_API void qz_dbt_close(Tqz_dbt_rw* handle);
/* The memo that starts at `block` (offset block x 512) and runs up to the
 * byte 0x1A, looked for in the first 64 KiB: `*length` bytes, zero-terminated,
 * `*type` 1. Null with `*length` 0 when no terminator is found there, or the
 * memo is empty. */
QZ_DBF_API const char* qz_dbt_get_memo(Tqz_dbt_rw* handle, unsigned int block, unsigned int* length,
                                       unsigned int* type);

/* ---- Memory tables ---------------------------------------------------------------
 *
 * A memory table is a whole table read into memory under its file name and
 * shared by everyone in the process who asks for that name: each load,
 * create or find returns the same handle and counts one more holder, each
 * qz_dbf_mem_free one less; the last free deletes the table. Names are
 * matched after trimming blanks at both ends, exactly otherwise (letter case
 * counts; paths are not normalised).
 *
 * While a table is loaded its writer lock "<name>.lk" is held: a second
 * process cannot load it, and no one can open the file for writing. Opening
 * the name with qz_dbf_open(_w) or creating it with qz_dbf_create(_w) meanwhile
 * serves the memory table through that handle (qz_dbf_is_buffered is true),
 * with the changes made there.
 *
 * Nothing reaches the file until qz_dbf_mem_save. Every change of a loaded
 * table (value writes, add, ins, del) is a step of the process's undo
 * history (qz_history_manager_* in qzk_basic.h); a table made by
 * qz_dbf_mem_create(_w), or while the history manager is disabled, keeps no
 * history. Text written through the history is padded with spaces.
 *
 * A handle that is not a live memory table (null, freed) gives the neutral
 * result of each call. Values: as for the qz_dbf_ cell calls. */

/* Whether a memory table of `name` is loaded (no holder is counted). */
QZ_DBF_API bool qz_dbf_mem_exist_w(const wchar_t* name);
/* The memory table of `name`, made with one field "ID" (N, 10, 0) and no
 * records when it is not loaded yet; it is not read from any file. With a
 * non-zero field count the table (new or loaded) is restructured to the
 * `nf` fields given: it keeps its records, every field new (blank, or 0 for
 * I and B). Null when memory runs out. */
QZ_DBF_API Tqz_dbf_memory* qz_dbf_mem_create_w(const wchar_t* name, unsigned int nf,
                                               Tqz_dbf_field* fields);
QZ_DBF_API Tqz_dbf_memory* qz_dbf_mem_create(const char* name, unsigned int nf,
                                             Tqz_dbf_field* fields);
/* The memory table of the file `name`, read from it when it is not loaded
 * yet. Null when the file cannot be read or another holds its lock. */
QZ_DBF_API Tqz_dbf_memory* qz_dbf_mem_load_w(const wchar_t* name);
QZ_DBF_API Tqz_dbf_memory* qz_dbf_mem_load(const char* name);
/* The loaded memory table of `name`, or null; never loads. */
QZ_DBF_API Tqz_dbf_memory* qz_dbf_mem_find_w(const wchar_t* name);
/* One holder less; the last one deletes the table (and releases its lock).
 * False for a handle that is not a loaded memory table. */
QZ_DBF_API bool qz_dbf_mem_free(Tqz_dbf_memory* handle);

/* Writes the table to its own file, or to `path` (its name stays), with a
 * .cpg file beside it; no memo file is written. False when the file cannot
 * be written. */
QZ_DBF_API bool qz_dbf_mem_save(Tqz_dbf_memory* handle);
QZ_DBF_API bool qz_dbf_mem_save_as_w(Tqz_dbf_memory* handle, const wchar_t* path);
QZ_DBF_API bool qz_dbf_mem_save_as(Tqz_dbf_memory* handle, const char* path);
/* Reads the file again and forgets the table's undo history. When the file
 * cannot be read the table becomes the one-field table and the result is
 * false. */
QZ_DBF_API bool qz_dbf_mem_reload(Tqz_dbf_memory* handle);

QZ_DBF_API unsigned int qz_dbf_mem_get_nf(Tqz_dbf_memory* handle);
QZ_DBF_API unsigned int qz_dbf_mem_get_nr(Tqz_dbf_memory* handle);
QZ_DBF_API const char* qz_dbf_mem_get_field_name(Tqz_dbf_memory* handle, unsigned int field);
QZ_DBF_API void qz_dbf_mem_get_field_name_w(Tqz_dbf_memory* handle, unsigned int field,
                                            Iqz_string_adp* adp);
QZ_DBF_API Tqz_dbf_field_type qz_dbf_mem_get_field_type(Tqz_dbf_memory* handle, unsigned int field);
QZ_DBF_API unsigned int qz_dbf_mem_get_field_flen(Tqz_dbf_memory* handle, unsigned int field);
QZ_DBF_API int qz_dbf_mem_get_field_dlen(Tqz_dbf_memory* handle, unsigned int field);
QZ_DBF_API unsigned int qz_dbf_mem_find_fld_index(Tqz_dbf_memory* handle, const wchar_t* name);

QZ_DBF_API const char* qz_dbf_mem_get_str(Tqz_dbf_memory* handle, unsigned int field,
                                          unsigned int record, QZ_OUT(bool) ok);
/* Wide text kept in hexadecimal, as qz_dbf_get_wstr_encoded. */
QZ_DBF_API const wchar_t* qz_dbf_mem_get_wstr(Tqz_dbf_memory* handle, unsigned int field,
                                              unsigned int record, QZ_OUT(unsigned int) length,
                                              QZ_OUT(bool) ok);
QZ_DBF_API int qz_dbf_mem_get_int(Tqz_dbf_memory* handle, unsigned int field, unsigned int record,
                                  QZ_OUT(bool) ok);
QZ_DBF_API double qz_dbf_mem_get_dbl(Tqz_dbf_memory* handle, unsigned int field,
                                     unsigned int record, QZ_OUT(bool) ok);
QZ_DBF_API bool qz_dbf_mem_get_bool(Tqz_dbf_memory* handle, unsigned int field, unsigned int record,
                                    QZ_OUT(bool) ok);
QZ_DBF_API bool qz_dbf_mem_get_any(Tqz_dbf_memory* handle, unsigned int field, unsigned int record,
                                   Tqz_any* value);

QZ_DBF_API bool qz_dbf_mem_set_str(Tqz_dbf_memory* handle, unsigned int field, unsigned int record,
                                   const char* value);
QZ_DBF_API bool qz_dbf_mem_set_wstr(Tqz_dbf_memory* handle, int field, int record,
                                    const wchar_t* value);
QZ_DBF_API bool qz_dbf_mem_set_int(Tqz_dbf_memory* handle, unsigned int field, unsigned int record,
                                   int value);
QZ_DBF_API bool qz_dbf_mem_set_dbl(Tqz_dbf_memory* handle, unsigned int field, unsigned int record,
                                   double value);
QZ_DBF_API bool qz_dbf_mem_set_bool(Tqz_dbf_memory* handle, unsigned int field, unsigned int record,
                                    bool value);
QZ_DBF_API bool qz_dbf_mem_set_any(Tqz_dbf_memory* handle, unsigned int field, unsigned int record,
                                   Tqz_any* value);

/* Records: append a blank record; insert one at `record` (appended when
 * `record` is past the end); delete one (nothing happens past the end).
 * Each answers true. */
QZ_DBF_API bool qz_dbf_mem_add(Tqz_dbf_memory* handle);
QZ_DBF_API bool qz_dbf_mem_ins(Tqz_dbf_memory* handle, unsigned int record);
QZ_DBF_API bool qz_dbf_mem_del(Tqz_dbf_memory* handle, unsigned int record);

/* Restructures a loaded memory table in place to the layout of `descriptor`
 * (see below), keeping its records, as one step of its undo history. False
 * for a handle that is not a loaded memory table, or a layout without fields
 * or with records over 65535 bytes. */
QZ_DBF_API bool qz_dbf_mem_restruct(Tqz_dbf_memory* handle, Tqz_dbf_rstrct* descriptor);

/* ---- Restructuring ------------------------------------------------------------
 *
 * A restructure descriptor lists the fields a table file is to have, in
 * order, each entry remembering the field of the table it came from. Made
 * from a table (qz_dbf_restruct_create: one entry per field) or empty, then
 * edited and applied:
 *  - status of an entry, worked out when asked: 0 new (old number -1), 1 the
 *    same as the old field, 2 an old field whose name, type letter, length or
 *    decimals changed (changing it back makes it 1 again);
 *  - apply: a table held as a memory table is restructured in place (one
 *    undoable step, no file written). A file is rewritten: it is copied to
 *    "<path>.bak.dbf" (and its .cpg), the new table is written beside the
 *    table and renamed over it, and the backup files are removed. A process
 *    killed at any moment leaves the table whole at its path (old or new)
 *    or, besides the new one, its whole copy in the backup. A table another
 *    writer holds (its ".lk" lock) is not rewritten: apply answers false.
 *    Every record is kept (deletion marks are not); fields that keep their
 *    type letter, length and decimals (renamed or not) keep their bytes, and
 *    type letters no type stands for are kept; other changed fields are
 *    converted from their text: to I
 *    the whole part below (floor), to B the number, to N and F the number
 *    formatted with the new decimals (empty when the text is no number), to
 *    C the text (trimmed when it was not a C field); new fields are 0 (I, B)
 *    or blank. The memo file is not rewritten: memo fields keep their block
 *    numbers. A dBASE 7 table gets 32-byte descriptors (version 0x8B with
 *    its memo file, 0x03 without); its I, +, O and @ values are decoded and
 *    written in the new field's form, and a field whose new type cannot take
 *    them (@ other than into C, D or T) makes apply answer false with the
 *    last error QZ_DBF_ERR_VALUE, the table untouched.
 * Indexes outside the entries give neutral answers (nothing done, -1, 0,
 * null). A descriptor is used by one thread at a time. */

/* A descriptor of the table at `path` with one entry per field (none when the
 * table does not open), or with no entries (_empty). Given back with
 * qz_dbf_restruct_destroy (null is ignored). */
QZ_DBF_API Tqz_dbf_rstrct* qz_dbf_restruct_create(const char* path);
QZ_DBF_API Tqz_dbf_rstrct* qz_dbf_restruct_create_w(const wchar_t* path);
QZ_DBF_API Tqz_dbf_rstrct* qz_dbf_restruct_create_empty(const char* path);
QZ_DBF_API Tqz_dbf_rstrct* qz_dbf_restruct_create_empty_w(const wchar_t* path);
QZ_DBF_API void qz_dbf_restruct_destroy(Tqz_dbf_rstrct* handle);
QZ_DBF_API int qz_dbf_restruct_count(Tqz_dbf_rstrct* handle);
/* Appends the `n` fields of the array as new entries. */
QZ_DBF_API void qz_dbf_restruct_add_fields(Tqz_dbf_rstrct* handle, Tqz_dbf_field* fields, int n);
/* Appends a new entry; returns its index. */
QZ_DBF_API int qz_dbf_restruct_add_field(Tqz_dbf_rstrct* handle, Tqz_dbf_field* field);
/* Inserts a new entry before `idx` (0..count). */
QZ_DBF_API void qz_dbf_restruct_insert_field(Tqz_dbf_rstrct* handle, int idx, Tqz_dbf_field* field);
QZ_DBF_API void qz_dbf_restruct_remove_field_idx(Tqz_dbf_rstrct* handle, int idx);
/* Removes the first entry named exactly as `field` (letter case counts). */
QZ_DBF_API void qz_dbf_restruct_remove_field_val(Tqz_dbf_rstrct* handle, Tqz_dbf_field* field);
/* Moves entry `from` so that it ends at index `to`. */
QZ_DBF_API void qz_dbf_restruct_move_field(Tqz_dbf_rstrct* handle, int from, int to);
/* The entry's field, writable in place; valid until the entries change. */
QZ_DBF_API Tqz_dbf_field* qz_dbf_restruct_get_field(Tqz_dbf_rstrct* handle, int idx);
QZ_DBF_API void qz_dbf_restruct_set_field(Tqz_dbf_rstrct* handle, int idx, Tqz_dbf_field* field);
QZ_DBF_API int qz_dbf_restruct_get_field_status(Tqz_dbf_rstrct* handle, int idx);
QZ_DBF_API int qz_dbf_restruct_get_field_old_no(Tqz_dbf_rstrct* handle, int idx);
/* The old field as the table file has it at the time of the call: type and
 * length 0, and no name fed, for a new entry or a table that does not open. */
QZ_DBF_API Tqz_dbf_field_type qz_dbf_restruct_get_field_old_type(Tqz_dbf_rstrct* handle, int idx);
QZ_DBF_API unsigned int qz_dbf_restruct_get_field_old_flen(Tqz_dbf_rstrct* handle, int idx);
QZ_DBF_API void qz_dbf_restruct_get_field_old_name(Tqz_dbf_rstrct* handle, int idx,
                                                   Iqz_string_adp* out);
/* Gives the table the descriptor's layout (see above); whether it did. */
QZ_DBF_API bool qz_dbf_restruct_apply(Tqz_dbf_rstrct* handle);
/* Restructures the table of an open handle in place when its storage can
 * (a memory table); false otherwise (a table file), nothing changed. */
QZ_DBF_API bool qz_dbf_try_restruct(Tqz_dbf_rw* handle, Tqz_dbf_rstrct* descriptor);

#ifdef __cplusplus
}
#endif

#endif /* QZK_FILE_DBF_H */
