// How the source tasks make the blocks that they queue.
#pragma once

#include <algorithm>
#include <memory>
#include <string>

#include "mtf/catalog/catalog_helper.h"
#include "services/file_path.h"

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

// Leads a stream of blocks from where it stands, `cur_vol` and `cur_dir`, to the directory `dir` of
// `vol`: `put_volume` and `put_dir` put the block of the name that they are given. With each block
// the stream stands where that leads, also where the next one can't be put: then false.
template <class Put_Volume, class Put_Dir>
bool lead_to(const std::string& vol, const std::string& dir, std::string& cur_vol,
             std::string& cur_dir, Put_Volume put_volume, Put_Dir put_dir) {
  std::size_t at = 0;
  // Nothing but its block leads back to the root of a volume.
  if (vol != cur_vol || (dir.empty() && !cur_dir.empty())) {
    if (!put_volume(vol)) return false;
    cur_vol = vol;
    cur_dir.clear();
  } else {
    at = MTF_FS::common_parent(cur_dir, dir);
  }
  for (std::size_t next; (next = dir.find('\\', at)) != std::string::npos; at = next + 1) {
    if (!put_dir(dir.substr(0, next + 1))) return false;
    cur_dir.assign(dir, 0, next + 1);
  }
  cur_dir = dir;
  return true;
}

}  // namespace MTF
