/*
 * qzk_file_dbf_ext: what this library offers beyond its classic interface
 * (qzk_file_dbf.h): the version, and further calls added section by section.
 *
 * Conventions (as in qzk_file_dbf.h, and these besides)
 *  - Every export has C linkage; this header compiles as C99 and as C++.
 *    Out-parameters are pointers here, in C and C++ alike.
 *  - Handles are the classic ones (Tqz_dbf_rw*, Tqz_dbf_memory*): their
 *    ownership and lifetime are those of qzk_file_dbf.h.
 *  - Text crossing this interface is UTF-8 unless a name says otherwise.
 *  - Returned `const char*` text is owned by the library: static text lives
 *    as long as the process, per-handle text until the next call on that
 *    handle, per-thread text until the next call on that thread.
 *  - Threads: a handle is used by one thread at a time; calls on different
 *    handles may run on different threads at once.
 */
#ifndef QZK_FILE_DBF_EXT_H
#define QZK_FILE_DBF_EXT_H

#include <stddef.h>

#include "qzk_file_dbf.h"

/* The version of the library this header belongs to. */
#define QZ_DBF_VERSION_MAJOR 0
#define QZ_DBF_VERSION_MINOR 2
#define QZ_DBF_VERSION_PATCH 0

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Version ---------------------------------------------------------------- */

/* The version of the library actually loaded, "MAJOR.MINOR.PATCH" (static
 * text); compare with the QZ_DBF_VERSION_* macros to detect a mismatch. */
QZ_DBF_API const char* qz_dbf_version(void);

/* ---- Deleting records by mask, with the reason -------------------------------- */

/* The reasons of qz_dbf_del_records_by_msk_why_w. */
enum {
    QZ_DBF_DELMASK_DONE = 0,           /* the records are gone */
    QZ_DBF_DELMASK_CANNOT_OPEN = 1,    /* no table could be opened at the path */
    QZ_DBF_DELMASK_LOCKED = 2,         /* another writer holds the table */
    QZ_DBF_DELMASK_NO_MASK = 3,        /* the mask is null */
    QZ_DBF_DELMASK_COPY_FAILED = 4,    /* the temporary copy could not be made whole */
    QZ_DBF_DELMASK_REPLACE_FAILED = 5, /* the copy could not take the table's place */
    QZ_DBF_DELMASK_UNKNOWN_LAYOUT = 6, /* the fields do not fill the records exactly, so a
                                          copy field by field would lose bytes */
    QZ_DBF_DELMASK_CANCELLED = 7       /* the progress callback asked to stop */
};

/* qz_dbf_del_records_by_msk_and_fn, answering why it ended as it did. On
 * every reason but QZ_DBF_DELMASK_DONE the table is unchanged. */
QZ_DBF_API int qz_dbf_del_records_by_msk_why_w(const wchar_t* path, void* mask);

/* ---- Writing to the file ------------------------------------------------------ */

/* A handle on a table file keeps the writes of at most one record in
 * memory. They reach the file (where every other handle and process reads
 * them, and where they outlive the process) when the handle reads or writes
 * another record, before the file's notifier sends an update event, at
 * qz_dbf_flush and at qz_dbf_close. A handle that holds the table's writer
 * lock has its writes in the file as soon as they are made (it works on a
 * shared mapping of the file); its leaving a written record tells the
 * file's watchers within 5 ms, and qz_dbf_flush tells them at once. Nothing
 * here syncs the file to disk.
 *
 * qz_dbf_flush writes the handle's pending bytes to the file now. True when
 * nothing is left pending: also for a read-only handle and for a handle
 * served by a memory table (whose writes reach a file only through
 * qz_dbf_mem_save). False for a null handle or when the write fails. */
QZ_DBF_API bool qz_dbf_flush(Tqz_dbf_rw* table);
/* ---- Last error -------------------------------------------------------------
 *
 * Every export that fails (these and those of qzk_file_dbf.h, whose results
 * stay as they are) records why in a last error of the calling thread: a
 * code and a UTF-8 message naming the file, when there is one, and the
 * reason ("data.dbf: locked by another writer"). A call that succeeds leaves
 * the last error as it was: read it right after the failing call, or clear
 * it first. */

typedef enum Tqz_dbf_error {
    QZ_DBF_OK = 0,
    QZ_DBF_ERR_ARGUMENT = 1,    /* a null handle or argument, an index out of range */
    QZ_DBF_ERR_NOT_FOUND = 2,   /* no such file */
    QZ_DBF_ERR_NOT_A_TABLE = 3, /* the file is not a dBASE table */
    QZ_DBF_ERR_LOCKED = 4,      /* another writer holds the table's lock */
    QZ_DBF_ERR_PERMISSION = 5,  /* permission denied, or a read-only file */
    QZ_DBF_ERR_IO = 6,          /* reading or writing failed */
    QZ_DBF_ERR_MEMO = 7,        /* the memo file is missing or unreadable */
    QZ_DBF_ERR_VALUE = 8,       /* a value the field cannot hold, or no value */
    QZ_DBF_ERR_MEMORY = 9,      /* out of memory */
    QZ_DBF_ERR_INTERNAL = 10,   /* anything else */
    QZ_DBF_ERR_CANCELLED = 11   /* the caller's progress callback asked to stop */
} Tqz_dbf_error;

/* The code of the thread's last error (QZ_DBF_OK when none). */
QZ_DBF_API int qz_dbf_last_error(void);
/* Its message (per-thread text; "" when none). */
QZ_DBF_API const char* qz_dbf_last_error_message(void);
QZ_DBF_API void qz_dbf_clear_last_error(void);

/* ---- Checking a table file --------------------------------------------------
 *
 * Reads a file's header and field descriptors (and, with
 * QZ_DBF_CHECK_VALUES, every record) without opening it for use: no lock is
 * taken and nothing is written. Every finding has a severity, a kind, what
 * is wrong and where (UTF-8 text owned by the result). */

typedef enum Tqz_dbf_check_severity {
    QZ_DBF_SEV_WARNING = 1, /* readable, but unusual */
    QZ_DBF_SEV_ERROR = 2,   /* other readers refuse it, or data is lost */
    QZ_DBF_SEV_FATAL = 3    /* not a dBASE table this library reads */
} Tqz_dbf_check_severity;

typedef enum Tqz_dbf_check_kind {
    QZ_DBF_CHECK_FILE = 1,          /* missing, a folder, unreadable */
    QZ_DBF_CHECK_HEADER = 2,        /* empty, cut inside the header or descriptors */
    QZ_DBF_CHECK_VERSION = 3,       /* unknown version byte */
    QZ_DBF_CHECK_HEADER_LENGTH = 4, /* header length against the descriptors and file */
    QZ_DBF_CHECK_TERMINATOR = 5,    /* no 0x0D after the descriptors */
    QZ_DBF_CHECK_RECORD_LENGTH = 6, /* record length against the fields' lengths plus one */
    QZ_DBF_CHECK_FIELD = 7,         /* a type, length or decimal count other readers refuse */
    QZ_DBF_CHECK_RECORDS = 8,       /* fewer whole records than the header says */
    QZ_DBF_CHECK_MEMO = 9,          /* memo fields without a memo file */
    QZ_DBF_CHECK_VALUE = 10,        /* N, F, D or L values other readers cannot parse */
    QZ_DBF_CHECK_NAME = 11          /* a field name that breaks the field-name rules */
} Tqz_dbf_check_kind;

/* Flags of qz_dbf_check_file. */
#define QZ_DBF_CHECK_VALUES 1u /* also read every record's values */

#ifdef __cplusplus
struct Tqz_dbf_check_result;
#else
typedef struct Tqz_dbf_check_result Tqz_dbf_check_result;
#endif

/* The findings for the file at `path` (UTF-8); null only when memory runs
 * out or `path` is null. Free it with qz_dbf_check_free. */
QZ_DBF_API Tqz_dbf_check_result* qz_dbf_check_file(const char* path, unsigned int flags);
QZ_DBF_API unsigned int qz_dbf_check_count(const Tqz_dbf_check_result* result);
/* The highest severity found; 0 when the file is clean (or result is null). */
QZ_DBF_API int qz_dbf_check_worst(const Tqz_dbf_check_result* result);
/* Finding `index` (below the count); 0 or "" past the end. */
QZ_DBF_API int qz_dbf_check_severity(const Tqz_dbf_check_result* result, unsigned int index);
QZ_DBF_API int qz_dbf_check_kind(const Tqz_dbf_check_result* result, unsigned int index);
QZ_DBF_API const char* qz_dbf_check_what(const Tqz_dbf_check_result* result, unsigned int index);
QZ_DBF_API const char* qz_dbf_check_where(const Tqz_dbf_check_result* result, unsigned int index);
QZ_DBF_API void qz_dbf_check_free(Tqz_dbf_check_result* result);

/* ---- Deletion flags ------------------------------------------------------------
 *
 * A record marked deleted keeps its values and its place until the table is
 * packed; readers are expected to skip it. */

/* 1 when `record` is marked deleted, 0 when it is live, -1 when there is no
 * such record (the last error says why). */
QZ_DBF_API int qz_dbf_get_deleted(Tqz_dbf_rw* handle, unsigned int record);
/* Marks `record` deleted or live, in the file at once; false when there is
 * no such record or the table is read-only. */
QZ_DBF_API bool qz_dbf_set_deleted(Tqz_dbf_rw* handle, unsigned int record, bool deleted);
/* The same on a memory table; each change is a step of its undo history. */
QZ_DBF_API int qz_dbf_mem_get_deleted(Tqz_dbf_memory* handle, unsigned int record);
QZ_DBF_API bool qz_dbf_mem_set_deleted(Tqz_dbf_memory* handle, unsigned int record, bool deleted);

/* ---- Opening with options ------------------------------------------------------ */

#define QZ_DBF_OPEN_READ_ONLY 0x01u /* no writer lock, no writes */
#define QZ_DBF_OPEN_DOS 0x02u       /* text is CP866 unless the .cpg says otherwise */
#define QZ_DBF_OPEN_WRITE_CPG 0x04u /* write the table's encoding into its .cpg at close */
#define QZ_DBF_OPEN_FORCE 0x08u     /* open what the file check calls no dBASE table, read-only */

/* Opens the table at `path` (UTF-8) as qz_dbf_open does, with these
 * differences: the file is checked first (qz_dbf_check_file) and what is
 * not a dBASE table is refused (QZ_DBF_ERR_NOT_A_TABLE) unless
 * QZ_DBF_OPEN_FORCE, which opens it read-only; a file without any write
 * permission is not opened for writing (QZ_DBF_ERR_PERMISSION), whoever
 * the caller is; and the table's .cpg file is left as it is unless
 * QZ_DBF_OPEN_WRITE_CPG. Null on failure, with the last error saying why.
 * Close the handle with qz_dbf_close. */
QZ_DBF_API Tqz_dbf_rw* qz_dbf_open_ex(const char* path, unsigned int options);

/* ---- Storage ---------------------------------------------------------------- */

/* Which storage serves a handle: a table file read directly, a memory table
 * of the registry, or GDAL's OGR (any vector source it reads: GeoPackage,
 * GeoJSON, CSV, a shapefile's attributes, and a table file whose writer lock
 * another handle holds, which OGR then serves read-only). Layers
 * (qz_dbf_get_nl, qz_dbf_set_layer, ...) are OGR's layers there. */
typedef enum Tqz_dbf_storage {
    qz_dbf_storage_none = 0, /* null handle, or nothing open */
    qz_dbf_storage_file = 1,
    qz_dbf_storage_memory = 2,
    qz_dbf_storage_ogr = 3
} Tqz_dbf_storage;

QZ_DBF_API Tqz_dbf_storage qz_dbf_get_storage(Tqz_dbf_rw* handle);
/* OGR's name of the driver serving the handle ("GPKG", "GeoJSON", "CSV",
 * "ESRI Shapefile", ...), static text; "" when OGR does not serve it. */
QZ_DBF_API const char* qz_dbf_get_ogr_driver(Tqz_dbf_rw* handle);

/* With `keep`, qz_dbf_mem_save and _save_as of this memory table leave the
 * .cpg file beside the table as it is (by default they write the table's
 * encoding into it). False for a handle that is not a loaded table. */
QZ_DBF_API bool qz_dbf_mem_keep_cpg(Tqz_dbf_memory* handle, bool keep);

/* ---- Text encodings of every code page ------------------------------------
 *
 * The typed reads below take a table's text in its own encoding, chosen in
 * this order: an encoding the caller names; the one the table's .cpg file
 * names, in any usual spelling ("UTF-8", "UTF8", "65001", "CP1252", "1252",
 * "ANSI 1251", "OEM 866", "88591", "8859_1", "ISO-8859-2", "latin2",
 * "KOI8-R", ...); the code page of the language-driver byte of the header
 * (offset 29, the dBASE and FoxPro driver ids); else the encoding of the
 * table's flags (UTF-8, CP866 or CP1251, as the classic calls use). Any
 * encoding iconv knows can be chosen. Names are iconv names ("CP1252",
 * "ISO-8859-2", "UTF-8"). */

typedef enum Tqz_dbf_encoding_source {
    QZ_DBF_ENC_NONE = 0,            /* no choice: an unknown name, no table */
    QZ_DBF_ENC_CALLER = 1,          /* the caller named it */
    QZ_DBF_ENC_CPG = 2,             /* the .cpg file names it */
    QZ_DBF_ENC_LANGUAGE_DRIVER = 3, /* header byte 29 stands for it */
    QZ_DBF_ENC_DEFAULT = 4          /* the table's flags */
} Tqz_dbf_encoding_source;

/* The encoding of the table file at `path` (UTF-8) and where it came from.
 * `encoding` is the caller's choice (null or "" for none); with
 * QZ_DBF_OPEN_DOS in `options` the default is CP866, otherwise CP1251 (or
 * UTF-8 when the .cpg file says "UTF-8", as the classic open reads it).
 * The name is written into `name` (at most `size` bytes with the closing
 * NUL; cut when longer). QZ_DBF_ENC_NONE, with the last error, when the
 * file holds no header or `encoding` names nothing iconv knows. */
QZ_DBF_API int qz_dbf_detect_encoding(const char* path, const char* encoding, unsigned int options,
                                      char* name, size_t size);

/* Names the encoding of the handle's text for the typed reads (kept across
 * opens of the handle); null or "" returns to detection. False, changing
 * nothing, for a null handle or a name iconv does not know. */
QZ_DBF_API bool qz_dbf_set_encoding(Tqz_dbf_rw* handle, const char* encoding);

/* The iconv name of an encoding as callers and .cpg files spell it ("1251",
 * "ANSI 1251", "latin2", "utf8" give "CP1251", "CP1251", "ISO-8859-2",
 * "UTF-8"), written into `name` as qz_dbf_detect_encoding writes it. False,
 * with the last error, for a name iconv does not know. */
QZ_DBF_API bool qz_dbf_encoding_name(const char* encoding, char* name, size_t size);

/* Gives the table file open for writing through `handle` the encoding
 * `encoding` (spelled as qz_dbf_set_encoding takes it), as a new table
 * states it for other readers: header byte 29 becomes the language driver
 * of its code page (the Windows driver of a Windows code page, else the
 * usual DOS one; 0 when none stands for it, as for UTF-8, ISO-8859-x or
 * KOI8-R), the flags become UTF-8, CP866 or else CP1251 as the encoding
 * is, the handle reads and writes text in it until close, and close
 * writes its iconv name ("UTF-8", "CP1251", "KOI8-R", ...) into the .cpg
 * file. False,
 * changing nothing, for a handle that is not a writable table file or a
 * name iconv does not know. */
QZ_DBF_API bool qz_dbf_set_table_encoding(Tqz_dbf_rw* handle, const char* encoding);

/* The encoding of the open table of a handle, as qz_dbf_detect_encoding
 * tells it, the default being the encoding of the handle's flags. */
QZ_DBF_API int qz_dbf_get_encoding(Tqz_dbf_rw* handle, char* name, size_t size);

/* A cell as UTF-8 text: character and memo text converted from the table's
 * encoding with trailing blanks (and NULs) dropped, other fields as the
 * classic text reads show them. Writes at most `size` bytes with the
 * closing NUL into `buffer` (null with size 0 only measures) and returns
 * the whole text's length in bytes, without the NUL; -1, with the last
 * error, when there is no such cell. */
QZ_DBF_API long qz_dbf_get_cell_utf8(Tqz_dbf_rw* handle, unsigned int field, unsigned int record,
                                     char* buffer, size_t size);

/* Writes UTF-8 text (`length` bytes) into a cell. A C field of a table file
 * or of a memory table (through a handle that serves it; the write is one
 * step of the table's history, which undo takes back) gets the text in the
 * table's encoding (as qz_dbf_get_cell_utf8 reads it: the caller's choice
 * of qz_dbf_set_encoding, the .cpg file, the language driver, the flags),
 * left-aligned and padded with blanks; other fields and OGR sources take
 * it as qz_dbf_set_str takes system text. False, with
 * the last error and the cell unchanged, when there is no such cell, the
 * text is not UTF-8, holds a NUL or a character the encoding lacks, or is
 * longer than the field's width (qz_dbf_get_field_width) in that encoding
 * (it is never cut). */
QZ_DBF_API bool qz_dbf_set_cell_utf8(Tqz_dbf_rw* handle, unsigned int field, unsigned int record,
                                     const char* text, size_t length);

/* A cell as a typed value, by field type: C text; N and F an integer (no
 * decimals) or a double, with the digits as `text` too (a decimal comma
 * read as a point; text that is no number stays text); L a bool; D a date
 * (`i` = YYYYMMDD); I and + an integer; B (Visual FoxPro, or 8 bytes wide), O a double; Y a
 * decimal (`text` "123.4500", `d` the same as a double); T a datetime (`i`
 * = milliseconds since 1970-01-01 UTC); M text; V its whole text; G, P, B (dBASE) memo bytes;
 * other types the field's bytes. Blank N, F, D, L and T cells are null. */
typedef enum Tqz_dbf_value_kind {
    QZ_DBF_VALUE_NULL = 0,
    QZ_DBF_VALUE_BOOL = 1,
    QZ_DBF_VALUE_INT = 2,
    QZ_DBF_VALUE_DOUBLE = 3,
    QZ_DBF_VALUE_DECIMAL = 4,
    QZ_DBF_VALUE_DATE = 5,
    QZ_DBF_VALUE_DATETIME = 6,
    QZ_DBF_VALUE_TEXT = 7,
    QZ_DBF_VALUE_BYTES = 8
} Tqz_dbf_value_kind;

typedef struct Tqz_dbf_value {
    int kind;         /* Tqz_dbf_value_kind */
    long long i;      /* bool (0 or 1), integer, date, datetime */
    double d;         /* double, decimal */
    const char* text; /* UTF-8 text, number digits or bytes (per-handle) */
    size_t length;    /* bytes at `text` (a NUL follows them) */
} Tqz_dbf_value;

/* Reads cell (`field`, `record`) of a table handle into `value`; false,
 * with the last error and `value` null, when there is no such cell. */
QZ_DBF_API bool qz_dbf_get_value(Tqz_dbf_rw* handle, unsigned int field, unsigned int record,
                                 Tqz_dbf_value* value);

/* Visual FoxPro tables with a _NullFlags field: a cell whose null bit is
 * set reads as null, whatever its bytes; a varchar (V) or varbinary (Q)
 * whose length bit is set reads as the text (bytes) of the length in its
 * last byte. Memo fields read
 * dBASE III and dBASE IV/V/7 .dbt memos alike, and FoxPro picture and
 * object blocks (and memos of fields flagged binary) as bytes. */

/* The first `count` cells of `record` (at most the field count) into
 * `values[0..]`, as qz_dbf_get_value reads them; their texts stay valid
 * until the next record or column read on the handle. The number of
 * values read, or -1 with the last error (and the values null). */
QZ_DBF_API long qz_dbf_get_record_values(Tqz_dbf_rw* handle, unsigned int record,
                                         Tqz_dbf_value* values, unsigned int count);
/* `count` cells of `field` from `first_record` on (cut at the last record)
 * into `values`, as qz_dbf_get_record_values. */
QZ_DBF_API long qz_dbf_get_column_values(Tqz_dbf_rw* handle, unsigned int field,
                                         unsigned int first_record, unsigned int count,
                                         Tqz_dbf_value* values);

/* Writes a typed value into cell (`field`, `record`): C and V take text
 * (UTF-8, stored in the table's encoding) or bytes, at most the field's
 * length, padded with blanks; N and F an integer, double or decimal (or
 * number text), rounded half away from zero to the field's decimals,
 * right-aligned, refused when wider than the field; L a bool; D a date;
 * I an integer of 32 bits; B (Visual FoxPro, or 8 bytes wide) and O a
 * number, stored as a double; Y a number or decimal, stored in units of 1/10000; T a date or
 * datetime; @ a date or datetime from 0001-01-01 on; M text (or bytes,
 * kept as a picture block of an .fpt), G, P, W and B (dBASE) bytes,
 * appended to the memo file (the old memo's blocks are not reused); other
 * types bytes of at most the field's length. V (text or bytes) and Q
 * (bytes) shorter than the field, in a table whose _NullFlags has their
 * length bit: the bytes, zeros, and the length in the field's last byte,
 * the bit set (read back exactly); without that bit V is padded with
 * blanks and Q with zeros. dBASE 7 tables (version 0x04
 * or 0x8C) get I and O in their big-endian, order-preserving form.
 * Null: the field's null flag when the table has one for it, else a blank
 * cell for C, V, N, F, D, L, T, @ and memo fields (and I and O of dBASE 7
 * tables: zeros); other fields refuse it. Autoincrement (+) and
 * _NullFlags fields are not written.
 * False, with the cell unchanged and the last error saying why
 * (QZ_DBF_ERR_VALUE for a value the field cannot hold, QZ_DBF_ERR_MEMO
 * when there is no memo file to take a memo, QZ_DBF_ERR_PERMISSION on a
 * read-only handle). Memo values are written to table files and to loaded
 * (memory) tables, whose memo file takes them at once (the loaded table
 * holds the writer lock) while the block number waits for the save. */
QZ_DBF_API bool qz_dbf_set_value(Tqz_dbf_rw* handle, unsigned int field, unsigned int record,
                                 const Tqz_dbf_value* value);
/* ---- Record images ----------------------------------------------------------
 *
 * For readers that parse whole columns themselves: a record image is a
 * record's bytes as the table file holds them, the deletion flag first
 * ('*' deleted, ' ' live), then each field's bytes at its offset. Only a
 * table read from its file has images; for a memory or OGR table (or a
 * null handle) the calls answer 0 and the cell getters remain. */

/* Bytes of one record image (the header's record length); 0 without images. */
QZ_DBF_API unsigned int qz_dbf_get_record_size(Tqz_dbf_rw* handle);
/* Where the bytes of `field` start in a record image; 0 without images or
 * without such a field. A damaged header may place a field's bytes past
 * the image's end: check the offset and length against the record size. */
QZ_DBF_API unsigned int qz_dbf_get_field_offset(Tqz_dbf_rw* handle, unsigned int field);
/* The bytes `field` takes in a record: its length, except for character
 * fields longer than 255 bytes (FoxPro and Clipper keep the length's high
 * byte in the decimals byte), taken as such when the header's record length
 * agrees. qz_dbf_get_field_flen keeps answering the length byte alone; the
 * offsets above, the typed reads and writes (qz_dbf_get_value,
 * qz_dbf_set_value and the record and column reads) and the UTF-8 cells
 * (qz_dbf_get_cell_utf8, qz_dbf_set_cell_utf8) follow these widths, the
 * classic cell calls the length bytes. 0 without such a field; for memory
 * tables too. */
QZ_DBF_API unsigned int qz_dbf_get_field_width(Tqz_dbf_rw* handle, unsigned int field);
/* Copies the images of the records `first`, `first` + 1, ... one after
 * another into `buffer` of `size` bytes: at most `count` records, as many
 * whole images as `size` holds, none past the last record the file holds
 * whole. Returns how many were copied (0 at the end, or without images). */
QZ_DBF_API unsigned int qz_dbf_get_record_images(Tqz_dbf_rw* handle, unsigned int first,
                                                 unsigned int count, void* buffer, size_t size);

/* ---- Long field names --------------------------------------------------------- */

/* A field's whole name: for a dBASE 7 table the name its 48-byte descriptor
 * holds (up to 31 bytes, in the table's encoding), of which
 * qz_dbf_get_field_name gives the first 10; for any other table or storage
 * the name qz_dbf_get_field_name gives. Per-handle text; null, with the last
 * error, for a null handle or no such field. */
QZ_DBF_API const char* qz_dbf_get_field_long_name(Tqz_dbf_rw* handle, unsigned int field);

/* A field's type letter as its descriptor holds it, also the letters no
 * Tqz_dbf_field_type stands for ('+', '@', 'O', 'G', 'Q', 'V', ...), where
 * qz_dbf_get_field_type says dbf_ft_unknown; for OGR and other storages the
 * letter of qz_dbf_get_field_type ('?' when none). '\0', with the last
 * error, for a null handle or no such field. */
QZ_DBF_API char qz_dbf_get_field_letter(Tqz_dbf_rw* handle, unsigned int field);

/* ---- Progress of long rewrites ------------------------------------------------
 *
 * Deleting records by mask and applying a restructure descriptor rewrite a
 * whole table file. These forms tell a callback how far the rewrite is: it
 * is called on the calling thread with the records copied so far and the
 * records to copy, `done` never decreasing, every few thousand records and
 * once with `done` equal to `total` when all are copied (before the new
 * table takes the old one's place). A callback that returns non-zero stops
 * the rewrite: the table file and its companions stay exactly as they were,
 * the writer lock (".lk") is released and removed, and the last error is
 * QZ_DBF_ERR_CANCELLED. A null callback makes them the plain calls. A
 * memory table is changed in place without calls to the callback. */

typedef int (*Tqz_dbf_progress_fn)(void* user, unsigned long long done, unsigned long long total);

/* qz_dbf_del_records_by_msk_why_w with progress; QZ_DBF_DELMASK_CANCELLED
 * when the callback stopped it. */
QZ_DBF_API int qz_dbf_del_records_by_msk_progress_w(const wchar_t* path, void* mask,
                                                    Tqz_dbf_progress_fn progress, void* user);
/* qz_dbf_restruct_apply with progress; false when the callback stopped it. */
QZ_DBF_API bool qz_dbf_restruct_apply_progress(Tqz_dbf_rstrct* handle, Tqz_dbf_progress_fn progress,
                                               void* user);

#ifdef __cplusplus
}
#endif

#endif /* QZK_FILE_DBF_EXT_H */
