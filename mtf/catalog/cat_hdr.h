// The header of every catalog block, and the layouts behind it.
#pragma once

#include "mtf/common/format_words.h"
#include "services/record.h"

namespace MTF {

// A view of the first 64 bytes of a catalog block.
class Cat_Hdr {
 public:
  static constexpr unsigned int fixed_size = 64;

  // `size` is the room at `bytes`, at least fixed_size; null for no block.
  Cat_Hdr(char* bytes, unsigned int size) : bytes_(bytes), size_(size) {}

  MTF_FIELD(unsigned short, length, 0)
  MTF_FIELD(unsigned int, type, 2)
  MTF_FIELD(unsigned short, seq, 6)
  MTF_FIELD(unsigned long long, format_logical_address, 8)
  MTF_FIELD(unsigned long long, size, 16)
  MTF_FIELD(unsigned long long, sset_off, 24)
  MTF_FIELD(unsigned long long, sset_fla, 32)
  MTF_FIELD(unsigned short, flags, 40)
  MTF_FIELD(unsigned long long, space, 48)
  MTF_FIELD(unsigned char, string_type, 60)
  MTF_FIELD(signed char, time_zone, 61)
  MTF_FIELD(unsigned short, checksum, 62)

  // The file number: one value, stored in two halves that are not next to each other.
  unsigned long long ino() const;
  void ino(unsigned long long value);

  // The checksum of the header as it stands.
  unsigned short calc_checksum() const;

 private:
  char* bytes() const { return bytes_; }

  char* bytes_;
  [[maybe_unused]] unsigned int size_;
};

// What stands between the header and the name of a DIRB block and of every file-like block.
struct MTF_CAT_DIRB_BLK {
  static constexpr unsigned int date = 64;
  static constexpr unsigned int name = 69;
  static constexpr unsigned int fixed_size = 73;
};

// The same of a VOLB block, which has no date.
struct MTF_CAT_VOLB_BLK {
  static constexpr unsigned int name = 64;
  static constexpr unsigned int fixed_size = 68;
};

}  // namespace MTF
