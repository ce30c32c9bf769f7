// Zero fill up to a boundary of the media (SPAD).
#pragma once

#include "mtf/common/stream.h"

namespace MTF {

class Pad_Stream : public Stream {
 public:
  explicit Pad_Stream(const Ref_Ptr<Buffer>& buffer);

  // Makes the stream's data `n` zero bytes, so that it takes n + 22 bytes on the media. False, with
  // a line at LM_ERROR, when memory is short.
  bool length(unsigned int n);

  // Header and fill in one call of the writer: this stream stands in front of every block.
  unsigned long long write(IWriter& writer) override;
};

}  // namespace MTF
