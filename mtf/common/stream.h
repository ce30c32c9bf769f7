// Data streams: the 22-byte header (MTF_STREAM_HDR) and the base of all streams.
#pragma once

#include "mtf/common/format_words.h"
#include "services/buffer.h"
#include "services/record.h"
#include "services/storage.h"

namespace MTF {

// A view of 22 bytes that lie elsewhere.
class Stream_Hdr : private Record_View {
 public:
  static constexpr unsigned int fixed_size = stream_header_size;

  // `size` is the room at `bytes`, at least fixed_size.
  Stream_Hdr(char* bytes, [[maybe_unused]] unsigned int size) : Record_View(bytes) {}

  MTF_FIELD(unsigned int, id, 0)
  MTF_FIELD(unsigned short, file_system_attributes, 4)
  MTF_FIELD(unsigned short, media_format_attributes, 6)
  MTF_FIELD(unsigned long long, length, 8)
  MTF_FIELD(unsigned short, data_compression_algorithm, 18)
  MTF_FIELD(unsigned short, checksum, 20)

  // The checksum of the header as it stands.
  unsigned short calc_checksum() const;
};

// The base of all streams: owns the header's image and shares the data buffer. The caller aligns
// the media to 4 bytes before a stream and adds what write() returns to its position.
class Stream {
 public:
  Stream();
  explicit Stream(const Ref_Ptr<Buffer>& buffer);
  virtual ~Stream() = default;
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  // Writes the header, with its checksum computed anew, and `length` bytes of data. Returns the
  // bytes written, the header's included, or IWriter::failed.
  virtual unsigned long long write(IWriter& writer);

  Stream_Hdr hdr() { return Stream_Hdr(header_, sizeof header_); }
  // To read alone.
  const Stream_Hdr hdr() const { return Stream_Hdr(const_cast<char*>(header_), sizeof header_); }
  void set_buffer(const Ref_Ptr<Buffer>& buffer) { buffer_ = buffer; }

  // Clears the header for a new stream of the same object.
  void reset();

 protected:
  Buffer* buffer() const { return buffer_.get(); }
  const char* header() const { return header_; }

  // Computes the header's checksum and writes its 22 bytes; false on a short write.
  bool write_header(IWriter& writer);

 private:
  char header_[Stream_Hdr::fixed_size];
  Ref_Ptr<Buffer> buffer_;
};

}  // namespace MTF
