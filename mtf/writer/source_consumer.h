// Gives a data set the catalog blocks of a queue.
#pragma once

#include <array>
#include <memory>

#include "mtf/catalog/isrc_lister.h"
#include "mtf/catalog/task_base.h"
#include "mtf/writer/read_ahead.h"

namespace MTF {

// Used by the task that owns it.
class Source_Consumer : public ISrc_Lister {
 public:
  // `queue` is not owned, nor is `read_ahead`, which may be null: while that wants it, blocks are
  // taken off the queue ahead of their turn, as far as they are there.
  explicit Source_Consumer(Cat_Blk_Queue* queue, Read_Ahead* read_ahead = nullptr)
      : queue_(queue), read_ahead_(read_ahead) {}

  using ISrc_Lister::next;
  // False at the FEND block, without a line, and for a queue that was deactivated or a block with a
  // bad checksum.
  bool next(Cat_Blk& blk) override;

  // True once a block had a bad checksum: what ended then was not the source.
  bool damaged() const { return damaged_; }

 private:
  std::unique_ptr<Cat_Blk> take();
  std::unique_ptr<Cat_Blk> dequeue();
  void look_ahead();
  void find_place();
  void keep_place();

  Cat_Blk_Queue* queue_;
  Read_Ahead* read_ahead_;
  std::unique_ptr<Cat_Blk> catalog_block_;
  bool damaged_ = false;

  std::array<std::unique_ptr<Cat_Blk>, Read_Ahead::most_files> ahead_;  // a ring
  std::size_t first_ahead_ = 0;
  std::size_t ahead_count_ = 0;
  bool is_at_end_ = false;  // the last block that was taken ahead ends the stream
  // The place of the last block that was written, and whether the reading ahead went on from there.
  std::unique_ptr<Cat_Blk> volume_;
  std::unique_ptr<Cat_Blk> dir_;
  bool is_followed_ = false;
};

}  // namespace MTF
