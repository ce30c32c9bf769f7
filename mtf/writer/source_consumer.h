// Gives a data set the catalog blocks of a queue.
#pragma once

#include <memory>

#include "mtf/catalog/isrc_lister.h"
#include "mtf/catalog/task_base.h"

namespace MTF {

// Used by the task that owns it.
class Source_Consumer : public ISrc_Lister {
 public:
  // `queue` is not owned.
  explicit Source_Consumer(Cat_Blk_Queue* queue) : queue_(queue) {}

  using ISrc_Lister::next;
  // False at the FEND block, without a line, and for a queue that was deactivated or a block with a
  // bad checksum.
  bool next(Cat_Blk& blk) override;

  // True once a block had a bad checksum: what ended then was not the source.
  bool damaged() const { return damaged_; }

 private:
  Cat_Blk_Queue* queue_;
  std::unique_ptr<Cat_Blk> catalog_block_;
  bool damaged_ = false;
};

}  // namespace MTF
