// The checksums of the format: 16-bit words over a header, 32-bit words over a stream's data.
#pragma once

#include <cstddef>
#include <cstdint>

namespace MTF {

// XOR of the little-endian 16-bit words in `size` bytes at `data`; 0 for an empty range. The one
// routine behind every header checksum. `data` need not be aligned.
std::uint16_t header_checksum(const void* data, std::size_t size);

// The running checksum of a data stream: XOR of its little-endian 32-bit words, the last one filled
// up with zero bytes. How the data is cut into calls doesn't matter.
class Checksum_Calculator {
 public:
  // Starts a new checksum.
  void reset();

  // Adds `size` bytes. `final` with a null pointer and size 0 ends the checksum.
  void calc(const char* data, unsigned long long size, bool final);

  unsigned int checksum() const { return checksum_; }

 private:
  unsigned int checksum_ = 0;
  unsigned int phase_ = 0;  // bytes taken so far, modulo 4
};

}  // namespace MTF
