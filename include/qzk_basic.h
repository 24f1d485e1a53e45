/*
 * qzk_basic: base services shared by the qzk libraries and their hosts.
 *
 * Conventions
 *  - Every function has C linkage; this header compiles as C99 and as C++.
 *  - Text: `char` text is "system text" in the process's ANSI code page
 *    (qz_options_get_ansi_code_page); `wchar_t` text is the platform's wide
 *    text (UTF-32 on Linux).
 *  - Ownership: a handle returned by a *_create function belongs to the caller
 *    and is given back with the matching *_destroy. Pointers returned by
 *    getters (any_get_string, table_get, qz_options_get_temp_wpath) are
 *    borrowed: they stay valid until the object they come from is changed or
 *    cleared.
 *  - Nothing here reports errors by exceptions; a bad argument (a null
 *    handle) gives the neutral result of the call.
 */
#ifndef QZK_BASIC_H
#define QZK_BASIC_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <wchar.h>

#if defined(QZK_BASIC_BUILD)
#define QZ_BASIC_API __attribute__((visibility("default")))
#else
#define QZ_BASIC_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Variants, property tables, tuples ------------------------------------ */

enum {
    QZ_ANY_EMPTY = 0,
    QZ_ANY_STRING = 2,
    QZ_ANY_INTEGER = 3,
    QZ_ANY_FLOATING = 4,
    QZ_ANY_BOOLEAN = 5
};

/* A 32-bit tag, then the value. A string value is owned by the variant. */
typedef struct Tqz_any {
    int32_t type; /* 0 empty, 2 string, 3 integer, 4 floating, 5 boolean */
    union {
        char* s;
        int32_t i;
        double d;
        bool b;
    } v;
} Tqz_any;

QZ_BASIC_API void any_init(Tqz_any* a);
QZ_BASIC_API void any_clear(Tqz_any* a);
QZ_BASIC_API void any_assign_string(Tqz_any* a, const char* s);
QZ_BASIC_API void any_assign_integer(Tqz_any* a, int32_t v);
QZ_BASIC_API void any_assign_floating(Tqz_any* a, double v);
QZ_BASIC_API void any_assign_boolean(Tqz_any* a, bool v);
QZ_BASIC_API int32_t any_get_type(const Tqz_any* a);
QZ_BASIC_API const char* any_get_string(const Tqz_any* a); /* null unless type 2 */
QZ_BASIC_API int32_t any_get_integer(const Tqz_any* a);
QZ_BASIC_API double any_get_floating(const Tqz_any* a);
QZ_BASIC_API bool any_get_boolean(const Tqz_any* a);

typedef struct Tqz_table {
    void* impl;
} Tqz_table; /* named Tqz_any values */
typedef struct Tqz_tuple {
    void* impl;
} Tqz_tuple; /* an ordered list of Tqz_any values */

QZ_BASIC_API void table_init(Tqz_table* t);
QZ_BASIC_API void table_clear(Tqz_table* t);
QZ_BASIC_API void table_set(Tqz_table* t, const char* key, const Tqz_any* value);
QZ_BASIC_API const Tqz_any* table_get(const Tqz_table* t, const char* key);
QZ_BASIC_API unsigned int table_count(const Tqz_table* t);
QZ_BASIC_API void tuple_init(Tqz_tuple* t);
QZ_BASIC_API void tuple_clear(Tqz_tuple* t);
QZ_BASIC_API void tuple_add(Tqz_tuple* t, const Tqz_any* value);
QZ_BASIC_API const Tqz_any* tuple_get(const Tqz_tuple* t, unsigned int index);
QZ_BASIC_API unsigned int tuple_count(const Tqz_tuple* t);
/* Makes `dst` (initialised, or holding entries that are freed first) a copy
 * of `src`. */
QZ_BASIC_API void table_assign(Tqz_table* dst, const Tqz_table* src);
/* The key of the entry at `index` in key order (byte order of the keys);
 * null past the end. Borrowed, like table_get. */
QZ_BASIC_API const char* table_key(const Tqz_table* t, unsigned int index);

/* ---- String adapters ------------------------------------------------------ */

/* A string adapter carries text out of a call into a place the caller owns.
 * Each feed calls the matching callback with the text as given; when that
 * callback is null, the text is converted with the system code page and
 * handed to the other one. */
typedef struct Iqz_string_adp Iqz_string_adp;
typedef void (*qz_ansi_string_proc)(void* user, const char* text);
typedef void (*qz_unicode_string_proc)(void* user, const wchar_t* text);

QZ_BASIC_API Iqz_string_adp* qz_string_adp_create(qz_ansi_string_proc ansi,
                                                  qz_unicode_string_proc unicode, void* user);
QZ_BASIC_API void qz_string_adp_destroy(Iqz_string_adp* adp);
QZ_BASIC_API void qz_string_adp_feed(Iqz_string_adp* adp, const wchar_t* text);
QZ_BASIC_API void qz_string_adp_feed_c(Iqz_string_adp* adp, const char* text);

/* ---- Events ------------------------------------------------------------------ */

/* An event channel hands an event (a property table) to every client that
 * was added to it. A broadcast calls the clients in the order they were
 * added, on the broadcasting thread. A client may add or remove clients (itself
 * included) from inside its callback: a removed client is not called again,
 * no remaining client is skipped, and clients added during a broadcast wait
 * for the next one. Channels may be used from several threads:
 * qz_event_channel_del_client returns only when no other thread is still
 * inside a callback of the removed client, so its user data may be freed
 * then. A channel must not be destroyed while a broadcast on it runs. */
typedef struct Iqz_event_channel Iqz_event_channel;
typedef void (*qz_event_proc)(Tqz_table* event, void* user);

QZ_BASIC_API Iqz_event_channel* qz_event_channel_create(void);
QZ_BASIC_API void qz_event_channel_destroy(Iqz_event_channel* ch);
/* Adds a client; the same procedure and user data may be added twice and is
 * then called twice. A null procedure is not added. */
QZ_BASIC_API void qz_event_channel_add_client(Iqz_event_channel* ch, qz_event_proc proc,
                                              void* user);
/* Removes the earliest added client with this procedure and user data. */
QZ_BASIC_API void qz_event_channel_del_client(Iqz_event_channel* ch, qz_event_proc proc,
                                              void* user);
QZ_BASIC_API void qz_event_channel_broadcast(Iqz_event_channel* ch, Tqz_table* event);

enum {
    QZ_EVENT_UPDATE = 1,
    QZ_EVENT_BEGIN_UPDATE = 2,
    QZ_EVENT_END_UPDATE = 3,
    QZ_EVENT_FOLDER_CHANGE = 4
};
/* The integer entry "event" of an event; 0 when absent. */
QZ_BASIC_API int32_t qz_event_kind(const Tqz_table* event);

/* Update events. Each *_init takes `ev` as uninitialised storage (like
 * table_init) and makes it an event of its kind; each *_clear frees it. */
QZ_BASIC_API void qz_update_event_init(Tqz_table* ev); /* "event" = QZ_EVENT_UPDATE */
/* Adds the entry "count" = 1, or adds 1 to it: how many updates the event
 * stands for. */
QZ_BASIC_API void qz_update_event_init_details(Tqz_table* ev);
QZ_BASIC_API void qz_update_event_clear(Tqz_table* ev);
QZ_BASIC_API void qz_begin_update_event_init(Tqz_table* ev); /* QZ_EVENT_BEGIN_UPDATE */
QZ_BASIC_API void qz_begin_update_event_clear(Tqz_table* ev);
QZ_BASIC_API void qz_end_update_event_init(Tqz_table* ev); /* QZ_EVENT_END_UPDATE */
QZ_BASIC_API void qz_end_update_event_clear(Tqz_table* ev);

/* ---- History manager ---------------------------------------------------------- */

/* One undo timeline for the whole process. A history is one client's share
 * of it (a table, a document); an item is one undoable change, given as an
 * opaque pointer with three procedures: redo, undo and erase.
 *
 *  - qz_history_add_item performs the item's redo at once and owns the item
 *    from then on. Items added between the outermost
 *    qz_history_manager_begin_update and its qz_history_manager_end_update
 *    form one step; every other item is a step of its own. Adding a step
 *    after an undo erases the steps that were undone.
 *  - Undo takes back the newest step (its items' undo, newest first); redo
 *    does the next undone step again (its items' redo, oldest first). Around
 *    the items of each history a run calls that history's begin and end
 *    procedures once, so a client can announce the run as one change.
 *  - Every item is erased (its erase procedure called) exactly once: when it
 *    falls out of the timeline (the step limit, clear, an erased redo tail)
 *    or when its history is destroyed. A step left empty disappears.
 *  - The timeline keeps at most the limit's number of steps (1000 unless
 *    set), dropping the oldest.
 *  - A host's undo or redo while a begin_update bracket of the manager is
 *    open does nothing (false). An item added while an undo or redo runs
 *    (from one of its procedures) is performed and erased at once.
 *  - One thread at a time: the manager takes no lock. */
typedef struct Iqz_history_manager Iqz_history_manager;
typedef void (*qz_history_item_proc)(void* item);
typedef void (*qz_history_update_proc)(void* wrapper);

/* The process's manager, created on first use; null while disabled. */
QZ_BASIC_API Iqz_history_manager* qz_history_manager_get_instance(void);
/* A new history in `m` (null when `m` is null); `begin` and `end` (either may
 * be null) are called with `wrapper` around each undo or redo run. */
QZ_BASIC_API void* qz_history_manager_create_history(Iqz_history_manager* m,
                                                     qz_history_update_proc begin,
                                                     qz_history_update_proc end, void* wrapper);
/* Erases every item of the history and frees it. Null is ignored. */
QZ_BASIC_API void qz_history_destroy(void* history);
/* Performs `redo` on `item` and records it. With a null history the item is
 * performed and erased at once. */
QZ_BASIC_API void qz_history_add_item(void* history, qz_history_item_proc redo,
                                      qz_history_item_proc undo, qz_history_item_proc erase,
                                      void* item);
/* Brackets that group the items added inside them into one step; they nest. */
QZ_BASIC_API void qz_history_manager_begin_update(Iqz_history_manager* m);
QZ_BASIC_API void qz_history_manager_end_update(Iqz_history_manager* m);

/* For the host. undo and redo return whether a step was taken back or done. */
QZ_BASIC_API bool qz_history_manager_undo(Iqz_history_manager* m);
QZ_BASIC_API bool qz_history_manager_redo(Iqz_history_manager* m);
QZ_BASIC_API bool qz_history_manager_can_undo(Iqz_history_manager* m);
QZ_BASIC_API bool qz_history_manager_can_redo(Iqz_history_manager* m);
/* Erases every step of every history; the histories stay. */
QZ_BASIC_API void qz_history_manager_clear(Iqz_history_manager* m);
/* At most `steps` steps are kept; the oldest beyond it are erased now. */
QZ_BASIC_API void qz_history_manager_set_limit(Iqz_history_manager* m, unsigned int steps);
/* While disabled, qz_history_manager_get_instance returns null, so objects
 * made meanwhile keep no history; histories made before keep working. */
QZ_BASIC_API void qz_history_manager_set_enabled(bool enabled);

/* Counts, for hosts and tests: steps in the timeline, steps that can be
 * undone, and the limit. */
QZ_BASIC_API unsigned int qz_history_manager_get_step_count(Iqz_history_manager* m);
QZ_BASIC_API unsigned int qz_history_manager_get_undo_count(Iqz_history_manager* m);
QZ_BASIC_API unsigned int qz_history_manager_get_limit(Iqz_history_manager* m);

/* ---- Bit sets ----------------------------------------------------------------- */

/* A row of bits, all 0 at first. Its size is one past the highest index ever
 * set (to either value); setting a bit grows the set as needed. Reading past
 * the end gives 0. get_val_count counts the bits of the set's size equal to
 * `value` (any non-zero value counts ones). A null set reads as empty and
 * ignores writes. */
QZ_BASIC_API void* qz_bits_create(void);
QZ_BASIC_API void qz_bits_destroy(void* bits);
QZ_BASIC_API void qz_bits_set_bit(void* bits, unsigned int index, int value);
QZ_BASIC_API int qz_bits_get_bit(void* bits, unsigned int index);
QZ_BASIC_API unsigned qz_bits_get_val_count(void* bits, int value);

/* ---- Options ---------------------------------------------------------------- */

/* The temporary folder; always ends with '/'. Default: $TMPDIR or /tmp/. */
QZ_BASIC_API const wchar_t* qz_options_get_temp_wpath(void);
QZ_BASIC_API void qz_options_set_temp_wpath(const wchar_t* folder);

/* The ANSI code page ("system text"). Until a code page is set, it is the one
 * named by the codeset of the current LC_CTYPE locale when that is UTF-8,
 * CP866 or CP1250..CP1258, otherwise 65001 (UTF-8). Setting 0 returns to that
 * default. */
QZ_BASIC_API unsigned int qz_options_get_ansi_code_page(void);
QZ_BASIC_API void qz_options_set_ansi_code_page(unsigned int code_page);

/* ---- Code pages and wide text ----------------------------------------------- */

/* Code page 0 means the ANSI code page everywhere below. */

/* The iconv name of a code page ("UTF-8", "CP1251", "CP866", ...); null for a
 * code page the library does not know. */
QZ_BASIC_API const char* qz_code_page_iconv_name(unsigned int code_page);

/* Converts `len` bytes of `src` in `code_page` to wide text. Invalid bytes
 * become U+FFFD. Returns the number of wide characters of the result; with
 * `out` non-null writes them there (no terminator), and returns 0 when `cap`
 * is too small. Returns 0 for an unknown code page or empty input. */
QZ_BASIC_API int qz_code_page_to_wide(unsigned int code_page, const char* src, int len,
                                      wchar_t* out, int cap);

/* Converts `len` wide characters to `code_page`; a character the code page
 * cannot hold becomes '?'. Counting and output as for qz_code_page_to_wide. */
QZ_BASIC_API int qz_wide_to_code_page(unsigned int code_page, const wchar_t* src, int len,
                                      char* out, int cap);

/* ---- Letter case (Unicode rules) -------------------------------------------- */

/* Compares without regard to letter case: <0, 0 or >0. The narrow form
 * decodes both texts from the ANSI code page first. */
QZ_BASIC_API int qz_text_icompare_w(const wchar_t* a, const wchar_t* b);
QZ_BASIC_API int qz_text_icompare(const char* a, const char* b);
/* Upper-/lower-cases in place (wide text, one character for one). */
QZ_BASIC_API void qz_text_upper_w(wchar_t* text);
QZ_BASIC_API void qz_text_lower_w(wchar_t* text);

/* ---- Transliteration -------------------------------------------------------- */

/* Feeds `text` to `out` as wide text in Latin letters (ASCII where possible). */
QZ_BASIC_API void qz_translit(const wchar_t* text, Iqz_string_adp* out);

#ifdef __cplusplus
}
#endif

#endif /* QZK_BASIC_H */
