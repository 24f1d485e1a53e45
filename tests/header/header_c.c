/* The public headers compile as strict C99 and the exports link and run
 * from C. Built with -std=c99 -Wall -Wextra -Werror -pedantic. */
#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include "qzk_basic.h"
#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "qzk_path.h"

static int failures = 0;
#define CHECK(cond)                                                    \
    do {                                                               \
        if (!(cond)) {                                                 \
            fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #cond); \
            ++failures;                                                \
        }                                                              \
    } while (0)

int main(int argc, char** argv) {
    char path[4096];
    Tqz_dbf_field fields[2];
    Tqz_dbf_rw* t;
    Tqz_any any;
    Tqz_fpt_rw* fpt;
    FILE* f;
    static unsigned char memo_file[512 + 8 + 5];
    const char* memo;
    unsigned int len = 0, type = 0;
    bool ok = true;

    snprintf(path, sizeof path, "%s/header_c.dbf", argc > 1 ? argv[1] : ".");
    CHECK(sizeof(Tqz_dbf_field) == 14);
    qz_dbf_field_init(&fields[0], "ID", dbf_ft_numeric, 6, 0);
    qz_dbf_field_init(&fields[1], "NAME", dbf_ft_char, 20, 0);
    t = qz_dbf_create(path, 2, 4, fields, false);
    CHECK(t != NULL);
    if (t) qz_dbf_close(t);
    t = qz_dbf_open(path, true, false);
    CHECK(t != NULL);
    if (t) {
        CHECK(qz_dbf_get_nf(t) == 2);
        CHECK(qz_dbf_get_nr(t) == 4);
        CHECK(strcmp(qz_dbf_get_field_name(t, 1), "NAME") == 0);
        CHECK(qz_dbf_get_field_type(t, 0) == dbf_ft_numeric);
        CHECK(qz_dbf_find_field_index_w(t, L"NAME") == 1);
        /* No memo file beside the table: no memo, reported through pointers. */
        CHECK(qz_dbf_get_memo_bytes(t, 1, 0, &ok, &len, &type) == NULL);
        CHECK(!ok);
        qz_dbf_close(t);
    }
    /* Values from C: the out-parameters are pointers here. */
    t = qz_dbf_open(path, false, false);
    CHECK(t != NULL);
    if (t) {
        bool ok = false;
        unsigned int length = 0, record = 99;
        char typed = ',';
        const wchar_t* wide;
        CHECK(qz_dbf_set_int(t, 0, 2, 42));
        CHECK(qz_dbf_get_int(t, 0, 2, &ok) == 42 && ok);
        CHECK(qz_dbf_set_str(t, 1, 3, "text"));
        CHECK(strcmp(qz_dbf_get_str(t, 1, 3, &ok), "text                ") == 0 && ok);
        CHECK(qz_dbf_get_dbl(t, 0, 2, &ok) == 42.0);
        CHECK(qz_dbf_find_value(t, 1, "TEXT", &record) && record == 3);
        qz_dbf_begin_fast_find(t, 0);
        CHECK(qz_dbf_find_value_fast(t, "42", &record) && record == 2);
        qz_dbf_end_fast_find(t);
        CHECK(qz_dbf_set_wstr_encoded(t, 1, 0, L"AB", 2));
        wide = qz_dbf_get_wstr_encoded(t, 1, 0, &length, &ok);
        CHECK(ok && length == 2 && wide && wcscmp(wide, L"AB") == 0);
        CHECK(qz_dbf_validate_val(t, 0, &typed, "1", false) && typed == '.');
        qz_dbf_add_records(t, 1);
        CHECK(qz_dbf_get_nr(t) == 5);
        qz_dbf_close(t);
    }
    CHECK(qz_dbf_delete(L"/nonexistent/qz_header_c.dbf") == false);

    {
        /* A memory table from C, with the history manager of qzk_basic. */
        Iqz_history_manager* m = qz_history_manager_get_instance();
        Tqz_dbf_memory* mem;
        Tqz_dbf_rw* h;
        bool ok = false;
        unsigned int length = 0;
        const wchar_t* wide;
        snprintf(path, sizeof path, "%s/header_c.dbf", argc > 1 ? argv[1] : ".");
        mem = qz_dbf_mem_load(path);
        CHECK(mem != NULL);
        h = qz_dbf_open(path, false, false);
        CHECK(h != NULL && qz_dbf_is_buffered(h));
        wide = qz_dbf_mem_get_wstr(mem, 1, 0, &length, &ok);
        CHECK(ok && length == 2 && wide && wcscmp(wide, L"AB") == 0);
        CHECK(qz_dbf_mem_set_str(mem, 1, 0, "from C"));
        CHECK(strcmp(qz_dbf_get_str(h, 1, 0, &ok), "from C              ") == 0 && ok);
        CHECK(qz_dbf_mem_get_int(mem, 0, 2, &ok) == 42 && ok);
        CHECK(qz_history_manager_can_undo(m) && qz_history_manager_undo(m));
        wide = qz_dbf_mem_get_wstr(mem, 1, 0, &length, &ok);
        CHECK(ok && length == 2 && wide && wcscmp(wide, L"AB") == 0);
        CHECK(qz_dbf_mem_add(mem) && qz_dbf_mem_get_nr(mem) == 6);
        if (h) qz_dbf_close(h);
        CHECK(qz_dbf_mem_free(mem));
        CHECK(!qz_dbf_mem_exist_w(L"/nonexistent/qz_header_c.dbf"));
        qz_history_manager_clear(m);
    }

    {
        /* A restructure from C: one field added to the table above. */
        Tqz_dbf_rstrct* d;
        Tqz_dbf_field extra;
        snprintf(path, sizeof path, "%s/header_c.dbf", argc > 1 ? argv[1] : ".");
        d = qz_dbf_restruct_create(path);
        CHECK(d != NULL && qz_dbf_restruct_count(d) == 2);
        qz_dbf_field_init(&extra, "EXTRA", dbf_ft_integer, 4, 0);
        CHECK(qz_dbf_restruct_add_field(d, &extra) == 2);
        CHECK(qz_dbf_restruct_get_field_status(d, 0) == 1);
        CHECK(qz_dbf_restruct_get_field_status(d, 2) == 0);
        CHECK(qz_dbf_restruct_apply(d));
        qz_dbf_restruct_destroy(d);
        t = qz_dbf_open(path, true, false);
        CHECK(t != NULL && qz_dbf_get_nf(t) == 3 && qz_dbf_get_int(t, 0, 2, &ok) == 42);
        if (t) qz_dbf_close(t);
    }

    {
        /* Notifier, event channel and update events from C. */
        Tqz_dbf_notifier* n = qz_create_dbf_notifier_w(L"/nonexistent/qz_header_c.dbf");
        Iqz_event_channel* ch = qz_dbf_notifier_get_update_event_channel(n);
        Tqz_table ev;
        CHECK(n != NULL && ch != NULL);
        CHECK(qz_dbf_notifier_begin_update(n) == 1);
        CHECK(qz_dbf_notifier_end_update(n) == 0);
        qz_destroy_dbf_notifier(n);
        qz_update_event_init(&ev);
        qz_update_event_init_details(&ev);
        CHECK(qz_event_kind(&ev) == QZ_EVENT_UPDATE);
        qz_update_event_clear(&ev);
        CHECK(qz_folder_watcher_create(L"/nonexistent", 0) == NULL);
    }

    /* A memo file with block size 512 and one text memo at block 1. */
    snprintf(path, sizeof path, "%s/header_c_memo.fpt", argc > 1 ? argv[1] : ".");
    memo_file[6] = 0x02;    /* block size 0x0200, big-endian */
    memo_file[512 + 3] = 1; /* type 1: text */
    memo_file[512 + 7] = 5; /* length 5 */
    memcpy(memo_file + 512 + 8, "memo!", 5);
    f = fopen(path, "wb");
    CHECK(f != NULL);
    if (f) {
        fwrite(memo_file, 1, sizeof memo_file, f);
        fclose(f);
    }
    fpt = qz_fpt_open(path, true);
    CHECK(fpt != NULL);
    if (fpt) {
        memo = qz_fpt_get_memo(fpt, 1, &len, &type);
        CHECK(memo != NULL && strcmp(memo, "memo!") == 0);
        CHECK(len == 5);
        CHECK(type == 16777216u);
        qz_fpt_close(fpt);
    }
    qz_fpt_close(NULL);
    CHECK(qz_dbt_open("/nonexistent/qz_header_c.dbt", true) == NULL);

    any_init(&any);
    any_assign_string(&any, "x");
    CHECK(any_get_type(&any) == QZ_ANY_STRING);
    any_clear(&any);

    {
        /* Records deleted by a bit mask, from C. */
        void* bits = qz_bits_create();
        wchar_t wpath[4096], wfolder[4096];
        snprintf(path, sizeof path, "%s/header_c_del.dbf", argc > 1 ? argv[1] : ".");
        t = qz_dbf_create(path, 2, 4, fields, false);
        CHECK(t != NULL);
        if (t) qz_dbf_close(t);
        swprintf(wpath, 4096, L"%s", path);
        swprintf(wfolder, 4096, L"%s/", argc > 1 ? argv[1] : ".");
        qz_options_set_temp_wpath(wfolder);
        qz_bits_set_bit(bits, 1, 1);
        CHECK(qz_bits_get_bit(bits, 1) == 1 && qz_bits_get_val_count(bits, 1) == 1u);
        CHECK(qz_dbf_del_records_by_msk_why_w(wpath, NULL) == QZ_DBF_DELMASK_NO_MASK);
        CHECK(qz_dbf_del_records_by_msk_and_fn(wpath, bits) == 0u);
        qz_bits_destroy(bits);
        t = qz_dbf_open(path, true, false);
        CHECK(t != NULL && qz_dbf_get_nr(t) == 3);
        if (t) qz_dbf_close(t);
        qz_options_set_temp_wpath(NULL);
    }

    {
        char v[32];
        snprintf(v, sizeof v, "%d.%d.%d", QZ_DBF_VERSION_MAJOR, QZ_DBF_VERSION_MINOR,
                 QZ_DBF_VERSION_PATCH);
        CHECK(strcmp(qz_dbf_version(), v) == 0);
    }
    /* Field names from C. */
    qz_dbf_field_init(&fields[0], "id", dbf_ft_numeric, 6, 0);
    qz_dbf_field_init(&fields[1], "ID", dbf_ft_char, 20, 0);
    CHECK(!qz_dbf_fields_names_ok(fields, 2));
    qz_dbf_fields_names_fix(fields, 2);
    CHECK(strcmp(fields[0].name, "ID") == 0 && strcmp(fields[1].name, "ID1") == 0);
    CHECK(qz_dbf_field_name_is_ok("ID1") && !qz_dbf_field_name_is_ok_w(L"1D"));
    CHECK(!qz_dbf_make_correct_names(fields, 0));
    {
        /* The checks, errors, flags and the checked open, called from C. */
        Tqz_dbf_check_result* r =
            qz_dbf_check_file("/nonexistent/qz_header_c.dbf", QZ_DBF_CHECK_VALUES);
        CHECK(r != NULL && qz_dbf_check_worst(r) == QZ_DBF_SEV_FATAL && qz_dbf_check_count(r) == 1);
        CHECK(qz_dbf_check_kind(r, 0) == QZ_DBF_CHECK_FILE && qz_dbf_check_severity(r, 0) == 3);
        CHECK(strlen(qz_dbf_check_what(r, 0)) > 0 && strlen(qz_dbf_check_where(r, 0)) > 0);
        qz_dbf_check_free(r);
        CHECK(qz_dbf_open_ex("/nonexistent/qz_header_c.dbf", QZ_DBF_OPEN_READ_ONLY) == NULL);
        CHECK(qz_dbf_last_error() == QZ_DBF_ERR_NOT_FOUND);
        CHECK(strstr(qz_dbf_last_error_message(), "no such file") != NULL);
        qz_dbf_clear_last_error();
        CHECK(qz_dbf_get_deleted(NULL, 0) == -1 && !qz_dbf_set_deleted(NULL, 0, true));
        CHECK(qz_dbf_mem_get_deleted(NULL, 0) == -1 && !qz_dbf_mem_set_deleted(NULL, 0, true));
        CHECK(!qz_dbf_mem_keep_cpg(NULL, true));
        CHECK(qz_dbf_last_error() == QZ_DBF_ERR_ARGUMENT);
    }
    CHECK(qz_dbf_get_storage(NULL) == qz_dbf_storage_none);
    CHECK(strcmp(qz_dbf_get_ogr_driver(NULL), "") == 0);
    CHECK(qz_dbf_get_record_size(NULL) == 0 && qz_dbf_get_field_offset(NULL, 0) == 0 &&
          qz_dbf_get_field_width(NULL, 0) == 0);
    CHECK(qz_dbf_get_record_images(NULL, 0, 1, NULL, 0) == 0);
    printf("%d passed, %d failed\n", failures ? 0 : 1, failures ? 1 : 0);
    return failures ? 1 : 0;
}
