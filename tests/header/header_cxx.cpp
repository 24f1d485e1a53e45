// The public headers compile as C++ with -Wall -Wextra -Werror -pedantic, and
// a C++ host sees the same exports.
#include "qzk_basic.h"
#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "qzk_path.h"

int main() {
    static_assert(sizeof(Tqz_dbf_field) == 14, "packed descriptor");
    return qz_char2dbftype('N') == dbf_ft_numeric && qz_dbftype2char(dbf_ft_date) == 'D' ? 0 : 1;
}
