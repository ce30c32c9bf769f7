#include "mtf/common/compression_stream.h"

#include "services/checksum.h"

namespace MTF {
namespace {

constexpr unsigned int frame_checksum_offset = 22;

}  // namespace

Compression_Stream::Compression_Stream(unsigned short media_format_attributes) {
  hdr().mark(frame_mark);
  hdr().media_format_attributes(media_format_attributes);
}

unsigned long long Compression_Stream::write(const Buffer& data, IWriter& writer) {
  hdr().compressed_size(data.size());
  hdr().checksum(header_checksum(header_, frame_checksum_offset));
  if (writer.write(header_, sizeof header_) != sizeof header_) return IWriter::failed;
  if (writer.write(data.data(), data.size()) != data.size()) return IWriter::failed;
  return sizeof header_ + data.size();
}

}  // namespace MTF
