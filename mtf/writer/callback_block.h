// How a host's stat record gets into a block.
#pragma once

#include "mtf/writer/ibackup_callback.h"

namespace MTF {

// The bytes that an entry takes at the host's.
inline unsigned long long space_of(const Callback_Stat& stat) {
  constexpr unsigned int block_shift = 9;
  return stat.blocks << block_shift;
}

template <class Blk>
void set_size_and_dates(Blk& blk, const Callback_Stat& stat) {
  blk.hdr().displayable_size(stat.size);
  blk.last_access_date(stat.atime);
  blk.creation_date(stat.ctime);
  blk.last_modification_date(stat.mtime);
}

}  // namespace MTF
