// What kind of block an entry of a directory becomes.
#pragma once

#include "platform/stat.h"
#include "services/text.h"

namespace MTF {

constexpr unsigned int no_type = 0;
// No block type: a deduplicated regular file, which becomes a FILE block.
constexpr unsigned int type_rdup = 0x50554452;

inline bool is_directory(const _stat64& stat) {
  return (stat.st_mode & 0xF000) == 0x4000;
}

// The block type for the mode and reparse type of an entry that isn't a directory; no_type for one
// that can't be saved. FIFOs and block devices of POSIX can be where links are.
inline unsigned int file_type(const _stat64& stat, unsigned int reparse_type, bool save_links) {
  constexpr unsigned int deduplicated = 16;
  const unsigned int m = stat.st_mode & 0xF000;
  if (reparse_type == deduplicated) return m == 0x8000 ? type_rdup : no_type;
  if (reparse_type != 0) return no_type;
  switch (m) {
    case 0x1000:
    case 0x6000:
      return save_links ? +block_devb : no_type;
    case 0x2000:
    case 0x3000:
      return block_devb;
    case 0x8000:
      return block_file;
    case 0xA000:
      return block_slnk;
    default:
      return no_type;
  }
}

}  // namespace MTF
