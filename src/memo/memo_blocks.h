// Memos read and appended by layout, for the typed cell values: FoxPro
// .fpt files (typed blocks: picture 0, text 1, object 2), dBASE III .dbt
// files (512-byte blocks, a memo ends at 0x1A) and dBASE IV/V/7 .dbt files
// (the block size in the file header at byte 20, each memo opened by
// FF FF 08 00 and its length counting those 8 bytes).
#pragma once

#include <cstdint>
#include <string>

#include "memo/memo_file.h"

namespace qz::memo {

enum class layout { fpt, dbt3, dbt4 };

// FPT block types as the file holds them.
constexpr uint32_t fpt_picture = 0, fpt_text = 1, fpt_object = 2;

// The .dbt layout of a table by its version byte: dBASE IV and later
// versions (0x8B, 0xCB, 0x8C, 0x8E, 0x7B) use the dBASE IV layout.
layout dbt_layout_of(uint8_t version);

// The memo at `block`: its bytes and, for an FPT, its block type (text 1
// for the .dbt layouts). A dBASE III layout memo whose block opens as a
// dBASE IV one is read as that. False when the block lies outside the file
// or no memo starts there.
bool read_memo(Tqz_memo_file& file, layout kind, uint32_t block, std::string& bytes,
               uint32_t& type);

// Appends a memo at the end of the file's used blocks and moves the file
// header's next-free-block number past it; `block` is where it starts.
// False with `why` when the file cannot take it (read-only, a block size
// of 0, a dBASE III memo holding the byte 0x1A, a file that would pass
// 4 GiB of blocks) or a write fails.
bool append_memo(Tqz_memo_file& file, layout kind, const std::string& bytes, uint32_t type,
                 uint32_t& block, std::string& why);

}  // namespace qz::memo
