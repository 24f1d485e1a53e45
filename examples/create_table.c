/* Creates a table, closes it, opens it again and prints its counts.
 *
 *   cc create_table.c $(pkg-config --cflags --libs qzk_file_dbf)
 *   ./a.out /tmp/people.dbf
 */
#include <stdio.h>

#include <qzk_file_dbf.h>

int main(int argc, char** argv) {
    const char* path = argc > 1 ? argv[1] : "people.dbf";
    Tqz_dbf_field fields[3];
    qz_dbf_field_init(&fields[0], "NAME", dbf_ft_char, 30, 0);
    qz_dbf_field_init(&fields[1], "AGE", dbf_ft_numeric, 3, 0);
    qz_dbf_field_init(&fields[2], "SALARY", dbf_ft_numeric, 12, 2);

    Tqz_dbf_rw* table = qz_dbf_create(path, 3, 10, fields, false);
    if (!table) {
        fprintf(stderr, "cannot create %s\n", path);
        return 1;
    }
    qz_dbf_close(table);

    table = qz_dbf_open(path, true, false);
    if (!table) {
        fprintf(stderr, "cannot open %s\n", path);
        return 1;
    }
    printf("%s: %u fields, %u records\n", path, qz_dbf_get_nf(table), qz_dbf_get_nr(table));
    for (unsigned int i = 0; i < qz_dbf_get_nf(table); ++i)
        printf("  %-10s %c %u.%d\n", qz_dbf_get_field_name(table, i),
               qz_dbftype2char(qz_dbf_get_field_type(table, i)), qz_dbf_get_field_flen(table, i),
               qz_dbf_get_field_dlen(table, i));
    qz_dbf_close(table);
    return 0;
}
