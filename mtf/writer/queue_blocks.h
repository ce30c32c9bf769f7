// How the source tasks make the blocks that they queue.
#pragma once

#include <algorithm>
#include <memory>
#include <string>

#include "mtf/catalog/catalog_helper.h"

namespace MTF {

// A new block of class `Blk` with room for `name`; null, with errno 12, when memory is short.
template <class Blk>
std::unique_ptr<Blk> make_room(const std::string& name) {
  return Cat_Blk::create<Blk>(static_cast<unsigned int>(Blk::buffer_need(name.size())));
}

// A volume or directory block; its name travels with NUL bytes in place of backslashes. Null on
// failure.
template <class Blk>
std::unique_ptr<Blk> make_separated_blk(unsigned short seq, std::string name) {
  std::unique_ptr<Blk> block = make_room<Blk>(name);
  std::replace(name.begin(), name.end(), '\\', '\0');
  if (block == nullptr || !block->set(seq, name)) return nullptr;
  return block;
}

// The block that ends a queue; null, with errno 12, when memory is short.
inline std::unique_ptr<Cat_Blk> make_end_blk() {
  std::unique_ptr<Cat_Blk> block = Cat_Blk::create<Cat_Blk>(Cat_Hdr::fixed_size);
  if (block != nullptr) block->set_end();
  return block;
}

}  // namespace MTF
