#include "mtf/writer/block_paths.h"

#include <algorithm>
#include <utility>

#include "mtf/common/format_words.h"
#include "services/file_path.h"

namespace MTF {

void Block_Paths::go_to(const Cat_Blk& block) {
  const unsigned int type = block.hdr().type();
  if (type != block_volb && type != block_dirb) return;
  std::string name;
  if (!block_name(block, name)) return;
  std::replace(name.begin(), name.end(), '\0', '\\');
  if (type == block_dirb) {
    dir_ = std::move(name);
    return;
  }
  dir_.clear();
  shadow_.clear();
  volume_ = std::move(name);
  if (volume_map_ == nullptr) return;
  const auto found = volume_map_->find(volume_);
  if (found != volume_map_->end()) shadow_ = found->second;
}

bool Block_Paths::find_file(const Cat_Blk& block, std::string& path) const {
  const auto& hdr = block.hdr();
  std::string name;
  if (hdr.type() != block_file || hdr.seq() != seq_ || hdr.size() == 0 ||
      !block_name(block, name)) {
    return false;
  }
  oxbase::Path_T<char> full('\\', false);
  if (!MTF_FS::replace_volume(volume_, dir_, name, shadow_, full)) return false;
  path = full.str();
  return true;
}

}  // namespace MTF
