#include "mtf/common/pad_stream.h"

#include <ace/Log_Msg.h>

#include <cstring>

namespace MTF {

Pad_Stream::Pad_Stream(const Ref_Ptr<Buffer>& buffer) : Stream(buffer) {
  hdr().id(stream_spad);
}

bool Pad_Stream::length(unsigned int n) {
  if (!buffer()->expand(n + Stream_Hdr::fixed_size)) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to expand buffer in Pad_Stream::length\n")),
                     false);
  }
  std::memset(buffer()->data() + Stream_Hdr::fixed_size, 0, n);
  hdr().length(n);
  return true;
}

unsigned long long Pad_Stream::write(IWriter& writer) {
  Stream_Hdr view = hdr();
  view.checksum(view.calc_checksum());
  std::memcpy(buffer()->data(), header(), Stream_Hdr::fixed_size);
  const unsigned long long size = Stream_Hdr::fixed_size + view.length();
  return writer.write(buffer()->data(), size) == size ? size : IWriter::failed;
}

}  // namespace MTF
