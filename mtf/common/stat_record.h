// The records of the stat streams: ownership and inode data of a file, all numbers 64 bits wide.
#pragma once

#include <string>

#include "mtf/common/tape_address.h"
#include "services/buffer.h"
#include "services/record.h"

namespace MTF {

// The short record (STAT), built at the start of a buffer that must have room for it.
class Stat_Info_Setter : private Record_View {
 public:
  static constexpr unsigned int fixed_size = 24;

  explicit Stat_Info_Setter(Buffer& buffer) : Record_View(buffer.data()) {}

  MTF_FIELD(unsigned long long, gid, 0)
  MTF_FIELD(unsigned long long, uid, 8)
  MTF_FIELD(unsigned long long, mode, 16)
};

// The long record (CTEX): the numbers, then at 80 and 84 the addresses of the owner's and the
// group's name, counted from the record's first byte, then the names, unterminated.
class Stat_Extent_Setter {
 public:
  static constexpr unsigned int fixed_size = 88;

  // Makes room for the fixed part at the start of `buffer` and zeroes it; ready() tells whether
  // that worked.
  explicit Stat_Extent_Setter(Buffer& buffer);
  bool ready() const { return ready_; }

  MTF_FIELD(unsigned long long, gid, 0)
  MTF_FIELD(unsigned long long, uid, 8)
  MTF_FIELD(unsigned long long, mode, 16)
  MTF_FIELD(unsigned long long, dev, 24)
  MTF_FIELD(unsigned long long, ino, 32)
  MTF_FIELD(unsigned long long, nlink, 40)
  MTF_FIELD(unsigned long long, rdev, 48)
  MTF_FIELD(unsigned long long, size, 56)
  MTF_FIELD(unsigned long long, reserved, 64)
  MTF_FIELD(unsigned long long, blocks, 72)

  // Appends a name to the record. False, with the record as it was, if memory is short or the name
  // lies beyond what its address can say.
  bool owner(const std::string& name) { return append(80, name); }
  bool group(const std::string& name) { return append(84, name); }

 private:
  char* bytes() { return buffer_.data(); }
  const char* bytes() const { return buffer_.data(); }
  bool append(unsigned int address_offset, const std::string& name);

  Buffer& buffer_;
  unsigned int end_ = fixed_size;
  bool ready_;
};

}  // namespace MTF
