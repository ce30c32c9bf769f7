#include "mtf/common/dir_blk.h"

#include "services/assertion.h"

namespace MTF {

Dir_Blk::Dir_Blk(Buffer& buffer, bool init) : DBLK(buffer, init) {
  if (init) start(block_dirb, fixed_size);
}

bool Dir_Blk::directory_name(const std::string& n) {
  MTF_ASSERT_NOT_EMPTY(n, "n", false);
  if (!has_room(n.size())) return false;
  store_string(80, n);
  return true;
}

}  // namespace MTF
