// One compression frame: a 24-byte header (MTF_CMP_HDR) and the data behind it.
#pragma once

#include "mtf/common/format_words.h"
#include "services/buffer.h"
#include "services/record.h"
#include "services/storage.h"

namespace MTF {

// A view of 24 bytes that lie elsewhere.
class Compression_Frame_Header : private Record_View {
 public:
  static constexpr unsigned int fixed_size = frame_header_size;

  explicit Compression_Frame_Header(char* bytes) : Record_View(bytes) {}

  MTF_FIELD(unsigned short, mark, 0)
  MTF_FIELD(unsigned short, media_format_attributes, 2)
  MTF_FIELD(unsigned long long, remaining_stream_size, 4)
  MTF_FIELD(unsigned int, uncompressed_size, 12)
  MTF_FIELD(unsigned int, compressed_size, 16)
  MTF_FIELD(unsigned char, sequence_number, 20)
  MTF_FIELD(unsigned short, checksum, 22)
};

class Compression_Stream {
 public:
  // `media_format_attributes` are those of the stream that the frame belongs to.
  explicit Compression_Stream(unsigned short media_format_attributes);

  Compression_Frame_Header hdr() { return Compression_Frame_Header(header_); }

  // The header's image, complete once write() was called.
  const char* header() const { return header_; }

  // Completes the header with the size of `data` and its checksum, and writes both. Returns the
  // bytes written, or IWriter::failed.
  unsigned long long write(const Buffer& data, IWriter& writer);

 private:
  char header_[Compression_Frame_Header::fixed_size] = {};
};

}  // namespace MTF
