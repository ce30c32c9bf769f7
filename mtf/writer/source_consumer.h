// Gives a data set the catalog blocks of a queue.
#pragma once

#include <array>
#include <memory>
#include <vector>

#include "mtf/catalog/isrc_lister.h"
#include "mtf/catalog/task_base.h"
#include "mtf/writer/block_paths.h"
#include "mtf/writer/look_ahead.h"

namespace MTF {

// Used by the task that owns it.
class Source_Consumer : public ISrc_Lister {
 public:
  explicit Source_Consumer(Cat_Blk_Queue* queue) : queue_(queue) {}

  // Tells `users` of the files to come: while one of them wants it, blocks are taken off the queue
  // ahead of their turn, as far as they are there. They and the volumes that `paths` maps must
  // outlive the object.
  void look_ahead_for(std::vector<Look_Ahead*> users, const Block_Paths& paths);

  using ISrc_Lister::next;
  // False at the FEND block, without a line, and for a queue that was deactivated or a block with a
  // bad checksum.
  bool next(Cat_Blk& blk) override;

  // True once a block had a bad checksum: what ended then was not the source.
  bool damaged() const { return damaged_; }

 private:
  static constexpr std::size_t most_ahead = 64;

  std::unique_ptr<Cat_Blk> take();
  std::unique_ptr<Cat_Blk> dequeue();
  bool is_wanted();
  bool has_room() const;
  void look_ahead();
  void tell(const Cat_Blk& block);
  void find_place();
  void keep_place();

  Cat_Blk_Queue* queue_;
  std::unique_ptr<Cat_Blk> catalog_block_;
  bool damaged_ = false;

  std::vector<Look_Ahead*> users_;
  std::unique_ptr<Block_Paths> paths_;
  std::array<std::unique_ptr<Cat_Blk>, most_ahead> ahead_;  // a ring
  std::size_t first_ahead_ = 0;
  std::size_t ahead_count_ = 0;
  bool is_at_end_ = false;  // the last block that was taken ahead ends the stream
  // The place of the last block that was written, and whether the looking ahead went on from there.
  std::unique_ptr<Cat_Blk> volume_;
  std::unique_ptr<Cat_Blk> dir_;
  bool is_followed_ = false;
};

}  // namespace MTF
