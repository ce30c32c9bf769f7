#include "mtf/common/sset_blk.h"

namespace MTF {
namespace {

constexpr unsigned int algorithm_offset = 58;

}  // namespace

SSet_Blk::SSet_Blk(Buffer& buffer, bool init) : DBLK(buffer, init) {
  if (init) start(block_sset, fixed_size);
}

unsigned short SSet_Blk::software_compression_algorithm() const {
  return load_le<unsigned short>(bytes() + algorithm_offset);
}

void SSet_Blk::software_compression_algorithm(unsigned short method) {
  store_le(bytes() + algorithm_offset, method);
  if (method != 0) sset_attributes(sset_attributes() | sset_compressed);
}

}  // namespace MTF
