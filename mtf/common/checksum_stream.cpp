#include "mtf/common/checksum_stream.h"

namespace MTF {
namespace {

constexpr unsigned int data_size = 4;

}  // namespace

// Where memory is short the stream keeps length 0 and its data is left out.
Checksum_Stream::Checksum_Stream(const Ref_Ptr<Buffer>& buffer) : Stream(buffer) {
  hdr().id(stream_csum);
  if (this->buffer()->expand(data_size)) hdr().length(data_size);
}

void Checksum_Stream::checksum(unsigned int value) {
  if (hdr().length() == data_size) store_le(buffer()->data(), value);
}

}  // namespace MTF
