// Tqz_dbt_rw: reads memos from a DBT file: 512-byte blocks, each memo
// running from the start of its block up to the byte 0x1A.
#pragma once

#include "memo/memo_file.h"
#include "memo/memo_format.h"

class Tqz_dbt_rw : public Tqz_memo_file {
  public:
    Tqz_dbt_rw();
    ~Tqz_dbt_rw();

    // 0 when the file is open and its header read, 1 when it cannot be
    // opened. The narrow path is system text.
    int open(const wchar_t* path, bool read_only);
    int open(const char* path, bool read_only);

    // Reads the 512-byte file header into `hdr`; what the file lacks reads as
    // zeros.
    bool read_file_hdr(Tdbt_file_hdr* hdr);

    // The memo at `block`, zero-terminated, in this reader's buffer (valid
    // until the next get_memo, set_buff_size or close); `len` its length and
    // `type` 1 once the terminator was found. The terminator is looked for
    // in the first 64 KiB only: a memo without one there, at or past the end
    // of the file, or empty, gives null with `len` 0.
    const char* get_memo(unsigned int block, unsigned int& len, unsigned int& type);

    const Tdbt_file_hdr& get_file_hdr() const { return header; }

  private:
    Tdbt_file_hdr header;
};
