// What a sparse range (SPAR) starts with.
#pragma once

#include "services/buffer.h"
#include "services/bytes.h"

namespace MTF {

// The 8-byte offset of the range in its file.
class Sparse_Header : public Buffer {
 public:
  static constexpr unsigned int fixed_size = 8;

  Sparse_Header() : Buffer(8) {}

  // Empty when memory is short.
  void offset(unsigned long long value) {
    size(0);
    if (!expand(fixed_size)) return;
    store_le(data(), value);
    size(fixed_size);
  }
};

}  // namespace MTF
