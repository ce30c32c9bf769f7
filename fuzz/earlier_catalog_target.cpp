// An incremental job's look at the catalog of the earlier job: the first catalog of the input is
// the earlier one, the entries of the last one are what the walk finds now.
#include <algorithm>
#include <cstdlib>

#include "fuzz/local_file.h"
#include "mtf/writer/incremental_source_producer.h"
#include "services/text.h"

namespace {

constexpr unsigned int own_seq = 9;
constexpr unsigned int most_blocks = 4000;  // fewer than a queue holds

// Gives the sound entries of a catalog as blocks of a walk.
class Walk : public MTF::Source_Processor {
 public:
  Walk() : Source_Processor(false) {}

  unsigned int fill(MTF::Cat_Blk_Queue& queue, MTF::Writer_Hardlink_Map& links) {
    unsigned int blocks = 0;
    for (; blocks < most_blocks && next(); ++blocks) {
      auto block = std::make_unique<MTF::Cat_Blk>();
      if (!block->alloc_buffer(entry().capacity())) break;
      entry_to(*block);
      const bool first = (block->hdr().flags() & MTF::cat_first_link) != 0;
      if (first) links.add(block->hdr().ino(), "first", own_seq);
      queue.enqueue_tail(block.release());
    }
    auto end = std::make_unique<MTF::Cat_Blk>();
    if (!end->alloc_buffer(MTF::Cat_Hdr::fixed_size)) std::abort();
    end->set_end();
    queue.enqueue_tail(end.release());
    return blocks + 1;
  }

 private:
  void entry_to(MTF::Cat_Blk& block) {
    std::copy_n(entry().data(), entry().capacity(), block.data());
    block.hdr().seq(own_seq);
    block.hdr().checksum(block.hdr().calc_checksum());
  }
};

// Every block comes out, with its own bytes or with those of an earlier block of one name.
void check(MTF::Cat_Blk_Queue& queue, unsigned int blocks) {
  for (; blocks > 0; --blocks) {
    MTF::Cat_Blk* taken = nullptr;
    if (queue.is_empty() || queue.dequeue_head(taken) == -1) std::abort();
    const std::unique_ptr<MTF::Cat_Blk> block(taken);
    std::string name;
    const bool end = block->hdr().type() == MTF::block_fend;
    if (end != (blocks == 1) || block->hdr().checksum() != block->hdr().calc_checksum()) {
      std::abort();
    }
    if (!end && !MTF::block_name(*block, name)) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<fuzz::Piece> pieces = fuzz::split(data, size);
  if (pieces.empty()) return 0;
  fuzz::Local_File earlier(pieces.front().bytes);
  fuzz::Local_File now(pieces.back().bytes);
  Walk walk;
  if (!walk.open(now.path())) return 0;
  MTF::Cat_Blk_Queue queue(MTF::queue_mark, MTF::queue_mark);
  const MTF::Ref_Ptr<MTF::Writer_Hardlink_Map> links = MTF::make_writer_hardlink_map();
  MTF::Incremental_Source_Producer producer(earlier.path(), own_seq, 0, nullptr, nullptr);
  producer.set_queue_marks();
  const unsigned int blocks = walk.fill(queue, *links);
  if (producer.init(&queue, links) == 1 && producer.svc_i() == 0) {
    check(*producer.msg_queue(), blocks);
  }
  MTF::drain(queue);
  return 0;
}
