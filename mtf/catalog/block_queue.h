// The queue between two tasks of a job.
#pragma once

#include <ace/Task_Ex_T.h>

#include <atomic>
#include <memory>

#include "mtf/catalog/cat_blk.h"

namespace MTF {

using Cat_Blk_Queue = ACE_Message_Queue_Ex<Cat_Blk, ACE_MT_SYNCH, ACE_System_Time_Policy>;

// Both water marks of every queue of a job. A block counts as an object of its class.
constexpr std::size_t queue_mark = 800000;

// Hands blocks over in chunks: a reader who waits is woken for many of them at once, and a message,
// the lock and its memory are for all of them. The marks count the blocks of all chunks that the
// reader hasn't begun. One writer, one reader, and anybody may deactivate it. What is left on it in
// the end is freed with it.
//
// One of ACE's own ends the process where there is no memory for a message.
class Block_Queue final : public Cat_Blk_Queue {
 public:
  // Both marks are the usual one of a job's queue.
  Block_Queue();
  // Frees the blocks that are left.
  ~Block_Queue() override;

  // The writer's side. Takes `block`, which the reader gets with the chunk it is in: when that is
  // full, or with hand_over(). False, with errno and without the block, for a deactivated queue or
  // without memory; blocks that were taken before are kept in either case.
  bool put(std::unique_ptr<Cat_Blk>& block);
  // Gives the reader all that put() took; false, with errno, as above. Waits while the queue is
  // full.
  bool hand_over();
  // True where nothing should be held back: the reader has nothing to do, or has gone.
  bool is_awaited() const { return awaited_ || deactivated_; }

  // The reader's side: true where the next block is in a chunk that isn't there yet, perhaps.
  bool is_at_end_of_chunk() const { return read_ == nullptr; }

  // As in ACE, behind all that put() took.
  int enqueue_tail(Cat_Blk* block, ACE_Time_Value* timeout = nullptr) override;
  int dequeue_head(Cat_Blk*& block, ACE_Time_Value* timeout = nullptr) override;
  bool is_empty() override;
  int activate() override;
  int deactivate() override;

 private:
  struct Chunk;

  int send(std::unique_ptr<Chunk>& chunk, ACE_Time_Value* timeout);

  std::unique_ptr<Chunk> written_;  // the writer's, not yet handed over
  std::unique_ptr<Chunk> read_;     // the reader's, with at least one more block
  std::atomic<bool> awaited_{false};
  std::atomic<bool> deactivated_{false};
};

// Takes all blocks off a queue, also a deactivated one, and frees them: a queue of ACE's own frees
// its messages, not what they carry.
void drain(Cat_Blk_Queue& queue);

// put(), hand_over() and the rest for whatever queue a task was given: one of ACE's own takes and
// gives every block by itself.
bool put_block(Cat_Blk_Queue& queue, std::unique_ptr<Cat_Blk>& block);
bool hand_over(Cat_Blk_Queue& queue);
bool hand_over_if_awaited(Cat_Blk_Queue& queue);
bool is_at_end_of_chunk(const Cat_Blk_Queue& queue);

}  // namespace MTF
