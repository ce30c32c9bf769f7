#include "mtf/common/file_blk.h"

#include "services/assertion.h"

namespace MTF {

File_Shaped_Blk::File_Shaped_Blk(Buffer& buffer, bool init, unsigned int type)
    : DBLK(buffer, init) {
  if (init) start(type, fixed_size);
}

bool File_Shaped_Blk::file_name(const std::string& n) {
  MTF_ASSERT_NOT_EMPTY(n, "n", false);
  return store_long_string(84, n);
}

}  // namespace MTF
