// qzdbf pack PATH
//
// Removes for good the records whose deletion flag is set ('*'): the flags
// are read from the file, and the records they mark are removed by mask.
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "checked_open.h"
#include "cli.h"
#include "command.h"
#include "qzk_basic.h"

namespace qzdbf {

namespace {

// Sets in `mask` the records of the file at `path` whose deletion flag is
// set; `records` of them at most (the header's count). Returns how many, or
// -1 when the file cannot be read.
long long mark_deleted(const std::string& path, unsigned int records, void* mask) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return -1;
    unsigned char head[12] = {};
    if (std::fread(head, 1, sizeof head, f) != sizeof head) {
        std::fclose(f);
        return -1;
    }
    const long header_length = head[8] | head[9] << 8;
    const size_t record_length = head[10] | head[11] << 8;
    long long marked = 0;
    if (record_length > 0 && std::fseek(f, header_length, SEEK_SET) == 0) {
        // Whole records in large reads; a short file ends the walk.
        const size_t chunk = std::max<size_t>(1, (size_t{1} << 20) / record_length);
        std::vector<unsigned char> buffer(chunk * record_length);
        unsigned int r = 0;
        while (r < records) {
            const size_t want = std::min<size_t>(chunk, records - r);
            const size_t got = std::fread(buffer.data(), record_length, want, f);
            for (size_t k = 0; k < got; ++k) {
                if (buffer[k * record_length] == '*') {
                    qz_bits_set_bit(mask, r + static_cast<unsigned int>(k), 1);
                    ++marked;
                }
            }
            r += static_cast<unsigned int>(got);
            if (got < want) break;
        }
    }
    std::fclose(f);
    return marked;
}

int run_pack(const std::string& path) {
    // Checked as for writing: a table that is no table, damaged, locked or
    // read-only is refused before anything is read or copied.
    int status = kOk;
    Tqz_dbf_rw* table = open_table(path, Access::write, false, status);
    if (!table) return status;
    const unsigned int records = qz_dbf_get_nr(table);
    qz_dbf_close(table);
    void* mask = qz_bits_create();
    const long long marked = mark_deleted(path, records, mask);
    if (marked < 0) {
        status = fail(kFailed, "cannot read '" + path + "'");
    } else if (marked == 0) {
        std::printf("removed 0 records, %u left\n", records);
    } else {
        status = remove_by_mask(path, mask, "pack");
    }
    qz_bits_destroy(mask);
    return status;
}

}  // namespace

Runner setup_pack(CLI::App& cmd) {
    auto path = std::make_shared<std::string>();
    cmd.add_option("PATH", *path, "the table (rewritten without its deleted records)")->required();
    return [path] { return run_pack(*path); };
}

}  // namespace qzdbf
