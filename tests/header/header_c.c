/* The public headers compile as strict C99 and the exports link and run
 * from C, their out-parameters (references in C++) passed as pointers.
 * Built with -std=c99 -Wall -Wextra -Werror -pedantic. */
#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include "qzk_basic.h"
#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "qzk_path.h"

static int failures = 0;
#define CHECK(cond) \
    if (!(cond)) fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #cond), ++failures

int main(int argc, char** argv) {
    char path[4096];
    Tqz_dbf_field fields[2];
    Tqz_dbf_rw* t;
    Tqz_dbf_memory* mem;
    const wchar_t* wide;
    unsigned int len = 0, type = 0, record = 99;
    char typed = ',';
    bool ok = true;

    snprintf(path, sizeof path, "%s/header_c.dbf", argc > 1 ? argv[1] : ".");
    qz_dbf_field_init(&fields[0], "ID", dbf_ft_numeric, 6, 0);
    qz_dbf_field_init(&fields[1], "NAME", dbf_ft_char, 20, 0);
    qz_dbf_close(qz_dbf_create(path, 2, 4, fields, false));
    t = qz_dbf_open(path, false, false);
    CHECK(qz_dbf_set_int(t, 0, 2, 42) && qz_dbf_set_str(t, 1, 3, "text"));
    CHECK(qz_dbf_get_int(t, 0, 2, &ok) == 42 && ok);
    CHECK(strcmp(qz_dbf_get_str(t, 1, 3, &ok), "text                ") == 0 && ok);
    CHECK(qz_dbf_find_value(t, 1, "TEXT", &record) && record == 3);
    CHECK(qz_dbf_set_wstr_encoded(t, 1, 0, L"AB", 2));
    wide = qz_dbf_get_wstr_encoded(t, 1, 0, &len, &ok);
    CHECK(ok && len == 2 && wide && wcscmp(wide, L"AB") == 0);
    CHECK(qz_dbf_validate_val(t, 0, &typed, "1", false) && typed == '.');
    /* No memo file beside the table: no memo. */
    CHECK(qz_dbf_get_memo_bytes(t, 1, 0, &ok, &len, &type) == NULL && !ok);
    qz_dbf_close(t);
    /* A memory table, with the history manager of qzk_basic. */
    mem = qz_dbf_mem_load(path);
    CHECK(qz_dbf_mem_get_int(mem, 0, 2, &ok) == 42 && ok);
    CHECK(qz_dbf_mem_set_bool(mem, 1, 1, true) && qz_dbf_mem_get_bool(mem, 1, 1, &ok) && ok);
    CHECK(qz_dbf_mem_set_str(mem, 1, 0, "from C"));
    CHECK(qz_history_manager_undo(qz_history_manager_get_instance()));
    wide = qz_dbf_mem_get_wstr(mem, 1, 0, &len, &ok);
    CHECK(ok && len == 2 && wide && wcscmp(wide, L"AB") == 0);
    CHECK(qz_dbf_mem_free(mem));
    qz_history_manager_clear(qz_history_manager_get_instance());

    CHECK(qz_dbf_open_ex("/nonexistent/qz_header_c.dbf", QZ_DBF_OPEN_READ_ONLY) == NULL);
    CHECK(qz_dbf_last_error() == QZ_DBF_ERR_NOT_FOUND);
    CHECK(qz_dbf_del_records_by_msk_progress_w(NULL, NULL, NULL, NULL) ==
              QZ_DBF_DELMASK_CANNOT_OPEN &&
          !qz_dbf_restruct_apply_progress(NULL, NULL, NULL) &&
          !qz_dbf_get_value(NULL, 0, 0, NULL) && qz_dbf_get_field_long_name(NULL, 0) == NULL &&
          qz_dbf_get_field_letter(NULL, 0) == 0);
    return failures ? 1 : 0;
}
