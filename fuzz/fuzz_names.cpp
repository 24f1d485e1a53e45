// Fuzz target: any bytes as field descriptors (14 bytes each, names without
// their zero included) and as names, under the UTF-8, CP1251 or CP866 system
// code page chosen by the first byte. Every name export runs over them; the
// repairs must leave every name terminated within its 11 bytes, no two names
// alike in any case, and every byte outside the names untouched. A crash, a
// sanitizer report, a leak or a broken promise (abort) is a finding.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "qzk_file_dbf.h"

namespace {

void ignore(void*, const char*) {}

void check(bool promise) {
    if (!promise) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    static const unsigned pages[] = {65001, 1251, 866};
    qz_options_set_ansi_code_page(pages[data[0] % 3]);
    ++data;
    --size;
    const unsigned n = static_cast<unsigned>(std::min<size_t>(size / sizeof(Tqz_dbf_field), 32));
    // Exactly sized copies, so that a step outside the records is caught.
    std::unique_ptr<Tqz_dbf_field[]> fields(new Tqz_dbf_field[n ? n : 1]);
    std::unique_ptr<Tqz_dbf_field[]> orig(new Tqz_dbf_field[n ? n : 1]);
    if (n) std::memcpy(orig.get(), data, n * sizeof(Tqz_dbf_field));
    Iqz_string_adp* out = qz_string_adp_create(&ignore, nullptr, nullptr);

    // Whole lists.
    std::memcpy(fields.get(), orig.get(), n * sizeof(Tqz_dbf_field));
    qz_dbf_fields_names_ok(fields.get(), n);
    qz_dbf_fields_duplicates_ic_ok(fields.get(), n);
    qz_dbf_fields_names_fix(fields.get(), n);
    for (unsigned i = 0; i < n; ++i) check(std::memchr(fields[i].name, 0, 11) != nullptr);
    check(qz_dbf_fields_duplicates_ic_ok(fields.get(), n));
    for (unsigned i = 0; i < n; ++i)
        check(fields[i].type == orig[i].type && fields[i].flen == orig[i].flen &&
              fields[i].dlen == orig[i].dlen);

    std::memcpy(fields.get(), orig.get(), n * sizeof(Tqz_dbf_field));
    qz_dbf_fields_duplicates_ic_fix(fields.get(), n);
    check(qz_dbf_fields_duplicates_ic_ok(fields.get(), n));

    std::memcpy(fields.get(), orig.get(), n * sizeof(Tqz_dbf_field));
    qz_dbf_make_correct_names(fields.get(), static_cast<int>(n));
    // A name the older repair changed ends with its zero.
    for (unsigned i = 0; i < n; ++i)
        check(std::memcmp(fields[i].name, orig[i].name, 11) == 0 ||
              std::memchr(fields[i].name, 0, 11) != nullptr);

    // Single names: the input bytes from the first zero-free stretch.
    std::string name(reinterpret_cast<const char*>(data),
                     strnlen(reinterpret_cast<const char*>(data), std::min<size_t>(size, 40)));
    qz_dbf_field_name_size_ok(name.c_str());
    qz_dbf_field_symbols_ok(name.c_str());
    qz_dbf_field_first_symb_ok(name.c_str());
    qz_dbf_field_name_is_ok(name.c_str());
    qz_dbf_field_name_size_fix(name.c_str(), out);
    qz_dbf_field_symbols_fix(name.c_str(), out);
    qz_dbf_field_first_symb_fix(name.c_str(), out);
    qz_dbf_field_name_fix(name.c_str(), out);
    const unsigned number = size >= 4
                                ? static_cast<unsigned>(data[0] | data[1] << 8 | data[2] << 16 |
                                                        static_cast<unsigned>(data[3]) << 24)
                                : 0;
    qz_dbf_field_name_add_num_ending(name.c_str(), number, out, name.c_str() + name.size() / 2);
    std::memcpy(fields.get(), orig.get(), n * sizeof(Tqz_dbf_field));
    qz_dbf_fields_unique_name(fields.get(), n, name.c_str(), out);
    qz_dbf_fields_unique_name_old(fields.get(), n, name.c_str(), out);

    // Wide names: any 32-bit values, invalid code points included.
    std::wstring wide;
    for (size_t i = 0; i + 4 <= size && wide.size() < 16; i += 4) {
        wchar_t c;
        std::memcpy(&c, data + i, 4);
        if (c == 0) break;
        wide += c;
    }
    qz_dbf_field_symbols_ok_w(wide.c_str());
    qz_dbf_field_name_is_ok_w(wide.c_str());
    qz_dbf_field_symbols_fix_w(wide.c_str(), out);
    qz_dbf_field_name_fix_w(wide.c_str(), out);
    qz_dbf_field_name_add_num_ending_w(wide.c_str(), number, out, wide.c_str());

    qz_string_adp_destroy(out);
    qz_options_set_ansi_code_page(0);
    return 0;
}
