// The 32-bit checksum of the stream before it (CSUM).
#pragma once

#include "mtf/common/stream.h"

namespace MTF {

class Checksum_Stream : public Stream {
 public:
  // Makes `buffer` hold the 4 bytes of the stream's data.
  explicit Checksum_Stream(const Ref_Ptr<Buffer>& buffer);

  void checksum(unsigned int value);
};

}  // namespace MTF
