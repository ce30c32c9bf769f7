#include "mtf/common/end_blks.h"

namespace MTF {

CFil_Blk::CFil_Blk(Buffer& buffer, bool init) : DBLK(buffer, init) {
  if (init) start(block_cfil, fixed_size);
}

ESet_Blk::ESet_Blk(Buffer& buffer, bool init) : DBLK(buffer, init) {
  if (init) start(block_eset, fixed_size);
}

EOTM_Blk::EOTM_Blk(Buffer& buffer, bool init) : DBLK(buffer, init) {
  if (init) start(block_eotm, fixed_size);
}

}  // namespace MTF
