// The soft filemark block (SFMB) of the format, which stands for a filemark on a storage that has
// none of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "services/buffer.h"

namespace agent {

// The filemarks of one piece. A block fills one physical block, and no stream follows it.
class Soft_Filemarks {
 public:
  // The bytes of a block without its array.
  static constexpr std::size_t fixed_size = 60;

  // Forgets the filemarks of the piece before.
  void reset();

  // Makes the block of a filemark at the physical block address `pba` in `block`, whose size stays:
  // that of a physical block, a multiple of 4 from fixed_size to 65535 bytes. Its array lists the
  // filemarks before it, newest first, as many as fit; an address that 4 bytes can't carry is left
  // out.
  void make(unsigned long long pba, MTF::Buffer& block);

 private:
  std::vector<std::uint32_t> pbas_;  // oldest first
  std::uint32_t count_ = 0;
};

}  // namespace agent
