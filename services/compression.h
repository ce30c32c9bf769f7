// Compression of one frame at a time, through the LZ4 and zstd libraries.
#pragma once

#include <cstddef>
#include <memory>

#include "services/buffer.h"

namespace MTF {

// The method numbers that stand in the blocks and stream headers of a media.
enum Compression_Method : unsigned short {
  compression_none = 0,
  compression_lz4 = 1,  // block form
  compression_zstd = 2,
};

// Belongs to one stream. Each call gives a result that can be expanded by itself.
class Compressor {
 public:
  virtual ~Compressor() = default;

  virtual unsigned short method() const = 0;

  // Compresses the content of `in` into `out`, which grows as needed, and sets its size. Returns
  // the size, or a negative value on failure.
  virtual int compress(const Buffer& in, Buffer& out) = 0;
};

class Compression_Factory {
 public:
  // A compressor; null for method 0, for an unknown method, and, with errno 12, when memory is
  // short. A higher `level` costs more time and gives less data; a level outside the method's range
  // counts as the nearest one in it.
  static std::unique_ptr<Compressor> create(unsigned short method, int level);
};

// Expands one frame. True if the `in_size` bytes at `in` give exactly `out_size` bytes, which are
// then at `out`; nothing is written beyond them, whatever the input holds.
bool decompress(unsigned short method, const char* in, std::size_t in_size, char* out,
                std::size_t out_size);

}  // namespace MTF
