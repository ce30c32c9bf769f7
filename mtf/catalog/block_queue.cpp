#include "mtf/catalog/block_queue.h"

#include <ace/Message_Block.h>
#include <ace/OS_NS_errno.h>

#include <array>
#include <new>

namespace MTF {
namespace {

constexpr std::size_t chunk_size = 64;

bool fail(int error) {
  errno = error;
  return false;
}

}  // namespace

struct Block_Queue::Chunk {
  bool is_full() const { return end == chunk_size; }

  std::size_t begin = 0;
  std::size_t end = 0;
  std::array<std::unique_ptr<Cat_Blk>, chunk_size> blocks;
};

Block_Queue::Block_Queue() : Cat_Blk_Queue(queue_mark, queue_mark) {}

Block_Queue::~Block_Queue() {
  drain(*this);
}

bool Block_Queue::put(std::unique_ptr<Cat_Blk>& block) {
  if (deactivated_) return fail(ESHUTDOWN);
  if (written_ != nullptr && written_->is_full() && !hand_over()) return false;
  if (written_ == nullptr) written_.reset(new (std::nothrow) Chunk);
  if (written_ == nullptr) return fail(ENOMEM);
  written_->blocks[written_->end++] = std::move(block);
  return true;
}

bool Block_Queue::hand_over() {
  return written_ == nullptr || send(written_, nullptr) != -1;
}

// The chunk stays the caller's where it can't be sent.
int Block_Queue::send(std::unique_ptr<Chunk>& chunk, ACE_Time_Value* timeout) {
  // What the message counts are the blocks that the chunk holds.
  auto* message = new (std::nothrow)
      ACE_Message_Block(reinterpret_cast<char*>(chunk.get()), chunk->end * sizeof(Cat_Blk));
  const bool whole = message != nullptr && message->data_block() != nullptr;
  const int result = whole ? queue_.enqueue_tail(message, timeout) : -1;
  if (!whole) errno = ENOMEM;
  if (result != -1) {
    chunk.release();
  } else if (message != nullptr) {
    message->release();
  }
  return result;
}

int Block_Queue::enqueue_tail(Cat_Blk* block, ACE_Time_Value* timeout) {
  if (!hand_over()) return -1;
  std::unique_ptr<Chunk> chunk(new (std::nothrow) Chunk);
  if (chunk == nullptr) return fail(ENOMEM), -1;
  chunk->blocks[chunk->end++].reset(block);
  const int result = send(chunk, timeout);
  if (result == -1) chunk->blocks[0].release();
  return result;
}

int Block_Queue::dequeue_head(Cat_Blk*& block, ACE_Time_Value* timeout) {
  if (deactivated_) return fail(ESHUTDOWN), -1;
  if (read_ == nullptr) {
    ACE_Message_Block* message = nullptr;
    awaited_ = true;
    const int result = queue_.dequeue_head(message, timeout);
    awaited_ = false;
    if (result == -1) return -1;
    read_.reset(reinterpret_cast<Chunk*>(message->base()));
    message->release();
  }
  block = read_->blocks[read_->begin++].release();
  if (read_->begin == read_->end) read_.reset();
  return 0;
}

bool Block_Queue::is_empty() {
  return read_ == nullptr && queue_.is_empty();
}

int Block_Queue::activate() {
  deactivated_ = false;
  return queue_.activate();
}

int Block_Queue::deactivate() {
  deactivated_ = true;
  return queue_.deactivate();
}

void drain(Cat_Blk_Queue& queue) {
  // A deactivated queue gives nothing.
  queue.activate();
  while (!queue.is_empty()) {
    Cat_Blk* block = nullptr;
    if (queue.dequeue_head(block) == -1) return;
    delete block;
  }
}

bool put_block(Cat_Blk_Queue& queue, std::unique_ptr<Cat_Blk>& block) {
  if (auto* const chunks = dynamic_cast<Block_Queue*>(&queue)) return chunks->put(block);
  if (queue.enqueue_tail(block.get()) == -1) return false;
  block.release();
  return true;
}

bool hand_over(Cat_Blk_Queue& queue) {
  auto* const chunks = dynamic_cast<Block_Queue*>(&queue);
  return chunks == nullptr || chunks->hand_over();
}

bool hand_over_if_awaited(Cat_Blk_Queue& queue) {
  auto* const chunks = dynamic_cast<Block_Queue*>(&queue);
  return chunks == nullptr || !chunks->is_awaited() || chunks->hand_over();
}

bool is_at_end_of_chunk(const Cat_Blk_Queue& queue) {
  auto* const chunks = dynamic_cast<const Block_Queue*>(&queue);
  return chunks == nullptr || chunks->is_at_end_of_chunk();
}

}  // namespace MTF
