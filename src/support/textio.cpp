#include "support/textio.h"

#include "code_page_text.h"

namespace qz::detail {

bool textio_std::write(const std::wstring& text) const {
    if (!stream_) return false;
    // UTF-16/32 rows and `system` carry code page 0: the ANSI code page.
    unsigned int cp = strconv::encoding_table[encoding_].code_page;
    std::string bytes = qz::basic::wide_to_cp(cp, text);
    return std::fputs(bytes.c_str(), stream_) != EOF;
}

}  // namespace qz::detail
