// qzdbf info PATH [--layer N]
#include <cstdio>
#include <string>

#include "checked_open.h"
#include "cli.h"
#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"

namespace qzdbf {

int cmd_info(const Args& all_args) {
    Args args = all_args;
    const bool force = take_flag(args, "--force");
    std::string layer;
    for (size_t i = 0; i + 1 < args.size(); ++i)
        if (args[i] == "--layer") {
            layer = args[i + 1];
            args.erase(args.begin() + i, args.begin() + i + 2);
            break;
        }
    if (args.size() != 1) return fail(kBadUsage, "info needs exactly one PATH");
    const std::string& path = args[0];
    int status = kOk;
    Tqz_dbf_rw* t = open_table(path, Access::read, force, status);
    if (!t) return status;
    std::string error;
    if (!layer.empty() && !select_layer(t, layer, error)) {
        qz_dbf_close(t);
        return fail(kBadUsage, error);
    }
    const bool ogr = qz_dbf_get_storage(t) == qz_dbf_storage_ogr;

    unsigned char h[32] = {0};
    qz_dbf_get_header(t, h);
    unsigned yy = h[1];
    unsigned year = yy < 80 ? 2000 + yy : 1900 + yy;
    unsigned header_length = h[8] | (h[9] << 8);
    unsigned record_length = h[10] | (h[11] << 8);
    const char* encoding =
        qz_dbf_get_utf8_flag(t) ? "UTF-8" : (qz_dbf_get_dos_flag(t) ? "CP866" : "CP1251");

    unsigned nf = qz_dbf_get_nf(t);
    std::printf("table     %s\n", path.c_str());
    std::printf("storage   %s\n", storage_text(t).c_str());
    if (ogr) {
        // OGR's sources have layers and no table header.
        const unsigned nl = qz_dbf_get_nl(t), current = qz_dbf_get_layer(t);
        std::printf("layers    %u\n", nl);
        for (unsigned i = 0; i < nl; ++i)
            std::printf("  %4u  %s%s\n", i, layer_name(t, i).c_str(),
                        i == current ? "  (current)" : "");
        std::printf("records   %u\n", qz_dbf_get_nr(t));
        std::printf("fields    %u\n", nf);
    } else {
        std::printf("version   0x%02X\n", h[0]);
        std::printf("updated   %04u-%02u-%02u\n", year, h[2], h[3]);
        std::printf("records   %u\n", qz_dbf_get_nr(t));
        std::printf("fields    %u\n", nf);
        std::printf("header    %u bytes\n", header_length);
        std::printf("record    %u bytes\n", record_length);
        std::printf("encoding  %s\n", encoding);
        char text[64] = "";
        static const char* const from[] = {"unknown", "named by the caller", "from the .cpg file",
                                           "from the language driver", "default"};
        const int source = qz_dbf_get_encoding(t, text, sizeof text);
        std::printf("text      %s (%s)\n", text, from[source >= 0 && source <= 4 ? source : 0]);
    }
    if (nf > 0) {
        std::printf("\n  %4s  %-10s  %4s  %3s  %3s\n", "#", "name", "type", "len", "dec");
        for (unsigned i = 0; i < nf; ++i) {
            const char* name = qz_dbf_get_field_name(t, i);
            Tqz_dbf_field_type type = qz_dbf_get_field_type(t, i);
            char letter = type == dbf_ft_unknown ? '?' : static_cast<char>(qz_dbftype2char(type));
            std::printf("  %4u  %-10s  %4c  %3u  %3d\n", i, name ? name : "", letter,
                        qz_dbf_get_field_flen(t, i), qz_dbf_get_field_dlen(t, i));
        }
    }
    qz_dbf_close(t);
    return kOk;
}

}  // namespace qzdbf
