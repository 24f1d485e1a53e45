// qzdbf info PATH [--layer N] [--encoding NAME]
#include <cstdio>
#include <string>

#include "checked_open.h"
#include "cli.h"
#include "record_view.h"
#include "command.h"
#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"
#include "table_values.h"

namespace qzdbf {

namespace {

// The dialect a version byte stands for.
const char* dialect(unsigned char version) {
    switch (version) {
        case 0x02:
            return "FoxBASE";
        case 0x03:
            return "dBASE III+ or later, no memo";
        case 0x04:
            return "dBASE 7, no memo";
        case 0x05:
            return "dBASE 5, no memo";
        case 0x30:
            return "Visual FoxPro";
        case 0x31:
            return "Visual FoxPro, autoincrement";
        case 0x32:
            return "Visual FoxPro, varchar";
        case 0x43:
        case 0x63:
            return "dBASE IV SQL, no memo";
        case 0x83:
            return "dBASE III+ with memo (.dbt)";
        case 0x8B:
            return "dBASE IV with memo (.dbt)";
        case 0x8C:
            return "dBASE 7 with memo (.dbt)";
        case 0xCB:
        case 0xEB:
            return "dBASE IV SQL with memo";
        case 0xE5:
            return "Clipper SIX with memo";
        case 0xF5:
            return "FoxPro 2 with memo (.fpt)";
        case 0xFB:
            return "FoxBASE with memo";
        default:
            return "unknown";
    }
}

int run_info(const Read_options& o) {
    const std::string& path = o.path;
    int status = kOk;
    Tqz_dbf_rw* t = open_for_reading(o, status);
    if (!t) return status;
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
        std::printf("dialect   %s\n", dialect(h[0]));
        std::printf("updated   %04u-%02u-%02u\n", year, h[2], h[3]);
        std::printf("records   %u\n", qz_dbf_get_nr(t));
        std::printf("fields    %u\n", nf);
        std::printf("header    %u bytes\n", header_length);
        std::printf("record    %u bytes\n", record_length);
        // The encoding the table's text is read and written in, and where
        // that choice came from; then the code page of the classic calls.
        char text[64] = "";
        static const char* const from[] = {"unknown", "named by the caller", "from the .cpg file",
                                           "from the language driver", "default"};
        const int source = qz_dbf_get_encoding(t, text, sizeof text);
        std::printf("encoding  %s (%s)\n", text, from[source >= 0 && source <= 4 ? source : 0]);
        std::printf("flags     %s (the classic calls' code page)\n", encoding);
    }
    if (nf > 0) {
        std::printf("\n  %4s  %-10s  %4s  %3s  %3s\n", "#", "name", "type", "len", "dec");
        for (unsigned i = 0; i < nf; ++i) {
            std::string name;  // padded by the characters shown, not bytes
            pad_to(name, field_name(t, i), 10, false);
            const char letter = field_letter(t, i);
            std::printf("  %4u  %s  %4c  %3u  %3d\n", i, name.c_str(), letter,
                        qz_dbf_get_field_flen(t, i), qz_dbf_get_field_dlen(t, i));
        }
    }
    qz_dbf_close(t);
    return kOk;
}

}  // namespace

Runner setup_info(CLI::App& cmd) {
    auto o = std::make_shared<Read_options>();
    add_read_options(cmd, *o);
    return [o] { return run_info(*o); };
}

}  // namespace qzdbf
