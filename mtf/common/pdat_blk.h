// Pre-action data, a block of the system's own in the shape of a file's.
#pragma once

#include "mtf/common/file_blk.h"

namespace MTF {

class PDat_Blk : public File_Shaped_Blk {
 public:
  PDat_Blk(Buffer& buffer, bool init) : File_Shaped_Blk(buffer, init, block_pdat) {}
};

}  // namespace MTF
