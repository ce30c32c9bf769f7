// Where a data set gets its catalog blocks from.
#pragma once

#include "mtf/catalog/cat_blk.h"

namespace MTF {

// Used by one thread.
class ISrc_Lister {
 public:
  virtual ~ISrc_Lister() = default;

  // Makes `block` hold the next catalog block, or view it until the next call. False at the end of
  // the source and after a failure. Must not throw.
  virtual bool next(Cat_Blk& block) = 0;

  // The same with the position of the block in its source: -1, and a sequence number of 0, where
  // the source has no positions.
  virtual bool next(Cat_Blk& block, long long& position) {
    position = -1;
    return next(block);
  }
  virtual bool next(Cat_Blk& block, unsigned long long& number, long long& position) {
    number = 0;
    return next(block, position);
  }
};

}  // namespace MTF
