// The common part of all descriptor blocks: the 52-byte header (MTF_DB_HDR) and the strings behind
// the fixed part.
#pragma once

#include <string>
#include <string_view>

#include "mtf/common/format_words.h"
#include "mtf/common/tape_address.h"
#include "services/buffer.h"
#include "services/record.h"
#include "services/storage.h"
#include "services/text.h"

namespace MTF {

// The greatest length in bytes of a name in a block's name stream.
constexpr unsigned int MTF_PATH_MAX = 32767;

// A view of the header at the start of a block's image.
class DBLK_Hdr {
 public:
  static constexpr unsigned int size = block_header_size;

  explicit DBLK_Hdr(Buffer& image) : image_(image) {}

  MTF_FIELD(unsigned int, type, 0)
  MTF_FIELD(unsigned int, attributes, 4)
  MTF_FIELD(unsigned short, offset_to_first_event, 8)
  MTF_FIELD(unsigned char, os_id, 10)
  MTF_FIELD(unsigned char, os_version, 11)
  MTF_FIELD(unsigned long long, displayable_size, 12)
  MTF_FIELD(unsigned long long, format_logical_address, 20)
  MTF_FIELD(unsigned int, control_block_id, 36)
  MTF_FIELD(unsigned char, string_type, 48)
  MTF_FIELD(unsigned short, checksum, 50)

  // The checksum of the header as it stands.
  unsigned short calc_checksum() const;

 private:
  char* bytes() { return image_.data(); }
  const char* bytes() const { return image_.data(); }

  Buffer& image_;
};

// The base of all block classes. A block owns no bytes: its image is the content of a Buffer, which
// must outlive it.
class DBLK {
 public:
  // Bytes that a fresh image has, and the limit of the strings that a block is never grown for.
  static constexpr unsigned int image_size = 1024;

  // With `init` true starts a new image in `buffer`; throws bad_alloc where that has no room for
  // image_size bytes and can't get it. With false views the image that is there.
  DBLK(Buffer& buffer, bool init);
  virtual ~DBLK() = default;
  DBLK(const DBLK&) = delete;
  DBLK& operator=(const DBLK&) = delete;

  // Zeroes the first image_size bytes and sets what is the same in all blocks.
  virtual void reset();

  // Rounds `offset_to_first_event` up to a multiple of 4, computes the header's checksum and writes
  // that many bytes with one call. Returns them, or IWriter::failed. Can be repeated.
  virtual unsigned long long write(IWriter& writer);

  DBLK_Hdr& hdr() { return hdr_; }
  const DBLK_Hdr& hdr() const { return hdr_; }

  const char* image() const { return buffer_.data(); }

 protected:
  // For a block class's constructor: what a new image of the class starts with.
  void start(unsigned int type, unsigned short fixed_size);

  char* bytes() { return buffer_.data(); }
  const char* bytes() const { return buffer_.data(); }

  // True if a string of `size` bytes fits into the first image_size bytes.
  bool has_room(std::size_t size) const;

  // Puts `text` behind what is in the block and points the address at `address_offset` to it. The
  // room must be there.
  void store_string(unsigned int address_offset, const std::string& text);

  // The same for a name, for which the image grows. False if it can't, or if the block would pass
  // what 16 bits can address.
  bool store_long_string(unsigned int address_offset, const std::string& text);

  // The string that the address at `address_offset` points to, valid until the image changes.
  std::string_view view_at(unsigned int address_offset) const;
  std::string string_at(unsigned int address_offset) const;
  unsigned short string_size_at(unsigned int address_offset) const;

 private:
  const MTF_TAPE_ADDRESS* address_at(unsigned int offset) const;

  Buffer& buffer_;
  DBLK_Hdr hdr_;
};

}  // namespace MTF
