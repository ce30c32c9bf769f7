#include "mtf/common/stream.h"

#include <cstring>

#include "services/checksum.h"

namespace MTF {
namespace {

constexpr unsigned int stream_checksum_offset = 20;

}  // namespace

unsigned short Stream_Hdr::calc_checksum() const {
  return header_checksum(bytes(), stream_checksum_offset);
}

Stream::Stream() {
  Stream::reset();
}

Stream::Stream(const Ref_Ptr<Buffer>& buffer) : buffer_(buffer) {
  Stream::reset();
}

void Stream::reset() {
  std::memset(header_, 0, sizeof header_);
}

bool Stream::write_header(IWriter& writer) {
  Stream_Hdr view = hdr();
  view.checksum(view.calc_checksum());
  return writer.write(header_, sizeof header_) == sizeof header_;
}

unsigned long long Stream::write(IWriter& writer) {
  if (!write_header(writer)) return IWriter::failed;
  const unsigned long long length = hdr().length();
  if (length > 0 && writer.write(buffer_->data(), length) != length) return IWriter::failed;
  return sizeof header_ + length;
}

}  // namespace MTF
