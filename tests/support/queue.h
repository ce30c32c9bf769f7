// What stands on a queue of catalog blocks.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "mtf/catalog/task_base.h"
#include "tests/support/media_layout.h"

namespace test_support {

// Takes all blocks off a queue, each as its bytes.
inline std::vector<std::string> take_blocks(MTF::Cat_Blk_Queue& queue) {
  std::vector<std::string> blocks;
  while (!queue.is_empty()) {
    MTF::Cat_Blk* taken = nullptr;
    queue.dequeue_head(taken);
    const std::unique_ptr<MTF::Cat_Blk> block(taken);
    blocks.emplace_back(block->data(), block->hdr().length());
    EXPECT_EQ(block->hdr().checksum(), xor16(blocks.back(), 0, 62));
  }
  return blocks;
}

// The blocks as `FILE a.txt` and the like.
inline std::vector<std::string> entry_texts(const std::vector<std::string>& blocks) {
  std::vector<std::string> texts;
  for (const std::string& block : blocks) {
    texts.push_back(block.size() > 64 ? entry_text(block) : block.substr(2, 4));
  }
  return texts;
}

}  // namespace test_support
