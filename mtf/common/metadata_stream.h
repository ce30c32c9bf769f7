// A job's metadata as text (META).
#pragma once

#include "mtf/common/stream.h"

namespace MTF {

class Metadata_Stream : public Stream {
 public:
  explicit Metadata_Stream(const Ref_Ptr<Buffer>& buffer);

  // Copies `size` bytes into the buffer as the stream's data. False when memory is short.
  bool set_data(const char* data, unsigned int size);

  // The header's image and the data, for a copy beside the media. Valid until the stream or its
  // buffer changes; the header's checksum is that of the last write().
  void get_hdr(const char*& data, unsigned int& size) const;
  void get_data(const char*& data, unsigned int& size) const;
};

}  // namespace MTF
