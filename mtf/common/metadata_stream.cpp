#include "mtf/common/metadata_stream.h"

namespace MTF {

Metadata_Stream::Metadata_Stream(const Ref_Ptr<Buffer>& buffer) : Stream(buffer) {
  hdr().id(stream_meta);
}

bool Metadata_Stream::set_data(const char* data, unsigned int size) {
  if (!buffer()->expand(size)) return false;
  buffer()->copy(data, size);
  hdr().length(size);
  return true;
}

void Metadata_Stream::get_hdr(const char*& data, unsigned int& size) const {
  data = header();
  size = Stream_Hdr::fixed_size;
}

void Metadata_Stream::get_data(const char*& data, unsigned int& size) const {
  data = buffer()->data();
  size = static_cast<unsigned int>(hdr().length());
}

}  // namespace MTF
