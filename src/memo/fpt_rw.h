// Tqz_fpt_rw: reads memos from an FPT file. The block size comes from the
// file header; each memo starts with an 8-byte header (type, length).
#pragma once

#include "memo/memo_file.h"
#include "memo/memo_format.h"

class Tqz_fpt_rw : public Tqz_memo_file {
  public:
    Tqz_fpt_rw();
    ~Tqz_fpt_rw();

    // 0 when the file is open and its header read, 1 when it cannot be
    // opened. The narrow path is system text.
    int open(const wchar_t* path, bool read_only);
    int open(const char* path, bool read_only);

    // Reads the 512-byte file header into `hdr`, its block size swapped to
    // host order; what the file lacks reads as zeros.
    bool read_file_hdr(Tfpt_file_hdr* hdr);
    // Reads the 8-byte header of `block` as it stands in the file; false
    // when the file does not hold all of it.
    bool read_block_hdr(int block, Tfpt_block_hdr* hdr);

    // The memo at `block`, zero-terminated, in this reader's buffer (valid
    // until the next get_memo, set_buff_size or close). `len` is its length,
    // `type` the block header's type field unswapped: text reports
    // 0x01000000, a picture 0. A length beyond the end of the file is cut to
    // the bytes there; a block whose header lies beyond it gives null with
    // `len` and `type` 0.
    const char* get_memo(unsigned int block, unsigned int& len, unsigned int& type);

    const Tfpt_file_hdr& get_file_hdr() const { return header; }

  private:
    // block × block size as a signed 32-bit product (the file's addressing).
    int32_t block_offset(unsigned int block) const;

    Tfpt_file_hdr header;
};
